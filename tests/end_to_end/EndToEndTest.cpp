#include "EndToEndTest.h"

#include "support/end_to_end/BuiltFiles.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/ReportAddress.h"
#include "support/end_to_end/RunningProduct.h"
#include "support/end_to_end/Servers.h"

#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iostream>
#include <string_view>
#include <utility>

namespace Testing
{
namespace
{
constexpr std::wstring_view c_programName = L"Velmora.Uninstaller.exe";
constexpr std::wstring_view c_pendingRenames =
    LR"(HKLM\SYSTEM\CurrentControlSet\Control\Session Manager : PendingFileRenameOperations)";

// What the tests' servers were asked for.
constexpr std::array<std::wstring_view, 2> c_calls{LR"(HKLM\Software\Velmora.Testing\Firewall\Calls)",
                                                   LR"(HKLM\Software\Velmora.Testing\Packages\Calls)"};

std::string JoinLines(const std::vector<std::string>& lines)
{
    constexpr std::size_t c_most = 60;
    std::string text;
    for (std::size_t i = 0; i < std::min(lines.size(), c_most); ++i)
    {
        text += "  " + lines[i] + "\n";
    }
    return text + (lines.size() > c_most ? "  … " + std::to_string(lines.size() - c_most) + " more\n" : "");
}

// Wine writes down where the users' profiles are when it is asked for the first time.
void AskForProfiles()
{
    wchar_t* folder = nullptr;
    SHGetKnownFolderPath(FOLDERID_UserProfiles, 0, nullptr, &folder);
    CoTaskMemFree(folder);
}

void CopyProgram(const std::wstring& from, const std::wstring& to)
{
    if (!CopyFileW(from.c_str(), to.c_str(), FALSE))
    {
        ThrowWindowsError("Cannot copy " + ToUtf8(from) + " to " + ToUtf8(to), GetLastError());
    }
}

MachineState WithLogFolder(MachineState state, const std::wstring& temporaryFolder = TemporaryFolder())
{
    state.AddWithParents(temporaryFolder + L"Velmora\\Uninstaller", StateEntry::Kind::Folder);
    return state;
}
} // namespace

DialogAnswer AnswerConfirmation(std::optional<int> button, std::optional<int> radioButton)
{
    return {.title = L"Velmora", .button = button, .radioButton = radioButton};
}

DialogAnswer FullSuccessMessage()
{
    return {.title = L"Velmora Uninstalled", .message = L"Velmora has been successfully uninstalled."};
}

DialogAnswer PartialUninstallMessage()
{
    return {.title = L"Velmora Partially Uninstalled",
            .message = L"Velmora has been successfully uninstalled, but some files may remain. See the logs for more "
                       L"information."};
}

EndToEndTest::EndToEndTest() : m_program(Expand(L"<Downloads>") + L"\\" + std::wstring(c_programName))
{
    AskForProfiles();
    RegisterServers();
    CopyProgram(BuiltFile(c_programName), m_program);
    KeepReportsHere(m_program);
}

EndToEndTest::~EndToEndTest()
{
    if (HasFailure())
    {
        std::cout << "Exit code of the program: " << m_result.exitCode << "\nIts log:\n"
                  << JoinLines(SplitLines(m_result.log));
    }
    for (const std::string& line : TakeLeftOver())
    {
        ADD_FAILURE() << line;
    }
    try
    {
        RemoveSample();
        WriteMachinePath(m_pathAtStart);
        RemoveTree(m_program);
        RemoveTree(TemporaryFolder() + L"Velmora");
    }
    catch (const std::exception& exception)
    {
        ADD_FAILURE() << exception.what();
    }
}

void EndToEndTest::Run(const std::wstring& arguments, RunOptions options)
{
    RunAt(m_program, arguments, options);
}

void EndToEndTest::RunInstalled(const std::wstring& arguments, RunOptions options)
{
    CopyProgram(m_program, InstalledProgram());
    RunAt(InstalledProgram(), arguments, options);
}

void EndToEndTest::RunAt(const std::wstring& program, const std::wstring& arguments, const RunOptions& options)
{
    m_before = std::exchange(m_goesOn, false) ? m_after : MachineState::Capture(m_furtherDrives);
    m_started = std::chrono::system_clock::now();
    m_result = RunProgram(program, arguments, options);
    m_after = MachineState::Capture(m_furtherDrives);
    EXPECT_EQ(m_result.dialogsAnswered, options.answers.size());
    std::vector<std::wstring> messages;
    for (const DialogAnswer& answer : options.answers)
    {
        if (answer.message)
        {
            messages.push_back(*answer.message);
        }
    }
    EXPECT_EQ(m_result.messages, messages);
}

std::wstring EndToEndTest::InstalledProgram()
{
    return InstallFolder() + L"\\" + std::wstring(c_programName);
}

std::wstring EndToEndTest::RelocatedCopy(const std::wstring& temporaryFolder)
{
    return LogFolderIn(temporaryFolder) + std::wstring(c_programName);
}

MachineState EndToEndTest::StateAfter(const std::wstring& program, bool removeUserSettings) const
{
    MachineState state = AfterUninstall(m_before, removeUserSettings);
    for (const StepRow& row : Steps())
    {
        for (const ProductPart& part : row.parts)
        {
            if (part.kind == ProductPart::Kind::Value)
            {
                // The program opens the key so that it is made when it is missing.
                state.AddWithParents(L"HKLM\\" + std::wstring(part.place), StateEntry::Kind::Key);
            }
        }
    }
    for (const std::wstring_view calls : c_calls)
    {
        state.CopyWithParents(calls, m_after);
        state.CopyTree(calls, m_after);
    }
    AddPendingDeletion(state, program);
    return state;
}

MachineState EndToEndTest::DeclaredState(bool removeUserSettings) const
{
    return WithLogFolder(StateAfter(m_program, removeUserSettings));
}

MachineState EndToEndTest::DeclaredStateWith(const std::vector<std::wstring>& kept) const
{
    MachineState state = DeclaredState();
    for (const std::wstring& path : kept)
    {
        state.CopyWithParents(path, m_before);
        state.CopyTree(path, m_before);
    }
    return state;
}

MachineState EndToEndTest::DeclaredStateOf(const std::wstring& program) const
{
    return WithLogFolder(StateAfter(program));
}

MachineState EndToEndTest::RelocatedState(const std::wstring& temporaryFolder) const
{
    const std::wstring copy = RelocatedCopy(temporaryFolder);
    MachineState state = WithLogFolder(StateAfter(copy), temporaryFolder);
    // A copy is the same file at another place.
    state.Set(copy, *m_before.Find(InstalledProgram()));
    // With logs of the same second there is one, which the copy deletes.
    if (!m_result.earlierLogPath.empty())
    {
        state.CopyWithParents(m_result.earlierLogPath, m_after);
    }
    return state;
}

void EndToEndTest::AddPendingDeletion(MachineState& state, const std::wstring& path)
{
    // In the form in which Windows keeps them.
    StateEntry entry{.kind = StateEntry::Kind::Value, .detail = REG_MULTI_SZ, .data = {}};
    if (const StateEntry* present = state.Find(c_pendingRenames))
    {
        entry = *present;
        entry.data.resize(entry.data.size() - sizeof(wchar_t));
    }
    // A source, an empty target, and the end of the list.
    const std::wstring text = L"\\??\\" + path + std::wstring(3, L'\0');
    const auto size = entry.data.size();
    entry.data.resize(size + text.size() * sizeof(wchar_t));
    std::memcpy(entry.data.data() + size, text.data(), text.size() * sizeof(wchar_t));
    state.Set(c_pendingRenames, entry);
}

void EndToEndTest::CopyTraces(MachineState& state, const MachineState& source)
{
    const std::wstring logs = LogFolderIn(TemporaryFolder()) + L"Uninstaller_";
    const auto isTrace = [&](const auto& path) {
        return (path.ends_with(L".log") && SameName(std::wstring_view(path).substr(0, logs.size()), logs)) ||
               IsAtOrBelow(path, c_pendingRenames) || IsAtOrBelow(path, c_calls[0]) || IsAtOrBelow(path, c_calls[1]);
    };
    const MachineState before = state;
    for (const auto& [path, entry] : before.All())
    {
        if (isTrace(path))
        {
            state.Erase(path);
        }
    }
    for (const auto& [path, entry] : source.All())
    {
        if (isTrace(path))
        {
            state.Set(path, entry);
        }
    }
}

MachineState EndToEndTest::UntouchedState() const
{
    return WithLogFolder(m_before);
}

MachineState EndToEndTest::CancelledState() const
{
    MachineState state = UntouchedState();
    AddPendingDeletion(state, m_program);
    return state;
}

void EndToEndTest::ExpectFullSuccess(const ExpectedLog& log) const
{
    ExpectFullSuccess(log, DeclaredState());
}

void EndToEndTest::ExpectFullSuccess(const ExpectedLog& log, const MachineState& state) const
{
    ExpectEnd(c_fullSuccess, log.Lines(), state, false);
}

void EndToEndTest::ExpectPartialUninstall(const ExpectedLog& log, const MachineState& state) const
{
    ExpectEnd(c_partialUninstall, log.Lines(), state, true);
}

void EndToEndTest::ExpectEnd(unsigned long exitCode, const std::vector<std::string>& lines, const MachineState& state,
                             bool keepsLog) const
{
    EXPECT_EQ(m_result.exitCode, exitCode);
    EXPECT_FALSE(m_result.copy) << "There was a copy.";
    EXPECT_EQ(LogLines(), lines);
    ExpectLogName();
    MachineState withLog = state;
    if (keepsLog)
    {
        ExpectKeptLog(withLog);
    }
    ExpectState(withLog);
}

void EndToEndTest::ExpectRelocatedEnd(unsigned long exitCode, const std::vector<std::string>& lines,
                                      const std::vector<std::string>& copyLines, const MachineState& state) const
{
    EXPECT_EQ(m_result.exitCode, c_fullSuccess);
    ASSERT_TRUE(m_result.copy) << "There was no copy.";
    EXPECT_EQ(m_result.copy->exitCode, exitCode);
    EXPECT_TRUE(m_result.endedBeforeCopy) << "The first process waited for its copy.";
    std::vector<std::string> all = lines;
    all.insert(all.end(), copyLines.begin(), copyLines.end());
    std::vector<std::string> found = LogLines();
    if (m_result.earlierLogPath.empty())
    {
        // Two processes of the same second share their log: what each of them writes last and first may be mixed.
        std::ranges::sort(all);
        std::ranges::sort(found);
    }
    EXPECT_EQ(found, all);
    ExpectLogName();
    MachineState withLog = state;
    if (exitCode != c_fullSuccess)
    {
        ExpectKeptLog(withLog);
    }
    ExpectState(withLog);
}

void EndToEndTest::ExpectKeptLog(MachineState& state) const
{
    const StateEntry* keptLog = m_after.Find(m_result.logPath);
    ASSERT_NE(keptLog, nullptr) << "The log was not kept.";
    EXPECT_EQ(keptLog->size + (m_result.earlierLogPath.empty() ? 0 : m_after.Find(m_result.earlierLogPath)->size),
              m_result.log.size());
    state.CopyWithParents(m_result.logPath, m_after);
}

void EndToEndTest::ExpectState(const MachineState& expected) const
{
    const std::vector<std::string> differences = Compare(expected, m_after);
    EXPECT_TRUE(differences.empty()) << "The state is not the one that is declared. Compared with that one:\n"
                                     << JoinLines(differences);
}

std::vector<std::string> EndToEndTest::LogLines() const
{
    std::string log = ReplaceAll(m_result.log, "(" + std::to_string(m_result.processId) + ")", "(<pid>)");
    if (m_result.copy)
    {
        log = ReplaceAll(log, "(" + std::to_string(m_result.copy->id) + ")", "(<pid>)");
    }
    return SplitLines(log);
}

std::vector<std::string> EndToEndTest::SplitLines(const std::string& text)
{
    constexpr std::string_view c_end = "\r\n";
    std::vector<std::string> lines;
    std::size_t begin = 0;
    for (auto end = text.find(c_end); end != std::string::npos; end = text.find(c_end, begin))
    {
        lines.push_back(text.substr(begin, end - begin));
        begin = end + c_end.size();
    }
    if (begin < text.size())
    {
        lines.push_back(text.substr(begin) + " (without an end)");
    }
    return lines;
}

void EndToEndTest::ExpectLogName() const
{
    const std::wstring name = m_result.logPath.substr(m_result.logPath.rfind(L'\\') + 1);
    const auto last = m_started + m_result.duration + std::chrono::seconds(1);
    for (auto moment = m_started; moment <= last; moment += std::chrono::seconds(1))
    {
        if (LogNameAt(moment) == name)
        {
            return;
        }
    }
    ADD_FAILURE() << "The log is named " << ToUtf8(name) << ", not " << ToUtf8(LogNameAt(m_started))
                  << " or a little later.";
}
} // namespace Testing
