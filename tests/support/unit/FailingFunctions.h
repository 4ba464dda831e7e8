#pragma once

#include "support/unit/FaultInjector.h"

#include <windows.h>

#include <aclapi.h>
#include <commctrl.h>
#include <roapi.h>
#include <sddl.h>
#include <shellapi.h>
#include <shlobj.h>
#include <tlhelp32.h>
#include <winsvc.h>
#include <winternl.h>

#include <vector>

namespace Testing
{

// Which errors the functions of Windows give, each list for those that have them in common. Left out is what they would
// say of all calls or of none: that this Windows has no such folder, that the volume has no letter.
struct WindowsErrors
{
    using List = std::vector<long>;

    List denied{ERROR_ACCESS_DENIED};
    List deniedOrNoMemory{ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY};
    List noMemory{ERROR_NOT_ENOUGH_MEMORY};
    List badHandle{ERROR_INVALID_HANDLE};
    List end{ERROR_NO_MORE_FILES};
    List com{E_ACCESSDENIED, E_FAIL, E_OUTOFMEMORY};
    List noClass{REGDB_E_CLASSNOTREG, E_ACCESSDENIED, E_OUTOFMEMORY, HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE)};
    List openKey{ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_BADDB, ERROR_KEY_DELETED};
    List createKey{ERROR_ACCESS_DENIED, ERROR_BADDB, ERROR_NO_SYSTEM_RESOURCES};
    List readValue{ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_UNSUPPORTED_TYPE};
    List queryValue{ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_MORE_DATA};
    List deleteValue{ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_KEY_DELETED};
    List openFile{ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND};
    List openEntry{static_cast<long>(0xC0000022), static_cast<long>(0xC0000043), static_cast<long>(0xC0000034),
                   static_cast<long>(0xC000050B)}; // denied, in use, absent, a link on the way
    List makeFolder{ERROR_ACCESS_DENIED, ERROR_PATH_NOT_FOUND, ERROR_DISK_FULL};
    List removeFolder{ERROR_DIR_NOT_EMPTY, ERROR_ACCESS_DENIED};
    List deleteFile{ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_FILE_NOT_FOUND};
    List attributes{ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND};
    List information{ERROR_ACCESS_DENIED, ERROR_INVALID_PARAMETER, ERROR_NO_MORE_FILES};
    List disposition{ERROR_ACCESS_DENIED, ERROR_INVALID_PARAMETER, ERROR_DIR_NOT_EMPTY};
    List deviceControl{ERROR_INVALID_FUNCTION, ERROR_NOT_A_REPARSE_POINT};
    List write{ERROR_DISK_FULL};
    List copy{ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_DISK_FULL};
    List startProgram{ERROR_ACCESS_DENIED, ERROR_BAD_EXE_FORMAT, ERROR_NOT_ENOUGH_MEMORY};
    List openManager{ERROR_ACCESS_DENIED, RPC_S_SERVER_UNAVAILABLE};
    List openService{ERROR_ACCESS_DENIED, ERROR_SERVICE_DOES_NOT_EXIST};
    List queryService{ERROR_ACCESS_DENIED, ERROR_SHUTDOWN_IN_PROGRESS};
    List controlService{ERROR_SERVICE_REQUEST_TIMEOUT, ERROR_SERVICE_CANNOT_ACCEPT_CTRL, ERROR_SERVICE_NOT_ACTIVE};
    List deleteService{ERROR_ACCESS_DENIED, ERROR_SERVICE_MARKED_FOR_DELETE};
    List snapshot{ERROR_ACCESS_DENIED, ERROR_PARTIAL_COPY};
    List openProcess{ERROR_ACCESS_DENIED, ERROR_INVALID_PARAMETER, ERROR_NOT_ENOUGH_MEMORY};
    List endProcess{ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE};
    List image{ERROR_ACCESS_DENIED, ERROR_GEN_FAILURE};
    List noPrivilege{ERROR_NO_SUCH_PRIVILEGE, RPC_S_SERVER_UNAVAILABLE};
    List noFunction{ERROR_PROC_NOT_FOUND};
    List badProcess{ERROR_INVALID_PARAMETER};
    List oldVersion{ERROR_OLD_WIN_VERSION};
    List badWindow{ERROR_INVALID_WINDOW_HANDLE};
    List post{ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_QUOTA};
    List apartment{RPC_E_CHANGED_MODE, E_OUTOFMEMORY};
    List badText{ERROR_NO_UNICODE_TRANSLATION};
};

// All functions of Windows that a run calls on its own thread, able to fail. Left out are those that do not fail when
// they are called as they should be (clocks, the comparison of texts), those whose result says nothing, and signaling:
// without it nothing can go on.
class FailingFunctions
{
public:
    explicit FailingFunctions(FaultInjector& injector) : m_injector(injector) {}

private:
    static constexpr FailureStyle c_invalid{.result = ~std::uintptr_t{0}};
    static constexpr FailureStyle c_closes{.doesItAllTheSame = true};
    static constexpr FailureStyle c_anything{.isAboutAnything = true};

