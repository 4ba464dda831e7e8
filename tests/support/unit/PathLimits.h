#pragma once

#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace Testing
{

// While this lives, Windows refuses what it refuses on a machine on which long paths are not enabled: without "\\?\" in
// front, paths of MAX_PATH characters, with the zero at the end, are the longest ones.
class PathLimits
{
private:
    static constexpr std::size_t c_longest = MAX_PATH - 1;
    // A file with a short name still fits into such a folder.
    static constexpr std::size_t c_longestFolder = MAX_PATH - 12 - 1;

    static bool Refuses(std::wstring_view path, DWORD error = ERROR_PATH_NOT_FOUND, std::size_t longest = c_longest)
    {
        const bool isTooLong = !path.starts_with(L"\\\\?\\") && path.size() > longest;
        if (isTooLong)
        {
            SetLastError(error);
        }
        return isTooLong;
    }

    std::map<HANDLE, std::wstring> m_opened;

    Fake<&CreateFileW> m_create = [this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                         DWORD disposition, DWORD flags, HANDLE model) {
        const HANDLE file = Refuses(path) ? INVALID_HANDLE_VALUE
                                          : m_create.Hidden(path, access, share, security, disposition, flags, model);
        m_opened[file] = path;
        return file;
    };
    // Wine does not tell long names. What is opened in a test by a long name has that one.
    Fake<&GetFinalPathNameByHandleW> m_finalPath = [this](HANDLE file, LPWSTR name, DWORD size, DWORD kind) -> DWORD {
        std::wstring path = m_opened[file];
        path.erase(path.find_last_not_of(L'\\') + 1);
        const auto length = static_cast<DWORD>(path.size());
        if (kind != VOLUME_NAME_DOS || length <= c_longest)
        {
            return m_finalPath.Hidden(file, name, size, kind);
        }
        if (length >= size)
        {
            return length + 1;
        }
        name[path.copy(name, length)] = L'\0';
        return length;
    };
    Fake<&GetFileAttributesW> m_attributes = [this](LPCWSTR path) {
        return Refuses(path) ? INVALID_FILE_ATTRIBUTES : m_attributes.Hidden(path);
    };
    Fake<&FindFirstFileW> m_find = [this](LPCWSTR path, LPWIN32_FIND_DATAW data) {
        return Refuses(path) ? INVALID_HANDLE_VALUE : m_find.Hidden(path, data);
    };
    Fake<&DeleteFileW> m_deleteFile = [this](LPCWSTR path) -> BOOL {
        return !Refuses(path) && m_deleteFile.Hidden(path);
    };
    Fake<&RemoveDirectoryW> m_removeFolder = [this](LPCWSTR path) -> BOOL {
        return !Refuses(path) && m_removeFolder.Hidden(path);
    };
    Fake<&CreateDirectoryW> m_createFolder = [this](LPCWSTR path, LPSECURITY_ATTRIBUTES security) -> BOOL {
        return !Refuses(path, ERROR_FILENAME_EXCED_RANGE, c_longestFolder) && m_createFolder.Hidden(path, security);
    };
    Fake<&CopyFileExW> m_copy = [this](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE routine, LPVOID data, LPBOOL cancel,
                                       DWORD flags) -> BOOL {
        return !Refuses(from) && !Refuses(to) && m_copy.Hidden(from, to, routine, data, cancel, flags);
    };
    // The buffer has to hold the whole path, however short the answer is.
    Fake<&GetVolumePathNameW> m_volume = [this](LPCWSTR path, LPWSTR volume, DWORD size) -> BOOL {
        if (std::wstring_view(path).size() >= size)
        {
            SetLastError(ERROR_FILENAME_EXCED_RANGE);
            return FALSE;
        }
        return !Refuses(path, ERROR_FILENAME_EXCED_RANGE) && m_volume.Hidden(path, volume, size);
    };
};

} // namespace Testing
