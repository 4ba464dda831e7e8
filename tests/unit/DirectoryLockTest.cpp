#include "Installer/DirectoryLock.h"

#include "support/DirectoryLink.h"
#include "support/FakeCodePage.h"
#include "support/FakeTaskDialog.h"
#include "support/OutOfMemory.h"
#include "support/PathLimits.h"
#include "support/ProcessesTest.h"
#include "support/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wil/result.h>

#include <map>
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
using Pauses = std::vector<DWORD>;
using Lines = std::vector<std::string>;
using Lockers = std::map<DWORD, std::wstring>;

// A machine with an installation folder, from which nothing runs unless a test says so.
class DirectoryLockTest : public ProcessesTest
{
protected:
    // Adds a process that runs a file, below the test's folder unless it is somewhere else altogether.
    void AddProgram(DWORD id, const std::wstring& path) { processes.Add(Program(id, path)); }

    FakeProcess Program(DWORD id, const std::wstring& path) const
    {
        const bool isFull = path.find_first_of(L":?") != std::wstring::npos;
        if (!isFull)
        {
            root.AddFile(path);
        }
        return {.id = id, .name = path.substr(path.find_last_of(L'\\') + 1), .image = isFull ? path : root / path};
    }

    static std::wstring InUpperCase(std::wstring text)
    {
        CharUpperW(text.data());
        return text;
    }

    TestFolder root;
    std::wstring folder = root.AddFolder(L"Velmora") + L"\\";
};

class FindProcessesLockingDirectoryTest : public DirectoryLockTest
{
};

TEST_F(FindProcessesLockingDirectoryTest, finds_what_was_started_from_the_folder_and_from_below)
{
    AddProgram(3400, L"Velmora\\b.exe");
    AddProgram(1200, L"Velmora\\bin\\deep\\a.exe");
    AddProgram(1300, L"Velmora\\..hidden.exe\\c.exe");
    AddProgram(1400, L"Velmora\\x.y\\d");

    EXPECT_THAT(FindProcessesLockingDirectory(folder),
                ElementsAre(Pair(1200, L"a.exe"), Pair(1400, L"d"), Pair(3400, L"b.exe")));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_what_was_started_from_elsewhere)
{
    AddProgram(4, L"Velmora2\\a.exe");
    AddProgram(8, L"a.exe");
    AddProgram(12, L"Velmora.exe");
    AddProgram(16, L"Other\\Velmora\\a.exe");
    AddProgram(20, L"C:\\Windows\\explorer.exe");
    AddProgram(24, L"Q:" + folder.substr(2) + L"a.exe");
    AddProgram(28, L"\\\\?\\Volume{12}" + folder.substr(2) + L"a.exe");
    processes.Add({.id = 32, .name = L"Velmora", .image = root / L"Velmora"});

    EXPECT_EQ(FindProcessesLockingDirectory(folder), Lockers());
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_what_lies_behind_a_full_stop)
{
    AddProgram(4, L"Velmora\\.hidden\\a.exe");
    AddProgram(8, L"Velmora\\.a.exe");
    AddProgram(12, L"Velmora\\bin\\.hidden\\b.exe");

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(12, L"b.exe")));
}

TEST_F(FindProcessesLockingDirectoryTest, knows_the_folder_in_any_spelling)
{
    AddProgram(4, L"Velmora\\bin\\a.exe");
    processes.Add({.id = 8, .name = L"b.exe", .image = InUpperCase(root.AddFile(L"Velmora\\b.exe"))});

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(4, L"a.exe"), Pair(8, L"b.exe")));
    EXPECT_THAT(FindProcessesLockingDirectory(root / L"Velmora"), ElementsAre(Pair(4, L"a.exe"), Pair(8, L"b.exe")));
    EXPECT_THAT(FindProcessesLockingDirectory(InUpperCase(folder)), ElementsAre(Pair(4, L"a.exe"), Pair(8, L"b.exe")));
}

TEST_F(FindProcessesLockingDirectoryTest, knows_the_folder_through_a_link)
{
    AddProgram(4, L"Velmora\\a.exe");
    ASSERT_TRUE(CreateDirectoryLink(root / L"link", root / L"Velmora"));
    processes.Add({.id = 8, .name = L"b.exe", .image = root.AddFile(L"link\\b.exe")});

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(4, L"a.exe"), Pair(8, L"b.exe")));
    EXPECT_THAT(FindProcessesLockingDirectory(root / L"link"), ElementsAre(Pair(4, L"a.exe"), Pair(8, L"b.exe")));
}

