#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/FakeFolders.h"
#include "support/unit/FakeProcesses.h"
#include "support/unit/Handles.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <shlobj.h>

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

namespace Testing
{

// A user who sits at the machine and is not the one that this process runs as: an Explorer among the processes, as
// process 7000, whose token leads to a local application data folder "Local" below a folder of the test's own.
class FakeDesktopUser
{
public:
    FakeDesktopUser(Handles& handles, FakeProcesses& processes, FakeFolders& folders, const TestFolder& root)
        : m_handles(handles),
          m_processes(processes),
          m_local(root.AddFolder(L"Local"))
    {
        folders.ofUser = [this](REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR* path) {
            return Find(id, flags, token, path);
        };
        processes.Add({.id = c_explorer, .name = L"explorer.exe"});
    }

    ~FakeDesktopUser() { EXPECT_EQ(m_folder, nullptr) << "not freed"; }
    FakeDesktopUser(const FakeDesktopUser&) = delete;
    FakeDesktopUser& operator=(const FakeDesktopUser&) = delete;

    // Nobody sits there any more.
    void Leave() { m_processes.Remove(c_explorer); }

    // What is answered to the question for the folder.
    HRESULT folderResult = S_OK;

private:
    static constexpr DWORD c_explorer = 7000;
    static constexpr DWORD c_rights = TOKEN_QUERY | TOKEN_IMPERSONATE;

    HRESULT Find(REFKNOWNFOLDERID id, DWORD flags, HANDLE handle, PWSTR* path)
    {
        EXPECT_EQ(id, FOLDERID_LocalAppData);
        EXPECT_EQ(flags, 0U);
        *path = nullptr;
        const auto* const token = m_handles.Find<FakeToken>(handle);
        if (token == nullptr || token->process != c_explorer || (token->access & c_rights) != c_rights)
        {
            return token == nullptr ? E_HANDLE : E_ACCESSDENIED;
        }
        if (SUCCEEDED(folderResult))
        {
            m_folder = CoTaskMemAlloc((m_local.size() + 1) * sizeof(wchar_t));
            *path = static_cast<PWSTR>(m_folder);
            std::wmemcpy(*path, m_local.c_str(), m_local.size() + 1);
        }
        return folderResult;
    }

    Handles& m_handles;
    FakeProcesses& m_processes;
    std::wstring m_local;
    void* m_folder = nullptr; // until it is freed

    Fake<&CoTaskMemFree> m_free = [this](void* memory) {
        if (memory == m_folder)
        {
            m_folder = nullptr;
        }
        m_free.Hidden(memory);
    };
};

} // namespace Testing
