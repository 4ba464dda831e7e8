#pragma once

#include "support/Names.h"
#include "support/Owners.h"

#include <windows.h>

namespace Testing
{
// The token of a user whose administrator's rights are asleep.
inline UniqueHandle LimitedToken()
{
    HANDLE own = nullptr;
    OpenProcessToken(GetCurrentProcess(), MAXIMUM_ALLOWED, &own);
    const UniqueHandle ownToken(own);
    TOKEN_LINKED_TOKEN linked{};
    DWORD size = 0;
    if (!GetTokenInformation(own, TokenLinkedToken, &linked, sizeof(linked), &size))
    {
        ThrowWindowsError("There is no limited token", GetLastError());
    }
    const UniqueHandle limited(linked.LinkedToken);
    HANDLE primary = nullptr;
    if (!DuplicateTokenEx(limited.get(), MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary, &primary))
    {
        ThrowWindowsError("The limited token cannot be used", GetLastError());
    }
    return UniqueHandle(primary);
}
} // namespace Testing