    FaultInjector& m_injector;
    static inline const WindowsErrors c_errors;

    Faulty<&RegOpenKeyExW> m_regOpenKey{m_injector, c_errors.openKey};
    Faulty<&RegCreateKeyExW> m_regCreateKey{m_injector, c_errors.createKey};
    Faulty<&RegCloseKey> m_regCloseKey{m_injector, c_errors.badHandle, c_closes};
    Faulty<&RegGetValueW> m_regGetValue{m_injector, c_errors.readValue};
    Faulty<&RegQueryValueExW> m_regQueryValue{m_injector, c_errors.queryValue};
    Faulty<&RegSetKeyValueW> m_regSetValue{m_injector, c_errors.createKey};
    Faulty<&RegDeleteValueW> m_regDeleteValue{m_injector, c_errors.deleteValue};
    Faulty<&RegDeleteTreeW> m_regDeleteTree{m_injector, c_errors.deleteValue};

    Faulty<&CreateFileW> m_createFile{m_injector, c_errors.openFile, c_invalid};
    Faulty<&NtOpenFile> m_openEntry{m_injector, c_errors.openEntry};
    Faulty<&WriteFile> m_writeFile{m_injector, c_errors.write, c_anything};
    Faulty<&CreateDirectoryW> m_createDirectory{m_injector, c_errors.makeFolder};
    Faulty<&RemoveDirectoryW> m_removeDirectory{m_injector, c_errors.removeFolder};
    Faulty<&DeleteFileW> m_deleteFile{m_injector, c_errors.deleteFile};
    Faulty<&GetFileAttributesW> m_attributes{m_injector, c_errors.attributes, c_invalid};
    Faulty<&GetFileInformationByHandleEx> m_informationEx{m_injector, c_errors.information};
    Faulty<&SetFileInformationByHandle> m_setInformation{m_injector, c_errors.disposition};
    Faulty<&ReadFile> m_readFile{m_injector, c_errors.denied};
    Faulty<&GetFileInformationByHandle> m_information{m_injector, c_errors.denied};
    Faulty<&GetVolumeInformationByHandleW> m_volumeInformation{m_injector, c_errors.denied};
    Faulty<&GetSecurityInfo> m_security{m_injector, c_errors.denied, {.result = ERROR_ACCESS_DENIED}};
    Faulty<&SetKernelObjectSecurity> m_setSecurity{m_injector, c_errors.denied};
    Faulty<&DeviceIoControl> m_deviceControl{m_injector, c_errors.deviceControl};
    Faulty<&GetFinalPathNameByHandleW> m_finalPath{m_injector, c_errors.deniedOrNoMemory};
    Faulty<&GetFullPathNameW> m_fullPath{m_injector, c_errors.noMemory};
    Faulty<&GetVolumePathNameW> m_volume{m_injector, c_errors.denied};
    Faulty<&FindFirstFileW> m_findFirst{m_injector, c_errors.attributes, c_invalid};
    Faulty<&FindNextFileW> m_findNext{m_injector, c_errors.end};
    Faulty<&FindClose> m_findClose{m_injector, c_errors.badHandle, c_closes};
    Faulty<&MoveFileExW> m_move{m_injector, c_errors.denied};
    Faulty<&CopyFileExW> m_copy{m_injector, c_errors.copy};
    Faulty<&GetTempPathW> m_tempPath{m_injector, c_errors.noMemory, c_anything};
    Faulty<&GetModuleFileNameW> m_moduleName{m_injector, c_errors.noMemory};
    Faulty<&GetSystemDirectoryW> m_systemFolder{m_injector, c_errors.noMemory};
    Faulty<&SetCurrentDirectoryW> m_currentFolder{m_injector, c_errors.openFile};
    Faulty<&SHGetKnownFolderPath> m_knownFolder{m_injector, c_errors.com};

    Faulty<&OpenSCManagerW> m_openManager{m_injector, c_errors.openManager};
    Faulty<&OpenServiceW> m_openService{m_injector, c_errors.openService};
    Faulty<&QueryServiceStatusEx> m_queryService{m_injector, c_errors.queryService};
    Faulty<&ControlServiceExW> m_controlService{m_injector, c_errors.controlService};
    Faulty<&DeleteService> m_deleteService{m_injector, c_errors.deleteService};
    Faulty<&CloseServiceHandle> m_closeService{m_injector, c_errors.badHandle, c_closes};

