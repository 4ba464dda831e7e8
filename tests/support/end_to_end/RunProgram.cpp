#include "support/end_to_end/RunProgram.h"

#include "support/end_to_end/Console.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Search.h"

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <utility>

namespace Testing
{
namespace
{
// How many milliseconds to wait for the program's end before the log is looked at again. Looking takes as much of the
// processor as the program itself, which waits most of the time.
constexpr DWORD c_lookEvery = 8;

// The same where every moment counts: a run that only shows the help deletes its log as soon as it is written, and a
// test that does something meanwhile means one moment.
constexpr DWORD c_lookOften = 1;

// How often a program is started that Wine fails to start.
constexpr int c_starts = 3;

// This process's environment with some variables set to other values, as CreateProcessW takes it.
std::wstring EnvironmentWith(const std::vector<std::pair<std::wstring, std::wstring>>& changes)
{
    std::wstring block;
    wchar_t* const present = GetEnvironmentStringsW();
    for (const wchar_t* variable = present; *variable != L'\0'; variable += std::wstring_view(variable).size() + 1)
    {
        const std::wstring_view text = variable;
        const bool changed = std::ranges::any_of(
            changes, [&](const auto& change) { return SameName(text.substr(0, text.find(L'=', 1)), change.first); });
        if (!changed)
        {
            block += std::wstring(text) + L'\0';
        }
    }
    FreeEnvironmentStringsW(present);
    for (const auto& [name, value] : changes)
    {
        block += name + L'=' + value + L'\0';
    }
    return block + L'\0';
}
} // namespace

std::wstring LogFolderIn(const std::wstring& temporaryFolder)
{
    return temporaryFolder + L"Velmora\\Uninstaller\\";
}

std::wstring LogNameAt(std::chrono::system_clock::time_point moment)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(moment);
    std::tm local{};
    localtime_s(&local, &seconds);
    std::wstring name = L"Uninstaller";
    for (const int number :
         {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec})
    {
        name += L"_" + std::to_wstring(number);
    }
    return name + L".log";
}

std::wstring TemporaryFolder()
{
    std::array<wchar_t, MAX_PATH + 1> folder{};
    GetTempPathW(static_cast<DWORD>(folder.size()), folder.data());
    return folder.data();
}

namespace
{
// Reads the uninstaller's logs as they grow, from the moment it is made. A log is held open with full sharing, so it is
// read to its end even when it has been deleted, and nothing that others do with it is hindered.
class LogFollower
{
public:
    explicit LogFollower(std::wstring folder) : m_folder(std::move(folder)) { FindNewLogs(FILE_END); }

    ~LogFollower()
    {
        for (const std::wstring& path : m_held)
        {
            if (std::ranges::none_of(m_logs, [&](const Log& log) { return log.path == path && !log.text.empty(); }))
            {
                DeleteFileW(path.c_str());
            }
        }
    }
    LogFollower(const LogFollower&) = delete;
    LogFollower& operator=(const LogFollower&) = delete;

