#include "Crash.h"
#include "HeldFolder.h"
#include "Store.h"
#include "support/common/ImportTableFake.h"
#include "support/common/Text.h"
#include "support/unit/FakeFileSystem.h"
#include "support/unit/FolderAttacks.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <dbghelp.h>

#include <gmock/gmock.h>
#include <wil/resource.h>

#include <algorithm>
#include <bit>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Somebody who may write to the database folder changes it during the life of a store.
namespace
{

using namespace Reporter;
using namespace Testing;
using testing::UnorderedElementsAre;

const std::wstring c_database = L"C:\\ProgramData\\Product\\Sentry";
const std::wstring c_system = L"C:\\Windows\\System32";
constexpr std::string_view c_secret = "MDMP secret";

// Names that the store uses below its folder; "own" is the run of its own.
const wchar_t* const c_names[] = {L"x.run\\1.envelope", L"x.run\\1.dmp",       L"x.run\\2.envelope",
                                  L"y.run\\3.envelope", L"own\\kept.envelope", L"own\\dropped.envelope",
                                  L"own\\c.envelope",   L"own\\c.dmp"};

// The run of the store's own; a name that nobody has before it is there.
std::wstring OwnRun(const FakeFileSystem& files)
{
    for (const std::wstring& path : files.All())
    {
        const std::wstring name = path.substr(path.rfind(L'\\') + 1);
        if (path.starts_with(c_database + L'\\') && name.ends_with(L".run") && name.size() == 36)
        {
            return name;
        }
    }
    return L"none.run";
}

// The path of one of the names, or of the folder itself.
std::wstring PathOf(const FakeFileSystem& files, const std::wstring& name)
{
    return name.empty() ? c_database
                        : c_database + L'\\' + (name.starts_with(L"own") ? OwnRun(files) + name.substr(3) : name);
}

// Where a link leads to: either bears no name that a report has, or bears every one wherever a link leads from.
std::wstring AddTarget(FakeFileSystem& files, bool isFull)
{
    const std::wstring target = c_system + (isFull ? L"\\full" : L"\\empty");
    files.AddFolder(target);
    for (const std::wstring name : c_names)
    {
        const std::wstring run = name.starts_with(L"own") ? OwnRun(files) : name.substr(0, name.find(L'\\'));
        const std::wstring file = name.substr(name.find(L'\\'));
        files.AddFolder(target + L"\\" + run);
        if (isFull)
        {
            files.AddFile(target + file, std::string(c_secret));
            files.AddFile(target + L"\\" + run + file, std::string(c_secret));
        }
    }
    return target;
}

void AddFileLink(FakeFileSystem& files, const std::wstring& path, const std::wstring& target)
{
    files.AddFile(path, {});
    files.AddReparsePoint(path, IO_REPARSE_TAG_SYMLINK, target);
}

// One machine, with the reports of two ended runs.
struct Machine
{
    Machine()
    {
        files.AddFile(c_database + L"\\x.run\\1.envelope", "one");
        files.AddFile(c_database + L"\\x.run\\1.dmp", "MDMP one");
        files.AddFile(c_database + L"\\x.run\\2.envelope", "two");
        files.AddFile(c_database + L"\\y.run\\3.envelope", "three");
        files.AddFile(c_system + L"\\secret", std::string(c_secret));
        files.AddFile(c_system + L"\\read-only", std::string(c_secret), FILE_ATTRIBUTE_READONLY);
    }

    // Whether anything of the system's was opened by its path.
    bool HasOpenedSystem() const
    {
        return std::ranges::any_of(journal.All(),
                                   [](const std::string& call) { return call.starts_with("CloseHandle(C:\\Windows"); });
    }