TEST_F(FindProcessesLockingDirectoryTest, finds_what_runs_from_a_file_that_is_not_there_any_more)
{
    processes.Add({.id = 4, .name = L"gone.exe", .image = InUpperCase(folder) + L"bin\\gone.exe"});

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(4, L"gone.exe")));
}

TEST_F(FindProcessesLockingDirectoryTest, knows_the_folder_with_a_prefix_and_with_a_long_path)
{
    const std::wstring name = L"Velmora\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
    AddProgram(4, name + L"\\a.exe");
    const PathLimits limits;

    for (const std::wstring& directory : {folder, L"\\\\?\\" + folder, L"//?/" + folder, root / name})
    {
        EXPECT_THAT(FindProcessesLockingDirectory(directory), ElementsAre(Pair(4, L"a.exe"))) << directory;
        EXPECT_THAT(FindProcessesLockingDirectory(directory + L"2"), IsEmpty()) << directory;
    }
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_its_own_process)
{
    AddProgram(c_self, L"Velmora\\Velmora.Uninstaller.exe");

    EXPECT_EQ(FindProcessesLockingDirectory(folder), Lockers());
    EXPECT_EQ(NewCalls(), Walk(1));
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_the_process_that_went_on_as_this_one)
{
    AddProgram(70, L"Velmora\\Velmora.Uninstaller.exe");
    AddProgram(71, L"Velmora\\a.exe");

    EXPECT_THAT(FindProcessesLockingDirectory(folder, 70), ElementsAre(Pair(71, L"a.exe")));
    EXPECT_EQ(NewCalls(), Walk({{}, {"open 1000 71", "image 0 71", "close 71"}}));
}

TEST_F(FindProcessesLockingDirectoryTest, does_not_look_at_the_first_process)
{
    processes.PutFirst(Program(4, L"Velmora\\a.exe"));

    EXPECT_EQ(FindProcessesLockingDirectory(folder), Lockers());
    EXPECT_EQ(NewCalls(), Walk(0));
}

TEST_F(FindProcessesLockingDirectoryTest, keeps_the_first_name_of_an_id_that_was_given_twice)
{
    AddProgram(4, L"Velmora\\a.exe");
    AddProgram(4, L"Velmora\\b.exe");

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(4, L"a.exe")));
}

