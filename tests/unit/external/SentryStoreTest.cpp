#include "Store.h"
#include "support/common/DirectoryLink.h"
#include "support/common/ImportTableFake.h"
#include "support/common/Text.h"
#include "support/unit/TestFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>

namespace
{

using namespace Reporter;
using namespace Testing;
using Names = std::set<std::wstring>;
using Texts = std::set<std::string>;

class SentryStoreTest : public testing::Test
{
protected:
    std::unique_ptr<Store> Open() const { return Store::Open(Narrow(database)); }

    void AddFile(const std::wstring& name, const std::string& content = "content") const
    {
        root.AddFile(L"a\\b\\Sentry\\" + name, content);
    }
    void AddEnvelopes(int count) const
    {
        for (int i = 0; i < count; ++i)
        {
            AddFile(L"x.run\\" + std::to_wstring(i) + L".envelope", std::to_string(i));
        }
    }

    // Everything in the database folder, by its path from there.
    Names Content() const
    {
        Names names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(database))
        {
            names.insert(entry.path().native().substr(database.size() + 1));
        }
        return names;
    }

    // The file of the run that is open.
    std::wstring EnvelopePath(const std::wstring& id) const
    {
        for (const std::wstring& name : Content())
        {
            if (name.ends_with(L'\\' + id + L".envelope"))
            {
                return database + L'\\' + name;
            }
        }
        return {};
    }

    // All pending reports of other runs, as "envelope|minidump".
    static Texts TakePending(Store& store)
    {
        Texts texts;
        while (const auto report = store.NextPending())
        {
            texts.insert(report->envelope + "|" + report->minidump);
            store.Drop(*report);
        }
        return texts;
    }

    TestFolder root;
    std::wstring database = root / L"a\\b\\Sentry";
};

TEST_F(SentryStoreTest, Creates_its_folder_and_removes_it)
{
    {
        const auto store = Open();
        ASSERT_TRUE(store);
        EXPECT_EQ(Content().size(), 2U); // the run's folder and its lock
    }
    EXPECT_FALSE(Exists(database));
    EXPECT_TRUE(Exists(root / L"a\\b"));
}

TEST_F(SentryStoreTest, Keeps_what_is_not_dropped_for_a_later_run)
{
    auto store = Open();
    EXPECT_TRUE(store->Keep("1", "one"));
    EXPECT_TRUE(store->Keep("2", "two"));
    EXPECT_EQ(store->Count(), 2U);
    store->Drop("1");
    EXPECT_EQ(store->Count(), 1U);
    EXPECT_EQ(ReadFileText(EnvelopePath(L"2")), "two");
    EXPECT_FALSE(store->HasPending());
    EXPECT_FALSE(store->NextPending());
    store.reset();
    EXPECT_EQ(Content().size(), 2U); // a folder with a file, and no lock

    store = Open();
    EXPECT_TRUE(store->HasPending());
    EXPECT_EQ(TakePending(*store), Texts{"two|"});
    store.reset();
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryStoreTest, Finds_a_crash_with_its_minidump)
{
    AddFile(L"x.run\\1.envelope", "crash");
    AddFile(L"x.run\\1.dmp", "MDMP...");
    AddFile(L"x.run\\2.envelope", "other");
    AddFile(L"x.run\\2.dmp", "no minidump");
    EXPECT_EQ(TakePending(*Open()), (Texts{"crash|MDMP...", "other|"}));
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryStoreTest, Gives_each_report_once_and_keeps_it_until_it_is_dropped)
{
    AddFile(L"x.run\\1.envelope", "crash");
    auto store = Open();
    EXPECT_TRUE(store->NextPending());
    EXPECT_FALSE(store->NextPending());
    EXPECT_FALSE(store->NextPending());
    store.reset();
    EXPECT_EQ(Content(), (Names{L"x.run", L"x.run\\1.envelope"}));
}

TEST_F(SentryStoreTest, Leaves_what_is_not_its_own_alone)
{
    AddFile(L"x.run\\note.txt");
    AddFile(L"other\\1.envelope");
    AddFile(L"file.run");
    EXPECT_TRUE(TakePending(*Open()).empty());
    EXPECT_EQ(Content(), (Names{L"x.run", L"x.run\\note.txt", L"other", L"other\\1.envelope", L"file.run"}));
}

TEST_F(SentryStoreTest, Adopts_a_run_when_it_has_ended)
{
    AddFile(L"x.run\\1.envelope", "crash");
    auto other = Open();
    other->Keep("2", "two");
    EXPECT_TRUE(other->NextPending()); // adopts the crash, but does not get it sent
    auto store = Open();
    EXPECT_TRUE(store->HasPending());
    EXPECT_FALSE(store->NextPending());
    EXPECT_EQ(other->Count(), 1U);
    other.reset();
    EXPECT_EQ(TakePending(*store), (Texts{"crash|", "two|"}));
    EXPECT_FALSE(store->NextPending());
    store.reset();
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryStoreTest, Gives_no_more_than_twenty_reports_and_deletes_the_others)
{
    auto other = Open();
    for (const char* const id : {"1", "2"})
    {
        other->Keep(id, id);
    }
    AddEnvelopes(19);
    auto store = Open();
    EXPECT_EQ(TakePending(*store).size(), 19U);
    other.reset();
    EXPECT_EQ(TakePending(*store).size(), 1U);
    store.reset();
    EXPECT_FALSE(Exists(database));

    AddEnvelopes(25);
    EXPECT_EQ(TakePending(*Open()).size(), 20U);
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryStoreTest, Adopts_no_more_than_twenty_runs)
{
    for (int i = 0; i < 25; ++i)
    {
        AddFile(std::to_wstring(i) + L".run\\1.envelope");
    }
    const auto store = Open();
    EXPECT_TRUE(store->NextPending());
    EXPECT_EQ(std::ranges::count_if(Content(), [](const auto& name) { return name.ends_with(L".run.lock"); }),
              21); // its own too
}

