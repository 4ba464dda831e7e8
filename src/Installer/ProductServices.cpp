#include "Installer/ProductServices.h"

#include "Installer/Logger.h"
#include "Installer/Service.h"

#include <exception>

namespace Installer
{

namespace
{

// In stop order.
constexpr const wchar_t* c_productServices[] = {c_authService, c_updaterService, c_spacedUpdaterService};

} // namespace

HRESULT StopServices(Logger& logger)
try
{
    for (const wchar_t* const name : c_productServices)
    {
        if (ServiceExists(name))
        {
            StopService(name);
        }
    }
    return S_OK;
}
catch (const std::exception& exception)
{
    logger.Error(L"[ClientHelper] Unexpected error while stopping services: ", exception.what(), false);
    return E_UNEXPECTED;
}

} // namespace Installer