TEST_F(FindProcessesLockingDirectoryTest, asks_each_process_for_its_file_and_closes_it)
{
    AddProgram(8, L"Velmora\\a.exe");
    AddProgram(4, L"C:\\Windows\\explorer.exe");

    FindProcessesLockingDirectory(folder);

    EXPECT_EQ(NewCalls(), Walk({{"open 1000 8", "image 0 8", "close 8"}, {"open 1000 4", "image 0 4", "close 4"}}));
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_silently_what_cannot_be_examined)
{
    FakeProcess notOpened = Program(4, L"Velmora\\a.exe");
    notOpened.openError = ERROR_ACCESS_DENIED;
    FakeProcess withoutImage = Program(8, L"Velmora\\b.exe");
    withoutImage.imageError = ERROR_GEN_FAILURE;
    processes.Add(notOpened);
    processes.Add(withoutImage);
    AddProgram(12, L"Velmora\\c.exe");

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(12, L"c.exe")));

    EXPECT_EQ(
        NewCalls(),
        Walk({{"open 1000 4"}, {"open 1000 8", "image 0 8", "close 8"}, {"open 1000 12", "image 0 12", "close 12"}}));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_silently_what_cannot_be_resolved)
{
    AddProgram(4, L"Velmora\\closed.exe");
    AddProgram(8, L"Velmora\\open.exe");
    const Fake<&CreateFileW> create = [](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                         DWORD disposition, DWORD flags, HANDLE pattern) {
        if (std::wstring(path).ends_with(L"closed.exe"))
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        }
        return Fake<&CreateFileW>::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(8, L"open.exe")));

    EXPECT_THAT(failures.Entries(), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, finds_nothing_when_the_folder_cannot_be_resolved)
{
    AddProgram(4, L"Velmora\\a.exe");
    const Fake<&CreateFileW> create = [this](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                             DWORD disposition, DWORD flags, HANDLE pattern) {
        if (path == L"\\\\?\\" + folder)
        {
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        }
        return Fake<&CreateFileW>::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    EXPECT_EQ(FindProcessesLockingDirectory(folder), Lockers());
    EXPECT_THAT(failures.Entries(), IsEmpty());
}

TEST_F(FindProcessesLockingDirectoryTest, leaves_out_what_cannot_be_examined_for_any_reason_at_all)
{
    AddProgram(4, L"Velmora\\standard.exe");
    AddProgram(8, L"Velmora\\other.exe");
    AddProgram(12, L"Velmora\\a.exe");
    const Fake<&CreateFileW> create = [](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                         DWORD disposition, DWORD flags, HANDLE pattern) {
        if (std::wstring(path).ends_with(L"standard.exe"))
        {
            throw std::bad_alloc();
        }
        if (std::wstring(path).ends_with(L"other.exe"))
        {
            throw 1;
        }
        return Fake<&CreateFileW>::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    EXPECT_THAT(FindProcessesLockingDirectory(folder), ElementsAre(Pair(12, L"a.exe")));

    EXPECT_THAT(CallsOf({"close"}), ElementsAre("close 4", "close 8", "close 12", "close snapshot"));
}

TEST_F(FindProcessesLockingDirectoryTest, finds_nothing_in_a_snapshot_that_cannot_be_read)
{
    AddProgram(4, L"Velmora\\a.exe");
    processes.FailFirst();

    EXPECT_EQ(FindProcessesLockingDirectory(folder), Lockers());
    EXPECT_THAT(NewCalls(), ElementsAre("snapshot 2 0", "first 568", "close snapshot"));
}

TEST_F(FindProcessesLockingDirectoryTest, throws_the_last_error_when_there_is_no_snapshot)
{
    for (const HANDLE result : {HANDLE{nullptr}, INVALID_HANDLE_VALUE})
    {
        processes.FailSnapshots(result, ERROR_BAD_LENGTH);
        try
        {
            FindProcessesLockingDirectory(folder);
            FAIL() << "nothing was thrown";
        }
        catch (const wil::ResultException& exception)
        {
            EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(ERROR_BAD_LENGTH));
        }
        EXPECT_THAT(NewCalls(), ElementsAre("snapshot 2 0"));
    }
    EXPECT_THAT(failures.Entries(), ElementsAre(Pair("ClientHelper", HRESULT_FROM_WIN32(ERROR_BAD_LENGTH)),
                                                Pair("ClientHelper", HRESULT_FROM_WIN32(ERROR_BAD_LENGTH))));
}

TEST_F(FindProcessesLockingDirectoryTest, opens_each_file_once_and_the_folder_once)
{
    const std::wstring image = root.AddFile(L"Velmora\\a.exe");
    for (DWORD id = 4; id <= 2000; id += 4)
    {
        processes.Add({.id = id, .name = L"a.exe", .image = image});
    }
    unsigned opened = 0;
    const Fake<&CreateFileW> create = [&](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                          DWORD disposition, DWORD flags, HANDLE pattern) {
        ++opened;
        return Fake<&CreateFileW>::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    EXPECT_EQ(FindProcessesLockingDirectory(folder).size(), 500U);

    EXPECT_EQ(opened, 501U);
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
const std::string c_checkFailed =
    "captured |ERROR|:   [ClientHelper] Unable to determine if processes are locking directory: ";

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
    bool Check(const std::wstring& directory) { return CheckDirectoryLocked(directory, log.Logger(), false, c_owner); }
    bool Check() { return Check(folder); }
    bool CheckSilently() { return CheckDirectoryLocked(folder, log.Logger(), true, c_owner); }

    std::string Checking() const
    {
        return "|INFO|:    [ClientHelper] Checking if directory is locked: " + Narrow(folder);
    }

    // The log up to the answer of the user, with the programs in the folder.
    Lines Listed(const Lines& items) const { return Lines{Checking(), c_list} + items; }

    const HWND c_owner = reinterpret_cast<HWND>(ULONG_PTR{0x77});
    FakeTaskDialog dialog;
};

TEST_F(CheckDirectoryLockedTest, takes_a_folder_that_is_not_there_for_free)
{
    EXPECT_TRUE(Check(root / L"missing\\"));

    EXPECT_EQ(log.Lines(),
              (Lines{"|INFO|:    [ClientHelper] Checking if directory is locked: " + Narrow(root / L"missing\\"),
                     c_noFolder}));
    EXPECT_THAT(CallsOf({"snapshot"}), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, takes_a_file_for_no_folder)
{
    EXPECT_TRUE(Check(root.AddFile(L"file")));

    EXPECT_EQ(log.Lines().back(), c_noFolder);
    EXPECT_THAT(CallsOf({"snapshot"}), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, says_that_no_process_was_found)
{
    AddProgram(4, L"Velmora2\\a.exe");

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), (Lines{Checking(), c_noLockers}));
}

TEST_F(CheckDirectoryLockedTest, terminates_without_asking_in_a_silent_run)
{
    AddProgram(3400, L"Velmora\\b.exe");
    AddProgram(1200, L"Velmora\\bin\\a.exe");

    EXPECT_TRUE(CheckSilently());

    EXPECT_EQ(
        NewCalls(),
        (Calls{"log " + Checking()} +
         Walk({{"open 1000 3400", "image 0 3400", "close 3400"}, {"open 1000 1200", "image 0 1200", "close 1200"}}) +
         Calls{"log " + c_list, "log " + Item(1200, "a.exe"), "log " + Item(3400, "b.exe"), "log " + c_silent,
               "log " + c_terminating, "log " + Terminating("a.exe"), "open 1 1200", "terminate 1200 0",
               "log " + c_success, "close 1200", "log " + Terminating("b.exe"), "open 1 3400", "terminate 3400 0",
               "log " + c_success, "close 3400"}));
    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), Item(3400, "b.exe"), c_silent, c_terminating,
                                   Terminating("a.exe"), c_success, Terminating("b.exe"), c_success}));
}

