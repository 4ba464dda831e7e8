// Where the firewall of the end-to-end tests keeps its state: below HKEY_LOCAL_MACHINE, in the key c_key. The server is
// a DLL for Windows' own firewall class; regsvr32, or its function DllRegisterServer, registers it from where it lies.
//
//     Rules               a key; each of its values is a rule: its data (REG_SZ) is the rule's name, its own name
//                         is of no account, so several rules can have one name
//     CreateResult        REG_DWORD: no policy object is made, and this is what the caller gets
//     RulesResult         REG_DWORD: what get_Rules fails with
//     RemoveResult        REG_DWORD: what Remove fails with; the rules stay
//     RemoveFailures      REG_DWORD: how often it does so before it works (always, when there is no such value)
//     UnknownRuleResult   REG_DWORD: what Remove returns when there is no rule of that name (S_OK without the value)
//     Calls               a key; what was called, in order: the values 0001, 0002, ... with "create", "rules",
//                         "remove <name>"
//
// Remove takes the first rule of that name away and leaves the others. Names are compared without regard to letter
// case.
#pragma once

namespace Testing::FirewallServer
{

inline constexpr wchar_t c_key[] = L"Software\\Velmora.Testing\\Firewall";
inline constexpr wchar_t c_classKey[] = L"Software\\Classes\\CLSID\\{E2B3C97F-6AE1-41AC-817A-F6F92166D7DD}";

} // namespace Testing::FirewallServer
