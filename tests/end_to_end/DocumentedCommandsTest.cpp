// The commands in the documents for administrators, as they stand there.
#include "EndToEndTest.h"
#include "support/end_to_end/BuiltFiles.h"
#include "support/end_to_end/Names.h"

#include <windows.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace Testing
{
namespace
{
// The blocks of command lines in a document: what is set in by four columns. Lines of logs, too, begin with a bar.
std::vector<std::vector<std::string>> ReadCommands(const std::wstring& document)
{
    std::vector<std::vector<std::string>> blocks;
    std::istringstream file(ReadText(document));
    bool isInBlock = false;
    for (std::string line; std::getline(file, line);)
    {
        const bool isCommand = line.starts_with("    ") && !line.starts_with("    |");
        if (isCommand && !isInBlock)
        {
            blocks.emplace_back();
        }
        if (isCommand)
        {
            blocks.back().push_back(line.substr(4));
        }
        isInBlock = isCommand;
    }
    return blocks;
}

class DocumentedCommandsTest : public EndToEndTest
{
protected:
    // Has Windows' command processor carry out the commands.
    void RunCommands(const std::vector<std::string>& lines)
    {
        std::string script = "@echo off\n";
        for (const std::string& line : lines)
        {
            script += line + "\n";
        }
        WriteBytes(m_script, script);
        wchar_t processor[MAX_PATH]{};
        GetSystemDirectoryW(processor, MAX_PATH);
        RunAt(processor + std::wstring(L"\\cmd.exe"), L"/d /c " + m_script + L" > " + m_output + L" 2>&1",
              {.awaited = L"Velmora.Uninstaller.exe"});
    }

    // Lays down a sample in which the uninstaller is where the documents say.
    void LayDownDocumented()
    {
        LayDownSample();
        for (const std::wstring& place : {InstalledProgram(), Documented()})
        {
            ASSERT_TRUE(CopyFileW(ProgramPath().c_str(), place.c_str(), FALSE));
        }
    }

    // The lines that the processes wrote, whichever numbers they have.
    std::vector<std::string> Log() const
    {
        return SplitLines(
            std::regex_replace(Result().log, std::regex(R"(uninstaller \(\d+\))"), "uninstaller (<pid>)"));
    }

    // The last line of what the commands print; nothing when they print nothing.
    std::string LastOutput() const
    {
        const std::vector<std::string> lines = SplitLines(ReadText(m_output));
        return lines.empty() ? "" : lines.back().substr(0, lines.back().find_last_not_of(' ') + 1);
    }

    static std::wstring Documented() { return InstallFolder() + LR"(\current\Velmora.Uninstaller.exe)"; }

    const std::vector<std::vector<std::string>> m_commands = ReadCommands(BuiltFile(L"administrators.md"));
    const std::wstring m_script = Expand(L"<Downloads>") + L"\\commands.cmd";
    const std::wstring m_output = m_script + L".txt";
};

TEST_F(DocumentedCommandsTest, Started_in_its_folder_it_removes_everything_as_its_copy)
{
    ASSERT_EQ(m_commands.size(), 2U);
    LayDownDocumented();
    RunCommands(m_commands[0]);
    EXPECT_EQ(LastOutput(), "");
    MachineState expected = RelocatedState();
    CopyTraces(expected, After());
    CopyAfter(expected, m_output);
    ExpectState(expected);
    // Two processes of the same second share their log, in which their lines may be mixed.
    auto lines = Join({RelocationLog("Silent", RelocatedCopy(), "-s"), ExpectedLog().Lines()});
    auto found = Log();
    std::ranges::sort(lines);
    std::ranges::sort(found);
    EXPECT_EQ(found, lines);
}

TEST_F(DocumentedCommandsTest, Started_elsewhere_it_tells_its_exit_code)
{
    ASSERT_EQ(m_commands.size(), 2U);
    LayDownDocumented();
    RunCommands(m_commands[1]);
    const std::wstring deployed = LR"(C:\Deploy\Velmora.Uninstaller.exe)";
    EXPECT_EQ(LastOutput(), "0");
    MachineState expected = DeclaredStateOf(deployed);
    CopyAfter(expected, deployed);
    expected.Set(deployed, *Before().Find(Documented()));
    CopyAfter(expected, m_output);
    ExpectState(expected);
    EXPECT_EQ(Log(), ExpectedLog().Lines());
    RemoveTree(LR"(C:\Deploy)");
}
} // namespace
} // namespace Testing
