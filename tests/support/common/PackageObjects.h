// A package manager that is not Windows' own: real objects of the Windows Runtime, in front of packages that a test
// made up. They support what removing a package needs; everything else is E_NOTIMPL.
#pragma once

#include <windows.h>

#include <unknwn.h>

#include <winrt/Windows.ApplicationModel.h>
#include <winrt/Windows.Foundation.Collections.h>
#include <winrt/Windows.Foundation.h>
#include <winrt/Windows.Management.Deployment.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Testing
{

inline constexpr wchar_t c_packageManagerClass[] = L"Windows.Management.Deployment.PackageManager";

// A package as a package manager shows it.
struct PackageDescription
{
    std::wstring familyName;
    std::wstring fullName;
    std::wstring installedPath;
};

// How an operation has ended.
struct OperationEnd
{
    winrt::Windows::Foundation::AsyncStatus status = winrt::Windows::Foundation::AsyncStatus::Completed;
    HRESULT error = S_OK; // what its ErrorCode is
};

class PackageStore;

// An operation of the package manager. It has started, and ends when somebody says so.
class DeploymentOperation : public winrt::implements<DeploymentOperation,
                                                     winrt::Windows::Foundation::IAsyncOperationWithProgress<
                                                         winrt::Windows::Management::Deployment::DeploymentResult,
                                                         winrt::Windows::Management::Deployment::DeploymentProgress>,
                                                     winrt::Windows::Foundation::IAsyncInfo>
{
public:
    using Result = winrt::Windows::Management::Deployment::DeploymentResult;
    using ProgressValue = winrt::Windows::Management::Deployment::DeploymentProgress;
    using CompletedHandler =
        winrt::Windows::Foundation::AsyncOperationWithProgressCompletedHandler<Result, ProgressValue>;
    using ProgressHandler = winrt::Windows::Foundation::AsyncOperationProgressHandler<Result, ProgressValue>;

    explicit DeploymentOperation(std::shared_ptr<PackageStore> store) : m_store(std::move(store)) {}

    // Ends the operation, on any thread, and calls the handler if there is one. Once only.
    void Finish(const OperationEnd& end);

    // What the caller of the package manager sees of it. A handler that is set after the end is called at once.
    void Completed(const CompletedHandler& handler);
    CompletedHandler Completed() { throw winrt::hresult_not_implemented(); }
    void Progress(const ProgressHandler&) { throw winrt::hresult_not_implemented(); }
    ProgressHandler Progress() { throw winrt::hresult_not_implemented(); }
    Result GetResults() { throw winrt::hresult_not_implemented(); }
    std::uint32_t Id() { throw winrt::hresult_not_implemented(); }
    winrt::Windows::Foundation::AsyncStatus Status();
    winrt::hresult ErrorCode();
    void Cancel() { throw winrt::hresult_not_implemented(); }
    void Close() { throw winrt::hresult_not_implemented(); }

private:
    std::shared_ptr<PackageStore> m_store;
    std::mutex m_mutex;
    std::optional<OperationEnd> m_end;
    CompletedHandler m_handler{nullptr};
};

// The packages behind a package manager, and what becomes of the calls. A method of the package manager's that throws
// (winrt::hresult_error, std::bad_alloc) gives its caller that failure.
class PackageStore
{
public:
    virtual ~PackageStore() = default;

    // Is called first in every call that the package manager's caller makes, with the function's name and what it is
    // called with or on: "FindPackages" and "", "FullName" and the package's full name, "RemovePackageAsync" with the
    // full name and the options, if it has any. The functions are those of the interfaces: FindProvisionedPackages (and
    // GetAt, Size of its list), FindPackages (and First, HasCurrent, Current, MoveNext of its list), Id, FamilyName,
    // FullName, InstalledPath, DeprovisionPackageForAllUsersAsync, RemovePackageAsync, Completed, Status, ErrorCode.
    virtual void Enter(std::wstring_view function, std::wstring_view argument,
                       std::optional<std::uint32_t> options) = 0;
    void Enter(std::wstring_view function, std::wstring_view argument) { Enter(function, argument, std::nullopt); }

    virtual std::vector<PackageDescription> Provisioned() = 0;
    virtual std::vector<PackageDescription> Installed() = 0;

    // Sets an operation off, which ends with Finish: at once, later, or on another thread.
    virtual void Deprovision(const std::wstring& familyName, winrt::com_ptr<DeploymentOperation> operation) = 0;
    // Options: none for the removal for the current user alone.
    virtual void Remove(const std::wstring& fullName, std::optional<std::uint32_t> options,
                        winrt::com_ptr<DeploymentOperation> operation) = 0;
};

// A removal as text: "<full name> 80000", or "<full name>" without options.
std::wstring DescribeRemoval(const std::wstring& fullName, std::optional<std::uint32_t> options);

// The activation factory of the class. C++/WinRT keeps no factory of this kind for later, so every PackageManager that
// a program makes is asked for here.
winrt::Windows::Foundation::IActivationFactory MakePackageManagerFactory(std::shared_ptr<PackageStore> store);

} // namespace Testing
