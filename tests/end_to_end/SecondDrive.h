// A drive besides C: for tests of installations that do not lie on it.
#pragma once

#include <string>

namespace Testing
{
// Makes drive V: while it lives, from a folder, unless the machine has one already: a Wine prefix made for a test has
// it, because drives cannot be made from inside Wine.
class SecondDrive
{
public:
    SecondDrive();
    ~SecondDrive();
    SecondDrive(const SecondDrive&) = delete;
    SecondDrive& operator=(const SecondDrive&) = delete;

    // The drive's letter.
    wchar_t Letter() const;

    // The drive's root folder, with the backslash at its end.
    std::wstring Root() const;

private:
    std::wstring m_folder;
};
} // namespace Testing
