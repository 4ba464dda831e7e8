// The firewall of the end-to-end tests, in place of Windows' own: a COM server in a DLL.
#include "support/end_to_end/firewall/FirewallServer.h"

#include "support/common/FirewallObjects.h"
#include "support/end_to_end/ServerState.h"

#include <windows.h>

#include <oleauto.h>

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
    HRESULT WINAPI Remove(BSTR name) override
    {
        const ServerState state = State();
        const std::wstring wanted(name, SysStringLen(name));
        state.NoteCall(L"remove " + wanted);
        for (const std::wstring& rule : state.ValuesIn(L"Rules"))
        {
            if (state.ReadText(L"Rules", rule) == wanted)
            {
                state.DeleteValue(L"Rules", rule);
            }
        }
        return S_OK;
    }
};

class Policy final : public FirewallPolicyObject
{
public:
    HRESULT WINAPI get_Rules(INetFwRules** rules) override
    {
        State().NoteCall(L"rules");
        *rules = new Rules;
        return S_OK;
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
        State().NoteCall(L"create");
        auto* const policy = new Policy;
        const HRESULT result = policy->QueryInterface(id, object);
        policy->Release();
        return result;
    }
    HRESULT WINAPI LockServer(BOOL) override { return S_OK; }
};

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
