// What arrives at a server, in a program that knows nothing but sentry.h: for the library and for its stand-in.
#include "support/DirectoryLink.h"
#include "support/EnvelopeParser.h"
#include "support/IngestionServer.h"
#include "support/TestFolder.h"
#include "support/Text.h"
#include "support/TlsFront.h"

#include <windows.h>

#include <dbghelp.h>
#include <sentry.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace Testing;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

#ifdef SENTRY_STAND_IN
constexpr bool c_isStandIn = true;
#else
constexpr bool c_isStandIn = false; // the library: with sessions, without minidumps
#endif

// What sentry_close may take, in milliseconds, and what a busy machine may add to it: less than the twenty seconds that
// WinHTTP waits for an answer.
constexpr DWORD c_closeLimit = 2000;
constexpr DWORD c_closeTolerance = 16'000;

class SentryArrivalTest : public testing::Test
{
protected:
    ~SentryArrivalTest() override { sentry_close(); }

    void Start(const std::string& dsn) const
    {
        sentry_options_t* const options = sentry_options_new();
        sentry_options_set_dsn(options, dsn.c_str());
        sentry_options_set_database_path(options, Narrow(database).c_str());
        sentry_options_set_release(options, "arrival@1.2.3");
        sentry_options_set_debug(options, 0);
        EXPECT_EQ(sentry_init(options), 0);
    }

    static void Leave(const std::string& message)
    {
        sentry_add_breadcrumb(sentry_value_new_breadcrumb(nullptr, message.c_str()));
    }

    static void Capture(sentry_level_t level, const std::string& message)
    {
        sentry_capture_event(sentry_value_new_message_event(level, "logger", message.c_str()));
    }

    // Closes when so many reports have arrived, which may take longer than closing would wait. Returns the number of
    // those that are left.
    static int CloseAfter(std::size_t reports, const IngestionServer& server)
    {
        EXPECT_TRUE(server.WaitFor(reports));
        return Close();
    }

    // Closes, and sees to it that it does not take too long. Returns the number of reports that are left.
    static int Close()
    {
        int left = -1;
        const HANDLE thread = CreateThread(
            nullptr, 0,
            [](void* result) -> DWORD {
                *static_cast<int*>(result) = sentry_close();
                return 0;
            },
            &left, 0, nullptr);
        const bool isInTime = WaitForSingleObject(thread, c_closeLimit + c_closeTolerance) == WAIT_OBJECT_0;
        EXPECT_TRUE(isInTime) << "sentry_close takes too long";
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
        return left;
    }

    // The envelopes with an event, in the order of their arrival. All others are in order too.
    static std::vector<ParsedEnvelope> Envelopes(const IngestionServer& server)
    {
        std::vector<ParsedEnvelope> envelopes;
        for (const IngestionRequest& request : server.Requests())
        {
            EXPECT_EQ(request.method, "POST");
            EXPECT_EQ(request.path, IngestionServer::c_path);
            EXPECT_EQ(request.Header("content-type"), "application/x-sentry-envelope");
            EXPECT_EQ(request.Header("content-length"), std::to_string(request.body.size()));
            EXPECT_THAT(request.Header("x-sentry-auth"),
                        HasSubstr(std::string("Sentry sentry_key=") + IngestionServer::c_key + ", sentry_version=7, "));
            EXPECT_THAT(request.Header("user-agent"), testing::StartsWith("sentry.native"));
            ParsedEnvelope envelope = ParseEnvelope(request.body);
            if (!envelope.items.empty() && envelope.items[0].header["type"] == "event")
            {
                EXPECT_THAT(FaultsOf(EventOf(envelope)), IsEmpty()) << EventOf(envelope);
                envelopes.push_back(std::move(envelope));
            }
        }
        return envelopes;
    }

    static std::vector<std::string> Breadcrumbs(const nlohmann::json& event)
    {
        std::vector<std::string> messages;
        for (const auto& breadcrumb : event.at("breadcrumbs"))
        {
            messages.push_back(breadcrumb.at("message"));
        }
        return messages;
    }

    static std::string Message(const ParsedEnvelope& envelope)
    {
        return EventOf(envelope).at("message").at("formatted");
    }

