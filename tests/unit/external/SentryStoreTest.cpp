#include "Store.h"
#include "support/DirectoryLink.h"
#include "support/ImportTableFake.h"
#include "support/TestFolder.h"
#include "support/Text.h"

#include <gmock/gmock.h>

#include <set>
#include <string>

namespace
{

using namespace Reporter;
using namespace Testing;

class SentryStoreTest : public testing::Test
{
protected:
    std::unique_ptr<Store> Open() const { return Store::Open(Narrow(database)); }

    // What is in the database folder and in the folders in it, as "folder" or "folder\file".
    std::set<std::wstring> Content() const
    {
        std::set<std::wstring> names;
        List(L"", names);
        return names;
    }

    void List(const std::wstring& folder, std::set<std::wstring>& names) const
    {
        WIN32_FIND_DATAW found{};
        const wil::unique_hfind search(FindFirstFileW((database + L"\\" + folder + L"*").c_str(), &found));
        while (search)
        {
            const std::wstring name = found.cFileName;
            if (name != L"." && name != L"..")
            {
                names.insert(folder + name);
                if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && folder.empty())
                {
                    List(name + L"\\", names);
                }
            }
            if (!FindNextFileW(search.get(), &found))
            {
                break;
            }
        }
    }

    // All reports that earlier runs have left, in any order.
    static std::set<std::string> TakeLeft(Store& store)
    {
        std::set<std::string> texts;
        while (const auto left = store.NextLeft())
        {
            texts.insert(left->envelope + "|" + left->minidump);
            Store::Drop(*left);
        }
        return texts;
    }

    TestFolder root;
    std::wstring database = root / L"a\\b\\Sentry";
};

TEST_F(SentryStoreTest, makes_its_folder_and_removes_it)
{
    {
        const auto store = Open();
        ASSERT_TRUE(store);
        EXPECT_EQ(Content().size(), 2U); // the run's folder and its lock
    }
    EXPECT_FALSE(Exists(database));
    EXPECT_TRUE(Exists(root / L"a\\b"));
}

TEST_F(SentryStoreTest, keeps_what_is_not_dropped_for_a_later_run)
{
    auto store = Open();
    EXPECT_TRUE(store->Keep("1", "one"));
    EXPECT_TRUE(store->Keep("2", "two"));
    EXPECT_EQ(store->Count(), 2U);
    store->Drop("1");
    EXPECT_EQ(store->Count(), 1U);
    EXPECT_EQ(ReadFileText(store->EnvelopePath("2")), "two");
    EXPECT_FALSE(store->HasLeft());
    EXPECT_FALSE(store->NextLeft());
    store.reset();
    EXPECT_EQ(Content().size(), 2U); // a folder with a file, and no lock

    store = Open();
    EXPECT_TRUE(store->HasLeft());
    EXPECT_EQ(TakeLeft(*store), std::set<std::string>{"two|"});
    store.reset();
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryStoreTest, finds_a_crash_with_its_minidump)
{
    root.AddFile(L"a\\b\\Sentry\\x.run\\1.envelope", "crash");
    root.AddFile(L"a\\b\\Sentry\\x.run\\1.dmp", "MDMP...");
    root.AddFile(L"a\\b\\Sentry\\x.run\\2.envelope", "other");
    root.AddFile(L"a\\b\\Sentry\\x.run\\2.dmp", "no minidump");
    auto store = Open();
    EXPECT_EQ(TakeLeft(*store), (std::set<std::string>{"crash|MDMP...", "other|"}));
    store.reset();
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryStoreTest, leaves_what_was_left_until_it_is_dropped)
{
    root.AddFile(L"a\\b\\Sentry\\x.run\\1.envelope", "crash");
    Open()->NextLeft();
    EXPECT_EQ(Content(), (std::set<std::wstring>{L"x.run", L"x.run\\1.envelope"}));
}

TEST_F(SentryStoreTest, leaves_what_is_not_its_own_alone)
{
    root.AddFile(L"a\\b\\Sentry\\x.run\\note.txt");
    root.AddFile(L"a\\b\\Sentry\\other\\1.envelope");
    root.AddFile(L"a\\b\\Sentry\\file.run");
    auto store = Open();
    EXPECT_TRUE(TakeLeft(*store).empty());
    store.reset();
    EXPECT_EQ(Content(),
              (std::set<std::wstring>{L"x.run", L"x.run\\note.txt", L"other", L"other\\1.envelope", L"file.run"}));
}

TEST_F(SentryStoreTest, leaves_a_run_alone_that_goes_on)
{
    auto other = Open();
    other->Keep("1", "one");
    const auto store = Open();
    EXPECT_TRUE(store->HasLeft());
    EXPECT_FALSE(store->NextLeft());
    EXPECT_EQ(other->Count(), 1U);
}

