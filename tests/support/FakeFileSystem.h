#pragma once

#include "support/ImportTableFake.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{

// The files of a whole machine in memory, on its one drive C:. Nothing real is touched: what a test did not put there
// is not there. Names are compared without regard to letter case; of sharing only this is known: what isInUse says is
// in use cannot be deleted.
class FakeFileSystem
{
public:
    FakeFileSystem();

    // Makes a folder with all parents, or a file in such a folder. Paths are full ones.
    void AddFolder(const std::wstring& path);
    void AddFile(const std::wstring& path, const std::string& content = "content", DWORD attributes = 0);

    bool Has(const std::wstring& path) const;
    // Everything that is there, each with its full path.
    std::vector<std::wstring> All() const;

    // How many handles are open now, to files, folders and searches.
    std::size_t OpenHandles() const { return m_open.size() + m_searches.size(); }

    // Whether a file cannot be deleted.
    std::function<bool(const std::wstring& path)> isInUse = [](const std::wstring&) { return false; };
    // Is told of everything that is written, with the path of the file.
    std::function<void(const std::wstring& path, const std::string& text)> onWrite = [](const std::wstring&,
                                                                                        const std::string&) {};

    // What goes at the next start of the machine.
    const std::vector<std::wstring>& Scheduled() const { return m_scheduled; }

private:
    struct Node
    {
        std::wstring path; // as it was made
        DWORD attributes;
        std::string content{};

        bool IsFolder() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
    };
    struct Opened
    {
        std::wstring key;
        bool goesWithHandle = false;
        bool isListed = false;
    };
    struct Search
    {
        std::vector<Node> found;
        std::size_t next = 0;
    };

    static std::wstring KeyOf(std::wstring path);
    static std::wstring ParentOf(const std::wstring& key);
    // The nodes that lie in a folder, not below.
    std::vector<Node> ChildrenOf(const std::wstring& key) const;
    const Node* Find(const std::wstring& key) const;
    const Node* FindOpened(HANDLE handle) const;
    // Sets the error of a path that is not there; returns it.
    DWORD AbsenceOf(const std::wstring& key) const;
    static BOOL Fail(DWORD error);
    HANDLE NextHandle();
    DWORD Remove(const std::wstring& key);

    HANDLE Open(const std::wstring& path, DWORD access, DWORD disposition, DWORD flags);
    BOOL Write(HANDLE handle, const void* data, DWORD size, DWORD* written);
    void CloseOpened(HANDLE handle);
    BOOL List(Opened& opened, bool fromStart, void* data, DWORD size) const;
    BOOL Read(HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, void* data, DWORD size);
    BOOL Dispose(HANDLE handle);
    BOOL NextFound(HANDLE handle, WIN32_FIND_DATAW& data);

    static constexpr ULONG_PTR c_firstHandle = 0x6A000000; // no real handle is as large

    std::map<std::wstring, Node> m_nodes; // by path in lower case
    std::map<HANDLE, Opened> m_open;
    std::map<HANDLE, Search> m_searches;
    std::vector<std::wstring> m_scheduled;
    ULONG_PTR m_lastHandle = c_firstHandle;