TEST_F(CheckDirectoryLockedTest, asks_the_user_with_the_processes_on_one_line)
{
    AddProgram(3400, L"Velmora\\b.exe");
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_THAT(
        dialog.Shown(),
        ElementsAre(ShownTaskDialog{
            .size = sizeof(TASKDIALOGCONFIG),
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
            .footer = L"[1200] a.exe[3400] b.exe"}));
}

TEST_F(CheckDirectoryLockedTest, writes_the_ids_of_processes_without_a_sign)
{
    AddProgram(0x80000004, L"Velmora\\a.exe");
    AddProgram(0xFFFFFFFC, L"Velmora\\b.exe");
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_EQ(dialog.Shown().front().footer, L"[2147483652] a.exe[4294967292] b.exe");
    EXPECT_EQ(log.Lines(), Listed({"|WARNING|:                  - a.exe (Pid: 2147483652)",
                                   "|WARNING|:                  - b.exe (Pid: 4294967292)", c_canceled}));
}

TEST_F(CheckDirectoryLockedTest, keeps_a_name_with_a_line_break_on_the_line)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.name = L"a\n.exe\n";
    processes.Add(program);
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_EQ(dialog.Shown().front().footer, L"[1200] a.exe");
}

TEST_F(CheckDirectoryLockedTest, asks_without_an_owner_when_there_is_none)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(CheckDirectoryLocked(folder, log.Logger(), false, nullptr));

    EXPECT_EQ(dialog.Shown().front().owner, nullptr);
}

TEST_F(CheckDirectoryLockedTest, terminates_nothing_when_the_user_cancels)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), c_canceled}));
    EXPECT_THAT(CallsOf({"open 1 ", "terminate"}), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, terminates_what_it_found_when_the_user_continues)
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
    EXPECT_THAT(CallsOf({"open 1 ", "terminate"}), ElementsAre("open 1 1200", "open 1 1300", "terminate 1300 0"));
    EXPECT_EQ(CallsOf({"snapshot"}).size(), 1U);
    EXPECT_EQ(clock.Sleeps(), Pauses());
}

TEST_F(CheckDirectoryLockedTest, checks_anew_at_every_retry)
{
    AddProgram(1200, L"Velmora\\a.exe");
    AddProgram(1300, L"Velmora\\b.exe");
    dialog.Answer({.button = IDRETRY});
    dialog.Answer({.button = IDRETRY, .whileShown = [this] {
                       processes.Remove(1200);
                       AddProgram(1400, L"Velmora\\c.exe");
                   }});
    dialog.Answer({.button = IDRETRY, .whileShown = [this] {
                       processes.Remove(1300);
                       processes.Remove(1400);
                   }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(),
              (Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_retry}) +
               Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_retry}) +
               Listed({Item(1300, "b.exe"), Item(1400, "c.exe"), c_retry}) + Lines{Checking(), c_noLockers}));
    ASSERT_EQ(dialog.Shown().size(), 3U);
    EXPECT_EQ(dialog.Shown()[1], dialog.Shown()[0]);
    EXPECT_EQ(dialog.Shown()[2].footer, L"[1300] b.exe[1400] c.exe");
    EXPECT_EQ(dialog.Shown()[2].owner, c_owner);
}

