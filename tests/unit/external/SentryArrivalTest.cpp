// What arrives at a server: for the library and for its stand-in.
#include "support/common/EnvelopeParser.h"
#include "support/common/IngestionServer.h"
#include "support/common/Text.h"
#include "support/unit/TestFolder.h"
#include "support/unit/TlsFront.h"

#include <windows.h>

#include <dbghelp.h>
#include <sentry.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
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

// For sentry_close, in milliseconds: two seconds on an idle machine, and less than the twenty that WinHTTP waits.
constexpr ULONGLONG c_closeLimit = 18'000;

// A response without a body.
std::string Response(const std::string& status, const std::string& headers = "")
{
    return "HTTP/1.1 " + status + "\r\nConnection: close\r\nContent-Length: 0\r\n" + headers + "\r\n";
}

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

    // Closes when so many requests have arrived, which may take longer than sentry_close waits. Returns its result.
    static int CloseAfter(std::size_t reports, const IngestionServer& server)
    {
        EXPECT_TRUE(server.WaitFor(reports));
        return Close();
    }

    // Returns the result of sentry_close, which must not take too long.
    static int Close()
    {
        const ULONGLONG start = GetTickCount64();
        const int pending = sentry_close();
        EXPECT_LT(GetTickCount64() - start, c_closeLimit);
        return pending;
    }

    // The envelopes with an event, in the order of their arrival. Checks every request.
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

    static std::vector<std::string> Messages(const IngestionServer& server)
    {
        std::vector<std::string> messages;
        for (const ParsedEnvelope& envelope : Envelopes(server))
        {
            messages.push_back(EventOf(envelope).at("message").at("formatted"));
        }
        return messages;
    }

    // The files in the database folder, by their extensions.
    std::map<std::wstring, std::string> PendingFiles() const
    {
        std::map<std::wstring, std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(database))
        {
            if (entry.is_regular_file())
            {
                files[entry.path().extension().native()] = ReadFileText(entry.path().native());
            }
        }
        return files;
    }

    TestFolder root;
    std::wstring database = root / L"Uninstaller\\Sentry";
};

TEST_F(SentryArrivalTest, Events_arrive_whole_and_in_order)
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

TEST_P(SentryTroubleTest, Holds_nothing_up)
{
    const IngestionServer server([](std::size_t) { return GetParam().answer; });
    Start(server.Dsn());
    Capture(SENTRY_LEVEL_ERROR, "text");
    const int pending = CloseAfter(1, server);
    if (!c_isStandIn)
    {
        return;
    }
    EXPECT_EQ(server.Requests().size(), 1U);
    EXPECT_EQ(pending, GetParam().isKept ? 1 : 0);
    EXPECT_EQ(Exists(database), GetParam().isKept);

    // What got no response is sent by a later run.
    const IngestionServer next;
    Start(next.Dsn());
    EXPECT_EQ(CloseAfter(GetParam().isKept ? 1 : 0, next), 0);
    EXPECT_EQ(Envelopes(next).size(), GetParam().isKept ? 1U : 0U);
    EXPECT_FALSE(Exists(database));
}

INSTANTIATE_TEST_SUITE_P(
    SentryArrivalTest, SentryTroubleTest,
    testing::Values(
        Trouble{"a silent server", {.text = "", .mostOfBody = 0, .staysSilent = true}, true},
        Trouble{"a server that stops after the headers", {.text = "HTTP/1.1 200 OK\r\n", .staysSilent = true}, true},
        Trouble{"a server that hangs up before the body", {.text = "", .mostOfBody = 0}, true},
        Trouble{"a server that hangs up within the body", {.text = "", .mostOfBody = 200}, true},
        Trouble{"a server that hangs up after the body", {.text = ""}, true},
        Trouble{"a server that talks something else", {.text = "220 mail.example ESMTP\r\n\r\n"}, true},
        Trouble{"a very long header",
                {.text = Response("200 OK", "X-Sentry-Rate-Limits: " + std::string(20'000, 'x') + "\r\n")},
                false},
        Trouble{"a very long response",
                {.text = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 999999999999\r\n\r\n" +
                         std::string(1'000'000, 'x'),
                 .staysSilent = true},
                false},
        Trouble{
            "a request for a password", {.text = Response("401 Unauthorized", "WWW-Authenticate: NTLM\r\n")}, false},
        Trouble{"a redirect", {.text = Response("307 Temporary Redirect", "Location: /elsewhere\r\n")}, false}));

TEST_F(SentryArrivalTest, No_server_holds_nothing_up)
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
        EXPECT_THAT(Messages(server), testing::UnorderedElementsAre("one", "two", "three"));
        EXPECT_FALSE(Exists(database));
    }
}

TEST_F(SentryArrivalTest, Nothing_is_said_in_the_clear_to_a_server_that_was_to_be_encrypted)
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
            const IngestionServer next;
            Start(next.Dsn());
            EXPECT_EQ(CloseAfter(1, next), 0);
            EXPECT_THAT(Messages(next), ElementsAre("text"));
        }
    }

    IngestionServer server;
};

