// What the program reports to the crash-report server. The server runs in the test; a copy of the built program is made
// to report to it by replacing the address in the file, so that it is the very program that is tested.
#include "EndToEndTest.h"
#include "support/common/EnvelopeParser.h"
#include "support/common/IngestionServer.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/ReportAddress.h"

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
namespace
{
std::wstring ReportFolder()
{
    return LogFolderIn(TemporaryFolder()) + L"Sentry";
}

class CrashReportTest : public EndToEndTest
{
protected:
    // Lays the sample down for a program that reports to that server.
    void LayDownFor(const IngestionServer& server) const
    {
        ReplaceReportAddress(ProgramPath(), server.Dsn());
        LayDownSample();
    }

    // What a run that crashed has left.
    static void LeaveCrash()
    {
        const std::wstring run = ReportFolder() + L"\\0123456789abcdef0123456789abcdef.run\\";
        WriteBytes(run + L"1.envelope", "{\"event_id\":\"1\"}\n{\"type\":\"event\"}\n{\"event_id\":\"1\"}\n");
        WriteBytes(run + L"1.dmp", "MDMP and more");
    }

    static MachineState WithoutReports(MachineState state)
    {
        state.Erase(ReportFolder());
        return state;
    }

    // That crash, whole.
    static void ExpectCrash(const IngestionRequest& request)
    {
        const ParsedEnvelope envelope = ParseEnvelope(request.body);
        ASSERT_EQ(envelope.items.size(), 2U);
        EXPECT_EQ(EventOf(envelope)["event_id"], "1");
        EXPECT_EQ(envelope.items[1].payload, "MDMP and more");
    }

    // Exactly one event came: the error in the log, after the lines before it.
    void ExpectEventOfTheLog(const IngestionServer& server) const
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
        std::vector<std::string> lines;
        for (const auto& breadcrumb : event["breadcrumbs"])
        {
            lines.push_back(LineOf(c_infoTag, breadcrumb["message"]));
        }
        lines.push_back(LineOf(c_errorTag, event["message"]["formatted"]));
        std::vector<std::string> expected = SplitLines(Result().log);
        ASSERT_GE(expected.size(), lines.size());
        expected.resize(lines.size());
        EXPECT_EQ(lines, expected);
    }

private:
    // What the log makes of a message, without the end.
    static std::string LineOf(std::string_view tag, std::string message)
    {
        std::erase(message, '\n');
        return std::string(tag) + message;
    }
};

TEST_F(CrashReportTest, A_copy_that_cannot_be_made_ends_the_run_and_is_reported)
{
    const IngestionServer server;
    LayDownFor(server);
    WriteTestFile(RelocatedCopy(), 100);
    const UniqueHandle reader = OwnFile(
        CreateFileW(RelocatedCopy().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(reader);
    RunInstalled();
    // A sharing violation.
    ExpectEnd(c_copyFailed, CopyFailedLog("Silent", "-2147024864"), UntouchedState(), true);
    ExpectEventOfTheLog(server);
}

TEST_F(CrashReportTest, A_run_that_succeeds_sends_the_crash_of_an_earlier_one_and_nothing_else)
{
    const IngestionServer server;
    LayDownFor(server);
    LeaveCrash();
    Run();
    ExpectFullSuccess({}, WithoutReports(DeclaredState()));
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1U);
    ExpectCrash(requests[0]);
}

// The first process waits two seconds for the server, while its copy already looks for what holds the folder.
TEST_F(CrashReportTest, What_the_first_process_cannot_send_is_sent_by_its_copy_which_meets_nobody_in_the_folder)
{
    const IngestionServer server([](std::size_t request) {
        return request == 0 ? IngestionAnswer{.text = "", .staysSilent = true} : IngestionAnswer{};
    });
    LayDownFor(server);
    LeaveCrash();
    RunInstalled();
    ExpectRelocatedEnd(c_fullSuccess, RelocationLog("Silent", RelocatedCopy(), "-s"), ExpectedLog().Lines(),
                       WithoutReports(RelocatedState()));
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 2U);
    ExpectCrash(requests[1]);
}
} // namespace
} // namespace Testing
