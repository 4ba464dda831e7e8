#include "support/end_to_end/stand_ins/DirectorySearch.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{
namespace
{
struct Search
{
    std::vector<WIN32_FIND_DATAW> entries;
    std::size_t next = 0;
};

std::mutex s_lock;
std::map<HANDLE, std::unique_ptr<Search>> s_searches; // guarded by it

FILETIME ToFileTime(const LARGE_INTEGER& time)
{
    return {.dwLowDateTime = time.LowPart, .dwHighDateTime = static_cast<DWORD>(time.HighPart)};
}

WIN32_FIND_DATAW ToFindData(const FILE_ID_BOTH_DIR_INFO& entry)
{
    WIN32_FIND_DATAW data{};
    data.dwFileAttributes = entry.FileAttributes;
    data.ftCreationTime = ToFileTime(entry.CreationTime);
    data.ftLastAccessTime = ToFileTime(entry.LastAccessTime);
    data.ftLastWriteTime = ToFileTime(entry.LastWriteTime);
    data.nFileSizeHigh = static_cast<DWORD>(entry.EndOfFile.HighPart);
    data.nFileSizeLow = entry.EndOfFile.LowPart;
    // For a reparse point, its tag.
    data.dwReserved0 = (entry.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ? entry.EaSize : 0;
    const std::wstring_view name(&entry.FileName[0], entry.FileNameLength / sizeof(wchar_t));
    name.copy(data.cFileName, MAX_PATH - 1);
    return data;
}

// Empty when it cannot be read.
std::unique_ptr<Search> SearchFolder(const std::wstring& folder)
{
    const HANDLE handle =
        CreateFileW(folder.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
    {
        return nullptr;
    }
    auto search = std::make_unique<Search>();
    constexpr std::size_t c_size = 65536;
    alignas(FILE_ID_BOTH_DIR_INFO) std::array<std::byte, c_size> buffer{};
    while (GetFileInformationByHandleEx(handle, FileIdBothDirectoryInfo, buffer.data(), c_size))
    {
        for (const std::byte* place = buffer.data();;)
        {
            const auto& entry = *reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(place);
            search->entries.push_back(ToFindData(entry));
            if (entry.NextEntryOffset == 0)
            {
                break;
            }
            place += entry.NextEntryOffset;
        }
    }
    CloseHandle(handle);
    return search;
}
} // namespace

HANDLE WINAPI StandInForFindFirstFile(const wchar_t* path, WIN32_FIND_DATAW* found)
{
    const HANDLE handle = FindFirstFileW(path, found);
    constexpr std::wstring_view c_all = L"\\*";
    const std::wstring_view pattern = path;
    if (handle != INVALID_HANDLE_VALUE || GetLastError() != ERROR_SHARING_VIOLATION || !pattern.ends_with(c_all))
    {
        return handle;
    }
    auto search = SearchFolder(std::wstring(pattern.substr(0, pattern.size() - c_all.size())));
    if (!search || search->entries.empty())
    {
        SetLastError(ERROR_SHARING_VIOLATION);
        return INVALID_HANDLE_VALUE;
    }
    *found = search->entries[search->next++];
    const std::scoped_lock lock(s_lock);
    const HANDLE own = search.get();
    s_searches.emplace(own, std::move(search));
    return own;
}

BOOL WINAPI StandInForFindNextFile(HANDLE search, WIN32_FIND_DATAW* found)
{
    {
        const std::scoped_lock lock(s_lock);
        if (const auto own = s_searches.find(search); own != s_searches.end())
        {
            if (own->second->next == own->second->entries.size())
            {
                SetLastError(ERROR_NO_MORE_FILES);
                return FALSE;
            }
            *found = own->second->entries[own->second->next++];
            return TRUE;
        }
    }
    return FindNextFileW(search, found);
}

BOOL WINAPI StandInForFindClose(HANDLE search)
{
    {
        const std::scoped_lock lock(s_lock);
        if (s_searches.erase(search) != 0)
        {
            return TRUE;
        }
    }
    return FindClose(search);
}
} // namespace Testing
