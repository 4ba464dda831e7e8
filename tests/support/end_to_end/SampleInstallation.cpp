#include "support/end_to_end/SampleInstallation.h"

#include "support/common/DirectoryLink.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/Search.h"
#include "support/end_to_end/Servers.h"
#include "support/end_to_end/product/Product.h"

#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

namespace Testing
{
namespace
{
constexpr std::wstring_view c_servicesKey = LR"(HKLM\SYSTEM\CurrentControlSet\Services)";
constexpr std::wstring_view c_environmentKey = LR"(HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment)";

// The state of the servers that stand for the firewall and the package manager.
constexpr std::wstring_view c_serversKey = LR"(HKLM\SOFTWARE\Velmora.Testing)";

// ---- The tables ----------------------------------------------------------------------------------------------------

// Files of a tree: the name may hold a "#" that stands for the number; a name that ends in "\" is an empty folder.
struct FileRow
{
    const wchar_t* name;
    std::size_t size = 0;
    int count = 1;
    DWORD attributes = 0;
};

struct TreeRow
{
    std::wstring_view folder;
    std::vector<FileRow> files;
};

// What is in a folder; one that is not here has a single file.
const std::vector<TreeRow>& Trees()
{
    static const std::vector<TreeRow> rows{
        {LR"(<ProgramFiles>\Velmora)",
         {
             {LR"(current\Velmora.exe)", 300'000},
             {LR"(current\Velmora.dll)", 1'500'000},
             {LR"(current\resources\app.bin)", 4'000'000},
             {LR"(current\resources\icons\icon-#.png)", 700, 24},
             {LR"(current\locales\text-#.pak)", 2'000, 40},
             {LR"(current\plugins\plug-in #\plug-in.dll)", 3'000, 12},
             {LR"(current\plugins\plug-in #\read me first.txt)", 60, 12},
             {LR"(current\sounds\Prélude für Émile – 序曲.ogg)", 9'000},
             {LR"(current\licenses and notices\third parties.txt)", 500},
             {LR"(current\empty.flag)", 0},
             {LR"(current\.cache\index.dat)", 128, 1, FILE_ATTRIBUTE_HIDDEN},
             {LR"(current\crash reports\)"},
             // Names that people and programs do not expect, of folders and of files.
             {LR"(odd names\a full stop at the end.\a blank at the end )", 10},
             {LR"(odd names\ \...)", 10},
             {LR"(odd names\CON\COM1)", 10},
             {LR"(odd names\%TEMP%\a;b,c=d&e^f(g)h!i'j`k~l)", 10},
             {L"odd names\\\U0001F469\u200D\U0001F4BB\\e\u0301\u0327\u0323 combining", 10},
             {L"odd names\\\u202Egnp.exe\\\u200B", 10},
             {LR"(odd names\מחיקת קיצור הדרך\İıŞş ſß ǅ)", 10},
             {LR"(previous\Velmora.exe)", 280'000},
             {LR"(previous\locales\text-#.pak)", 2'000, 10},
             {LR"(libraries\a folder with a long name that goes on and on until nobody remembers how it began\)"
              LR"(another folder whose name is as long as the first one and says just as little as that did\)"
              LR"(and a third one below it so that the whole path is longer than old programs can manage\)"
              LR"(deep inside\the innermost sample.wav)",
              4'096},
         }},
        {LR"(<ProgramFiles>\OrvaneAuthService)",
         {{LR"(OrvaneAuthService.exe)", 50'000}, {LR"(modules\module-#.dll)", 1'000, 3}}},
        {LR"(<ProgramData>\OrvaneAuthService)",
         {{LR"(tokens\token-#.dat)", 64, 4}, {LR"(service.log)", 5'000}, {LR"(inbox\)"}}},
        {LR"(<ProgramData>\VelmoraUpdater)",
         {{LR"(packages\full-#.pkg)", 20'000, 2}, {LR"(state.json)", 300}, {LR"(staging\)"}}},
        {LR"(<LocalAppData>\Vel Mora)",
         {{LR"(lib\library-#.dll)", 1'000, 3}, {LR"(settings.json)", 400}, {LR"(logs\client-#.log)", 800, 2}}},
        {LR"(<LocalAppData>\Tessaline)", {{LR"(tiles\tile-#.bin)", 256, 5}, {LR"(tessaline.db)", 4'000}}},
    };
    return rows;
}

struct ValueRow
{
    std::wstring_view key;
    std::wstring_view name;
    std::wstring_view text;
    DWORD type = REG_SZ;
};

// What is in a key, and in the values that others have; what is not here has a plain text.
constexpr ValueRow c_values[] = {
    {LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)", L"InstallLocation",
     LR"(<ProgramFiles>\Velmora)"},
    {LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)", L"DisplayVersion", L"2.8.1.2171"},
    {LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)", L"NoModify", L"1", REG_DWORD},
    {LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora\Components)", L"Client", L"1", REG_DWORD},
    {LR"(HKLM\SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)", L"InstallLocation",
     LR"(C:\Elsewhere)"},
    {LR"(HKLM\SOFTWARE\Velmora\Capabilities\URLAssociations)", L"velmora", L"Velmora.Protocol"},
    {LR"(HKLM\SOFTWARE\Classes\Velmora.Protocol\shell\open\command)", L"",
     LR"("<ProgramFiles>\Velmora\current\Velmora.exe" "%1")"},
    {LR"(HKLM\SOFTWARE\Classes\velmora\DefaultIcon)", L"", LR"(%ProgramFiles%\Velmora\current\Velmora.exe,0)",
     REG_EXPAND_SZ},
    {LR"(HKLM\SOFTWARE\Velmora)", L"LibraryFolder", LR"(%PUBLIC%\Music\Velmora)", REG_EXPAND_SZ},
    {LR"(HKLM\SOFTWARE\Velmora\Updater)", L"Interval", L"86400", REG_DWORD},
    {LR"(HKLM\SOFTWARE\Velmora\Capabilities2)", L"Capabilities", L"1", REG_DWORD},
    {LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Explorer\StartupApproved\Run)", L"Velmora", L"\2", REG_BINARY},
};

// Other products' and the user's own, named alike or next to the product's. "<Expanded>" stands for the product's entry
// of PATH with its variable resolved.
const std::vector<ProductPart>& Bystanders()
{
    using enum ProductPart::Kind;
    constexpr std::string_view c_what = "bystander";
    static const std::vector<ProductPart> parts{
        {Folder, LR"(<ProgramFiles>\Velmora2)", c_what},
        {Folder, LR"(<ProgramFiles>\Brindlewave)", c_what},
        {Folder, LR"(<ProgramFiles>\OrvaneAuthService2)", c_what},
        {Folder, LR"(<ProgramData>\Velmora)", c_what},
        {Folder, LR"(<ProgramData>\Brindlewave)", c_what},
        {Folder, LR"(<LocalAppData>\Vel Mora 2)", c_what},
        {Folder, LR"(<Downloads>\Velmora)", c_what},
        {Folder, LR"(<CommonPrograms>\Velmora)", c_what},
        {Shortcut, LR"(<PublicDesktop>\Brindlewave.lnk)", c_what},
        {Shortcut, LR"(<PublicDesktop>\Velmora Help.lnk)", c_what},
        {Shortcut, LR"(<CommonPrograms>\Brindlewave.lnk)", c_what},
        {Shortcut, LR"(<CommonPrograms>\Velmora Help.lnk)", c_what},
        {Shortcut, LR"(<UserDesktop>\Velmora.lnk)", c_what},
        {Shortcut, LR"(<UserPrograms>\Velmora.lnk)", c_what},
        {PathEntry, LR"(<ProgramFiles>\Brindlewave\bin)", c_what},
        {PathEntry, LR"(%USERPROFILE%\AppData\Local\Vel Mora\lib\)", c_what},
        {PathEntry, LR"(%USERPROFILE%\AppData\Local\Vel Mora\lib2)", c_what},
        {PathEntry, L"<Expanded>", c_what},
        {Key, LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora2)", c_what},
        {Key, LR"(SOFTWARE\Wow6432Node\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)", c_what},
        {Key, LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\App Paths\Velmora2.exe)", c_what},
        {Key, LR"(SOFTWARE\Velmora2)", c_what},
        {Key, LR"(SOFTWARE\Velmora2\Capabilities)", c_what},
        {Key, LR"(SOFTWARE\Classes\Velmora.Protocol2)", c_what},
        {Key, LR"(SOFTWARE\Classes\velmora2)", c_what},
        {Key, LR"(SOFTWARE\Classes\.vel)", c_what},
        {Key, LR"(HKCU\Software\Velmora)", c_what},
        {Key, LR"(HKCU\Software\Velmora\Capabilities)", c_what},
        {Key, LR"(HKCU\Software\Classes\velmora)", c_what},
        {Value, LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Run)", c_what, L"Velmora2"},
        {Value, LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Run)", c_what, L"Brindlewave"},
        {Value, LR"(HKCU\Software\Microsoft\Windows\CurrentVersion\Run)", c_what, L"Velmora"},
        {Value, LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Explorer\StartupApproved\Run)", c_what, L"Velmora2"},
        {Value, LR"(SOFTWARE\RegisteredApplications)", c_what, L"Velmora2"},
        {FirewallRule, L"Brindlewave Login Server", c_what},
        {FirewallRule, L"Velmora Login Server 2", c_what},
        {FirewallRule, L"Velmora", c_what},
        {ProvisionedPackage, L"Orvane.Brindlewave_k4wz81tqm0d3x", c_what},
        {InstalledPackage, L"Orvane.Brindlewave_k4wz81tqm0d3x", c_what},
        {InstalledPackage, L"Orvane.Velmora_8wekyb3d8bbwe", c_what},
    };
    return parts;
}

// ---- Files ---------------------------------------------------------------------------------------------------------

std::wstring ParentOf(std::wstring_view path)
{
    return std::wstring(path.substr(0, path.rfind(L'\\')));
}

bool Exists(std::wstring_view path)
{
    return GetFileAttributesW(AnyLength(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

void LayDownFiles(const TreeRow& tree)
{
    const std::wstring folder = Expand(tree.folder);
    for (const FileRow& row : tree.files)
    {
        for (int number = 1; number <= row.count; ++number)
        {
            std::wstring name = row.name;
            for (auto at = name.find(L'#'); at != std::wstring::npos; at = name.find(L'#'))
            {
                name.replace(at, 1, std::to_wstring(number));
            }
            if (name.ends_with(L'\\'))
            {
                MakeFolder(ParentOf(folder + L"\\" + name));
            }
            else
            {
                WriteTestFile(folder + L"\\" + name, row.size, row.attributes);
            }
        }
    }
}

bool IsPlainFolder(DWORD attributes)
{
    return (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == FILE_ATTRIBUTE_DIRECTORY;
}

void RemoveFile(const std::wstring& path)
{
    SetFileAttributesW(AnyLength(path).c_str(), FILE_ATTRIBUTE_NORMAL);
    if (!DeleteFileW(AnyLength(path).c_str()) && GetLastError() != ERROR_FILE_NOT_FOUND &&
        GetLastError() != ERROR_PATH_NOT_FOUND)
    {
        ThrowWindowsError("Cannot delete " + ToUtf8(path), GetLastError());
    }
}

// ---- Registry ------------------------------------------------------------------------------------------------------

// A key and, of a value, its name.
std::pair<std::wstring, std::optional<std::wstring>> SplitValue(const std::wstring& path)
{
    const auto separator = path.find(c_valueSeparator);
    return {path.substr(0, separator), separator == std::wstring::npos
                                           ? std::nullopt
                                           : std::optional(path.substr(separator + c_valueSeparator.size()))};
}

UniqueKey OpenKey(std::wstring_view path)
{
    const RootAndKey place = SplitKey(path);
    HKEY key = nullptr;
    RegOpenKeyExW(place.root, place.key.c_str(), 0, KEY_READ, &key);
    return UniqueKey(key);
}

void ThrowOnFailure(std::string_view what, LSTATUS status)
{
    if (status != ERROR_SUCCESS)
    {
        ThrowWindowsError(what, static_cast<DWORD>(status));
    }
}

void RemoveKey(std::wstring_view path)
{
    const RootAndKey place = SplitKey(path);
    const LSTATUS status = RegDeleteTreeW(place.root, place.key.c_str());
    ThrowOnFailure("Cannot delete the key " + ToUtf8(path), status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status);
}

void LayDownValue(const ValueRow& row)
{
    std::vector<std::byte> data = TextValue(row.type, Expand(row.text)).data;
    if (row.type == REG_DWORD)
    {
        const auto number = static_cast<DWORD>(std::stoul(std::wstring(row.text)));
        data.resize(sizeof(number));
        std::memcpy(data.data(), &number, sizeof(number));
    }
    WriteValue(row.key, std::wstring(row.name).c_str(), row.type, data);
}

// Lays down what the table has for a key, or for one value in it.
void LayDownValues(const ProductPart& part)
{
    const auto [key, value] = SplitValue(PathOf(part));
    bool isListed = false;
    for (const ValueRow& row : c_values)
    {
        if (value ? row.key == key && row.name == *value : IsAtOrBelow(row.key, key))
        {
            LayDownValue(row);
            isListed = true;
        }
    }
    if (!isListed)
    {
        LayDownValue({key, part.valueName, L"a text"});
    }
}

// ---- PATH ----------------------------------------------------------------------------------------------------------

// The entries of a PATH as far as its first zero; the empty rest behind a ";" at its end is none.
std::vector<std::wstring> SplitPath(const StateEntry& value)
{
    std::wstring text(value.data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), value.data.data(), text.size() * sizeof(wchar_t));
    std::wistringstream stream(text.substr(0, text.find(L'\0')));
    std::vector<std::wstring> entries;
    for (std::wstring entry; std::getline(stream, entry, L';');)
    {
        entries.push_back(entry);
    }
    return entries;
}

StateEntry JoinPath(const std::vector<std::wstring>& entries)
{
    std::wstring text;
    for (const std::wstring& entry : entries)
    {
        text += entry + L";";
    }
    return TextValue(REG_EXPAND_SZ, text);
}

// Takes the last occurrence of an entry out of a PATH, and writes it as the uninstaller does. Returns whether there was
// one.
bool RemoveLastEntry(StateEntry& value, std::wstring_view entry)
{
    std::vector<std::wstring> entries = SplitPath(value);
    const auto found =
        std::find_if(entries.rbegin(), entries.rend(), [&](const std::wstring& one) { return SameName(one, entry); });
    if (found == entries.rend())
    {
        return false;
    }
    entries.erase(std::next(found).base());
    value = JoinPath(entries);
    return true;
}

std::wstring ExpandPathEntry(std::wstring_view entry)
{
    if (entry != L"<Expanded>")
    {
        return Expand(entry);
    }
    std::array<wchar_t, MAX_PATH> text{};
    ExpandEnvironmentStringsW(std::wstring(c_pathEntry).c_str(), text.data(), static_cast<DWORD>(text.size()));
    return text.data();
}

// Adds an entry to the machine's PATH.
void LayDownEntry(std::wstring_view entry)
{
    std::vector<std::wstring> entries = SplitPath(ReadMachinePath());
    entries.push_back(ExpandPathEntry(entry));
    WriteMachinePath(JoinPath(entries));
}

// ---- Parts ---------------------------------------------------------------------------------------------------------

// A family is the package's name and its maker's.
void LayDownPackage(const std::wstring& list, const std::wstring& family)
{
    std::wstring fullName = family;
    fullName.replace(fullName.find(L'_'), 1, L"_1.4.2.0_x64__");
    const ServerState packages = StateOf(Server::Packages);
    packages.WriteText(list + family, L"FamilyName", family);
    packages.WriteText(list + family, L"FullName", fullName);
    packages.WriteText(list + family, L"InstalledPath", Expand(LR"(<ProgramFiles>\WindowsApps\)") + fullName);
}

// Whether it lies on this machine at all: a real Windows has no servers, and services are installed by the tests that
// run them.
bool IsOfSample(const ProductPart& part)
{
    return part.kind != ProductPart::Kind::Service && (HasServers() || !IsAtOrBelow(PathOf(part), c_serversKey));
}

void LayDown(const ProductPart& part)
{
    using enum ProductPart::Kind;
    const std::wstring place(part.place);
    switch (IsOfSample(part) ? part.kind : Service)
    {
    case Shortcut:
        WriteTestFile(Expand(place), 1'000);
        break;
    case Folder: {
        const auto tree = std::ranges::find(Trees(), part.place, &TreeRow::folder);
        LayDownFiles(tree != Trees().end() ? *tree : TreeRow{part.place, {{L"file", 100}}});
        break;
    }
    case Key:
    case Value:
        LayDownValues(part);
        break;
    case PathEntry:
        LayDownEntry(place);
        break;
    case Service:
        break;
    case FirewallRule:
        StateOf(Server::Firewall).WriteText(L"Rules", place, place);
        break;
    case ProvisionedPackage:
        LayDownPackage(L"Provisioned\\", place);
        break;
    case InstalledPackage:
        LayDownPackage(L"Installed\\", place);
        break;
    }
}

struct KnownFolder
{
    std::wstring_view name;
    GUID id;
};

const std::array<KnownFolder, 8>& KnownFolders()
{
    static const std::array<KnownFolder, 8> folders{{
        {L"<ProgramFiles>", FOLDERID_ProgramFiles},
        {L"<ProgramData>", FOLDERID_ProgramData},
        {L"<PublicDesktop>", FOLDERID_PublicDesktop},
        {L"<CommonPrograms>", FOLDERID_CommonPrograms},
        {L"<UserDesktop>", FOLDERID_Desktop},
        {L"<UserPrograms>", FOLDERID_Programs},
        {L"<LocalAppData>", FOLDERID_LocalAppData},
        {L"<Downloads>", FOLDERID_Downloads},
    }};
    return folders;
}
} // namespace

std::vector<SampleItem> SampleItems()
{
    std::vector<SampleItem> items;
    const auto add = [&](const ProductPart& part, Fate fate) {
        if (IsOfSample(part))
        {
            const bool isEntry = part.kind == ProductPart::Kind::PathEntry;
            items.push_back(
                {fate, PathOf(part), isEntry ? ExpandPathEntry(part.place) : std::wstring(), std::string(part.what)});
        }
    };
    for (const StepRow& row : Steps())
    {
        for (const ProductPart& part : row.parts)
        {
            add(part, row.isOnlyWithSettings || part.isSetting ? Fate::RemovedWithSettings : Fate::Removed);
        }
    }
    for (const ProductPart& part : Bystanders())
    {
        add(part, Fate::Stays);
    }
    return items;
}

bool IsThere(const SampleItem& item)
{
    if (!item.pathEntry.empty())
    {
        const std::vector<std::wstring> entries = SplitPath(ReadMachinePath());
        return std::ranges::any_of(entries, [&](const std::wstring& one) { return SameName(one, item.pathEntry); });
    }
    if (!item.path.starts_with(L"HK"))
    {
        return Exists(item.path);
    }
    const auto [keyName, valueName] = SplitValue(item.path);
    const UniqueKey key = OpenKey(keyName);
    return key && (!valueName || RegQueryValueExW(key.get(), valueName->c_str(), nullptr, nullptr, nullptr, nullptr) ==
                                     ERROR_SUCCESS);
}

TreeSize MeasureTree(const std::wstring& folder)
{
    TreeSize size;
    ForEachFound(AnyLength(folder + L"\\*"), [&](const WIN32_FIND_DATAW& found) {
        if (IsPlainFolder(found.dwFileAttributes))
        {
            const TreeSize below = MeasureTree(folder + L"\\" + found.cFileName);
            size.files += below.files;
            size.bytes += below.bytes;
        }
        else
        {
            ++size.files;
            size.bytes += found.nFileSizeLow;
        }
    });
    return size;
}

std::wstring Expand(std::wstring_view text)
{
    std::wstring result(text);
    for (const KnownFolder& folder : KnownFolders())
    {
        if (const auto at = result.find(folder.name); at != std::wstring::npos)
        {
            wchar_t* path = nullptr;
            ThrowOnFailure("Cannot find " + ToUtf8(folder.name), SHGetKnownFolderPath(folder.id, 0, nullptr, &path));
            const UniqueTaskText owned(path);
            result.replace(at, folder.name.size(), path);
        }
    }
    return result;
}

std::wstring InstallFolder()
{
    return Expand(LR"(<ProgramFiles>\Velmora)");
}

std::wstring LegacyPackageFolder()
{
    return Expand(LR"(<ProgramFiles>\WindowsApps\)") + std::wstring(c_legacyPackage);
}

std::wstring PathOf(const ProductPart& part)
{
    using enum ProductPart::Kind;
    const std::wstring place(part.place);
    const std::wstring key = (place.starts_with(L"HKCU\\") ? L"" : L"HKLM\\") + place;
    const std::wstring separator(c_valueSeparator);
    switch (part.kind)
    {
    case Shortcut:
    case Folder:
        return Expand(place);
    case Key:
        return key;
    case Value:
        return key + separator + std::wstring(part.valueName);
    case PathEntry:
        return std::wstring(c_machinePathValue);
    case Service:
        return std::wstring(c_servicesKey) + L"\\" + place;
    case FirewallRule:
        return std::wstring(c_serversKey) + LR"(\Firewall\Rules)" + separator + place;
    case ProvisionedPackage:
        return std::wstring(c_serversKey) + LR"(\Packages\Provisioned\)" + place;
    case InstalledPackage:
        return std::wstring(c_serversKey) + LR"(\Packages\Installed\)" + place;
    }
    return {};
}

void LayDownSample(const std::set<Step>& leftOut)
{
    for (const StepRow& row : Steps())
    {
        if (!leftOut.contains(row.step))
        {
            std::ranges::for_each(row.parts, LayDown);
        }
    }
    std::ranges::for_each(Bystanders(), LayDown);
}

void RemoveSample()
{
    StateEntry path = ReadMachinePath();
    for (const SampleItem& item : SampleItems())
    {
        if (!item.pathEntry.empty())
        {
            if (RemoveLastEntry(path, item.pathEntry))
            {
                WriteMachinePath(path);
            }
        }
        else if (!item.path.starts_with(L"HK"))
        {
            RemoveTree(item.path);
        }
        else if (const auto [key, value] = SplitValue(item.path); !value)
        {
            RemoveKey(key);
        }
        else
        {
            RemoveValue(key, value->c_str());
        }
    }
}

void RemoveTree(const std::wstring& folder)
{
    const DWORD attributes = GetFileAttributesW(AnyLength(folder).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
    {
        return;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
    {
        RemoveFile(folder);
        return;
    }
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
    {
        RemoveDirectoryLink(folder);
        return;
    }
    ForEachFound(AnyLength(folder + L"\\*"),
                 [&](const WIN32_FIND_DATAW& found) { RemoveTree(folder + L"\\" + found.cFileName); });
    if (!RemoveDirectoryW(AnyLength(folder).c_str()))
    {
        ThrowWindowsError("Cannot delete the folder " + ToUtf8(folder), GetLastError());
    }
}

void MakeFolder(const std::wstring& folder)
{
    if (Exists(folder) || folder.ends_with(L':'))
    {
        return;
    }
    MakeFolder(ParentOf(folder));
    if (!CreateDirectoryW(AnyLength(folder).c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
    {
        ThrowWindowsError("Cannot make the folder " + ToUtf8(folder), GetLastError());
    }
}

std::string ReadText(const std::wstring& path)
{
    const UniqueHandle file =
        OwnFile(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, 0, nullptr));
    std::string text;
    std::array<char, 4096> buffer{};
    DWORD read = 0;
    while (file && ReadFile(file.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr) && read > 0)
    {
        text.append(buffer.data(), read);
    }
    return text;
}

void WriteTestFile(const std::wstring& path, std::size_t size, DWORD attributes)
{
    // Every file has a content of its own, so that none can be mistaken for another.
    const std::string pattern = ToUtf8(path) + "\n";
    std::string content(size, ' ');
    for (std::size_t i = 0; i < size; ++i)
    {
        content[i] = pattern[i % pattern.size()];
    }
    WriteBytes(path, content);
    if (attributes != 0)
    {
        SetFileAttributesW(AnyLength(path).c_str(), attributes);
    }
}

void WriteBytes(const std::wstring& path, const std::string& bytes)
{
    MakeFolder(ParentOf(path));
    const UniqueHandle file = OwnFile(
        CreateFileW(AnyLength(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!file || !WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
    {
        ThrowWindowsError("Cannot write " + ToUtf8(path), GetLastError());
    }
}

StateEntry ReadMachinePath()
{
    StateEntry value{.kind = StateEntry::Kind::Value, .detail = REG_EXPAND_SZ, .data = {}};
    const UniqueKey key = OpenKey(c_environmentKey);
    DWORD size = 0;
    if (key && RegQueryValueExW(key.get(), L"PATH", nullptr, &value.detail, nullptr, &size) == ERROR_SUCCESS)
    {
        value.data.resize(size);
        RegQueryValueExW(key.get(), L"PATH", nullptr, nullptr, reinterpret_cast<BYTE*>(value.data.data()), &size);
    }
    return value;
}

void WriteMachinePath(const StateEntry& value)
{
    if (value.data.empty())
    {
        RemoveValue(c_environmentKey, L"PATH");
    }
    else
    {
        WriteValue(c_environmentKey, L"PATH", value.detail, value.data);
    }
}

void WriteValue(std::wstring_view key, const wchar_t* name, DWORD type, const std::vector<std::byte>& data)
{
    const RootAndKey place = SplitKey(key);
    ThrowOnFailure(
        "Cannot write the registry value " + ToUtf8(key) + " : " + ToUtf8(name),
        RegSetKeyValueW(place.root, place.key.c_str(), name, type, data.data(), static_cast<DWORD>(data.size())));
}

void RemoveValue(std::wstring_view key, const wchar_t* name)
{
    const RootAndKey place = SplitKey(key);
    const LSTATUS status = RegDeleteKeyValueW(place.root, place.key.c_str(), name);
    ThrowOnFailure("Cannot delete the registry value " + ToUtf8(key) + " : " + ToUtf8(name),
                   status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status);
}

MachineState AfterUninstall(const MachineState& before, bool removeUserSettings)
{
    MachineState after = before;
    for (const StepRow& row : Steps())
    {
        for (const ProductPart& part : row.parts)
        {
            if (!removeUserSettings && (row.isOnlyWithSettings || part.isSetting))
            {
                continue;
            }
            const StateEntry* const there = after.Find(PathOf(part));
            if (part.kind != ProductPart::Kind::PathEntry)
            {
                after.Erase(PathOf(part));
            }
            else if (StateEntry path = there != nullptr ? *there : StateEntry(); RemoveLastEntry(path, part.place))
            {
                after.Set(PathOf(part), path);
            }
        }
    }
    return after;
}
} // namespace Testing
