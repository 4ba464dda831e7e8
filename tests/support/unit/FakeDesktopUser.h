#pragma once

#include "support/unit/FakeFolders.h"
#include "support/unit/FakeProcesses.h"
#include "support/unit/Handles.h"
#include "support/unit/TestFolder.h"

#include <windows.h>

#include <shlobj.h>

#include <gtest/gtest.h>

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
        folders.ofUser = [this](REFKNOWNFOLDERID id, DWORD flags, HANDLE token, std::wstring& path) {
            path = m_local;
            return Find(id, flags, token);
        };
        processes.Add({.id = c_explorer, .name = L"explorer.exe"});
    }
    FakeDesktopUser(const FakeDesktopUser&) = delete;
    FakeDesktopUser& operator=(const FakeDesktopUser&) = delete;

    // Nobody sits there any more.
    void Leave() { m_processes.Remove(c_explorer); }

    // What is answered to the question for the folder.
    HRESULT folderResult = S_OK;

private:
    static constexpr DWORD c_explorer = 7000;
    static constexpr DWORD c_rights = TOKEN_QUERY | TOKEN_IMPERSONATE;

    HRESULT Find(REFKNOWNFOLDERID id, DWORD flags, HANDLE handle)
    {
        EXPECT_EQ(id, FOLDERID_LocalAppData);
        EXPECT_EQ(flags, 0U);
        const auto* const token = m_handles.Find<FakeToken>(handle);
        if (token == nullptr || token->process != c_explorer || (token->access & c_rights) != c_rights)
        {
            return token == nullptr ? E_HANDLE : E_ACCESSDENIED;
        }
        return folderResult;
    }

    Handles& m_handles;
    FakeProcesses& m_processes;
    std::wstring m_local;
};

} // namespace Testing