    Faulty<&CreateToolhelp32Snapshot> m_snapshot{m_injector, c_errors.snapshot, c_invalid};
    Faulty<&Process32FirstW> m_firstProcess{m_injector, c_errors.end};
    Faulty<&Process32NextW> m_nextProcess{m_injector, c_errors.end, c_anything};
    Faulty<&OpenProcess> m_openProcess{m_injector, c_errors.openProcess};
    Faulty<&TerminateProcess> m_terminate{m_injector, c_errors.endProcess};
    Faulty<&QueryFullProcessImageNameW> m_image{m_injector, c_errors.image};
    Faulty<&GetProcessTimes> m_times{m_injector, c_errors.denied};
    Faulty<&WaitForSingleObject> m_wait{m_injector, c_errors.badHandle, c_invalid};
    Faulty<&CloseHandle> m_closeHandle{m_injector, c_errors.badHandle, c_closes};
    Faulty<&ProcessIdToSessionId> m_session{m_injector, c_errors.badProcess};
    Faulty<&WTSGetActiveConsoleSessionId> m_console{m_injector, c_errors.badProcess, c_invalid};
    Faulty<&OpenProcessToken> m_openToken{m_injector, c_errors.denied};
    Faulty<&LookupPrivilegeValueW> m_privilege{m_injector, c_errors.noPrivilege};
    Faulty<&AdjustTokenPrivileges> m_privileges{m_injector, c_errors.badHandle};
    Faulty<&GetTokenInformation> m_token{m_injector, c_errors.deniedOrNoMemory};
    Faulty<&IsWellKnownSid> m_sid{m_injector, c_errors.badProcess};
    Faulty<&ConvertSidToStringSidW> m_sidText{m_injector, c_errors.noMemory};
    Faulty<&ConvertStringSecurityDescriptorToSecurityDescriptorW> m_descriptor{m_injector, c_errors.noMemory};
    Faulty<&VerifyVersionInfoW> m_version{m_injector, c_errors.oldVersion};
    Faulty<&SetProcessMitigationPolicy> m_mitigation{m_injector, c_errors.badProcess};
    Faulty<&CreateMutexExW> m_mutex{m_injector, c_errors.deniedOrNoMemory};
    Faulty<&CreateProcessW> m_start{m_injector, c_errors.startProgram};
    Faulty<&CreateThread> m_thread{m_injector, c_errors.noMemory};
    Faulty<&CreateEventW> m_event{m_injector, c_errors.noMemory};
    Faulty<&CreateEventExW> m_eventEx{m_injector, c_errors.noMemory};
    Faulty<&GetProcAddress> m_function{m_injector, c_errors.noFunction};
    Faulty<&LoadLibraryExW> m_library{m_injector, c_errors.noMemory};

    Faulty<&GetTopWindow> m_topWindow{m_injector, c_errors.denied};
    Faulty<&GetWindow> m_nextWindow{m_injector, c_errors.badWindow};
    Faulty<&GetWindowThreadProcessId> m_ownerOfWindow{m_injector, c_errors.badWindow};
    Faulty<&GetClassNameW> m_className{m_injector, c_errors.badWindow};
    Faulty<&PostMessageW> m_post{m_injector, c_errors.post};
    Faulty<&SendMessageTimeoutW> m_broadcast{m_injector, c_errors.denied};
    Faulty<&IsWindow> m_isWindow{m_injector, c_errors.badWindow};
    Faulty<&DestroyWindow> m_destroyWindow{m_injector, c_errors.badWindow};
    Faulty<&SetForegroundWindow> m_foreground{m_injector, c_errors.denied};
    Faulty<&MessageBoxW> m_messageBox{m_injector, c_errors.noMemory};
    Faulty<&TaskDialogIndirect> m_dialog{m_injector, c_errors.com};

    Faulty<&CoInitializeEx> m_apartment{m_injector, c_errors.apartment};
    Faulty<&CoCreateInstance> m_create{m_injector, c_errors.noClass};
    Faulty<&CoTaskMemAlloc> m_allocate{m_injector, c_errors.noMemory};
    Faulty<&SysAllocString> m_text{m_injector, c_errors.noMemory};
    Faulty<&RoGetActivationFactory> m_activate{m_injector, c_errors.noClass};

    Faulty<&CommandLineToArgvW> m_arguments{m_injector, c_errors.noMemory};
    Faulty<&MultiByteToWideChar> m_toWide{m_injector, c_errors.badText, c_anything};
    Faulty<&WideCharToMultiByte> m_fromWide{m_injector, c_errors.badText, c_anything};
    Faulty<&FormatMessageW> m_message{m_injector, c_errors.noMemory, c_anything};
    Faulty<&GetStdHandle> m_stdHandle{m_injector, c_errors.badHandle, c_invalid};
    Faulty<&WriteConsoleW> m_writeConsole{m_injector, c_errors.badHandle, c_anything};
    Faulty<&AllocConsole> m_allocConsole{m_injector, c_errors.denied};
    Faulty<&FreeConsole> m_freeConsole{m_injector, c_errors.denied};
};

} // namespace Testing
