#include "support/end_to_end/MachineState.h"

#include "support/common/Text.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/Search.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

namespace Testing
{
namespace
{
// The sub-trees of the registry that a product can touch.
constexpr std::array<std::wstring_view, 5> c_registryTrees{
    LR"(HKLM\SOFTWARE)", LR"(HKLM\SYSTEM\CurrentControlSet\Control\Session Manager)",
    LR"(HKLM\SYSTEM\CurrentControlSet\Services)", LR"(HKCU\Software)", LR"(HKCU\Environment)"};

// Where nothing of the product lies, and thousands of Windows' own.
constexpr std::array<std::wstring_view, 16> c_leftOut{
    L"C:\\windows",
    LR"(HKLM\SOFTWARE\Classes\CLSID)",
    LR"(HKLM\SOFTWARE\Classes\Interface)",
    LR"(HKLM\SOFTWARE\Classes\Wow6432Node)",
    LR"(HKLM\SOFTWARE\Classes\MIME)",
    LR"(HKLM\SOFTWARE\Classes\TypeLib)",
    LR"(HKLM\SOFTWARE\Microsoft\Cryptography\OID)",
    LR"(HKLM\SOFTWARE\Microsoft\Cryptography\Providers)",
    LR"(HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Time Zones)",
    LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Telephony)",
    LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Time Zones)",
    LR"(HKLM\SOFTWARE\Wow6432Node\Microsoft\Windows NT\CurrentVersion\Time Zones)",
    LR"(HKLM\SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\Time Zones)",
    // The same keys as those without Wow6432Node.
    LR"(HKLM\SOFTWARE\Wow6432Node\Classes)",
    LR"(HKLM\SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\App Paths)",
    // Where Wine keeps what a session has asked it.
    LR"(HKCU\Software\Wine\Temporary System Parameters)",
};

bool IsLeftOut(std::wstring_view path)
{
    return std::ranges::any_of(c_leftOut, [&](std::wstring_view place) { return SameName(place, path); });
}

StateEntry Unreadable(DWORD error)
{
    return {.kind = StateEntry::Kind::Unreadable, .detail = error, .data = {}};
}

std::uint64_t HashContent(const std::wstring& path, DWORD& error)
{
    const UniqueHandle file =
        OwnFile(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file)
    {
        error = GetLastError();
        return 0;
    }
    // FNV-1a: short, and good enough to tell two contents apart.
    std::uint64_t hash = 14695981039346656037U;
    std::array<unsigned char, 65536> buffer{};
    DWORD read = 0;
    while (ReadFile(file.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr) && read > 0)
    {
        for (const unsigned char byte : std::span(buffer).first(read))
        {
            hash = (hash ^ byte) * 1099511628211U;
        }
    }
    return hash;
}

std::uint64_t Join(DWORD high, DWORD low)
{
    return (std::uint64_t{high} << 32U) | low;
}

void CaptureFolder(MachineState& state, const std::wstring& folder)
{
    const DWORD error = ForEachFound(AnyLength(folder + L"\\*"), [&](const WIN32_FIND_DATAW& found) {
        const std::wstring path = folder + L"\\" + found.cFileName;
        if (IsLeftOut(path))
        {
            return;
        }
        StateEntry entry{.detail = found.dwFileAttributes, .data = {}};
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        {
            entry.kind = StateEntry::Kind::Link;
        }
        else if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        {
            entry.kind = StateEntry::Kind::Folder;
            CaptureFolder(state, path);
        }
        else
        {
            entry.kind = StateEntry::Kind::File;
            entry.size = Join(found.nFileSizeHigh, found.nFileSizeLow);
            entry.lastWritten = Join(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime);
            DWORD unreadable = 0;
            entry.contentHash = HashContent(AnyLength(path), unreadable);
            if (unreadable != 0)
            {
                entry = Unreadable(unreadable);
            }
        }
        state.Set(path, std::move(entry));
    });
    // An empty root folder of a drive has not even "." in it.
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND)
    {
        state.Set(folder + L"\\*", Unreadable(error));
    }
}

