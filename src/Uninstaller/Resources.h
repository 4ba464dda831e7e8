#pragma once

// The numbers of the program's resources.
namespace Uninstaller
{

inline constexpr int c_icon = 101;
inline constexpr int c_logo = 102; // of type "PNG"

} // namespace Uninstaller
