// Where the firewall of the end-to-end tests keeps its state: below HKEY_LOCAL_MACHINE, in the key c_key. The server is
// a DLL for Windows' own firewall class.
//
//     Rules           a key; each of its values is a rule: its data (REG_SZ) is the rule's name
//     Calls           a key; what was called, in order: the values 0001, 0002, ... with "create", "rules",
//                     "remove <name>"
#pragma once

namespace Testing::FirewallServer
{

inline constexpr wchar_t c_key[] = L"Software\\Velmora.Testing\\Firewall";
inline constexpr wchar_t c_classKey[] = L"Software\\Classes\\CLSID\\{E2B3C97F-6AE1-41AC-817A-F6F92166D7DD}";

} // namespace Testing::FirewallServer
