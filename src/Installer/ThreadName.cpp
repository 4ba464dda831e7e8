#include "Installer/ThreadName.h"

#include "Installer/SystemFunction.h"

#include <windows.h>

namespace Installer
{

void NameThread(const wchar_t* name) noexcept
{
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    constexpr char functionName[] = "SetThreadDescription";
    auto setDescription = FindSystemFunction<SetDescription>(L"kernel32.dll", functionName);
    if (setDescription == nullptr) // Windows 10, version 1607, exports it from there only
    {
        setDescription = FindSystemFunction<SetDescription>(L"kernelbase.dll", functionName);
    }
    if (setDescription != nullptr)
    {
        setDescription(GetCurrentThread(), name);
    }
}

} // namespace Installer
