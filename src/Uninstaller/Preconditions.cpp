#include "Uninstaller/Preconditions.h"

#include "Installer/Common.h"
#include "Installer/Registry.h"

namespace Uninstaller
{

namespace
{

constexpr wchar_t c_defaultFolderName[] = L"Velmora\\";

std::wstring FormatVersion(const std::array<std::uint16_t, 4>& version)
{
    std::wstring text;
    for (const auto number : version)
    {
        text += (text.empty() ? L"" : L".") + std::to_wstring(number);
    }
    return text;
}

} // namespace

std::wstring FindInstallFolder(Installer::Logger& logger)
{
    const Installer::InstallRecord record = Installer::ReadInstallRecord();
    if (record.found)
    {
        logger.Info(L"Found Velmora install entry at '" + record.location + L"', version " +
                    FormatVersion(record.version) + L".");
    }
    else
    {
        logger.Info(L"Did not find previous Velmora install entry. Will continue with assuming default install "
                    L"location.");
    }
    if (record.location.empty())
    {
        logger.Info(L"No previous Velmora install directory found, using default.");
        return Installer::GetProgramFilesFolder() + c_defaultFolderName;
    }
    return record.location;
}

} // namespace Uninstaller
