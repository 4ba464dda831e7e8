// The servers that stand for the parts of Windows that Wine lacks: a firewall and a package manager that keep in the
// registry what they have and what they are asked for (support/end_to_end/firewall, support/end_to_end/packages). Each
// is a DLL that lies beside the test program. A real Windows has its own, which it lets nobody replace.
#pragma once

#include "support/end_to_end/ServerState.h"

#include <string>
#include <string_view>

namespace Testing
{
enum class Server
{
    Firewall,
    Packages
};

// Whether there are servers on this machine.
bool HasServers();

// Puts the servers among Windows' own files and registers them there, with nothing in them and asked for nothing so
// far. Does nothing on a machine that has none. Throws std::runtime_error.
void RegisterServers();

// What a server has, shall do and was asked for.
ServerState StateOf(Server server);
} // namespace Testing
