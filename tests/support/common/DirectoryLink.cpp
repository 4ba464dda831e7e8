#include "support/common/DirectoryLink.h"

#include <windows.h>

#include <functional>

namespace Testing
{
namespace
{
// Wine's function that tells a path of the system below it, in a buffer of the process heap; null on Windows.
using UnixNameFunction = char*(CDECL*)(const wchar_t*);

UnixNameFunction FindUnixNameFunction()
{
    return reinterpret_cast<UnixNameFunction>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
}

bool IsLink(const std::wstring& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

std::wstring WithoutTrailingSeparator(std::wstring path)
{
    path.erase(path.find_last_not_of(L"\\/") + 1);
    return path;
}

std::wstring UnixName(const std::wstring& path)
{
    char* const name = FindUnixNameFunction()(path.c_str());
    if (!name)
    {
        return {};
    }
    std::wstring result(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, name, -1, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, name, -1, result.data(), static_cast<int>(result.size()));
    HeapFree(GetProcessHeap(), 0, name);
    result.pop_back();
    return result;
}

// Runs a program with these arguments and waits, for five seconds at most, for what it should bring about: one of the
// system below Wine cannot be waited for.
bool RunUntil(const std::wstring& program, const std::wstring& arguments, const std::function<bool()>& isDone)
{
    std::wstring commandLine = L"\"" + program + L"\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
    {
        return false;
    }
    for (int wait = 0; wait < 5000 && !isDone(); ++wait)
    {
        // Not Sleep, which a test may have replaced: this handle is never signalled.
        WaitForSingleObject(GetCurrentProcess(), 1);
    }
    return isDone();
}
} // namespace

bool CreateDirectoryLink(const std::wstring& link, const std::wstring& target)
{
    const std::wstring path = WithoutTrailingSeparator(link);
    const std::wstring targetPath = WithoutTrailingSeparator(target);
    const auto isDone = [&] { return IsLink(path); };
    if (CanRemoveDirectoryLinks())
    {
        return RunUntil(LR"(C:\Windows\System32\cmd.exe)", L"/c mklink /j \"" + path + L"\" \"" + targetPath + L"\"",
                        isDone);
    }
    return RunUntil(LR"(\\?\unix\bin\ln)", L"-sn \"" + UnixName(targetPath) + L"\" \"" + UnixName(path) + L"\"",
                    isDone);
}

bool RemoveDirectoryLink(const std::wstring& link)
{
    const std::wstring path = WithoutTrailingSeparator(link);
    if (CanRemoveDirectoryLinks())
    {
        return RemoveDirectoryW(path.c_str()) != FALSE;
    }
    return RunUntil(LR"(\\?\unix\bin\rm)", L"-f \"" + UnixName(path) + L"\"",
                    [&] { return GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES; });
}

bool CanRemoveDirectoryLinks()
{
    return FindUnixNameFunction() == nullptr;
}
} // namespace Testing