TEST_F(SentryTlsTest, Events_arrive_at_a_server_whose_certificate_is_of_a_trusted_authority)
{
    const TlsFront front(server, "localhost", 1);
    const TrustedAuthority trust(front.Authority());
    Start(front.Dsn());
    Capture(SENTRY_LEVEL_ERROR, "text");
    EXPECT_EQ(CloseAfter(1, server), 0); // Wine takes a second to look at its authorities for the first time
    EXPECT_THAT(Messages(server), ElementsAre("text"));
    EXPECT_EQ(Exists(database), !c_isStandIn);
}

TEST_F(SentryTlsTest, Nothing_is_sent_when_nobody_trusts_the_authority)
{
    const TlsFront front(server, "localhost", 1);
    ExpectNothingToBeSent(front.Dsn());

    const TlsFront other(server, "localhost", 1);
    const TrustedAuthority trust(other.Authority());
    ExpectNothingToBeSent(front.Dsn());
}

TEST_F(SentryTlsTest, Nothing_is_sent_when_the_certificate_is_another_hosts_or_has_expired)
{
    for (const auto& [host, days] : {std::pair("elsewhere.example", 1), std::pair("localhost", -1)})
    {
        const TlsFront front(server, host, days);
        const TrustedAuthority trust(front.Authority());
        ExpectNothingToBeSent(front.Dsn());
    }
}

TEST_F(SentryArrivalTest, Rate_limits_are_kept_to)
{
    for (const std::string& limit :
         {Response("429 Too Many Requests"), Response("429 Too Many Requests", "Retry-After: 30\r\n"),
          Response("200 OK", "X-Sentry-Rate-Limits: 30:error;transaction:organization\r\n")})
    {
        const IngestionServer server([&](std::size_t) { return IngestionAnswer{.text = limit}; });
        Start(server.Dsn());
        Capture(SENTRY_LEVEL_ERROR, "one");
        ASSERT_TRUE(server.WaitFor(1));
        Capture(SENTRY_LEVEL_ERROR, "two");
        EXPECT_EQ(Close(), 0);
        EXPECT_EQ(Envelopes(server).size(), 1U) << limit;
    }
}

// How a program ends, and the code that stands in its minidump.
struct Crash
{
    const char* end;
    DWORD code;
};

// CrashingProgram's exit code for "filtered-stack".
constexpr DWORD c_filterWasCalled = 7;

void PrintTo(const Crash& crash, std::ostream* stream)
{
    *stream << crash.end;
}

std::string StreamOf(std::string& minidump, ULONG stream)
{
    MINIDUMP_DIRECTORY* directory = nullptr;
    void* content = nullptr;
    ULONG size = 0;
    return MiniDumpReadDumpStream(minidump.data(), stream, &directory, &content, &size)
               ? std::string(static_cast<const char*>(content), size)
               : "";
}

// Throws std::out_of_range when the bytes end before.
template <class Type>
Type ReadAt(const std::string& bytes, std::size_t offset)
{
    Type value{};
    bytes.substr(offset).copy(reinterpret_cast<char*>(&value), sizeof(value));
    return value;
}

class SentryCrashTest : public SentryArrivalTest, public testing::WithParamInterface<Crash>
{
protected:
    // Runs a copy of the program beside this one, at a place that it can be started from. Returns its exit code.
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

TEST_P(SentryCrashTest, Leaves_a_report_that_is_sent_at_the_next_start)
{
    const Crash crash = GetParam();
    if (!c_isStandIn && crash.code != EXCEPTION_ACCESS_VIOLATION)
    {
        GTEST_SKIP() << "The library sees exceptions of Windows alone, and here it does not get over a stack overflow.";
    }
    const IngestionServer server;
    // Wine 10 ends a process whose stack overflows and calls no filter: there the exception is only raised.
    const bool isOnlyRaised =
        crash.code == EXCEPTION_STACK_OVERFLOW && Run(server.Dsn(), "filtered-stack") != c_filterWasCalled;
    const DWORD exitCode = Run(server.Dsn(), isOnlyRaised ? "raised-stack" : crash.end);
    EXPECT_TRUE(exitCode != 0 || crash.code == EXCEPTION_STACK_OVERFLOW); // after which Wine gives 0
    EXPECT_THAT(Envelopes(server), IsEmpty());

    const auto files = PendingFiles();
    ASSERT_TRUE(files.contains(L".envelope"));
    if (c_isStandIn)
    {
        EXPECT_EQ(files.size(), 2U);
        ASSERT_TRUE(files.contains(L".dmp"));
        std::string dump = files.at(L".dmp");
        const auto exception = ReadAt<MINIDUMP_EXCEPTION_STREAM>(StreamOf(dump, ExceptionStream), 0);
        EXPECT_EQ(exception.ExceptionRecord.ExceptionCode, crash.code);
        EXPECT_GE(exception.ThreadContext.DataSize, sizeof(CONTEXT));
        const std::string threads = StreamOf(dump, ThreadListStream);
        std::vector<DWORD> ids;
        for (ULONG32 i = 0; i < ReadAt<ULONG32>(threads, 0); ++i)
        {
            ids.push_back(ReadAt<MINIDUMP_THREAD>(threads, sizeof(ULONG32) + i * sizeof(MINIDUMP_THREAD)).ThreadId);
        }
        EXPECT_THAT(ids, testing::Contains(exception.ThreadId));
        EXPECT_GE(ReadAt<ULONG32>(StreamOf(dump, ModuleListStream), 0), 3U);
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

} // namespace
