#include "support/RunProgram.h"

#include "support/Names.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace Testing
{
namespace
{
// How many milliseconds to wait for the program's end before the log is looked at again: a run that only shows the help
// deletes its log as soon as it is written.
constexpr DWORD c_lookEvery = 1;

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

std::wstring TemporaryFolder()
{
    std::array<wchar_t, MAX_PATH + 1> folder{};
    GetTempPathW(static_cast<DWORD>(folder.size()), folder.data());
    return folder.data();
}

LogFollower::LogFollower(std::wstring folder) : m_folder(std::move(folder))
{
    FindNewLogs(true);
}

void LogFollower::FindNewLogs(bool fromTheirEnd)
{
    WIN32_FIND_DATAW found{};
    const HANDLE handle = FindFirstFileW((m_folder + L"Uninstaller_*.log").c_str(), &found);
    if (handle == INVALID_HANDLE_VALUE)
    {
        return;
    }
    const UniqueSearch search(handle);
    do
    {
        const std::wstring path = m_folder + found.cFileName;
        if (std::ranges::any_of(m_logs, [&](const Log& log) { return log.path == path; }))
        {
            continue;
        }
        UniqueHandle file =
            OwnFile(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, 0, nullptr));
        if (file)
        {
            SetFilePointer(file.get(), 0, nullptr, fromTheirEnd ? FILE_END : FILE_BEGIN);
            m_logs.push_back({path, std::move(file), {}});
        }
    } while (FindNextFileW(search.get(), &found));
}

void LogFollower::Read()
{
    FindNewLogs(false);
    for (Log& log : m_logs)
    {
        std::array<char, 4096> buffer{};
        DWORD read = 0;
        while (ReadFile(log.file.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr) && read > 0)
        {
            log.text.append(buffer.data(), read);
        }
    }
}

std::string LogFollower::Text() const
{
    std::string text;
    for (const Log& log : m_logs)
    {
        text += log.text;
    }
    return text;
}

std::vector<std::wstring> LogFollower::Paths() const
{
    std::vector<std::wstring> paths;
    for (const Log& log : m_logs)
    {
        if (!log.text.empty())
        {
            paths.push_back(log.path);
        }
    }
    return paths;
}

RunResult RunProgram(const std::wstring& program, const std::wstring& arguments, const RunOptions& options)
{
    LogFollower follower(options.logFolder);
    std::wstring commandLine = L'"' + program + L'"' + (arguments.empty() ? L"" : L" ") + arguments;
    const std::wstring folder = program.substr(0, program.rfind(L'\\') + 1);
    std::wstring environment = EnvironmentWith(options.environment);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    const auto startTime = std::chrono::steady_clock::now();
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, CREATE_UNICODE_ENVIRONMENT,
                        environment.data(), folder.c_str(), &startup, &started))
    {
        ThrowWindowsError("Cannot start " + ToUtf8(program), GetLastError());
    }
    const UniqueHandle process(started.hProcess);
    const UniqueHandle thread(started.hThread);

    while (WaitForSingleObject(process.get(), c_lookEvery) == WAIT_TIMEOUT)
    {
        follower.Read();
        if (options.whileRunning)
        {
            options.whileRunning(follower.Text());
        }
        if (std::chrono::steady_clock::now() - startTime > options.limit)
        {
            TerminateProcess(process.get(), 1);
            throw std::runtime_error(ToUtf8(program) + " did not end in time; its log until then:\n" + follower.Text());
        }
    }
    follower.Read();

    RunResult result{.log = follower.Text(), .logPath = {}, .processId = started.dwProcessId};
    result.duration =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - startTime);
    GetExitCodeProcess(process.get(), &result.exitCode);
    if (const std::vector<std::wstring> paths = follower.Paths(); !paths.empty())
    {
        result.logPath = paths.back();
    }
    return result;
}
} // namespace Testing