    // The files that a run has left in the database folder, by what their names end in.
    std::map<std::wstring, std::string> LeftFiles() const
    {
        std::map<std::wstring, std::string> files;
        WIN32_FIND_DATAW found{};
        HANDLE search = FindFirstFileW((database + L"\\*.run").c_str(), &found);
        if (search == INVALID_HANDLE_VALUE)
        {
            throw std::runtime_error("no run was left");
        }
        const std::wstring run = database + L"\\" + found.cFileName + L"\\";
        FindClose(search);
        search = FindFirstFileW((run + L"*").c_str(), &found);
        do
        {
            const std::wstring name = found.cFileName;
            if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            {
                files[name.substr(name.rfind(L'.'))] = ReadFileText(run + name);
            }
        } while (FindNextFileW(search, &found));
        FindClose(search);
        return files;
    }

    TestFolder root;
    std::wstring database = root / L"Uninstaller\\Sentry";
};

TEST_F(SentryArrivalTest, events_arrive_whole_and_in_order)
{
    const IngestionServer server;
    Start(server.Dsn());
    Leave("one");
    Leave("two \xC3\xA4\"\\\r\n");
    Capture(SENTRY_LEVEL_WARNING, "It failed.");
    Leave("Error:three");
    Capture(SENTRY_LEVEL_ERROR, "It failed \xE6\x97\xA5 again.\nReason: 'x'");
    EXPECT_EQ(CloseAfter(2, server), 0);

    const auto envelopes = Envelopes(server);
    ASSERT_EQ(envelopes.size(), 2U);
    const auto first = EventOf(envelopes[0]);
    EXPECT_EQ(first["level"], "warning");
    EXPECT_EQ(first["logger"], "logger");
    EXPECT_EQ(first["message"]["formatted"], "It failed.");
    EXPECT_EQ(first["release"], "arrival@1.2.3");
    EXPECT_EQ(first["environment"], "production");
    EXPECT_THAT(Breadcrumbs(first), ElementsAre("one", "two \xC3\xA4\"\\\r\n"));
    EXPECT_TRUE(envelopes[0].header.contains("sent_at") || !c_isStandIn);
    const auto second = EventOf(envelopes[1]);
    EXPECT_EQ(second["level"], "error");
    EXPECT_EQ(second["message"]["formatted"], "It failed \xE6\x97\xA5 again.\nReason: 'x'");
    EXPECT_THAT(Breadcrumbs(second), ElementsAre("one", "two \xC3\xA4\"\\\r\n", "Error:three"));
    EXPECT_NE(first["event_id"], second["event_id"]);
    EXPECT_EQ(Exists(database), !c_isStandIn);
}

TEST_F(SentryArrivalTest, the_last_hundred_breadcrumbs_arrive)
{
    const IngestionServer server;
    Start(server.Dsn());
    std::vector<std::string> expected;
    for (int i = 0; i < 130; ++i)
    {
        Leave("step " + std::to_string(i));
        if (i >= 30)
        {
            expected.push_back("step " + std::to_string(i));
        }
    }
    Capture(SENTRY_LEVEL_ERROR, "text");
    CloseAfter(1, server);
    ASSERT_EQ(Envelopes(server).size(), 1U);
    EXPECT_EQ(Breadcrumbs(EventOf(Envelopes(server)[0])), expected);
}

TEST_F(SentryArrivalTest, a_run_without_events_sends_none)
{
    const IngestionServer server;
    Start(server.Dsn());
    Leave("one");
    EXPECT_EQ(Close(), 0);
    EXPECT_THAT(Envelopes(server), IsEmpty());
    if (c_isStandIn)
    {
        EXPECT_EQ(server.Requests().size(), 0U);
        EXPECT_FALSE(Exists(database));
    }
}

TEST_F(SentryArrivalTest, events_of_a_run_without_a_folder_arrive)
{
    if (!c_isStandIn)
    {
        GTEST_SKIP() << "The library does not start without a folder.";
    }
    root.AddFile(L"Uninstaller\\Sentry", "a file");
    const IngestionServer server;
    Start(server.Dsn());
    Capture(SENTRY_LEVEL_ERROR, "text");
    EXPECT_EQ(CloseAfter(1, server), 0);
    EXPECT_EQ(Envelopes(server).size(), 1U);
    EXPECT_EQ(ReadFileText(database), "a file");
}

