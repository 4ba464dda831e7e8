#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/Handles.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{

// The registry below HKEY_LOCAL_MACHINE, in memory. It holds what a test puts into it. A call in the journal begins
// with the whole path of the key: RegOpenKeyExW("SOFTWARE\Velmora", 0x20019), RegDeleteValueW("SOFTWARE\Velmora",
// "Value").
class FakeRegistry
{
public:
    FakeRegistry(Journal& journal, Handles& handles) : m_journal(journal), m_handles(handles) {}

    struct Value
    {
        DWORD type;
        std::vector<BYTE> data;
    };

    void AddKey(const std::wstring& key) { m_keys.try_emplace(key); }
    void SetValue(const std::wstring& key, const std::wstring& name, DWORD type, std::vector<BYTE> data);
    // A text with its final zero.
    void SetString(const std::wstring& key, const std::wstring& name, std::wstring_view text, DWORD type = REG_SZ);

    bool HasKey(const std::wstring& key) const { return m_keys.contains(key); }
    std::optional<Value> FindValue(const std::wstring& key, const std::wstring& name) const;
    // The text of a value less its final zero; "<none>" when there is no such value.
    std::wstring FindString(const std::wstring& key, const std::wstring& name) const;

    // Everything that is there: of every key its name, and its name with that of each of its values.
    std::vector<std::wstring> Contents() const;

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

    struct OpenKey
    {
        std::wstring path;
        REGSAM access;
    };

    // Finds the path that a call is about. The key must be open, there, and grant the rights.
    LSTATUS FindPath(HKEY key, LPCWSTR subKey, REGSAM rights, std::wstring& path) const;
    // The same for calls that are about a key which must be there, noted in the journal with what else they are about.
    template <class... Arguments>
    LSTATUS Enter(std::wstring& path, const char* function, HKEY key, LPCWSTR subKey, REGSAM rights,
                  const Arguments&... arguments);
    void Open(const std::wstring& path, REGSAM access, PHKEY result);
    static LSTATUS Read(const Value& value, bool terminated, DWORD* type, void* data, DWORD* size);

    LSTATUS OpenKeyEx(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result);
    LSTATUS CreateKeyEx(HKEY key, LPCWSTR subKey, REGSAM access, PHKEY result);
    LSTATUS GetValue(HKEY key, LPCWSTR subKey, LPCWSTR name, DWORD flags, DWORD* type, void* data, DWORD* size);
    LSTATUS QueryValue(HKEY key, LPCWSTR name, const DWORD* reserved, DWORD* type, void* data, DWORD* size);
    LSTATUS SetKeyValue(HKEY key, LPCWSTR subKey, LPCWSTR name, DWORD type, const void* data, DWORD size);
    LSTATUS DeleteValue(HKEY key, LPCWSTR name);
    LSTATUS DeleteTree(HKEY key, LPCWSTR subKey);

    Journal& m_journal;
    Handles& m_handles;
    std::map<std::wstring, Values, IgnoringCase> m_keys;

    Fake<&RegOpenKeyExW> m_openKey = [this](auto... arguments) { return OpenKeyEx(arguments...); };
    Fake<&RegCreateKeyExW> m_createKey = [this](HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR keyClass,
                                                DWORD options, REGSAM access, const SECURITY_ATTRIBUTES* security,
                                                PHKEY result, LPDWORD) {
        EXPECT_TRUE(reserved == 0 && keyClass == nullptr && options == 0 && security == nullptr) << "no plain key";
        return CreateKeyEx(key, subKey, access, result);
    };
    Fake<&RegCloseKey> m_closeKey = [this](HKEY key) -> LSTATUS {
        return m_handles.Close(key, "RegCloseKey") ? ERROR_SUCCESS : static_cast<LSTATUS>(GetLastError());
    };
    Fake<&RegGetValueW> m_getValue = [this](auto... arguments) { return GetValue(arguments...); };
    Fake<&RegQueryValueExW> m_queryValue = [this](auto... arguments) { return QueryValue(arguments...); };
    Fake<&RegSetKeyValueW> m_setValue = [this](auto... arguments) { return SetKeyValue(arguments...); };
    Fake<&RegDeleteValueW> m_deleteValue = [this](auto... arguments) { return DeleteValue(arguments...); };
    Fake<&RegDeleteTreeW> m_deleteTree = [this](auto... arguments) { return DeleteTree(arguments...); };
};

} // namespace Testing
