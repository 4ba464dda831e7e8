// Where the package manager of the end-to-end tests keeps its state: below HKEY_LOCAL_MACHINE, in the key c_key. The
// server is a DLL for Windows' own class.
//
//     Provisioned, Installed   keys; each key in them is a package, with the values FamilyName, FullName, InstalledPath
//                              (REG_SZ)
//     Events                   a key; each value's name is a call, the function with what it is called with
//                              ("RemovePackageAsync <full name> 80000"), and its data (REG_SZ) the name of an event:
//                              its operations end, on another thread, when that is signaled; the others have ended
//                              before their caller has them. All complete, and what they are for is done.
//     Calls                    a key; what was called, in order: the values 0001, 0002, ... Of the functions that only
//                              read, none is there.
#pragma once

namespace Testing::PackageServer
{

inline constexpr wchar_t c_key[] = L"Software\\Velmora.Testing\\Packages";
inline constexpr wchar_t c_classKey[] = L"Software\\Microsoft\\WindowsRuntime\\ActivatableClassId\\"
                                        L"Windows.Management.Deployment.PackageManager";

} // namespace Testing::PackageServer
