// What the firewall objects of the tests have in common: they count their references, answer to their interface, and
// support none of its methods. Derived classes override those that they need.
#pragma once

#include <windows.h>

#include <netfw.h>

#include <atomic>

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

    HRESULT WINAPI GetTypeInfoCount(UINT*) override { return Unsupported("GetTypeInfoCount"); }
    HRESULT WINAPI GetTypeInfo(UINT, LCID, ITypeInfo**) override { return Unsupported("GetTypeInfo"); }
    HRESULT WINAPI GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return Unsupported("GetIDsOfNames");
    }
    HRESULT WINAPI Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        return Unsupported("Invoke");
    }

protected:
    // What a method returns that there is no use for.
    virtual HRESULT Unsupported(const char* /*method*/) { return E_NOTIMPL; }

private:
    std::atomic<ULONG> m_references = 1;
};

class FirewallPolicyObject : public FirewallObject<INetFwPolicy2>
{
public:
    using Profile = NET_FW_PROFILE_TYPE2;

    HRESULT WINAPI get_CurrentProfileTypes(long*) override { return Unsupported("get_CurrentProfileTypes"); }
    HRESULT WINAPI get_FirewallEnabled(Profile, VARIANT_BOOL*) override { return Unsupported("get_FirewallEnabled"); }
    HRESULT WINAPI put_FirewallEnabled(Profile, VARIANT_BOOL) override { return Unsupported("put_FirewallEnabled"); }
    HRESULT WINAPI get_ExcludedInterfaces(Profile, VARIANT*) override { return Unsupported("get_ExcludedInterfaces"); }
    HRESULT WINAPI put_ExcludedInterfaces(Profile, VARIANT) override { return Unsupported("put_ExcludedInterfaces"); }
    HRESULT WINAPI get_BlockAllInboundTraffic(Profile, VARIANT_BOOL*) override
    {
        return Unsupported("get_BlockAllInboundTraffic");
    }
    HRESULT WINAPI put_BlockAllInboundTraffic(Profile, VARIANT_BOOL) override
    {
        return Unsupported("put_BlockAllInboundTraffic");
    }
    HRESULT WINAPI get_NotificationsDisabled(Profile, VARIANT_BOOL*) override
    {
        return Unsupported("get_NotificationsDisabled");
    }
    HRESULT WINAPI put_NotificationsDisabled(Profile, VARIANT_BOOL) override
    {
        return Unsupported("put_NotificationsDisabled");
    }
    HRESULT WINAPI get_UnicastResponsesToMulticastBroadcastDisabled(Profile, VARIANT_BOOL*) override
    {
        return Unsupported("get_UnicastResponsesToMulticastBroadcastDisabled");
    }
    HRESULT WINAPI put_UnicastResponsesToMulticastBroadcastDisabled(Profile, VARIANT_BOOL) override
    {
        return Unsupported("put_UnicastResponsesToMulticastBroadcastDisabled");
    }
    HRESULT WINAPI get_Rules(INetFwRules**) override { return Unsupported("get_Rules"); }
    HRESULT WINAPI get_ServiceRestriction(INetFwServiceRestriction**) override
    {
        return Unsupported("get_ServiceRestriction");
    }
    HRESULT WINAPI EnableRuleGroup(long, BSTR, VARIANT_BOOL) override { return Unsupported("EnableRuleGroup"); }
    HRESULT WINAPI IsRuleGroupEnabled(long, BSTR, VARIANT_BOOL*) override { return Unsupported("IsRuleGroupEnabled"); }
    HRESULT WINAPI RestoreLocalFirewallDefaults() override { return Unsupported("RestoreLocalFirewallDefaults"); }
    HRESULT WINAPI get_DefaultInboundAction(Profile, NET_FW_ACTION*) override
    {
        return Unsupported("get_DefaultInboundAction");
    }
    HRESULT WINAPI put_DefaultInboundAction(Profile, NET_FW_ACTION) override
    {
        return Unsupported("put_DefaultInboundAction");
    }
    HRESULT WINAPI get_DefaultOutboundAction(Profile, NET_FW_ACTION*) override
    {
        return Unsupported("get_DefaultOutboundAction");
    }
    HRESULT WINAPI put_DefaultOutboundAction(Profile, NET_FW_ACTION) override
    {
        return Unsupported("put_DefaultOutboundAction");
    }
    HRESULT WINAPI get_IsRuleGroupCurrentlyEnabled(BSTR, VARIANT_BOOL*) override
    {
        return Unsupported("get_IsRuleGroupCurrentlyEnabled");
    }
    HRESULT WINAPI get_LocalPolicyModifyState(NET_FW_MODIFY_STATE*) override
    {
        return Unsupported("get_LocalPolicyModifyState");
    }
};

class FirewallRulesObject : public FirewallObject<INetFwRules>
{
public:
    HRESULT WINAPI get_Count(long*) override { return Unsupported("get_Count"); }
    HRESULT WINAPI Add(INetFwRule*) override { return Unsupported("Add"); }
    HRESULT WINAPI Remove(BSTR) override { return Unsupported("Remove"); }
    HRESULT WINAPI Item(BSTR, INetFwRule**) override { return Unsupported("Item"); }
    HRESULT WINAPI get__NewEnum(IUnknown**) override { return Unsupported("get__NewEnum"); }
};

} // namespace Testing
