// Runs that are refused before anything is removed.
#include "EndToEndTest.h"
#include "LimitedToken.h"
#include "support/Names.h"
#include "support/Owners.h"

#include <windows.h>

namespace Testing
{
namespace
{
constexpr std::wstring_view c_windowsKey = LR"(HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion)";

class PreconditionsTest : public EndToEndTest
{
protected:
    // The run ended with that code and log, and removed nothing: the log is all that is new.
    void ExpectRefusal(unsigned long exitCode, const std::vector<std::string>& log) const
    {
        ExpectEnd(exitCode, log, UntouchedState(), true);
    }
};

// Programs that start from now on see another build of Windows.
class WindowsBuild
{
public:
    explicit WindowsBuild(std::wstring_view build) { Set(build); }
    ~WindowsBuild() { Set(L"19045"); }
    WindowsBuild(const WindowsBuild&) = delete;
    WindowsBuild& operator=(const WindowsBuild&) = delete;

private:
    static void Set(std::wstring_view build)
    {
        for (const wchar_t* const name : {L"CurrentBuild", L"CurrentBuildNumber"})
        {
            WriteValue(c_windowsKey, name, REG_SZ, TextValue(REG_SZ, build).data);
        }
    }
};

TEST_F(PreconditionsTest, A_Windows_of_the_build_before_is_too_old)
{
    LayDownSample();
    const WindowsBuild build(L"19040");
    // The installer's mutex is held, but it is not even looked for.
    const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, L"Global\\Velmora_Installer_Mutex"));
    Run();
    ExpectRefusal(c_windowsTooOld, TooOldWindowsLog("Silent"));
}

TEST_F(PreconditionsTest, A_Windows_that_is_too_old_is_told_in_a_message_box)
{
    LayDownSample();
    const WindowsBuild build(L"19040");
    Run(L"", {.answers = {ErrorMessage(L"Version Not Supported",
                                       L"You need at least Windows 10 20H1 - May 2020 Update (10.0.19041) to "
                                       L"continue.")}});
    ExpectRefusal(c_windowsTooOld, TooOldWindowsLog("Gui"));
}

TEST_F(PreconditionsTest, The_oldest_Windows_that_will_do_is_19041)
{
    LayDownSample();
    const WindowsBuild build(L"19041");
    Run();
    ExpectFullSuccess();
}

TEST_F(PreconditionsTest, A_verbose_run_shows_why_it_ends)
{
    LayDownSample();
    const WindowsBuild build(L"10240");
    Run(L"-v", {.hasConsole = true});
    ExpectRefusal(c_windowsTooOld, TooOldWindowsLog("Verbose"));
    EXPECT_GE(Result().console.size(), TooOldWindowsLog("Verbose").size());
}

TEST_F(PreconditionsTest, A_process_that_is_not_elevated_is_refused)
{
    LayDownSample();
    const UniqueHandle token = LimitedToken();
    // Otherwise Windows would not start it at all, for what its manifest demands.
    Run(L"-s", {.environment = {{L"__COMPAT_LAYER", L"RunAsInvoker"}}, .token = token.get()});
    ExpectRefusal(c_notElevated, NotElevatedLog("Silent"));
}

TEST_F(PreconditionsTest, A_process_that_is_not_elevated_is_told_so_in_a_message_box)
{
    LayDownSample();
    const UniqueHandle token = LimitedToken();
    Run(L"-g",
        {.environment = {{L"__COMPAT_LAYER", L"RunAsInvoker"}},
         .answers = {ErrorMessage(L"Uninstaller Not Elevated",
                                  L"Please run the Velmora installer/uninstaller as an administrator to continue.")},
         .token = token.get()});
    ExpectRefusal(c_notElevated, NotElevatedLog("Gui"));
}

TEST_F(PreconditionsTest, A_running_installer_keeps_the_uninstaller_from_running)
{
    LayDownSample();
    const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, L"Global\\Velmora_Installer_Mutex"));
    Run();
    ExpectRefusal(c_alreadyRunning, SecondInstanceLog("Silent"));
}

TEST_F(PreconditionsTest, A_running_installer_is_told_of_in_a_message_box)
{
    LayDownSample();
    const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, L"Global\\Velmora_Installer_Mutex"));
    Run(L"-g", {.answers = {ErrorMessage(L"Velmora Uninstaller Failed",
                                         L"Only one instance of the Velmora installer/uninstaller can run at a time. "
                                         L"Please make sure no other instances are open and try again. If this fails "
                                         L"to fix the problem, restart your device.")}});
    ExpectRefusal(c_alreadyRunning, SecondInstanceLog("Gui"));
}

TEST_F(PreconditionsTest, A_second_uninstaller_is_refused_while_the_first_one_asks)
{
    LayDownSample();
    RunResult second;
    RunOptions options;
    // The first one shows its question, and is answered when the second one has ended.
    options.whileRunning = [&](const std::string&) {
        if (second.processId == 0 && FindDialog(L"Velmora") != nullptr)
        {
            second = RunProgram(ProgramPath(), L"-s");
            EXPECT_TRUE(AnswerDialog(AnswerConfirmation(IDNO)));
        }
    };
    Run(L"-g", options);

    EXPECT_EQ(second.exitCode, c_alreadyRunning);
    MachineState state = CancelledState();
    // The first one's log went, the second one's stays.
    EXPECT_NE(second.logPath, L"");
    CopyAfter(state, second.logPath);
    EXPECT_EQ(Result().exitCode, c_fullSuccess);
    ExpectState(state);
}
} // namespace
} // namespace Testing
