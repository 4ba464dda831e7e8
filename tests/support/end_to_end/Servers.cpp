#include "support/end_to_end/Servers.h"

#include "support/end_to_end/BuiltFiles.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Wine.h"
#include "support/end_to_end/firewall/FirewallServer.h"
#include "support/end_to_end/packages/PackageServer.h"

#include <windows.h>

#include <array>

namespace Testing
{
namespace
{
struct ServerRow
{
    const wchar_t* file;
    const wchar_t* stateKey;
    const wchar_t* classKey;
    // What makes the DLL a class's server: the name of the value with its path, in the class's key or a key in it.
    const wchar_t* pathKey;
    const wchar_t* pathName;
};

// In the order of the enumeration.
constexpr std::array<ServerRow, 2> c_servers{
    {{L"Velmora.Testing.Firewall.dll", FirewallServer::c_key, FirewallServer::c_classKey, L"InprocServer32", L""},
     {L"Velmora.Testing.Packages.dll", PackageServer::c_key, PackageServer::c_classKey, L"", L"DllPath"}}};

std::wstring WindowsFolder()
{
    std::array<wchar_t, MAX_PATH> folder{};
    GetWindowsDirectoryW(folder.data(), static_cast<UINT>(folder.size()));
    return folder.data();
}

} // namespace

bool HasServers()
{
    return IsWine();
}

void RegisterServers()
{
    if (!HasServers())
    {
        return;
    }
    for (const ServerRow& row : c_servers)
    {
        const std::wstring source = BuiltFile(row.file);
        const std::wstring path = WindowsFolder() + L"\\" + row.file;
        if (!CopyFileW(source.c_str(), path.c_str(), FALSE))
        {
            ThrowWindowsError("Cannot copy " + ToUtf8(source) + " to " + ToUtf8(path), GetLastError());
        }
        const ServerState entry(row.classKey);
        entry.WriteText(row.pathKey, row.pathName, path);
        entry.WriteText(row.pathKey, L"ThreadingModel", L"Both");
        entry.WriteNumber(row.pathKey, L"ActivationType", 0);
        ServerState(row.stateKey).DeleteKey({});
    }
}

ServerState StateOf(Server server)
{
    return ServerState(c_servers.at(static_cast<std::size_t>(server)).stateKey);
}
} // namespace Testing
