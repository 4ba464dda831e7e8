#include "Installer/ShellHelpers.h"

#include "support/FailureLog.h"
#include "support/FakeDesktopShell.h"
#include "support/ImportTableFake.h"
#include "support/Text.h"

#include <windows.h>

#include <shellapi.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wil/result.h>

#include <string>
#include <vector>

namespace
{

using namespace Testing;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::wstring c_file = L"C:\\Temp\\a log.txt";

// All that the shell is asked for, in order.
const std::vector<std::string> c_steps = {
    "create shell windows in context 4 as IShellWindows",
    "find window at int 0 below nothing of class 8 with options 1",
    "query desktop for IServiceProvider",
    "query service STopLevelBrowser for IShellBrowser",
    "get active view",
    "query active view for IShellView",
    "get item 0 as IDispatch",
    "query background for IShellFolderViewDual",
    "get application",
    "query application for IShellDispatch2",
    "execute \"C:\\Temp\\a log.txt\", arguments text \"\", directory text \"\", operation text \"\", show int 1",
};

std::vector<std::string> FirstSteps(std::size_t count)
{
    return {c_steps.begin(), c_steps.begin() + static_cast<std::ptrdiff_t>(count)};
}

class ShellExecuteFromExplorer : public testing::Test
{
protected:
    // The code that the call throws; S_OK when it throws nothing.
    static HRESULT CodeThrown()
    {
        try
        {
            Installer::ShellExecuteFromExplorer(c_file);
            return S_OK;
        }
        catch (const wil::ResultException& exception)
        {
            return exception.GetErrorCode();
        }
    }

    // Expects the call to throw this code, recorded once and as one of ShellHelpers' own.
    static void ExpectFailure(HRESULT result)
    {
        const FailureLog failures;
        EXPECT_EQ(CodeThrown(), result);
        EXPECT_THAT(failures.Entries(), ElementsAre(FailureLog::Entry("ShellHelpers", result)));
    }

    void TearDown() override
    {
        EXPECT_EQ(shell.References(), 0);
        EXPECT_EQ(shell.Texts(), 0U);
    }

    FakeDesktopShell shell;
    DWORD elevation = 1;
    std::vector<std::string> executions; // of ShellExecuteW
    INT_PTR executionResult = 33;

private:
    Fake<&GetTokenInformation> m_token = [this](HANDLE, TOKEN_INFORMATION_CLASS, void* data, DWORD, DWORD*) -> BOOL {
        *static_cast<DWORD*>(data) = elevation;
        return TRUE;
    };
    Fake<&ShellExecuteW> m_execute = [this](HWND owner, const wchar_t* operation, const wchar_t* file,
                                            const wchar_t* arguments, const wchar_t* directory, INT show) {
        EXPECT_EQ(owner, nullptr);
        EXPECT_EQ(operation, nullptr);
        EXPECT_EQ(arguments, nullptr);
        EXPECT_EQ(directory, nullptr);
        executions.push_back(Narrow(file) + ", show " + std::to_string(show));
        SetLastError(ERROR_NO_ASSOCIATION);
        return reinterpret_cast<HINSTANCE>(executionResult);
    };
};

TEST_F(ShellExecuteFromExplorer, opens_the_file_itself_when_it_is_not_elevated)
{
    const FailureLog failures;
    elevation = 0;

    Installer::ShellExecuteFromExplorer(c_file);

    EXPECT_THAT(executions, ElementsAre("C:\\Temp\\a log.txt, show 1"));
    EXPECT_THAT(shell.Steps(), IsEmpty());
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(ShellExecuteFromExplorer, throws_the_last_error_for_every_result_up_to_32_when_it_is_not_elevated)
{
    elevation = 0;
    for (const INT_PTR result : {INT_PTR{0}, INT_PTR{2}, INT_PTR{31}, INT_PTR{32}, INT_PTR{-1}})
    {
        executionResult = result;
        ExpectFailure(HRESULT_FROM_WIN32(ERROR_NO_ASSOCIATION));
    }
    EXPECT_EQ(executions.size(), 5U);
    EXPECT_THAT(shell.Steps(), IsEmpty());
}

TEST_F(ShellExecuteFromExplorer, takes_a_large_result_as_a_success_when_it_is_not_elevated)
{
    elevation = 0;
    executionResult = INT_PTR{1} << 40;

    Installer::ShellExecuteFromExplorer(c_file);

    EXPECT_EQ(executions.size(), 1U);
}

TEST_F(ShellExecuteFromExplorer, asks_the_shell_of_the_desktop_when_it_is_elevated)
{
    const FailureLog failures;

    Installer::ShellExecuteFromExplorer(c_file);

    EXPECT_THAT(shell.Steps(), ElementsAreArray(c_steps));
    EXPECT_THAT(executions, IsEmpty());
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(ShellExecuteFromExplorer, throws_the_failure_of_any_step_and_releases_everything)
{
    for (std::size_t failing = 0; failing < c_steps.size(); ++failing)
    {
        SCOPED_TRACE(c_steps[failing]);
        FakeDesktopShell failingShell;
        const auto result = static_cast<HRESULT>(0x80040200U + failing);
        failingShell.Fail(c_steps[failing], result);

        ExpectFailure(result);

        EXPECT_THAT(failingShell.Steps(), ElementsAreArray(FirstSteps(failing + 1)));
        EXPECT_EQ(failingShell.References(), 0);
        EXPECT_EQ(failingShell.Texts(), 0U);
    }
    EXPECT_THAT(executions, IsEmpty());
}

TEST_F(ShellExecuteFromExplorer, fails_when_the_shell_shows_no_desktop)
{
    shell.HideDesktop();

    ExpectFailure(HRESULT_FROM_WIN32(ERROR_NOT_FOUND));
    EXPECT_THAT(shell.Steps(), ElementsAreArray(FirstSteps(2)));
}

TEST_F(ShellExecuteFromExplorer, asks_the_shell_for_nothing_when_a_text_cannot_be_made)
{
    for (unsigned texts = 0; texts < 4; ++texts)
    {
        FakeDesktopShell poorShell;
        poorShell.LimitTexts(texts);

        EXPECT_EQ(CodeThrown(), E_OUTOFMEMORY);

        EXPECT_THAT(poorShell.Steps(), ElementsAreArray(FirstSteps(c_steps.size() - 1)));
        EXPECT_EQ(poorShell.References(), 0);
        EXPECT_EQ(poorShell.Texts(), 0U);
    }
}

TEST_F(ShellExecuteFromExplorer, throws_when_it_cannot_be_told_whether_the_process_is_elevated)
{
    const Fake<&GetTokenInformation> token = [](HANDLE, TOKEN_INFORMATION_CLASS, void*, DWORD, DWORD*) -> BOOL {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    };

    EXPECT_EQ(CodeThrown(), HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
    EXPECT_THAT(executions, IsEmpty());
    EXPECT_THAT(shell.Steps(), IsEmpty());
}

} // namespace
