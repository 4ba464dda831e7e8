#include "SecondDrive.h"

#include "support/Names.h"
#include "support/RunProgram.h"

#include <windows.h>

namespace Testing
{
namespace
{
constexpr const wchar_t* c_drive = L"V:";
} // namespace

SecondDrive::SecondDrive()
{
    if (GetFileAttributesW(Root().c_str()) != INVALID_FILE_ATTRIBUTES)
    {
        return;
    }
    m_folder = TemporaryFolder() + L"drive";
    CreateDirectoryW(m_folder.c_str(), nullptr);
    if (!DefineDosDeviceW(0, c_drive, m_folder.c_str()) ||
        GetFileAttributesW(Root().c_str()) == INVALID_FILE_ATTRIBUTES)
    {
        ThrowWindowsError("Cannot make the drive " + ToUtf8(c_drive), GetLastError());
    }
}

SecondDrive::~SecondDrive()
{
    if (!m_folder.empty())
    {
        DefineDosDeviceW(DDD_REMOVE_DEFINITION, c_drive, nullptr);
        RemoveDirectoryW(m_folder.c_str());
    }
}

wchar_t SecondDrive::Letter() const
{
    return c_drive[0];
}

std::wstring SecondDrive::Root() const
{
    return std::wstring(c_drive) + L"\\";
}
} // namespace Testing
