#pragma once

#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <shellapi.h>

#include <string>
#include <vector>

namespace Testing
{

// The desktop of a user whose programs are not elevated: what is opened on it is noted.
class OpenedFiles
{
public:
    const std::vector<std::wstring>& All() const { return m_files; }

    // What ShellExecuteW returns next: above 32 is success.
    INT_PTR result = 33;

private:
    std::vector<std::wstring> m_files;
    Fake<&GetTokenInformation> m_token = [this](HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID data, DWORD size,
                                                PDWORD needed) -> BOOL {
        if (kind != TokenElevation)
        {
            return m_token.Hidden(token, kind, data, size, needed);
        }
        *static_cast<DWORD*>(data) = 0;
        *needed = size;
        return TRUE;
    };
    Fake<&ShellExecuteW> m_open = [this](HWND, LPCWSTR, LPCWSTR file, LPCWSTR, LPCWSTR, INT) -> HINSTANCE {
        m_files.emplace_back(file);
        SetLastError(ERROR_NO_ASSOCIATION);
        return reinterpret_cast<HINSTANCE>(result);
    };
};

} // namespace Testing
