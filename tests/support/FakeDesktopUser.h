#pragma once

#include "support/FakeFolders.h"
#include "support/FakeProcesses.h"
#include "support/ImportTableFake.h"
#include "support/TestFolder.h"

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
    FakeDesktopUser(FakeProcesses& processes, FakeFolders& folders, const TestFolder& root)
        : m_processes(processes),
          m_root(root)
    {
        folders.ofUser = [this](REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR* path) {
            EXPECT_EQ(token, m_token);
            return Find(id, flags, path);
        };
        processes.Add({.id = c_explorer, .name = L"explorer.exe", .session = c_session});
        root.AddFolder(L"Local");
    }

    ~FakeDesktopUser() { EXPECT_EQ(m_freed, m_taken); }
    FakeDesktopUser(const FakeDesktopUser&) = delete;
    FakeDesktopUser& operator=(const FakeDesktopUser&) = delete;

    // Nobody sits there any more.
    void Leave() { m_processes.Remove(c_explorer); }

    // What is answered to the question for the folder.
    HRESULT folderResult = S_OK;

private:
    static constexpr DWORD c_explorer = 7000;
    static constexpr DWORD c_session = 2;

    HRESULT Find(REFKNOWNFOLDERID id, DWORD flags, PWSTR* path)
    {
        EXPECT_EQ(id, FOLDERID_LocalAppData);
        EXPECT_EQ(flags, 0U);
        *path = nullptr;
        if (SUCCEEDED(folderResult))
        {
            const std::wstring local = m_root / L"Local";
            m_folder = CoTaskMemAlloc((local.size() + 1) * sizeof(wchar_t));
            *path = static_cast<PWSTR>(m_folder);
            std::wmemcpy(*path, local.c_str(), local.size() + 1);
            ++m_taken;
        }
        return folderResult;
    }

    FakeProcesses& m_processes;
    const TestFolder& m_root;
    HANDLE m_token = nullptr;
    void* m_folder = nullptr;
    unsigned m_taken = 0;
    unsigned m_freed = 0;

    Fake<&WTSGetActiveConsoleSessionId> m_console = []() -> DWORD { return c_session; };
    Fake<&ProcessIdToSessionId> m_session = [](DWORD id, DWORD* session) -> BOOL {
        *session = id == c_explorer ? c_session : c_session + 1;
        return TRUE;
    };
    Fake<&OpenProcessToken> m_openToken = [this](HANDLE process, DWORD, HANDLE* token) -> BOOL {
        EXPECT_EQ(m_processes.IdOf(process), c_explorer);
        *token = m_token = m_processes.MakeHandle("token");
        return TRUE;
    };
    Fake<&CoTaskMemFree> m_free = [this](void* memory) {
        if (memory != nullptr && memory == m_folder)
        {
            ++m_freed;
            m_folder = nullptr;
        }
        Fake<&CoTaskMemFree>::Real(memory);
    };
};

} // namespace Testing