    // Makes the logs of the coming half minute, empty, so that one that is deleted at once is not missed: it is held
    // open before it is written. Those that stay empty go in the end.
    void HoldComingLogs()
    {
        CreateDirectoryW(m_folder.substr(0, m_folder.find_last_of(L'\\', m_folder.size() - 2)).c_str(), nullptr);
        CreateDirectoryW(m_folder.c_str(), nullptr);
        const auto now = std::chrono::system_clock::now();
        for (int second = 0; second < 30; ++second)
        {
            m_held.push_back(m_folder + LogNameAt(now + std::chrono::seconds(second)));
            OwnFile(CreateFileW(m_held.back().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
        }
        FindNewLogs(FILE_BEGIN);
    }

    // Takes in what has been written since the last call.
    void Read()
    {
        FindNewLogs(FILE_BEGIN);
        for (Log& log : m_logs)
        {
            std::array<char, 4096> buffer{};
            DWORD read = 0;
            while (ReadFile(log.file.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr) &&
                   read > 0)
            {
                log.text.append(buffer.data(), read);
            }
        }
    }

    // All that has been read so far, one log after the other.
    std::string Text() const
    {
        std::string text;
        for (const Log& log : m_logs)
        {
            text += log.text;
        }
        return text;
    }

    // The paths of the logs in which something was written since then, in the order in which they appeared.
    std::vector<std::wstring> Written() const
    {
        std::vector<std::wstring> written;
        for (const Log& log : m_logs)
        {
            if (!log.text.empty())
            {
                written.push_back(log.path);
            }
        }
        return written;
    }

private:
    struct Log
    {
        std::wstring path;
        UniqueHandle file;
        std::string text;
    };

    void FindNewLogs(DWORD from)
    {
        ForEachFound(m_folder + L"Uninstaller_*.log", [&](const WIN32_FIND_DATAW& found) {
            const std::wstring path = m_folder + found.cFileName;
            if (std::ranges::find(m_logs, path, &Log::path) != m_logs.end())
            {
                return;
            }
            UniqueHandle file =
                OwnFile(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, 0, nullptr));
            if (file)
            {
                SetFilePointer(file.get(), 0, nullptr, from);
                m_logs.push_back({path, std::move(file), {}});
            }
        });
    }

    std::wstring m_folder;
    std::vector<Log> m_logs;
    std::vector<std::wstring> m_held;
};

// The first of the running processes with this file name that is a child of that one, or of any, with the right to wait
// for it; nothing when there is none.
std::pair<UniqueHandle, DWORD> FindProcess(const std::wstring& name, std::optional<DWORD> parent)
{
    const UniqueHandle snapshot = OwnFile(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more; more = Process32NextW(snapshot.get(), &entry))
    {
        if (SameName(entry.szExeFile, name) && parent.value_or(entry.th32ParentProcessID) == entry.th32ParentProcessID)
        {
            return {UniqueHandle(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_TERMINATE, FALSE,
                                             entry.th32ProcessID)),
                    entry.th32ProcessID};
        }
    }
    return {};
}

// Whether a program of that name runs. Waits for its end, at most so many milliseconds.
bool Runs(const std::wstring& name, DWORD milliseconds)
{
    const auto [process, id] = FindProcess(name, {});
    if (process)
    {
        WaitForSingleObject(process.get(), milliseconds);
    }
    return id != 0;
}

bool HasEnded(const UniqueHandle& process, DWORD milliseconds = 0)
{
    return WaitForSingleObject(process.get(), milliseconds) != WAIT_TIMEOUT;
}

// When it ended, in units of 100 ns.
ULONGLONG EndOf(const UniqueHandle& process)
{
    FILETIME created{};
    FILETIME ended{};
    FILETIME kernel{};
    FILETIME user{};
    GetProcessTimes(process.get(), &created, &ended, &kernel, &user);
    return ULARGE_INTEGER{.LowPart = ended.dwLowDateTime, .HighPart = ended.dwHighDateTime}.QuadPart;
}

DWORD ExitCodeOf(const UniqueHandle& process)
{
    DWORD code = 0;
    GetExitCodeProcess(process.get(), &code);
    return code;
}

// Starts a program as the desktop does: in its own folder, without a console and without standard handles. Before its
// first instruction it has the stand-ins, if there are any.
std::pair<UniqueHandle, DWORD> Start(const std::wstring& program, const std::wstring& arguments, RunOptions options,
                                     const std::optional<StandIns>& standIns)
{
    if (standIns)
    {
        options.environment.push_back(standIns->Variable());
    }
    std::wstring commandLine = L'"' + program + L'"' + (arguments.empty() ? L"" : L" ") + arguments;
    const std::wstring folder = program.substr(0, program.rfind(L'\\') + 1);
    std::wstring environment = EnvironmentWith(options.environment);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    constexpr std::array<DWORD, 3> c_standard{STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    std::array<HANDLE, 3> own{};
    for (std::size_t index = 0; index < own.size(); ++index)
    {
        own[index] = GetStdHandle(c_standard[index]);
        SetStdHandle(c_standard[index], nullptr);
    }
    const DWORD flags = CREATE_UNICODE_ENVIRONMENT | DETACHED_PROCESS | CREATE_SUSPENDED;
    const auto start = [&]() -> DWORD {
        const BOOL ok = options.token != nullptr
                            ? CreateProcessAsUserW(options.token, program.c_str(), commandLine.data(), nullptr, nullptr,
                                                   FALSE, flags, environment.data(), folder.c_str(), &startup, &started)
                            : CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, flags,
                                             environment.data(), folder.c_str(), &startup, &started);
        return ok ? ERROR_SUCCESS : GetLastError();
    };
    DWORD error = start();
    // It happens on a busy machine that Wine loses a new process.
    for (int tries = 1; error == ERROR_INTERNAL_ERROR && tries < c_starts; ++tries)
    {
        error = start();
    }
    for (std::size_t index = 0; index < own.size(); ++index)
    {
        SetStdHandle(c_standard[index], own[index]);
    }
    if (error != ERROR_SUCCESS)
    {
        ThrowWindowsError("Cannot start " + ToUtf8(program), error);
    }
    UniqueHandle process(started.hProcess);
    const UniqueHandle thread(started.hThread);
    try
    {
        if (standIns)
        {
            standIns->LoadInto(process.get());
        }
    }
    catch (...)
    {
        TerminateProcess(process.get(), 1);
        throw;
    }
    ResumeThread(thread.get());
    return {std::move(process), started.dwProcessId};
}

void ExpectNoViolations(const std::vector<std::string>& violations, const std::string& log)
{
    if (!violations.empty())
    {
        std::string text = "Windows refuses these calls of the program:\n";
        for (const std::string& violation : violations)
        {
            text += violation + '\n';
        }
        throw std::runtime_error(text + "Its log:\n" + log);
    }
}

// Answers the dialog if it is there, and takes in what it says if it is a message box. Returns whether it was there.
bool Answer(const DialogAnswer& answer, HWND& last, std::vector<std::wstring>& messages)
{
    if (!answer.message)
    {
        return AnswerDialog(answer, last);
    }
    const auto message = ReadAndCloseMessageBox(answer.title);
    if (message)
    {
        messages.push_back(*message);
    }
    return message.has_value();
}
} // namespace

