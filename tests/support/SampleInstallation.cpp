#include "support/SampleInstallation.h"

#include "support/DirectoryLink.h"
#include "support/Names.h"
#include "support/Owners.h"
#include "support/Servers.h"
#include "support/product/Product.h"

#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

namespace Testing
{
namespace
{
constexpr std::wstring_view c_anyLength = L"\\\\?\\";
constexpr std::wstring_view c_servicesKey = LR"(HKLM\SYSTEM\CurrentControlSet\Services)";
constexpr std::wstring_view c_environmentKey = LR"(HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment)";

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
    Group group;
    Fate fate;
    const wchar_t* folder;
    const char* what;
    std::vector<FileRow> files;
};

const std::vector<TreeRow>& Trees()
{
    static const std::vector<TreeRow> rows{
        {Group::InstallFolder,
         Fate::Removed,
         LR"(<ProgramFiles>\Velmora)",
         "the installation folder",
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
             {LR"(previous\Velmora.exe)", 280'000},
             {LR"(previous\locales\text-#.pak)", 2'000, 10},
             {LR"(libraries\a folder with a long name that goes on and on until nobody remembers how it began\)"
              LR"(another folder whose name is as long as the first one and says just as little as that did\)"
              LR"(and a third one below it so that the whole path is longer than old programs can manage\)"
              LR"(deep inside\the innermost sample.wav)",
              4'096},
         }},
        {Group::ServiceFolders,
         Fate::Removed,
         LR"(<ProgramFiles>\OrvaneAuthService)",
         "the authorization service's programs",
         {{LR"(OrvaneAuthService.exe)", 50'000}, {LR"(modules\module-#.dll)", 1'000, 3}}},
        {Group::ServiceFolders,
         Fate::Removed,
         LR"(<ProgramData>\OrvaneAuthService)",
         "the authorization service's data",
         {{LR"(tokens\token-#.dat)", 64, 4}, {LR"(service.log)", 5'000}, {LR"(inbox\)"}}},
        {Group::ServiceFolders,
         Fate::Removed,
         LR"(<ProgramData>\VelmoraUpdater)",
         "the updater service's data",
         {{LR"(packages\full-#.pkg)", 20'000, 2}, {LR"(state.json)", 300}, {LR"(staging\)"}}},
        {Group::UserFolders,
         Fate::RemovedWithSettings,
         LR"(<LocalAppData>\Vel Mora)",
         "the user's data",
         {{LR"(lib\library-#.dll)", 1'000, 3}, {LR"(settings.json)", 400}, {LR"(logs\client-#.log)", 800, 2}}},
        {Group::UserFolders,
         Fate::RemovedWithSettings,
         LR"(<LocalAppData>\Tessaline)",
         "the user's Tessaline data",
         {{LR"(tiles\tile-#.bin)", 256, 5}, {LR"(tessaline.db)", 4'000}}},

        {Group::Bystanders,
         Fate::Stays,
         LR"(<ProgramFiles>\Velmora2)",
         "another product's folder, named alike",
         {{LR"(Velmora.exe)", 1'000}, {LR"(current\locales\text-#.pak)", 100, 3}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(<ProgramFiles>\Brindlewave)",
         "another product's programs",
         {{LR"(Brindlewave.exe)", 2'000}, {LR"(plug-ins\Velmora\bridge.dll)", 500}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(<ProgramFiles>\OrvaneAuthService2)",
         "another service's programs",
         {{LR"(OrvaneAuthService.exe)", 1'000}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(<ProgramData>\Velmora)",
         "machine-wide data that is not the services'",
         {{LR"(catalog.db)", 3'000}, {LR"(VelmoraUpdater\notes.txt)", 20}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(<ProgramData>\Brindlewave)",
         "another product's data",
         {{LR"(OrvaneAuthService\tokens.dat)", 64}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(<LocalAppData>\Vel Mora 2)",
         "user data of a product named alike",
         {{LR"(lib\library.dll)", 100}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(<Downloads>\Velmora)",
         "what the user keeps among the downloads",
         {{LR"(Velmora Setup.exe)", 5'000}}},
    };
    return rows;
}

struct ShortcutRow
{
    Group group;
    Fate fate;
    const wchar_t* path;
    const wchar_t* target;
    const char* what;
};

const std::vector<ShortcutRow>& Shortcuts()
{
    static const std::vector<ShortcutRow> rows{
        {Group::Shortcuts, Fate::Removed, LR"(<PublicDesktop>\Velmora.lnk)",
         LR"(<ProgramFiles>\Velmora\current\Velmora.exe)", "the desktop shortcut"},
        {Group::Shortcuts, Fate::Removed, LR"(<CommonPrograms>\Velmora.lnk)",
         LR"(<ProgramFiles>\Velmora\current\Velmora.exe)", "the Start menu shortcut"},

        {Group::Bystanders, Fate::Stays, LR"(<PublicDesktop>\Brindlewave.lnk)",
         LR"(<ProgramFiles>\Brindlewave\Brindlewave.exe)", "another product's desktop shortcut"},
        {Group::Bystanders, Fate::Stays, LR"(<PublicDesktop>\Velmora Help.lnk)",
         LR"(<ProgramFiles>\Velmora2\Velmora.exe)", "a desktop shortcut named alike"},
        {Group::Bystanders, Fate::Stays, LR"(<CommonPrograms>\Brindlewave.lnk)",
         LR"(<ProgramFiles>\Brindlewave\Brindlewave.exe)", "another product's Start menu shortcut"},
        {Group::Bystanders, Fate::Stays, LR"(<CommonPrograms>\Velmora Help.lnk)",
         LR"(<ProgramFiles>\Velmora2\Velmora.exe)", "a Start menu shortcut named alike"},
        {Group::Bystanders, Fate::Stays, LR"(<CommonPrograms>\Velmora\Velmora.lnk)",
         LR"(<ProgramFiles>\Velmora2\Velmora.exe)", "a Start menu shortcut of the same name, in a folder"},
        {Group::Bystanders, Fate::Stays, LR"(<UserDesktop>\Velmora.lnk)",
         LR"(<ProgramFiles>\Velmora\current\Velmora.exe)", "the user's own desktop shortcut"},
        {Group::Bystanders, Fate::Stays, LR"(<UserPrograms>\Velmora.lnk)",
         LR"(<ProgramFiles>\Velmora\current\Velmora.exe)", "the user's own Start menu shortcut"},
    };
    return rows;
}

struct PathRow
{
    Group group;
    Fate fate;
    std::wstring_view entry;
    const char* what;
};

// In this order behind the entries that are there already. "<Expanded>" stands for our entry with its variable
// resolved.
const std::vector<PathRow>& PathEntries()
{
    static const std::vector<PathRow> rows{
        {Group::Bystanders, Fate::Stays, LR"(<ProgramFiles>\Brindlewave\bin)", "another product's PATH entry"},
        {Group::Bystanders, Fate::Stays, LR"(%USERPROFILE%\AppData\Local\Vel Mora\lib\)",
         "the product's PATH entry with a backslash behind it"},
        {Group::MachinePath, Fate::Removed, c_pathEntry, "the product's PATH entry"},
        {Group::Bystanders, Fate::Stays, L"<Expanded>", "the product's PATH entry with its variable resolved"},
        {Group::Bystanders, Fate::Stays, LR"(%USERPROFILE%\AppData\Local\Vel Mora\lib2)",
         "a PATH entry that begins alike"},
    };
    return rows;
}

struct Data
{
    DWORD type;
    const wchar_t* text = nullptr;
    DWORD number = 0;
    std::vector<std::byte> bytes{};
};

Data String(const wchar_t* text)
{
    return {.type = REG_SZ, .text = text};
}

Data ExpandableString(const wchar_t* text)
{
    return {.type = REG_EXPAND_SZ, .text = text};
}

Data Number(DWORD number)
{
    return {.type = REG_DWORD, .number = number};
}

// What Windows writes into StartupApproved for an entry that is switched on.
Data Approved()
{
    std::vector<std::byte> bytes(12);
    bytes[0] = std::byte{2};
    return {.type = REG_BINARY, .bytes = std::move(bytes)};
}

struct ValueRow
{
    const wchar_t* name;
    Data data;
};

// A key that is the product's (or a bystander's) own, with everything in it. A row below another names its own fate.
struct KeyRow
{
    Group group;
    Fate fate;
    const wchar_t* key;
    const char* what;
    std::vector<ValueRow> values;
};

const std::vector<KeyRow>& Keys()
{
    static const std::vector<KeyRow> rows{
        {Group::UninstallEntry,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)",
         "the uninstall entry",
         {{L"InstallLocation", String(LR"(<ProgramFiles>\Velmora)")},
          {L"DisplayVersion", String(L"2.8.1.2171")},
          {L"DisplayName", String(L"Velmora")},
          {L"Publisher", String(L"Orvane")},
          {L"DisplayIcon", String(LR"(<ProgramFiles>\Velmora\current\Velmora.exe)")},
          {L"UninstallString", String(LR"("<ProgramFiles>\Velmora\current\Velmora.Uninstaller.exe")")},
          {L"EstimatedSize", Number(6'200)},
          {L"NoModify", Number(1)}}},
        {Group::UninstallEntry,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora\Components)",
         "the uninstall entry's components",
         {{L"Client", Number(1)}, {L"AuthService", Number(1)}}},
        {Group::Registration,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\App Paths\Velmora.exe)",
         "the App Paths entry",
         {{L"", String(LR"(<ProgramFiles>\Velmora\current\Velmora.exe)")},
          {L"Path", String(LR"(<ProgramFiles>\Velmora\current)")}}},
        {Group::Registration,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Velmora\Capabilities)",
         "the application's capabilities",
         {{L"ApplicationName", String(L"Velmora")}, {L"ApplicationDescription", String(L"Sound libraries")}}},
        {Group::Registration,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Velmora\Capabilities\URLAssociations)",
         "the capabilities' URL associations",
         {{L"velmora", String(L"Velmora.Protocol")}}},
        {Group::Registration,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Classes\Velmora.Protocol)",
         "the URL protocol's class",
         {{L"", String(L"URL:Velmora")}, {L"URL Protocol", String(L"")}}},
        {Group::Registration,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Classes\Velmora.Protocol\shell\open\command)",
         "the URL protocol's command",
         {{L"", String(LR"("<ProgramFiles>\Velmora\current\Velmora.exe" "%1")")}}},
        {Group::Registration,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Classes\velmora)",
         "the URL scheme",
         {{L"", String(L"URL:velmora")}, {L"URL Protocol", String(L"")}}},
        {Group::Registration,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Classes\velmora\DefaultIcon)",
         "the URL scheme's icon",
         {{L"", ExpandableString(LR"(%ProgramFiles%\Velmora\current\Velmora.exe,0)")}}},
        {Group::Settings,
         Fate::RemovedWithSettings,
         LR"(HKLM\SOFTWARE\Velmora)",
         "the product's machine-wide settings",
         {{L"Channel", String(L"stable")}, {L"LibraryFolder", ExpandableString(LR"(%PUBLIC%\Music\Velmora)")}}},
        {Group::Settings,
         Fate::RemovedWithSettings,
         LR"(HKLM\SOFTWARE\Velmora\Updater)",
         "the updater's settings",
         {{L"Interval", Number(86'400)}}},
        {Group::Settings,
         Fate::RemovedWithSettings,
         LR"(HKLM\SOFTWARE\Velmora\Capabilities2)",
         "settings whose name begins like the capabilities'",
         {{L"Capabilities", Number(1)}}},
        {Group::LegacyPackage,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Velmora.Testing\Packages\Provisioned\Velmora)",
         "the legacy package, provisioned",
         {{L"FamilyName", String(L"Orvane.Velmora_k4wz81tqm0d3x")},
          {L"FullName", String(L"Orvane.Velmora_1.4.2.0_x64__k4wz81tqm0d3x")},
          {L"InstalledPath", String(LR"(<ProgramFiles>\WindowsApps\Orvane.Velmora_1.4.2.0_x64__k4wz81tqm0d3x)")}}},
        {Group::LegacyPackage,
         Fate::Removed,
         LR"(HKLM\SOFTWARE\Velmora.Testing\Packages\Installed\Velmora)",
         "the legacy package, installed",
         {{L"FamilyName", String(L"Orvane.Velmora_k4wz81tqm0d3x")},
          {L"FullName", String(L"Orvane.Velmora_1.4.2.0_x64__k4wz81tqm0d3x")},
          {L"InstalledPath", String(LR"(<ProgramFiles>\WindowsApps\Orvane.Velmora_1.4.2.0_x64__k4wz81tqm0d3x)")}}},

        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora2)",
         "another product's uninstall entry, named alike",
         {{L"InstallLocation", String(LR"(<ProgramFiles>\Velmora2)")}, {L"DisplayVersion", String(L"1.0")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\App Paths\Velmora2.exe)",
         "another product's App Paths entry",
         {{L"", String(LR"(<ProgramFiles>\Velmora2\Velmora.exe)")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Velmora2)",
         "another product's settings",
         {{L"Channel", String(L"beta")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Velmora2\Capabilities)",
         "another product's capabilities",
         {{L"ApplicationName", String(L"Velmora2")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Classes\Velmora.Protocol2)",
         "another URL protocol's class",
         {{L"URL Protocol", String(L"")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Classes\velmora2)",
         "another URL scheme",
         {{L"URL Protocol", String(L"")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Classes\.vel)",
         "a file extension",
         {{L"", String(L"Velmora.Protocol2")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKCU\Software\Velmora)",
         "the user's own settings",
         {{L"Theme", String(L"dark")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKCU\Software\Velmora\Capabilities)",
         "the user's own capabilities",
         {{L"ApplicationName", String(L"Velmora")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKCU\Software\Classes\velmora)",
         "the user's own URL scheme",
         {{L"URL Protocol", String(L"")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Velmora.Testing\Packages\Provisioned\Brindlewave)",
         "another product's package, provisioned",
         {{L"FamilyName", String(L"Orvane.Brindlewave_k4wz81tqm0d3x")},
          {L"FullName", String(L"Orvane.Brindlewave_2.0.0.0_x64__k4wz81tqm0d3x")},
          {L"InstalledPath", String(LR"(<ProgramFiles>\WindowsApps\Orvane.Brindlewave_2.0.0.0_x64__k4wz81tqm0d3x)")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Velmora.Testing\Packages\Provisioned\velmora in other letters)",
         "a package whose family differs in letter case, provisioned",
         {{L"FamilyName", String(L"Orvane.velmora_k4wz81tqm0d3x")},
          {L"FullName", String(L"Orvane.velmora_1.4.2.0_x64__k4wz81tqm0d3x")},
          {L"InstalledPath", String(LR"(<ProgramFiles>\WindowsApps\Orvane.velmora_1.4.2.0_x64__k4wz81tqm0d3x)")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Velmora.Testing\Packages\Installed\Brindlewave)",
         "another product's package, installed",
         {{L"FamilyName", String(L"Orvane.Brindlewave_k4wz81tqm0d3x")},
          {L"FullName", String(L"Orvane.Brindlewave_2.0.0.0_x64__k4wz81tqm0d3x")},
          {L"InstalledPath", String(LR"(<ProgramFiles>\WindowsApps\Orvane.Brindlewave_2.0.0.0_x64__k4wz81tqm0d3x)")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Velmora.Testing\Packages\Installed\velmora in other letters)",
         "a package whose family differs in letter case, installed",
         {{L"FamilyName", String(L"Orvane.velmora_k4wz81tqm0d3x")},
          {L"FullName", String(L"Orvane.velmora_1.4.2.0_x64__k4wz81tqm0d3x")},
          {L"InstalledPath", String(LR"(<ProgramFiles>\WindowsApps\Orvane.velmora_1.4.2.0_x64__k4wz81tqm0d3x)")}}},
        {Group::Bystanders,
         Fate::Stays,
         LR"(HKLM\SOFTWARE\Velmora.Testing\Packages\Installed\Velmora of somebody else)",
         "a package of another publisher, named alike",
         {{L"FamilyName", String(L"Orvane.Velmora_8wekyb3d8bbwe")},
          {L"FullName", String(L"Orvane.Velmora_1.4.2.0_x64__8wekyb3d8bbwe")},
          {L"InstalledPath", String(LR"(<ProgramFiles>\WindowsApps\Orvane.Velmora_1.4.2.0_x64__8wekyb3d8bbwe)")}}},
    };
    return rows;
}

// A service, which a test installs when it is to run.
struct ServiceRow
{
    std::wstring_view name;
    Fate fate;
};

const std::vector<ServiceRow>& Services()
{
    static const std::vector<ServiceRow> rows{
        {c_authService, Fate::Removed},
        {c_updaterService, Fate::Removed},
        // It is stopped, but stays installed.
        {c_spacedUpdaterService, Fate::Stays},
    };
    return rows;
}

// A value in a key that is not the product's.
struct SingleValueRow
{
    Group group;
    Fate fate;
    const wchar_t* key;
    const wchar_t* name;
    Data data;
    const char* what;
};

const std::vector<SingleValueRow>& SingleValues()
{
    constexpr const wchar_t* c_run = LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Run)";
    constexpr const wchar_t* c_userRun = LR"(HKCU\Software\Microsoft\Windows\CurrentVersion\Run)";
    constexpr const wchar_t* c_approved =
        LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Explorer\StartupApproved\Run)";
    constexpr const wchar_t* c_applications = LR"(HKLM\SOFTWARE\RegisteredApplications)";
    constexpr const wchar_t* c_firewallRules = LR"(HKLM\SOFTWARE\Velmora.Testing\Firewall\Rules)";
    static const std::vector<SingleValueRow> rows{
        {Group::StartupEntry, Fate::Removed, c_run, L"Velmora",
         String(LR"("<ProgramFiles>\Velmora\current\Velmora.exe" --hidden)"), "the startup entry"},
        {Group::StartupEntry, Fate::Removed, c_approved, L"Velmora", Approved(), "the startup entry's approval"},
        {Group::Registration, Fate::Removed, c_applications, L"Velmora", String(LR"(SOFTWARE\Velmora\Capabilities)"),
         "the registration for default programs"},
        {Group::FirewallRule, Fate::Removed, c_firewallRules, L"2", String(L"Velmora Login Server"),
         "the rule in the firewall"},

        {Group::Bystanders, Fate::Stays, c_run, L"Velmora2", String(LR"(<ProgramFiles>\Velmora2\Velmora.exe)"),
         "a startup entry named alike"},
        {Group::Bystanders, Fate::Stays, c_run, L"Brindlewave",
         String(LR"(<ProgramFiles>\Brindlewave\Brindlewave.exe)"), "another product's startup entry"},
        {Group::Bystanders, Fate::Stays, c_approved, L"Velmora2", Approved(), "a startup approval named alike"},
        {Group::Bystanders, Fate::Stays, c_approved, L"Brindlewave", Approved(), "another product's startup approval"},
        {Group::Bystanders, Fate::Stays, c_applications, L"Velmora2", String(LR"(SOFTWARE\Velmora2\Capabilities)"),
         "a registration for default programs, named alike"},
        {Group::Bystanders, Fate::Stays, c_userRun, L"Velmora",
         String(LR"("<ProgramFiles>\Velmora\current\Velmora.exe" --hidden)"), "the user's own startup entry"},
        {Group::Bystanders, Fate::Stays, c_firewallRules, L"1", String(L"Brindlewave Login Server"),
         "another product's rule in the firewall"},
        {Group::Bystanders, Fate::Stays, c_firewallRules, L"3", String(L"Velmora Login Server 2"),
         "a rule in the firewall whose name begins alike"},
        {Group::Bystanders, Fate::Stays, c_firewallRules, L"4", String(L"Velmora"),
         "another rule in the firewall, named like the product"},
    };
    return rows;
}

// ---- Files ---------------------------------------------------------------------------------------------------------

std::wstring AnyLength(std::wstring_view path)
{
    return std::wstring(c_anyLength) + std::wstring(path);
}

std::wstring ParentOf(std::wstring_view path)
{
    return std::wstring(path.substr(0, path.rfind(L'\\')));
}

bool Exists(std::wstring_view path)
{
    return GetFileAttributesW(AnyLength(path).c_str()) != INVALID_FILE_ATTRIBUTES;
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

// Calls visit with the full path and the attributes of everything directly in the folder.
template <typename Visit>
void ForEachIn(const std::wstring& folder, Visit visit)
{
    WIN32_FIND_DATAW found{};
    const HANDLE handle = FindFirstFileW((AnyLength(folder) + L"\\*").c_str(), &found);
    if (handle == INVALID_HANDLE_VALUE)
    {
        return;
    }
    const UniqueSearch search(handle);
    do
    {
        if (const std::wstring_view name = found.cFileName; name != L"." && name != L"..")
        {
            visit(folder + L"\\" + found.cFileName, found);
        }
    } while (FindNextFileW(search.get(), &found));
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

// ---- Shortcuts -----------------------------------------------------------------------------------------------------

void CheckCom(std::string_view what, HRESULT result)
{
    if (FAILED(result))
    {
        ThrowWindowsError(what, static_cast<DWORD>(result));
    }
}

void LayDownShortcut(const ShortcutRow& row)
{
    const std::wstring path = Expand(row.path);
    MakeFolder(ParentOf(path));
    IShellLinkW* link = nullptr;
    CheckCom("Cannot make a shortcut", CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                                        reinterpret_cast<void**>(&link)));
    const UniqueCom<IShellLinkW> ownedLink(link);
    CheckCom("Cannot set a shortcut's target", link->SetPath(Expand(row.target).c_str()));
    IPersistFile* file = nullptr;
    CheckCom("Cannot save a shortcut", link->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&file)));
    const UniqueCom<IPersistFile> ownedFile(file);
    CheckCom("Cannot save the shortcut " + ToUtf8(path), file->Save(path.c_str(), TRUE));
}

// Makes COM usable on this thread while it lives.
class ComForThread
{
public:
    ComForThread() : m_result(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~ComForThread()
    {
        if (SUCCEEDED(m_result))
        {
            CoUninitialize();
        }
    }
    ComForThread(const ComForThread&) = delete;
    ComForThread& operator=(const ComForThread&) = delete;

private:
    HRESULT m_result;
};

// ---- Registry ------------------------------------------------------------------------------------------------------

struct RootAndKey
{
    HKEY root;
    std::wstring key;
};

RootAndKey SplitKey(std::wstring_view path)
{
    const auto end = path.find(L'\\');
    return {path.substr(0, end) == L"HKLM" ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER,
            std::wstring(path.substr(end + 1))};
}

UniqueKey OpenKey(std::wstring_view path, REGSAM access)
{
    const RootAndKey place = SplitKey(path);
    HKEY key = nullptr;
    RegOpenKeyExW(place.root, place.key.c_str(), 0, access, &key);
    return UniqueKey(key);
}

void RemoveKey(std::wstring_view path)
{
    const RootAndKey place = SplitKey(path);
    const LSTATUS status = RegDeleteTreeW(place.root, place.key.c_str());
    if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND)
    {
        ThrowWindowsError("Cannot delete the key " + ToUtf8(path), static_cast<DWORD>(status));
    }
}

std::vector<std::byte> BytesOf(const void* data, std::size_t size)
{
    std::vector<std::byte> bytes(size);
    std::memcpy(bytes.data(), data, size);
    return bytes;
}

void LayDownValue(const wchar_t* key, const wchar_t* name, const Data& data)
{
    if (data.text != nullptr)
    {
        WriteValue(key, name, data.type, TextValue(data.type, Expand(data.text)).data);
    }
    else if (data.type == REG_DWORD)
    {
        WriteValue(key, name, data.type, BytesOf(&data.number, sizeof(data.number)));
    }
    else
    {
        WriteValue(key, name, data.type, data.bytes);
    }
}

// ---- PATH ----------------------------------------------------------------------------------------------------------

std::wstring TextUpToZero(const std::vector<std::byte>& data)
{
    std::wstring text(data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
    return text.substr(0, text.find(L'\0'));
}

// The entries of a PATH; the empty rest behind a ";" at its end is none.
std::vector<std::wstring> SplitPath(std::wstring_view text)
{
    std::vector<std::wstring> entries;
    while (!text.empty())
    {
        const auto end = std::min(text.find(L';'), text.size());
        entries.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return entries;
}

std::wstring JoinPath(const std::vector<std::wstring>& entries)
{
    std::wstring text;
    for (const std::wstring& entry : entries)
    {
        text += entry + L";";
    }
    return text;
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

void RemoveLastEntry(std::vector<std::wstring>& entries, std::wstring_view entry)
{
    const auto found =
        std::find_if(entries.rbegin(), entries.rend(), [&](const std::wstring& one) { return SameName(one, entry); });
    if (found != entries.rend())
    {
        entries.erase(std::next(found).base());
    }
}

void LayDownPath(const std::set<Group>& leftOut)
{
    const RawValue present = ReadMachinePath();
    std::vector<std::wstring> entries = SplitPath(TextUpToZero(present.data));
    for (const PathRow& row : PathEntries())
    {
        if (!leftOut.contains(row.group))
        {
            entries.push_back(ExpandPathEntry(row.entry));
        }
    }
    std::wstring text = JoinPath(entries);
    text.pop_back();
    WriteMachinePath({present.type, TextValue(present.type, text).data});
}

void RemovePathEntries()
{
    const RawValue present = ReadMachinePath();
    std::vector<std::wstring> entries = SplitPath(TextUpToZero(present.data));
    const std::size_t countBefore = entries.size();
    for (const PathRow& row : PathEntries())
    {
        RemoveLastEntry(entries, ExpandPathEntry(row.entry));
    }
    if (entries.size() != countBefore)
    {
        std::wstring text = JoinPath(entries);
        text.resize(text.empty() ? 0 : text.size() - 1);
        WriteMachinePath({present.type, TextValue(present.type, text).data});
    }
}

// The servers' keys mean something only where there are servers.
bool HasMeaning(std::wstring_view key)
{
    return HasServers() || !IsAtOrBelow(key, LR"(HKLM\SOFTWARE\Velmora.Testing)");
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

const std::vector<Group>& AllGroups()
{
    static const std::vector<Group> groups{Group::InstallFolder, Group::ServiceFolders, Group::Shortcuts,
                                           Group::MachinePath,   Group::FirewallRule,   Group::StartupEntry,
                                           Group::Registration,  Group::UninstallEntry, Group::Settings,
                                           Group::UserFolders,   Group::LegacyPackage,  Group::Bystanders};
    return groups;
}

std::string_view NameOf(Group group)
{
    switch (group)
    {
    case Group::InstallFolder:
        return "installation folder";
    case Group::ServiceFolders:
        return "services' folders";
    case Group::Shortcuts:
        return "shortcuts for all users";
    case Group::MachinePath:
        return "machine PATH";
    case Group::FirewallRule:
        return "rule in the firewall";
    case Group::StartupEntry:
        return "startup entry";
    case Group::Registration:
        return "application registration";
    case Group::UninstallEntry:
        return "uninstall entry";
    case Group::Settings:
        return "machine-wide settings, kept with the user's settings";
    case Group::UserFolders:
        return "user's folders, kept with the user's settings";
    case Group::LegacyPackage:
        return "legacy package";
    case Group::Bystanders:
        return "bystanders";
    }
    return {};
}

std::vector<SampleItem> SampleItems()
{
    std::vector<SampleItem> items;
    for (const TreeRow& row : Trees())
    {
        items.push_back({row.group, row.fate, row.what, Expand(row.folder), {}});
    }
    for (const ShortcutRow& row : Shortcuts())
    {
        items.push_back({row.group, row.fate, row.what, Expand(row.path), {}});
    }
    for (const PathRow& row : PathEntries())
    {
        items.push_back({row.group, row.fate, row.what, std::wstring(c_machinePathValue), ExpandPathEntry(row.entry)});
    }
    for (const KeyRow& row : Keys())
    {
        if (HasMeaning(row.key))
        {
            items.push_back({row.group, row.fate, row.what, row.key, {}});
        }
    }
    for (const SingleValueRow& row : SingleValues())
    {
        if (HasMeaning(row.key))
        {
            items.push_back({row.group, row.fate, row.what, row.key + std::wstring(c_valueSeparator) + row.name, {}});
        }
    }
    return items;
}

bool IsThere(const SampleItem& item)
{
    if (!item.pathEntry.empty())
    {
        const std::vector<std::wstring> entries = SplitPath(TextUpToZero(ReadMachinePath().data));
        return std::ranges::any_of(entries, [&](const std::wstring& one) { return SameName(one, item.pathEntry); });
    }
    if (!item.path.starts_with(L"HK"))
    {
        return Exists(item.path);
    }
    const auto separator = item.path.find(c_valueSeparator);
    const UniqueKey key = OpenKey(item.path.substr(0, separator), KEY_READ);
    return key && (separator == std::wstring::npos ||
                   RegQueryValueExW(key.get(), item.path.substr(separator + c_valueSeparator.size()).c_str(), nullptr,
                                    nullptr, nullptr, nullptr) == ERROR_SUCCESS);
}

TreeSize MeasureTree(const std::wstring& folder)
{
    TreeSize size;
    ForEachIn(folder, [&](const std::wstring& path, const WIN32_FIND_DATAW& found) {
        if (IsPlainFolder(found.dwFileAttributes))
        {
            const TreeSize below = MeasureTree(path);
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
        const auto at = result.find(folder.name);
        if (at != std::wstring::npos)
        {
            wchar_t* path = nullptr;
            const HRESULT status = SHGetKnownFolderPath(folder.id, 0, nullptr, &path);
            const UniqueTaskText owned(path);
            if (FAILED(status))
            {
                ThrowWindowsError("Cannot find " + ToUtf8(folder.name), static_cast<DWORD>(status));
            }
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

void LayDownSample(const std::set<Group>& leftOut)
{
    const ComForThread com;
    for (const TreeRow& row : Trees())
    {
        if (!leftOut.contains(row.group))
        {
            LayDownFiles(row);
        }
    }
    for (const ShortcutRow& row : Shortcuts())
    {
        if (!leftOut.contains(row.group))
        {
            LayDownShortcut(row);
        }
    }
    LayDownPath(leftOut);
    for (const KeyRow& row : Keys())
    {
        for (const ValueRow& value : row.values)
        {
            if (!leftOut.contains(row.group) && HasMeaning(row.key))
            {
                LayDownValue(row.key, value.name, value.data);
            }
        }
    }
    for (const SingleValueRow& row : SingleValues())
    {
        if (!leftOut.contains(row.group) && HasMeaning(row.key))
        {
            LayDownValue(row.key, row.name, row.data);
        }
    }
}

void RemoveSample()
{
    RemovePathEntries();
    for (const SampleItem& item : SampleItems())
    {
        if (!item.pathEntry.empty())
        {
            continue;
        }
        if (!item.path.starts_with(L"HK"))
        {
            RemoveTree(item.path);
        }
        else if (const auto separator = item.path.find(c_valueSeparator); separator != std::wstring::npos)
        {
            RemoveValue(item.path.substr(0, separator), item.path.substr(separator + c_valueSeparator.size()).c_str());
        }
        else
        {
            RemoveKey(item.path);
        }
    }
    // The folder that only held a bystander's shortcut.
    RemoveDirectoryW(Expand(LR"(<CommonPrograms>\Velmora)").c_str());
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
    ForEachIn(folder, [](const std::wstring& path, const WIN32_FIND_DATAW&) { RemoveTree(path); });
    if (!RemoveDirectoryW(AnyLength(folder).c_str()))
    {
        ThrowWindowsError("Cannot delete the folder " + ToUtf8(folder), GetLastError());
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
    MakeFolder(ParentOf(path));
    const UniqueHandle file = OwnFile(
        CreateFileW(AnyLength(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
    {
        ThrowWindowsError("Cannot write " + ToUtf8(path), GetLastError());
    }
    // Every file has a content of its own, so that none can be mistaken for another.
    const std::string pattern = ToUtf8(path) + "\n";
    std::string content;
    content.reserve(size + pattern.size());
    while (content.size() < size)
    {
        content += pattern;
    }
    content.resize(size);
    DWORD written = 0;
    if (!WriteFile(file.get(), content.data(), static_cast<DWORD>(size), &written, nullptr) || written != size)
    {
        ThrowWindowsError("Cannot write " + ToUtf8(path), GetLastError());
    }
    if (attributes != 0)
    {
        SetFileAttributesW(AnyLength(path).c_str(), attributes);
    }
}

RawValue ReadMachinePath()
{
    RawValue value;
    const UniqueKey key = OpenKey(c_environmentKey, KEY_READ);
    DWORD size = 0;
    if (key && RegQueryValueExW(key.get(), L"PATH", nullptr, &value.type, nullptr, &size) == ERROR_SUCCESS)
    {
        value.data.resize(size);
        RegQueryValueExW(key.get(), L"PATH", nullptr, nullptr, reinterpret_cast<BYTE*>(value.data.data()), &size);
    }
    return value;
}

void WriteMachinePath(const RawValue& value)
{
    if (value.data.empty())
    {
        RemoveValue(c_environmentKey, L"PATH");
    }
    else
    {
        WriteValue(c_environmentKey, L"PATH", value.type, value.data);
    }
}

void WriteValue(std::wstring_view key, const wchar_t* name, DWORD type, const std::vector<std::byte>& data)
{
    const RootAndKey place = SplitKey(key);
    HKEY opened = nullptr;
    LSTATUS status =
        RegCreateKeyExW(place.root, place.key.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &opened, nullptr);
    const UniqueKey owned(opened);
    if (status == ERROR_SUCCESS)
    {
        status = RegSetValueExW(opened, name, 0, type, reinterpret_cast<const BYTE*>(data.data()),
                                static_cast<DWORD>(data.size()));
    }
    if (status != ERROR_SUCCESS)
    {
        ThrowWindowsError("Cannot write the registry value " + ToUtf8(key) + " : " + ToUtf8(name),
                          static_cast<DWORD>(status));
    }
}

void RemoveValue(std::wstring_view key, const wchar_t* name)
{
    if (const UniqueKey opened = OpenKey(key, KEY_SET_VALUE))
    {
        const LSTATUS status = RegDeleteValueW(opened.get(), name);
        if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND)
        {
            ThrowWindowsError("Cannot delete the registry value " + ToUtf8(key) + " : " + ToUtf8(name),
                              static_cast<DWORD>(status));
        }
    }
}

MachineState AfterUninstall(const MachineState& before, bool removeUserSettings)
{
    MachineState after = before;
    for (const SampleItem& item : SampleItems())
    {
        if (item.fate == Fate::Removed || (item.fate == Fate::RemovedWithSettings && removeUserSettings))
        {
            if (item.pathEntry.empty())
            {
                after.Erase(item.path);
            }
            else
            {
                RemovePathEntry(after);
            }
        }
    }
    for (const ServiceRow& row : Services())
    {
        if (row.fate == Fate::Removed)
        {
            after.Erase(std::wstring(c_servicesKey) + L"\\" + std::wstring(row.name));
        }
    }
    return after;
}

void RemovePathEntry(MachineState& state)
{
    const StateEntry* path = state.Find(c_machinePathValue);
    if (path == nullptr)
    {
        return;
    }
    std::vector<std::wstring> entries = SplitPath(TextUpToZero(path->data));
    const std::size_t countBefore = entries.size();
    RemoveLastEntry(entries, c_pathEntry);
    if (entries.size() != countBefore)
    {
        state.Set(c_machinePathValue, TextValue(REG_EXPAND_SZ, JoinPath(entries)));
    }
}
} // namespace Testing
