#include "support/unit/SimulatedMachine.h"

#include "support/common/contract/Contract.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <stdexcept>

namespace Testing
{

namespace
{

using namespace std::string_literals;

constexpr wchar_t c_environment[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
constexpr wchar_t c_uninstallKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora";
constexpr wchar_t c_runKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
constexpr wchar_t c_approvedKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\StartupApproved\\Run";
constexpr wchar_t c_publicShortcut[] = L"C:\\Users\\Public\\Desktop\\Velmora.lnk";
constexpr wchar_t c_starterProgram[] = L"C:\\Program Files\\Velmora\\current\\Velmora.Uninstaller.exe";
constexpr wchar_t c_authServiceProgram[] = L"C:\\Program Files\\OrvaneAuthService\\service.exe";
constexpr const wchar_t* c_services[] = {L"OrvaneAuthService", L"VelmoraUpdaterService", L"Velmora Updater Service",
                                         L"Spooler"};

// The function that a call names.
std::string FunctionOf(const std::string& call)
{
    return call.substr(0, call.find('('));
}

// The first text that a call is about.
std::string TextIn(const std::string& call)
{
    const std::size_t begin = call.find('"') + 1;
    return call.substr(begin, call.find('"', begin) - begin);
}

struct KnownFolder
{
    const KNOWNFOLDERID& id;
    const wchar_t* path;
};

const KnownFolder c_folders[] = {
    {FOLDERID_Windows, L"C:\\Windows"},
    {FOLDERID_System, L"C:\\Windows\\System32"},
    {FOLDERID_ProgramFiles, L"C:\\Program Files"},
    {FOLDERID_ProgramFilesX64, L"C:\\Program Files"},
    {FOLDERID_ProgramData, L"C:\\ProgramData"},
    {FOLDERID_Profile, L"C:\\Users\\admin"},
    {FOLDERID_LocalAppData, L"C:\\Users\\admin\\AppData\\Local"},
    {FOLDERID_RoamingAppData, L"C:\\Users\\admin\\AppData\\Roaming"},
    {FOLDERID_Public, L"C:\\Users\\Public"},
    {FOLDERID_UserProfiles, L"C:\\Users"},
    {FOLDERID_PublicDesktop, L"C:\\Users\\Public\\Desktop"},
    {FOLDERID_CommonPrograms, L"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs"},
};

// As the table of steps names them; the last one is that of the user at the desktop.
constexpr std::pair<std::wstring_view, std::wstring_view> c_names[] = {
    {L"<ProgramFiles>", L"C:\\Program Files"},
    {L"<ProgramData>", L"C:\\ProgramData"},
    {L"<PublicDesktop>", L"C:\\Users\\Public\\Desktop"},
    {L"<CommonPrograms>", L"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs"},
    {L"<Folder>", L"C:\\Program Files\\Velmora\\"},
    {L"<LocalAppData>", L"C:\\Users\\ann\\AppData\\Local"},
};

const std::vector<long> c_comErrors{E_ACCESSDENIED, E_FAIL, E_OUTOFMEMORY,
                                    HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE)};

} // namespace

SimulatedMachine::SimulatedMachine(FaultInjector& injector) : m_injector(injector)
{
    Sentry().onClose = [this] { Note("sentry_close"); };
    AddProduct();
    AddFiles();
    AddRegistry();
    AddServices();
    AddProcesses();
    files.hasBackupPrivileges = [this] {
        return privileges.backup == FakePrivileges::State::Enabled &&
               privileges.restore == FakePrivileges::State::Enabled;
    };
    com.onCall = [this](const std::string& call) { CallMethod(call); };
    packages.installed.insert(packages.installed.begin(), {L"Other.App_1", L"Other_1.0", L"C:\\Apps\\Other"});
    packages.provisioned.push_back({L"Other.App_1", L"Other_1.0", L"C:\\Apps\\Other"});
    packages.onOperation = [this](const std::string& call, OperationEnd& end) { EndOperation(call, end); };
    clock.onSleep = [this](DWORD milliseconds) {
        if (clock.Now() + milliseconds > longestPauses)
        {
            std::cerr << "The run does not come to an end: " << m_injector.Function() << ' ' << m_injector.Subject()
                      << '\n';
            throw std::logic_error("the run pauses longer than it may");
        }
    };
}

SimulatedMachine::~SimulatedMachine()
{
    Sentry().onClose = [] {};
}

int SimulatedMachine::Run(const std::wstring& arguments)
{
    commandLine = L"uninstaller.exe " + arguments;
    const WholeRun run;
    return wWinMain(nullptr, nullptr, nullptr, 0);
}

void SimulatedMachine::AddProduct()
{
    for (const StepRow& row : Steps())
    {
        for (const ProductPart& part : row.parts)
        {
            const std::wstring place = Expand(part.place);
            switch (part.kind)
            {
            case ProductPart::Kind::Shortcut:
                files.AddFile(place);
                break;
            case ProductPart::Kind::Folder:
                files.AddFile(place + L"\\deep\\data");
                break;
            case ProductPart::Kind::Key:
                registry.AddKey(place);
                registry.AddKey(place + L"\\Deep");
                break;
            case ProductPart::Kind::Value:
                registry.SetString(place, std::wstring(part.valueName), L"x");
                break;
            case ProductPart::Kind::PathEntry:
                registry.SetString(c_environment, L"PATH", L"C:\\A;" + place + L";C:\\B", REG_EXPAND_SZ);
                break;
            case ProductPart::Kind::Service:
                services.Add(place);
                break;
            case ProductPart::Kind::FirewallRule:
                rules.insert(Narrow(place));
                break;
            case ProductPart::Kind::ProvisionedPackage:
                packages.provisioned.push_back({place, L"Velmora_1.0", L"C:\\Apps\\Velmora"});
                break;
            case ProductPart::Kind::InstalledPackage:
                packages.installed.push_back({place, L"Velmora_1.0", L"C:\\Apps\\Velmora"});
                break;
            }
        }
    }
}

bool SimulatedMachine::IsOf(const ProductPart& part, const std::string& thing)
{
    // Asked for each thing of thousands of runs.
    static std::map<std::wstring_view, std::string> places;
    const auto [known, isNew] = places.try_emplace(part.place);
    if (isNew)
    {
        known->second = Narrow(Expand(part.place));
    }
    const std::string& place = known->second;
    const auto isAtOrBelow = [&](const std::string& its) {
        return thing == its || (thing.starts_with(its) && (thing[its.size()] == '\\' || thing[its.size()] == ':'));
    };
    switch (part.kind)
    {
    case ProductPart::Kind::Shortcut:
    case ProductPart::Kind::Folder:
        return isAtOrBelow("file " + place);
    case ProductPart::Kind::Key:
        return isAtOrBelow("registry " + place);
    case ProductPart::Kind::Value:
        return thing == "registry " + place + ": " + Narrow(part.valueName);
    case ProductPart::Kind::PathEntry:
        return thing.starts_with("path ") && thing.find(place) != std::string::npos;
    case ProductPart::Kind::Service:
        return thing == "service " + place;
    case ProductPart::Kind::FirewallRule:
        return thing == "rule " + place;
    case ProductPart::Kind::ProvisionedPackage:
        return thing == "provisioned " + place;
    case ProductPart::Kind::InstalledPackage:
        return thing == "package Velmora_1.0";
    }
    return false;
}

void SimulatedMachine::Protect(const ProductPart& part)
{
    const std::wstring place = Expand(part.place);
    switch (part.kind)
    {
    case ProductPart::Kind::Shortcut:
        files.AddFile(place, "x", FILE_ATTRIBUTE_READONLY);
        break;
    case ProductPart::Kind::Folder:
        files.AddFile(place + L"\\deep\\data", "x", FILE_ATTRIBUTE_READONLY);
        break;
    case ProductPart::Kind::Key:
        for (std::wstring key = place; key.find(L'\\') != key.npos;
             key.resize(key.rfind(L'\\'))) // nor goes what it is in
        {
            journal.Fail("RegDeleteTreeW(\"" + Narrow(key) + "\")");
        }
        break;
    case ProductPart::Kind::Value:
        journal.Fail("RegDeleteValueW(\"" + Narrow(place) + "\", \"" + Narrow(part.valueName) + "\")");
        break;
    case ProductPart::Kind::PathEntry:
        journal.Fail("RegOpenKeyExW(\"" + Narrow(c_environment) + "\", 0xf003f)");
        break;
    case ProductPart::Kind::Service:
        journal.Fail("DeleteService(" + Narrow(place) + ')');
        break;
    case ProductPart::Kind::FirewallRule:
        com.Fail("INetFwRules::Remove", E_ACCESSDENIED);
        break;
    case ProductPart::Kind::ProvisionedPackage:
    case ProductPart::Kind::InstalledPackage:
        for (const char* const call :
             {"RemovePackageAsync(\"Velmora_1.0\", 0x80000)", "RemovePackageAsync(\"Velmora_1.0\")"})
        {
            packages.End(call, {winrt::Windows::Foundation::AsyncStatus::Error, E_ACCESSDENIED});
        }
        break;
    }
}

void SimulatedMachine::AddFiles()
{
    for (const wchar_t* const file :
         {L"C:\\Windows\\System32\\notepad.exe", L"C:\\Windows\\Temp\\Other\\data",
          L"C:\\Users\\Public\\Desktop\\Other.lnk",
          L"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs\\Other.lnk",
          L"C:\\Program Files\\Velmora\\Velmora.exe", L"C:\\Program Files\\Velmora\\current\\helper.exe",
          L"C:\\Program Files\\Velmora2\\program.exe", c_authServiceProgram, L"C:\\ProgramData\\Other\\data",
          L"C:\\Users\\ann\\AppData\\Local\\Other\\data", L"C:\\Users\\admin\\AppData\\Local\\Vel Mora\\data",
          L"C:\\Users\\admin\\AppData\\Roaming\\Other\\data"})
    {
        files.AddFile(file);
    }
    files.AddFile(c_copyPath);
    files.AddFile(c_starterProgram);
    files.isInUse = [this](const std::wstring& path) {
        bool isRunning = path == ownPath;
        for (const DWORD id : {c_client, c_helper, DWORD{60}, c_starter, DWORD{1301}, DWORD{1302}})
        {
            const auto process = processes.Find(id);
            isRunning = isRunning || (process && process->image == path);
        }
        return isRunning;
    };
    files.onWrite = [this](const std::wstring& path, const std::string& text) {
        if (path.ends_with(L".log"))
        {
            NoteLine(text.substr(0, text.size() - 1), Place::File);
        }
    };
}

void SimulatedMachine::AddRegistry()
{
    registry.SetString(c_environment, L"TEMP", L"C:\\Windows\\Temp");
    for (const wchar_t* const key : {c_runKey, c_approvedKey, L"SOFTWARE\\RegisteredApplications"})
    {
        registry.SetString(key, L"Other", L"x");
    }
    for (const wchar_t* const key : {L"SOFTWARE\\Velmora2", L"SOFTWARE\\Classes\\velmora2",
                                     L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Other.exe",
                                     L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Other"})
    {
        registry.AddKey(key);
    }
    registry.SetString(c_uninstallKey, L"DisplayVersion", L"2.8.1.2171");
    registry.SetString(c_uninstallKey, L"InstallLocation", L"C:\\Program Files\\Velmora\\current\\");
}

void SimulatedMachine::AddServices()
{
    // One stops when it is asked to, the other only long after its process has been ended.
    services.Add(L"OrvaneAuthService")
        .RunsAs({.id = 1301, .name = L"service.exe", .image = c_authServiceProgram})
        .StopsAfter(400);
    services.Add(L"VelmoraUpdaterService")
        .RunsAs({.id = 1302, .name = L"updater.exe", .image = L"C:\\Windows\\updater.exe"})
        .StopsAfter(15'000);
    services.Add(L"Velmora Updater Service").IsStopped();
    services.Add(L"Spooler").RunsAs({.id = 1303, .name = L"spooler.exe", .image = L"C:\\Windows\\spooler.exe"});
}

void SimulatedMachine::AddProcesses()
{
    processes.Add({.id = c_client, .name = L"Velmora.exe", .image = L"C:\\Program Files\\Velmora\\Velmora.exe"});
    processes.Add({.id = c_helper, .name = L"helper.exe", .image = L"C:\\Program Files\\Velmora\\current\\helper.exe"});
    processes.Add({.id = 60, .name = L"program.exe", .image = L"C:\\Program Files\\Velmora2\\program.exe"});
    processes.Add({.id = 61, .name = L"velmora.exe", .image = L"C:\\Windows\\System32\\notepad.exe"});
    // The program runs as the copy that the other process started, which is about to end.
    processes.Add({.id = c_starter,
                   .name = L"Velmora.Uninstaller.exe",
                   .image = c_starterProgram,
                   .created = 1,
                   .endsWhenWaitedFor = true});
    processes.Add(
        {.id = c_self, .name = L"Velmora.Uninstaller.exe", .image = ownPath, .parent = c_starter, .created = 2});
    processes.Add({.id = c_explorer, .name = L"explorer.exe", .isForDebuggers = true});
    windows.Add({.handle = 0x10, .process = c_explorer, .className = L"Shell_TrayWnd"});
    windows.Add({.handle = 0x20, .process = c_client, .className = L"Velmora_NotifyIcon_Handler_1"});
    windows.Add({.handle = 0x30, .process = 60, .className = L"Velmora_NotifyIcon_Handler_2"});
    windows.onPost = [this](std::uintptr_t window) { processes.Remove(window == 0x20 ? c_client : 60); };
}

std::set<std::string> SimulatedMachine::Everything() const
{
    std::set<std::string> all{"path " + Narrow(registry.FindString(c_environment, L"PATH"))};
    for (const std::wstring& path : files.All())
    {
        all.insert("file " + Narrow(path));
    }
    for (const std::wstring& entry : registry.Contents())
    {
        all.insert("registry " + Narrow(entry));
    }
    for (const wchar_t* const service : c_services)
    {
        if (services.Has(service))
        {
            all.insert("service " + Narrow(service));
        }
    }
    for (const DWORD id :
         {c_client, c_helper, DWORD{60}, DWORD{61}, c_starter, DWORD{1301}, DWORD{1302}, DWORD{1303}, c_explorer})
    {
        if (processes.Find(id))
        {
            all.insert("process " + std::to_string(id));
        }
    }
    for (const std::string& rule : rules)
    {
        all.insert("rule " + rule);
    }
    for (const PackageDescription& package : packages.installed)
    {
        all.insert("package " + Narrow(package.fullName));
    }
    for (const PackageDescription& package : packages.provisioned)
    {
        all.insert("provisioned " + Narrow(package.familyName));
    }
    return all;
}

bool SimulatedMachine::HasOpenedLog() const
{
    return std::ranges::any_of(com.All(), [](const std::string& step) {
        return step.starts_with("IShellDispatch2::ShellExecute") && step.find(Narrow(c_logPath)) != std::string::npos;
    });
}

std::string SimulatedMachine::Leaks() const
{
    std::string leaks;
    const auto note = [&](const char* kind, std::size_t count) {
        if (count != 0)
        {
            leaks += " " + std::to_string(count) + " " + kind;
        }
    };
    note("files, keys, services, processes, tokens or mutexes", handles.AllOpen().size());
    note("shell objects", static_cast<std::size_t>(shell.References()));
    note("texts", strings.Count());
    note("pieces of memory", m_memory.size());
    // What Windows does not take back stays.
    const bool isRefused = m_injector.Function() == "AdjustTokenPrivileges";
    note("enabled privileges", isRefused ? 0 : privileges.CountEnabled());
    return leaks;
}

void SimulatedMachine::ClaimFolder(const std::wstring& folder)
{
    registry.SetString(c_uninstallKey, L"InstallLocation", folder);
}

void SimulatedMachine::RunFromInstallFolder()
{
    ownPath = c_starterProgram;
}

void SimulatedMachine::StopProduct()
{
    for (const DWORD id : {c_client, c_helper, c_starter})
    {
        processes.Remove(id);
    }
    windows.Remove(0x20);
    services.Add(L"OrvaneAuthService").IsStopped();
    services.Add(L"VelmoraUpdaterService").IsStopped();
}

void SimulatedMachine::RemoveHalf()
{
    DeleteFileW(c_publicShortcut);
    DeleteFileW(L"C:\\ProgramData\\VelmoraUpdater\\deep\\data");
    files.AddFile(L"C:\\Program Files\\Velmora\\current\\read-only", "x", FILE_ATTRIBUTE_READONLY);
    packages.provisioned.erase(packages.provisioned.begin());
    packages.installed.pop_back();
    rules.erase("Velmora Login Server");
    registry.SetString(c_environment, L"PATH", L"C:\\A;C:\\B;", REG_EXPAND_SZ);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, c_approvedKey);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications");
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, c_uninstallKey);
    services.Add(L"OrvaneAuthService").IsStopped();
    for (const DWORD id : {c_client, c_helper, DWORD{1301}})
    {
        processes.Remove(id);
    }
    windows.Remove(0x20);
}

void SimulatedMachine::NoteLine(std::string line, Place place)
{
    std::erase(line, '\r');
    // A line goes to the console first and to the file then.
    if (place == Place::File && std::exchange(m_lineOnConsole, {}) == line)
    {
        return;
    }
    if (place == Place::Console)
    {
        m_lineOnConsole = line;
    }
    Note("log", line);
    m_log.push_back(std::move(line));
}

HRESULT SimulatedMachine::ShowDialog(const TASKDIALOGCONFIG& dialog, int* button, int* radioButton)
{
    const bool isConfirmation = dialog.cRadioButtons != 0;
    HWND const owner = dialog.hwndParent; // there are no references to members of a packed structure
    if (const DWORD error = journal.Add("TaskDialogIndirect", isConfirmation ? "confirmation" : "processes", owner))
    {
        return static_cast<HRESULT>(error);
    }
    Answer answer{isConfirmation ? IDYES : IDCONTINUE, 1};
    if (!answers.empty())
    {
        answer = std::move(answers.front());
        answers.pop_front();
    }
    answer.whileShown();
    *button = answer.button;
    if (isConfirmation)
    {
        *radioButton = answer.choice;
    }
    return S_OK;
}

void SimulatedMachine::CallMethod(const std::string& call)
{
    const std::string function = FunctionOf(call);
    const bool canFail = function != "WaitForSingleObjectEx" && !function.ends_with("::Release");
    if (const auto error = canFail ? m_injector.Enter("method", c_comErrors, [&] { return function; }) : std::nullopt)
    {
        com.Fail(call, *error, 1);
    }
    else if (call.starts_with("INetFwRules::Remove") && !com.WillFail(function))
    {
        rules.erase(TextIn(call));
    }
}

void SimulatedMachine::EndOperation(const std::string& call, OperationEnd& end)
{
    if (const auto error = m_injector.Enter("deployment", c_comErrors, [&] { return FunctionOf(call); }))
    {
        end = {.status = winrt::Windows::Foundation::AsyncStatus::Error, .error = static_cast<HRESULT>(*error)};
    }
    if (end.status != winrt::Windows::Foundation::AsyncStatus::Completed)
    {
        return;
    }
    if (call.starts_with("Deprovision"))
    {
        std::erase_if(packages.provisioned,
                      [&](const PackageDescription& package) { return TextIn(call) == Narrow(package.familyName); });
    }
    else
    {
        std::erase_if(packages.installed,
                      [&](const PackageDescription& package) { return TextIn(call) == Narrow(package.fullName); });
    }
}

std::wstring SimulatedMachine::FindFolder(const KNOWNFOLDERID& id, bool isOfUser)
{
    if (isOfUser)
    {
        return id == FOLDERID_LocalAppData ? Expand(L"<LocalAppData>") : L"";
    }
    const auto* const found =
        std::ranges::find_if(c_folders, [&](const KnownFolder& folder) { return folder.id == id; });
    return found == std::end(c_folders) ? L"" : found->path;
}

std::wstring SimulatedMachine::Expand(std::wstring_view text)
{
    std::wstring expanded(text);
    for (const auto& [name, path] : c_names)
    {
        if (const auto place = expanded.find(name); place != std::wstring::npos)
        {
            expanded.replace(place, name.size(), path);
        }
    }
    return expanded;
}

std::string SimulatedMachine::Expand(std::string_view text)
{
    return Narrow(Expand(std::wstring(text.begin(), text.end())));
}

} // namespace Testing