TEST_F(SentryStoreTest, takes_over_later_what_a_run_leaves_that_went_on)
{
    root.AddFile(L"a\\b\\Sentry\\x.run\\1.envelope", "crash");
    auto other = Open();
    other->Keep("2", "two");
    EXPECT_TRUE(other->NextLeft()); // and takes the crash over, but does not get it sent
    auto store = Open();
    EXPECT_FALSE(store->NextLeft());
    other.reset();
    EXPECT_EQ(TakeLeft(*store), (std::set<std::string>{"crash|", "two|"}));
    EXPECT_FALSE(store->NextLeft());
    store.reset();
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryStoreTest, gives_each_report_once_however_often_it_is_asked)
{
    root.AddFile(L"a\\b\\Sentry\\x.run\\1.envelope", "crash");
    const auto store = Open();
    EXPECT_TRUE(store->NextLeft()); // and is not dropped
    EXPECT_FALSE(store->NextLeft());
    EXPECT_FALSE(store->NextLeft());
}

TEST_F(SentryStoreTest, gives_up_those_that_are_too_many_however_often_it_looks)
{
    auto other = Open();
    for (int i = 0; i < 15; ++i)
    {
        root.AddFile(L"a\\b\\Sentry\\x.run\\" + std::to_wstring(i) + L".envelope", std::to_string(i));
        other->Keep(std::to_string(i), std::to_string(i));
    }
    auto store = Open();
    EXPECT_EQ(TakeLeft(*store).size(), 15U);
    other.reset();
    EXPECT_EQ(TakeLeft(*store).size(), 5U);
    store.reset();
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryStoreTest, gives_up_those_that_are_too_many)
{
    for (int i = 0; i < 25; ++i)
    {
        root.AddFile(L"a\\b\\Sentry\\x.run\\" + std::to_wstring(i) + L".envelope", std::to_string(i));
    }
    auto store = Open();
    EXPECT_EQ(TakeLeft(*store).size(), 20U);
    store.reset();
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryStoreTest, takes_over_no_more_than_twenty_runs)
{
    for (int i = 0; i < 25; ++i)
    {
        root.AddFile(L"a\\b\\Sentry\\" + std::to_wstring(i) + L".run\\1.envelope", std::to_string(i));
    }
    const auto store = Open();
    EXPECT_TRUE(store->NextLeft());
    int locks = 0;
    for (const std::wstring& name : Content())
    {
        locks += name.ends_with(L".run.lock") ? 1 : 0;
    }
    EXPECT_EQ(locks, 21); // its own too
}

