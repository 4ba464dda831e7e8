// Runs that are refused before anything is removed.
#include "EndToEndTest.h"
#include "support/end_to_end/LimitedUser.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/Wine.h"

#include <windows.h>

namespace Testing
{
namespace
{
class PreconditionsTest : public EndToEndTest
{
protected:
    PreconditionsTest() { LayDownSample(); }

    // A run with a window says why it ends, ends with that code and log, and removes nothing: the log is all that is
    // new.
    void ExpectRefusal(unsigned long exitCode, const DialogAnswer& message, const std::vector<std::string>& log,
                       RunOptions options = {})
    {
        options.answers = {message};
        Run(L"-g", options);
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
            WriteValue(LR"(HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion)", name, REG_SZ,
                       TextValue(REG_SZ, build).data);
        }
    }
};

TEST_F(PreconditionsTest, A_Windows_of_the_build_before_is_too_old)
{
    const WindowsBuild build(L"19040");
    // The installer's mutex is held, but it is not even looked for.
    const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, L"Global\\Velmora_Installer_Mutex"));
    ExpectRefusal(c_windowsTooOld,
                  ErrorMessage(L"Version Not Supported",
                               L"You need at least Windows 10 20H1 - May 2020 Update (10.0.19041) to continue."),
                  TooOldWindowsLog("Gui"));
}

TEST_F(PreconditionsTest, The_oldest_Windows_that_will_do_is_19041)
{
    const WindowsBuild build(L"19041");
    Run();
    ExpectFullSuccess();
}

TEST_F(PreconditionsTest, A_process_that_is_not_elevated_is_refused)
{
    const UniqueHandle token = LimitedToken();
    if (IsWine())
    {
        RunAsInvoker(ProgramPath());
    }
    // Without the variable Windows would not start it at all, for what its manifest demands.
    ExpectRefusal(c_notElevated,
                  ErrorMessage(L"Uninstaller Not Elevated",
                               L"Please run the Velmora installer/uninstaller as an administrator to continue."),
                  NotElevatedLog("Gui"), {.environment = {{L"__COMPAT_LAYER", L"RunAsInvoker"}}, .token = token.get()});
}

TEST_F(PreconditionsTest, A_running_installer_keeps_the_uninstaller_from_running)
{
    const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, L"Global\\Velmora_Installer_Mutex"));
    ExpectRefusal(c_alreadyRunning,
                  ErrorMessage(L"Velmora Uninstaller Failed",
                               L"Only one instance of the Velmora installer/uninstaller can run at a time. Please make "
                               L"sure no other instances are open and try again. If this fails to fix the problem, "
                               L"restart your device."),
                  SecondInstanceLog("Gui"));
}
} // namespace
} // namespace Testing
