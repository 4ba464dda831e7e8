// As whom a process runs.
#pragma once

#include "support/end_to_end/Owners.h"
#include "support/end_to_end/Wine.h"

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

// Elevates this process as newer versions of Wine elevate a program whose manifest requires it, without asking anybody.
// Older ones elevate all programs. On Windows a process cannot elevate itself, and nothing is done.
inline void ElevateUnderWine()
{
    struct AccessToken
    {
        HANDLE token;
        HANDLE thread;
    };
    using SetInformation = LONG(NTAPI*)(HANDLE process, ULONG kind, void* information, ULONG size);
    constexpr ULONG c_accessToken = 9;
    TOKEN_LINKED_TOKEN linked{};
    DWORD size = 0;
    if (!IsWine() || IsElevated(GetCurrentProcessToken()) ||
        !GetTokenInformation(GetCurrentProcessToken(), TokenLinkedToken, &linked, sizeof(linked), &size))
    {
        return;
    }
    const UniqueHandle elevated(linked.LinkedToken);
    HANDLE primary = nullptr;
    DuplicateTokenEx(elevated.get(), MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary, &primary);
    const UniqueHandle owned(primary);
    AccessToken token{.token = primary, .thread = nullptr};
    const HMODULE library = GetModuleHandleW(L"ntdll.dll");
    const auto function = reinterpret_cast<void*>(GetProcAddress(library, "NtSetInformationProcess"));
    reinterpret_cast<SetInformation>(function)(GetCurrentProcess(), c_accessToken, &token, sizeof(token));
}
} // namespace Testing
