#pragma once

#include <windows.h>

// The product's Windows Firewall rule.
namespace Installer
{

// Removes the rule of the client's login server. One attempt. COM must be initialised on the calling thread. Returns
// S_OK when INetFwRules::Remove succeeds, E_FAIL when the firewall policy object cannot be created (not recorded),
// otherwise the failed call's HRESULT, which is recorded.
HRESULT RemoveFirewallRule() noexcept;

} // namespace Installer
