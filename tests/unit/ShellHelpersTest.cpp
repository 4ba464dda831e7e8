#include "Installer/ShellHelpers.h"

#include "support/common/ImportTableFake.h"
#include "support/unit/FailureLog.h"
#include "support/unit/FakeDesktopShell.h"

#include <windows.h>

#include <shellapi.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace
{

using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t c_file[] = L"C:\\Temp\\a log.txt";

void OpenFile()
{
    Installer::ShellExecuteFromExplorer(c_file);
}

// All that COM and the shell are asked for, in order.
const Calls c_calls{
    "CoCreateInstance(ShellWindows, null, 0x4, IShellWindows)",
    "IShellWindows::FindWindowSW(int 0, empty, 0x8, 0x1)",
    "IDispatch::QueryInterface(IServiceProvider)",
    "IServiceProvider::QueryService(STopLevelBrowser, IShellBrowser)",
    "IShellBrowser::QueryActiveShellView()",
    "IShellView::QueryInterface(IShellView)",
    "IShellView::GetItemObject(0, IDispatch)",
    "IDispatch::QueryInterface(IShellFolderViewDual)",
    "IShellFolderViewDual::get_Application()",
    "IDispatch::QueryInterface(IShellDispatch2)",
    R"(SysAllocString("C:\Temp\a log.txt"))",
    R"(SysAllocString(""))",
    R"(SysAllocString(""))",
    R"(SysAllocString(""))",
    R"(IShellDispatch2::ShellExecute("C:\Temp\a log.txt", "", "", "", int 1))",
};

Calls First(std::size_t count)
{
    return {c_calls.begin(), c_calls.begin() + static_cast<std::ptrdiff_t>(count)};
}

class ShellExecuteFromExplorerTest : public testing::Test
{
protected:
    ~ShellExecuteFromExplorerTest() override { ExpectReleased(); }

    void ExpectReleased() const
    {
        EXPECT_EQ(shell.References(), 0);
        EXPECT_EQ(strings.Count(), 0U);
    }

    // Expects the call to throw this code, recorded once and as one of ShellHelpers' own.
    static void ExpectFailure(HRESULT result)
    {
        const FailureLog failures;
        EXPECT_THAT(OpenFile, ThrowsResult(result));
        EXPECT_THAT(failures.Entries(), ElementsAre(FailureLog::Entry("ShellHelpers", result)));
    }

    Journal journal;
    FakeStrings strings{journal};
    FakeDesktopShell shell{journal, strings};
    DWORD elevation = 1;
    INT_PTR executed = 33; // what ShellExecuteW returns

private:
    Fake<&GetTokenInformation> m_token = [this](HANDLE, TOKEN_INFORMATION_CLASS, void* data, DWORD, DWORD*) -> BOOL {
        *static_cast<DWORD*>(data) = elevation;
        return TRUE;
    };
    Fake<&ShellExecuteW> m_execute = [this](HWND owner, const wchar_t* operation, const wchar_t* file,
                                            const wchar_t* arguments, const wchar_t* directory, INT show) {
        journal.Add("ShellExecuteW", owner, operation, file, arguments, directory, show);
        SetLastError(ERROR_NO_ASSOCIATION);
        return reinterpret_cast<HINSTANCE>(executed);
    };
};

TEST_F(ShellExecuteFromExplorerTest, Opens_the_file_itself_when_it_is_not_elevated_and_throws_for_results_up_to_32)
{
    const Calls calls{R"(ShellExecuteW(null, null, "C:\Temp\a log.txt", null, null, 1))"};
    elevation = 0;
    for (const INT_PTR result : {INT_PTR{33}, INT_PTR{1} << 40})
    {
        const FailureLog failures;
        executed = result;
        OpenFile();
        EXPECT_EQ(journal.Take(), calls);
        EXPECT_THAT(failures.Entries(), IsEmpty());
    }
    for (const INT_PTR result : {0, 2, 31, 32, -1})
    {
        executed = result;
        ExpectFailure(HRESULT_FROM_WIN32(ERROR_NO_ASSOCIATION));
        EXPECT_EQ(journal.Take(), calls);
    }
}

TEST_F(ShellExecuteFromExplorerTest, Asks_the_shell_of_the_desktop_when_it_is_elevated)
{
    const FailureLog failures;

    OpenFile();

    EXPECT_EQ(journal.All(), c_calls);
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(ShellExecuteFromExplorerTest, Throws_the_failure_of_any_call_and_releases_everything)
{
    for (std::size_t failing = 0; failing < c_calls.size(); ++failing)
    {
        SCOPED_TRACE(c_calls[failing]);
        const auto result = static_cast<HRESULT>(0x80040200U + failing);
        std::size_t made = 0;
        journal.onCall = [&](const std::string& call) {
            if (made++ == failing)
            {
                journal.Fail(call, result, 1);
            }
        };

        if (c_calls[failing].starts_with("SysAllocString"))
        {
            EXPECT_THAT(OpenFile, ThrowsResult(E_OUTOFMEMORY));
        }
        else
        {
            ExpectFailure(result);
        }
        EXPECT_EQ(journal.Take(), First(failing + 1));
        ExpectReleased();
    }
}

TEST_F(ShellExecuteFromExplorerTest, Fails_when_the_shell_shows_no_desktop)
{
    shell.hasDesktop = false;

    ExpectFailure(HRESULT_FROM_WIN32(ERROR_NOT_FOUND));

    EXPECT_EQ(journal.All(), First(2));
}

TEST_F(ShellExecuteFromExplorerTest, Throws_when_it_cannot_be_told_whether_the_process_is_elevated)
{
    const Fake<&GetTokenInformation> token = Fails(ERROR_INVALID_HANDLE);

    EXPECT_THAT(OpenFile, ThrowsResult(HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE)));

    EXPECT_THAT(journal.All(), IsEmpty());
}

} // namespace
