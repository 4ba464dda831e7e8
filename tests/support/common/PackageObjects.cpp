#include "support/common/PackageObjects.h"

#include <array>
#include <charconv>
#include <utility>

namespace Testing
{

namespace
{

using namespace winrt::Windows::ApplicationModel;
using namespace winrt::Windows::Foundation;
using namespace winrt::Windows::Foundation::Collections;
using namespace winrt::Windows::Management::Deployment;
using winrt::hstring;

using Operation = IAsyncOperationWithProgress<DeploymentResult, DeploymentProgress>;
using Store = std::shared_ptr<PackageStore>;

// The result of what is not supported, whatever type it has.
struct NotSupported
{
    template <class T>
    explicit(false) operator T() const
    {
        throw winrt::hresult_not_implemented();
    }
};

class PackageIdObject : public winrt::implements<PackageIdObject, IPackageId>
{
public:
    PackageIdObject(Store store, PackageDescription package) : m_store(std::move(store)), m_package(std::move(package))
    {}

    hstring FamilyName()
    {
        m_store->Enter(L"FamilyName", m_package.fullName);
        return hstring(m_package.familyName);
    }
    hstring FullName()
    {
        m_store->Enter(L"FullName", m_package.fullName);
        return hstring(m_package.fullName);
    }
    NotSupported Name() { return {}; }
    NotSupported Version() { return {}; }
    NotSupported Architecture() { return {}; }
    NotSupported ResourceId() { return {}; }
    NotSupported Publisher() { return {}; }
    NotSupported PublisherId() { return {}; }

private:
    Store m_store;
    PackageDescription m_package;
};

class PackageObject : public winrt::implements<PackageObject, IPackage, IPackage8>
{
public:
    PackageObject(Store store, PackageDescription package) : m_store(std::move(store)), m_package(std::move(package)) {}

    PackageId Id()
    {
        m_store->Enter(L"Id", m_package.fullName);
        return winrt::make<PackageIdObject>(m_store, m_package).as<PackageId>();
    }
    hstring InstalledPath()
    {
        m_store->Enter(L"InstalledPath", m_package.fullName);
        return hstring(m_package.installedPath);
    }
    NotSupported InstalledLocation() { return {}; }
    NotSupported IsFramework() { return {}; }
    NotSupported Dependencies() { return {}; }
    NotSupported EffectiveExternalLocation() { return {}; }
    NotSupported MachineExternalLocation() { return {}; }
    NotSupported UserExternalLocation() { return {}; }
    NotSupported MutablePath() { return {}; }
    NotSupported EffectivePath() { return {}; }
    NotSupported EffectiveExternalPath() { return {}; }
    NotSupported MachineExternalPath() { return {}; }
    NotSupported UserExternalPath() { return {}; }
    NotSupported GetLogoAsRandomAccessStreamReference(const Size&) { return {}; }
    NotSupported GetAppListEntries() { return {}; }
    NotSupported IsStub() { return {}; }

private:
    Store m_store;
    PackageDescription m_package;
};

Package MakePackage(const Store& store, const PackageDescription& package)
{
    return winrt::make<PackageObject>(store, package).as<Package>();
}

// The list of provisioned packages, which is one with numbers.
class ProvisionedList : public winrt::implements<ProvisionedList, IVector<Package>, IIterable<Package>>
{
public:
    ProvisionedList(Store store, std::vector<PackageDescription> packages)
        : m_store(std::move(store)),
          m_packages(std::move(packages))
    {}

