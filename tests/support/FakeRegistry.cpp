#include "support/FakeRegistry.h"

#include "support/Text.h"

#include <cstring>
#include <stdexcept>

namespace Testing
{

void FakeRegistry::AddKey(const std::wstring& key)
{
    m_keys.try_emplace(key);
}

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

bool FakeRegistry::HasKey(const std::wstring& key) const
{
    return m_keys.contains(key);
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

void FakeRegistry::FailCall(const std::string& call, LSTATUS error, unsigned times)
{
    m_failures[call] = {error, times};
}

LSTATUS FakeRegistry::Note(const std::string& call)
{
    m_calls.push_back(call);
    const auto failure = m_failures.find(call);
    if (failure == m_failures.end() || failure->second.times == 0)
    {
        return ERROR_SUCCESS;
    }
    --failure->second.times;
    return failure->second.error;
}

std::wstring FakeRegistry::PathOf(HKEY key, LPCWSTR subKey) const
{
    std::wstring path;
    if (key != HKEY_LOCAL_MACHINE)
    {
        path = m_open.at(key);
    }
    if (subKey != nullptr)
    {
        path += (path.empty() ? L"" : L"\\") + std::wstring(subKey);
    }
    return path;
}

LSTATUS FakeRegistry::Open(const std::wstring& path, PHKEY result)
{
    *result = reinterpret_cast<HKEY>(m_nextHandle);
    m_nextHandle += 4;
    m_open[*result] = path;
    return ERROR_SUCCESS;
}

LSTATUS FakeRegistry::OpenKey(const std::wstring& path, REGSAM access, PHKEY result)
{
    if (const LSTATUS error = Note("open " + Narrow(path) + " " + Hex(access)))
    {
        return error;
    }
    return HasKey(path) ? Open(path, result) : ERROR_FILE_NOT_FOUND;
}

LSTATUS FakeRegistry::CreateKey(const std::wstring& path, DWORD options, REGSAM access, bool plain, PHKEY result)
{
    if (const LSTATUS error = Note("create " + Narrow(path) + " " + Hex(access)))
    {
        return error;
    }
    if (options != 0 || !plain)
    {
        throw std::logic_error("A key of an unexpected kind is created");
    }
    AddKey(path);
    return Open(path, result);
}

LSTATUS FakeRegistry::Read(const Value& value, bool terminated, DWORD* type, void* data, DWORD* size) const
{
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
    const DWORD available = size == nullptr ? 0 : *size;
    if (size != nullptr)
    {
        *size = static_cast<DWORD>(bytes.size());
    }
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

LSTATUS FakeRegistry::GetValue(const std::wstring& path, const std::wstring& name, DWORD flags, DWORD* type, void* data,
                               DWORD* size)
{
    if (const LSTATUS error = Note("get " + Narrow(path) + " " + Narrow(name) + " " + Hex(flags)))
    {
        return error;
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

LSTATUS FakeRegistry::QueryValue(const std::wstring& path, const std::wstring& name, DWORD* type, void* data,
                                 DWORD* size)
{
    const std::string call = "query " + Narrow(path) + " " + Narrow(name);
    if (const LSTATUS error = Note(data == nullptr ? call + " size" : call))
    {
        return error;
    }
    if (data != nullptr)
    {
        onQuery();
    }
    const auto value = FindValue(path, name);
    return value ? Read(*value, false, type, data, size) : ERROR_FILE_NOT_FOUND;
}

LSTATUS FakeRegistry::StoreValue(const std::wstring& path, const std::wstring& name, DWORD type, const void* data,
                                 DWORD size)
{
    if (const LSTATUS error = Note("set " + Narrow(path) + " " + Narrow(name)))
    {
        return error;
    }
    const auto* const bytes = static_cast<const BYTE*>(data);
    SetValue(path, name, type, std::vector<BYTE>(bytes, bytes + size));
    return ERROR_SUCCESS;
}

LSTATUS FakeRegistry::DeleteValue(const std::wstring& path, const std::wstring& name)
{
    if (const LSTATUS error = Note("delete " + Narrow(path) + " " + Narrow(name)))
    {
        return error;
    }
    const auto key = m_keys.find(path);
    return key != m_keys.end() && key->second.erase(name) == 1 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

LSTATUS FakeRegistry::DeleteTree(const std::wstring& path)
{
    if (const LSTATUS error = Note("delete tree " + Narrow(path)))
    {
        return error;
    }
    if (!HasKey(path))
    {
        return ERROR_FILE_NOT_FOUND;
    }
    const std::wstring below = path + L"\\";
    std::erase_if(m_keys, [&](const auto& key) {
        const auto isEqual = [](std::wstring_view left, std::wstring_view right) {
            return !IgnoringCase{}(left, right) && !IgnoringCase{}(right, left);
        };
        return isEqual(key.first, path) || isEqual(std::wstring_view(key.first).substr(0, below.size()), below);
    });
    return ERROR_SUCCESS;
}

} // namespace Testing
