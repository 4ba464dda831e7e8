#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/Journal.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <shlobj.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

namespace Testing
{

// Gives a path as Windows does. Returns its length, or, for a buffer that is too small, the size that it needs.
inline DWORD GivePath(std::wstring_view path, DWORD size, LPWSTR buffer)
{
    if (size <= path.size())
    {
        return static_cast<DWORD>(path.size() + 1);
    }
    buffer[path.copy(buffer, path.size())] = L'\0';
    return static_cast<DWORD>(path.size());
}

// The machine's well-known folders, moved below a folder of the test's own. With a journal, the calls for them are
// noted there: SHGetKnownFolderPath(ProgramData, 0x0), GetTempPathW(260). What Windows allocates must be freed.
class FakeFolders
{
public:
    explicit FakeFolders(const TestFolder& root, Journal* journal = nullptr) : m_root(root), m_journal(journal)
    {
        root.AddFolder(L"Temp");
        for (const Folder& folder : c_folders)
        {
            root.AddFolder(folder.path);
        }
    }
    ~FakeFolders() { EXPECT_TRUE(m_allocated.empty()) << "paths were not freed"; }
    FakeFolders(const FakeFolders&) = delete;
    FakeFolders& operator=(const FakeFolders&) = delete;

    // Below the root; the temporary folder ends in a backslash, as Windows gives it.
    std::wstring Temp() const { return m_root / L"Temp\\"; }
    std::wstring ProgramFiles() const { return m_root / L"Program Files"; }
    // On a real machine the same; here another, so that nobody takes one for the other.
    std::wstring ProgramFilesX64() const { return m_root / L"Program Files X64"; }
    std::wstring ProgramData() const { return m_root / L"ProgramData"; }

    // Finds the folders of a user, by a token.
    std::function<HRESULT(REFKNOWNFOLDERID, DWORD, HANDLE, std::wstring&)> ofUser =
        [](REFKNOWNFOLDERID, DWORD, HANDLE, std::wstring&) { return E_INVALIDARG; };

private:
    struct Folder
    {
        const KNOWNFOLDERID& id;
        const char* name;
        const wchar_t* path;
    };
    static inline const Folder c_folders[] = {{FOLDERID_ProgramFiles, "ProgramFiles", L"Program Files"},
                                              {FOLDERID_ProgramFilesX64, "ProgramFilesX64", L"Program Files X64"},
                                              {FOLDERID_ProgramData, "ProgramData", L"ProgramData"},
                                              {FOLDERID_PublicDesktop, "PublicDesktop", L"Desktop"},
                                              {FOLDERID_CommonPrograms, "CommonPrograms", L"Programs"}};

    HRESULT Find(REFKNOWNFOLDERID id, DWORD flags, std::wstring& path)
    {
        const auto* const folder = std::ranges::find_if(c_folders, [&](const Folder& its) { return its.id == id; });
        if (folder == std::end(c_folders) || (flags & ~DWORD{KF_FLAG_DONT_VERIFY | KF_FLAG_DEFAULT_PATH}) != 0)
        {
            return E_INVALIDARG;
        }
        path = m_root / folder->path;
        return m_journal == nullptr
                   ? S_OK
                   : static_cast<HRESULT>(m_journal->Add("SHGetKnownFolderPath", folder->name, Mask(flags)));
    }

    const TestFolder& m_root;
    Journal* m_journal;
    std::set<const void*> m_allocated;

    Fake<&SHGetKnownFolderPath> m_knownFolder = [this](REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR* path) {
        std::wstring folder;
        const HRESULT result = token == nullptr ? Find(id, flags, folder) : ofUser(id, flags, token, folder);
        *path = nullptr;
        if (SUCCEEDED(result))
        {
            *path = static_cast<PWSTR>(CoTaskMemAlloc((folder.size() + 1) * sizeof(wchar_t)));
            (*path)[folder.copy(*path, folder.size())] = L'\0';
            m_allocated.insert(*path);
        }
        return result;
    };
    Fake<&CoTaskMemFree> m_free = [this](void* memory) {
        m_allocated.erase(memory);
        m_free.Hidden(memory);
    };
    Fake<&GetTempPathW> m_tempPath = [this](DWORD size, LPWSTR path) -> DWORD {
        if (const DWORD error = m_journal == nullptr ? ERROR_SUCCESS : m_journal->Add("GetTempPathW", size))
        {
            SetLastError(error);
            return 0;
        }
        return GivePath(Temp(), size, path);
    };
};

} // namespace Testing
