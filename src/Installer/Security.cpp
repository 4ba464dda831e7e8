#include "Installer/Security.h"

#include <windows.h>

#include <wil/token_helpers.h>

namespace Installer
{

bool IsTokenElevated()
{
    return wil::get_token_information<TOKEN_ELEVATION>(GetCurrentThreadEffectiveToken()).TokenIsElevated != 0;
}

} // namespace Installer