    std::uint32_t Size()
    {
        m_store->Enter(L"Size", L"");
        return static_cast<std::uint32_t>(m_packages.size());
    }
    Package GetAt(std::uint32_t index)
    {
        m_store->Enter(L"GetAt", std::to_wstring(index));
        if (index >= m_packages.size())
        {
            throw winrt::hresult_out_of_bounds();
        }
        return MakePackage(m_store, m_packages[index]);
    }
    NotSupported First() { return {}; }
    NotSupported GetView() { return {}; }
    NotSupported IndexOf(const Package&, std::uint32_t&) { return {}; }
    NotSupported GetMany(std::uint32_t, winrt::array_view<Package>) { return {}; }
    void SetAt(std::uint32_t, const Package&) { throw winrt::hresult_not_implemented(); }
    void InsertAt(std::uint32_t, const Package&) { throw winrt::hresult_not_implemented(); }
    void RemoveAt(std::uint32_t) { throw winrt::hresult_not_implemented(); }
    void Append(const Package&) { throw winrt::hresult_not_implemented(); }
    void RemoveAtEnd() { throw winrt::hresult_not_implemented(); }
    void Clear() { throw winrt::hresult_not_implemented(); }
    void ReplaceAll(winrt::array_view<const Package>) { throw winrt::hresult_not_implemented(); }

private:
    Store m_store;
    std::vector<PackageDescription> m_packages;
};

// The list of installed packages, which can only be walked.
class InstalledIterator : public winrt::implements<InstalledIterator, IIterator<Package>>
{
public:
    InstalledIterator(Store store, std::vector<PackageDescription> packages)
        : m_store(std::move(store)),
          m_packages(std::move(packages))
    {}

    bool HasCurrent()
    {
        m_store->Enter(L"HasCurrent", std::to_wstring(m_index));
        return m_index < m_packages.size();
    }
    Package Current()
    {
        m_store->Enter(L"Current", std::to_wstring(m_index));
        if (m_index >= m_packages.size())
        {
            throw winrt::hresult_out_of_bounds();
        }
        return MakePackage(m_store, m_packages[m_index]);
    }
    bool MoveNext()
    {
        m_store->Enter(L"MoveNext", std::to_wstring(m_index));
        if (m_index < m_packages.size())
        {
            ++m_index;
        }
        return m_index < m_packages.size();
    }
    NotSupported GetMany(winrt::array_view<Package>) { return {}; }

private:
    Store m_store;
    std::vector<PackageDescription> m_packages;
    std::size_t m_index = 0;
};

class InstalledList : public winrt::implements<InstalledList, IIterable<Package>>
{
public:
    InstalledList(Store store, std::vector<PackageDescription> packages)
        : m_store(std::move(store)),
          m_packages(std::move(packages))
    {}