TEST_F(SentryArrivalTest, a_folder_that_is_a_link_is_left_alone)
{
    if (!c_isStandIn)
    {
        GTEST_SKIP() << "The library follows links.";
    }
    const std::wstring target = root.AddFolder(L"target");
    root.AddFile(L"target\\x.run\\1.envelope", "{\"event_id\":\"1\"}\n{\"type\":\"event\"}\n{}\n");
    root.AddFolder(L"Uninstaller");
    ASSERT_TRUE(CreateDirectoryLink(database, target));
    const IngestionServer server;
    Start(server.Dsn());
    Capture(SENTRY_LEVEL_ERROR, "text");
    EXPECT_EQ(CloseAfter(1, server), 0);
    ASSERT_EQ(Envelopes(server).size(), 1U);
    EXPECT_EQ(Message(Envelopes(server)[0]), "text");
    EXPECT_TRUE(Exists(target + L"\\x.run\\1.envelope"));
    EXPECT_TRUE(RemoveDirectoryLink(database));
}

// A server's behaviour, and what becomes of a report.
struct Trouble
{
    const char* name;
    IngestionAnswer answer;
    bool isKept;
};

void PrintTo(const Trouble& trouble, std::ostream* stream)
{
    *stream << trouble.name;
}

class SentryTroubleTest : public SentryArrivalTest, public testing::WithParamInterface<Trouble>
{
};

TEST_P(SentryTroubleTest, holds_nothing_up)
{
    const IngestionServer server([](std::size_t) { return GetParam().answer; });
    Start(server.Dsn());
    Capture(SENTRY_LEVEL_ERROR, "text");
    const int left = CloseAfter(1, server);
    if (!c_isStandIn)
    {
        return;
    }
    EXPECT_EQ(server.Requests().size(), 1U);
    EXPECT_EQ(left, GetParam().isKept ? 1 : 0);
    EXPECT_EQ(Exists(database), GetParam().isKept);

    // What got no answer is sent by a later run.
    const IngestionServer next;
    const std::size_t kept = GetParam().isKept ? 1 : 0;
    Start(next.Dsn());
    EXPECT_EQ(CloseAfter(kept, next), 0);
    EXPECT_EQ(Envelopes(next).size(), kept);
    EXPECT_FALSE(Exists(database));
}

constexpr const char* c_tooMany = "HTTP/1.1 429 Too Many Requests\r\nConnection: close\r\nContent-Length: 0\r\n";

