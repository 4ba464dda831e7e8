#include "support/end_to_end/RunningProduct.h"

#include "support/end_to_end/BuiltFiles.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/SampleInstallation.h"
#include "support/end_to_end/Services.h"
#include "support/end_to_end/Waiting.h"

#include <array>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <utility>

namespace Testing
{
namespace
{
std::vector<std::string>& LeftOver()
{
    static std::vector<std::string> lines;
    return lines;
}

std::wstring Quoted(const std::wstring& text)
{
    return L'"' + text + L'"';
}

// Where the program of a service lies.
std::wstring PlaceOf(const std::wstring& service)
{
    return (service == c_authService ? Expand(LR"(<ProgramFiles>\OrvaneAuthService\)")
                                     : InstallFolder() + LR"(\updater\)") +
           service + L".exe";
}

template <typename Mode>
std::wstring NumberOf(Mode mode)
{
    return std::to_wstring(static_cast<int>(mode));
}

// Starts a program outside its own folder, which could not be removed otherwise.
ProductProcess StartProcess(const std::wstring& program, const std::wstring& arguments, const ReadyEvent& ready)
{
    std::array<wchar_t, MAX_PATH> folder{};
    GetSystemDirectoryW(folder.data(), static_cast<UINT>(folder.size()));
    std::wstring commandLine = Quoted(program) + L" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, folder.data(),
                        &startup, &started))
    {
        ThrowWindowsError("Cannot start " + ToUtf8(program), GetLastError());
    }
    const UniqueHandle thread(started.hThread);
    ProductProcess process(UniqueHandle(started.hProcess), started.dwProcessId);
    ready.WaitFor(process.Handle(), program);
    return process;
}
} // namespace

PlacedProgram::PlacedProgram(std::wstring_view builtName, std::wstring path) : m_path(std::move(path))
{
    const std::wstring built = BuiltFile(builtName);
    if (ReadText(m_path) == ReadText(built))
    {
        return;
    }
    MakeFolder(m_path.substr(0, m_path.rfind(L'\\')));
    if (!CopyFileW(built.c_str(), m_path.c_str(), FALSE))
    {
        ThrowWindowsError("Cannot copy " + ToUtf8(built) + " to " + ToUtf8(m_path), GetLastError());
    }
    m_isOwn = true;
}

PlacedProgram::~PlacedProgram()
{
    const auto isGone = [&] {
        return DeleteFileW(m_path.c_str()) || GetFileAttributesW(m_path.c_str()) == INVALID_FILE_ATTRIBUTES;
    };
    // The file of a process that has just ended may still be in use for a moment.
    if (m_isOwn && !BecomesTrue(isGone))
    {
        LeftOver().push_back("The program " + ToUtf8(m_path) + " cannot be deleted.");
    }
}

// Services run in a session of their own, and look for it from there.
ReadyEvent::ReadyEvent()
    : m_name(L"Global\\Velmora.Sample." + std::to_wstring(GetCurrentProcessId()) + L"." +
             std::to_wstring(reinterpret_cast<std::uintptr_t>(this))),
      m_event(CreateEventW(nullptr, FALSE, FALSE, m_name.c_str()))
{
    if (!m_event)
    {
        ThrowWindowsError("Cannot make an event", GetLastError());
    }
}

void ReadyEvent::WaitFor(HANDLE process, const std::wstring& program) const
{
    const std::array<HANDLE, 2> handles{m_event.get(), process};
    switch (WaitForMultipleObjects(2, handles.data(), FALSE,
                                   static_cast<DWORD>(std::chrono::milliseconds(c_patience).count())))
    {
    case WAIT_OBJECT_0:
        return;
    case WAIT_OBJECT_0 + 1:
        throw std::runtime_error(ToUtf8(program) + " ended at once.");
    default:
        throw std::runtime_error(ToUtf8(program) + " did not tell in time that it runs.");
    }
}

ProductProcess::ProductProcess(UniqueHandle process, DWORD id) : m_process(std::move(process)), m_id(id) {}

ProductProcess::~ProductProcess()
{
    Terminate();
}

ProductProcess& ProductProcess::operator=(ProductProcess&& other) noexcept
{
    Terminate();
    m_process = std::move(other.m_process);
    m_id = other.m_id;
    return *this;
}

