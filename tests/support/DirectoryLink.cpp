#include "support/DirectoryLink.h"

#include <windows.h>

#include <winioctl.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <vector>

namespace Testing
{

namespace
{

// A link that is made or removed by another program is waited for this often, a millisecond each.
constexpr int c_waits = 5000;

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

// Runs a program of the system below Wine and waits for what it should bring about: the program itself cannot be waited
// for.
bool RunUnixProgram(const std::wstring& program, const std::wstring& arguments, const std::function<bool()>& isDone)
{
    const std::wstring path = L"\\\\?\\unix\\bin\\" + program;
    std::wstring commandLine = L"\"" + path + L"\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(path.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
    {
        return false;
    }
    for (int wait = 0; wait < c_waits && !isDone(); ++wait)
    {
        // Not Sleep, which a test may have replaced: this handle is never signalled.
        WaitForSingleObject(GetCurrentProcess(), 1);
    }
    return isDone();
}

// What the file system keeps of a junction: ntifs.h has it, which programs do not include.
struct MountPoint
{
    DWORD tag;
    WORD dataLength;
    WORD reserved;
    WORD substituteNameOffset;
    WORD substituteNameLength;
    WORD printNameOffset;
    WORD printNameLength;
};

bool CreateJunction(const std::wstring& link, const std::wstring& target)
{
    constexpr size_t c_headerBytes = offsetof(MountPoint, substituteNameOffset);
    const std::wstring substitute = L"\\??\\" + target;
    const size_t nameBytes = substitute.size() * sizeof(wchar_t);
    const size_t terminatorsBytes = 2 * sizeof(wchar_t);
    std::vector<char> buffer(sizeof(MountPoint) + nameBytes + terminatorsBytes);
    MountPoint mountPoint{};
    mountPoint.tag = static_cast<DWORD>(IO_REPARSE_TAG_MOUNT_POINT);
    mountPoint.dataLength = static_cast<WORD>(buffer.size() - c_headerBytes);
    mountPoint.substituteNameLength = static_cast<WORD>(nameBytes);
    mountPoint.printNameOffset = static_cast<WORD>(nameBytes + sizeof(wchar_t));
    std::memcpy(buffer.data(), &mountPoint, sizeof(mountPoint));
    std::memcpy(buffer.data() + sizeof(mountPoint), substitute.data(), nameBytes);

    if (!CreateDirectoryW(link.c_str(), nullptr))
    {
        return false;
    }
    const HANDLE directory = CreateFileW(link.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (directory == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    DWORD returned = 0;
    const BOOL isSet = DeviceIoControl(directory, FSCTL_SET_REPARSE_POINT, buffer.data(),
                                       static_cast<DWORD>(buffer.size()), nullptr, 0, &returned, nullptr);
    CloseHandle(directory);
    return isSet != FALSE;
}

} // namespace

bool CreateDirectoryLink(const std::wstring& link, const std::wstring& target)
{
    const std::wstring linkPath = WithoutTrailingSeparator(link);
    const std::wstring targetPath = WithoutTrailingSeparator(target);
    if (CanRemoveDirectoryLinks())
    {
        return CreateJunction(linkPath, targetPath);
    }
    return RunUnixProgram(L"ln", L"-sn \"" + UnixName(targetPath) + L"\" \"" + UnixName(linkPath) + L"\"",
                          [&] { return IsLink(linkPath); });
}

bool RemoveDirectoryLink(const std::wstring& link)
{
    const std::wstring path = WithoutTrailingSeparator(link);
    if (CanRemoveDirectoryLinks())
    {
        return RemoveDirectoryW(path.c_str()) != FALSE;
    }
    return RunUnixProgram(L"rm", L"-f \"" + UnixName(path) + L"\"",
                          [&] { return GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES; });
}

bool CanRemoveDirectoryLinks()
{
    return FindUnixNameFunction() == nullptr;
}

} // namespace Testing
