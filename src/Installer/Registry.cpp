#include "Installer/Registry.h"

#include "Installer/Common.h"
#include "Installer/Retry.h"
#include "Installer/Text.h"

#include <shlobj.h>

#include <wil/registry.h>
#include <wil/result.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace Installer
{

namespace
{

constexpr wchar_t c_uninstallKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora";
constexpr wchar_t c_runKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
constexpr wchar_t c_startupApprovedKey[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\StartupApproved\\Run";
constexpr wchar_t c_appPathsKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Velmora.exe";
constexpr wchar_t c_registeredApplicationsKey[] = L"SOFTWARE\\RegisteredApplications";
constexpr wchar_t c_settingsKey[] = L"SOFTWARE\\Velmora";
constexpr wchar_t c_capabilitiesKey[] = L"SOFTWARE\\Velmora\\Capabilities";
constexpr wchar_t c_protocolClassKey[] = L"SOFTWARE\\Classes\\Velmora.Protocol";
constexpr wchar_t c_urlSchemeKey[] = L"SOFTWARE\\Classes\\velmora";

// The product's name wherever it names a value.
constexpr wchar_t c_productValue[] = L"Velmora";

// Where the version lies that runs, inside the installation folder.
constexpr std::wstring_view c_runningVersionFolder = L"current";

HRESULT DeleteValue(HKEY key, const wchar_t* name)
{
    const LSTATUS status = RegDeleteValueW(key, name);
    if (status != ERROR_FILE_NOT_FOUND)
    {
        RETURN_IF_WIN32_ERROR(status);
    }
    return S_OK;
}

HRESULT DeleteMachineTree(const wchar_t* subKey)
{
    const LSTATUS status = RegDeleteTreeW(HKEY_LOCAL_MACHINE, subKey);
    if (status != ERROR_FILE_NOT_FOUND)
    {
        RETURN_IF_WIN32_ERROR(status);
    }
    return S_OK;
}

// The folder that the product was installed into, from the place that the entry names. Throws when nothing is left.
std::wstring NormalizeLocation(std::wstring location)
{
    location.erase(location.find_last_not_of(L'\\') + 1);
    if (location.ends_with(c_runningVersionFolder))
    {
        location.erase(location.size() - c_runningVersionFolder.size());
    }
    if (location.empty())
    {
        throw std::runtime_error("Install location cannot be empty!");
    }
    if (!location.ends_with(L'\\'))
    {
        location += L'\\';
    }
    return location;
}

// Up to four numbers between full stops, each reduced to 16 bits; one that is missing or empty is 0. Throws for a text
// that holds no number and for a number that an int cannot hold.
std::array<std::uint16_t, 4> ParseVersion(std::string_view text)
{
    std::array<std::uint16_t, 4> version{};
    for (auto& number : version)
    {
        const std::size_t end = text.find('.');
        const std::string field(text.substr(0, end));
        if (!field.empty())
        {
            number = static_cast<std::uint16_t>(std::stoi(field));
        }
        if (end == std::string_view::npos)
        {
            break;
        }
        text.remove_prefix(end + 1);
    }
    return version;
}

HRESULT TryRemoveStartupEntry()
{
    wil::unique_hkey run;
    RETURN_IF_FAILED(OpenMachineKey(c_runKey, run));
    wil::unique_hkey approved;
    RETURN_IF_FAILED(OpenMachineKey(c_startupApprovedKey, approved));

    RETURN_IF_FAILED(DeleteValue(run.get(), c_productValue));
    RETURN_IF_FAILED(DeleteValue(approved.get(), c_productValue));
    return S_OK;
}

HRESULT TryDeregisterApplication(bool removeUserSettings)
{
    RETURN_IF_FAILED(DeleteMachineTree(c_appPathsKey));
    wil::unique_hkey applications;
    RETURN_IF_FAILED(OpenMachineKey(c_registeredApplicationsKey, applications));
    RETURN_IF_FAILED(DeleteValue(applications.get(), c_productValue));
    RETURN_IF_FAILED(DeleteMachineTree(removeUserSettings ? c_settingsKey : c_capabilitiesKey));
    RETURN_IF_FAILED(DeleteMachineTree(c_protocolClassKey));
    RETURN_IF_FAILED(DeleteMachineTree(c_urlSchemeKey));
    SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
    return S_OK;
}

} // namespace

InstallRecord ReadInstallRecord() noexcept
try
{
    // Full access although the key is only read here: an entry that could not be removed is not an installation that
    // this process can uninstall.
    wil::unique_hkey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, c_uninstallKey, 0, KEY_ALL_ACCESS, key.put()) != ERROR_SUCCESS)
    {
        return {};
    }
    std::wstring location = wil::reg::get_value_string(key.get(), L"InstallLocation");
    const std::wstring version = wil::reg::get_value_string(key.get(), L"DisplayVersion");
    return {true, NormalizeLocation(std::move(location)), ParseVersion(WideToUtf8(version))};
}
catch (...)
{
    return {};
}

HRESULT OpenMachineKey(const wchar_t* subKey, wil::unique_hkey& key) noexcept
{
    RETURN_IF_WIN32_ERROR(RegCreateKeyExW(HKEY_LOCAL_MACHINE, subKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                          KEY_ALL_ACCESS, nullptr, key.put(), nullptr));
    return S_OK;
}

HRESULT RemoveStartupEntry() noexcept
{
    return Retry(c_tenTimesPausingAfterEach, TryRemoveStartupEntry);
}

HRESULT DeregisterApplication(bool removeUserSettings) noexcept
{
    return Retry(c_tenTimesPausingAfterEach, [=] { return TryDeregisterApplication(removeUserSettings); });
}

HRESULT RemoveUninstallEntry() noexcept
{
    return Retry(c_tenTimesPausingAfterEach, [] { return DeleteMachineTree(c_uninstallKey); });
}

} // namespace Installer
