#pragma once

#include "support/FakeDesktopShell.h"
#include "support/FakeFileSystem.h"
#include "support/FakeFirewall.h"
#include "support/FakePackageManager.h"
#include "support/FakePause.h"
#include "support/FakePrivileges.h"
#include "support/FakeProcesses.h"
#include "support/FakeRegistry.h"
#include "support/FakeServiceManager.h"
#include "support/FakeStatusWindow.h"
#include "support/FakeThreadNames.h"
#include "support/FakeWindows.h"
#include "support/FaultInjector.h"
#include "support/ImportTableFake.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <commctrl.h>
#include <shlobj.h>

#include <array>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

namespace Testing
{

// A whole machine on which the product is installed and running, with as much of everything else: all that the program
// asks Windows for is answered from memory. Its user sits at the desktop of an account of her own, answers every
// question with a yes, and wants her settings to go. Where COM objects are asked, the fault injector decides whether
// they fail.
class SimulatedMachine
{
public:
    explicit SimulatedMachine(FaultInjector& injector);

    // Everything that is there, one line for each: "file <path>", "registry <key>[: <value>]", "path <the machine's
    // search path>", "service <name>", "process <id>", "rule <name>", "package <full name>", "provisioned <family>".
    std::set<std::string> Everything() const;

    // What was logged: to the console or into the file, whichever succeeded.
    const std::vector<std::string>& Log() const { return m_log; }

    // Everything that was opened and not closed, by kind; empty when all is well.
    std::string Leaks() const;

    // The pauses so far, in milliseconds; more than that many end the run with an exception.
    ULONGLONG Paused() const { return m_clock.Now(); }
    ULONGLONG longestPauses = 3'600'000;

    // What a test changes before it starts the program.
    std::wstring commandLine = L"uninstaller.exe -s";
    std::wstring ownPath = L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\Velmora.Uninstaller.exe";
    FakeFileSystem& Files() { return m_files; }
    // Lets the uninstall entry name another folder, with everything else as it is.
    void ClaimFolder(const std::wstring& folder);
    // Takes away half of the product, and puts a file into its folder that cannot be removed.
    void RemoveHalf();

    static constexpr char c_pathBefore[] = "C:\\A;%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib;C:\\B";
    static constexpr char c_pathAfter[] = "C:\\A;C:\\B;";

private:
    void AddFiles();
    void AddRegistry();
    void AddServices();
    void AddService(const wchar_t* name, DWORD process, ULONGLONG stopsAfter);
    void AddProcesses();
    void NoteLine(std::string line);
    // The error of a method of a COM object that is called, if it is to fail.
    HRESULT Fail(const char* object, const std::string& call);
    void EndOperation(const std::string& call, OperationEnd& end);
    std::wstring FindFolder(const KNOWNFOLDERID& id, bool isOfUser) const;

    FaultInjector& m_injector;
    std::vector<std::string> m_log;
    std::set<std::string> m_rules{"Velmora Login Server", "Other Rule"};
    std::vector<std::string> m_packageCalls;
    std::set<void*> m_memory; // of COM's

    VirtualClock m_clock;
    FakeRegistry m_registry;
    FakeServiceManager m_services{m_clock};
    FakeProcesses m_processes;
    FakeWindows m_windows{m_processes};
    FakeFirewall m_firewall;
    FakePackageManager m_packages{m_packageCalls};
    FakeDesktopShell m_shell;
    FakeStatusWindow m_desktop;
    FakeFileSystem m_files;