TEST_F(CheckDirectoryLockedTest, goes_by_the_last_answer_after_a_retry)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDRETRY});
    dialog.Answer({.button = IDCONTINUE});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), c_retry}) +
                               Listed({Item(1200, "a.exe"), c_terminating, Terminating("a.exe"), c_success}));

    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDRETRY});
    dialog.Answer({.button = IDCANCEL});

    EXPECT_FALSE(Check());

    EXPECT_EQ(log.Lines().back(), c_canceled);
}

TEST_F(CheckDirectoryLockedTest, leaves_the_process_alone_that_went_on_as_this_one)
{
    AddProgram(70, L"Velmora\\Velmora.Uninstaller.exe");

    EXPECT_TRUE(CheckDirectoryLocked(folder, log.Logger(), true, nullptr, 70));

    EXPECT_EQ(log.Lines(), (Lines{Checking(), c_noLockers}));
    EXPECT_THAT(CallsOf({"terminate"}), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, leaves_that_process_alone_at_a_retry_too)
{
    AddProgram(70, L"Velmora\\Velmora.Uninstaller.exe");
    AddProgram(71, L"Velmora\\a.exe");
    dialog.Answer({.button = IDRETRY});
    dialog.Answer({.button = IDCONTINUE});

    EXPECT_TRUE(CheckDirectoryLocked(folder, log.Logger(), false, c_owner, 70));

    EXPECT_THAT(CallsOf({"terminate"}), ElementsAre("terminate 71 0"));
    EXPECT_EQ(dialog.Shown().size(), 2U);
}

TEST_F(CheckDirectoryLockedTest, is_content_when_the_folder_is_gone_at_a_retry)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.button = IDRETRY, .whileShown = [this] { RemoveTestFolder(root / L"Velmora"); }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), (Listed({Item(1200, "a.exe"), c_retry}) + Lines{Checking(), c_noFolder}));
}

TEST_F(CheckDirectoryLockedTest, terminates_nothing_after_an_unknown_button)
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
    EXPECT_THAT(CallsOf({"open 1 ", "terminate"}), IsEmpty());
}

TEST_F(CheckDirectoryLockedTest, terminates_when_the_user_cannot_be_asked)
{
    for (const auto& [result, number] : {std::pair(E_OUTOFMEMORY, "-2147024882"), std::pair(S_FALSE, "1")})
    {
        const std::size_t before = log.Lines().size();
        AddProgram(1200, L"Velmora\\a.exe");
        dialog.Answer({.result = result, .button = IDCANCEL});

        EXPECT_TRUE(Check());

        EXPECT_EQ(Lines(log.Lines().begin() + static_cast<std::ptrdiff_t>(before), log.Lines().end()),
                  Listed({Item(1200, "a.exe"),
                          std::string("captured |WARNING|: [ClientHelper] Unable to prompt user to terminate these "
                                      "processes, continuing with termination: ") +
                              number,
                          c_terminating, Terminating("a.exe"), c_success}));
        EXPECT_FALSE(processes.Find(1200));
    }
}

TEST_F(CheckDirectoryLockedTest, fails_for_a_process_of_another_user_and_goes_on)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.openToTerminateError = ERROR_ACCESS_DENIED;
    processes.Add(program);
    AddProgram(1300, L"Velmora\\b.exe");

    EXPECT_FALSE(CheckSilently());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_silent, c_terminating,
                                   Terminating("a.exe"), c_differentUser, Terminating("b.exe"), c_success}));
    EXPECT_FALSE(processes.Find(1300));
}

TEST_F(CheckDirectoryLockedTest, is_content_with_a_process_that_is_gone)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.openToTerminateError = ERROR_INVALID_PARAMETER;
    processes.Add(program);

    EXPECT_TRUE(CheckSilently());

    EXPECT_EQ(log.Lines(),
              Listed({Item(1200, "a.exe"), c_silent, c_terminating, Terminating("a.exe"), c_alreadyClosed}));
}

