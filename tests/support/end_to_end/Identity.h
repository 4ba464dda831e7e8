// As whom a process runs.
#pragma once

#include "support/end_to_end/Owners.h"

#include <windows.h>

#include <sddl.h>

#include <array>
#include <cstddef>
#include <string>

namespace Testing
{
// The security identifier of a token's user; empty when it is not told.
inline std::wstring UserOf(HANDLE token)
{
    alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user{};
    DWORD size = 0;
    wchar_t* text = nullptr;
    if (!GetTokenInformation(token, TokenUser, user.data(), static_cast<DWORD>(user.size()), &size) ||
        !ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid, &text))
    {
        return {};
    }
    const UniqueLocalMemory owned(text);
    return text;
}

// Whether it is elevated: so it is said to be, too, when that is not told.
inline bool IsElevated(HANDLE token)
{
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    return !GetTokenInformation(token, TokenElevation, &elevation, sizeof(elevation), &size) ||
           elevation.TokenIsElevated != 0;
}
} // namespace Testing
