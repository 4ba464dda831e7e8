#include "Installer/Firewall.h"

#include <netfw.h>
#include <oleauto.h>

#include <wil/com.h>
#include <wil/resource.h>
#include <wil/result.h>

namespace Installer
{

namespace
{

constexpr wchar_t c_ruleName[] = L"Velmora Login Server";

} // namespace

HRESULT RemoveFirewallRule() noexcept
{
    // The result is not recorded: without the firewall's service there is no such object.
    wil::com_ptr_nothrow<INetFwPolicy2> policy;
    CoCreateInstance(__uuidof(NetFwPolicy2), nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(policy.put()));
    if (!policy)
    {
        return E_FAIL;
    }
    wil::com_ptr_nothrow<INetFwRules> rules;
    RETURN_IF_FAILED(policy->get_Rules(rules.put()));
    const wil::unique_bstr name(SysAllocString(c_ruleName));
    RETURN_IF_NULL_ALLOC(name);
    RETURN_IF_FAILED(rules->Remove(name.get()));
    return S_OK;
}

} // namespace Installer
