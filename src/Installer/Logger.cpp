#include "Installer/Logger.h"

#include "Installer/Common.h"
#include "Installer/PrivateFolder.h"
#include "Installer/ShellHelpers.h"
#include "Installer/Text.h"

#include <windows.h>

#include <sentry.h>

#include <wil/resource.h>
#include <wil/result.h>

#include <exception>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace Installer
{

namespace
{

constexpr std::wstring_view c_infoTag = L"|INFO|:    ";
constexpr std::wstring_view c_warningTag = L"|WARNING|: ";
constexpr std::wstring_view c_errorTag = L"|ERROR|:   ";

std::wstring BuildLogName()
{
    SYSTEMTIME now{};
    GetLocalTime(&now);
    std::wstring name = L"Uninstaller";
    for (const WORD number : {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond})
    {
        name += L'_' + std::to_wstring(number);
    }
    return name + L".log";
}

void WriteToConsole(const std::wstring& line)
{
    DWORD written = 0;
    WriteConsoleW(GetStdHandle(STD_OUTPUT_HANDLE), line.c_str(), static_cast<DWORD>(line.size()), &written, nullptr);
}

// Whether the log can be written: its name is free, or the log of another run in the same second. Deletes anything else
// in its place (not what it links to).
bool ClearLogPath(const std::wstring& path)
{
    const wil::unique_hfile file(CreateFileW(path.c_str(), READ_CONTROL,
                                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                             OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    return file ? IsTrustedFile(file.get()) || DeleteFileW(path.c_str()) : IsNotFoundError(GetLastError());
}

// Opens and closes the file for each line, so that no line is lost if the process ends abruptly.
void AppendToFile(const std::wstring& path, const std::wstring& line)
{
    const wil::unique_hfile file(CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                             nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT,
                                             nullptr));
    if (file)
    {
        const std::string bytes = EncodeUtf8(line);
        DWORD written = 0;
        WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    }
}

void AddBreadcrumb(const std::wstring& message)
{
    sentry_add_breadcrumb(sentry_value_new_breadcrumb(nullptr, EncodeUtf8(message).c_str()));
}

void CaptureEvent(sentry_level_t level, const std::wstring& message)
{
    sentry_capture_event(sentry_value_new_message_event(level, "logger", EncodeUtf8(message).c_str()));
}

// Empty when the system folder is unknown.
std::wstring FindCommandProcessor()
{
    const std::wstring folder = FindSystemFolder();
    return folder.empty() ? folder : folder + L"\\cmd.exe";
}

// Not system(): it runs the command processor that ComSpec names, with the user's AutoRun commands, and this process is
// elevated. "/d" disables AutoRun.
void WaitForKey() noexcept
try
{
    const std::wstring processor = FindCommandProcessor();
    std::wstring commandLine = L'"' + processor + L"\" /d /c PAUSE";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information{};
    if (!processor.empty() && CreateProcessW(processor.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                             nullptr, &startup, &information))
    {
        const wil::unique_handle process(information.hProcess);
        const wil::unique_handle thread(information.hThread);
        WaitForSingleObject(process.get(), INFINITE);
    }
}
CATCH_LOG()

} // namespace

// Braces: in this order, so that the log is named before the folder is waited for.
Logger::Logger(RunType runType) : Logger{runType, BuildLogName(), OpenUninstallerTempFolder()} {}

Logger::Logger(RunType runType, const std::wstring& name, UninstallerTempFolder folder)
    : m_runType(runType),
      m_folder(std::move(folder)),
      m_logPath(m_folder.path + name),
      m_writesFile(m_folder.IsPrivate() && ClearLogPath(m_logPath))
{
    if (m_runType == RunType::Verbose)
    {
        AllocConsole();
        m_pauseOnClose = true;
    }
}

Logger::~Logger()
{
    if (m_runType != RunType::Verbose)
    {
        return;
    }
    if (m_pauseOnClose)
    {
        WaitForKey();
    }
    FreeConsole();
}

void Logger::Info(const std::wstring& message) noexcept
try
{
    WriteLine(c_infoTag, message);
    AddBreadcrumb(message);
}
CATCH_LOG()

void Logger::Warning(const std::wstring& message, bool capture) noexcept
try
{
    WriteLine(c_warningTag, message);
    if (capture)
    {
        CaptureEvent(SENTRY_LEVEL_WARNING, message);
    }
    else
    {
        AddBreadcrumb(L"Warning:" + message);
    }
}
CATCH_LOG()

void Logger::Error(const std::wstring& message, bool capture) noexcept
try
{
    WriteLine(c_errorTag, message);
    if (capture)
    {
        CaptureEvent(SENTRY_LEVEL_ERROR, message);
    }
    else
    {
        AddBreadcrumb(L"Error:" + message);
    }
}
CATCH_LOG()

void Logger::Warning(const wchar_t* text, const char* what, bool capture) noexcept
try
{
    Warning(text + WidenExceptionText(what), capture);
}
CATCH_LOG()

void Logger::Error(const wchar_t* text, const char* what, bool capture) noexcept
try
{
    Error(text + WidenExceptionText(what), capture);
}
CATCH_LOG()

void Logger::OpenLog()
{
    Info(L"Requested to open log...");
    if (m_runType != RunType::Gui)
    {
        Info(L"Not running as GUI, ignoring...");
        return;
    }
    if (!FileExists())
    {
        Info(L"Log file does not exist, ignoring...");
        return;
    }
    try
    {
        ShellExecuteFromExplorer(m_logPath);
    }
    catch (const std::exception& exception)
    {
        Warning(L"ShellExecuteFromExplorer failed: ", exception.what(), false);
    }
}

void Logger::WriteLine(std::wstring_view tag, const std::wstring& message) noexcept
try
{
    std::wstring line(tag);
    line += message;
    std::erase(line, L'\n');
    WriteToConsole(line + L'\n');
    if (m_writesFile)
    {
        AppendToFile(m_logPath, line + L"\r\n");
    }
}
CATCH_LOG()

bool Logger::FileExists() const
{
    if (!m_writesFile)
    {
        return false;
    }
    if (GetFileAttributesW(m_logPath.c_str()) != INVALID_FILE_ATTRIBUTES)
    {
        return true;
    }
    const DWORD error = GetLastError();
    if (!IsNotFoundError(error))
    {
        // Not std::filesystem::filesystem_error: its path would link libstdc++'s locales.
        throw std::system_error(static_cast<int>(error), std::system_category(),
                                "filesystem error: exists [" + EncodeUtf8(m_logPath) + ']');
    }
    return false;
}

} // namespace Installer