    Journal journal;
    Handles handles{journal};
    FakeFileSystem files{journal, handles};
};

using Names = std::vector<std::wstring>;

std::vector<Attack> AttacksOn(const Names& folders, const Names& names)
{
    std::vector<Attack> attacks;
    for (const bool isFull : {false, true})
    {
        const PathIn target = [=](FakeFileSystem& files) { return AddTarget(files, isFull); };
        for (const std::wstring& name : folders)
        {
            const PathIn folder = [=](FakeFileSystem& files) { return PathOf(files, name); };
            attacks.push_back(ExchangeForLink("folder " + Narrow(name), folder, target));
            attacks.push_back(MakeLinkOf("folder " + Narrow(name), folder, target, L"1.envelope"));
        }
    }
    using Add = std::function<void(FakeFileSystem&, const std::wstring& path)>;
    const std::pair<const char*, Add> others[] = {
        {"a link to a folder",
         [](FakeFileSystem& files, const std::wstring& path) {
             files.AddReparsePoint(path, IO_REPARSE_TAG_MOUNT_POINT, AddTarget(files, true));
         }},
        {"a symbolic link to a file",
         [](FakeFileSystem& files, const std::wstring& path) { AddFileLink(files, path, c_system + L"\\secret"); }},
        {"a symbolic link to none",
         [](FakeFileSystem& files, const std::wstring& path) { AddFileLink(files, path, c_system + L"\\new"); }},
        {"a hard link",
         [](FakeFileSystem& files, const std::wstring& path) { files.AddHardLink(path, c_system + L"\\secret"); }},
        {"a hard link to what is read-only",
         [](FakeFileSystem& files, const std::wstring& path) { files.AddHardLink(path, c_system + L"\\read-only"); }},
    };
    for (const std::wstring& name : names)
    {
        for (const auto& [what, add] : others)
        {
            attacks.push_back({Narrow(name) + " becomes " + what, [=](FakeFileSystem& files) {
                                   const std::wstring path = PathOf(files, name);
                                   return Put(files, path, [&] { add(files, path); });
                               }});
        }
    }
    return attacks;
}

// What a store does from its opening to its end. Returns what it read.
std::set<std::string> Live()
{
    std::set<std::string> read;
    const auto store = Store::Open(Narrow(c_database));
    if (store)
    {
        store->Keep("kept", "kept");
        store->Keep("dropped", "dropped");
        store->HasPending();
        while (const auto report = store->NextPending())
        {
            read.insert({report->envelope, report->minidump});
            store->Drop(*report);
        }
        store->Drop("dropped");
        store->Count();
    }
    return read;
}

BOOL WINAPI WriteDump(HANDLE, DWORD, HANDLE file, MINIDUMP_TYPE, PMINIDUMP_EXCEPTION_INFORMATION,
                      PMINIDUMP_USER_STREAM_INFORMATION, PMINIDUMP_CALLBACK_INFORMATION)
{
    DWORD written = 0;
    return WriteFile(file, "MDMP", 4, &written, nullptr);
}

// The same for a store whose program crashes. It writes the minidump itself.
std::set<std::string> Crash()
{
    LPTOP_LEVEL_EXCEPTION_FILTER filter = nullptr;
    const Fake<&SetUnhandledExceptionFilter> setFilter = [&](LPTOP_LEVEL_EXCEPTION_FILTER its) {
        return std::exchange(filter, its);
    };
    const auto library = reinterpret_cast<HMODULE>(&filter);
    const Fake<&LoadLibraryExW> load = [&](LPCWSTR, HANDLE, DWORD) { return library; };
    const Fake<&GetProcAddress> find = [&](HMODULE its, LPCSTR name) {
        return its == library ? std::bit_cast<FARPROC>(&WriteDump) : find.Hidden(its, name);
    };
    const Fake<&CreateThread> create = [](LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE start, LPVOID parameter,
                                          DWORD, LPDWORD) {
        start(parameter);
        return CreateEventW(nullptr, TRUE, TRUE, nullptr);
    };
    const auto store = Store::Open(Narrow(c_database));
    if (store)
    {
        CrashHandler handler({.envelope = MakeCrashEnvelope({.release = "r", .environment = "e"}, "c"),
                              .folder = store->DuplicateRunFolder(),
                              .envelopeName = Store::EnvelopeName("c"),
                              .minidumpName = Store::MinidumpName("c")});
        EXCEPTION_RECORD record{};
        CONTEXT context{};
        EXCEPTION_POINTERS pointers{&record, &context};
        filter(&pointers);
    }
    return {};
}

void LiveUnder(const std::vector<Attack>& attacks, std::set<std::string> (*live)())
{
    RunUnder<Machine>(attacks, [live](const Machine& machine) {
        EXPECT_FALSE(live().contains(std::string(c_secret)));
        EXPECT_FALSE(machine.HasOpenedSystem());
    });
}

TEST(SentryHeldFolderTest, Is_that_of_a_store_which_lives_as_usual_on_this_machine)
{
    for (const bool isFat : {false, true})
    {
        Machine machine;
        machine.files.isFat = isFat;
        const wil::unique_hfile reader(CreateFileW((c_database + L"\\x.run\\2.envelope").c_str(), GENERIC_READ,
                                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                   OPEN_EXISTING, 0, nullptr));
        EXPECT_THAT(Live(), UnorderedElementsAre("one", "MDMP one", "two", "three", ""));
        EXPECT_EQ(machine.files.Has(c_database + L"\\x.run"), isFat) << "deleted at once, with a reader";
        EXPECT_FALSE(machine.files.Has(c_database + L"\\y.run"));
        EXPECT_EQ(machine.files.ContentOf(PathOf(machine.files, L"own\\kept.envelope")), "kept");
        EXPECT_FALSE(machine.files.Has(PathOf(machine.files, L"own\\dropped.envelope")));
        EXPECT_FALSE(machine.files.Has(PathOf(machine.files, L"own.lock")));
    }
}

TEST(SentryHeldFolderTest, Is_that_of_a_crash_as_usual_on_this_machine)
{
    const Machine machine;
    Crash();
    EXPECT_EQ(machine.files.ContentOf(PathOf(machine.files, L"own\\c.dmp")), "MDMP");
    EXPECT_TRUE(machine.files.ContentOf(PathOf(machine.files, L"own\\c.envelope")).starts_with("{"));
}

TEST(SentryHeldFolderTest, Leads_no_store_astray_whenever_it_is_changed)
{
    Names names(std::begin(c_names), std::end(c_names));
    names.insert(names.end(), {L"x.run", L"x.run.lock", L"y.run.lock", L"own.lock"});
    LiveUnder(AttacksOn({L"", L"x.run", L"y.run", L"own"}, names), Live);
}

TEST(SentryHeldFolderTest, Leads_no_crash_astray_whenever_it_is_changed)
{
    LiveUnder(AttacksOn({L"", L"own"}, {L"own\\c.envelope", L"own\\c.dmp", L"own.lock"}), Crash);
}

TEST(SentryHeldFolderTest, Is_left_when_it_is_found_to_be_a_link)
{
    Machine machine;
    const std::wstring run = c_database + L"\\x.run";
    machine.journal.onCall = [&](const std::string& call) {
        if (call == "NtCreateFile(" + Narrow(c_database) + ", \"x.run\")")
        {
            Empty(machine.files, run);
            EXPECT_TRUE(machine.files.SetReparsePoint(run, c_system));
        }
    };
    EXPECT_THAT(Live(), UnorderedElementsAre("three", ""));
    EXPECT_TRUE(machine.files.Has(run));
}

// Nobody else can open what a lock is.
TEST(SentryHeldFolderTest, Has_no_run_whose_lock_is_a_link)
{
    for (const bool isHardLink : {false, true})
    {
        Machine machine;
        const std::wstring lock = c_database + L"\\x.run.lock";
        isHardLink ? machine.files.AddHardLink(lock, c_system + L"\\secret")
                   : AddFileLink(machine.files, lock, c_system + L"\\secret");
        EXPECT_THAT(Live(), UnorderedElementsAre("three", ""));
        EXPECT_TRUE(machine.files.Has(lock));
        EXPECT_TRUE(machine.files.Has(c_database + L"\\x.run\\1.envelope"));
    }
}

} // namespace
