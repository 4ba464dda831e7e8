// A drive besides C: for tests of installations that do not lie on it.
#pragma once

#include "support/end_to_end/Names.h"
#include "support/end_to_end/RunProgram.h"

#include <windows.h>

#include <string>

namespace Testing
{
// Makes drive V: while it lives, from a folder, unless the machine has one already: a Wine prefix made for a test has
// it, because drives cannot be made from inside Wine.
class SecondDrive
{
public:
    SecondDrive()
    {
        if (IsThere())
        {
            return;
        }
        m_folder = TemporaryFolder() + L"drive";
        CreateDirectoryW(m_folder.c_str(), nullptr);
        if (!DefineDosDeviceW(0, L"V:", m_folder.c_str()) || !IsThere())
        {
            ThrowWindowsError("Cannot make a second drive", GetLastError());
        }
    }
    ~SecondDrive()
    {
        if (!m_folder.empty())
        {
            DefineDosDeviceW(DDD_REMOVE_DEFINITION, L"V:", nullptr);
            RemoveDirectoryW(m_folder.c_str());
        }
    }
    SecondDrive(const SecondDrive&) = delete;
    SecondDrive& operator=(const SecondDrive&) = delete;

    static wchar_t Letter() { return L'V'; }

    // The drive's root folder, with the backslash at its end.
    static std::wstring Root() { return L"V:\\"; }

private:
    static bool IsThere() { return GetFileAttributesW(Root().c_str()) != INVALID_FILE_ATTRIBUTES; }

    std::wstring m_folder;
};
} // namespace Testing
