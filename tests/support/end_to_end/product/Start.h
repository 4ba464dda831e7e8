// What all programs of the sample product do when they start.
#pragma once

#include "support/end_to_end/Owners.h"

#include <windows.h>

#include <sddl.h>

#include <cstdlib>
#include <span>

namespace Testing
{
// The program's command line, without its own name.
inline std::span<wchar_t* const> Arguments()
{
    return std::span<wchar_t* const>(__wargv, static_cast<std::size_t>(__argc)).subspan(1);
}

// The mode that an argument names by its number.
template <typename Mode>
Mode ModeFrom(const wchar_t* argument)
{
    return static_cast<Mode>(std::wcstol(argument, nullptr, 10));
}

// Tells whoever waits for it that the program runs. It is none the worse when nobody does.
inline void TellThatItRuns(const wchar_t* event)
{
    if (const UniqueHandle opened{OpenEventW(EVENT_MODIFY_STATE, FALSE, event)})
    {
        SetEvent(opened.get());
    }
}

// Takes the right to end this process from everybody who does not have it yet. Returns whether that worked.
inline bool ForbidToEnd()
{
    // Denied to everyone: PROCESS_TERMINATE. All else is allowed.
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(D;;0x1;;;WD)(A;;0x1ffffe;;;WD)", SDDL_REVISION_1,
                                                              &descriptor, nullptr))
    {
        return false;
    }
    const BOOL isSet = SetKernelObjectSecurity(GetCurrentProcess(), DACL_SECURITY_INFORMATION, descriptor);
    LocalFree(descriptor);
    return isSet;
}
} // namespace Testing
