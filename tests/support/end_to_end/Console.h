// A user at the console window of another process.
#pragma once

#include "support/end_to_end/Owners.h"

#include <windows.h>

#include <string>
#include <vector>

namespace Testing
{
// Reads a process's console until a key is asked for, and then presses one. This process's own console is given up for
// it and taken back afterwards: one at a time.
class ConsoleUser
{
public:
    ConsoleUser() = default;
    ~ConsoleUser();
    ConsoleUser(const ConsoleUser&) = delete;
    ConsoleUser& operator=(const ConsoleUser&) = delete;

    // To be called again and again: the process may not have made its console yet. Another process may have one of its
    // own. Takes the lines up to the cursor when a key is asked for, without the blanks at their ends. A line that is
    // wider than the window is several.
    void Look(DWORD processId, std::vector<std::wstring>& seen);

private:
    std::vector<std::wstring> Lines() const;
    void PressKey();

    DWORD m_processId = 0;
    UniqueHandle m_output;
    UniqueHandle m_input;
    bool m_hasPressed = false;
};
} // namespace Testing
