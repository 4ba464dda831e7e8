// What the program reports to the crash-report server. The server runs in the test; a copy of the built program is made
// to report to it by replacing the address in the file, so that it is the very program that is tested.
#include "EndToEndTest.h"
#include "support/EnvelopeParser.h"
#include "support/IngestionServer.h"
#include "support/Names.h"
#include "support/ReportAddress.h"

#include <windows.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
namespace
{
// What the end of a run may be delayed by, and what a busy machine may add to it: less than the twenty seconds that
// WinHTTP waits for an answer.
constexpr std::chrono::milliseconds c_closeLimit{2000};
constexpr std::chrono::milliseconds c_tolerance{16'000};

// The folder of the reports.
std::wstring ReportFolder()
{
    return LogFolderIn(TemporaryFolder()) + L"Sentry";
}

bool IsThere(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

class CrashReportTest : public EndToEndTest
{
protected:
    // Makes the program report there.
    void ReportTo(const std::string& dsn) const { ReplaceReportAddress(ProgramPath(), dsn); }

    // Runs the program from the installation folder while its copy cannot be started: code 17.
    void RunWithCopyThatDoesNotStart(const RunOptions& options = {})
    {
        LayDownSample();
        WriteTestFile(RelocatedCopy(), 100);
        // Windows starts no program that somebody may be writing to.
        const UniqueHandle writer = OwnFile(CreateFileW(RelocatedCopy().c_str(), GENERIC_WRITE,
                                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                        OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(writer);
        RunInstalled(L"-s", options);
        EXPECT_EQ(Result().exitCode, c_startFailed);
        EXPECT_FALSE(IsThere(ReportFolder()));
    }

    // What a run that crashed has left.
    static void LeaveCrash()
    {
        const std::wstring run = ReportFolder() + L"\\0123456789abcdef0123456789abcdef.run\\";
        WriteTestFile(run + L"1.envelope", 1);
        WriteBytes(run + L"1.envelope", "{\"event_id\":\"1\"}\n{\"type\":\"event\"}\n{\"event_id\":\"1\"}\n");
        WriteBytes(run + L"1.dmp", "MDMP and more");
    }

    // That crash, whole.
    static void ExpectCrash(const IngestionRequest& request)
    {
        const ParsedEnvelope envelope = ParseEnvelope(request.body);
        ASSERT_EQ(envelope.items.size(), 2U);
        EXPECT_EQ(EventOf(envelope)["event_id"], "1");
        EXPECT_EQ(envelope.items[1].payload, "MDMP and more");
    }

    // The run went on as its copy, which removed everything, the reports too, and met nobody in the installation
    // folder.
    void ExpectRelocated() const
    {
        MachineState state = RelocatedState();
        state.Erase(ReportFolder());
        ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(), "-s"), ExpectedLog().Lines(), state);
    }

    // What the log says should have arrived: the text of its error line, after the lines before it.
    void ExpectEventOfTheLog(const IngestionServer& server) const
    {
        constexpr std::string_view info = "|INFO|:    ";
        constexpr std::string_view error = "|ERROR|:   ";
        std::vector<std::string> breadcrumbs;
        std::string message;
        std::string_view log = Result().log;
        while (message.empty())
        {
            const auto end = log.find("\r\n");
            ASSERT_NE(end, std::string_view::npos) << "There is no error in the log.";
            const std::string_view line = log.substr(0, end);
            log.remove_prefix(end + 2);
            if (line.starts_with(error))
            {
                message = line.substr(error.size());
            }
            else
            {
                ASSERT_TRUE(line.starts_with(info)) << line;
                breadcrumbs.emplace_back(line.substr(info.size()));
            }
        }
        ExpectEvent(server, message, breadcrumbs);
    }

    // Exactly one event came, with this text. Line feeds do not count: the log has none.
    static void ExpectEvent(const IngestionServer& server, const std::string& message,
                            const std::vector<std::string>& breadcrumbs)
    {
        const auto requests = server.Requests();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests[0].path, IngestionServer::c_path);
        const ParsedEnvelope envelope = ParseEnvelope(requests[0].body);
        EXPECT_EQ(envelope.items.size(), 1U);
        const auto event = EventOf(envelope);
        EXPECT_TRUE(FaultsOf(event).empty()) << event;
        EXPECT_EQ(event["level"], "error");
        EXPECT_EQ(event["logger"], "logger");
        EXPECT_EQ(event["release"], "velmora-windows-uninstaller@2.8.1.2171");
        EXPECT_EQ(event["environment"], "production");
        EXPECT_EQ(WithoutLineFeeds(event["message"]["formatted"]), message);
        std::vector<std::string> texts;
        for (const auto& breadcrumb : event["breadcrumbs"])
        {
            texts.push_back(WithoutLineFeeds(breadcrumb["message"]));
        }
        EXPECT_EQ(texts, breadcrumbs);
    }

    static std::string WithoutLineFeeds(std::string text)
    {
        std::erase(text, '\n');
        return text;
    }
};

TEST_F(CrashReportTest, A_copy_that_cannot_be_started_is_reported)
{
    const IngestionServer server;
    ReportTo(server.Dsn());
    RunWithCopyThatDoesNotStart();
    ExpectEventOfTheLog(server);
}

TEST_F(CrashReportTest, A_copy_that_cannot_be_made_is_reported)
{
    const IngestionServer server;
    ReportTo(server.Dsn());
    LayDownSample();
    WriteTestFile(RelocatedCopy() + L"\\somebody's", 100);
    RunInstalled();
    EXPECT_EQ(Result().exitCode, c_copyFailed);
    ExpectEventOfTheLog(server);
    EXPECT_FALSE(IsThere(ReportFolder()));
}

TEST_F(CrashReportTest, A_run_that_succeeds_reports_nothing)
{
    const IngestionServer server;
    ReportTo(server.Dsn());
    LayDownSample();
    RunInstalled();
    EXPECT_EQ(Result().exitCode, c_fullSuccess);
    ASSERT_TRUE(Result().copy);
    EXPECT_EQ(Result().copy->exitCode, c_fullSuccess);
    EXPECT_TRUE(server.Requests().empty());
    EXPECT_FALSE(IsThere(ReportFolder()));
}

TEST_F(CrashReportTest, A_server_that_does_not_answer_holds_the_end_up_for_two_seconds_at_most)
{
    const IngestionServer server([](std::size_t) { return IngestionAnswer{.text = "", .staysSilent = true}; });
    ReportTo(server.Dsn());
    std::optional<std::chrono::steady_clock::time_point> arrival;
    std::chrono::steady_clock::duration heldUp{};
    RunWithCopyThatDoesNotStart({.whileRunning = [&](const std::string&) {
        const auto now = std::chrono::steady_clock::now();
        if (!arrival && !server.Requests().empty())
        {
            arrival = now;
        }
        heldUp = now - arrival.value_or(now);
    }});
    EXPECT_EQ(server.Requests().size(), 1U);
    EXPECT_LE(heldUp, c_closeLimit + c_tolerance);
}

TEST_F(CrashReportTest, A_crash_of_an_earlier_run_is_sent)
{
    const IngestionServer server;
    ReportTo(server.Dsn());
    LayDownSample();
    LeaveCrash();
    Run();
    EXPECT_EQ(Result().exitCode, c_fullSuccess);
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1U);
    ExpectCrash(requests[0]);
    EXPECT_FALSE(IsThere(ReportFolder()));
}

// The first process waits two seconds for the server, while its copy already looks for what holds the folder.
TEST_F(CrashReportTest, A_first_process_that_is_slow_to_end_ends_by_itself)
{
    const IngestionServer server([](std::size_t) { return IngestionAnswer{.text = "", .staysSilent = true}; });
    ReportTo(server.Dsn());
    LayDownSample();
    LeaveCrash();
    RunInstalled();
    ExpectRelocated();
    EXPECT_FALSE(server.Requests().empty());
}

TEST_F(CrashReportTest, What_the_first_process_cannot_send_is_sent_by_its_copy)
{
    const IngestionServer server([](std::size_t request) {
        return request == 0 ? IngestionAnswer{.text = "", .staysSilent = true} : IngestionAnswer{};
    });
    ReportTo(server.Dsn());
    LayDownSample();
    LeaveCrash();
    RunInstalled();
    ExpectRelocated();
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 2U);
    ExpectCrash(requests[1]);
}
} // namespace
} // namespace Testing