INSTANTIATE_TEST_SUITE_P(
    SentryArrivalTest, SentryTroubleTest,
    testing::Values(
        Trouble{"a silent server", {.text = "", .mostOfBody = 0, .staysSilent = true}, true},
        Trouble{"a server that stops after the headers", {.text = "HTTP/1.1 200 OK\r\n", .staysSilent = true}, true},
        Trouble{"a server that hangs up before the body", {.text = "", .mostOfBody = 0}, true},
        Trouble{"a server that hangs up within the body", {.text = "", .mostOfBody = 200}, true},
        Trouble{"a server that hangs up after the body", {.text = ""}, true},
        Trouble{"a server that talks something else", {.text = "220 mail.example ESMTP\r\n\r\n"}, true},
        Trouble{"too many requests", {.text = std::string(c_tooMany) + "Retry-After: 60\r\n\r\n"}, false},
        Trouble{"an answer with a very long header",
                {.text = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\nX-Sentry-Rate-Limits: " +
                         std::string(20'000, 'x') + "\r\n\r\n"},
                false},
        Trouble{"a very long answer",
                {.text = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 999999999999\r\n\r\n" +
                         std::string(1'000'000, 'x'),
                 .staysSilent = true},
                false},
        Trouble{"a server error",
                {.text = "HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nContent-Length: 0\r\n\r\n"},
                false},
        Trouble{
            "a refusal", {.text = "HTTP/1.1 413 Too Large\r\nConnection: close\r\nContent-Length: 0\r\n\r\n"}, false},
        Trouble{"a request for a password",
                {.text = "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: NTLM\r\nConnection: close\r\n"
                         "Content-Length: 0\r\n\r\n"},
                false},
        Trouble{"a redirection",
                {.text = "HTTP/1.1 307 Temporary Redirect\r\nLocation: /elsewhere\r\nConnection: close\r\n"
                         "Content-Length: 0\r\n\r\n"},
                false}));

TEST_F(SentryArrivalTest, no_server_holds_nothing_up)
{
    Start(DsnOfNobody());
    Capture(SENTRY_LEVEL_ERROR, "one");
    Capture(SENTRY_LEVEL_ERROR, "two");
    EXPECT_EQ(Close(), c_isStandIn ? 2 : 0);
    if (c_isStandIn)
    {
        const IngestionServer server;
        Start(server.Dsn());
        Capture(SENTRY_LEVEL_ERROR, "three");
        EXPECT_EQ(CloseAfter(3, server), 0);
        const auto envelopes = Envelopes(server);
        ASSERT_EQ(envelopes.size(), 3U);
        std::vector<std::string> messages;
        for (const ParsedEnvelope& envelope : envelopes)
        {
            messages.push_back(Message(envelope));
        }
        EXPECT_THAT(messages, testing::UnorderedElementsAre("one", "two", "three"));
        EXPECT_FALSE(Exists(database));
    }
}

TEST_F(SentryArrivalTest, nothing_is_said_in_the_clear_to_a_server_that_was_to_be_encrypted)
{
    const IngestionServer server;
    Start("https" + server.Dsn().substr(std::strlen("http")));
    Capture(SENTRY_LEVEL_ERROR, "text");
    EXPECT_EQ(Close(), c_isStandIn ? 1 : 2); // the library keeps its session too
    EXPECT_THAT(server.Requests(), IsEmpty());
}

// A server that speaks TLS, with a certificate that holds or with one that does not.
class SentryTlsTest : public SentryArrivalTest
{
protected:
    void SetUp() override
    {
        if (!TlsFront::IsPossible())
        {
            GTEST_SKIP() << "The server that speaks TLS is a program of the system below Wine.";
        }
    }

    // Captures an event, which does not get through. It is sent by a later run.
    void ExpectNothingToBeSent(const std::string& dsn) const
    {
        Start(dsn);
        Capture(SENTRY_LEVEL_ERROR, "text");
        EXPECT_EQ(Close(), c_isStandIn ? 1 : 0);
        EXPECT_THAT(server.Requests(), IsEmpty());
        if (c_isStandIn)
        {
            Start(server.Dsn());
            EXPECT_EQ(CloseAfter(1, server), 0);
            ASSERT_EQ(Envelopes(server).size(), 1U);
            EXPECT_EQ(Message(Envelopes(server)[0]), "text");
        }
    }

    IngestionServer server;
};

TEST_F(SentryTlsTest, events_arrive_at_a_server_whose_certificate_is_of_a_trusted_authority)
{
    const TlsFront front(server, "localhost", 1);
    const TrustedAuthority trust(front.Authority());
    Start(front.Dsn());
    Capture(SENTRY_LEVEL_ERROR, "text");
    EXPECT_EQ(CloseAfter(1, server), 0); // Wine takes a second to look at its authorities for the first time
    ASSERT_EQ(Envelopes(server).size(), 1U);
    EXPECT_EQ(Message(Envelopes(server)[0]), "text");
    EXPECT_EQ(Exists(database), !c_isStandIn);
}

TEST_F(SentryTlsTest, nothing_is_sent_when_nobody_trusts_the_authority)
{
    const TlsFront front(server, "localhost", 1);
    ExpectNothingToBeSent(front.Dsn());
}

TEST_F(SentryTlsTest, nothing_is_sent_when_another_authority_is_trusted)
{
    const TlsFront front(server, "localhost", 1);
    const TlsFront other(server, "localhost", 1);
    const TrustedAuthority trust(other.Authority());
    ExpectNothingToBeSent(front.Dsn());
}

TEST_F(SentryTlsTest, nothing_is_sent_when_the_certificate_is_another_hosts)
{
    const TlsFront front(server, "elsewhere.example", 1);
    const TrustedAuthority trust(front.Authority());
    ExpectNothingToBeSent(front.Dsn());
}

TEST_F(SentryTlsTest, nothing_is_sent_when_the_certificate_has_expired)
{
    const TlsFront front(server, "localhost", -1);
    const TrustedAuthority trust(front.Authority());
    ExpectNothingToBeSent(front.Dsn());
}

TEST_F(SentryTlsTest, trust_ends_with_the_test)
{
    const TlsFront front(server, "localhost", 1);
    {
        const TrustedAuthority trust(front.Authority());
    }
    ExpectNothingToBeSent(front.Dsn());
}

TEST_F(SentryArrivalTest, a_DSN_that_is_none_sends_nothing)
{
    for (const char* const dsn : {"", "nonsense", "https://host/1"})
    {
        Start(dsn);
        Capture(SENTRY_LEVEL_ERROR, "text");
        EXPECT_EQ(Close(), 0);
    }
}

class SentryLimitTest : public SentryArrivalTest, public testing::WithParamInterface<const char*>
{
};

TEST_P(SentryLimitTest, is_kept_to)
{
    const IngestionServer server([](std::size_t) { return IngestionAnswer{.text = GetParam()}; });
    Start(server.Dsn());
    Capture(SENTRY_LEVEL_ERROR, "one");
    ASSERT_TRUE(server.WaitFor(1));
    Capture(SENTRY_LEVEL_ERROR, "two");
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Envelopes(server).size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    SentryArrivalTest, SentryLimitTest,
    testing::Values("HTTP/1.1 429 Too Many Requests\r\nConnection: close\r\nContent-Length: 0\r\n\r\n",
                    "HTTP/1.1 429 Too Many Requests\r\nConnection: close\r\nContent-Length: 0\r\n"
                    "Retry-After: 30\r\n\r\n",
                    "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n"
                    "X-Sentry-Rate-Limits: 30:error;transaction:organization\r\n\r\n"));

// How a program ends, and the code that stands in its minidump.
struct Crash
{
    const char* end;
    DWORD code;
};

void PrintTo(const Crash& crash, std::ostream* stream)
{
    *stream << crash.end;
}

// What a minidump tells, read from its streams.
struct Minidump
{
    std::size_t threads = 0;
    std::size_t modules = 0;
    DWORD code = 0;
    DWORD crashedThread = 0;
    bool hasCrashedThread = false;
    bool hasContext = false;
    WORD architecture = 0xFFFF;
};

// Throws std::out_of_range when the minidump is cut off.
template <class Type>
Type ReadAt(const std::string& bytes, std::size_t offset)
{
    Type value{};
    const std::string part = bytes.substr(offset, sizeof(value));
    if (part.size() != sizeof(value))
    {
        throw std::out_of_range("a minidump that is cut off");
    }
    std::memcpy(&value, part.data(), sizeof(value));
    return value;
}

Minidump ParseMinidump(const std::string& bytes)
{
    Minidump dump;
    const auto header = ReadAt<MINIDUMP_HEADER>(bytes, 0);
    EXPECT_EQ(header.Signature, 0x504D444DU); // "MDMP"
    std::vector<DWORD> threads;
    for (ULONG32 i = 0; i < header.NumberOfStreams; ++i)
    {
        const auto entry =
            ReadAt<MINIDUMP_DIRECTORY>(bytes, header.StreamDirectoryRva + i * sizeof(MINIDUMP_DIRECTORY));
        const std::size_t begin = entry.Location.Rva;
        EXPECT_LE(begin + entry.Location.DataSize, bytes.size());
        switch (entry.StreamType)
        {
        case ThreadListStream:
            dump.threads = ReadAt<ULONG32>(bytes, begin);
            for (std::size_t thread = 0; thread < dump.threads; ++thread)
            {
                threads.push_back(
                    ReadAt<MINIDUMP_THREAD>(bytes, begin + sizeof(ULONG32) + thread * sizeof(MINIDUMP_THREAD))
                        .ThreadId);
            }
            break;
        case ModuleListStream:
            dump.modules = ReadAt<ULONG32>(bytes, begin);
            break;
        case ExceptionStream: {
            const auto exception = ReadAt<MINIDUMP_EXCEPTION_STREAM>(bytes, begin);
            dump.code = exception.ExceptionRecord.ExceptionCode;
            dump.crashedThread = exception.ThreadId;
            dump.hasContext = exception.ThreadContext.DataSize >= sizeof(CONTEXT) &&
                              ReadAt<CONTEXT>(bytes, exception.ThreadContext.Rva).Rip != 0;
            break;
        }
        case SystemInfoStream:
            dump.architecture = ReadAt<MINIDUMP_SYSTEM_INFO>(bytes, begin).ProcessorArchitecture;
            break;
        default:
            break;
        }
    }
    dump.hasCrashedThread = std::ranges::find(threads, dump.crashedThread) != threads.end();
    return dump;
}

class SentryCrashTest : public SentryArrivalTest, public testing::WithParamInterface<Crash>
{
protected:
    // Runs the program beside this one, as a copy at a place that a program can be started from, and returns its exit
    // code.
    DWORD Run(const std::string& dsn, const char* end) const
    {
        std::wstring original(MAX_PATH, L'\0');
        original.resize(GetModuleFileNameW(nullptr, original.data(), MAX_PATH));
        if (original.starts_with(L"unix\\")) // Wine cuts the prefix off the name of a program that lies on no drive
        {
            original.insert(0, LR"(\\?\)");
        }
        original.replace(original.rfind(L'\\') + 1, std::wstring::npos, L"CrashingProgram.exe");
        const std::wstring program = root / L"CrashingProgram.exe";
        if (!CopyFileW(original.c_str(), program.c_str(), FALSE))
        {
            throw std::runtime_error("cannot copy " + Narrow(original));
        }
        std::wstring commandLine = L"\"" + program + L"\" " + std::wstring(dsn.begin(), dsn.end()) + L" \"" + database +
                                   L"\" " + std::wstring(end, end + std::strlen(end));
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process{};
        if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                            root.Path().c_str(), &startup, &process))
        {
            throw std::runtime_error("cannot start " + Narrow(program));
        }
        EXPECT_EQ(WaitForSingleObject(process.hProcess, 60'000), WAIT_OBJECT_0);
        TerminateProcess(process.hProcess, 99); // unless it has ended
        DWORD exitCode = 0;
        GetExitCodeProcess(process.hProcess, &exitCode);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        return exitCode;
    }
};

TEST_P(SentryCrashTest, leaves_a_report_that_is_sent_at_the_next_start)
{
    const Crash crash = GetParam();
    if (!c_isStandIn && crash.code != EXCEPTION_ACCESS_VIOLATION)
    {
        GTEST_SKIP() << "The library sees exceptions of Windows alone, and here it does not get over a stack overflow.";
    }
    const IngestionServer server;
    const DWORD exitCode = Run(server.Dsn(), crash.end);
    EXPECT_TRUE(exitCode != 0 || crash.code == EXCEPTION_STACK_OVERFLOW); // after which Wine gives 0
    EXPECT_THAT(Envelopes(server), IsEmpty());

    const auto files = LeftFiles();
    ASSERT_TRUE(files.contains(L".envelope"));
    if (c_isStandIn)
    {
        EXPECT_EQ(files.size(), 2U);
        ASSERT_TRUE(files.contains(L".dmp"));
        const Minidump dump = ParseMinidump(files.at(L".dmp"));
        EXPECT_EQ(dump.code, crash.code);
        EXPECT_GE(dump.threads, 1U);
        EXPECT_GE(dump.modules, 3U);
        EXPECT_TRUE(dump.hasCrashedThread);
        EXPECT_TRUE(dump.hasContext);
        EXPECT_EQ(dump.architecture, PROCESSOR_ARCHITECTURE_AMD64);
    }

    Start(server.Dsn());
    EXPECT_EQ(CloseAfter(1, server), 0);
    const auto envelopes = Envelopes(server);
    ASSERT_EQ(envelopes.size(), 1U);
    const auto event = EventOf(envelopes[0]);
    EXPECT_EQ(event["level"], "fatal");
    EXPECT_EQ(event["release"], "crashing@1.0");
    EXPECT_THAT(Breadcrumbs(event), ElementsAre("about to crash"));
    EXPECT_EQ(event["exception"]["values"].size(), 1U);
    if (c_isStandIn)
    {
        ASSERT_EQ(envelopes[0].items.size(), 2U);
        EXPECT_EQ(envelopes[0].items[1].header["attachment_type"], "event.minidump");
        EXPECT_TRUE(envelopes[0].items[1].payload == files.at(L".dmp"));
        EXPECT_FALSE(Exists(database));
    }
}

INSTANTIATE_TEST_SUITE_P(SentryArrivalTest, SentryCrashTest,
                         testing::Values(Crash{"access", 0xC0000005}, Crash{"throw", 0x40000015},
                                         Crash{"abort", 0x40000015}, Crash{"thread", 0xC0000005},
                                         Crash{"stack", 0xC00000FD}));

using SentryNoCrashTest = SentryCrashTest;

TEST_F(SentryNoCrashTest, leaves_nothing)
{
    const IngestionServer server;
    EXPECT_EQ(Run(server.Dsn(), "close"), 0U);
    EXPECT_EQ(Exists(database), !c_isStandIn);
    EXPECT_THAT(Envelopes(server), IsEmpty());
}

} // namespace
