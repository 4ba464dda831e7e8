#pragma once

#include <windows.h>

#include <wil/resource.h>

namespace Installer
{

// Enables a privilege of this process in its scope, and restores its previous state. False if the process does not have
// the privilege, or it cannot be enabled.
class ScopedPrivilege
{
public:
    explicit ScopedPrivilege(const wchar_t* name) noexcept;
    ~ScopedPrivilege();
    ScopedPrivilege(const ScopedPrivilege&) = delete;
    ScopedPrivilege& operator=(const ScopedPrivilege&) = delete;

    explicit operator bool() const noexcept { return m_isEnabled; }

private:
    wil::unique_handle m_token;
    TOKEN_PRIVILEGES m_previous{}; // empty if the privilege was enabled already
    bool m_isEnabled = false;
};

} // namespace Installer
