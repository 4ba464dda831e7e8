#pragma once

#include "support/common/ImportTableFake.h"
#include "support/common/Steps.h"
#include "support/unit/FakeDesktop.h"
#include "support/unit/FakeDesktopShell.h"
#include "support/unit/FakeFileSystem.h"
#include "support/unit/FakeFirewall.h"
#include "support/unit/FakeFolders.h"
#include "support/unit/FakePackageManager.h"
#include "support/unit/FakePause.h"
#include "support/unit/FakePrivileges.h"
#include "support/unit/FakeProcesses.h"
#include "support/unit/FakeRegistry.h"
#include "support/unit/FakeSentry.h"
#include "support/unit/FakeServiceManager.h"
#include "support/unit/FakeStrings.h"
#include "support/unit/FakeThreadNames.h"
#include "support/unit/FakeTopLevelWindows.h"
#include "support/unit/FaultInjector.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"
#include "support/unit/VirtualClock.h"

#include <windows.h>

#include <commctrl.h>
#include <shlobj.h>

#include <array>
#include <cstdlib>
#include <deque>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Testing
{

// A whole machine on which the product is installed and running, with as much of everything else: all that the program
// asks Windows for is answered from memory. Its user sits at the desktop of an account of her own. What the program
// does about its start, its end and its dialogs, and every line of its log ("log(<line>)"), stands in the journal in
// one order. Where COM objects are asked, the fault injector decides whether they fail.
class SimulatedMachine
{
public:
    SimulatedMachine() : SimulatedMachine(m_noFaults) {}
    explicit SimulatedMachine(FaultInjector& injector);
    SimulatedMachine(const SimulatedMachine&) = delete;
    SimulatedMachine& operator=(const SimulatedMachine&) = delete;
    ~SimulatedMachine();

    // Runs the program. Returns its exit code.
    int Run(const std::wstring& arguments = L"-s");

    // Everything that is there, one line for each: "file <path>", "registry <key>[: <value>]", "path <the machine's
    // search path>", "service <name>", "process <id>", "rule <name>", "package <full name>", "provisioned <family>".
    std::set<std::string> Everything() const;

    // A path or a text of the table of steps, with the folders of this machine.
    static std::wstring Expand(std::wstring_view text);
    static std::string Expand(std::string_view text);

    // Whether one of the lines of Everything() is a part of the product, or lies in it.
    static bool IsOf(const ProductPart& part, const std::string& thing);

    // Lets a part of the product refuse to go.
    void Protect(const ProductPart& part);

    // What was logged: to the console or into the file, whichever succeeded.
    const std::vector<std::string>& Log() const { return m_log; }

    // Whether the log was handed to the user's shell.
    bool HasOpenedLog() const;

    // Everything that was opened and not closed, by kind; empty when all is well.
    std::string Leaks() const;

    // Ends everything of the product that runs.
    void StopProduct();
    // Takes away half of the product, and puts a file into its folder that cannot be removed.
    void RemoveHalf();
    // Lets the uninstall entry name another folder, with everything else as it is.
    void ClaimFolder(const std::wstring& folder);
    // Lets the program run from the installation folder, as it was installed.
    void RunFromInstallFolder();

    // The path of the log, which is the same in each run.
    static constexpr wchar_t c_logPath[] =
        L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\Uninstaller_2026_11_21_15_0_0.log";
    static constexpr wchar_t c_copyPath[] = L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\Velmora.Uninstaller.exe";
    static constexpr char c_pathAfter[] = "C:\\A;C:\\B;";

    // An answer to a dialog: the button, and what is chosen beside it.
    struct Answer
    {
        int button;
        int choice = 0;
        std::function<void()> whileShown = [] {};
    };

private:
    FaultInjector m_noFaults{{}};
    FaultInjector& m_injector;

public:
    // What a test changes before it starts the program.
    ULONGLONG longestPauses = 3'600'000; // in milliseconds; more end the run with an exception
    std::wstring commandLine;
    std::wstring ownPath = c_copyPath;
    bool isElevated = true;
    bool isMutexTaken = false;  // by another installer
    std::deque<Answer> answers; // to the dialogs; when there are no more: yes, the settings go
    std::set<std::string> rules{"Other Rule"};

    Journal journal;
    Handles handles{journal};
    VirtualClock clock{&journal};
    FakeRegistry registry{journal, handles};
    FakeProcesses processes{journal, handles};
    FakePrivileges privileges{journal, handles, processes};
    FakeServiceManager services{journal, handles, processes, clock};
    FakeTopLevelWindows windows{journal};
    Journal com; // of the methods of objects
    FakeStrings strings{com};
    FakeFirewall firewall{com, strings};
    FakePackageManager packages{com};
    FakeDesktopShell shell{com, strings};
    FakeDesktop desktop{journal};
    FakeFileSystem files{journal, handles};

    static constexpr DWORD c_client = 40;
    static constexpr DWORD c_helper = 52; // runs from the installation folder
    static constexpr DWORD c_starter = 70;
    static constexpr DWORD c_explorer = 7000;

private:
    void AddProduct();
    void AddFiles();
    void AddRegistry();
    void AddServices();
    void AddProcesses();
    enum class Place
    {
        Console,
        File,
    };
    void NoteLine(std::string line, Place place);
    // Notes a call. Returns whether it succeeds; otherwise the last error is set.
    template <class... Arguments>
    BOOL Note(const std::string& function, const Arguments&... arguments)
    {
        return Succeeds(journal.Add(function, arguments...));
    }
    // A method of a COM object is called, and perhaps to fail.
    void CallMethod(const std::string& call);
    void EndOperation(const std::string& call, OperationEnd& end);
    static std::wstring FindFolder(const KNOWNFOLDERID& id, bool isOfUser);
    HRESULT ShowDialog(const TASKDIALOGCONFIG& dialog, int* button, int* radioButton);

    std::vector<std::string> m_log;
    std::string m_lineOnConsole;
    std::set<void*> m_memory; // of COM's
    bool m_hasConsole = false;

    Fake<&GetCommandLineW> m_getCommandLine = [this] {
        Note("GetCommandLineW");
        return commandLine.data();
    };
    Fake<&GetModuleFileNameW> m_moduleName = [this](HMODULE module, LPWSTR name, DWORD size) -> DWORD {
        if (module != nullptr)
        {
            return m_moduleName.Hidden(module, name, size);
        }
        if (!Note("GetModuleFileNameW"))
        {
            return 0;
        }
        const std::size_t length = ownPath.copy(name, size - 1);
        name[length] = L'\0';
        SetLastError(length == ownPath.size() ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER);
        return length == ownPath.size() ? static_cast<DWORD>(length) : size;
    };
    Fake<&GetTempPathW> m_tempPath = [](DWORD size, LPWSTR path) {
        return GivePath(L"C:\\Windows\\Temp\\", size, path);
    };
    Fake<&GetSystemDirectoryW> m_systemFolder = [](LPWSTR path, UINT size) -> UINT {
        return GivePath(L"C:\\Windows\\System32", size, path);
    };
    Fake<&SetCurrentDirectoryW> m_setCurrentFolder = [this](LPCWSTR path) {
        return Note("SetCurrentDirectoryW", path);
    };
    Fake<&GetLocalTime> m_localTime = [](LPSYSTEMTIME time) { *time = {2026, 11, 6, 21, 15, 0, 0, 0}; };
    FakeThreadNames m_threadNames{[this](HANDLE thread, PCWSTR description) {
        EXPECT_EQ(thread, GetCurrentThread());
        Note("SetThreadDescription", description);
        return S_OK;
    }};
    UINT m_processErrorMode = SEM_NOALIGNMENTFAULTEXCEPT; // what the process that started this one has left it
    Fake<&GetErrorMode> m_getErrorMode = [this]() -> UINT { return m_processErrorMode; };
    Fake<&SetErrorMode> m_setErrorMode = [this](UINT mode) -> UINT {
        Note("SetErrorMode", mode);
        return std::exchange(m_processErrorMode, mode);
    };
    Fake<&_set_error_mode> m_setRuntimeErrorMode = [this](int mode) {
        Note("_set_error_mode", mode);
        return 0;
    };
    Fake<&SetDefaultDllDirectories> m_setLibraryFolders = [this](DWORD flags) {
        return Note("SetDefaultDllDirectories", flags);
    };
    Fake<&SetProcessMitigationPolicy> m_setMitigation = [this](PROCESS_MITIGATION_POLICY policy, PVOID data,
                                                               SIZE_T size) {
        EXPECT_EQ(size, sizeof(DWORD));
        return Note("SetProcessMitigationPolicy", policy, *static_cast<const DWORD*>(data));
    };
    Fake<&VerifyVersionInfoW> m_verifyVersion = [this](LPOSVERSIONINFOEXW, DWORD, DWORDLONG) {
        return Note("VerifyVersionInfoW");
    };
    Fake<&CoInitializeEx> m_initialize = [this](LPVOID, DWORD kind) {
        return static_cast<HRESULT>(journal.Add("CoInitializeEx", kind));
    };
    Fake<&GetTokenInformation> m_token = [this](HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID data, DWORD size,
                                                PDWORD needed) -> BOOL {
        if (kind != TokenElevation)
        {
            return m_token.Hidden(token, kind, data, size, needed);
        }
        Note("GetTokenInformation");
        *static_cast<DWORD*>(data) = isElevated ? 1 : 0;
        *needed = size;
        return TRUE;
    };
    Fake<&CreateMutexExW> m_createMutex = [this](LPSECURITY_ATTRIBUTES, LPCWSTR name, DWORD, DWORD) -> HANDLE {
        if (!Note("CreateMutexExW", name))
        {
            return nullptr;
        }
        HANDLE mutex = handles.Make("mutex");
        SetLastError(isMutexTaken ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
        return mutex;
    };
    Fake<&CreateProcessW> m_start = [this](LPCWSTR program, LPWSTR line, LPSECURITY_ATTRIBUTES process,
                                           LPSECURITY_ATTRIBUTES thread, BOOL inherits, DWORD flags, LPVOID environment,
                                           LPCWSTR folder, LPSTARTUPINFOW startup,
                                           LPPROCESS_INFORMATION started) -> BOOL {
        EXPECT_TRUE(process == nullptr && thread == nullptr && !inherits && flags == 0 && environment == nullptr &&
                    folder == nullptr && startup->cb == sizeof(*startup) && startup->dwFlags == 0);
        if (!Note("CreateProcessW", program, static_cast<const wchar_t*>(line)))
        {
            return FALSE;
        }
        *started = {handles.Make("started process"), handles.Make("its thread"), 1, 2};
        return TRUE;
    };
    Fake<&CopyFileExW> m_copy = [this](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE routine, LPVOID data, LPBOOL cancel,
                                       DWORD flags) -> BOOL {
        EXPECT_TRUE(routine == nullptr && data == nullptr && cancel == nullptr);
        return Note("CopyFileExW", from, to, flags) && m_copy.Hidden(from, to, routine, data, cancel, flags);
    };
    Fake<&MoveFileExW> m_move = [this](LPCWSTR from, LPCWSTR to, DWORD flags) -> BOOL {
        return Note("MoveFileExW", from, to, flags) && m_move.Hidden(from, to, flags);
    };
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
    Fake<&TaskDialogIndirect> m_dialog = [this](const TASKDIALOGCONFIG* dialog, int* button, int* radioButton, BOOL*) {
        return ShowDialog(*dialog, button, radioButton);
    };
    Fake<&AllocConsole> m_allocConsole = [this] {
        m_hasConsole = true;
        return Note("AllocConsole");
    };
    Fake<&FreeConsole> m_freeConsole = [this] {
        m_hasConsole = false;
        return Note("FreeConsole");
    };
    FakePause m_pause{journal, handles};
    Fake<&WriteConsoleW> m_writeConsole = [this](HANDLE, const void* text, DWORD length, LPDWORD, LPVOID) -> BOOL {
        // Also of a console that is not there: it is what the program wants to log.
        NoteLine(Narrow({static_cast<const wchar_t*>(text), length - 1}), Place::Console);
        SetLastError(ERROR_INVALID_HANDLE);
        return m_hasConsole;
    };
};

} // namespace Testing