void CaptureValues(MachineState& state, const std::wstring& keyName, HKEY key)
{
    DWORD longestName = 0;
    DWORD longestData = 0;
    DWORD count = 0;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, &longestName, &longestData,
                     nullptr, nullptr);
    std::wstring name(longestName + 1, L'\0');
    std::vector<std::byte> data(longestData);
    for (DWORD index = 0; index < count; ++index)
    {
        DWORD type = 0;
        auto nameLength = static_cast<DWORD>(name.size());
        auto size = static_cast<DWORD>(data.size());
        const LSTATUS status = RegEnumValueW(key, index, name.data(), &nameLength, nullptr, &type,
                                             reinterpret_cast<BYTE*>(data.data()), &size);
        if (status != ERROR_SUCCESS)
        {
            state.Set(keyName + std::wstring(c_valueSeparator) + L"?", Unreadable(static_cast<DWORD>(status)));
            return;
        }
        StateEntry entry{.kind = StateEntry::Kind::Value, .detail = type, .data = {}};
        entry.data.assign(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size));
        state.Set(keyName + std::wstring(c_valueSeparator) + name.substr(0, nameLength), std::move(entry));
    }
}

void CaptureKey(MachineState& state, const std::wstring& name, HKEY parent, const wchar_t* subKey)
{
    HKEY opened = nullptr;
    const LSTATUS status = RegOpenKeyExW(parent, subKey, 0, KEY_READ, &opened);
    if (status != ERROR_SUCCESS)
    {
        state.Set(name, Unreadable(static_cast<DWORD>(status)));
        return;
    }
    const UniqueKey key(opened);
    state.Set(name, {.kind = StateEntry::Kind::Key, .data = {}});
    CaptureValues(state, name, key.get());
    std::array<wchar_t, 256> child{};
    auto length = static_cast<DWORD>(child.size());
    for (DWORD index = 0;
         RegEnumKeyExW(key.get(), index, child.data(), &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++index, length = static_cast<DWORD>(child.size()))
    {
        const std::wstring childName = name + L"\\" + child.data();
        if (!IsLeftOut(childName))
        {
            CaptureKey(state, childName, key.get(), child.data());
        }
    }
}

std::string DescribeAttributes(DWORD attributes)
{
    return " (attributes 0x" + Hex(attributes) + ")";
}

// A text as far as its zero, and the number of bytes; or the bytes.
std::string DescribeData(const StateEntry& entry)
{
    if (entry.detail == REG_SZ || entry.detail == REG_EXPAND_SZ)
    {
        std::wstring wide(entry.data.size() / sizeof(wchar_t), L'\0');
        std::memcpy(wide.data(), entry.data.data(), wide.size() * sizeof(wchar_t));
        return '"' + ToUtf8(wide.c_str()) + "\", " + std::to_string(entry.data.size()) + " bytes";
    }
    std::string text;
    for (const std::byte byte : entry.data)
    {
        text += " " + Hex(std::to_integer<std::uint64_t>(byte));
    }
    return "bytes" + text;
}

std::string Shorten(std::string text)
{
    constexpr std::size_t c_longest = 300;
    if (text.size() > c_longest)
    {
        const std::string size = std::to_string(text.size());
        text = text.substr(0, c_longest / 2) + " … " + text.substr(text.size() - c_longest / 2) + " (" + size +
               " characters)";
    }
    return text;
}
} // namespace

StateEntry TextValue(DWORD type, std::wstring_view text)
{
    StateEntry entry{.kind = StateEntry::Kind::Value, .detail = type, .data = {}};
    entry.data.resize((text.size() + 1) * sizeof(wchar_t));
    std::memcpy(entry.data.data(), text.data(), text.size() * sizeof(wchar_t));
    return entry;
}

