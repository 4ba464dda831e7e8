#include "support/Servers.h"

#include "support/BuiltFiles.h"
#include "support/Names.h"
#include "support/Owners.h"
#include "support/Wine.h"
#include "support/firewall/FirewallServer.h"
#include "support/packages/PackageServer.h"

#include <windows.h>

#include <array>
#include <bit>

namespace Testing
{
namespace
{
struct ServerRow
{
    Server server;
    const wchar_t* file;
    const wchar_t* stateKey;
    const wchar_t* classKey;
};

constexpr std::array<ServerRow, 2> c_servers{
    {{Server::Firewall, L"Velmora.Testing.Firewall.dll", FirewallServer::c_key, FirewallServer::c_classKey},
     {Server::Packages, L"Velmora.Testing.Packages.dll", PackageServer::c_key, PackageServer::c_classKey}}};

const ServerRow& RowOf(Server server)
{
    return c_servers.at(static_cast<std::size_t>(server));
}

std::wstring WindowsFolder()
{
    std::array<wchar_t, MAX_PATH> folder{};
    GetWindowsDirectoryW(folder.data(), static_cast<UINT>(folder.size()));
    return folder.data();
}

// Has a DLL register itself, as regsvr32 would.
void Register(const std::wstring& path)
{
    const HMODULE library = LoadLibraryW(path.c_str());
    if (library == nullptr)
    {
        ThrowWindowsError("Cannot load " + ToUtf8(path), GetLastError());
    }
    const auto registerServer = std::bit_cast<HRESULT(STDAPICALLTYPE*)()>(GetProcAddress(library, "DllRegisterServer"));
    const HRESULT result = registerServer != nullptr ? registerServer() : E_NOINTERFACE;
    FreeLibrary(library);
    if (FAILED(result))
    {
        ThrowWindowsError("Cannot register " + ToUtf8(path), static_cast<DWORD>(result));
    }
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
        Register(path);
        StateOf(row.server).Clear();
    }
}

void UnregisterServer(Server server)
{
    const HRESULT result = Unregister(RowOf(server).classKey);
    if (FAILED(result))
    {
        ThrowWindowsError("Cannot unregister " + ToUtf8(RowOf(server).file), static_cast<DWORD>(result));
    }
}

ServerState StateOf(Server server)
{
    return ServerState(RowOf(server).stateKey);
}
} // namespace Testing
