// The registry.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <cstring>
#include <string_view>

namespace Testing
{

namespace
{

constexpr REGSAM c_views = KEY_WOW64_32KEY | KEY_WOW64_64KEY;
constexpr REGSAM c_anyAccess = KEY_ALL_ACCESS | c_views | c_genericRights | MAXIMUM_ALLOWED | ACCESS_SYSTEM_SECURITY;

constexpr GENERIC_MAPPING c_keyRights{
    .GenericRead = KEY_READ, .GenericWrite = KEY_WRITE, .GenericExecute = KEY_EXECUTE, .GenericAll = KEY_ALL_ACCESS};

bool IsKey(HKEY key, REGSAM rights = 0)
{
    return IsHandle(key) && Grants(key, Kind::Key, rights);
}

void NoteKey(LSTATUS status, REGSAM access, const HKEY* key)
{
    if (status == ERROR_SUCCESS)
    {
        NoteOpened(*key, Kind::Key, MapGenericRights(access, c_keyRights));
    }
}

// A name that begins with a backslash, or is longer than any key's.
bool IsSubKey(LPCWSTR name)
{
    return name == nullptr || !std::wstring_view(name).starts_with(L'\\');
}
constexpr char c_subKey[] = "Structure of the Registry: a subkey's name does not begin with a backslash";

const Contract<&RegOpenKeyExW> s_openKey{
    [](HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result) {
        return Verdict{
            {IsKey(key), "an open key"},
            {IsSubKey(subKey), c_subKey},
            {HasOnly(options, REG_OPTION_OPEN_LINK), "no option but REG_OPTION_OPEN_LINK"},
            {HasOnly(access, c_anyAccess), "Registry Key Security and Access Rights: known rights"},
            {access != 0, "Registry Key Security and Access Rights: a right"},
            {HasAtMostOneOf(access, c_views), "Registry Key Security and Access Rights: one view"},
            {result != nullptr, "a place for the key"},
        };
    },
    [](LSTATUS status, HKEY, LPCWSTR, DWORD, REGSAM access, PHKEY result) { NoteKey(status, access, result); }};

const Contract<&RegCreateKeyExW> s_createKey{
    [](HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR, DWORD options, REGSAM access, LPSECURITY_ATTRIBUTES security,
       PHKEY result, LPDWORD) {
        const bool isRoot = IsOneOf(key, HKEY_LOCAL_MACHINE, HKEY_USERS);
        return Verdict{
            {IsKey(key), "an open key"},
            {subKey != nullptr, "a subkey's name"},
            {IsSubKey(subKey), c_subKey},
            {!isRoot || subKey == nullptr || std::wcschr(subKey, L'\\') != nullptr || *subKey == L'\0',
             "no direct child of HKEY_LOCAL_MACHINE or HKEY_USERS"},
            {reserved == 0, "the third parameter is reserved"},
            {IsOneOf(options, REG_OPTION_NON_VOLATILE, REG_OPTION_VOLATILE, REG_OPTION_CREATE_LINK,
                     REG_OPTION_BACKUP_RESTORE),
             "one of the options"},
            {HasOnly(access, c_anyAccess), "Registry Key Security and Access Rights: known rights"},
            {access != 0, "Registry Key Security and Access Rights: a right"},
            {HasAtMostOneOf(access, c_views), "Registry Key Security and Access Rights: one view"},
            {security == nullptr || security->nLength == sizeof(*security), "the size of the security attributes"},
            {result != nullptr, "a place for the key"},
        };
    },
    [](LSTATUS status, HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM access, LPSECURITY_ATTRIBUTES, PHKEY result,
       LPDWORD) { NoteKey(status, access, result); }};

const Contract<&RegCloseKey> s_closeKey{[](HKEY key) { return Verdict{{IsKey(key), "an open key"}}; },
                                        [](LSTATUS, HKEY key) { NoteClosed(key); }};

const Contract<&RegGetValueW> s_getValue = [](HKEY key, LPCWSTR subKey, LPCWSTR, DWORD flags, LPDWORD, PVOID data,
                                              LPDWORD size) {
    constexpr DWORD c_view64 = 0x00010000; // RRF_SUBKEY_WOW6464KEY
    constexpr DWORD c_view32 = 0x00020000; // RRF_SUBKEY_WOW6432KEY
    constexpr DWORD c_flags = RRF_RT_ANY | RRF_NOEXPAND | RRF_ZEROONFAILURE | c_view64 | c_view32;
    return Verdict{
        {IsKey(key), "an open key"},
        {subKey != nullptr || Grants(key, Kind::Key, KEY_QUERY_VALUE), "the key was opened with KEY_QUERY_VALUE"},
        {IsSubKey(subKey), c_subKey},
        {HasOnly(flags, c_flags), "known flags"},
        {(flags & RRF_RT_ANY) != 0, "a type"},
        {HasAtMostOneOf(flags, c_view64 | c_view32), "one view"},
        {(flags & RRF_RT_REG_EXPAND_SZ) == 0 || HasAll(flags, RRF_RT_ANY) || HasAll(flags, RRF_NOEXPAND),
         "RRF_RT_REG_EXPAND_SZ only with RRF_NOEXPAND"},
        {size != nullptr || data == nullptr, "a buffer has a size"},
    };
};

const Contract<&RegQueryValueExW> s_queryValue = [](HKEY key, LPCWSTR, LPDWORD reserved, LPDWORD, LPBYTE data,
                                                    LPDWORD size) {
    return Verdict{
        {IsKey(key), "an open key"},
        {Grants(key, Kind::Key, KEY_QUERY_VALUE), "the key was opened with KEY_QUERY_VALUE"},
        {reserved == nullptr, "the third parameter is reserved"},
        {size != nullptr || data == nullptr, "a buffer has a size"},
    };
};

// Whether data ends in a null character.
bool IsTerminated(LPCVOID data, DWORD size)
{
    wchar_t last = L'\1';
    if (data != nullptr && size >= sizeof(last))
    {
        std::memcpy(&last, static_cast<const BYTE*>(data) + size - sizeof(last), sizeof(last));
    }
    return last == L'\0';
}

const Contract<&RegSetKeyValueW> s_setValue = [](HKEY key, LPCWSTR subKey, LPCWSTR, DWORD type, LPCVOID data,
                                                 DWORD size) {
    const bool isText = IsOneOf(type, REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ);
    return Verdict{
        {IsKey(key), "an open key"},
        {subKey != nullptr || Grants(key, Kind::Key, KEY_SET_VALUE), "the key was opened with KEY_SET_VALUE"},
        {IsSubKey(subKey), c_subKey},
        {type <= REG_QWORD, "Registry Value Types: a known type"},
        {IsBuffer(data, size), "data of that size"},
        {!isText || size % sizeof(wchar_t) == 0, "a text's size is in bytes"},
        {!isText || IsTerminated(data, size), "a text's size includes its terminating null character"},
        {type != REG_DWORD || size == sizeof(DWORD), "Registry Value Types: the size of a REG_DWORD"},
    };
};

const Contract<&RegDeleteValueW> s_deleteValue = [](HKEY key, LPCWSTR) {
    return Verdict{
        {IsKey(key), "an open key"},
        {Grants(key, Kind::Key, KEY_SET_VALUE), "the key was opened with KEY_SET_VALUE"},
    };
};

const Contract<&RegDeleteTreeW> s_deleteTree = [](HKEY key, LPCWSTR subKey) {
    return Verdict{
        {IsKey(key), "an open key"},
        {Grants(key, Kind::Key, DELETE | KEY_ENUMERATE_SUB_KEYS | KEY_QUERY_VALUE),
         "the key was opened with DELETE, KEY_ENUMERATE_SUB_KEYS and KEY_QUERY_VALUE"},
        {Grants(key, Kind::Key, KEY_SET_VALUE), "for a key with values, the key was opened with KEY_SET_VALUE"},
        {IsSubKey(subKey), c_subKey},
    };
};

} // namespace

} // namespace Testing
