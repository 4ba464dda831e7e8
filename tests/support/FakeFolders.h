#pragma once

#include "support/ImportTableFake.h"
#include "support/TestFolder.h"

#include <windows.h>

#include <shlobj.h>

#include <cwchar>
#include <functional>
#include <string>

namespace Testing
{

// The machine's well-known folders, moved below a folder of the test's own.
class FakeFolders
{
public:
    explicit FakeFolders(const TestFolder& root) : m_root(root)
    {
        for (const wchar_t* const name :
             {L"Temp", L"Program Files", L"Program Files X64", L"ProgramData", L"Desktop", L"Programs"})
        {
            root.AddFolder(name);
        }
    }

    // Below the root; the temporary folder ends in a backslash, as Windows gives it.
    std::wstring Temp() const { return m_root / L"Temp\\"; }
    std::wstring ProgramFiles() const { return m_root / L"Program Files"; }
    // On a real machine the same; here another, so that nobody takes one for the other.
    std::wstring ProgramFilesX64() const { return m_root / L"Program Files X64"; }
    std::wstring ProgramData() const { return m_root / L"ProgramData"; }
    std::wstring PublicDesktop() const { return m_root / L"Desktop"; }
    std::wstring CommonPrograms() const { return m_root / L"Programs"; }

    // What the calls return next.
    HRESULT knownFolderResult = S_OK;
    bool tempPathFails = false;

    // Answers for a user's token.
    std::function<HRESULT(REFKNOWNFOLDERID, DWORD, HANDLE, PWSTR*)> ofUser = [](REFKNOWNFOLDERID, DWORD, HANDLE,
                                                                                PWSTR* path) {
        *path = nullptr;
        return E_INVALIDARG;
    };

private:
    std::wstring Find(const KNOWNFOLDERID& id) const
    {
        if (id == FOLDERID_ProgramFiles)
        {
            return ProgramFiles();
        }
        if (id == FOLDERID_ProgramFilesX64)
        {
            return ProgramFilesX64();
        }
        if (id == FOLDERID_ProgramData)
        {
            return ProgramData();
        }
        if (id == FOLDERID_PublicDesktop)
        {
            return PublicDesktop();
        }
        return id == FOLDERID_CommonPrograms ? CommonPrograms() : std::wstring();
    }

    const TestFolder& m_root;
    Fake<&SHGetKnownFolderPath> m_knownFolder = [this](REFKNOWNFOLDERID id, DWORD flags, HANDLE token,
                                                       PWSTR* path) -> HRESULT {
        if (token != nullptr)
        {
            return ofUser(id, flags, token, path);
        }
        const std::wstring folder = Find(id);
        const DWORD known = KF_FLAG_DONT_VERIFY | KF_FLAG_DEFAULT_PATH;
        if (folder.empty() || (flags & ~known) != 0 || FAILED(knownFolderResult))
        {
            *path = nullptr;
            return FAILED(knownFolderResult) ? knownFolderResult : E_INVALIDARG;
        }
        *path = static_cast<PWSTR>(CoTaskMemAlloc((folder.size() + 1) * sizeof(wchar_t)));
        std::wmemcpy(*path, folder.c_str(), folder.size() + 1);
        return S_OK;
    };
    Fake<&GetTempPathW> m_tempPath = [this](DWORD size, LPWSTR path) -> DWORD {
        const std::wstring folder = Temp();
        if (tempPathFails)
        {
            return 0;
        }
        if (size <= folder.size())
        {
            return static_cast<DWORD>(folder.size() + 1);
        }
        std::wmemcpy(path, folder.c_str(), folder.size() + 1);
        return static_cast<DWORD>(folder.size());
    };
};

} // namespace Testing
