#include "Installer/ScopedPrivilege.h"

namespace Installer
{

ScopedPrivilege::ScopedPrivilege(const wchar_t* name) noexcept
{
    TOKEN_PRIVILEGES wanted{.PrivilegeCount = 1, .Privileges = {{.Luid = {}, .Attributes = SE_PRIVILEGE_ENABLED}}};
    if (!LookupPrivilegeValueW(nullptr, name, &wanted.Privileges[0].Luid) ||
        !OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, m_token.put()))
    {
        return;
    }
    DWORD size = 0;
    // Without the privilege, it succeeds with ERROR_NOT_ALL_ASSIGNED.
    m_isEnabled =
        AdjustTokenPrivileges(m_token.get(), FALSE, &wanted, sizeof(m_previous), &m_previous, &size) != FALSE &&
        GetLastError() == ERROR_SUCCESS;
}

ScopedPrivilege::~ScopedPrivilege()
{
    if (m_previous.PrivilegeCount != 0)
    {
        AdjustTokenPrivileges(m_token.get(), FALSE, &m_previous, 0, nullptr, nullptr);
    }
}

} // namespace Installer
