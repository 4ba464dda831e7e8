// The tests' own means: the sample product's client, and what stands in for Windows.
#include "support/end_to_end/RunningProduct.h"

#include "support/end_to_end/SampleInstallation.h"
#include "support/end_to_end/Services.h"
#include "support/end_to_end/StandIns.h"
#include "support/end_to_end/Waiting.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace Testing
{
namespace
{
TEST(RunningProductTest, A_client_closes_at_the_command_and_at_no_other)
{
    const SampleClient client(InstallFolder() + LR"(\current\Velmora.exe)", ClientMode::Closes);
    HWND window = FindWindowW((std::wstring(c_iconClass) + L"7f3a").c_str(), nullptr);
    ASSERT_NE(window, nullptr);
    PostMessageW(window, WM_COMMAND, c_closeCommand - 1, 0);
    PostMessageW(window, WM_COMMAND, c_closeCommand, 1);
    PostMessageW(window, WM_USER, c_closeCommand, 0);
    // They are handled in this order, so none of those before has counted.
    PostMessageW(window, WM_COMMAND, c_closeCommand, 0);
    EXPECT_TRUE(client.Process().EndsWithin(c_patience));
    EXPECT_EQ(client.Process().ExitCode(), c_endedByItself);
    EXPECT_EQ(client.RequestsToClose(), 1);
}

// What takes the place of Wine's ControlServiceExW in this process; Windows itself gives the same answers.
TEST(StandInsTest, A_control_is_refused_as_Windows_refuses_it_and_written_down)
{
    SampleService service(c_authService, ServiceMode::Ignores);
    service.Start();
    const StandIns standIns;
    const auto [name, value] = standIns.Variable();
    SetEnvironmentVariableW(name.c_str(), value.c_str());
    standIns.LoadInto(GetCurrentProcess());

    const UniqueService opened = OpenServiceOf(service.Name(), SERVICE_STOP | SERVICE_QUERY_STATUS);
    const std::wstring longest(127, L'é');
    const std::vector<std::tuple<DWORD, std::wstring, DWORD>> cases{
        {SERVICE_STOP_REASON_FLAG_PLANNED, longest, ERROR_SUCCESS},
        {SERVICE_STOP_REASON_FLAG_PLANNED, longest + L"é", ERROR_INVALID_PARAMETER},
        {SERVICE_STOP_REASON_FLAG_PLANNED | SERVICE_STOP_REASON_FLAG_UNPLANNED, L"", ERROR_INVALID_PARAMETER},
        {SERVICE_STOP_REASON_MAJOR_APPLICATION, L"", ERROR_INVALID_PARAMETER}};
    for (auto [reason, comment, error] : cases)
    {
        SCOPED_TRACE(reason);
        SERVICE_CONTROL_STATUS_REASON_PARAMSW parameters{
            .dwReason = reason, .pszComment = comment.data(), .ServiceStatus = {}};
        const BOOL isDone =
            ControlServiceExW(opened.get(), SERVICE_CONTROL_STOP, SERVICE_CONTROL_STATUS_REASON_INFO, &parameters);
        EXPECT_EQ(isDone ? ERROR_SUCCESS : GetLastError(), error);
        EXPECT_EQ(parameters.ServiceStatus.dwCurrentState, error == ERROR_SUCCESS ? SERVICE_RUNNING : 0U);
    }

    std::vector<std::tuple<DWORD, std::wstring, DWORD>> seen;
    for (const ServiceControl& control : standIns.ServiceControls())
    {
        seen.emplace_back(control.reason, control.comment.data(), control.error);
        EXPECT_EQ(control.sender, GetCurrentProcessId());
        EXPECT_EQ(control.serviceProcess, service.Process().Id());
    }
    auto expected = cases;
    std::get<std::wstring>(expected[1]) = longest; // the record has room for no more
    EXPECT_EQ(seen, IsWine() ? expected : decltype(expected){});
    // None has a minor reason.
    std::vector<std::string> violations = standIns.Violations();
    std::erase_if(violations, [](const std::string& violation) { return !violation.starts_with("ControlServiceExW"); });
    EXPECT_EQ(violations,
              std::vector<std::string>(
                  cases.size(), "ControlServiceExW: SERVICE_CONTROL_STATUS_REASON_PARAMS: one general, one major "
                                "and one minor code"));
}
} // namespace
} // namespace Testing