    Fake<&CreateFileW> m_createFile = [this](LPCWSTR path, DWORD access, DWORD, LPSECURITY_ATTRIBUTES,
                                             DWORD disposition, DWORD flags,
                                             HANDLE) { return Open(path, access, disposition, flags); };
    Fake<&WriteFile> m_writeFile = [this](HANDLE handle, LPCVOID data, DWORD size, LPDWORD written,
                                          LPOVERLAPPED overlapped) {
        return m_open.contains(handle) ? Write(handle, data, size, written)
                                       : m_writeFile.Hidden(handle, data, size, written, overlapped);
    };
    Fake<&CloseHandle> m_close = [this](HANDLE handle) -> BOOL {
        if (!m_open.contains(handle))
        {
            const auto value = reinterpret_cast<ULONG_PTR>(handle);
            EXPECT_FALSE(value > c_firstHandle && value <= m_lastHandle) << "a file is closed twice";
            return m_close.Hidden(handle);
        }
        CloseOpened(handle);
        return TRUE;
    };
    Fake<&CreateDirectoryW> m_createDirectory = [this](LPCWSTR path, LPSECURITY_ATTRIBUTES) -> BOOL {
        const std::wstring key = KeyOf(path);
        if (Find(key) != nullptr)
        {
            return Fail(ERROR_ALREADY_EXISTS);
        }
        if (Find(ParentOf(key)) == nullptr)
        {
            return Fail(ERROR_PATH_NOT_FOUND);
        }
        AddFolder(path);
        return TRUE;
    };
    Fake<&RemoveDirectoryW> m_removeDirectory = [this](LPCWSTR path) -> BOOL {
        const std::wstring key = KeyOf(path);
        const Node* const node = Find(key);
        if (node == nullptr || !node->IsFolder())
        {
            return Fail(node == nullptr ? AbsenceOf(key) : ERROR_DIRECTORY);
        }
        const DWORD error = Remove(key);
        return error == ERROR_SUCCESS || Fail(error);
    };
    Fake<&DeleteFileW> m_deleteFile = [this](LPCWSTR path) -> BOOL {
        const std::wstring key = KeyOf(path);
        const Node* const node = Find(key);
        if (node == nullptr)
        {
            return Fail(AbsenceOf(key));
        }
        if (node->IsFolder() || (node->attributes & FILE_ATTRIBUTE_READONLY) != 0)
        {
            return Fail(ERROR_ACCESS_DENIED);
        }
        const DWORD error = Remove(key);
        return error == ERROR_SUCCESS || Fail(error);
    };
    Fake<&GetFileAttributesW> m_attributes = [this](LPCWSTR path) -> DWORD {
        const std::wstring key = KeyOf(path);
        const Node* const node = Find(key);
        if (node == nullptr)
        {
            Fail(AbsenceOf(key));
            return INVALID_FILE_ATTRIBUTES;
        }
        return node->attributes;
    };
    Fake<&GetFileInformationByHandle> m_information = [this](HANDLE handle,
                                                             LPBY_HANDLE_FILE_INFORMATION information) -> BOOL {
        const Node* const node = FindOpened(handle);
        if (node == nullptr)
        {
            return Fail(ERROR_INVALID_HANDLE);
        }
        *information = {};
        information->dwFileAttributes = node->attributes;
        information->nFileSizeLow = static_cast<DWORD>(node->content.size());
        information->nNumberOfLinks = 1;
        return TRUE;
    };
    Fake<&GetFileInformationByHandleEx> m_informationEx = [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind,
                                                                 LPVOID data,
                                                                 DWORD size) { return Read(handle, kind, data, size); };
    Fake<&SetFileInformationByHandle> m_setInformation = [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS, LPVOID,
                                                                DWORD) { return Dispose(handle); };
    Fake<&GetFinalPathNameByHandleW> m_finalPath = [this](HANDLE handle, LPWSTR path, DWORD size, DWORD) -> DWORD {
        const Node* const node = FindOpened(handle);
        if (node == nullptr)
        {
            Fail(ERROR_INVALID_HANDLE);
            return 0;
        }
        const std::wstring name = L"\\\\?\\" + node->path + (node->path.size() == 2 ? L"\\" : L"");
        if (size <= name.size())
        {
            return static_cast<DWORD>(name.size() + 1);
        }
        path[name.copy(path, name.size())] = L'\0';
        return static_cast<DWORD>(name.size());
    };
    Fake<&GetVolumePathNameW> m_volume = [](LPCWSTR, LPWSTR volume, DWORD size) -> BOOL {
        constexpr std::wstring_view root = L"C:\\";
        if (size <= root.size())
        {
            return Fail(ERROR_FILENAME_EXCED_RANGE);
        }
        volume[root.copy(volume, root.size())] = L'\0';
        return TRUE;
    };
    Fake<&FindFirstFileW> m_findFirst = [this](LPCWSTR pattern, LPWIN32_FIND_DATAW data) -> HANDLE {
        std::wstring folder = pattern;
        folder.resize(folder.rfind(L'\\'));
        const std::wstring key = KeyOf(folder);
        if (Find(key) == nullptr)
        {
            Fail(AbsenceOf(key));
            return INVALID_HANDLE_VALUE;
        }
        HANDLE handle = NextHandle();
        Search search{.found = ChildrenOf(key)};
        search.found.insert(search.found.begin(), {{folder + L"\\.", FILE_ATTRIBUTE_DIRECTORY},
                                                   {folder + L"\\..", FILE_ATTRIBUTE_DIRECTORY}});
        m_searches[handle] = std::move(search);
        NextFound(handle, *data);
        return handle;
    };
    Fake<&FindNextFileW> m_findNext = [this](HANDLE handle, LPWIN32_FIND_DATAW data) {
        return NextFound(handle, *data);
    };
    Fake<&FindClose> m_findClose = [this](HANDLE handle) -> BOOL {
        return m_searches.erase(handle) == 1 || Fail(ERROR_INVALID_HANDLE);
    };
    Fake<&MoveFileExW> m_move = [this](LPCWSTR from, LPCWSTR to, DWORD flags) -> BOOL {
        if (to != nullptr || flags != MOVEFILE_DELAY_UNTIL_REBOOT)
        {
            return Fail(ERROR_NOT_SUPPORTED);
        }
        m_scheduled.emplace_back(from);
        return TRUE;
    };
    Fake<&CopyFileExW> m_copy = [this](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE, LPVOID, LPBOOL, DWORD) -> BOOL {
        const Node* const node = Find(KeyOf(from));
        if (node == nullptr || Find(ParentOf(KeyOf(to))) == nullptr)
        {
            return Fail(node == nullptr ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
        }
        AddFile(to, node->content);
        return TRUE;
    };
};

} // namespace Testing
