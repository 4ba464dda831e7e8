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

// The name of the product's values.
constexpr wchar_t c_productValue[] = L"Velmora";

// The folder of the installed version, in the installation folder.
constexpr std::wstring_view c_currentVersionFolder = L"current";

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

// The installation folder of an InstallLocation, with a trailing backslash. Throws std::runtime_error when it is empty.
std::wstring NormalizeLocation(std::wstring location)
{
    location.erase(location.find_last_not_of(L'\\') + 1);
    if (location.ends_with(c_currentVersionFolder))
    {
        location.erase(location.size() - c_currentVersionFolder.size());
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

// Parses up to four dot-separated numbers, truncated to 16 bits; missing or empty fields are 0. Throws what std::stoi
// throws.
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
    // KEY_ALL_ACCESS, although the key is only read: without the right to remove the entry, the product counts as not
    // found.
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
