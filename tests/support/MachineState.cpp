#include "support/MachineState.h"

#include "support/Owners.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

namespace Testing
{
namespace
{
// Paths of any length, taken as they are.
constexpr std::wstring_view c_anyLength = L"\\\\?\\";

// The sub-trees of the registry that a product can touch.
struct RegistryTree
{
    std::wstring_view name;
    HKEY root;
    const wchar_t* key;
};

const std::array<RegistryTree, 5> c_registryTrees{{
    {L"HKLM\\SOFTWARE", HKEY_LOCAL_MACHINE, L"SOFTWARE"},
    {L"HKLM\\SYSTEM\\CurrentControlSet\\Control\\Session Manager", HKEY_LOCAL_MACHINE,
     L"SYSTEM\\CurrentControlSet\\Control\\Session Manager"},
    {L"HKLM\\SYSTEM\\CurrentControlSet\\Services", HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services"},
    {L"HKCU\\Software", HKEY_CURRENT_USER, L"Software"},
    {L"HKCU\\Environment", HKEY_CURRENT_USER, L"Environment"},
}};

bool IsLeftOut(std::wstring_view path)
{
    return std::ranges::any_of(MachineState::LeftOut(),
                               [&](const PlaceLeftOut& place) { return SameName(place.path, path); });
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
    WIN32_FIND_DATAW found{};
    const HANDLE handle = FindFirstFileW((std::wstring(c_anyLength) + folder + L"\\*").c_str(), &found);
    if (handle == INVALID_HANDLE_VALUE)
    {
        // An empty root folder of a drive has not even "." in it.
        if (const DWORD error = GetLastError(); error != ERROR_FILE_NOT_FOUND)
        {
            state.Set(folder + L"\\*", Unreadable(error));
        }
        return;
    }
    const UniqueSearch search(handle);
    do
    {
        const std::wstring_view name = found.cFileName;
        const std::wstring path = folder + L"\\" + found.cFileName;
        if (name == L"." || name == L".." || IsLeftOut(path))
        {
            continue;
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
            DWORD error = 0;
            entry.contentHash = HashContent(std::wstring(c_anyLength) + path, error);
            if (error != 0)
            {
                entry = Unreadable(error);
            }
        }
        state.Set(path, std::move(entry));
    } while (FindNextFileW(search.get(), &found));
}

// How much is in a key, so that no call is needed to find the end of it.
struct KeySize
{
    DWORD subKeys = 0;
    DWORD values = 0;
    DWORD longestName = 0;
    DWORD longestData = 0;
};

KeySize MeasureKey(HKEY key)
{
    KeySize size;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &size.subKeys, nullptr, nullptr, &size.values, &size.longestName,
                     &size.longestData, nullptr, nullptr);
    return size;
}

void CaptureValues(MachineState& state, const std::wstring& keyName, HKEY key, const KeySize& keySize)
{
    std::wstring name(keySize.longestName + 1, L'\0');
    std::vector<std::byte> data(keySize.longestData);
    for (DWORD index = 0; index < keySize.values; ++index)
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
    const KeySize size = MeasureKey(key.get());
    CaptureValues(state, name, key.get(), size);
    std::array<wchar_t, 256> child{};
    for (DWORD index = 0; index < size.subKeys; ++index)
    {
        auto length = static_cast<DWORD>(child.size());
        if (RegEnumKeyExW(key.get(), index, child.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
        {
            return;
        }
        const std::wstring childName = name + L"\\" + child.data();
        if (!IsLeftOut(childName))
        {
            CaptureKey(state, childName, key.get(), child.data());
        }
    }
}

std::string Hex(std::uint64_t number)
{
    constexpr std::string_view c_digits = "0123456789abcdef";
    std::string text;
    do
    {
        text.insert(text.begin(), c_digits[number & 15U]);
        number >>= 4U;
    } while (number != 0);
    return text;
}

std::string DescribeAttributes(DWORD attributes)
{
    constexpr std::array<std::pair<DWORD, const char*>, 3> c_names{{{FILE_ATTRIBUTE_READONLY, ", read-only"},
                                                                    {FILE_ATTRIBUTE_HIDDEN, ", hidden"},
                                                                    {FILE_ATTRIBUTE_SYSTEM, ", system"}}};
    std::string text;
    for (const auto& [attribute, name] : c_names)
    {
        text += (attributes & attribute) != 0 ? name : "";
    }
    return text + " (attributes 0x" + Hex(attributes) + ")";
}

// The text of a value that is one well-formed text, for a person; otherwise its bytes.
std::string DescribeData(const StateEntry& entry)
{
    if (entry.detail == REG_DWORD && entry.data.size() == sizeof(DWORD))
    {
        DWORD number = 0;
        std::memcpy(&number, entry.data.data(), sizeof(number));
        return std::to_string(number);
    }
    if ((entry.detail == REG_SZ || entry.detail == REG_EXPAND_SZ) && entry.data.size() >= sizeof(wchar_t) &&
        entry.data.size() % sizeof(wchar_t) == 0)
    {
        std::wstring text(entry.data.size() / sizeof(wchar_t), L'\0');
        std::memcpy(text.data(), entry.data.data(), entry.data.size());
        if (text.find(L'\0') == text.size() - 1)
        {
            text.pop_back();
            return '"' + ToUtf8(text) + '"';
        }
    }
    std::string text = "bytes";
    for (const std::byte byte : entry.data)
    {
        text += " " + Hex(std::to_integer<std::uint64_t>(byte));
    }
    return text;
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

const std::vector<PlaceLeftOut>& MachineState::LeftOut()
{
    static const std::vector<PlaceLeftOut> places{
        {L"C:\\windows", "Windows' own files: nothing of the product lies among them"},
        {LR"(HKLM\SOFTWARE\Classes\CLSID)", "thousands of Windows' own COM classes, and none of the product's"},
        {LR"(HKLM\SOFTWARE\Classes\Interface)", "thousands of Windows' own COM interfaces, and none of the product's"},
        {LR"(HKLM\SOFTWARE\Classes\Wow6432Node)", "Windows' own COM classes for 32-bit programs"},
        {LR"(HKLM\SOFTWARE\Classes\MIME)", "tables of Windows' own of character sets and file types"},
        {LR"(HKLM\SOFTWARE\Classes\TypeLib)", "Windows' own COM type libraries, and none of the product's"},
        {LR"(HKLM\SOFTWARE\Microsoft\Cryptography\OID)", "tables of Windows' own of certificates' parts"},
        {LR"(HKLM\SOFTWARE\Microsoft\Cryptography\Providers)", "tables of Windows' own of certificates' parts"},
        {LR"(HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Time Zones)", "thousands of values of Windows' own"},
        {LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Time Zones)", "thousands of values of Windows' own"},
        {LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Telephony)", "a list of Windows' own of all countries"},
        {LR"(HKLM\SOFTWARE\Wow6432Node\Microsoft\Windows NT\CurrentVersion\Time Zones)",
         "thousands of values of Windows' own"},
        {LR"(HKLM\SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\Time Zones)",
         "thousands of values of Windows' own"},
        {LR"(HKLM\SOFTWARE\Wow6432Node\Classes)", "the same keys as HKLM\\SOFTWARE\\Classes\\Wow6432Node"},
        {LR"(HKLM\SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\App Paths)",
         "the same keys as those without Wow6432Node: Windows shares them"},
        {LR"(HKCU\Software\Wine\Temporary System Parameters)", "where Wine keeps what a session has asked it"},
    };
    return places;
}

MachineState MachineState::Capture(std::wstring_view furtherDrives)
{
    MachineState state;
    for (const wchar_t letter : L"C" + std::wstring(furtherDrives))
    {
        CaptureFolder(state, std::wstring{letter, L':'});
    }
    for (const RegistryTree& tree : c_registryTrees)
    {
        CaptureKey(state, std::wstring(tree.name), tree.root, tree.key);
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
