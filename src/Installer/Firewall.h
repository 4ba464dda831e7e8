#pragma once

#include <windows.h>

// The product's rule in the Windows firewall.
namespace Installer
{

// Removes the rule of the client's login server. One attempt. Needs COM on the calling thread. Returns S_OK when the
// firewall removed it or says that there is nothing to remove, E_FAIL without recording it when there is no firewall
// policy object, and otherwise the failure of the step, which is recorded.
HRESULT RemoveFirewallRule() noexcept;

} // namespace Installer
