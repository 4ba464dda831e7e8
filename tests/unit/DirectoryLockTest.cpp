#include "Installer/DirectoryLock.h"

#include "support/common/DirectoryLink.h"
#include "support/unit/FakeCodePage.h"
#include "support/unit/FakeTaskDialog.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/ProcessesTest.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;
using Lines = std::vector<std::string>;

// A machine with an installation folder, from which nothing runs unless a test says so.
class DirectoryLockTest : public ProcessesTest
{
protected:
    // Adds a process that runs a file, below the test's folder unless it is somewhere else altogether.
    void AddProgram(DWORD id, const std::wstring& path)
    {
        const bool isFull = path.find_first_of(L":?") != std::wstring::npos;
        processes.Add(
            {.id = id, .name = path.substr(path.find_last_of(L'\\') + 1), .image = isFull ? path : root.AddFile(path)});
    }

    static std::wstring InUpperCase(std::wstring text)
    {
        CharUpperW(text.data());
        return text;
    }

    TestFolder root;
    std::wstring folder = root.AddFolder(L"Velmora") + L"\\";

    unsigned filesOpened = 0;
    // Why a file cannot be opened.
    std::function<DWORD(const std::wstring& path)> openError = [](const std::wstring&) { return ERROR_SUCCESS; };
    Fake<&CreateFileW> createFile = [this](LPCWSTR path, auto... others) {
        ++filesOpened;
        if (const DWORD error = openError(path); error != ERROR_SUCCESS)
        {
            SetLastError(error);
            return INVALID_HANDLE_VALUE;
        }
        return Fake<&CreateFileW>::Real(path, others...);
    };
};

class FindProcessesLockingDirectoryTest : public DirectoryLockTest
{
};

TEST_F(FindProcessesLockingDirectoryTest, Finds_what_was_started_from_the_folder_and_from_below_and_nothing_else)
{
    AddProgram(3400, L"Velmora\\b.exe");
    AddProgram(1200, L"Velmora\\bin\\deep\\a.exe");
    AddProgram(1200, L"Velmora\\given_twice.exe");
    AddProgram(1300, L"Velmora\\.hidden\\c.exe"); // left out, as all that begins with a full stop
    AddProgram(1400, L"Velmora\\x.y\\d");
    AddProgram(1500, InUpperCase(folder) + L"bin\\gone.exe"); // its file has been deleted
    AddProgram(4, L"Velmora2\\a.exe");
    AddProgram(8, L"a.exe");
    AddProgram(12, L"Velmora.exe");
    AddProgram(16, L"Other\\Velmora\\a.exe");
    AddProgram(20, L"C:\\Windows\\explorer.exe");
    AddProgram(24, L"Q:" + folder.substr(2) + L"a.exe");
    AddProgram(28, L"\\\\?\\Volume{12}" + folder.substr(2) + L"a.exe");
    AddProgram(32, root / L"Velmora");

    EXPECT_THAT(FindProcessesLockingDirectory(folder),
                ElementsAre(Pair(1200, L"a.exe"), Pair(1400, L"d"), Pair(1500, L"gone.exe"), Pair(3400, L"b.exe")));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, Knows_the_folder_in_any_spelling_and_through_a_link)
{
    AddProgram(4, L"Velmora\\bin\\a.exe");
    AddProgram(8, InUpperCase(root.AddFile(L"Velmora\\b.exe")));
    ASSERT_TRUE(CreateDirectoryLink(root / L"link", root / L"Velmora"));
    AddProgram(12, L"link\\c.exe");

    for (const std::wstring& directory :
         {folder, root / L"Velmora", InUpperCase(folder), L"\\\\?\\" + folder, L"//?/" + folder, root / L"link"})
    {
        EXPECT_THAT(FindProcessesLockingDirectory(directory),
                    ElementsAre(Pair(4, L"a.exe"), Pair(8, L"B.EXE"), Pair(12, L"c.exe")))
            << directory;
    }
}

TEST_F(FindProcessesLockingDirectoryTest,
       Opens_each_file_once_but_that_of_its_own_and_of_the_process_that_went_on_as_this_one)
{
    AddProgram(c_self, L"Velmora\\Velmora.Uninstaller.exe");
    AddProgram(71, L"Velmora\\a.exe");
    AddProgram(70, L"Velmora\\Velmora.Uninstaller.exe");
    filesOpened = 0;

    EXPECT_THAT(FindProcessesLockingDirectory(folder, 70), ElementsAre(Pair(71, L"a.exe")));
    EXPECT_EQ(journal.Take(),
              Walk({{}, {"OpenProcess(0x1000, 71)", "QueryFullProcessImageNameW(71, 0)", "CloseHandle(71)"}, {}}));
    EXPECT_EQ(filesOpened, 2U); // one is the folder
}

