// The package manager of the end-to-end tests, in place of Windows' own: a Windows Runtime server in a DLL.
#include "support/packages/PackageServer.h"

#include "support/Owners.h"
#include "support/ServerState.h"
#include "support/packages/PackageObjects.h"

#include <windows.h>

#include <activation.h>
#include <hstring.h>
#include <olectl.h>

#include <functional>
#include <set>
#include <string>
#include <thread>
#include <utility>

namespace
{

using namespace Testing;
using winrt::Windows::Foundation::AsyncStatus;

constexpr auto c_forAllUsers =
    static_cast<std::uint32_t>(winrt::Windows::Management::Deployment::RemovalOptions::RemoveForAllUsers);

class RegistryStore : public PackageStore
{
public:
    void Enter(std::wstring_view function, std::wstring_view argument) override
    {
        static const std::set<std::wstring_view> noted{
            L"FindProvisionedPackages", L"DeprovisionPackageForAllUsersAsync", L"FindPackages", L"RemovePackageAsync"};
        const std::wstring call = Join(function, argument);
        if (noted.contains(function))
        {
            m_state.NoteCall(call);
        }
        if (const auto failure = Find(L"Failures", function, call))
        {
            winrt::throw_hresult(static_cast<HRESULT>(*failure));
        }
    }

    std::vector<PackageDescription> Provisioned() override { return PackagesIn(L"Provisioned"); }
    std::vector<PackageDescription> Installed() override { return PackagesIn(L"Installed"); }

    void Deprovision(const std::wstring& familyName, winrt::com_ptr<DeploymentOperation> operation) override
    {
        Start(L"DeprovisionPackageForAllUsersAsync", familyName, std::move(operation),
              [this, familyName] { Forget(L"Provisioned", L"FamilyName", familyName, true); });
    }

    void Remove(const std::wstring& fullName, std::optional<std::uint32_t> options,
                winrt::com_ptr<DeploymentOperation> operation) override
    {
        Start(L"RemovePackageAsync", DescribeRemoval(fullName, options), std::move(operation),
              [this, fullName, isForAll = (options.value_or(0) & c_forAllUsers) != 0] {
                  Forget(L"Installed", L"FullName", fullName, isForAll);
              });
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

    // What a key says of a call or, failing that, of its function.
    std::optional<DWORD> Find(const wchar_t* key, std::wstring_view function, const std::wstring& call) const
    {
        const auto ofCall = m_state.ReadNumber(key, call);
        return ofCall ? ofCall : m_state.ReadNumber(key, std::wstring(function));
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

    // Takes the packages with that value from a list; those of other users only when all users lose it.
    void Forget(const std::wstring& list, const std::wstring& value, const std::wstring& text, bool isForAll) const
    {
        for (const std::wstring& name : m_state.KeysIn(list))
        {
            const std::wstring key = list + L'\\' + name;
            const bool staysForOthers = !isForAll && m_state.ReadNumber(key, L"OtherUsers").value_or(0) != 0;
            if (m_state.ReadText(key, value) == text && !staysForOthers)
            {
                m_state.DeleteKey(key);
            }
        }
    }

    void Start(const std::wstring& function, const std::wstring& argument,
               winrt::com_ptr<DeploymentOperation> operation, std::function<void()> doIt) const
    {
        const auto failure = Find(L"Results", function, Join(function, argument));
        const auto end = [started = std::move(operation), succeed = std::move(doIt), failure] {
            if (failure)
            {
                const auto error = static_cast<HRESULT>(*failure);
                const bool isCanceled = error == HRESULT_FROM_WIN32(ERROR_CANCELLED);
                started->Finish({isCanceled ? AsyncStatus::Canceled : AsyncStatus::Error, error});
                return;
            }
            succeed();
            started->Finish({});
        };
        const std::wstring event = m_state.ReadText(L"Events", Join(function, argument));
        if (!event.empty())
        {
            std::thread([end, event] {
                const UniqueHandle signal(OpenEventW(SYNCHRONIZE, FALSE, event.c_str()));
                WaitForSingleObject(signal.get(), INFINITE);
                end();
            }).detach();
        }
        else if (const auto delay = m_state.ReadNumber({}, L"DelayMilliseconds"))
        {
            std::thread([end, delay] {
                Sleep(*delay);
                end();
            }).detach();
        }
        else
        {
            end();
        }
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

STDAPI DllRegisterServer()
{
    const HRESULT result = RegisterText(PackageServer::c_classKey, L"DllPath", PathOfThisModule());
    return FAILED(result) ? result : RegisterNumber(PackageServer::c_classKey, L"ActivationType", 0);
}

STDAPI DllUnregisterServer()
{
    return Unregister(PackageServer::c_classKey);
}