bool ProductProcess::IsRunning() const
{
    return m_process && !EndsWithin(std::chrono::milliseconds(0));
}

bool ProductProcess::EndsWithin(std::chrono::milliseconds limit) const
{
    return WaitForSingleObject(m_process.get(), static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0;
}

std::optional<DWORD> ProductProcess::ExitCode() const
{
    DWORD code = 0;
    if (!m_process || IsRunning() || !GetExitCodeProcess(m_process.get(), &code))
    {
        return std::nullopt;
    }
    return code;
}

void ProductProcess::Terminate() noexcept
{
    if (IsRunning())
    {
        TerminateProcess(m_process.get(), 0);
        if (!EndsWithin(c_patience))
        {
            LeftOver().push_back("The process " + std::to_string(m_id) + " still runs.");
        }
    }
}

SampleClient::SampleClient(std::wstring path, ClientMode mode, const std::wstring& startedAs)
    : m_program(L"Velmora.Sample.Client.exe", std::move(path)),
      m_requests(
          CreateSemaphoreW(nullptr, 0, c_mostRequests, (m_ready.Name() + std::wstring(c_requestsSuffix)).c_str())),
      m_process(StartProcess(startedAs.empty() ? m_program.Path() : startedAs, NumberOf(mode) + L" " + m_ready.Name(),
                             m_ready))
{}

LONG SampleClient::RequestsToClose() const
{
    // A semaphore does not tell its count otherwise.
    LONG count = 0;
    ReleaseSemaphore(m_requests.get(), 1, &count);
    WaitForSingleObject(m_requests.get(), 0);
    return count;
}

SampleService::SampleService(std::wstring_view name, ServiceMode mode, std::wstring path)
    : m_name(name),
      m_program(L"Velmora.Sample.Service.exe", path.empty() ? PlaceOf(m_name) : std::move(path))
{
    const UniqueService manager = OpenServiceManager(SC_MANAGER_CREATE_SERVICE);
    const std::wstring commandLine = Quoted(m_program.Path()) + L" " + NumberOf(mode) + L" " + m_ready.Name();
    const UniqueService service(CreateServiceW(manager.get(), m_name.c_str(), m_name.c_str(), SERVICE_QUERY_STATUS,
                                               SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                               commandLine.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (!service)
    {
        ThrowWindowsError("Cannot install the service " + ToUtf8(m_name), GetLastError());
    }
}

SampleService::~SampleService()
{
    try
    {
        Delete();
    }
    catch (const std::exception& exception)
    {
        LeftOver().emplace_back(exception.what());
    }
}

void SampleService::Start()
{
    const UniqueService service = OpenServiceOf(m_name, SERVICE_START);
    if (!service || !StartServiceW(service.get(), 0, nullptr))
    {
        ThrowWindowsError("Cannot start the service " + ToUtf8(m_name), GetLastError());
    }
    const auto status = QueryService(m_name);
    const DWORD id = status ? status->dwProcessId : 0;
    UniqueHandle process(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_TERMINATE, FALSE, id));
    if (!process)
    {
        ThrowWindowsError("Cannot open the process of the service " + ToUtf8(m_name), GetLastError());
    }
    m_process = ProductProcess(std::move(process), id);
    m_ready.WaitFor(m_process.Handle(), m_program.Path());
}

bool SampleService::IsInstalled() const
{
    return QueryService(m_name).has_value();
}

std::optional<DWORD> SampleService::State() const
{
    const auto status = QueryService(m_name);
    return status ? std::optional(status->dwCurrentState) : std::nullopt;
}

void SampleService::Delete()
{
    m_process = ProductProcess();
    if (const auto state = State(); state && *state != SERVICE_STOPPED)
    {
        ReportStopped(m_name);
    }
    if (const UniqueService service = OpenServiceOf(m_name, DELETE))
    {
        if (!DeleteService(service.get()) && GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE)
        {
            ThrowWindowsError("Cannot delete the service " + ToUtf8(m_name), GetLastError());
        }
    }
    if (!BecomesTrue([&] { return !IsInstalled(); }))
    {
        throw std::runtime_error("The service " + ToUtf8(m_name) + " is still installed.");
    }
}

std::vector<std::string> TakeLeftOver()
{
    return std::exchange(LeftOver(), {});
}
} // namespace Testing
