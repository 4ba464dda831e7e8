#include "support/end_to_end/ServerState.h"

#include "support/end_to_end/Owners.h"

#include <array>
#include <cwchar>

namespace Testing
{

namespace
{

// Longer than any name or text that a test gives a server.
using Buffer = std::array<wchar_t, 2048>;

} // namespace

std::wstring ServerState::ReadText(const std::wstring& subKey, const std::wstring& name) const
{
    Buffer text{};
    DWORD size = sizeof(text);
    RegGetValueW(HKEY_LOCAL_MACHINE, PathOf(subKey).c_str(), name.c_str(), RRF_RT_REG_SZ, nullptr, text.data(), &size);
    return text.data();
}

void ServerState::WriteNumber(const std::wstring& subKey, const std::wstring& name, DWORD number) const
{
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, PathOf(subKey).c_str(), name.c_str(), REG_DWORD, &number, sizeof(number));
}

void ServerState::WriteText(const std::wstring& subKey, const std::wstring& name, const std::wstring& text) const
{
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, PathOf(subKey).c_str(), name.c_str(), REG_SZ, text.c_str(),
                    static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

void ServerState::DeleteValue(const std::wstring& subKey, const std::wstring& name) const
{
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, PathOf(subKey).c_str(), name.c_str());
}

template <typename Function>
std::vector<std::wstring> ServerState::NamesIn(const std::wstring& subKey, Function enumerate) const
{
    HKEY opened = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, PathOf(subKey).c_str(), 0, KEY_READ, &opened);
    const UniqueKey key(opened);
    std::vector<std::wstring> names;
    Buffer name{};
    auto length = static_cast<DWORD>(name.size());
    while (key && enumerate(opened, static_cast<DWORD>(names.size()), name.data(), &length, nullptr, nullptr, nullptr,
                            nullptr) == ERROR_SUCCESS)
    {
        names.emplace_back(name.data(), length);
        length = static_cast<DWORD>(name.size());
    }
    return names;
}

std::vector<std::wstring> ServerState::ValuesIn(const std::wstring& subKey) const
{
    return NamesIn(subKey, RegEnumValueW);
}

std::vector<std::wstring> ServerState::KeysIn(const std::wstring& subKey) const
{
    return NamesIn(subKey, RegEnumKeyExW);
}

void ServerState::DeleteKey(const std::wstring& subKey) const
{
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, PathOf(subKey).c_str());
}

void ServerState::NoteCall(std::wstring_view call) const
{
    std::array<wchar_t, 16> name{};
    std::swprintf(name.data(), name.size(), L"%04u", static_cast<unsigned>(ValuesIn(L"Calls").size() + 1));
    WriteText(L"Calls", name.data(), std::wstring(call));
}

std::vector<std::wstring> ServerState::Calls() const
{
    std::vector<std::wstring> calls;
    for (const std::wstring& name : ValuesIn(L"Calls"))
    {
        calls.push_back(ReadText(L"Calls", name));
    }
    return calls;
}

} // namespace Testing
