#include "Crash.h"
#include "HeldFolder.h"
#include "Store.h"
#include "support/common/ImportTableFake.h"
#include "support/common/Text.h"
#include "support/unit/FakeHeldFolders.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <dbghelp.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Somebody who may write to the database folder changes it during the life of a store, to have something read, written
// or deleted that is not his: before each call in turn. He may undo that some calls later.
namespace
{

using namespace Reporter;
using namespace Testing;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

const std::wstring c_database = L"C:\\ProgramData\\Product\\Sentry";
const std::wstring c_system = L"C:\\Windows\\System32";
constexpr DWORD c_junction = IO_REPARSE_TAG_MOUNT_POINT;
constexpr std::string_view c_secret = "MDMP secret";

// Names that the store uses below its folder; "own" is the run of its own.
const wchar_t* const c_names[] = {L"x.run\\1.envelope", L"x.run\\1.dmp",       L"x.run\\2.envelope",
                                  L"y.run\\3.envelope", L"own\\kept.envelope", L"own\\dropped.envelope",
                                  L"own\\c.envelope",   L"own\\c.dmp"};

// One machine, with the reports of two ended runs.
class Machine
{
public:
    Machine()
    {
        files.AddFile(c_database + L"\\x.run\\1.envelope", "one");
        files.AddFile(c_database + L"\\x.run\\1.dmp", "MDMP one");
        files.AddFile(c_database + L"\\x.run\\2.envelope", "two");
        files.AddFile(c_database + L"\\y.run\\3.envelope", "three");
        files.AddFile(c_system + L"\\secret", std::string(c_secret));
        files.AddFile(c_system + L"\\read-only", std::string(c_secret), FILE_ATTRIBUTE_READONLY);
    }

    // The path of one of the names, or of the folder itself.
    std::wstring PathOf(const std::wstring& name) const
    {
        return name.empty() ? c_database
                            : c_database + L'\\' + (name.starts_with(L"own") ? OwnRun() + name.substr(3) : name);
    }

    // The run of the store's own; a name that nobody has before it is there.
    std::wstring OwnRun() const
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

