#include "support/SimulatedMachine.h"

#include <algorithm>
#include <iostream>
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

// What the package manager's functions are called in the list of calls, without what they are called with.
std::string FunctionOf(const std::string& call)
{
    return call.substr(0, call.find(' '));
}

const std::vector<long> c_comErrors{E_ACCESSDENIED, E_FAIL, E_OUTOFMEMORY,
                                    HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE)};

} // namespace

SimulatedMachine::SimulatedMachine(FaultInjector& injector) : m_injector(injector)
{
    AddFiles();
    AddRegistry();
    AddServices();
    AddProcesses();
    m_firewall.onMethod = [this](const std::string& call) {
        const HRESULT failure = Fail("firewall", call);
        if (SUCCEEDED(failure) && call.starts_with("remove "))
        {
            m_rules.erase(call.substr(7));
        }
        return failure;
    };
    m_packages.installed = {{L"Other.App_1", L"Other_1.0", L"C:\\Apps\\Other"},
                            {L"Orvane.Velmora_k4wz81tqm0d3x", L"Velmora_1.0", L"C:\\Apps\\Velmora"}};
    m_packages.provisioned = {{L"Orvane.Velmora_k4wz81tqm0d3x", L"Velmora_1.0", L"C:\\Apps\\Velmora"},
                              {L"Other.App_1", L"Other_1.0", L"C:\\Apps\\Other"}};
    m_packages.onCall = [this](const std::string& call) { return Fail("package manager", call); };
    m_packages.onOperation = [this](const std::string& call, OperationEnd& end) { EndOperation(call, end); };
    m_shell.onStep = [this](const std::string& step) { return Fail("shell", step); };
    m_clock.onSleep = [this](DWORD milliseconds) {
        if (m_clock.Now() + milliseconds > longestPauses)
        {
            std::cerr << "The run does not come to an end: " << m_injector.Function() << ' ' << m_injector.Subject()
                      << '\n';
            throw std::logic_error("the run pauses longer than it may");
        }
    };
}

void SimulatedMachine::AddFiles()
{
    for (const wchar_t* const file :
         {L"C:\\Windows\\System32\\notepad.exe", L"C:\\Windows\\Temp\\Other\\data", c_publicShortcut,
          L"C:\\Users\\Public\\Desktop\\Other.lnk",
          L"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs\\Velmora.lnk",
          L"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs\\Other.lnk",
          L"C:\\Program Files\\Velmora\\Velmora.exe", L"C:\\Program Files\\Velmora\\current\\helper.exe",
          L"C:\\Program Files\\Velmora\\current\\data\\one", L"C:\\Program Files\\Velmora2\\program.exe",
          c_authServiceProgram, L"C:\\ProgramData\\OrvaneAuthService\\data", L"C:\\ProgramData\\Other\\data",
          L"C:\\ProgramData\\VelmoraUpdater\\cache\\data", L"C:\\Users\\ann\\AppData\\Local\\Vel Mora\\data",
          L"C:\\Users\\ann\\AppData\\Local\\Tessaline\\data", L"C:\\Users\\ann\\AppData\\Local\\Other\\data",
          L"C:\\Users\\admin\\AppData\\Local\\Vel Mora\\data", L"C:\\Users\\admin\\AppData\\Roaming\\Other\\data"})
    {
        m_files.AddFile(file);
    }
    m_files.AddFile(ownPath);
    m_files.AddFile(c_starterProgram);
    m_files.isInUse = [this](const std::wstring& path) {
        bool isRunning = path == ownPath;
        for (const DWORD id : {c_client, DWORD{52}, DWORD{60}, DWORD{70}, DWORD{1301}, DWORD{1302}})
        {
            const auto process = m_processes.Find(id);
            isRunning = isRunning || (process && process->image == path);
        }
        return isRunning;
    };
    m_files.onWrite = [this](const std::wstring& path, const std::string& text) {
        if (path.ends_with(L".log"))
        {
            NoteLine(text.substr(0, text.size() - 1));
        }
    };
}