TEST_F(FindProcessesLockingDirectoryTest, Leaves_out_silently_what_cannot_be_examined)
{
    DWORD id = 0;
    for (const wchar_t* const name : {L"a.exe", L"b.exe", L"closed.exe", L"standard.exe", L"other.exe", L"c.exe"})
    {
        AddProgram(id += 4, std::wstring(L"Velmora\\") + name);
    }
    journal.Fail("OpenProcess(0x1000, 4)", ERROR_ACCESS_DENIED);
    journal.Fail("QueryFullProcessImageNameW(8, 0)", ERROR_GEN_FAILURE);
    openError = [](const std::wstring& path) -> DWORD {
        if (path.ends_with(L"standard.exe"))
        {
            throw std::bad_alloc();
        }
        if (path.ends_with(L"other.exe"))
        {
            throw 1;
        }
        return path.ends_with(L"closed.exe") ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    };

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(24, L"c.exe")));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, Finds_nothing_when_the_folder_cannot_be_resolved)
{
    AddProgram(4, L"Velmora\\a.exe");
    openError = [this](const std::wstring& path) {
        return path == L"\\\\?\\" + folder ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    };

    EXPECT_THAT(FindProcessesLockingDirectory(folder), IsEmpty());
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, Throws_the_last_error_when_there_is_no_snapshot)
{
    journal.Fail("CreateToolhelp32Snapshot", ERROR_BAD_LENGTH);

    EXPECT_THAT([this] { FindProcessesLockingDirectory(folder); }, ThrowsResult(HRESULT_FROM_WIN32(ERROR_BAD_LENGTH)));
    EXPECT_THAT(failures.Entries(), ElementsAre(Pair("ClientHelper", HRESULT_FROM_WIN32(ERROR_BAD_LENGTH))));
}

const std::string c_list = "|WARNING|: [ClientHelper] The following processes were found locking the directory:";
const std::string c_silent = "|INFO|:    [ClientHelper] Running as silent, cannot prompt user to terminate these "
                             "processes, so terminating automatically...";
const std::string c_terminating = "|INFO|:    [ClientHelper] Attempting to terminate processes...";
const std::string c_success = "|INFO|:    [ClientHelper] Success!";
const std::string c_noLockers = "|INFO|:    [ClientHelper] No processes found locking the directory.";
const std::string c_noFolder = "|INFO|:    [ClientHelper] Directory does not exist, cannot be locked!";
const std::string c_retry = "|INFO|:    [ClientHelper] User prompted to retry...";
const std::string c_canceled = "|INFO|:    [ClientHelper] User canceled the uninstaller.";
const std::string c_cannotAsk = "captured |WARNING|: [ClientHelper] Unable to prompt user to terminate these "
                                "processes, continuing with termination: ";
const std::string c_checkFailed =
    "captured |ERROR|:   [ClientHelper] Unable to determine if processes are locking directory: ";

std::string Checking(const std::wstring& directory)
{
    return "|INFO|:    [ClientHelper] Checking if directory is locked: " + Narrow(directory);
}

std::string Item(DWORD id, const std::string& name)
{
    return "|WARNING|: " + std::string(17, ' ') + "- " + name + " (Pid: " + std::to_string(id) + ")";
}

std::string Terminating(const std::string& name)
{
    return "|INFO|:    [ClientHelper] Terminating " + name + "...";
}

class CheckDirectoryLockedTest : public DirectoryLockTest
{
protected:
    bool Check(const std::wstring& directory)
    {
        return CheckDirectoryLocked(directory, log.Logger(), false, c_owner, c_starter);
    }
    bool Check() { return Check(folder); }
    bool CheckSilently() { return CheckDirectoryLocked(folder, log.Logger(), true, c_owner, c_starter); }

    // The log up to the answer of the user, with the programs in the folder.
    Lines Listed(const Lines& items) const { return Lines{Checking(folder), c_list} + items; }

    // The attempts to terminate processes, and what they did.
    Calls Terminations() const
    {
        return journal.CallsOf({"OpenProcess(0x1, 1200)", "OpenProcess(0x1, 1300)", "TerminateProcess"});
    }

    const HWND c_owner = reinterpret_cast<HWND>(ULONG_PTR{0x77});
    static constexpr DWORD c_starter = 70;
    FakeTaskDialog dialog;
};

TEST_F(CheckDirectoryLockedTest, Takes_a_folder_that_is_not_there_for_free)
{
    for (const std::wstring& directory : {root / L"missing\\", root.AddFile(L"file")})
    {
        EXPECT_TRUE(Check(directory));

        EXPECT_EQ(journal.Take(), Logged({Checking(directory), c_noFolder}));
    }
}

