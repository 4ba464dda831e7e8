#include "Installer/Migrator.h"

#include "Installer/ClientHelper.h"
#include "Installer/Common.h"
#include "Installer/Logger.h"
#include "Installer/Text.h"

#include <roapi.h>

#include <wil/resource.h>
#include <wil/result.h>

// After Windows' own headers, whose types it then knows.
#include <winrt/Windows.ApplicationModel.h>
#include <winrt/Windows.Foundation.Collections.h>
#include <winrt/Windows.Foundation.h>
#include <winrt/Windows.Management.Deployment.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>

namespace Installer
{

namespace
{

using winrt::hstring;
using winrt::Windows::ApplicationModel::Package;
using winrt::Windows::Foundation::AsyncStatus;
using winrt::Windows::Foundation::IAsyncOperationWithProgress;
using winrt::Windows::Management::Deployment::DeploymentProgress;
using winrt::Windows::Management::Deployment::DeploymentResult;
using winrt::Windows::Management::Deployment::PackageManager;
using winrt::Windows::Management::Deployment::RemovalOptions;

using DeploymentOperation = IAsyncOperationWithProgress<DeploymentResult, DeploymentProgress>;

constexpr wchar_t c_familyName[] = L"Orvane.Velmora_k4wz81tqm0d3x";
constexpr wchar_t c_serviceFolder[] = L"OrvaneAuthService//";

constexpr wchar_t c_searchingProvisioned[] = L"[Migrator] Searching for provisioned Velmora legacy packages...";
constexpr wchar_t c_provisionedSearchFailed[] =
    L"[Migrator] Failed to search for provisioned Velmora legacy packages: ";
constexpr wchar_t c_deprovisioned[] = L"[Migrator] Deprovisioned Velmora Package to prevent future auto-installs...";
constexpr wchar_t c_deprovisioningFailed[] = L"[Migrator] Failed to deprovisioned Velmora Package: ";
constexpr wchar_t c_searchingInstalled[] = L"[Migrator] Searching for installed Velmora legacy packages...";
constexpr wchar_t c_installedSearchFailed[] = L"[Migrator] Failed to search for installed Velmora legacy packages: ";
constexpr wchar_t c_preparing[] = L"[Migrator] Preparing to remove legacy Velmora installation at: ";
constexpr wchar_t c_removed[] = L"[Migrator] Successfully removed legacy Velmora installation!";
constexpr wchar_t c_removalFailed[] = L"[Migrator] Failed to remove legacy Velmora installation: ";
constexpr wchar_t c_removingForOneUser[] = L"[Migrator] Attempting to remove for single user only...";

std::int32_t __stdcall GetRegisteredFactory(void* className, const winrt::guid& id, void** factory) noexcept
{
    return RoGetActivationFactory(static_cast<HSTRING>(className), id, factory);
}

// Waits until an operation has ended. Returns nothing when it completed, otherwise its error code.
std::optional<HRESULT> WaitForFailure(const DeploymentOperation& operation)
{
    // An operation may hold its handler longer than this call lasts.
    const auto ended = std::make_shared<wil::unique_event>(wil::EventOptions::ManualReset);
    operation.Completed([ended](const DeploymentOperation&, AsyncStatus) { ended->SetEvent(); });
    ended->wait();
    if (operation.Status() == AsyncStatus::Completed)
    {
        return std::nullopt;
    }
    return operation.ErrorCode();
}

// Does a search, which may need the package manager for the first time, and logs what it throws. C++/WinRT's own
// exceptions are not standard ones.
template <class Search>
void Guard(Logger& logger, const wchar_t* failureText, Search search)
{
    try
    {
        search();
    }
    catch (const std::exception& exception)
    {
        logger.Error(failureText + WidenExceptionText(exception.what()), false);
    }
    catch (...)
    {
        logger.Error(failureText + std::wstring(L"Unknown Error"), false);
    }
}

// The package manager, made when it is first needed: where it cannot be made, each search fails for itself.
class LazyPackageManager
{
public:
    const PackageManager& operator*()
    {
        if (!m_manager)
        {
            m_manager = PackageManager();
        }
        return m_manager;
    }

private:
    PackageManager m_manager{nullptr};
};

void Deprovision(const PackageManager& manager, const hstring& familyName, Logger& logger)
{
    const auto failure = WaitForFailure(manager.DeprovisionPackageForAllUsersAsync(familyName));
    if (!failure)
    {
        logger.Info(c_deprovisioned);
        return;
    }
    logger.Error(c_deprovisioningFailed + std::to_wstring(*failure), true);
}

void DeprovisionPackages(const PackageManager& manager, Logger& logger)
{
    for (const Package& package : manager.FindProvisionedPackages())
    {
        const hstring familyName = package.Id().FamilyName();
        if (familyName == c_familyName)
        {
            Deprovision(manager, familyName, logger);
        }
    }
}

// Removes one package. The result is set at each removal that fails, and kept otherwise.
void RemovePackage(const PackageManager& manager, const Package& package, const hstring& fullName, Logger& logger,
                   HRESULT& result)
try
{
    auto failure = WaitForFailure(manager.RemovePackageAsync(fullName, RemovalOptions::RemoveForAllUsers));
    logger.Info(std::wstring(c_preparing + package.InstalledPath()));
    if (!failure)
    {
        logger.Info(c_removed);
        return;
    }
    result = *failure;
    logger.Error(c_removalFailed + std::to_wstring(result), false);

    logger.Info(c_removingForOneUser);
    failure = WaitForFailure(manager.RemovePackageAsync(fullName));
    if (!failure)
    {
        // The result stays a failure: other users still have the package, and the caller shall try again.
        logger.Info(c_removed);
        return;
    }
    result = *failure;
    logger.Error(c_removalFailed + std::to_wstring(result), true);
}
catch (const std::exception& exception)
{
    logger.Error(c_removalFailed + WidenExceptionText(exception.what()), false);
}

void RemovePackages(const PackageManager& manager, Logger& logger, HRESULT& result)
{
    for (const Package& package : manager.FindPackages())
    {
        if (package.Id().FamilyName() == c_familyName)
        {
            StopRunningClient(logger);
            RemovePackage(manager, package, package.Id().FullName(), logger, result);
        }
    }
}

} // namespace

void UseRegisteredClassesOnly() noexcept
{
    winrt_activation_handler = GetRegisteredFactory;
}

HRESULT RemoveLegacyPackage(Logger& logger) noexcept
try
{
    HRESULT result = S_OK;
    LazyPackageManager manager;

    logger.Info(c_searchingProvisioned);
    Guard(logger, c_provisionedSearchFailed, [&] { DeprovisionPackages(*manager, logger); });

    logger.Info(c_searchingInstalled);
    Guard(logger, c_installedSearchFailed, [&] { RemovePackages(*manager, logger, result); });

    RemoveFolder(GetProgramFilesX64Folder() + c_serviceFolder);
    return result;
}
CATCH_RETURN()

} // namespace Installer
