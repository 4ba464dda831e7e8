#pragma once

// Who this process runs as.
namespace Installer
{

// Whether the effective token of the calling thread is elevated. Throws wil::ResultException when it cannot be asked.
bool IsTokenElevated();

} // namespace Installer