TEST_F(SentryStoreTest, Does_not_search_a_flooded_folder_to_its_end)
{
    const auto store = Open();
    int names = 0;
    Fake<&GetFileInformationByHandleEx> list = [&](HANDLE, FILE_INFO_BY_HANDLE_CLASS, LPVOID data, DWORD) -> BOOL {
        ++names;
        *static_cast<FILE_FULL_DIR_INFO*>(data) = {}; // one more, for ever
        return TRUE;
    };
    EXPECT_FALSE(store->HasPending());
    EXPECT_EQ(names, 10'000);
}

TEST_F(SentryStoreTest, Reads_no_file_that_is_too_large)
{
    const std::string largest(1U << 20, 'x');
    const std::string largestDump = "MDMP" + std::string((16U << 20) - 4, 'x');
    AddFile(L"x.run\\1.envelope", largest);
    AddFile(L"x.run\\1.dmp", largestDump);
    AddFile(L"x.run\\2.envelope", "two");
    AddFile(L"x.run\\2.dmp", largestDump + 'x');
    AddFile(L"x.run\\3.envelope", largest + 'x');
    EXPECT_TRUE(TakePending(*Open()) == (Texts{largest + "|" + largestDump, "two|", "|"}));
}

TEST_F(SentryStoreTest, Reads_no_file_whose_size_makes_no_sense)
{
    AddFile(L"x.run\\1.envelope", "one");
    const auto store = Open();
    Fake<&GetFileInformationByHandle> information = [&](HANDLE file, LPBY_HANDLE_FILE_INFORMATION its) -> BOOL {
        const BOOL result = information.Hidden(file, its);
        its->nFileSizeHigh = (its->dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? 0 : 0x80000000;
        return result;
    };
    EXPECT_EQ(TakePending(*store), Texts{"|"});
}

TEST_F(SentryStoreTest, Overwrites_nothing)
{
    const auto store = Open();
    EXPECT_TRUE(store->Keep("1", "one"));
    EXPECT_FALSE(store->Keep("1", "two"));
    EXPECT_EQ(ReadFileText(EnvelopePath(L"1")), "one");
}

TEST_F(SentryStoreTest, Reads_no_file_that_has_a_hard_link)
{
    const std::wstring secret = root.AddFile(L"secret", "secret");
    root.AddFolder(L"a\\b\\Sentry\\x.run");
    ASSERT_TRUE(CreateHardLinkW((database + L"\\x.run\\1.envelope").c_str(), secret.c_str(), nullptr));
    EXPECT_EQ(TakePending(*Open()), Texts{"|"});
    EXPECT_EQ(ReadFileText(secret), "secret");
}

TEST_F(SentryStoreTest, Neither_opens_nor_removes_a_link)
{
    root.AddFolder(L"a\\b");
    root.AddFile(L"full\\x.run\\1.envelope");
    for (const std::wstring& target : {root / L"full", root.AddFolder(L"empty")})
    {
        ASSERT_TRUE(CreateDirectoryLink(database, target));
        EXPECT_FALSE(Open());
        EXPECT_TRUE(Exists(database));
        EXPECT_TRUE(Exists(target));
        EXPECT_TRUE(RemoveDirectoryLink(database));
    }
    EXPECT_TRUE(Exists(root / L"full\\x.run\\1.envelope"));
}

TEST_F(SentryStoreTest, Does_not_follow_a_link_to_a_run)
{
    const std::wstring target = root.AddFolder(L"target");
    root.AddFile(L"target\\1.envelope");
    root.AddFolder(L"a\\b\\Sentry");
    ASSERT_TRUE(CreateDirectoryLink(database + L"\\x.run", target));
    EXPECT_FALSE(Open()->NextPending());
    EXPECT_TRUE(Exists(target + L"\\1.envelope"));
    EXPECT_TRUE(RemoveDirectoryLink(database + L"\\x.run"));
}

TEST_F(SentryStoreTest, Cannot_be_replaced_by_a_link_while_it_is_open)
{
    const auto store = Open();
    EXPECT_FALSE(MoveFileW(database.c_str(), (root / L"moved").c_str()));
    ASSERT_EQ(Content().size(), 2U);
    EXPECT_FALSE(RemoveDirectoryW((database + L'\\' + *Content().begin()).c_str()));
}

TEST_F(SentryStoreTest, Is_not_there_without_a_folder)
{
    root.AddFile(L"a\\b\\Sentry");
    EXPECT_FALSE(Open());
    EXPECT_TRUE(Exists(database));
    EXPECT_FALSE(Store::Open(Narrow(database + L"\\below a file")));
    EXPECT_FALSE(Store::Open(""));
    EXPECT_FALSE(Store::Open("\xFF\xFF"));
    Fake<&CreateDirectoryW> create = Fails(ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Store::Open(Narrow(root / L"c")));
}

TEST_F(SentryStoreTest, Keeps_no_envelope_that_is_cut_off)
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

TEST_F(SentryStoreTest, Has_no_limit_of_length)
{
    database = root / (std::wstring(120, L'a') + L"\\" + std::wstring(120, L'b') + L"\\Sentry");
    auto store = Open();
    ASSERT_TRUE(store);
    EXPECT_TRUE(store->Keep("1", "one"));
    store->Drop("1");
}

} // namespace