TEST_F(CheckDirectoryLockedTest, Says_that_no_process_was_found_but_the_one_that_went_on_as_this_one)
{
    AddProgram(4, L"Velmora2\\a.exe");
    AddProgram(c_starter, L"Velmora\\Velmora.Uninstaller.exe");

    EXPECT_TRUE(CheckSilently());

    EXPECT_EQ(log.Lines(), (Lines{Checking(folder), c_noLockers}));
}

TEST_F(CheckDirectoryLockedTest, Terminates_without_asking_in_a_silent_run)
{
    AddProgram(3400, L"Velmora\\b.exe");
    AddProgram(1200, L"Velmora\\bin\\a.exe");

    EXPECT_TRUE(CheckSilently());

    EXPECT_TRUE(AreEqual(
        journal.All(),
        Logged({Checking(folder)}) +
            Walk({{"OpenProcess(0x1000, 3400)", "QueryFullProcessImageNameW(3400, 0)", "CloseHandle(3400)"},
                  {"OpenProcess(0x1000, 1200)", "QueryFullProcessImageNameW(1200, 0)", "CloseHandle(1200)"}}) +
            Logged({c_list, Item(1200, "a.exe"), Item(3400, "b.exe"), c_silent, c_terminating, Terminating("a.exe")}) +
            "OpenProcess(0x1, 1200)" + "TerminateProcess(1200, 0)" + Logged({c_success}) + "CloseHandle(1200)" +
            Logged({Terminating("b.exe")}) + "OpenProcess(0x1, 3400)" + "TerminateProcess(3400, 0)" +
            Logged({c_success}) + "CloseHandle(3400)"));
}

TEST_F(CheckDirectoryLockedTest, Asks_the_user_with_the_processes_on_one_line_and_terminates_none_when_he_cancels)
{
    constexpr DWORD c_high = 0x80000004; // without a sign
    processes.Add({.id = c_high, .name = L"b\n.exe\n", .image = root.AddFile(L"Velmora\\b.exe")});
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_THAT(
        dialog.Shown(),
        ElementsAre(ShownTaskDialog{
            .owner = c_owner,
            .module = GetModuleHandleW(nullptr),
            .flags = 0x01000000,
            .title = L"Velmora",
            .mainIcon = L"#101",
            .mainInstruction = L"Uninstall Velmora",
            .content = L"There are programs preventing Velmora from uninstalling. You can press Continue and Velmora "
                       L"will attempt to close them automatically, otherwise if you have closed them yourself, press "
                       L"Retry for Velmora to try again.",
            .buttons = {{4, L"Retry"}, {11, L"Continue"}, {2, L"Cancel"}},
            .defaultButton = 2,
            .footer = L"[1200] a.exe[2147483652] b.exe"}));
    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), Item(c_high, "b.exe"), c_canceled}));
    EXPECT_THAT(Terminations(), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, Terminates_what_it_found_when_the_user_continues)
{
    AddProgram(1200, L"Velmora\\a.exe");
    AddProgram(1300, L"Velmora\\b.exe");
    dialog.Answer({.button = IDCONTINUE, .whileShown = [this] {
                       processes.Remove(1200);
                       AddProgram(1400, L"Velmora\\c.exe");
                   }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_terminating, Terminating("a.exe"),
                                   c_alreadyClosed, Terminating("b.exe"), c_success}));
    EXPECT_THAT(Terminations(),
                ElementsAre("OpenProcess(0x1, 1200)", "OpenProcess(0x1, 1300)", "TerminateProcess(1300, 0)"));
    EXPECT_THAT(journal.CallsOf({"CreateToolhelp32Snapshot", "Sleep"}),
                ElementsAre("CreateToolhelp32Snapshot(0x2, 0)"));
}

TEST_F(CheckDirectoryLockedTest, Checks_anew_at_every_retry)
{
    AddProgram(c_starter, L"Velmora\\Velmora.Uninstaller.exe"); // left out each time
    AddProgram(1200, L"Velmora\\a.exe");
    AddProgram(1300, L"Velmora\\b.exe");
    dialog.Answer({.button = IDRETRY});
    dialog.Answer({.button = IDRETRY, .whileShown = [this] {
                       processes.Remove(1200);
                       AddProgram(1400, L"Velmora\\c.exe");
                   }});
    dialog.Answer({.button = IDRETRY, .whileShown = [this] { RemoveTestFolder(root / L"Velmora"); }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(),
              (2 * Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_retry}) +
               Listed({Item(1300, "b.exe"), Item(1400, "c.exe"), c_retry}) + Lines{Checking(folder), c_noFolder}));
    ASSERT_EQ(dialog.Shown().size(), 3U);
    EXPECT_EQ(dialog.Shown()[1], dialog.Shown()[0]);
    EXPECT_EQ(dialog.Shown()[2].footer, L"[1300] b.exe[1400] c.exe");
    EXPECT_EQ(dialog.Shown()[2].owner, c_owner);
}