    Fake<&GetCommandLineW> m_getCommandLine = [this] { return commandLine.data(); };
    Fake<&GetModuleFileNameW> m_moduleName = [this](HMODULE module, LPWSTR name, DWORD size) -> DWORD {
        if (module != nullptr)
        {
            return m_moduleName.Hidden(module, name, size);
        }
        name[ownPath.copy(name, size - 1)] = L'\0';
        return static_cast<DWORD>(ownPath.size());
    };
    Fake<&GetCurrentProcessId> m_processId = []() -> DWORD { return 4711; };
    Fake<&GetTempPathW> m_tempPath = [](DWORD size, LPWSTR path) -> DWORD {
        constexpr std::wstring_view folder = L"C:\\Windows\\Temp\\";
        if (size <= folder.size())
        {
            return static_cast<DWORD>(folder.size() + 1);
        }
        path[folder.copy(path, folder.size())] = L'\0';
        return static_cast<DWORD>(folder.size());
    };
    Fake<&GetSystemDirectoryW> m_systemFolder = [](LPWSTR path, UINT size) -> UINT {
        constexpr std::wstring_view folder = L"C:\\Windows\\System32";
        path[folder.copy(path, size - 1)] = L'\0';
        return static_cast<UINT>(folder.size());
    };
    Fake<&SetCurrentDirectoryW> m_setCurrentFolder = [](LPCWSTR) -> BOOL { return TRUE; };
    Fake<&GetLocalTime> m_localTime = [](LPSYSTEMTIME time) { *time = {2026, 11, 6, 21, 15, 0, 0, 0}; };
    FakeThreadNames m_threadNames{[](HANDLE, PCWSTR) { return S_OK; }};
    Fake<&VerifyVersionInfoW> m_verifyVersion = [](LPOSVERSIONINFOEXW, DWORD, DWORDLONG) -> BOOL { return TRUE; };
    Fake<&CoInitializeEx> m_initialize = [](LPVOID, DWORD) -> HRESULT { return S_OK; };
    Fake<&GetTokenInformation> m_token = [this](HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID data, DWORD size,
                                                PDWORD needed) -> BOOL {
        if (kind != TokenElevation)
        {
            return m_token.Hidden(token, kind, data, size, needed);
        }
        *static_cast<DWORD*>(data) = 1;
        *needed = size;
        return TRUE;
    };
    Fake<&CreateMutexExW> m_createMutex = [this](LPSECURITY_ATTRIBUTES, LPCWSTR, DWORD, DWORD) -> HANDLE {
        SetLastError(ERROR_SUCCESS);
        return m_processes.MakeHandle("mutex");
    };
    Fake<&CreateProcessW> m_start = [this](LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
                                           LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION started) -> BOOL {
        *started = {m_processes.MakeHandle("started process"), m_processes.MakeHandle("its thread"), 1, 2};
        return TRUE;
    };
    Fake<&WTSGetActiveConsoleSessionId> m_console = []() -> DWORD { return c_session; };
    Fake<&ProcessIdToSessionId> m_session = [](DWORD id, DWORD* session) -> BOOL {
        *session = id == c_explorer ? c_session : 0;
        return TRUE;
    };
    Fake<&OpenProcessToken> m_openToken = [this](HANDLE, DWORD, HANDLE* token) -> BOOL {
        *token = m_processes.MakeHandle("token");
        return TRUE;
    };
    FakePrivileges m_privileges{m_processes};
    Fake<&SHGetKnownFolderPath> m_knownFolder = [this](REFKNOWNFOLDERID id, DWORD, HANDLE token, PWSTR* path) {
        const std::wstring folder = FindFolder(id, token != nullptr);
        *path = nullptr;
        if (folder.empty())
        {
            return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
        }
        *path = static_cast<PWSTR>(Fake<&CoTaskMemAlloc>::Real((folder.size() + 1) * sizeof(wchar_t)));
        (*path)[folder.copy(*path, folder.size())] = L'\0';
        m_memory.insert(*path);
        return S_OK;
    };
    Fake<&CoTaskMemAlloc> m_allocate = [this](SIZE_T size) {
        void* const memory = Fake<&CoTaskMemAlloc>::Real(size);
        m_memory.insert(memory);
        return memory;
    };
    Fake<&CoTaskMemFree> m_free = [this](void* memory) {
        m_memory.erase(memory);
        Fake<&CoTaskMemFree>::Real(memory);
    };
    Fake<&SHChangeNotify> m_notify = [](LONG, UINT, LPCVOID, LPCVOID) {};
    Fake<&SendMessageTimeoutW> m_broadcast = [](HWND, UINT, WPARAM, LPARAM, UINT, UINT, PDWORD_PTR) -> LRESULT {
        return 1;
    };
    Fake<&FormatMessageW> m_format = [](DWORD, LPCVOID, DWORD code, DWORD, LPWSTR text, DWORD, va_list*) -> DWORD {
        return static_cast<DWORD>(swprintf(text, 256, L"<%lx>", code));
    };
    Fake<&TaskDialogIndirect> m_dialog = [](const TASKDIALOGCONFIG* dialog, int* button, int* radioButton,
                                            BOOL*) -> HRESULT {
        const bool isConfirmation = dialog->cRadioButtons != 0;
        *button = isConfirmation ? IDYES : IDCONTINUE;
        if (isConfirmation)
        {
            *radioButton = 1;
        }
        return S_OK;
    };
    Fake<&AllocConsole> m_allocConsole = []() -> BOOL { return TRUE; };
    Fake<&FreeConsole> m_freeConsole = []() -> BOOL { return TRUE; };
    Fake<&_set_error_mode> m_errorMode = [](int) { return 0; };
    FakePause m_pause{[this] { return m_processes.MakeHandle("command processor"); }, [] {}};
    Fake<&WriteConsoleW> m_writeConsole = [this](HANDLE, const void* text, DWORD length, LPDWORD, LPVOID) -> BOOL {
        NoteLine(Narrow({static_cast<const wchar_t*>(text), length - 1}));
        return TRUE;
    };

    static constexpr DWORD c_explorer = 7000;
    static constexpr DWORD c_session = 2;
    static constexpr DWORD c_client = 40;
};

} // namespace Testing
