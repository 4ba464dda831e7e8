#include "support/ServerState.h"

#include <array>
#include <cwchar>

namespace Testing
{

namespace
{

// Longer than any name or text that a test gives a server.
using Buffer = std::array<wchar_t, 2048>;

constexpr DWORD c_bytes = sizeof(Buffer);
constexpr DWORD c_characters = static_cast<DWORD>(std::tuple_size_v<Buffer>);

LSTATUS SetText(const std::wstring& key, const wchar_t* name, const std::wstring& text)
{
    return RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, REG_SZ, text.c_str(),
                           static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

LSTATUS SetNumber(const std::wstring& key, const wchar_t* name, DWORD number)
{
    return RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, REG_DWORD, &number, sizeof(number));
}

} // namespace

std::optional<DWORD> ServerState::ReadNumber(const std::wstring& subKey, const std::wstring& name) const
{
    DWORD number = 0;
    DWORD size = sizeof(number);
    if (RegGetValueW(HKEY_LOCAL_MACHINE, PathOf(subKey).c_str(), name.c_str(), RRF_RT_REG_DWORD, nullptr, &number,
                     &size) != ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    return number;
}

std::wstring ServerState::ReadText(const std::wstring& subKey, const std::wstring& name) const
{
    Buffer text{};
    DWORD size = c_bytes;
    RegGetValueW(HKEY_LOCAL_MACHINE, PathOf(subKey).c_str(), name.c_str(), RRF_RT_REG_SZ, nullptr, text.data(), &size);
    return text.data();
}

void ServerState::WriteNumber(const std::wstring& subKey, const std::wstring& name, DWORD number) const
{
    SetNumber(PathOf(subKey), name.c_str(), number);
}

void ServerState::WriteText(const std::wstring& subKey, const std::wstring& name, const std::wstring& text) const
{
    SetText(PathOf(subKey), name.c_str(), text);
}

void ServerState::DeleteValue(const std::wstring& subKey, const std::wstring& name) const
{
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, PathOf(subKey).c_str(), name.c_str());
}

std::vector<std::wstring> ServerState::ValuesIn(const std::wstring& subKey) const
{
    const UniqueKey key = Open(subKey);
    std::vector<std::wstring> names;
    Buffer name{};
    for (DWORD length = c_characters;
         key && RegEnumValueW(key.get(), static_cast<DWORD>(names.size()), name.data(), &length, nullptr, nullptr,
                              nullptr, nullptr) == ERROR_SUCCESS;
         length = c_characters)
    {
        names.emplace_back(name.data(), length);
    }
    return names;
}

std::vector<std::wstring> ServerState::KeysIn(const std::wstring& subKey) const
{
    const UniqueKey key = Open(subKey);
    std::vector<std::wstring> names;
    Buffer name{};
    for (DWORD length = c_characters;
         key && RegEnumKeyExW(key.get(), static_cast<DWORD>(names.size()), name.data(), &length, nullptr, nullptr,
                              nullptr, nullptr) == ERROR_SUCCESS;
         length = c_characters)
    {
        names.emplace_back(name.data(), length);
    }
    return names;
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

void ServerState::Clear() const
{
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, m_key.c_str());
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, m_key.c_str(), 0, nullptr, 0, KEY_READ, nullptr, &key, nullptr);
    const UniqueKey owned(key);
}

UniqueKey ServerState::Open(const std::wstring& subKey) const
{
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, PathOf(subKey).c_str(), 0, KEY_READ, &key);
    return UniqueKey(key);
}

HRESULT RegisterText(const std::wstring& key, const wchar_t* name, const std::wstring& text)
{
    return HRESULT_FROM_WIN32(SetText(key, name, text));
}

HRESULT RegisterNumber(const std::wstring& key, const wchar_t* name, DWORD number)
{
    return HRESULT_FROM_WIN32(SetNumber(key, name, number));
}

HRESULT Unregister(const std::wstring& key)
{
    const LSTATUS status = RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
    return status == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(status);
}

std::wstring PathOfThisModule()
{
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&PathOfThisModule), &module);
    Buffer path{};
    GetModuleFileNameW(module, path.data(), c_characters);
    return path.data();
}

} // namespace Testing
