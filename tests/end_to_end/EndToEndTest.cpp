#include "EndToEndTest.h"

#include "support/BuiltFiles.h"
#include "support/Names.h"
#include "support/ReportAddress.h"
#include "support/RunningProduct.h"
#include "support/Servers.h"

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

// The keys that the program makes when they are missing, because it opens them so.
constexpr std::array<std::wstring_view, 3> c_keysMadeByOpening{
    LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Run)",
    LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Explorer\StartupApproved\Run)",
    LR"(HKLM\SOFTWARE\RegisteredApplications)"};

// What the tests' servers were asked for.
constexpr std::array<std::wstring_view, 2> c_calls{LR"(HKLM\Software\Velmora.Testing\Firewall\Calls)",
                                                   LR"(HKLM\Software\Velmora.Testing\Packages\Calls)"};

// The lines of a log: each ends with a carriage return and a line feed.
std::vector<std::string> SplitLines(const std::string& text)
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

std::string JoinLines(const std::vector<std::string>& lines)
{
    constexpr std::size_t c_most = 60;
    std::string text;
    for (const std::string& line :
         std::vector(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(std::min(lines.size(), c_most))))
    {
        text += "  " + line + "\n";
    }
    return text + (lines.size() > c_most ? "  … " + std::to_string(lines.size() - c_most) + " more\n" : "");
}
} // namespace

DialogAnswer AnswerConfirmation(std::optional<int> button, std::optional<int> radioButton)
{
    return {.title = L"Velmora", .button = button, .radioButton = radioButton};
}

DialogAnswer FullSuccessMessage()
{
    return {.title = L"Velmora Uninstalled",
            .message = {{L"Velmora has been successfully uninstalled.", MessageIcon::Information}}};
}

DialogAnswer PartialUninstallMessage()
{
    return {.title = L"Velmora Partially Uninstalled",
            .message = {{L"Velmora has been successfully uninstalled, but some files may remain. See the logs for more "
                         L"information.",
                         MessageIcon::Warning}}};
}

DialogAnswer ErrorMessage(const std::wstring& title, const std::wstring& text)
{
    return {.title = title, .message = {{text, MessageIcon::Error}}};
}

namespace
{
// Wine writes down where the users' profiles are when it is asked for the first time.
void AskForProfiles()
{
    wchar_t* folder = nullptr;
    SHGetKnownFolderPath(FOLDERID_UserProfiles, 0, nullptr, &folder);
    CoTaskMemFree(folder);
}
} // namespace

EndToEndTest::EndToEndTest() : m_program(Expand(L"<Downloads>") + L"\\" + std::wstring(c_programName))
{
    AskForProfiles();
    RegisterServers();
    const std::wstring built = BuiltFile(c_programName);
    if (!CopyFileW(built.c_str(), m_program.c_str(), FALSE))
    {
        ThrowWindowsError("Cannot copy " + ToUtf8(built) + " to " + ToUtf8(m_program), GetLastError());
    }
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
    if (!CopyFileW(m_program.c_str(), InstalledProgram().c_str(), FALSE))
    {
        ThrowWindowsError("Cannot copy the program to " + ToUtf8(InstalledProgram()), GetLastError());
    }
    RunAt(InstalledProgram(), arguments, options);
}

void EndToEndTest::RunAt(const std::wstring& program, const std::wstring& arguments, const RunOptions& options)
{
    m_before = std::exchange(m_goesOn, false) ? m_after : MachineState::Capture(m_furtherDrives);
    m_started = std::chrono::system_clock::now();
    m_result = RunProgram(program, arguments, options);
    m_after = MachineState::Capture(m_furtherDrives);
    EXPECT_EQ(m_result.dialogsAnswered, options.answers.size());
    std::vector<MessageBoxText> messages;
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
    for (const std::wstring_view key : c_keysMadeByOpening)
    {
        state.AddWithParents(key, StateEntry::Kind::Key);
    }
    for (const std::wstring_view calls : c_calls)
    {
        state.CopyTree(calls, m_after);
    }
    AddPendingDeletion(state, program);
    return state;
}

MachineState EndToEndTest::DeclaredState(bool removeUserSettings) const
{
    return DeclaredStateOf(m_program, removeUserSettings);
}

MachineState EndToEndTest::DeclaredStateOf(const std::wstring& program, bool removeUserSettings) const
{
    MachineState state = StateAfter(program, removeUserSettings);
    state.AddWithParents(TemporaryFolder() + L"Velmora\\Uninstaller", StateEntry::Kind::Folder);
    return state;
}

MachineState EndToEndTest::DeclaredStateWithoutLogFolder(bool removeUserSettings) const
{
    return StateAfter(m_program, removeUserSettings);
}

MachineState EndToEndTest::RelocatedState(const std::wstring& temporaryFolder) const
{
    const std::wstring copy = RelocatedCopy(temporaryFolder);
    MachineState state = StateAfter(copy, false);
    // A copy is the same file at another place.
    state.AddWithParents(temporaryFolder + L"Velmora\\Uninstaller", StateEntry::Kind::Folder);
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
    const auto isLog = [&](const std::wstring& path) {
        return path.ends_with(L".log") && SameName(std::wstring_view(path).substr(0, logs.size()), logs);
    };
    const MachineState before = state;
    for (const auto& [path, entry] : before.All())
    {
        if (isLog(path))
        {
            state.Erase(path);
        }
    }
    for (const auto& [path, entry] : source.All())
    {
        if (isLog(path))
        {
            state.Set(path, entry);
        }
    }
    for (const std::wstring_view traces : {c_pendingRenames, c_calls[0], c_calls[1]})
    {
        state.Erase(traces);
        state.CopyTree(traces, source);
    }
}

MachineState EndToEndTest::UntouchedState() const
{
    MachineState state = m_before;
    state.AddWithParents(TemporaryFolder() + L"Velmora\\Uninstaller", StateEntry::Kind::Folder);
    return state;
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

void EndToEndTest::ExpectLogName() const
{
    const std::wstring name = m_result.logPath.substr(m_result.logPath.rfind(L'\\') + 1);
    std::vector<std::string> possible;
    for (auto moment = m_started; moment <= m_started + m_result.duration + std::chrono::seconds(1);
         moment += std::chrono::seconds(1))
    {
        possible.push_back(ToUtf8(LogNameAt(moment)));
    }
    EXPECT_TRUE(std::ranges::find(possible, ToUtf8(name)) != possible.end())
        << "The log is named " << ToUtf8(name) << ", not " << possible.front() << " or a little later.";
}
} // namespace Testing
