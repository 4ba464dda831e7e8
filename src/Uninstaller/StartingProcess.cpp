#include "Uninstaller/StartingProcess.h"

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

// Longer than crash reporting takes to close.
constexpr DWORD c_limitMilliseconds = 5000;

// A program is started by the path that its starter gives, in whatever spelling.
bool IsCopy(const std::wstring& ownPath)
{
    return Installer::IsSamePath(ownPath, GetCopyPath());
}

// The id that the process which started this one had.
std::optional<DWORD> FindParent()
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

std::optional<FILETIME> CreationTime(HANDLE process)
{
    FILETIME creation{};
    FILETIME end{};
    FILETIME inKernel{};
    FILETIME inProgram{};
    return GetProcessTimes(process, &creation, &end, &inKernel, &inProgram) ? std::optional(creation) : std::nullopt;
}

// Whether a process was there before this one: the id of one that has ended is given to others.
bool IsOlder(HANDLE process)
{
    const auto its = CreationTime(process);
    const auto own = CreationTime(GetCurrentProcess());
    return its && own && CompareFileTime(&*its, &*own) <= 0;
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

std::optional<StartingProcess> WaitForStartingProcess(const std::wstring& ownPath,
                                                      const std::wstring& installFolder) noexcept
try
{
    const std::optional<DWORD> parent = IsCopy(ownPath) ? FindParent() : std::nullopt;
    if (!parent)
    {
        return std::nullopt;
    }
    wil::unique_process_handle process(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, *parent));
    if (!process || !IsOlder(process.get()) || !RunsFrom(process.get(), installFolder) ||
        WaitForSingleObject(process.get(), c_limitMilliseconds) == WAIT_OBJECT_0)
    {
        return std::nullopt;
    }
    return StartingProcess{.id = *parent, .handle = std::move(process)};
}
catch (...)
{
    return std::nullopt;
}

} // namespace Uninstaller
