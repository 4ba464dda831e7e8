#include "support/end_to_end/stand_ins/LoadIntoProcess.h"

#include "support/end_to_end/Owners.h"

#include <cwchar>

namespace Testing
{
namespace
{
constexpr DWORD c_limit = 60'000;

// Starts the thread that loads it, and waits for its end.
DWORD LoadThere(HANDLE process, void* library) noexcept
{
    // It lies at the same address in every process.
    auto* const load = reinterpret_cast<LPTHREAD_START_ROUTINE>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryW")));
    const UniqueHandle thread(CreateRemoteThread(process, nullptr, 0, load, library, 0, nullptr));
    if (!thread)
    {
        return GetLastError();
    }
    if (WaitForSingleObject(thread.get(), c_limit) != WAIT_OBJECT_0)
    {
        return ERROR_TIMEOUT;
    }
    // A part of the library's address: the thread's own error number is lost.
    DWORD loaded = 0;
    GetExitCodeThread(thread.get(), &loaded);
    return loaded != 0 ? ERROR_SUCCESS : ERROR_MOD_NOT_FOUND;
}
} // namespace

DWORD LoadIntoProcess(HANDLE process, const wchar_t* library) noexcept
{
    const SIZE_T size = (std::wcslen(library) + 1) * sizeof(wchar_t);
    void* const there = VirtualAllocEx(process, nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (there == nullptr)
    {
        return GetLastError();
    }
    const DWORD error =
        WriteProcessMemory(process, there, library, size, nullptr) ? LoadThere(process, there) : GetLastError();
    // A thread that is still loading would read it.
    if (error != ERROR_TIMEOUT)
    {
        VirtualFreeEx(process, there, 0, MEM_RELEASE);
    }
    return error;
}
} // namespace Testing
