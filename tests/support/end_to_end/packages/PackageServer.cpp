// The package manager of the end-to-end tests, in place of Windows' own: a Windows Runtime server in a DLL.
#include "support/end_to_end/packages/PackageServer.h"

#include "support/common/PackageObjects.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/ServerState.h"

#include <windows.h>

#include <activation.h>
#include <hstring.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>

namespace
{

using namespace Testing;

class RegistryStore : public PackageStore
{
public:
    void Enter(std::wstring_view function, std::wstring_view argument, std::optional<std::uint32_t> options) override
    {
        static const std::set<std::wstring_view> noted{
            L"FindProvisionedPackages", L"DeprovisionPackageForAllUsersAsync", L"FindPackages", L"RemovePackageAsync"};
        if (noted.contains(function))
        {
            m_state.NoteCall(Join(function, DescribeRemoval(std::wstring(argument), options)));
        }
    }

    std::vector<PackageDescription> Provisioned() override { return PackagesIn(L"Provisioned"); }
    std::vector<PackageDescription> Installed() override { return PackagesIn(L"Installed"); }

    void Deprovision(const std::wstring& familyName, winrt::com_ptr<DeploymentOperation> operation) override
    {
        Start(L"DeprovisionPackageForAllUsersAsync", familyName, std::move(operation),
              [this, familyName] { Forget(L"Provisioned", L"FamilyName", familyName); });
    }

    void Remove(const std::wstring& fullName, std::optional<std::uint32_t> options,
                winrt::com_ptr<DeploymentOperation> operation) override
    {
        Start(L"RemovePackageAsync", DescribeRemoval(fullName, options), std::move(operation),
              [this, fullName] { Forget(L"Installed", L"FullName", fullName); });
    }

private:
    static std::wstring Join(std::wstring_view function, std::wstring_view argument)
    {
        std::wstring call(function);
        if (!argument.empty())
        {
            call.append(L" ").append(argument);
        }
        return call;
    }

    std::vector<PackageDescription> PackagesIn(const std::wstring& list) const
    {
        std::vector<PackageDescription> packages;
        for (const std::wstring& name : m_state.KeysIn(list))
        {
            const std::wstring key = list + L'\\' + name;
            packages.push_back({m_state.ReadText(key, L"FamilyName"), m_state.ReadText(key, L"FullName"),
                                m_state.ReadText(key, L"InstalledPath")});
        }
        return packages;
    }

    // Takes the packages with that value from a list.
    void Forget(const std::wstring& list, const std::wstring& value, const std::wstring& text) const
    {
        for (const std::wstring& name : m_state.KeysIn(list))
        {
            const std::wstring key = list + L'\\' + name;
            if (m_state.ReadText(key, value) == text)
            {
                m_state.DeleteKey(key);
            }
        }
    }

    void Start(const std::wstring& function, const std::wstring& argument,
               winrt::com_ptr<DeploymentOperation> operation, std::function<void()> doIt) const
    {
        const std::wstring call = Join(function, argument);
        const auto end = [started = std::move(operation), succeed = std::move(doIt)] {
            succeed();
            started->Finish({});
        };
        const std::wstring event = m_state.ReadText(L"Events", call);
        if (event.empty())
        {
            end();
            return;
        }
        std::thread([end, event] {
            const UniqueHandle signal(OpenEventW(SYNCHRONIZE, FALSE, event.c_str()));
            WaitForSingleObject(signal.get(), INFINITE);
            end();
        }).detach();
    }

    ServerState m_state{PackageServer::c_key};
};

} // namespace

// No header of Windows declares it.
STDAPI DllGetActivationFactory(HSTRING classId, IActivationFactory** factory);

STDAPI DllGetActivationFactory(HSTRING classId, IActivationFactory** factory)
try
{
    *factory = nullptr;
    if (*reinterpret_cast<const winrt::hstring*>(&classId) != c_packageManagerClass)
    {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    // As long as the DLL, which is never unloaded: operations may still be under way.
    static const auto store = std::make_shared<RegistryStore>();
    *factory = static_cast<IActivationFactory*>(winrt::detach_abi(MakePackageManagerFactory(store)));
    return S_OK;
}
catch (...)
{
    return winrt::to_hresult();
}

STDAPI DllCanUnloadNow()
{
    return S_FALSE;
}