void SimulatedMachine::AddRegistry()
{
    m_registry.SetString(c_environment, L"PATH", std::wstring(c_pathBefore, std::end(c_pathBefore) - 1), REG_EXPAND_SZ);
    m_registry.SetString(c_environment, L"TEMP", L"C:\\Windows\\Temp");
    for (const wchar_t* const key : {c_runKey, c_approvedKey, L"SOFTWARE\\RegisteredApplications"})
    {
        m_registry.SetString(key, L"Velmora", L"x");
        m_registry.SetString(key, L"Other", L"x");
    }
    for (const wchar_t* const key :
         {L"SOFTWARE\\Velmora", L"SOFTWARE\\Velmora\\Capabilities", L"SOFTWARE\\Velmora2",
          L"SOFTWARE\\Classes\\Velmora.Protocol\\shell", L"SOFTWARE\\Classes\\Velmora.Protocol",
          L"SOFTWARE\\Classes\\velmora", L"SOFTWARE\\Classes\\velmora2",
          L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Velmora.exe",
          L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Other.exe",
          L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Other"})
    {
        m_registry.AddKey(key);
    }
    m_registry.SetString(L"SOFTWARE\\Velmora", L"Setting", L"x");
    m_registry.SetString(c_uninstallKey, L"DisplayVersion", L"2.8.1.2171");
    m_registry.SetString(c_uninstallKey, L"InstallLocation", L"C:\\Program Files\\Velmora\\current\\");
}

void SimulatedMachine::AddServices()
{
    // One stops when it is asked to, the other only long after its process has been ended.
    AddService(L"OrvaneAuthService", 1301, 400);
    AddService(L"VelmoraUpdaterService", 1302, 15'000);
    m_services.Add(L"Velmora Updater Service").IsStopped();
    m_services.Add(L"Spooler").RunsAs(1303);
}

void SimulatedMachine::AddService(const wchar_t* name, DWORD process, ULONGLONG stopsAfter)
{
    FakeService& service = m_services.Add(name).RunsAs(process);
    service.onStopRequest = [=, this, &service] {
        service.Is(SERVICE_STOP_PENDING);
        m_clock.At(m_clock.Now() + stopsAfter, [=, this] {
            if (m_services.Has(name)) // and has not been deleted meanwhile
            {
                m_services.Add(name).IsStopped();
            }
            m_processes.Remove(process);
        });
    };
}

void SimulatedMachine::AddProcesses()
{
    m_processes.Add({.id = c_client, .name = L"Velmora.exe", .image = L"C:\\Program Files\\Velmora\\Velmora.exe"});
    m_processes.Add({.id = 52, .name = L"helper.exe", .image = L"C:\\Program Files\\Velmora\\current\\helper.exe"});
    m_processes.Add({.id = 60, .name = L"program.exe", .image = L"C:\\Program Files\\Velmora2\\program.exe"});
    m_processes.Add({.id = 61, .name = L"velmora.exe", .image = L"C:\\Windows\\System32\\notepad.exe"});
    // The program runs as the copy that the other process started, which is about to end.
    m_processes.Add({.id = 70,
                     .name = L"Velmora.Uninstaller.exe",
                     .image = c_starterProgram,
                     .created = 1,
                     .endsWhenWaitedFor = true});
    m_processes.Add({.id = 4711, .name = L"Velmora.Uninstaller.exe", .image = ownPath, .parent = 70, .created = 2});
    m_processes.Add({.id = 1301, .name = L"service.exe", .image = c_authServiceProgram});
    m_processes.Add({.id = 1302, .name = L"updater.exe", .image = L"C:\\Windows\\updater.exe"});
    m_processes.Add({.id = 1303, .name = L"spooler.exe", .image = L"C:\\Windows\\spooler.exe"});
    m_processes.Add({.id = c_explorer, .name = L"explorer.exe", .session = c_session, .isForDebuggers = true});
    m_windows.Add({.handle = 0x10, .process = c_explorer, .className = L"Shell_TrayWnd"});
    m_windows.Add({.handle = 0x20, .process = c_client, .className = L"Velmora_NotifyIcon_Handler_1"});
    m_windows.Add({.handle = 0x30, .process = 60, .className = L"Velmora_NotifyIcon_Handler_2"});
    m_windows.onPost = [this](std::uintptr_t window) { m_processes.Remove(window == 0x20 ? c_client : 60); };
}

std::set<std::string> SimulatedMachine::Everything() const
{
    std::set<std::string> all{"path " + Narrow(m_registry.FindString(c_environment, L"PATH"))};
    for (const std::wstring& path : m_files.All())
    {
        all.insert("file " + Narrow(path));
    }
    for (const std::wstring& entry : m_registry.Contents())
    {
        all.insert("registry " + Narrow(entry));
    }
    for (const wchar_t* const service : c_services)
    {
        if (m_services.Has(service))
        {
            all.insert("service " + Narrow(service));
        }
    }
    for (const DWORD id :
         {c_client, DWORD{52}, DWORD{60}, DWORD{61}, DWORD{70}, DWORD{1301}, DWORD{1302}, DWORD{1303}, c_explorer})
    {
        if (m_processes.Find(id))
        {
            all.insert("process " + std::to_string(id));
        }
    }
    for (const std::string& rule : m_rules)
    {
        all.insert("rule " + rule);
    }
    for (const PackageDescription& package : m_packages.installed)
    {
        all.insert("package " + Narrow(package.fullName));
    }
    for (const PackageDescription& package : m_packages.provisioned)
    {
        all.insert("provisioned " + Narrow(package.familyName));
    }
    return all;
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
    note("files", m_files.OpenHandles());
    note("keys", m_registry.OpenKeys());
    note("services", m_services.OpenHandles());
    note("processes, tokens or mutexes", m_processes.OpenHandles());
    note("shell objects", static_cast<std::size_t>(m_shell.References()));
    note("texts", m_shell.Texts());
    note("pieces of memory", m_memory.size());
    // What Windows does not take back stays.
    const bool isRefused = m_injector.Function() == "AdjustTokenPrivileges";
    note("enabled privileges", m_privileges.debug == FakePrivileges::State::Enabled && !isRefused ? 1 : 0);
    return leaks;
}

void SimulatedMachine::ClaimFolder(const std::wstring& folder)
{
    m_registry.SetString(c_uninstallKey, L"InstallLocation", folder);
}

void SimulatedMachine::RemoveHalf()
{
    DeleteFileW(c_publicShortcut);
    DeleteFileW(L"C:\\ProgramData\\VelmoraUpdater\\cache\\data");
    m_files.AddFile(L"C:\\Program Files\\Velmora\\current\\data\\read-only", "x", FILE_ATTRIBUTE_READONLY);
    m_packages.provisioned.erase(m_packages.provisioned.begin());
    m_packages.installed.pop_back();
    m_rules.erase("Velmora Login Server");
    m_registry.SetString(c_environment, L"PATH", L"C:\\A;C:\\B;", REG_EXPAND_SZ);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, c_approvedKey);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications");
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, c_uninstallKey);
    m_services.Add(L"OrvaneAuthService").IsStopped();
    for (const DWORD id : {c_client, DWORD{52}, DWORD{1301}})
    {
        m_processes.Remove(id);
    }
    m_windows.Remove(0x20);
}

void SimulatedMachine::NoteLine(std::string line)
{
    std::erase(line, '\r');
    // The same line comes from the console and from the file.
    if (m_log.empty() || m_log.back() != line)
    {
        m_log.push_back(std::move(line));
    }
}

HRESULT SimulatedMachine::Fail(const char* object, const std::string& call)
{
    return static_cast<HRESULT>(m_injector.Enter(object, c_comErrors, [&] { return FunctionOf(call); }).value_or(S_OK));
}

void SimulatedMachine::EndOperation(const std::string& call, OperationEnd& end)
{
    if (const auto error = m_injector.Enter("deployment", c_comErrors, [&] { return FunctionOf(call); }))
    {
        end = {.status = winrt::Windows::Foundation::AsyncStatus::Error, .error = static_cast<HRESULT>(*error)};
    }
    else if (call.starts_with("Deprovision"))
    {
        std::erase_if(m_packages.provisioned, [&](const PackageDescription& package) {
            return call == "DeprovisionPackageForAllUsersAsync " + Narrow(package.familyName);
        });
    }
    else
    {
        std::erase_if(m_packages.installed, [&](const PackageDescription& package) {
            return call.starts_with("RemovePackageAsync " + Narrow(package.fullName));
        });
    }
}

std::wstring SimulatedMachine::FindFolder(const KNOWNFOLDERID& id, bool isOfUser) const
{
    struct Folder
    {
        const KNOWNFOLDERID& id;
        const wchar_t* path;
    };
    static const Folder folders[] = {
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
    if (isOfUser)
    {
        return id == FOLDERID_LocalAppData ? L"C:\\Users\\ann\\AppData\\Local" : L"";
    }
    const auto* const found = std::ranges::find_if(folders, [&](const Folder& folder) { return folder.id == id; });
    return found == std::end(folders) ? L"" : found->path;
}

} // namespace Testing
