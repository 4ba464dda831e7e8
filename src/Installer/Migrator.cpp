#include "Installer/Migrator.h"

#include "Installer/ClientHelper.h"
#include "Installer/Common.h"
#include "Installer/Logger.h"
#include "Installer/ProductServices.h"

#include <roapi.h>

#include <wil/resource.h>
#include <wil/result.h>

// Last: C++/WinRT supports the classic COM types of headers that precede it.
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
constexpr wchar_t c_removingForSingleUser[] = L"[Migrator] Attempting to remove for single user only...";

std::int32_t __stdcall GetRegisteredFactory(void* className, const winrt::guid& id, void** factory) noexcept
{
    return RoGetActivationFactory(static_cast<HSTRING>(className), id, factory);
}

// Waits for an operation. Returns nullopt when it completed, otherwise its error code.
std::optional<HRESULT> WaitForCompletion(const DeploymentOperation& operation)
{
    // Shared: the operation may release its handler after this function has returned.
    const auto ended = std::make_shared<wil::unique_event>(wil::EventOptions::ManualReset);
    operation.Completed([ended](const DeploymentOperation&, AsyncStatus) { ended->SetEvent(); });
    ended->wait();
    if (operation.Status() == AsyncStatus::Completed)
    {
        return std::nullopt;
    }
    return operation.ErrorCode();
}

// Calls search() and logs its exceptions. winrt::hresult_error is not a std::exception.
template <class Search>
void LogExceptions(Logger& logger, const wchar_t* failureText, Search search)
{
    try
    {
        search();
    }
    catch (const std::exception& exception)
    {
        logger.Error(failureText, exception.what(), false);
    }
    catch (...)
    {
        logger.Error(failureText, "Unknown Error", false);
    }
}

// Activates the package manager on first use: if the activation fails, each search fails and logs it.
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
    const auto failure = WaitForCompletion(manager.DeprovisionPackageForAllUsersAsync(familyName));
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

// Removes one package. A failed removal sets `result`; a successful one leaves it unchanged.
void RemovePackage(const PackageManager& manager, const Package& package, const hstring& fullName, Logger& logger,
                   HRESULT& result)
try
{
    auto failure = WaitForCompletion(manager.RemovePackageAsync(fullName, RemovalOptions::RemoveForAllUsers));
    logger.Info(std::wstring(c_preparing + package.InstalledPath()));
    if (!failure)
    {
        logger.Info(c_removed);
        return;
    }
    result = *failure;
    logger.Error(c_removalFailed + std::to_wstring(result), false);

    logger.Info(c_removingForSingleUser);
    failure = WaitForCompletion(manager.RemovePackageAsync(fullName));
    if (!failure)
    {
        // `result` stays a failure: other users still have the package, and the caller retries.
        logger.Info(c_removed);
        return;
    }
    result = *failure;
    logger.Error(c_removalFailed + std::to_wstring(result), true);
}
catch (const std::exception& exception)
{
    logger.Error(c_removalFailed, exception.what(), false);
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
    LogExceptions(logger, c_provisionedSearchFailed, [&] { DeprovisionPackages(*manager, logger); });

    logger.Info(c_searchingInstalled);
    LogExceptions(logger, c_installedSearchFailed, [&] { RemovePackages(*manager, logger, result); });

    RemoveFolder(GetProgramFilesX64Folder() + c_authService + L"//"); // RemoveFolder normalises the separators
    return result;
}
CATCH_RETURN()

} // namespace Installer
