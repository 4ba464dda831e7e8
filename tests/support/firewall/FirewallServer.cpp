// The firewall of the end-to-end tests, in place of Windows' own: a COM server in a DLL.
#include "support/firewall/FirewallServer.h"

#include "support/Names.h"
#include "support/ServerState.h"
#include "support/firewall/FirewallObjects.h"

#include <windows.h>

#include <oleauto.h>
#include <olectl.h>

#include <string>

namespace
{

using namespace Testing;

ServerState State()
{
    return ServerState(FirewallServer::c_key);
}

class Rules final : public FirewallRulesObject
{
public:
    HRESULT WINAPI get_Count(long* count) override
    {
        *count = static_cast<long>(State().ValuesIn(L"Rules").size());
        return S_OK;
    }

    HRESULT WINAPI Remove(BSTR name) override
    {
        const ServerState state = State();
        const std::wstring wanted(name, SysStringLen(name));
        state.NoteCall(L"remove " + wanted);
        if (const HRESULT failure = TakeFailure(state); FAILED(failure))
        {
            return failure;
        }
        for (const std::wstring& rule : state.ValuesIn(L"Rules"))
        {
            if (SameName(state.ReadText(L"Rules", rule), wanted))
            {
                state.DeleteValue(L"Rules", rule);
                return S_OK;
            }
        }
        return static_cast<HRESULT>(state.ReadNumber({}, L"UnknownRuleResult").value_or(S_OK));
    }

private:
    // What a removal fails with this time.
    static HRESULT TakeFailure(const ServerState& state)
    {
        const auto failure = state.ReadNumber({}, L"RemoveResult");
        const auto times = state.ReadNumber({}, L"RemoveFailures");
        if (!failure || times == 0U)
        {
            return S_OK;
        }
        if (times)
        {
            state.WriteNumber({}, L"RemoveFailures", *times - 1);
        }
        return static_cast<HRESULT>(*failure);
    }
};

class Policy final : public FirewallPolicyObject
{
public:
    HRESULT WINAPI get_Rules(INetFwRules** rules) override
    {
        const ServerState state = State();
        state.NoteCall(L"rules");
        *rules = nullptr;
        const auto result = static_cast<HRESULT>(state.ReadNumber({}, L"RulesResult").value_or(S_OK));
        if (SUCCEEDED(result))
        {
            *rules = new Rules;
        }
        return result;
    }
};

// Lives as long as the DLL, which is never unloaded.
class PolicyFactory final : public IClassFactory
{
public:
    HRESULT WINAPI QueryInterface(REFIID id, void** object) override
    {
        const bool isKnown = id == __uuidof(IUnknown) || id == __uuidof(IClassFactory);
        *object = isKnown ? static_cast<IClassFactory*>(this) : nullptr;
        return isKnown ? S_OK : E_NOINTERFACE;
    }
    ULONG WINAPI AddRef() override { return 2; }
    ULONG WINAPI Release() override { return 1; }

    HRESULT WINAPI CreateInstance(IUnknown* outer, REFIID id, void** object) override
    {
        *object = nullptr;
        if (outer != nullptr)
        {
            return CLASS_E_NOAGGREGATION;
        }
        const ServerState state = State();
        state.NoteCall(L"create");
        if (const auto failure = state.ReadNumber({}, L"CreateResult"))
        {
            return static_cast<HRESULT>(*failure);
        }
        auto* const policy = new Policy;
        const HRESULT result = policy->QueryInterface(id, object);
        policy->Release();
        return result;
    }
    HRESULT WINAPI LockServer(BOOL) override { return S_OK; }
};

const std::wstring c_serverKey = std::wstring(FirewallServer::c_classKey) + L"\\InprocServer32";

} // namespace

STDAPI DllGetClassObject(REFCLSID classId, REFIID id, void** object)
{
    static PolicyFactory factory;
    *object = nullptr;
    return classId == __uuidof(NetFwPolicy2) ? factory.QueryInterface(id, object) : CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow()
{
    return S_FALSE;
}

STDAPI DllRegisterServer()
{
    const HRESULT result = RegisterText(c_serverKey, nullptr, PathOfThisModule());
    return FAILED(result) ? result : RegisterText(c_serverKey, L"ThreadingModel", L"Both");
}

STDAPI DllUnregisterServer()
{
    return Unregister(FirewallServer::c_classKey);
}
