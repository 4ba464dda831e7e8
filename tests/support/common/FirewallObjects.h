// What the firewall objects of the tests have in common: they count their references, answer to their interface, and
// support none of its methods. Derived classes override those that they need.
#pragma once

#include <windows.h>

#include <netfw.h>

#include <atomic>
#include <source_location>

namespace Testing
{

// An object with one interface, derived from IDispatch. It begins with one reference, which is the maker's.
template <class Interface>
class FirewallObject : public Interface
{
public:
    FirewallObject() = default;
    FirewallObject(const FirewallObject&) = delete;
    FirewallObject& operator=(const FirewallObject&) = delete;
    virtual ~FirewallObject() = default;

    HRESULT WINAPI QueryInterface(REFIID id, void** object) override
    {
        if (id != __uuidof(IUnknown) && id != __uuidof(IDispatch) && id != __uuidof(Interface))
        {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        *object = static_cast<Interface*>(this);
        return S_OK;
    }
    ULONG WINAPI AddRef() override { return ++m_references; }
    ULONG WINAPI Release() override
    {
        const ULONG left = --m_references;
        if (left == 0)
        {
            delete this;
        }
        return left;
    }

    HRESULT WINAPI GetTypeInfoCount(UINT*) override { return Unsupported(); }
    HRESULT WINAPI GetTypeInfo(UINT, LCID, ITypeInfo**) override { return Unsupported(); }
    HRESULT WINAPI GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return Unsupported(); }
    HRESULT WINAPI Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        return Unsupported();
    }

protected:
    // What a method returns that there is no use for.
    HRESULT Unsupported(std::source_location method = std::source_location::current())
    {
        return Refuse(method.function_name());
    }
    virtual HRESULT Refuse(const char* /*method*/) { return E_NOTIMPL; }

private:
    std::atomic<ULONG> m_references = 1;
};

class FirewallPolicyObject : public FirewallObject<INetFwPolicy2>
{
public:
    using Profile = NET_FW_PROFILE_TYPE2;

    HRESULT WINAPI get_CurrentProfileTypes(long*) override { return Unsupported(); }
    HRESULT WINAPI get_FirewallEnabled(Profile, VARIANT_BOOL*) override { return Unsupported(); }
    HRESULT WINAPI put_FirewallEnabled(Profile, VARIANT_BOOL) override { return Unsupported(); }
    HRESULT WINAPI get_ExcludedInterfaces(Profile, VARIANT*) override { return Unsupported(); }
    HRESULT WINAPI put_ExcludedInterfaces(Profile, VARIANT) override { return Unsupported(); }
    HRESULT WINAPI get_BlockAllInboundTraffic(Profile, VARIANT_BOOL*) override { return Unsupported(); }
    HRESULT WINAPI put_BlockAllInboundTraffic(Profile, VARIANT_BOOL) override { return Unsupported(); }
    HRESULT WINAPI get_NotificationsDisabled(Profile, VARIANT_BOOL*) override { return Unsupported(); }
    HRESULT WINAPI put_NotificationsDisabled(Profile, VARIANT_BOOL) override { return Unsupported(); }
    HRESULT WINAPI get_UnicastResponsesToMulticastBroadcastDisabled(Profile, VARIANT_BOOL*) override
    {
        return Unsupported();
    }
    HRESULT WINAPI put_UnicastResponsesToMulticastBroadcastDisabled(Profile, VARIANT_BOOL) override
    {
        return Unsupported();
    }
    HRESULT WINAPI get_Rules(INetFwRules**) override { return Unsupported(); }
    HRESULT WINAPI get_ServiceRestriction(INetFwServiceRestriction**) override { return Unsupported(); }
    HRESULT WINAPI EnableRuleGroup(long, BSTR, VARIANT_BOOL) override { return Unsupported(); }
    HRESULT WINAPI IsRuleGroupEnabled(long, BSTR, VARIANT_BOOL*) override { return Unsupported(); }
    HRESULT WINAPI RestoreLocalFirewallDefaults() override { return Unsupported(); }
    HRESULT WINAPI get_DefaultInboundAction(Profile, NET_FW_ACTION*) override { return Unsupported(); }
    HRESULT WINAPI put_DefaultInboundAction(Profile, NET_FW_ACTION) override { return Unsupported(); }
    HRESULT WINAPI get_DefaultOutboundAction(Profile, NET_FW_ACTION*) override { return Unsupported(); }
    HRESULT WINAPI put_DefaultOutboundAction(Profile, NET_FW_ACTION) override { return Unsupported(); }
    HRESULT WINAPI get_IsRuleGroupCurrentlyEnabled(BSTR, VARIANT_BOOL*) override { return Unsupported(); }
    HRESULT WINAPI get_LocalPolicyModifyState(NET_FW_MODIFY_STATE*) override { return Unsupported(); }
};

class FirewallRulesObject : public FirewallObject<INetFwRules>
{
public:
    HRESULT WINAPI get_Count(long*) override { return Unsupported(); }
    HRESULT WINAPI Add(INetFwRule*) override { return Unsupported(); }
    HRESULT WINAPI Remove(BSTR) override { return Unsupported(); }
    HRESULT WINAPI Item(BSTR, INetFwRule**) override { return Unsupported(); }
    HRESULT WINAPI get__NewEnum(IUnknown**) override { return Unsupported(); }
};

} // namespace Testing