    IIterator<Package> First()
    {
        m_store->Enter(L"First", L"");
        return winrt::make<InstalledIterator>(m_store, m_packages);
    }

private:
    Store m_store;
    std::vector<PackageDescription> m_packages;
};

class ManagerObject
    : public winrt::implements<ManagerObject, IPackageManager, IPackageManager2, IPackageManager8, IPackageManager9>
{
public:
    explicit ManagerObject(Store store) : m_store(std::move(store)) {}

    IVector<Package> FindProvisionedPackages()
    {
        m_store->Enter(L"FindProvisionedPackages", L"");
        return winrt::make<ProvisionedList>(m_store, m_store->Provisioned());
    }
    Operation DeprovisionPackageForAllUsersAsync(const hstring& familyName)
    {
        m_store->Enter(L"DeprovisionPackageForAllUsersAsync", familyName);
        const auto operation = winrt::make_self<DeploymentOperation>(m_store);
        m_store->Deprovision(std::wstring(familyName), operation);
        return *operation;
    }
    IIterable<Package> FindPackages()
    {
        m_store->Enter(L"FindPackages", L"");
        return winrt::make<InstalledList>(m_store, m_store->Installed());
    }
    Operation RemovePackageAsync(const hstring& fullName, RemovalOptions options)
    {
        return Remove(std::wstring(fullName), static_cast<std::uint32_t>(options));
    }
    Operation RemovePackageAsync(const hstring& fullName) { return Remove(std::wstring(fullName), std::nullopt); }

    template <class... Arguments>
    NotSupported FindPackages(const Arguments&...)
        requires(sizeof...(Arguments) != 0)
    {
        return {};
    }
    NotSupported AddPackageAsync(const auto&...) { return {}; }
    NotSupported UpdatePackageAsync(const auto&...) { return {}; }
    NotSupported StagePackageAsync(const auto&...) { return {}; }
    NotSupported RegisterPackageAsync(const auto&...) { return {}; }
    NotSupported FindPackagesForUser(const auto&...) { return {}; }
    NotSupported FindUsers(const auto&...) { return {}; }
    NotSupported FindPackage(const auto&...) { return {}; }
    NotSupported CleanupPackageForUserAsync(const auto&...) { return {}; }
    NotSupported FindPackageForUser(const auto&...) { return {}; }
    NotSupported RegisterPackageByFullNameAsync(const auto&...) { return {}; }
    NotSupported FindPackagesWithPackageTypes(const auto&...) { return {}; }
    NotSupported FindPackagesForUserWithPackageTypes(const auto&...) { return {}; }
    NotSupported StageUserDataAsync(const auto&...) { return {}; }
    NotSupported AddPackageByUriAsync(const auto&...) { return {}; }
    NotSupported StagePackageByUriAsync(const auto&...) { return {}; }
    NotSupported RegisterPackageByUriAsync(const auto&...) { return {}; }
    NotSupported RegisterPackagesByFullNameAsync(const auto&...) { return {}; }
    NotSupported GetPackageStubPreference(const auto&...) { return {}; }
    void SetPackageState(const auto&...) { throw winrt::hresult_not_implemented(); }
    void SetPackageStubPreference(const auto&...) { throw winrt::hresult_not_implemented(); }

private:
    Operation Remove(const std::wstring& fullName, std::optional<std::uint32_t> options)
    {
        m_store->Enter(L"RemovePackageAsync", fullName, options);
        const auto operation = winrt::make_self<DeploymentOperation>(m_store);
        m_store->Remove(fullName, options, operation);
        return *operation;
    }

    Store m_store;
};

class Factory : public winrt::implements<Factory, IActivationFactory, winrt::non_agile>
{
public:
    // C++/WinRT makes factories without arguments.
    void Serve(Store store) { m_store = std::move(store); }

    winrt::Windows::Foundation::IInspectable ActivateInstance()
    {
        m_store->Enter(L"ActivateInstance", L"");
        return winrt::make<ManagerObject>(m_store);
    }

private:
    Store m_store;
};

} // namespace

void DeploymentOperation::Finish(const OperationEnd& end)
{
    CompletedHandler handler{nullptr};
    {
        const std::lock_guard lock(m_mutex);
        m_end = end;
        handler = std::exchange(m_handler, nullptr);
    }
    if (handler)
    {
        handler(*this, end.status);
    }
}

void DeploymentOperation::Completed(const CompletedHandler& handler)
{
    m_store->Enter(L"Completed", L"");
    std::optional<OperationEnd> end;
    {
        const std::lock_guard lock(m_mutex);
        end = m_end;
        if (!end)
        {
            m_handler = handler;
        }
    }
    if (end)
    {
        handler(*this, end->status);
    }
}

AsyncStatus DeploymentOperation::Status()
{
    m_store->Enter(L"Status", L"");
    const std::lock_guard lock(m_mutex);
    return m_end ? m_end->status : AsyncStatus::Started;
}

winrt::hresult DeploymentOperation::ErrorCode()
{
    m_store->Enter(L"ErrorCode", L"");
    const std::lock_guard lock(m_mutex);
    return m_end ? m_end->error : S_OK;
}

std::wstring DescribeRemoval(const std::wstring& fullName, std::optional<std::uint32_t> options)
{
    if (!options)
    {
        return fullName;
    }
    std::array<char, 8> digits{};
    const auto written = std::to_chars(digits.data(), digits.data() + digits.size(), *options, 16);
    return fullName + L' ' + std::wstring(digits.data(), written.ptr);
}

IActivationFactory MakePackageManagerFactory(std::shared_ptr<PackageStore> store)
{
    const auto factory = winrt::make_self<Factory>();
    factory->Serve(std::move(store));
    return factory.as<IActivationFactory>();
}

} // namespace Testing