RunResult RunProgram(const std::wstring& program, const std::wstring& arguments, const RunOptions& options)
{
    LogFollower follower(options.logFolder);
    if (options.hasShortLog)
    {
        follower.HoldComingLogs();
    }
    RunResult result;
    const auto startTime = std::chrono::steady_clock::now();
    std::optional<StandIns> standIns;
    if (options.hasStandIns || options.killAfterLines > 0)
    {
        standIns.emplace(options.killAfterLines);
    }
    const auto [process, id] = Start(program, arguments, options, standIns);
    result.processId = id;

    UniqueHandle copy;
    HWND lastDialog = nullptr;
    std::optional<ConsoleUser> user;
    if (options.hasConsole)
    {
        user.emplace();
    }
    bool hasEnded = false;
    const DWORD lookEvery = options.hasShortLog || options.whileRunning ? c_lookOften : c_lookEvery;
    while (!hasEnded || (copy && !HasEnded(copy, lookEvery)) ||
           (!options.awaited.empty() && Runs(options.awaited, lookEvery)))
    {
        hasEnded = HasEnded(process, hasEnded ? 0 : lookEvery);
        follower.Read();
        // It starts the copy as the last thing, so the copy lives when it has ended.
        if (!copy && follower.Text().find("Starting \"") != std::string::npos)
        {
            auto [found, copyId] = FindProcess(program.substr(program.rfind(L'\\') + 1), result.processId);
            if (found)
            {
                copy = std::move(found);
                result.copy = EndedProcess{.id = copyId};
            }
        }
        if (standIns)
        {
            standIns->Look();
        }
        if (options.whileRunning)
        {
            options.whileRunning(follower.Text());
        }
        if (result.dialogsAnswered < options.answers.size() &&
            Answer(options.answers[result.dialogsAnswered], lastDialog, result.messages))
        {
            ++result.dialogsAnswered;
        }
        if (user)
        {
            user->Look(copy ? result.copy->id : result.processId, result.console);
        }
        if (std::chrono::steady_clock::now() - startTime > options.limit)
        {
            TerminateProcess(process.get(), 1);
            TerminateProcess(copy.get(), 1);
            throw std::runtime_error(
                ToUtf8(program) + " did not end in time; dialogs answered: " + std::to_string(result.dialogsAnswered) +
                "; its log until then:\n" + follower.Text());
        }
    }
    follower.Read();

    result.duration =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - startTime);
    result.log = follower.Text();
    result.exitCode = ExitCodeOf(process);
    if (copy)
    {
        result.copy->exitCode = ExitCodeOf(copy);
        result.endedBeforeCopy = EndOf(process) < EndOf(copy);
    }
    if (standIns)
    {
        result.wasKilled = options.killAfterLines > 0 && standIns->LinesLeft() <= 0;
        ExpectNoViolations(standIns->Violations(), result.log);
    }
    if (options.hasStandIns)
    {
        result.serviceControls = standIns->ServiceControls();
    }
    const auto logs = follower.Written();
    result.logPath = logs.empty() ? L"" : logs.back();
    result.earlierLogPath = logs.size() < 2 ? L"" : logs.front();
    return result;
}
} // namespace Testing
