// Whole runs while somebody without administrator's rights does what Windows lets anybody do in the temporary folder.
#include "support/common/Text.h"
#include "support/unit/SimulatedMachine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <set>
#include <string>

namespace
{

using namespace Testing;

const std::wstring c_product = L"C:\\Windows\\Temp\\Velmora";
const std::wstring c_folder = c_product + L"\\Uninstaller";
const std::wstring c_system = L"C:\\Windows\\System32";
const std::wstring c_protected = c_system + L"\\notepad.exe";

// What is done between two calls of the program. Returns whether Windows lets it be done.
using Action = std::function<bool(FakeFileSystem&)>;

bool MakeLink(FakeFileSystem& files, const std::wstring& path)
{
    return files.MakeFolder(path) && files.SetReparsePoint(path, c_system);
}

bool ExchangeForLink(FakeFileSystem& files, const std::wstring& path)
{
    return files.Rename(path, path + L".old") && MakeLink(files, path);
}

bool ExchangeForHardLink(FakeFileSystem& files, const std::wstring& path)
{
    files.Delete(path);
    return files.MakeHardLink(path, c_protected);
}

struct Attack
{
    const char* name;
    Action act;
};

const Attack c_attacks[] = {
    {"exchanges_the_product_folder_for_a_link",
     [](FakeFileSystem& files) { return ExchangeForLink(files, c_product); }},
    {"exchanges_the_folder_for_a_link", [](FakeFileSystem& files) { return ExchangeForLink(files, c_folder); }},
    {"makes_a_link_of_the_emptied_folder",
     [](FakeFileSystem& files) {
         files.Delete(SimulatedMachine::c_copyPath);
         files.Delete(SimulatedMachine::c_logPath);
         return files.SetReparsePoint(c_folder, c_system);
     }},
    {"puts_links_where_there_are_no_folders_yet",
     [](FakeFileSystem& files) { return MakeLink(files, c_product) || MakeLink(files, c_folder); }},
    {"puts_a_link_where_crash_reports_go",
     [](FakeFileSystem& files) { return MakeLink(files, c_folder + L"\\Sentry"); }},
    {"changes_the_copy",
     [](FakeFileSystem& files) { return files.Overwrite(SimulatedMachine::c_copyPath, "somebody else's"); }},
    {"exchanges_the_copy_for_a_protected_file",
     [](FakeFileSystem& files) { return ExchangeForHardLink(files, SimulatedMachine::c_copyPath); }},
    {"exchanges_the_log_for_a_protected_file",
     [](FakeFileSystem& files) { return ExchangeForHardLink(files, SimulatedMachine::c_logPath); }},
};

class TempFolderAttackTest : public testing::TestWithParam<Attack>
{
protected:
    struct Outcome
    {
        bool isMade = false;
        std::size_t calls = 0;
    };

    // A run with the attack before one of the calls that are about the temporary folder, or before all of them (0).
    static Outcome RunUnder(const Attack& attack, std::size_t at, bool isRelocation, bool isFolderThere)
    {
        Outcome outcome;
        SimulatedMachine machine;
        if (isRelocation)
        {
            machine.RunFromInstallFolder();
        }
        if (!isFolderThere)
        {
            machine.files.Delete(SimulatedMachine::c_copyPath);
            machine.files.Delete(c_folder);
            machine.files.Delete(c_product);
        }
        machine.files.AddFile(machine.ownPath, "the program");
        machine.files.isStranger = true;
        if (at == 0)
        {
            outcome.isMade = attack.act(machine.files);
        }
        machine.files.onWrite = [](const std::wstring& path, const std::string&) {
            EXPECT_EQ(path, SimulatedMachine::c_logPath);
        };
        machine.journal.onCall = [&](const std::string& call) {
            if (call.starts_with("CreateProcessW") && machine.files.Has(SimulatedMachine::c_copyPath))
            {
                EXPECT_EQ(machine.files.ContentOf(SimulatedMachine::c_copyPath), "the program");
            }
            const bool isAboutFolder = call.find(R"(C:\Windows\Temp)") != std::string::npos ||
                                       call.starts_with("CreateProcessW") || call.starts_with("CopyFileExW");
            if (isAboutFolder && ++outcome.calls == at)
            {
                outcome.isMade = attack.act(machine.files);
            }
        };

        const int code = machine.Run(L"-s");

        EXPECT_TRUE(code == 0 || (isRelocation && code == 16)) << code;
        EXPECT_EQ(machine.files.ContentOf(c_protected), "content");
        std::set<std::string> system;
        for (const std::wstring& path : machine.files.All())
        {
            if (path.starts_with(c_system))
            {
                system.insert(Narrow(path));
            }
        }
        EXPECT_EQ(system, (std::set{Narrow(c_system), Narrow(c_protected)}));
        EXPECT_EQ(machine.Leaks(), "");
        return outcome;
    }
};

TEST_P(TempFolderAttackTest, Harms_nothing_whenever_it_is_made)
{
    std::size_t made = 0;
    for (const bool isRelocation : {false, true})
    {
        for (const bool isFolderThere : {false, true})
        {
            std::size_t calls = 0;
            for (std::size_t at = 0; at <= calls && !HasFailure(); ++at)
            {
                SCOPED_TRACE(testing::Message()
                             << GetParam().name << " at call " << at << (isRelocation ? ", relocation" : "")
                             << (isFolderThere ? ", folder there" : ""));
                const Outcome outcome = RunUnder(GetParam(), at, isRelocation, isFolderThere);
                calls = std::max(calls, outcome.calls);
                made += outcome.isMade ? 1U : 0U;
            }
        }
    }
    EXPECT_GT(made, 0U) << "Windows would let nobody do that";
}

INSTANTIATE_TEST_SUITE_P(Somebody, TempFolderAttackTest, testing::ValuesIn(c_attacks),
                         [](const auto& attack) { return std::string(attack.param.name); });

} // namespace
