// The commands in the documents for administrators, as they stand there.
#include "EndToEndTest.h"
#include "support/BuiltFiles.h"
#include "support/Names.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <regex>
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
    std::ifstream file{std::filesystem::path(document)};
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
        {
            std::ofstream script{std::filesystem::path(m_script)};
            script << "@echo off\n";
            for (const std::string& line : lines)
            {
                script << line << "\n";
            }
        }
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

    // The lines that the two processes wrote, whichever numbers they have.
    std::vector<std::string> LinesOf(const std::string& log) const
    {
        std::vector<std::string> lines;
        std::string rest = std::regex_replace(log, std::regex(R"(uninstaller \(\d+\))"), "uninstaller (<pid>)");
        for (auto end = rest.find("\r\n"); end != std::string::npos; end = rest.find("\r\n"))
        {
            lines.push_back(rest.substr(0, end));
            rest.erase(0, end + 2);
        }
        return lines;
    }

    std::vector<std::string> OutputLines() const
    {
        std::vector<std::string> lines;
        std::ifstream file{std::filesystem::path(m_output)};
        for (std::string line; std::getline(file, line);)
        {
            line.erase(line.find_last_not_of("\r ") + 1);
            lines.push_back(line);
        }
        return lines;
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
    EXPECT_EQ(OutputLines(), std::vector<std::string>{});
    MachineState expected = RelocatedState();
    CopyTraces(expected, After());
    expected.CopyWithParents(m_output, After());
    ExpectState(expected);
    const std::vector<std::string> first = RelocationLog("Silent", RelocatedCopy(), "-s");
    const std::vector<std::string> second = ExpectedLog().Lines();
    EXPECT_EQ(LinesOf(Result().log).size(), first.size() + second.size());
    EXPECT_EQ(LinesOf(Result().log).back(), second.back());
}

TEST_F(DocumentedCommandsTest, Started_elsewhere_it_tells_its_exit_code)
{
    ASSERT_EQ(m_commands.size(), 2U);
    LayDownDocumented();
    RunCommands(m_commands[1]);
    const std::wstring deployed = LR"(C:\Deploy\Velmora.Uninstaller.exe)";
    ASSERT_FALSE(OutputLines().empty());
    EXPECT_EQ(OutputLines().back(), "0");
    MachineState expected = DeclaredStateOf(deployed);
    expected.CopyWithParents(deployed, After());
    expected.Set(deployed, *Before().Find(Documented()));
    expected.CopyWithParents(m_output, After());
    ExpectState(expected);
    EXPECT_EQ(LinesOf(Result().log), ExpectedLog().Lines());
    std::filesystem::remove_all(std::filesystem::path(deployed).parent_path());
}
} // namespace
} // namespace Testing
