// Delay-loaded libraries come from System32 only, as the imported ones do (LoadConfiguration.s).
#include <windows.h>

#include <delayimp.h>

#include <bit>

namespace
{

// Loads the library itself: the delay-load helper would search the default folders. A library that cannot be loaded is
// the helper's own exception here, since the helper would go on to search.
FARPROC WINAPI LoadFromSystem32(unsigned notification, DelayLoadInfo* information)
{
    if (notification != dliNotePreLoadLibrary)
    {
        return nullptr;
    }
    HMODULE library = LoadLibraryExA(information->szDll, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (library == nullptr)
    {
        information->dwLastError = GetLastError();
        const auto argument = std::bit_cast<ULONG_PTR>(information);
        RaiseException(static_cast<DWORD>(VcppException(ERROR_SEVERITY_ERROR, ERROR_MOD_NOT_FOUND)),
                       EXCEPTION_NONCONTINUABLE, 1, &argument);
    }
    return std::bit_cast<FARPROC>(library);
}

} // namespace

// The helper's hook. Visual C++ declares it const, mingw-w64 does not.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
decltype(__pfnDliNotifyHook2) __pfnDliNotifyHook2 = LoadFromSystem32;