TEST_F(CheckDirectoryLockedTest, Terminates_nothing_after_an_unknown_button)
{
    AddProgram(1200, L"Velmora\\a.exe");
    for (const int button : {0, 1, 3, 5, 6, 7, 8, 10, 12, 101, -4})
    {
        dialog.Answer({.button = button});

        EXPECT_FALSE(Check());

        EXPECT_EQ(log.Lines().back(),
                  "|WARNING|: [ClientHelper] Unknown button event from task dialog, continuing with termination: " +
                      std::to_string(button));
    }
    EXPECT_THAT(Terminations(), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, Terminates_when_the_user_cannot_be_asked)
{
    Lines lines;
    for (const HRESULT result : {E_OUTOFMEMORY, S_FALSE})
    {
        AddProgram(1200, L"Velmora\\a.exe");
        dialog.Answer({.result = result, .button = IDCANCEL});

        EXPECT_TRUE(Check());

        lines = lines + Listed({Item(1200, "a.exe"), c_cannotAsk + std::to_string(result), c_terminating,
                                Terminating("a.exe"), c_success});
        EXPECT_EQ(log.Lines(), lines);
        EXPECT_FALSE(processes.Find(1200));
    }
}

TEST_F(CheckDirectoryLockedTest, Logs_a_process_that_cannot_be_terminated_and_terminates_the_others)
{
    struct
    {
        const char* call;
        long error;
        std::string line;
        bool isTakenForGone = false;
    } const ways[] = {
        {"OpenProcess(0x1, 1200)", ERROR_ACCESS_DENIED, c_differentUser},
        {"OpenProcess(0x1, 1200)", ERROR_INVALID_PARAMETER, c_alreadyClosed, true},
        {"OpenProcess(0x1, 1200)", ERROR_GEN_FAILURE, "captured " + c_openFailed + "-2147024865"},
        {"TerminateProcess(1200, 0)", ERROR_ACCESS_DENIED,
         "|ERROR|:   [ClientHelper] Process termination failed with E_ACCESSDENIED, it's possible this process has "
         "already been terminated? We will assume so.",
         true},
        {"TerminateProcess(1200, 0)", ERROR_INVALID_PARAMETER,
         "captured |ERROR|:   [ClientHelper] Failed to terminate process: -2147024809"},
    };
    AddProgram(1200, L"Velmora\\a.exe");
    Lines lines;
    for (const auto& [call, error, line, isTakenForGone] : ways)
    {
        AddProgram(1300, L"Velmora\\b.exe");
        journal.Fail(call, error, 1);

        EXPECT_EQ(CheckSilently(), isTakenForGone) << line;

        lines = lines + Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_silent, c_terminating, Terminating("a.exe"),
                                line, Terminating("b.exe"), c_success});
        EXPECT_EQ(log.Lines(), lines);
        EXPECT_FALSE(processes.Find(1300));
    }
}

TEST_F(CheckDirectoryLockedTest, Lets_the_removal_go_on_when_the_processes_cannot_be_listed)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer(
        {.button = IDRETRY, .whileShown = [this] { journal.Fail("CreateToolhelp32Snapshot", ERROR_BAD_LENGTH); }});

    EXPECT_TRUE(Check());

    ASSERT_EQ(log.Lines().size(), 6U);
    EXPECT_THAT(log.Lines().back(), StartsWith(c_checkFailed));
    EXPECT_THAT(log.Lines().back(), HasSubstr("80070018"));
}

TEST_F(CheckDirectoryLockedTest, Logs_any_exception_and_lets_the_removal_go_on)
{
    AddProgram(1200, L"Velmora\\a.exe");
    const FakeCodePage western(1252);
    dialog.Answer({.whileShown = [] { throw std::runtime_error("no luck \x80"); }});
    EXPECT_TRUE(Check());
    dialog.Answer({.whileShown = [] { throw 1; }});
    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), c_checkFailed + "no luck ?"}) +
                               Listed({Item(1200, "a.exe"), c_checkFailed + "Unhandled Exception"}));
}

TEST_F(CheckDirectoryLockedTest, Lets_the_removal_go_on_when_memory_runs_out)
{
    bool isFree = false;
    {
        const OutOfMemory outOfMemory;
        isFree = Check(folder);
    }

    EXPECT_TRUE(isFree);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

} // namespace
