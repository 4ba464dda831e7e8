#include "support/StandIns.h"

#include "support/BuiltFiles.h"
#include "support/Names.h"
#include "support/stand_ins/LoadIntoProcess.h"
#include "support/stand_ins/SharedRecord.h"

#include <atomic>
#include <cstddef>
#include <stdexcept>

namespace Testing
{
namespace
{
std::wstring NextRecordName()
{
    static std::atomic<unsigned> count = 0;
    return L"Local\\Velmora.StandIns." + std::to_wstring(GetCurrentProcessId()) + L"." + std::to_wstring(++count);
}
} // namespace

StandIns::StandIns(const std::optional<KillMoment>& kill)
    : m_name(NextRecordName()),
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
    if (kill)
    {
        SharedMoment& end = m_record->end;
        kill->line.copy(end.line.data(), end.line.size() - 1);
        end.lines = kill->times;
        end.deletions = kill->deletions;
        end.exitCode = c_killed;
    }
}

StandIns::~StandIns() = default;

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
    std::vector<ServiceControl> controls;
    for (std::size_t index = 0; index < count; ++index)
    {
        const SharedControl& control = m_record->controls[index];
        controls.push_back({.sender = control.caller,
                            .serviceProcess = control.service,
                            .control = control.control,
                            .infoLevel = control.infoLevel,
                            .reason = control.reason,
                            .comment = control.comment.data(),
                            .error = control.error});
    }
    return controls;
}

bool StandIns::HasKilled() const noexcept
{
    return m_record->end.ended > 0;
}
} // namespace Testing
