// The console window of another process: what stands in it, and a user's key.
#pragma once

#include "support/Owners.h"

#include <windows.h>

#include <string>
#include <vector>

namespace Testing
{
// Attached to the console of a process while it lives. This process's own console is given up for it and taken back
// afterwards: one at a time.
class OtherConsole
{
public:
    // Attached or not: a process may not have made its console yet.
    explicit OtherConsole(DWORD processId);
    ~OtherConsole();
    OtherConsole(const OtherConsole&) = delete;
    OtherConsole& operator=(const OtherConsole&) = delete;

    bool IsAttached() const { return m_output != nullptr; }

    // The lines up to the cursor, without the blanks at their ends. A line that is wider than the window is several.
    std::vector<std::wstring> Lines() const;

    // The width of a line in characters.
    int Width() const;

    // A user presses a key and lets it go.
    void PressKey() const;

private:
    UniqueHandle m_output;
    UniqueHandle m_input;
};
} // namespace Testing