TEST_F(CheckDirectoryLockedTest, fails_and_reports_when_a_process_cannot_be_opened_and_goes_on)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.openToTerminateError = ERROR_GEN_FAILURE;
    processes.Add(program);
    AddProgram(1300, L"Velmora\\b.exe");

    EXPECT_FALSE(CheckSilently());

    EXPECT_EQ(log.Lines(),
              Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_silent, c_terminating, Terminating("a.exe"),
                      "captured " + c_openFailed + "-2147024865", Terminating("b.exe"), c_success}));
}

TEST_F(CheckDirectoryLockedTest, takes_a_process_whose_termination_is_denied_for_gone)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.terminateError = ERROR_ACCESS_DENIED;
    processes.Add(program);

    EXPECT_TRUE(CheckSilently());

    EXPECT_EQ(log.Lines(),
              Listed({Item(1200, "a.exe"), c_silent, c_terminating, Terminating("a.exe"),
                      "|ERROR|:   [ClientHelper] Process termination failed with E_ACCESSDENIED, it's possible this "
                      "process has already been terminated? We will assume so."}));
    EXPECT_THAT(CallsOf({"open 1 ", "terminate", "close 1200"}),
                ElementsAre("close 1200", "open 1 1200", "terminate 1200 0", "close 1200"));
}

TEST_F(CheckDirectoryLockedTest, fails_and_reports_when_a_process_cannot_be_terminated_and_goes_on)
{
    FakeProcess program = Program(1200, L"Velmora\\a.exe");
    program.terminateError = ERROR_INVALID_PARAMETER;
    processes.Add(program);
    AddProgram(1300, L"Velmora\\b.exe");

    EXPECT_FALSE(CheckSilently());

    EXPECT_EQ(log.Lines(),
              Listed({Item(1200, "a.exe"), Item(1300, "b.exe"), c_silent, c_terminating, Terminating("a.exe"),
                      "captured |ERROR|:   [ClientHelper] Failed to terminate process: -2147024809",
                      Terminating("b.exe"), c_success}));
    EXPECT_THAT(CallsOf({"open 1 ", "terminate", "close 1"}),
                ElementsAre("close 1200", "close 1300", "open 1 1200", "terminate 1200 0", "close 1200", "open 1 1300",
                            "terminate 1300 0", "close 1300"));
}

TEST_F(CheckDirectoryLockedTest, lets_the_removal_go_on_when_the_processes_cannot_be_listed)
{
    processes.FailSnapshots(INVALID_HANDLE_VALUE, ERROR_BAD_LENGTH);

    EXPECT_TRUE(Check());

    ASSERT_EQ(log.Lines().size(), 2U);
    EXPECT_EQ(log.Lines().front(), Checking());
    EXPECT_THAT(log.Lines().back(), StartsWith(c_checkFailed));
    EXPECT_THAT(log.Lines().back(), HasSubstr("80070018"));
}

TEST_F(CheckDirectoryLockedTest, lets_the_removal_go_on_when_the_processes_cannot_be_listed_at_a_retry)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer(
        {.button = IDRETRY, .whileShown = [this] { processes.FailSnapshots(nullptr, ERROR_NOT_ENOUGH_MEMORY); }});

    EXPECT_TRUE(Check());

    ASSERT_EQ(log.Lines().size(), 6U);
    EXPECT_THAT(log.Lines().back(), StartsWith(c_checkFailed));
}

TEST_F(CheckDirectoryLockedTest, logs_the_text_of_any_standard_exception)
{
    AddProgram(1200, L"Velmora\\a.exe");
    const FakeCodePage western(1252);
    dialog.Answer({.whileShown = [] { throw std::runtime_error("no luck \x80"); }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), c_checkFailed + "no luck ?"}));
}

TEST_F(CheckDirectoryLockedTest, logs_any_other_exception)
{
    AddProgram(1200, L"Velmora\\a.exe");
    dialog.Answer({.whileShown = [] { throw 1; }});

    EXPECT_TRUE(Check());

    EXPECT_EQ(log.Lines(), Listed({Item(1200, "a.exe"), c_checkFailed + "Unhandled Exception"}));
}

TEST_F(CheckDirectoryLockedTest, lets_the_removal_go_on_when_memory_runs_out)
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
