#pragma once

#include "support/common/ImportTableFake.h"
#include "support/common/Text.h"

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

namespace Testing
{

// The lines that the program logs, without their line feeds, as they reach its console: also of a log that is deleted.
class LoggedLines
{
public:
    const std::vector<std::string>& All() const { return m_lines; }

    // Is told of every line when it is written.
    std::function<void(const std::string&)> onLine = [](const std::string&) {};

private:
    std::vector<std::string> m_lines;
    Fake<&WriteConsoleW> m_writeConsole = [this](HANDLE, const void* text, DWORD length, LPDWORD, LPVOID) -> BOOL {
        m_lines.push_back(Narrow({static_cast<const wchar_t*>(text), length - 1}));
        onLine(m_lines.back());
        return TRUE;
    };
};

} // namespace Testing
