// The state of a server that stands for a part of Windows, in a registry key below HKEY_LOCAL_MACHINE: what it has, and
// what was asked of it.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace Testing
{

class ServerState
{
public:
    // The key need not exist.
    explicit ServerState(std::wstring key) : m_key(std::move(key)) {}

    // Values of the key itself or of a key below it; nothing where there is no such value.
    std::wstring ReadText(const std::wstring& subKey, const std::wstring& name) const;
    void WriteNumber(const std::wstring& subKey, const std::wstring& name, DWORD number) const;
    void WriteText(const std::wstring& subKey, const std::wstring& name, const std::wstring& text) const;
    void DeleteValue(const std::wstring& subKey, const std::wstring& name) const;

    // The names of the values in a key, and of the keys in it, in the registry's order.
    std::vector<std::wstring> ValuesIn(const std::wstring& subKey) const;
    std::vector<std::wstring> KeysIn(const std::wstring& subKey) const;
    void DeleteKey(const std::wstring& subKey) const;

    // Adds a line to the calls: the values 0001, 0002, ... of the key "Calls".
    void NoteCall(std::wstring_view call) const;

    // The calls so far, in their order.
    std::vector<std::wstring> Calls() const;

private:
    std::wstring PathOf(const std::wstring& subKey) const { return subKey.empty() ? m_key : m_key + L'\\' + subKey; }
    template <typename Function>
    std::vector<std::wstring> NamesIn(const std::wstring& subKey, Function enumerate) const;

    std::wstring m_key;
};

} // namespace Testing
