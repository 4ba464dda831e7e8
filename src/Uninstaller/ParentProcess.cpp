#include "Uninstaller/ParentProcess.h"

#include "Installer/CanonicalPath.h"
#include "Installer/Path.h"
#include "Installer/ProcessSnapshot.h"
#include "Uninstaller/Relocation.h"

#include <wil/win32_helpers.h>

#include <optional>
#include <string>
#include <utility>

namespace Uninstaller
{

namespace
{

// Longer than the shutdown of crash reporting takes.
constexpr DWORD c_timeoutMilliseconds = 5000;

// The path may be spelled differently: it is the one given to CreateProcessW.
bool IsCopy(const std::wstring& ownPath)
{
    return Installer::IsSamePath(ownPath, GetCopyPath());
}

// The parent's process ID; the parent may have exited, and the ID may be reused.
std::optional<DWORD> FindParentId()
{
    const DWORD self = GetCurrentProcessId();
    std::optional<DWORD> parent;
    if (const wil::unique_tool_help_snapshot snapshot = Installer::TakeProcessSnapshot())
    {
        Installer::ForEachProcess(snapshot, [&](const PROCESSENTRY32W& process) {
            if (process.th32ProcessID == self)
            {
                parent = process.th32ParentProcessID;
            }
        });
    }
    return parent;
}

std::optional<FILETIME> GetCreationTime(HANDLE process)
{
    FILETIME creationTime{};
    FILETIME exitTime{};
    FILETIME kernelTime{};
    FILETIME userTime{};
    return GetProcessTimes(process, &creationTime, &exitTime, &kernelTime, &userTime) ? std::optional(creationTime)
                                                                                      : std::nullopt;
}

// Whether a process is not newer than this one. A newer one only has the parent's reused ID.
bool IsNotNewer(HANDLE process)
{
    const auto other = GetCreationTime(process);
    const auto own = GetCreationTime(GetCurrentProcess());
    return other && own && CompareFileTime(&*other, &*own) <= 0;
}

bool RunsFrom(HANDLE process, const std::wstring& folder)
{
    wil::unique_cotaskmem_string image;
    if (FAILED(wil::QueryFullProcessImageNameW(process, 0, image)))
    {
        return false;
    }
    const auto file = Installer::GetCanonicalPath(image.get());
    const auto place = Installer::GetCanonicalPath(folder);
    return file && place && Installer::IsInside(*file, *place);
}

} // namespace

std::optional<ParentProcess> WaitForParentProcess(const std::wstring& ownPath,
                                                  const std::wstring& installFolder) noexcept
try
{
    const std::optional<DWORD> parent = IsCopy(ownPath) ? FindParentId() : std::nullopt;
    if (!parent)
    {
        return std::nullopt;
    }
    wil::unique_process_handle process(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, *parent));
    if (!process || !IsNotNewer(process.get()) || !RunsFrom(process.get(), installFolder) ||
        WaitForSingleObject(process.get(), c_timeoutMilliseconds) == WAIT_OBJECT_0)
    {
        return std::nullopt;
    }
    return ParentProcess{.id = *parent, .handle = std::move(process)};
}
catch (...)
{
    return std::nullopt;
}

} // namespace Uninstaller
