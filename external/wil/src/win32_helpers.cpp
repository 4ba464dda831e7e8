#include "wil/win32_helpers.h"

#include <string>
#include <utility>

namespace wil::details
{

std::wstring ModuleFileName(HMODULE module)
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;)
    {
        const DWORD length = ::GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        THROW_LAST_ERROR_IF(length == 0);
        if (length < path.size())
        {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

HRESULT ProcessImageName(HANDLE process, DWORD flags, unique_cotaskmem_string& result) noexcept
{
    for (DWORD size = MAX_PATH;; size *= 2)
    {
        unique_cotaskmem_string name(static_cast<PWSTR>(::CoTaskMemAlloc(size * sizeof(wchar_t))));
        RETURN_IF_NULL_ALLOC(name);
        DWORD length = size;
        if (::QueryFullProcessImageNameW(process, flags, name.get(), &length))
        {
            result = std::move(name);
            return S_OK;
        }
        RETURN_LAST_ERROR_IF(::GetLastError() != ERROR_INSUFFICIENT_BUFFER);
    }
}

} // namespace wil::details
