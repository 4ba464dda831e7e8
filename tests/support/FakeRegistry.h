#pragma once

#include "support/ImportTableFake.h"

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{

// The registry below HKEY_LOCAL_MACHINE, in memory. It holds what a test puts into it, fails where a test says so, and
// keeps a list of everything that was asked of it.
class FakeRegistry
{
public:
    struct Value
    {
        DWORD type;
        std::vector<BYTE> data;
    };

    void AddKey(const std::wstring& key);
    void SetValue(const std::wstring& key, const std::wstring& name, DWORD type, std::vector<BYTE> data);
    // A text with its final zero.
    void SetString(const std::wstring& key, const std::wstring& name, std::wstring_view text, DWORD type = REG_SZ);

    bool HasKey(const std::wstring& key) const;
    std::optional<Value> FindValue(const std::wstring& key, const std::wstring& name) const;
    // The text of a value less its final zero; "<none>" when there is no such value.
    std::wstring FindString(const std::wstring& key, const std::wstring& name) const;

    // Everything that is there: of every key its name, and its name with that of each of its values.
    std::vector<std::wstring> Contents() const;

    // Lets a call, as it stands in Calls(), fail the next `times` times.
    void FailCall(const std::string& call, LSTATUS error, unsigned times = ~0U);

    // Every call so far but the closing of keys: "open <key> <access>", "create <key> <access>", "get <key> <value>
    // <flags>", "query <key> <value>" (with " size" when only the size is asked for), "set <key> <value>", "delete
    // <key> <value>", "delete tree <key>".
    const std::vector<std::string>& Calls() const { return m_calls; }

    // How many keys are open now.
    std::size_t OpenKeys() const { return m_open.size(); }

    // Is called before every query of a value's data, for values that change while they are read.
    std::function<void()> onQuery = [] {};

private:
    struct IgnoringCase
    {
        using is_transparent = void;
        bool operator()(std::wstring_view left, std::wstring_view right) const
        {
            return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                        static_cast<int>(right.size()), TRUE) == CSTR_LESS_THAN;
        }
    };
    using Values = std::map<std::wstring, Value, IgnoringCase>;

    // The error that a test wants for this call, or ERROR_SUCCESS.
    LSTATUS Note(const std::string& call);
    std::wstring PathOf(HKEY key, LPCWSTR subKey) const;
    LSTATUS Open(const std::wstring& path, PHKEY result);
    LSTATUS Read(const Value& value, bool terminated, DWORD* type, void* data, DWORD* size) const;

    std::map<std::wstring, Values, IgnoringCase> m_keys;
    std::map<HKEY, std::wstring> m_open;
    std::vector<std::string> m_calls;
    struct Failure
    {
        LSTATUS error;
        unsigned times;
    };
    std::map<std::string, Failure> m_failures;
    ULONG_PTR m_nextHandle = 0x100;

    Fake<&RegOpenKeyExW> m_openKey = [this](HKEY key, LPCWSTR subKey, DWORD, REGSAM access, PHKEY result) {
        return OpenKey(PathOf(key, subKey), access, result);
    };
    Fake<&RegCreateKeyExW> m_createKey = [this](HKEY key, LPCWSTR subKey, DWORD, LPWSTR name, DWORD options,
                                                REGSAM access, const SECURITY_ATTRIBUTES* security, PHKEY result,
                                                LPDWORD) {
        return CreateKey(PathOf(key, subKey), options, access, name == nullptr && security == nullptr, result);
    };
    Fake<&RegCloseKey> m_closeKey = [this](HKEY key) -> LSTATUS {
        return m_open.erase(key) == 1 ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
    };
    Fake<&RegGetValueW> m_getValue = [this](HKEY key, LPCWSTR subKey, LPCWSTR name, DWORD flags, LPDWORD type,
                                            PVOID data, LPDWORD size) {
        return GetValue(PathOf(key, subKey), name, flags, type, data, size);
    };
    Fake<&RegQueryValueExW> m_queryValue = [this](HKEY key, LPCWSTR name, LPDWORD, LPDWORD type, LPBYTE data,
                                                  LPDWORD size) {
        return QueryValue(PathOf(key, nullptr), name, type, data, size);
    };
    Fake<&RegSetKeyValueW> m_setValue = [this](HKEY key, LPCWSTR subKey, LPCWSTR name, DWORD type, LPCVOID data,
                                               DWORD size) {
        return StoreValue(PathOf(key, subKey), name, type, data, size);
    };
    Fake<&RegDeleteValueW> m_deleteValue = [this](HKEY key, LPCWSTR name) {
        return DeleteValue(PathOf(key, nullptr), name);
    };
    Fake<&RegDeleteTreeW> m_deleteTree = [this](HKEY key, LPCWSTR subKey) { return DeleteTree(PathOf(key, subKey)); };

    LSTATUS OpenKey(const std::wstring& path, REGSAM access, PHKEY result);
    LSTATUS CreateKey(const std::wstring& path, DWORD options, REGSAM access, bool plain, PHKEY result);
    LSTATUS GetValue(const std::wstring& path, const std::wstring& name, DWORD flags, DWORD* type, void* data,
                     DWORD* size);
    LSTATUS QueryValue(const std::wstring& path, const std::wstring& name, DWORD* type, void* data, DWORD* size);
    LSTATUS StoreValue(const std::wstring& path, const std::wstring& name, DWORD type, const void* data, DWORD size);
    LSTATUS DeleteValue(const std::wstring& path, const std::wstring& name);
    LSTATUS DeleteTree(const std::wstring& path);
};

} // namespace Testing
