#include "support/Console.h"

#include <array>

namespace Testing
{
namespace
{
UniqueHandle Open(const wchar_t* name)
{
    return OwnFile(CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_EXISTING, 0, nullptr));
}

CONSOLE_SCREEN_BUFFER_INFO Describe(HANDLE output)
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    GetConsoleScreenBufferInfo(output, &info);
    return info;
}
} // namespace

OtherConsole::OtherConsole(DWORD processId)
{
    FreeConsole();
    if (AttachConsole(processId))
    {
        m_output = Open(L"CONOUT$");
        m_input = Open(L"CONIN$");
    }
}

OtherConsole::~OtherConsole()
{
    m_output.reset();
    m_input.reset();
    FreeConsole();
    AttachConsole(ATTACH_PARENT_PROCESS);
}

int OtherConsole::Width() const
{
    return Describe(m_output.get()).dwSize.X;
}

std::vector<std::wstring> OtherConsole::Lines() const
{
    const CONSOLE_SCREEN_BUFFER_INFO info = Describe(m_output.get());
    std::vector<std::wstring> lines;
    for (SHORT row = 0; row <= info.dwCursorPosition.Y && info.dwSize.X > 0; ++row)
    {
        std::wstring line(static_cast<std::size_t>(info.dwSize.X), L' ');
        DWORD read = 0;
        ReadConsoleOutputCharacterW(m_output.get(), line.data(), static_cast<DWORD>(line.size()), {0, row}, &read);
        line.resize(read);
        line.erase(line.find_last_not_of(L' ') + 1);
        lines.push_back(std::move(line));
    }
    return lines;
}

void OtherConsole::PressKey() const
{
    std::array<INPUT_RECORD, 2> events{};
    for (INPUT_RECORD& event : events)
    {
        event.EventType = KEY_EVENT;
        event.Event.KeyEvent.wRepeatCount = 1;
        event.Event.KeyEvent.wVirtualKeyCode = VK_SPACE;
        event.Event.KeyEvent.uChar.UnicodeChar = L' ';
    }
    events[0].Event.KeyEvent.bKeyDown = TRUE;
    DWORD written = 0;
    WriteConsoleInputW(m_input.get(), events.data(), static_cast<DWORD>(events.size()), &written);
}
} // namespace Testing
