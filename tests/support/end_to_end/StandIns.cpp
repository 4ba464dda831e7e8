#include "support/end_to_end/StandIns.h"

#include "support/end_to_end/BuiltFiles.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Services.h"
#include "support/end_to_end/product/Product.h"
#include "support/end_to_end/stand_ins/LoadIntoProcess.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace Testing
{
namespace
{
// The process of a service that has not said that it stopped; nothing when there is no such service.
std::optional<DWORD> ActiveProcessOf(const std::wstring& name)
{
    const auto status = QueryService(name);
    return status && status->dwCurrentState != SERVICE_STOPPED ? std::optional(status->dwProcessId) : std::nullopt;
}
} // namespace

StandIns::StandIns(int killAfterLines)
    : m_name(L"Local\\Velmora.StandIns." + std::to_wstring(GetCurrentProcessId()) + L"." +
             std::to_wstring(reinterpret_cast<std::uintptr_t>(this))),
      m_mapping(
          CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(SharedRecord), m_name.c_str())),
      m_record(static_cast<SharedRecord*>(MapViewOfFile(m_mapping.get(), FILE_MAP_WRITE, 0, 0, sizeof(SharedRecord))))
{
    if (!m_record)
    {
        ThrowWindowsError("Cannot make shared memory", GetLastError());
    }
    const std::wstring library = BuiltFile(L"Velmora.Sample.StandIns.dll");
    if (library.size() >= m_record->library.size())
    {
        throw std::runtime_error("The path is too long: " + ToUtf8(library));
    }
    library.copy(m_record->library.data(), library.size());
    for (const std::wstring_view name : c_productServices)
    {
        if (const auto id = ActiveProcessOf(std::wstring(name)))
        {
            m_services.push_back({std::wstring(name), *id, UniqueHandle(OpenProcess(SYNCHRONIZE, FALSE, *id))});
        }
    }
    m_record->linesLeft = killAfterLines;
}

void StandIns::Look()
{
    std::erase_if(m_services, [](const RunningService& service) {
        if (service.process && WaitForSingleObject(service.process.get(), 0) == WAIT_TIMEOUT)
        {
            return false;
        }
        // It may have said so itself, or have been started again.
        if (ActiveProcessOf(service.name) == service.processId)
        {
            ReportStopped(service.name);
        }
        return true;
    });
}

std::pair<std::wstring, std::wstring> StandIns::Variable() const
{
    return {c_recordVariable, m_name};
}

void StandIns::LoadInto(HANDLE process) const
{
    const DWORD error = LoadIntoProcess(process, m_record->library.data());
    if (error != ERROR_SUCCESS)
    {
        ThrowWindowsError("Cannot load " + ToUtf8(m_record->library.data()) + " into the program", error);
    }
}

std::vector<ServiceControl> StandIns::ServiceControls() const
{
    if (m_record->notFollowed != 0)
    {
        ThrowWindowsError("A process that the program has started runs without the stand-ins",
                          static_cast<DWORD>(m_record->notFollowed));
    }
    const auto count = static_cast<std::size_t>(m_record->controlCount);
    if (count > m_record->controls.size())
    {
        throw std::runtime_error("The program has sent " + std::to_string(count) + " controls to services.");
    }
    return {m_record->controls.begin(), m_record->controls.begin() + static_cast<std::ptrdiff_t>(count)};
}

std::vector<std::string> StandIns::Violations() const
{
    const auto count = std::min(static_cast<std::size_t>(m_record->violationCount), m_record->violations.size());
    std::vector<std::string> violations;
    for (std::size_t index = 0; index < count; ++index)
    {
        violations.emplace_back(m_record->violations[index].data());
    }
    return violations;
}
} // namespace Testing