TEST_F(SentryStoreTest, does_not_look_at_a_folder_that_was_filled_up_to_its_end)
{
    const auto store = Open();
    int looks = 0;
    Fake<&FindNextFileW> next = [&](HANDLE, LPWIN32_FIND_DATAW) -> BOOL {
        ++looks;
        return TRUE; // for ever
    };
    EXPECT_FALSE(store->HasLeft());
    EXPECT_EQ(looks, 9'999); // and the first
}

TEST_F(SentryStoreTest, reads_up_to_the_largest_report_there_can_be)
{
    const std::string largest(1U << 20, 'x');
    root.AddFile(L"a\\b\\Sentry\\x.run\\1.envelope", largest);
    const std::string dump = "MDMP" + std::string((16U << 20) - 4, 'x');
    root.AddFile(L"a\\b\\Sentry\\x.run\\1.dmp", dump);
    EXPECT_TRUE(TakeLeft(*Open()) == std::set<std::string>{largest + "|" + dump});
}

TEST_F(SentryStoreTest, reads_nothing_whose_size_makes_no_sense)
{
    root.AddFile(L"a\\b\\Sentry\\x.run\\1.envelope", "one");
    const auto store = Open();
    Fake<&GetFileInformationByHandle> information = [&](HANDLE file, LPBY_HANDLE_FILE_INFORMATION its) -> BOOL {
        const BOOL result = information.Hidden(file, its);
        its->nFileSizeHigh = (its->dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? 0 : 0x80000000;
        return result;
    };
    EXPECT_EQ(TakeLeft(*store), std::set<std::string>{"|"});
}

TEST_F(SentryStoreTest, opens_files_and_folders_as_what_they_are)
{
    root.AddFile(L"a\\b\\Sentry\\x.run\\1.envelope", "one");
    int opened = 0;
    Fake<&CreateFileW> create = [&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                                    DWORD disposition, DWORD flags, HANDLE pattern) {
        ++opened;
        EXPECT_NE(flags & FILE_FLAG_OPEN_REPARSE_POINT, 0U) << Narrow(path);
        EXPECT_EQ(share & (FILE_SHARE_WRITE | FILE_SHARE_DELETE), 0U) << Narrow(path);
        return create.Hidden(path, access, share, attributes, disposition, flags, pattern);
    };
    const auto store = Open();
    store->Keep("1", "text");
    store->NextLeft();
    EXPECT_EQ(opened, 8); // two folders with a lock each, this run's report, the database folder, the report, no dump
}

TEST_F(SentryStoreTest, overwrites_nothing)
{
    const auto store = Open();
    EXPECT_TRUE(store->Keep("1", "one"));
    EXPECT_FALSE(store->Keep("1", "two"));
    EXPECT_EQ(ReadFileText(store->EnvelopePath("1")), "one");
}

TEST_F(SentryStoreTest, reads_nothing_that_is_too_large)
{
    root.AddFile(L"a\\b\\Sentry\\x.run\\1.envelope", std::string((1U << 20) + 1, 'x'));
    root.AddFile(L"a\\b\\Sentry\\x.run\\2.envelope", "two");
    root.AddFile(L"a\\b\\Sentry\\x.run\\2.dmp", "MDMP" + std::string(16U << 20, 'x'));
    EXPECT_EQ(TakeLeft(*Open()), (std::set<std::string>{"|", "two|"}));
}

TEST_F(SentryStoreTest, reads_no_file_that_has_a_second_name)
{
    const std::wstring secret = root.AddFile(L"secret", "secret");
    root.AddFolder(L"a\\b\\Sentry\\x.run");
    ASSERT_TRUE(CreateHardLinkW((database + L"\\x.run\\1.envelope").c_str(), secret.c_str(), nullptr));
    EXPECT_EQ(TakeLeft(*Open()), std::set<std::string>{"|"});
    EXPECT_EQ(ReadFileText(secret), "secret");
}

TEST_F(SentryStoreTest, does_not_open_a_link)
{
    const std::wstring target = root.AddFolder(L"target");
    root.AddFile(L"target\\x.run\\1.envelope");
    root.AddFolder(L"a\\b");
    ASSERT_TRUE(CreateDirectoryLink(database, target));
    EXPECT_FALSE(Open());
    EXPECT_TRUE(Exists(target + L"\\x.run\\1.envelope"));
    EXPECT_TRUE(RemoveDirectoryLink(database));
}

TEST_F(SentryStoreTest, does_not_remove_a_link_that_it_did_not_open)
{
    const std::wstring target = root.AddFolder(L"target"); // empty, so that it could be removed
    root.AddFolder(L"a\\b");
    ASSERT_TRUE(CreateDirectoryLink(database, target));
    EXPECT_FALSE(Open());
    EXPECT_TRUE(Exists(database));
    EXPECT_TRUE(Exists(target));
    EXPECT_TRUE(RemoveDirectoryLink(database));
}

TEST_F(SentryStoreTest, does_not_go_through_a_link_to_a_run)
{
    const std::wstring target = root.AddFolder(L"target");
    root.AddFile(L"target\\1.envelope");
    root.AddFolder(L"a\\b\\Sentry");
    ASSERT_TRUE(CreateDirectoryLink(database + L"\\x.run", target));
    EXPECT_FALSE(Open()->NextLeft());
    EXPECT_TRUE(Exists(target + L"\\1.envelope"));
    EXPECT_TRUE(RemoveDirectoryLink(database + L"\\x.run"));
}

TEST_F(SentryStoreTest, cannot_be_replaced_by_a_link_while_it_is_open)
{
    const auto store = Open();
    EXPECT_FALSE(MoveFileW(database.c_str(), (root / L"moved").c_str()));
    const std::wstring run = store->EnvelopePath("1").substr(0, store->EnvelopePath("1").rfind(L'\\'));
    EXPECT_FALSE(RemoveDirectoryW(run.c_str()));
}

TEST_F(SentryStoreTest, does_without_a_folder_where_there_is_a_file)
{
    root.AddFile(L"a\\b\\Sentry");
    EXPECT_FALSE(Open());
    EXPECT_TRUE(Exists(database));
}

TEST_F(SentryStoreTest, does_without_a_folder_where_none_can_be_made)
{
    root.AddFile(L"a\\b");
    EXPECT_FALSE(Open());
    EXPECT_FALSE(Store::Open(""));
    EXPECT_FALSE(Store::Open("\xFF\xFF"));
    Fake<&CreateDirectoryW> create = [](LPCWSTR, LPSECURITY_ATTRIBUTES) -> BOOL {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    };
    EXPECT_FALSE(Store::Open(Narrow(root / L"c")));
}

TEST_F(SentryStoreTest, keeps_nothing_by_halves)
{
    const auto store = Open();
    Fake<&WriteFile> write = [](HANDLE, LPCVOID, DWORD, LPDWORD written, LPOVERLAPPED) -> BOOL {
        *written = 1;
        SetLastError(ERROR_DISK_FULL);
        return FALSE;
    };
    EXPECT_FALSE(store->Keep("1", "one"));
    EXPECT_EQ(store->Count(), 0U);
}

TEST_F(SentryStoreTest, has_no_limit_of_length)
{
    database = root / (std::wstring(120, L'a') + L"\\" + std::wstring(120, L'b') + L"\\Sentry");
    auto store = Open();
    ASSERT_TRUE(store);
    EXPECT_TRUE(store->Keep("1", "one"));
    store->Drop("1");
}

} // namespace
