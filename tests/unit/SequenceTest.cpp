#include "Uninstaller/Sequence.h"

#include "support/DirectoryLink.h"
#include "support/FakeDesktopUser.h"
#include "support/FakeFirewall.h"
#include "support/FakeFolders.h"
#include "support/FakePackageManager.h"
#include "support/FakeProcesses.h"
#include "support/FakeRegistry.h"
#include "support/FakeServiceManager.h"
#include "support/FakeStatusWindow.h"
#include "support/FakeTaskDialog.h"
#include "support/FakeWindows.h"
#include "support/LoggedLines.h"
#include "support/PathLimits.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <commctrl.h>
#include <sentry.h>
#include <sentry_testing.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace
{

using namespace Uninstaller;
using namespace Testing;
using Installer::RunType;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

constexpr wchar_t c_environment[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
constexpr wchar_t c_entry[] = L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib";

// The log of a run in which everything is there and goes, and nothing of it is running.
const Lines c_fullLog{
    "|INFO|:    Velmora will leave user directories as-is.",
    "|INFO|:    Stopping Velmora...",
    "|INFO|:    [ClientHelper] Checking if directory is locked: <root>\\Program Files\\Velmora\\",
    "|INFO|:    [ClientHelper] No processes found locking the directory.",
    "|INFO|:    Deleting desktop shortcut...",
    "|INFO|:    Deleting start menu shortcut...",
    "|INFO|:    Uninstalling updater service...",
    "|INFO|:    Uninstalling authorization service...",
    "|INFO|:    Removing from path...",
    "|INFO|:    Deleting firewall rules...",
    "|INFO|:    Removing startup entry...",
    "|INFO|:    Deregistering application from system...",
    "|INFO|:    Removing uninstall entry...",
    "|INFO|:    Deleting installation folder...",
    "|INFO|:    Deleting OrvaneAuthService folders...",
    "|INFO|:    Deleting VelmoraUpdater folder...",
    "|INFO|:    [Migrator] Searching for provisioned Velmora legacy packages...",
    "|INFO|:    [Migrator] Searching for installed Velmora legacy packages...",
    "|INFO|:    Uninstall Complete!",
};

const Lines c_partial{"|ERROR|:   Velmora did not fully uninstall. Please check the logs for more information.",
                      "|INFO|:    Requested to open log...", "|INFO|:    Not running as GUI, ignoring..."};

// What follows the clean-up of the user's folders.
constexpr char c_afterCleanUp[] = "|INFO|:    [Migrator] Searching for provisioned Velmora legacy packages...";

// A machine with the product on it: its registry in memory, its folders below a folder of the test's own.
class SequenceTest : public testing::Test
{
protected:
    SequenceTest()
    {
        root.AddFile(L"Desktop\\Velmora.lnk");
        root.AddFile(L"Programs\\Velmora.lnk");
        root.AddFile(L"Program Files\\Velmora\\Velmora.exe");
        root.AddFile(L"Program Files\\Velmora2\\bystander");
        root.AddFile(L"Program Files\\OrvaneAuthService\\service.exe");
        root.AddFile(L"ProgramData\\OrvaneAuthService\\data");
        root.AddFile(L"ProgramData\\VelmoraUpdater\\data");
        root.AddFile(L"ProgramData\\Other\\bystander");
        registry.SetString(c_environment, L"PATH", L"C:\\A;"s + c_entry + L";C:\\B");
        registry.SetString(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run", L"Velmora", L"x");
        registry.SetString(L"SOFTWARE\\RegisteredApplications", L"Velmora", L"x");
        registry.AddKey(L"SOFTWARE\\Velmora");
        registry.AddKey(L"SOFTWARE\\Velmora\\Capabilities");
        registry.AddKey(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora");
    }

    // Uninstalls, and ends the run as that says.
    static ExitCode RunToTheEnd(const RunContext& run, const InstallFolder& folder,
                                const std::wstring& ownPath = L"C:\\own.exe")
    {
        return EndRun(run, UninstallProduct(run, folder, ownPath), ownPath);
    }

    ExitCode Run(RunType runType = RunType::Silent)
    {
        return RunToTheEnd({.logger = logger, .runType = runType}, {installFolder, isProtected});
    }

    // A run whose user answers the confirmation with that button and that choice.
    ExitCode RunAnswered(int button, int choice)
    {
        unsigned dialogs = 0;
        Fake<&TaskDialogIndirect> dialog = [&](const TASKDIALOGCONFIG*, int* pressed, int* chosen, BOOL*) -> HRESULT {
            ++dialogs;
            EXPECT_EQ(clock.Sleeps(), std::vector<DWORD>{200});
            EXPECT_TRUE(LogLines().empty());
            *pressed = button;
            *chosen = choice;
            return S_OK;
        };
        const ExitCode code = Run(RunType::Verbose);
        EXPECT_EQ(dialogs, 1U);
        return code;
    }

    // Ends the text of a failure with the reason that the fake system gives.
    static std::string Failed(const std::string& line) { return line + " Reason: <80070005>"; }

    // What the log of a full run becomes when lines are put in, each before the one that follows it.
    static Lines WithLine(const std::string& line, const std::string& before, bool partial)
    {
        Lines lines = c_fullLog;
        lines.insert(std::ranges::find(lines, before), line);
        if (partial)
        {
            lines.insert(lines.end(), c_partial.begin(), c_partial.end());
        }
        return lines;
    }

    // The log as it stood when it was last seen: it is deleted by a run that was successful.
    Lines LogLines() const
    {
        const std::wstring wideRoot = root / L"";
        const std::string place(wideRoot.begin(), wideRoot.end());
        Lines lines = log.All();
        for (std::string& line : lines)
        {
            if (const auto found = line.find(place); found != std::string::npos)
            {
                line.replace(found, place.size(), "<root>\\");
            }
        }
        return lines;
    }

    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    FakeRegistry registry;
    FakeFirewall firewall;
    std::vector<std::string> packageCalls;
    FakePackageManager packages{packageCalls};
    std::wstring installFolder = folders.ProgramFiles() + L"\\Velmora\\";
    bool isProtected = false;
    FakeServiceManager services{clock};
    FakeProcesses processes;
    FakeWindows windows{processes};
    FakeDesktopUser user{processes, folders, root};
    LoggedLines log;
    std::vector<std::wstring> scheduled;
    Fake<&SHChangeNotify> notify = [](LONG, UINT, LPCVOID, LPCVOID) {};
    Fake<&SendMessageTimeoutW> send = [](HWND, UINT, WPARAM, LPARAM, UINT, UINT, PDWORD_PTR) -> LRESULT { return 1; };
    Fake<&MoveFileExW> move = [this](LPCWSTR from, LPCWSTR, DWORD) -> BOOL {
        onFinish();
        scheduled.emplace_back(from);
        return TRUE;
    };
    std::function<void()> onFinish = [] {}; // the first that the end of a run does
    Fake<&FormatMessageW> format = [](DWORD, LPCVOID, DWORD code, DWORD, LPWSTR text, DWORD, va_list*) -> DWORD {
        return static_cast<DWORD>(swprintf(text, 256, L"<%lx>", code));
    };
    Installer::Logger logger{RunType::Silent};
};

TEST_F(SequenceTest, removes_everything_in_its_order_and_nothing_else)
{
    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(LogLines(), c_fullLog);
    EXPECT_EQ(clock.Sleeps(), std::vector<DWORD>{200});
    for (const wchar_t* const gone :
         {L"Desktop\\Velmora.lnk", L"Programs\\Velmora.lnk", L"Program Files\\Velmora",
          L"Program Files\\OrvaneAuthService", L"ProgramData\\OrvaneAuthService", L"ProgramData\\VelmoraUpdater"})
    {
        EXPECT_FALSE(Exists(root / gone));
    }
    EXPECT_TRUE(Exists(root / L"Program Files\\Velmora2\\bystander"));
    EXPECT_TRUE(Exists(root / L"ProgramData\\Other\\bystander"));
    EXPECT_EQ(registry.FindString(c_environment, L"PATH"), L"C:\\A;C:\\B;");
    EXPECT_FALSE(registry.FindValue(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run", L"Velmora"));
    EXPECT_FALSE(registry.FindValue(L"SOFTWARE\\RegisteredApplications", L"Velmora"));
    EXPECT_TRUE(registry.HasKey(L"SOFTWARE\\Velmora"));
    EXPECT_FALSE(registry.HasKey(L"SOFTWARE\\Velmora\\Capabilities"));
    EXPECT_FALSE(registry.HasKey(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora"));
}

TEST_F(SequenceTest, a_full_success_deletes_the_log_and_schedules_the_program)
{
    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_FALSE(Exists(logger.LogPath()));
    EXPECT_EQ(scheduled, std::vector<std::wstring>{L"C:\\own.exe"});
}

TEST_F(SequenceTest, a_partial_success_keeps_the_log_and_schedules_the_program)
{
    SetFileAttributesW((root / L"Desktop\\Velmora.lnk").c_str(), FILE_ATTRIBUTE_READONLY);

    EXPECT_EQ(Run(), EXIT_ERROR_PARTIAL_UNINSTALL);

    EXPECT_TRUE(Exists(logger.LogPath()));
    EXPECT_EQ(scheduled, std::vector<std::wstring>{L"C:\\own.exe"});
}

TEST_F(SequenceTest, a_yes_removes_everything_but_the_settings)
{
    EXPECT_EQ(RunAnswered(IDYES, 0), EXIT_NO_ERROR);

    EXPECT_EQ(LogLines(), c_fullLog);
    EXPECT_EQ(clock.Sleeps(), std::vector<DWORD>{200});
    EXPECT_TRUE(registry.HasKey(L"SOFTWARE\\Velmora"));
}

TEST_F(SequenceTest, a_cancelled_run_removes_nothing_but_its_log)
{
    EXPECT_EQ(RunAnswered(IDNO, 1), EXIT_NO_ERROR);

    EXPECT_EQ(LogLines(), Lines{"|INFO|:    User canceled the uninstaller."});
    EXPECT_FALSE(Exists(logger.LogPath()));
    EXPECT_EQ(scheduled, std::vector<std::wstring>{L"C:\\own.exe"});
    EXPECT_TRUE(Exists(installFolder));
    EXPECT_TRUE(registry.Calls().empty());
}

TEST_F(SequenceTest, an_answer_that_the_confirmation_does_not_have_removes_nothing)
{
    EXPECT_EQ(RunAnswered(42, 1), EXIT_ERROR_PERMISSION_DIALOG_FAIL);

    EXPECT_EQ(LogLines(), Lines{"|ERROR|:   Unknown button event from task dialog, assuming yes for uninstall: 42"});
    EXPECT_TRUE(Exists(logger.LogPath()));
    EXPECT_EQ(scheduled, std::vector<std::wstring>{L"C:\\own.exe"});
    EXPECT_TRUE(Exists(installFolder));
    EXPECT_TRUE(registry.Calls().empty());
}

TEST_F(SequenceTest, a_silent_run_is_not_confirmed)
{
    Fake<&TaskDialogIndirect> dialog = [](const TASKDIALOGCONFIG*, int*, int*, BOOL*) -> HRESULT {
        ADD_FAILURE() << "asked";
        return E_FAIL;
    };

    EXPECT_EQ(Run(), EXIT_NO_ERROR);
}

TEST_F(SequenceTest, the_settings_go_when_the_user_wants_it)
{
    root.AddFile(L"Local\\Vel Mora\\data");
    root.AddFile(L"Local\\Tessaline\\data");

    EXPECT_EQ(RunAnswered(IDYES, 1), EXIT_NO_ERROR);

    Lines expected = c_fullLog;
    expected.front() = "|INFO|:    Velmora will attempt to delete user data directories.";
    const Lines cleanUp{"|INFO|:    Attempting to clean up files for current user...",
                        "|INFO|:    Attempting to delete '<root>\\Local\\Vel Mora'...",
                        "|INFO|:    Attempting to delete '<root>\\Local\\Tessaline'..."};
    expected.insert(std::ranges::find(expected, c_afterCleanUp), cleanUp.begin(), cleanUp.end());
    EXPECT_EQ(LogLines(), expected);
    EXPECT_FALSE(registry.HasKey(L"SOFTWARE\\Velmora"));
    EXPECT_FALSE(Exists(root / L"Local\\Vel Mora"));
    EXPECT_FALSE(Exists(root / L"Local\\Tessaline"));
}

TEST_F(SequenceTest, the_users_folders_stay_with_the_settings)
{
    root.AddFile(L"Local\\Vel Mora\\data");
    root.AddFile(L"Local\\Tessaline\\data");

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_TRUE(Exists(root / L"Local\\Vel Mora\\data"));
    EXPECT_TRUE(Exists(root / L"Local\\Tessaline\\data"));
}

TEST_F(SequenceTest, a_user_who_cannot_be_found_makes_the_result_partial_and_keeps_nothing_else_from_being_done)
{
    user.Leave();

    EXPECT_EQ(RunAnswered(IDYES, 1), EXIT_ERROR_PARTIAL_UNINSTALL);

    Lines expected = c_fullLog;
    expected.front() = "|INFO|:    Velmora will attempt to delete user data directories.";
    const Lines cleanUp{"|INFO|:    Attempting to clean up files for current user...",
                        "|WARNING|: Something went wrong while trying to clean up user files: Unable to find a "
                        "explorer.exe process running under the active console session!"};
    expected.insert(std::ranges::find(expected, c_afterCleanUp), cleanUp.begin(), cleanUp.end());
    expected.insert(expected.end(), c_partial.begin(), c_partial.end());
    EXPECT_EQ(LogLines(), expected);
}

TEST_F(SequenceTest, an_installation_folder_that_others_live_in_is_never_touched)
{
    const std::wstring image = root.AddFile(L"Program Files\\Other\\helper.exe");
    processes.Add({.id = 52, .name = L"helper.exe", .image = image});
    installFolder = folders.ProgramFiles() + L"\\";
    isProtected = true;

    EXPECT_EQ(Run(), EXIT_ERROR_PARTIAL_UNINSTALL);

    EXPECT_TRUE(processes.Find(52));
    EXPECT_TRUE(Exists(image));
    EXPECT_TRUE(Exists(root / L"Program Files\\Velmora2\\bystander"));
    Lines expected = WithLine("|ERROR|:   Unable to delete installation folder (<root>\\Program Files\\) Reason: "
                              "<80070005>",
                              "|INFO|:    Deleting OrvaneAuthService folders...", true);
    std::erase_if(expected, [](const std::string& line) { return line.find("[ClientHelper]") != std::string::npos; });
    EXPECT_EQ(LogLines(), expected);
    EXPECT_EQ(clock.Sleeps(), std::vector<DWORD>{200}) << "it was tried again";
}

TEST_F(SequenceTest, an_installation_folder_that_has_become_a_link_is_not_followed)
{
    root.AddFile(L"Precious\\data");
    clock.At(100, [this] {
        RemoveTestFolder(installFolder);
        ASSERT_TRUE(CreateDirectoryLink(folders.ProgramFiles() + L"\\Velmora", root / L"Precious"));
    });

    EXPECT_EQ(Run(), EXIT_ERROR_PARTIAL_UNINSTALL);

    EXPECT_TRUE(Exists(root / L"Precious\\data"));
}

TEST_F(SequenceTest, a_long_installation_folder_is_examined_and_removed_like_any_other)
{
    const std::wstring name = L"Program Files\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
    const std::wstring image = root.AddFile(name + L"\\helper.exe");
    processes.Add({.id = 52, .name = L"helper.exe", .image = image});
    installFolder = root / name + L"\\";
    const PathLimits limits;

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_FALSE(processes.Find(52));
    EXPECT_FALSE(Exists(root / name));
}

TEST_F(SequenceTest, a_machine_without_the_product_is_a_full_success)
{
    RemoveTestFolder(installFolder);
    RemoveTestFolder(folders.ProgramFiles() + L"\\OrvaneAuthService");
    RemoveTestFolder(folders.ProgramData());
    DeleteFileW((root / L"Desktop\\Velmora.lnk").c_str());
    DeleteFileW((root / L"Programs\\Velmora.lnk").c_str());

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    Lines expected = c_fullLog;
    std::erase(expected, "|INFO|:    Deleting installation folder...");
    *std::ranges::find(expected, "|INFO|:    [ClientHelper] No processes found locking the directory.") =
        "|INFO|:    [ClientHelper] Directory does not exist, cannot be locked!";
    EXPECT_EQ(LogLines(), expected);
    EXPECT_EQ(clock.Sleeps(), std::vector<DWORD>{200});
}

TEST_F(SequenceTest, a_file_in_the_place_of_the_installation_folder_is_left_alone)
{
    RemoveTestFolder(installFolder);
    root.AddFile(L"Program Files\\Velmora");

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_TRUE(Exists(root / L"Program Files\\Velmora"));
}

// A run with a window.
class SequenceWindowTest : public SequenceTest
{
protected:
    // What the user and the log get, in one order.
    void NoteEverything()
    {
        desktop.onCall = [this](const std::string& call) { order.push_back(call); };
        log.onLine = [this](const std::string&) { order.push_back(LogLines().back()); };
        onFinish = [this] { order.emplace_back("finish"); };
    }

    ExitCode Run()
    {
        return RunToTheEnd({.logger = logger, .runType = RunType::Silent, .window = shown}, {installFolder});
    }

    // The calls of the window, without the texts.
    Lines Progress() const
    {
        Lines calls = desktop.Calls();
        std::erase_if(calls, [](const std::string& call) { return !call.starts_with("progress "); });
        return calls;
    }

    FakeStatusWindow desktop;
    ShownStatusWindow window{desktop};
    Installer::StatusWindow* shown = window.Get();
    Lines order;
};

TEST_F(SequenceWindowTest, shows_what_is_done_and_how_far_it_is)
{
    NoteEverything();

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    Lines expected{"|INFO|:    Velmora will leave user directories as-is."};
    const auto step = [&](const Lines& progress, const std::string& text) {
        expected.insert(expected.end(), progress.begin(), progress.end());
        expected.insert(expected.end(), {"|INFO|:    " + text, "text " + text});
    };
    step({"progress 0"}, "Stopping Velmora...");
    expected.insert(expected.end(), c_fullLog.begin() + 2, c_fullLog.begin() + 4);
    step({"progress 10"}, "Deleting desktop shortcut...");
    step({"progress 15"}, "Deleting start menu shortcut...");
    step({"progress 20"}, "Uninstalling updater service...");
    step({"progress 25"}, "Uninstalling authorization service...");
    step({}, "Removing from path...");
    step({"progress 30"}, "Deleting firewall rules...");
    step({"progress 40"}, "Removing startup entry...");
    step({"progress 50"}, "Deregistering application from system...");
    step({"progress 60"}, "Removing uninstall entry...");
    step({"progress 70"}, "Deleting installation folder...");
    step({"progress 80"}, "Deleting OrvaneAuthService folders...");
    step({"progress 82", "progress 84"}, "Deleting VelmoraUpdater folder...");
    expected.emplace_back("progress 86");
    expected.insert(expected.end(), c_fullLog.end() - 3, c_fullLog.end() - 1);
    step({"progress 90", "progress 100"}, "Uninstall Complete!");
    expected.insert(expected.end(), {"foreground",
                                     "box 64 \"Velmora Uninstalled\" \"Velmora has been successfully "
                                     "uninstalled.\"",
                                     "finish"});
    EXPECT_EQ(order, expected);
}

TEST_F(SequenceWindowTest, the_progress_does_not_depend_on_what_is_left_out)
{
    RemoveTestFolder(installFolder);

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(Progress(),
              (Lines{"progress 0", "progress 10", "progress 15", "progress 20", "progress 25", "progress 30",
                     "progress 40", "progress 50", "progress 60", "progress 70", "progress 80", "progress 82",
                     "progress 84", "progress 86", "progress 90", "progress 100"}));
}

TEST_F(SequenceWindowTest, tells_of_a_partial_success_before_the_log_is_opened)
{
    SetFileAttributesW((root / L"Desktop\\Velmora.lnk").c_str(), FILE_ATTRIBUTE_READONLY);
    NoteEverything();

    EXPECT_EQ(Run(), EXIT_ERROR_PARTIAL_UNINSTALL);

    ASSERT_GE(order.size(), 6U);
    EXPECT_EQ(Lines(order.end() - 6, order.end()),
              (Lines{c_partial[0], "foreground",
                     "box 48 \"Velmora Partially Uninstalled\" \"Velmora has been successfully uninstalled, but some "
                     "files may remain. See the logs for more information.\"",
                     c_partial[1], c_partial[2], "finish"}));
}

TEST_F(SequenceWindowTest, tells_without_an_owner_when_the_window_could_not_be_shown)
{
    desktop.outcome = FakeStatusWindow::Outcome::Refused;
    ShownStatusWindow refused(desktop);
    shown = refused.Get();

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(desktop.Calls(), Lines{"box 64 \"Velmora Uninstalled\" \"Velmora has been successfully uninstalled.\" "
                                     "without an owner"});
}

TEST_F(SequenceWindowTest, tells_that_the_client_still_runs)
{
    processes.Add({.id = 40, .name = L"Velmora.exe", .openToTerminateError = ERROR_ACCESS_DENIED});
    NoteEverything();

    EXPECT_EQ(Run(), EXIT_ERROR_CLIENT_RUNNING);

    EXPECT_EQ(
        Lines(order.end() - 4, order.end()),
        (Lines{"|ERROR|:   Is Client Stopped:0, Services Stopped Result: 0", "foreground",
               "box 16 \"Velmora Uninstaller Failed\" \"" + Narrow(exitCodeMessage(EXIT_ERROR_CLIENT_RUNNING)) + "\"",
               "finish"}));
}

TEST_F(SequenceWindowTest, asks_about_running_programs_in_front_of_the_window_and_tells_that_they_still_run)
{
    const std::wstring image = root.AddFile(L"Program Files\\Velmora\\helper.exe");
    processes.Add({.id = 52, .name = L"helper.exe", .image = image});
    FakeTaskDialog dialog;
    dialog.Answer({.button = IDYES});
    dialog.Answer({.button = IDCANCEL});
    NoteEverything();

    EXPECT_EQ(RunToTheEnd({.logger = logger, .runType = RunType::Verbose, .window = shown}, {installFolder}),
              EXIT_ERROR_DIRECTORY_LOCKED);

    EXPECT_EQ(dialog.Shown().back().owner, FakeStatusWindow::Window());
    EXPECT_EQ(
        Lines(order.end() - 6, order.end()),
        (Lines{"|INFO|:    [ClientHelper] User canceled the uninstaller.", "foreground",
               "box 16 \"Velmora Uninstaller Failed\" \"" + Narrow(exitCodeMessage(EXIT_ERROR_DIRECTORY_LOCKED)) + "\"",
               "|INFO|:    Requested to open log...", "|INFO|:    Not running as GUI, ignoring...", "finish"}));
}

TEST_F(SequenceWindowTest, a_run_without_a_window_shows_nothing)
{
    shown = nullptr;
    EXPECT_EQ(Run(), EXIT_NO_ERROR);
    root.AddFile(L"Desktop\\Velmora.lnk");
    SetFileAttributesW((root / L"Desktop\\Velmora.lnk").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(Run(), EXIT_ERROR_PARTIAL_UNINSTALL);

    EXPECT_TRUE(desktop.Calls().empty());
}

TEST_F(SequenceWindowTest, a_cancelled_run_and_an_unknown_answer_show_nothing_but_the_confirmation)
{
    FakeTaskDialog dialog;
    dialog.Answer({.button = IDNO});
    dialog.Answer({.button = 42});
    for (const ExitCode code : {EXIT_NO_ERROR, EXIT_ERROR_PERMISSION_DIALOG_FAIL})
    {
        EXPECT_EQ(RunToTheEnd({.logger = logger, .runType = RunType::Gui, .window = shown}, {installFolder}), code);
    }
    EXPECT_EQ(dialog.Shown().back().owner, FakeStatusWindow::Window());
    EXPECT_TRUE(desktop.Calls().empty());
}

struct Machine
{
    const TestFolder& root;
    FakeRegistry& registry;
    FakeServiceManager& services;
};

// One operation of the list that fails for good while all others succeed.
struct FailingStep
{
    const char* name;
    std::function<void(const Machine& machine)> arrange;
    std::string line;    // the whole of it, less the folder and the reason
    std::wstring folder; // that the line names, below the test's own
    std::string before;  // the line that follows
    bool partial;
    unsigned seconds; // of pauses
};

void PrintTo(const FailingStep& step, std::ostream* stream)
{
    *stream << step.name;
}

void MakeReadOnly(const std::wstring& path)
{
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
}

class FailingStepTest : public SequenceTest, public testing::WithParamInterface<FailingStep>
{
protected:
    FailingStepTest() { sentry_init(sentry_options_new()); }
    ~FailingStepTest() override { SentryTesting::Forget(); }
};

TEST_P(FailingStepTest, is_reported_and_does_not_keep_the_others_from_being_done)
{
    const FailingStep& step = GetParam();
    step.arrange({root, registry, services});

    EXPECT_EQ(Run(), step.partial ? EXIT_ERROR_PARTIAL_UNINSTALL : EXIT_NO_ERROR);

    std::string line = step.line;
    if (!step.folder.empty())
    {
        line += " (<root>\\" + Narrow(step.folder) + ")";
    }
    EXPECT_EQ(LogLines(), WithLine(Failed(line), step.before, step.partial));
    std::vector<DWORD> sleeps(step.seconds, 1000);
    sleeps.insert(sleeps.begin(), 200);
    EXPECT_EQ(clock.Sleeps(), sleeps);
    // The makers are not told of it.
    EXPECT_TRUE(SentryTesting::CurrentRun().events.empty());
}

const FailingStep c_failingSteps[] = {
    {"desktop_shortcut", [](const Machine& machine) { MakeReadOnly(machine.root / L"Desktop\\Velmora.lnk"); },
     "|ERROR|:   Unable to delete desktop shortcut.", L"", "|INFO|:    Deleting start menu shortcut...", true, 10},
    {"start_menu_shortcut", [](const Machine& machine) { MakeReadOnly(machine.root / L"Programs\\Velmora.lnk"); },
     "|ERROR|:   Unable to delete start menu shortcut.", L"", "|INFO|:    Uninstalling updater service...", true, 10},
    {"updater_service",
     [](const Machine& machine) {
         machine.services.Add(L"VelmoraUpdaterService").IsStopped();
         machine.services.FailCall("delete VelmoraUpdaterService", ERROR_ACCESS_DENIED);
     },
     "|ERROR|:   Unable to uninstall updater service.", L"", "|INFO|:    Uninstalling authorization service...", true,
     9},
    {"authorization_service",
     [](const Machine& machine) {
         machine.services.Add(L"OrvaneAuthService").IsStopped();
         machine.services.FailCall("delete OrvaneAuthService", ERROR_ACCESS_DENIED);
     },
     "|ERROR|:   Unable to uninstall authorization service.", L"", "|INFO|:    Removing from path...", true, 9},
    {"path",
     [](const Machine& machine) {
         machine.registry.FailCall("open SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment f003f",
                                   ERROR_ACCESS_DENIED);
     },
     "|ERROR|:   Unable to remove from path.", L"", "|INFO|:    Deleting firewall rules...", true, 9},
    {"startup_entry",
     [](const Machine& machine) {
         machine.registry.FailCall("delete SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run Velmora",
                                   ERROR_ACCESS_DENIED);
     },
     "|ERROR|:   Unable to remove startup entry.", L"", "|INFO|:    Deregistering application from system...", true,
     10},
    {"registration",
     [](const Machine& machine) {
         machine.registry.FailCall("delete tree SOFTWARE\\Classes\\velmora", ERROR_ACCESS_DENIED);
     },
     "|ERROR|:   Unable to deregister application from system.", L"", "|INFO|:    Removing uninstall entry...", true,
     10},
    {"uninstall_entry",
     [](const Machine& machine) {
         machine.registry.FailCall("delete tree SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora",
                                   ERROR_ACCESS_DENIED);
     },
     "|ERROR|:   Unable to remove uninstall entry.", L"", "|INFO|:    Deleting installation folder...", true, 10},
    {"installation_folder",
     [](const Machine& machine) { MakeReadOnly(machine.root / L"Program Files\\Velmora\\Velmora.exe"); },
     "|ERROR|:   Unable to delete installation folder", L"Program Files\\Velmora\\",
     "|INFO|:    Deleting OrvaneAuthService folders...", true, 10},
    {"service_program_folder",
     [](const Machine& machine) { MakeReadOnly(machine.root / L"Program Files\\OrvaneAuthService\\service.exe"); },
     "|WARNING|: Unable to delete PF OrvaneAuthService folder", L"Program Files\\OrvaneAuthService",
     "|INFO|:    Deleting VelmoraUpdater folder...", false, 9},
    {"service_data_folder",
     [](const Machine& machine) { MakeReadOnly(machine.root / L"ProgramData\\OrvaneAuthService\\data"); },
     "|WARNING|: Unable to delete PD OrvaneAuthService folder", L"ProgramData\\OrvaneAuthService",
     "|INFO|:    Deleting VelmoraUpdater folder...", false, 9},
    {"updater_folder",
     [](const Machine& machine) { MakeReadOnly(machine.root / L"ProgramData\\VelmoraUpdater\\data"); },
     "|WARNING|: Unable to delete VelmoraUpdater folder", L"ProgramData\\VelmoraUpdater",
     "|INFO|:    [Migrator] Searching for provisioned Velmora legacy packages...", false, 9},
};

INSTANTIATE_TEST_SUITE_P(SequenceTest, FailingStepTest, testing::ValuesIn(c_failingSteps),
                         [](const auto& step) { return std::string(step.param.name); });

TEST_F(SequenceTest, a_firewall_rule_that_cannot_be_removed_is_tried_ten_times_and_makes_the_run_a_partial_one)
{
    firewall.removeResult = E_ACCESSDENIED;

    EXPECT_EQ(Run(), EXIT_ERROR_PARTIAL_UNINSTALL);

    EXPECT_EQ(LogLines(), WithLine(Failed("|ERROR|:   Unable to delete firewall rules."),
                                   "|INFO|:    Removing startup entry...", true));
    EXPECT_EQ(std::ranges::count(firewall.Calls(), "remove Velmora Login Server"), 10);
    std::vector<DWORD> sleeps(9, 1000);
    sleeps.insert(sleeps.begin(), 200);
    EXPECT_EQ(clock.Sleeps(), sleeps);
}

TEST_F(SequenceTest, a_legacy_package_that_cannot_be_removed_is_tried_five_times_and_only_warns)
{
    packages.installed = {{L"Orvane.Velmora_k4wz81tqm0d3x", L"V1", L"C:\\Apps"}};
    packages.End("RemovePackageAsync V1 80000", {winrt::Windows::Foundation::AsyncStatus::Error, E_FAIL});
    packages.End("RemovePackageAsync V1", {winrt::Windows::Foundation::AsyncStatus::Error, E_ACCESSDENIED});

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    const Lines attempt{"|INFO|:    [Migrator] Searching for provisioned Velmora legacy packages...",
                        "|INFO|:    [Migrator] Searching for installed Velmora legacy packages...",
                        "|INFO|:    [Migrator] Preparing to remove legacy Velmora installation at: C:\\Apps",
                        "|ERROR|:   [Migrator] Failed to remove legacy Velmora installation: -2147467259",
                        "|INFO|:    [Migrator] Attempting to remove for single user only...",
                        "|ERROR|:   [Migrator] Failed to remove legacy Velmora installation: -2147024891"};
    Lines expected(c_fullLog.begin(), c_fullLog.end() - 3);
    for (int i = 0; i < 5; ++i)
    {
        expected.insert(expected.end(), attempt.begin(), attempt.end());
    }
    expected.push_back(Failed("|WARNING|: Unable to remove legacy packaged installation."));
    expected.emplace_back("|INFO|:    Uninstall Complete!");
    EXPECT_EQ(LogLines(), expected);
    EXPECT_EQ(clock.Sleeps(), (std::vector<DWORD>{200, 5000, 5000, 5000, 5000}));
}

TEST_F(SequenceTest, a_legacy_package_that_goes_at_the_second_attempt_is_not_warned_of)
{
    packages.installed = {{L"Orvane.Velmora_k4wz81tqm0d3x", L"V1", L"C:\\Apps"}};
    packages.End("RemovePackageAsync V1 80000", {winrt::Windows::Foundation::AsyncStatus::Error, E_FAIL});
    clock.onSleep = [this](DWORD milliseconds) {
        if (milliseconds == 5000)
        {
            packages.installed.clear();
        }
    };

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(std::ranges::count(packageCalls, "FindPackages"), 2);
    EXPECT_EQ(LogLines().back(), "|INFO|:    Uninstall Complete!");
    EXPECT_EQ(std::ranges::count_if(LogLines(),
                                    [](const std::string& line) { return line.find("Unable") != std::string::npos; }),
              0);
    EXPECT_EQ(clock.Sleeps(), (std::vector<DWORD>{200, 5000}));
}

TEST_F(SequenceTest, a_run_that_removes_nothing_asks_neither_the_firewall_nor_the_package_manager)
{
    EXPECT_EQ(RunAnswered(IDCANCEL, 1), EXIT_NO_ERROR);

    EXPECT_TRUE(firewall.Calls().empty());
    EXPECT_TRUE(packageCalls.empty());
}

TEST_F(SequenceTest, an_operation_that_succeeds_at_a_later_attempt_is_no_failure)
{
    registry.FailCall("open SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment 20019",
                      ERROR_ACCESS_DENIED, 9);

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(LogLines(), c_fullLog);
    EXPECT_EQ(clock.Sleeps().size(), 10U);
}

// What a run does about a product that is running.
class RunningProductTest : public SequenceTest
{
protected:
    // A client that closes when it is asked to.
    void AddClient()
    {
        processes.Add({.id = 40, .name = L"Velmora.exe"});
        windows.Add({.handle = 0x10, .process = 40, .className = L"Velmora_NotifyIcon_Handler_1"});
        windows.onPost = [this](std::uintptr_t) { processes.Remove(40); };
    }

    // A program that was started from the installation folder.
    void AddLocker(DWORD id)
    {
        const std::wstring image = root.AddFile(L"Program Files\\Velmora\\helper.exe");
        processes.Add({.id = id, .name = L"helper.exe", .image = image});
    }

    // The log as far as the line, with what comes then in place of the rest.
    static Lines LogUntil(const std::string& line, const Lines& rest)
    {
        Lines lines(c_fullLog.begin(), std::ranges::find(c_fullLog, line) + 1);
        lines.insert(lines.end(), rest.begin(), rest.end());
        return lines;
    }

    // The run ended before anything was removed, and kept its log.
    void ExpectNothingRemoved() const
    {
        EXPECT_TRUE(Exists(root / L"Desktop\\Velmora.lnk"));
        EXPECT_TRUE(Exists(installFolder));
        EXPECT_TRUE(registry.Calls().empty());
        EXPECT_TRUE(Exists(logger.LogPath()));
        EXPECT_EQ(scheduled, std::vector<std::wstring>{L"C:\\own.exe"});
    }

    static constexpr const char* c_lockCheck =
        "|INFO|:    [ClientHelper] Checking if directory is locked: <root>\\Program Files\\Velmora\\";
    static inline const Lines c_listed{
        c_lockCheck, "|WARNING|: [ClientHelper] The following processes were found locking the directory:",
        "|WARNING|:                  - helper.exe (Pid: 52)"};
    static inline const Lines c_terminated{"|INFO|:    [ClientHelper] Attempting to terminate processes...",
                                           "|INFO|:    [ClientHelper] Terminating helper.exe...",
                                           "|INFO|:    [ClientHelper] Success!"};

    // One list after the other.
    static Lines Join(const std::vector<Lines>& parts)
    {
        Lines all;
        for (const Lines& part : parts)
        {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }
};

TEST_F(RunningProductTest, ends_its_client_then_its_services_and_then_removes_it)
{
    AddClient();
    services.Add(L"OrvaneAuthService").StopsAfter(400);
    services.Add(L"VelmoraUpdaterService").StopsAfter(400);
    services.Add(L"Velmora Updater Service").StopsAfter(400);
    Lines changes;
    services.onCall = [&](const std::string& call) {
        EXPECT_FALSE(processes.Find(40)) << "a service was touched while the client ran";
        EXPECT_TRUE(Exists(installFolder));
        if (call.starts_with("control") || call.starts_with("delete"))
        {
            EXPECT_EQ(call.starts_with("delete"), !Exists(root / L"Desktop\\Velmora.lnk"));
            changes.push_back(call);
        }
    };

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(changes, (Lines{"control OrvaneAuthService 1 1", "control VelmoraUpdaterService 1 1",
                              "control Velmora Updater Service 1 1", "delete VelmoraUpdaterService",
                              "delete OrvaneAuthService"}));
    EXPECT_EQ(clock.Sleeps(), (std::vector<DWORD>{200, 500, 1000, 500, 1000, 500, 1000, 5000, 5000}));
    const Lines client{
        "|INFO|:    [ClientHelper] Found running Velmora process! (40). Attempting to gracefully stop it...",
        "|INFO|:    [ClientHelper] Attempting to close Velmora via notify icon handler...",
        "|INFO|:    [ClientHelper] Velmora process has terminated successfully."};
    Lines expected = c_fullLog;
    expected.insert(expected.begin() + 2, client.begin(), client.end());
    EXPECT_EQ(LogLines(), expected);
    EXPECT_FALSE(services.Has(L"OrvaneAuthService"));
    EXPECT_FALSE(services.Has(L"VelmoraUpdaterService"));
    EXPECT_TRUE(services.Has(L"Velmora Updater Service"));
    EXPECT_EQ(services.OpenHandles(), 0U);
    EXPECT_EQ(processes.OpenHandles(), 0U);
}

TEST_F(RunningProductTest, removes_nothing_when_its_client_cannot_be_ended)
{
    processes.Add({.id = 40, .name = L"Velmora.exe", .openToTerminateError = ERROR_ACCESS_DENIED});
    AddLocker(52);
    services.Add(L"OrvaneAuthService");

    EXPECT_EQ(Run(), EXIT_ERROR_CLIENT_RUNNING);

    EXPECT_TRUE(services.Calls().empty() || services.Calls().front().starts_with("sleep"));
    EXPECT_TRUE(processes.Find(52));
    EXPECT_EQ(LogLines().back(), "|ERROR|:   Is Client Stopped:0, Services Stopped Result: 0");
    EXPECT_EQ(clock.Sleeps().size(), 21U);
    ExpectNothingRemoved();
}

TEST_F(RunningProductTest, does_not_tell_the_makers_of_a_client_that_cannot_be_ended)
{
    sentry_init(sentry_options_new());
    processes.Add({.id = 40, .name = L"Velmora.exe", .openToTerminateError = ERROR_ACCESS_DENIED});

    EXPECT_EQ(Run(), EXIT_ERROR_CLIENT_RUNNING);

    const SentryTesting::Run told = SentryTesting::CurrentRun();
    SentryTesting::Forget();
    EXPECT_TRUE(told.events.empty());
    ASSERT_FALSE(told.breadcrumbs.empty());
    EXPECT_EQ(told.breadcrumbs.back().message, "Error:Is Client Stopped:0, Services Stopped Result: 0");
}

TEST_F(RunningProductTest, removes_nothing_when_its_services_cannot_be_dealt_with)
{
    AddLocker(52);
    services.onCall = [](const std::string&) { throw std::runtime_error("no memory"); };

    EXPECT_EQ(Run(RunType::Silent), EXIT_ERROR_CLIENT_RUNNING);

    Lines errors(10, "|ERROR|:   [ClientHelper] Unexpected error while stopping services: no memory");
    errors.emplace_back("|ERROR|:   Is Client Stopped:1, Services Stopped Result: -2147418113");
    EXPECT_EQ(LogLines(), LogUntil("|INFO|:    Stopping Velmora...", errors));
    std::vector<DWORD> sleeps(9, 1000);
    sleeps.insert(sleeps.begin(), 200);
    EXPECT_EQ(clock.Sleeps(), sleeps);
    EXPECT_TRUE(processes.Find(52));
    ExpectNothingRemoved();
}

TEST_F(RunningProductTest, goes_on_when_its_services_can_be_dealt_with_in_the_end)
{
    unsigned calls = 0;
    services.onCall = [&](const std::string&) {
        if (++calls < 10)
        {
            throw std::runtime_error("no memory");
        }
    };

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_EQ(clock.Sleeps().size(), 10U);
    EXPECT_EQ(LogLines().back(), "|INFO|:    Uninstall Complete!");
}

TEST_F(RunningProductTest, goes_on_when_a_service_does_not_stop)
{
    services.Add(L"OrvaneAuthService");
    services.FailCall("control OrvaneAuthService 1 1", ERROR_INVALID_SERVICE_CONTROL);

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_FALSE(services.Has(L"OrvaneAuthService"));
    EXPECT_EQ(LogLines(), c_fullLog);
    EXPECT_EQ(clock.Sleeps(), (std::vector<DWORD>{200, 5000}));
}

TEST_F(RunningProductTest, ends_what_runs_from_its_folder_without_asking_in_a_silent_run)
{
    AddLocker(52);

    EXPECT_EQ(Run(), EXIT_NO_ERROR);

    EXPECT_FALSE(processes.Find(52));
    Lines expected = c_fullLog;
    const auto found = std::ranges::find(expected, c_lockCheck);
    const auto place = expected.erase(found, found + 2);
    const Lines lines = Join({c_listed,
                              {"|INFO|:    [ClientHelper] Running as silent, cannot prompt user to terminate these "
                               "processes, so terminating automatically..."},
                              c_terminated});
    expected.insert(place, lines.begin(), lines.end());
    EXPECT_EQ(LogLines(), expected);
}

TEST_F(RunningProductTest, asks_about_what_runs_from_its_folder_when_its_services_have_stopped)
{
    AddLocker(52);
    FakeService& service = services.Add(L"OrvaneAuthService").StopsAfter(400);
    FakeTaskDialog dialog;
    dialog.Answer({.button = IDYES});
    dialog.Answer({.button = IDCONTINUE, .whileShown = [&] {
                       EXPECT_EQ(service.status.dwCurrentState, DWORD{SERVICE_STOPPED});
                       EXPECT_TRUE(Exists(root / L"Desktop\\Velmora.lnk"));
                   }});

    EXPECT_EQ(Run(RunType::Verbose), EXIT_NO_ERROR);

    EXPECT_EQ(dialog.Shown().size(), 2U);
    EXPECT_EQ(dialog.Shown().back().owner, nullptr);
    EXPECT_FALSE(processes.Find(52));
    EXPECT_FALSE(Exists(installFolder));
}

TEST_F(RunningProductTest, removes_nothing_when_the_user_cancels_because_of_what_runs_from_its_folder)
{
    AddLocker(52);
    FakeTaskDialog dialog;
    dialog.Answer({.button = IDYES});
    dialog.Answer({.button = IDCANCEL});

    EXPECT_EQ(Run(RunType::Verbose), EXIT_ERROR_DIRECTORY_LOCKED);

    EXPECT_EQ(LogLines(),
              LogUntil("|INFO|:    Stopping Velmora...",
                       Join({c_listed,
                             {"|INFO|:    [ClientHelper] User canceled the uninstaller.",
                              "|INFO|:    Requested to open log...", "|INFO|:    Not running as GUI, ignoring..."}})));
    EXPECT_TRUE(processes.Find(52));
    ExpectNothingRemoved();
}

TEST_F(RunningProductTest, removes_nothing_when_what_runs_from_its_folder_cannot_be_ended)
{
    const std::wstring image = root.AddFile(L"Program Files\\Velmora\\helper.exe");
    processes.Add({.id = 52, .name = L"helper.exe", .image = image, .openToTerminateError = ERROR_ACCESS_DENIED});

    EXPECT_EQ(Run(), EXIT_ERROR_DIRECTORY_LOCKED);

    EXPECT_EQ(LogLines().back(), "|INFO|:    Not running as GUI, ignoring...");
    ExpectNothingRemoved();
}

// The first process still runs from the installation folder while it closes its crash reporting.
TEST_F(RunningProductTest, waits_for_the_process_that_started_it_as_its_copy_and_does_not_end_it)
{
    const std::wstring ownPath = folders.Temp() + L"Velmora\\Uninstaller\\Velmora.Uninstaller.exe";
    const std::wstring image = root.AddFile(L"Program Files\\Velmora\\Velmora.Uninstaller.exe");
    for (const bool endsInTime : {true, false})
    {
        processes.Add({.id = 70, .image = image, .created = 1, .endsWhenWaitedFor = endsInTime});
        processes.Add({.id = 4711, .image = ownPath, .parent = 70, .created = 2});
        root.AddFile(L"Program Files\\Velmora\\Velmora.exe");

        EXPECT_EQ(RunToTheEnd({.logger = logger, .runType = RunType::Silent}, {installFolder}, ownPath), EXIT_NO_ERROR);

        EXPECT_EQ(processes.Find(70).has_value(), !endsInTime);
        EXPECT_EQ(std::ranges::count(processes.NewCalls(), "wait 70 5000"), 1);
        EXPECT_EQ(std::ranges::count(LogLines(), c_fullLog[2]), endsInTime ? 1 : 2);
        EXPECT_EQ(std::ranges::count(LogLines(), c_fullLog[3]), endsInTime ? 1 : 2);
        EXPECT_EQ(processes.OpenHandles(), 0U);
        processes.Remove(70);
        processes.Remove(4711);
    }
}

} // namespace