    // Where a link leads to: either bears no name that a report has, or bears every one wherever a link leads from.
    std::wstring AddTarget(bool isFull)
    {
        const std::wstring target = c_system + (isFull ? L"\\full" : L"\\empty");
        files.AddFolder(target);
        for (const std::wstring name : c_names)
        {
            const std::wstring run = name.starts_with(L"own") ? OwnRun() : name.substr(0, name.find(L'\\'));
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

    std::map<std::wstring, std::string> SystemFiles() const
    {
        std::map<std::wstring, std::string> found;
        for (const std::wstring& path : files.All())
        {
            if (path.starts_with(L"C:\\Windows"))
            {
                found[path] = files.ContentOf(path);
            }
        }
        return found;
    }

    // Whether anything of the system's was opened by its path.
    bool HasOpenedSystem() const
    {
        return std::ranges::any_of(journal.All(),
                                   [](const std::string& call) { return call.starts_with("CloseHandle(C:\\Windows"); });
    }

    void Empty(const std::wstring& folder)
    {
        const std::vector<std::wstring> all = files.All();
        for (auto path = all.rbegin(); path != all.rend(); ++path)
        {
            if (path->starts_with(folder + L'\\'))
            {
                files.Delete(*path);
            }
        }
    }

    // Puts something in the place of what is there, if it can be deleted, and if nothing is there.
    bool Put(const std::wstring& path, const std::function<void()>& add)
    {
        if (!files.Has(path.substr(0, path.rfind(L'\\'))))
        {
            return false;
        }
        Empty(path);
        files.Delete(path);
        const bool isFree = !files.Has(path);
        if (isFree)
        {
            add();
        }
        return isFree;
    }

    Journal journal;
    Handles handles{journal};
    FakeHeldFolders files{journal, handles};
};

struct Attack
{
    std::string name;
    std::function<bool(Machine&)> make; // returns whether Windows let it be done
    std::function<void(Machine&)> undo{};
};

Attack ExchangeForLink(const std::wstring& folder, bool isFull)
{
    const std::wstring aside = L"C:\\ProgramData\\aside";
    return {"the folder " + Narrow(folder) + " is moved away and a link put in its place",
            [=](Machine& machine) {
                const std::wstring path = machine.PathOf(folder);
                const std::wstring target = machine.AddTarget(isFull);
                if (!machine.files.Rename(path, aside))
                {
                    return false;
                }
                machine.files.AddReparsePoint(path, c_junction, target);
                return true;
            },
            [=](Machine& machine) {
                const std::wstring path = machine.PathOf(folder);
                machine.files.Delete(path);
                machine.files.Rename(aside, path);
            }};
}

Attack MakeLinkOf(const std::wstring& folder, bool isFull)
{
    return {"the folder " + Narrow(folder) + " is emptied and becomes a link",
            [=](Machine& machine) {
                const std::wstring path = machine.PathOf(folder);
                const std::wstring target = machine.AddTarget(isFull);
                machine.Empty(path);
                return machine.files.SetReparsePoint(path, target);
            },
            [=](Machine& machine) {
                const std::wstring path = machine.PathOf(folder);
                if (machine.files.DeleteReparsePoint(path))
                {
                    machine.files.AddFile(path + L"\\1.envelope", "one more");
                }
            }};
}

using Names = std::vector<std::wstring>;

std::vector<Attack> AttacksOn(const Names& folders, const Names& names)
{
    std::vector<Attack> attacks;
    for (const bool isFull : {false, true})
    {
        for (const std::wstring& folder : folders)
        {
            attacks.push_back(ExchangeForLink(folder, isFull));
            attacks.push_back(MakeLinkOf(folder, isFull));
        }
    }
    for (const std::wstring& name : names)
    {
        attacks.push_back({Narrow(name) + " becomes a link to a folder", [=](Machine& machine) {
                               const std::wstring path = machine.PathOf(name);
                               const std::wstring target = machine.AddTarget(true);
                               return machine.Put(path,
                                                  [&] { machine.files.AddReparsePoint(path, c_junction, target); });
                           }});
        for (const wchar_t* const file : {L"\\secret", L"\\new"})
        {
            attacks.push_back({Narrow(name) + " becomes a symbolic link to" + Narrow(file), [=](Machine& machine) {
                                   const std::wstring path = machine.PathOf(name);
                                   return machine.Put(path, [&] { machine.files.AddFileLink(path, c_system + file); });
                               }});
        }
        for (const wchar_t* const file : {L"\\secret", L"\\read-only"})
        {
            attacks.push_back({Narrow(name) + " becomes a hard link to" + Narrow(file), [=](Machine& machine) {
                                   const std::wstring path = machine.PathOf(name);
                                   return machine.Put(path, [&] { machine.files.AddHardLink(path, c_system + file); });
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

// Tries every attack before every call of a life.
void LiveUnder(const std::vector<Attack>& attacks, std::set<std::string> (*live)())
{
    const Machine outermost; // the import table is patched once, not for every machine
    std::size_t tried = 0;
    std::size_t made = 0;
    // Returns whether Windows let the attack be made, or nothing when there are fewer calls.
    const auto liveUnder = [&](const Attack& attack, std::size_t at, std::size_t undoneAt) -> std::optional<bool> {
        Machine machine;
        auto before = machine.SystemFiles();
        std::size_t calls = 0;
        bool isMade = false;
        machine.journal.onCall = [&](const std::string&) {
            ++calls;
            if (calls == at)
            {
                isMade = attack.make(machine);
                before = machine.SystemFiles();
            }
            else if (calls == undoneAt)
            {
                attack.undo(machine);
            }
        };
        const std::set<std::string> read = live();
        const std::string where =
            attack.name + " before call " + std::to_string(at) + ", undone before call " + std::to_string(undoneAt);
        EXPECT_EQ(machine.SystemFiles(), before) << where;
        EXPECT_FALSE(machine.HasOpenedSystem()) << where;
        EXPECT_FALSE(read.contains(std::string(c_secret))) << where;
        EXPECT_THAT(machine.handles.AllOpen(), IsEmpty()) << where;
        ++tried;
        return calls < at ? std::nullopt : std::optional(isMade);
    };
    for (const Attack& attack : attacks)
    {
        std::optional<bool> isMade;
        const std::size_t madeBefore = made;
        for (std::size_t at = 1; (isMade = liveUnder(attack, at, 0)); ++at)
        {
            made += *isMade ? 1 : 0;
            for (std::size_t undoneAt = at + 1; *isMade && attack.undo && undoneAt <= at + 4; ++undoneAt)
            {
                liveUnder(attack, at, undoneAt);
            }
        }
        EXPECT_GT(made, madeBefore) << attack.name << " is never let happen";
    }
    std::cout << tried << " lives under attack, " << made << " attacks at one call and another\n";
}

TEST(SentryHeldFolderTest, Is_that_of_a_store_which_lives_as_usual_on_this_machine)
{
    for (const bool isFat : {false, true})
    {
        Machine machine;
        machine.files.isFat = isFat;
        EXPECT_THAT(Live(), UnorderedElementsAre("one", "MDMP one", "two", "three", ""));
        EXPECT_FALSE(machine.files.Has(c_database + L"\\x.run"));
        EXPECT_FALSE(machine.files.Has(c_database + L"\\y.run"));
        EXPECT_EQ(machine.files.ContentOf(machine.PathOf(L"own\\kept.envelope")), "kept");
        EXPECT_FALSE(machine.files.Has(machine.PathOf(L"own\\dropped.envelope")));
        EXPECT_FALSE(machine.files.Has(machine.PathOf(L"own.lock")));
    }
}

TEST(SentryHeldFolderTest, Is_that_of_a_crash_as_usual_on_this_machine)
{
    const Machine machine;
    Crash();
    EXPECT_EQ(machine.files.ContentOf(machine.PathOf(L"own\\c.dmp")), "MDMP");
    EXPECT_TRUE(machine.files.ContentOf(machine.PathOf(L"own\\c.envelope")).starts_with("{"));
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
            machine.Empty(run);
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
                   : machine.files.AddFileLink(lock, c_system + L"\\secret");
        EXPECT_THAT(Live(), UnorderedElementsAre("three", ""));
        EXPECT_TRUE(machine.files.Has(lock));
        EXPECT_TRUE(machine.files.Has(c_database + L"\\x.run\\1.envelope"));
    }
}

} // namespace
