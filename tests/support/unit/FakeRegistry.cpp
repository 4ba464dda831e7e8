#include "support/unit/FakeRegistry.h"

#include "support/common/Text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

namespace Testing
{

void FakeRegistry::SetValue(const std::wstring& key, const std::wstring& name, DWORD type, std::vector<BYTE> data)
{
    m_keys[key].insert_or_assign(name, Value{type, std::move(data)});
}

void FakeRegistry::SetString(const std::wstring& key, const std::wstring& name, std::wstring_view text, DWORD type)
{
    std::wstring terminated(text);
    terminated += L'\0';
    std::vector<BYTE> data(terminated.size() * sizeof(wchar_t));
    std::memcpy(data.data(), terminated.data(), data.size());
    SetValue(key, name, type, std::move(data));
}

std::optional<FakeRegistry::Value> FakeRegistry::FindValue(const std::wstring& key, const std::wstring& name) const
{
    const auto values = m_keys.find(key);
    if (values == m_keys.end())
    {
        return std::nullopt;
    }
    const auto value = values->second.find(name);
    return value == values->second.end() ? std::nullopt : std::optional(value->second);
}

std::wstring FakeRegistry::FindString(const std::wstring& key, const std::wstring& name) const
{
    const auto value = FindValue(key, name);
    if (!value)
    {
        return L"<none>";
    }
    std::wstring text(value->data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), value->data.data(), text.size() * sizeof(wchar_t));
    if (text.empty() || text.back() != L'\0')
    {
        return L"<unterminated>";
    }
    text.pop_back();
    return text;
}

std::vector<std::wstring> FakeRegistry::Contents() const
{
    std::vector<std::wstring> contents;
    for (const auto& [key, values] : m_keys)
    {
        contents.push_back(key);
        for (const auto& [name, value] : values)
        {
            contents.push_back(key + L": " + name);
        }
    }
    return contents;
}

LSTATUS FakeRegistry::FindPath(HKEY key, LPCWSTR subKey, REGSAM rights, std::wstring& path) const
{
    if (key != HKEY_LOCAL_MACHINE)
    {
        const auto* const open = m_handles.Find<OpenKey>(key);
        if (open == nullptr)
        {
            ADD_FAILURE() << "a key that is not open";
            return ERROR_INVALID_HANDLE;
        }
        if ((open->access & rights) != rights)
        {
            return ERROR_ACCESS_DENIED;
        }
        if (!HasKey(open->path))
        {
            return ERROR_KEY_DELETED;
        }
        path = open->path;
    }
    if (subKey != nullptr)
    {
        path += (path.empty() ? L"" : L"\\") + std::wstring(subKey);
    }
    return ERROR_SUCCESS;
}

