// Modules, resources, memory, time, versions.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <string_view>

namespace Testing
{

namespace
{

constexpr DWORD c_searchFlags = LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS |
                                LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32 |
                                LOAD_LIBRARY_SEARCH_USER_DIRS;

template <class Character>
bool HasNoSlash(const Character* path)
{
    const std::basic_string_view<Character> text = path == nullptr ? std::basic_string_view<Character>() : path;
    return text.find(Character{'/'}) == text.npos;
}

template <class Character>
bool IsFullPath(const Character* path)
{
    const std::basic_string_view<Character> text = path;
    return (text.size() > 1 && text[0] == '\\' && text[1] == '\\') ||
           (text.size() > 2 && text[1] == ':' && text[2] == '\\');
}

template <class Character>
Verdict JudgeLoading(const Character* name, HANDLE reserved, DWORD flags)
{
    constexpr DWORD c_flags = DONT_RESOLVE_DLL_REFERENCES | 0x10 /* LOAD_IGNORE_CODE_AUTHZ_LEVEL */ |
                              LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE |
                              LOAD_LIBRARY_AS_IMAGE_RESOURCE | LOAD_WITH_ALTERED_SEARCH_PATH;
    return {
        {name != nullptr, "a name"},
        {HasNoSlash(name), "backslashes, no slashes"},
        {reserved == nullptr, "the second parameter is reserved"},
        {HasOnly(flags, c_flags | c_searchFlags), "known flags"},
        {!HasAll(flags, LOAD_WITH_ALTERED_SEARCH_PATH) || (flags & c_searchFlags) == 0,
         "LOAD_WITH_ALTERED_SEARCH_PATH cannot be combined with LOAD_LIBRARY_SEARCH flags"},
        {(flags & (LOAD_WITH_ALTERED_SEARCH_PATH | LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR)) == 0 || name == nullptr ||
             IsFullPath(name),
         "a full path for LOAD_WITH_ALTERED_SEARCH_PATH and LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR"},
    };
}

const Contract<&LoadLibraryExA> s_loadLibraryExA{
    [](LPCSTR name, HANDLE reserved, DWORD flags) { return JudgeLoading(name, reserved, flags); },
    [](HMODULE module, LPCSTR, HANDLE, DWORD) { NoteOpened(module, Kind::Module); }};

const Contract<&LoadLibraryExW> s_loadLibraryExW{
    [](LPCWSTR name, HANDLE reserved, DWORD flags) { return JudgeLoading(name, reserved, flags); },
    [](HMODULE module, LPCWSTR, HANDLE, DWORD) { NoteOpened(module, Kind::Module); }};

const Contract<&LoadLibraryW> s_loadLibrary{[](LPCWSTR name) {
                                                return Verdict{
                                                    {name != nullptr, "a name"},
                                                    {HasNoSlash(name), "backslashes, no slashes"},
                                                };
                                            },
                                            [](HMODULE module, LPCWSTR) { NoteOpened(module, Kind::Module); }};

// A module may have been loaded more than once: it stays known.
const Contract<&FreeLibrary> s_freeLibrary = [](HMODULE module) {
    return Verdict{{IsHandle(module) && MayBe(module, Kind::Module), "a module"}};
};

const Contract<&GetProcAddress> s_getProcAddress = [](HMODULE module, LPCSTR name) {
    return Verdict{
        {IsHandle(module) && MayBe(module, Kind::Module), "a module"},
        {name != nullptr, "a name or an ordinal"},
    };
};

const Contract<&GetModuleFileNameW> s_getModuleFileName = [](HMODULE, LPWSTR buffer, DWORD size) {
    return Verdict{{buffer != nullptr && size != 0, "a buffer"}};
};

const Contract<&SetDefaultDllDirectories> s_setDefaultDllDirectories = [](DWORD flags) {
    return Verdict{
        {HasOnly(flags, c_searchFlags & ~DWORD{LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR}), "known flags"},
        {flags != 0, "a directory"},
    };
};

const Contract<&FindResourceW> s_findResource = [](HMODULE, LPCWSTR name, LPCWSTR type) {
    return Verdict{{name != nullptr && type != nullptr, "a name and a type"}};
};

const Contract<&LoadResource> s_loadResource = [](HMODULE, HRSRC resource) {
    return Verdict{{resource != nullptr, "a resource of FindResource"}};
};

const Contract<&SizeofResource> s_sizeofResource = [](HMODULE, HRSRC resource) {
    return Verdict{{resource != nullptr, "a resource of FindResource"}};
};

const Contract<&LockResource> s_lockResource = [](HGLOBAL resource) {
    return Verdict{{resource != nullptr, "a resource of LoadResource"}};
};

const Contract<&GlobalAlloc> s_globalAlloc{
    [](UINT flags, SIZE_T) { return Verdict{{HasOnly(flags, GMEM_MOVEABLE | GMEM_ZEROINIT), "known flags"}}; },
    [](HGLOBAL memory, UINT flags, SIZE_T) { NoteOpened(memory, Kind::GlobalMemory, flags); }};

bool IsGlobalMemory(HGLOBAL memory)
{
    return memory != nullptr && MayBe(memory, Kind::GlobalMemory);
}
constexpr char c_globalMemory[] = "memory of GlobalAlloc";

const Contract<&GlobalLock> s_globalLock = [](HGLOBAL memory) {
    return Verdict{{IsGlobalMemory(memory), c_globalMemory}};
};

const Contract<&GlobalUnlock> s_globalUnlock = [](HGLOBAL memory) {
    return Verdict{{IsGlobalMemory(memory), c_globalMemory}};
};

const Contract<&GlobalFree> s_globalFree{
    [](HGLOBAL memory) { return Verdict{{IsGlobalMemory(memory), c_globalMemory}}; }, nullptr,
    [](HGLOBAL memory) { NoteClosed(memory); }};

const Contract<&GetEnvironmentVariableW> s_getVariable = [](LPCWSTR name, LPWSTR buffer, DWORD size) {
    return Verdict{
        {name != nullptr, "a name"},
        {IsBuffer(buffer, size), "a buffer of that size"},
    };
};

const Contract<&SetProcessMitigationPolicy> s_setMitigation = [](PROCESS_MITIGATION_POLICY policy, PVOID data,
                                                                 SIZE_T size) {
    return Verdict{
        {policy >= ProcessDEPPolicy && policy < MaxProcessMitigationPolicy,
         "PROCESS_MITIGATION_POLICY: a known policy"},
        {policy != ProcessRedirectionTrustPolicy || size == sizeof(PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY),
         "the size of the policy's structure"},
        {data != nullptr, "a policy"},
    };
};

const Contract<&LocalFree> s_localFree{
    [](HLOCAL memory) {
        return Verdict{{memory == nullptr || MayBe(memory, Kind::LocalMemory), "memory that LocalFree frees"}};
    },
    nullptr, [](HLOCAL memory) { NoteClosed(memory); }};

const Contract<&HeapAlloc> s_heapAlloc = [](HANDLE heap, DWORD flags, SIZE_T) {
    return Verdict{
        {heap != nullptr, "a heap"},
        {HasOnly(flags, HEAP_GENERATE_EXCEPTIONS | HEAP_NO_SERIALIZE | HEAP_ZERO_MEMORY), "known flags"},
    };
};

const Contract<&HeapFree> s_heapFree = [](HANDLE heap, DWORD flags, LPVOID memory) {
    return Verdict{
        {heap != nullptr, "a heap"},
        {HasOnly(flags, HEAP_NO_SERIALIZE), "no flag but HEAP_NO_SERIALIZE"},
        {MayBe(memory), "memory of HeapAlloc"},
    };
};

const Contract<&VirtualProtect> s_virtualProtect = [](LPVOID, SIZE_T, DWORD protection, PDWORD previous) {
    constexpr DWORD c_modifiers = PAGE_GUARD | PAGE_NOCACHE | PAGE_WRITECOMBINE | 0x40000000 /* PAGE_TARGETS_INVALID */;
    const DWORD base = protection & ~c_modifiers;
    return Verdict{
        {base != 0 && HasOnly(base, 0xFFU) && HasAtMostOneOf(base, 0xFFU), "Memory Protection Constants: one of them"},
        {previous != nullptr, "a place for the previous protection"},
    };
};

const Contract<&VirtualQuery> s_virtualQuery = [](LPCVOID, PMEMORY_BASIC_INFORMATION information, SIZE_T size) {
    return Verdict{{information != nullptr && size >= sizeof(*information), "room for a MEMORY_BASIC_INFORMATION"}};
};

const Contract<&VerSetConditionMask> s_verSetConditionMask = [](ULONGLONG, DWORD field, BYTE condition) {
    constexpr DWORD c_fields = 0xFF;
    return Verdict{
        {field != 0 && HasOnly(field, c_fields) && HasAtMostOneOf(field, c_fields), "one member"},
        {condition >= VER_EQUAL && condition <= (field == VER_SUITENAME ? VER_OR : VER_LESS_EQUAL),
         "a known condition"},
    };
};

// What else the page asks for, and is left out here: with the major version, also the service pack's. Windows compares
// in the order of their weight, and a service pack decides nothing among versions that have none.
const Contract<&VerifyVersionInfoW> s_verifyVersionInfo = [](LPOSVERSIONINFOEXW version, DWORD fields,
                                                             DWORDLONG conditions) {
    constexpr DWORD c_fields = 0xFF;
    return Verdict{
        {version != nullptr && version->dwOSVersionInfoSize == sizeof(*version), "OSVERSIONINFOEX: its size"},
        {fields != 0 && HasOnly(fields, c_fields), "known members"},
        {conditions != 0, "VerSetConditionMask: conditions"},
        {!HasAll(fields, VER_MAJORVERSION) || HasAll(fields, VER_MINORVERSION),
         "with the major version, also the minor version"},
    };
};

const Contract<&SetErrorMode> s_setErrorMode = [](UINT mode) {
    return Verdict{{HasOnly(mode, SEM_FAILCRITICALERRORS | SEM_NOALIGNMENTFAULTEXCEPT | SEM_NOGPFAULTERRORBOX |
                                      SEM_NOOPENFILEERRORBOX),
                    "known flags"}};
};

const Contract<&AddVectoredExceptionHandler> s_addHandler = [](ULONG, PVECTORED_EXCEPTION_HANDLER handler) {
    return Verdict{{handler != nullptr, "a handler"}};
};

const Contract<&RemoveVectoredExceptionHandler> s_removeHandler = [](PVOID handler) {
    return Verdict{{handler != nullptr, "a handle of AddVectoredExceptionHandler"}};
};

const Contract<&GetLocalTime> s_getLocalTime = [](LPSYSTEMTIME time) {
    return Verdict{{time != nullptr, "a place for the time"}};
};

const Contract<&GetSystemTime> s_getSystemTime = [](LPSYSTEMTIME time) {
    return Verdict{{time != nullptr, "a place for the time"}};
};

const Contract<&GetSystemTimeAsFileTime> s_getSystemTimeAsFileTime = [](LPFILETIME time) {
    return Verdict{{time != nullptr, "a place for the time"}};
};

const Contract<&CompareFileTime> s_compareFileTime = [](const FILETIME* first, const FILETIME* second) {
    return Verdict{{first != nullptr && second != nullptr, "two times"}};
};

const Contract<&GetStartupInfoW> s_getStartupInfo = [](LPSTARTUPINFOW information) {
    return Verdict{{information != nullptr, "a place for the information"}};
};

const Contract<&GetNativeSystemInfo> s_getNativeSystemInfo = [](LPSYSTEM_INFO information) {
    return Verdict{{information != nullptr, "a place for the information"}};
};

} // namespace

} // namespace Testing
