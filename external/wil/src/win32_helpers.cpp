#include "wil/win32_helpers.h"

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

} // namespace wil::details