std::string Describe(const StateEntry& entry)
{
    switch (entry.kind)
    {
    case StateEntry::Kind::Folder:
        return "folder" + DescribeAttributes(entry.detail);
    case StateEntry::Kind::File:
        return "file of " + std::to_string(entry.size) + " bytes" + DescribeAttributes(entry.detail) + ", content " +
               Hex(entry.contentHash) + ", written " + Hex(entry.lastWritten);
    case StateEntry::Kind::Link:
        return "link" + DescribeAttributes(entry.detail);
    case StateEntry::Kind::Key:
        return "key";
    case StateEntry::Kind::Value:
        return "value of type " + std::to_string(entry.detail) + ", " + DescribeData(entry);
    case StateEntry::Kind::Unreadable:
        return "unreadable, error " + std::to_string(entry.detail);
    }
    return {};
}

RootAndKey SplitKey(std::wstring_view path)
{
    const auto end = path.find(L'\\');
    return {path.substr(0, end) == L"HKLM" ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER,
            std::wstring(path.substr(end + 1))};
}

MachineState MachineState::Capture(std::wstring_view furtherDrives)
{
    MachineState state;
    for (const wchar_t letter : L"C" + std::wstring(furtherDrives))
    {
        CaptureFolder(state, std::wstring{letter, L':'});
    }
    for (const std::wstring_view tree : c_registryTrees)
    {
        const RootAndKey place = SplitKey(tree);
        CaptureKey(state, std::wstring(tree), place.root, place.key.c_str());
    }
    return state;
}

const StateEntry* MachineState::Find(std::wstring_view path) const
{
    const auto found = m_entries.find(path);
    return found == m_entries.end() ? nullptr : &found->second;
}

void MachineState::Erase(std::wstring_view path)
{
    std::erase_if(m_entries, [&](const auto& entry) { return IsAtOrBelow(entry.first, path); });
}

void MachineState::Set(std::wstring_view path, StateEntry entry)
{
    m_entries.insert_or_assign(std::wstring(path), std::move(entry));
}

void MachineState::AddWithParents(std::wstring_view path, StateEntry::Kind kind)
{
    for (auto end = path.find(L'\\'); end != std::wstring_view::npos;)
    {
        end = path.find(L'\\', end + 1);
        StateEntry entry{.kind = kind, .data = {}};
        entry.detail = kind == StateEntry::Kind::Folder ? FILE_ATTRIBUTE_DIRECTORY : 0;
        m_entries.try_emplace(std::wstring(path.substr(0, end)), std::move(entry));
    }
}

void MachineState::CopyTree(std::wstring_view path, const MachineState& source)
{
    for (const auto& [place, entry] : source.m_entries)
    {
        if (IsAtOrBelow(place, path))
        {
            Set(place, entry);
        }
    }
}

void MachineState::CopyWithParents(std::wstring_view path, const MachineState& source)
{
    for (std::size_t end = 0; end != std::wstring_view::npos;)
    {
        end = path.find(L'\\', end + 1);
        if (const StateEntry* entry = source.Find(path.substr(0, end)))
        {
            Set(path.substr(0, end), *entry);
        }
    }
    if (const auto value = path.find(c_valueSeparator); value != std::wstring_view::npos)
    {
        CopyWithParents(path.substr(0, value), source);
    }
}

std::vector<std::string> Compare(const MachineState& before, const MachineState& after)
{
    std::vector<std::string> differences;
    for (const auto& [path, entry] : before.All())
    {
        const StateEntry* now = after.Find(path);
        if (now == nullptr)
        {
            differences.push_back("went:    " + ToUtf8(path) + ": " + Shorten(Describe(entry)));
        }
        else if (*now != entry)
        {
            differences.push_back("changed: " + ToUtf8(path) + ": from " + Shorten(Describe(entry)) + " to " +
                                  Shorten(Describe(*now)));
        }
    }
    for (const auto& [path, entry] : after.All())
    {
        if (before.Find(path) == nullptr)
        {
            differences.push_back("came:    " + ToUtf8(path) + ": " + Shorten(Describe(entry)));
        }
    }
    return differences;
}
} // namespace Testing
