#include "Installer/ProcessSnapshot.h"

#include <functional>

namespace Installer
{

wil::unique_tool_help_snapshot TakeProcessSnapshot() noexcept
{
    return wil::unique_tool_help_snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
}

void ForEachProcess(const wil::unique_tool_help_snapshot& snapshot,
                    const std::function<void(const PROCESSENTRY32W&)>& examine)
{
    PROCESSENTRY32W process{};
    process.dwSize = sizeof(process);
    static_assert(sizeof(process) == 568);
    if (!Process32FirstW(snapshot.get(), &process))
    {
        return;
    }
    // The first entry is the idle process.
    while (Process32NextW(snapshot.get(), &process))
    {
        examine(process);
    }
}

} // namespace Installer