template <class... Arguments>
LSTATUS FakeRegistry::Enter(std::wstring& path, const char* function, HKEY key, LPCWSTR subKey, REGSAM rights,
                            const Arguments&... arguments)
{
    if (const LSTATUS error = FindPath(key, subKey, rights, path))
    {
        return error;
    }
    if (const DWORD error = m_journal.Add(function, path.c_str(), arguments...))
    {
        return static_cast<LSTATUS>(error);
    }
    return HasKey(path) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

void FakeRegistry::Open(const std::wstring& path, REGSAM access, PHKEY result)
{
    *result = static_cast<HKEY>(m_handles.Make('"' + Narrow(path) + '"', OpenKey{path, access}, "RegCloseKey"));
}

LSTATUS FakeRegistry::OpenKeyEx(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result)
{
    std::wstring path;
    if (const LSTATUS error = Enter(path, "RegOpenKeyExW", key, subKey, 0, Mask(access)))
    {
        return error;
    }
    if (options != 0)
    {
        return ERROR_INVALID_PARAMETER;
    }
    Open(path, access, result);
    return ERROR_SUCCESS;
}

LSTATUS FakeRegistry::CreateKeyEx(HKEY key, LPCWSTR subKey, REGSAM access, PHKEY result)
{
    std::wstring path;
    if (const LSTATUS error = FindPath(key, subKey, KEY_CREATE_SUB_KEY, path))
    {
        return error;
    }
    if (const DWORD error = m_journal.Add("RegCreateKeyExW", path.c_str(), Mask(access)))
    {
        return static_cast<LSTATUS>(error);
    }
    AddKey(path);
    Open(path, access, result);
    return ERROR_SUCCESS;
}

LSTATUS FakeRegistry::Read(const Value& value, bool terminated, DWORD* type, void* data, DWORD* size)
{
    if (data != nullptr && size == nullptr)
    {
        return ERROR_INVALID_PARAMETER;
    }
    std::vector<BYTE> bytes = value.data;
    if (terminated)
    {
        // As the system does: a text ends with a zero, whatever was stored.
        const bool isTerminated =
            bytes.size() >= sizeof(wchar_t) && bytes[bytes.size() - 1] == 0 && bytes[bytes.size() - 2] == 0;
        bytes.resize((bytes.size() + 1) / 2 * 2 + (isTerminated ? 0 : sizeof(wchar_t)));
    }
    if (type != nullptr)
    {
        *type = value.type;
    }
    const DWORD available = size == nullptr ? 0 : std::exchange(*size, static_cast<DWORD>(bytes.size()));
    if (data == nullptr)
    {
        return ERROR_SUCCESS;
    }
    if (available < bytes.size())
    {
        return ERROR_MORE_DATA;
    }
    std::memcpy(data, bytes.data(), bytes.size());
    return ERROR_SUCCESS;
}

LSTATUS FakeRegistry::GetValue(HKEY key, LPCWSTR subKey, LPCWSTR name, DWORD flags, DWORD* type, void* data,
                               DWORD* size)
{
    std::wstring path;
    if (const LSTATUS error = Enter(path, "RegGetValueW", key, subKey, KEY_QUERY_VALUE, name, Mask(flags)))
    {
        return error;
    }
    if ((flags & RRF_RT_REG_EXPAND_SZ) != 0 && (flags & RRF_NOEXPAND) == 0)
    {
        return ERROR_INVALID_PARAMETER;
    }
    const auto value = FindValue(path, name);
    if (!value)
    {
        return ERROR_FILE_NOT_FOUND;
    }
    const bool isWanted = (value->type == REG_SZ && (flags & RRF_RT_REG_SZ) != 0) ||
                          (value->type == REG_EXPAND_SZ && (flags & RRF_RT_REG_EXPAND_SZ) != 0);
    return isWanted ? Read(*value, true, type, data, size) : ERROR_UNSUPPORTED_TYPE;
}

LSTATUS FakeRegistry::QueryValue(HKEY key, LPCWSTR name, const DWORD* reserved, DWORD* type, void* data, DWORD* size)
{
    std::wstring path;
    if (const LSTATUS error =
            Enter(path, "RegQueryValueExW", key, nullptr, KEY_QUERY_VALUE, name, data == nullptr ? "null" : "data"))
    {
        return error;
    }
    if (reserved != nullptr)
    {
        return ERROR_INVALID_PARAMETER;
    }
    const auto value = FindValue(path, name);
    return value ? Read(*value, false, type, data, size) : ERROR_FILE_NOT_FOUND;
}

LSTATUS FakeRegistry::SetKeyValue(HKEY key, LPCWSTR subKey, LPCWSTR name, DWORD type, const void* data, DWORD size)
{
    std::wstring path;
    if (const LSTATUS error = Enter(path, "RegSetKeyValueW", key, subKey, KEY_SET_VALUE, name, type))
    {
        return error;
    }
    const auto* const bytes = static_cast<const BYTE*>(data);
    SetValue(path, name, type, std::vector<BYTE>(bytes, bytes + size));
    return ERROR_SUCCESS;
}

LSTATUS FakeRegistry::DeleteValue(HKEY key, LPCWSTR name)
{
    std::wstring path;
    if (const LSTATUS error = Enter(path, "RegDeleteValueW", key, nullptr, KEY_SET_VALUE, name))
    {
        return error;
    }
    return m_keys.at(path).erase(name) == 1 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

LSTATUS FakeRegistry::DeleteTree(HKEY key, LPCWSTR subKey)
{
    std::wstring path;
    if (const LSTATUS error =
            Enter(path, "RegDeleteTreeW", key, subKey, DELETE | KEY_ENUMERATE_SUB_KEYS | KEY_QUERY_VALUE))
    {
        return error;
    }
    const std::wstring below = path + L"\\";
    std::erase_if(m_keys, [&](const auto& entry) {
        const auto isEqual = [](std::wstring_view left, std::wstring_view right) {
            return !IgnoringCase{}(left, right) && !IgnoringCase{}(right, left);
        };
        return isEqual(entry.first, path) || isEqual(std::wstring_view(entry.first).substr(0, below.size()), below);
    });
    return ERROR_SUCCESS;
}

} // namespace Testing
