// Where the package manager of the end-to-end tests keeps its state: below HKEY_LOCAL_MACHINE, in the key c_key. The
// server is a DLL for Windows' own class; regsvr32, or its function DllRegisterServer, registers it from where it lies.
//
//     Provisioned, Installed   keys; each key in them is a package, with the values FamilyName, FullName, InstalledPath
//                              (REG_SZ) and, for an installed one, OtherUsers (REG_DWORD): not 0 when other users have
//                              it too, so that it is still listed after its removal for the current user
//     Failures                 a key; each value's name is a call and its data (REG_DWORD) what the call fails with:
//                              the function alone ("FindPackages") or with what it is called with or on
//                              ("InstalledPath <full name>", "RemovePackageAsync <full name> 80000"). PackageObjects.h
//                              has the functions; "ActivateInstance" is the making of the package manager.
//     Results                  the same for the operations that DeprovisionPackageForAllUsersAsync and
//                              RemovePackageAsync start: their error code. ERROR_CANCELLED as HRESULT makes a cancelled
//                              operation. All others complete, and what they are for is done.
//     DelayMilliseconds        REG_DWORD: operations end that much later, on another thread; without it they have
//                              ended before their caller has them
//     Events                   a key; each value's name is a call as in Results and its data (REG_SZ) the name of an
//                              event: its operations end, on another thread, when that is signaled
//     Calls                    a key; what was called, in order: the values 0001, 0002, ... with the function and what
//                              it was called with, as in Failures. Of the functions that only read, none is there.
#pragma once

namespace Testing::PackageServer
{

inline constexpr wchar_t c_key[] = L"Software\\Velmora.Testing\\Packages";
inline constexpr wchar_t c_classKey[] = L"Software\\Microsoft\\WindowsRuntime\\ActivatableClassId\\"
                                        L"Windows.Management.Deployment.PackageManager";

} // namespace Testing::PackageServer
