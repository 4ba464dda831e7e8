#include "support/end_to_end/Console.h"

#include <algorithm>
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
} // namespace

ConsoleUser::~ConsoleUser()
{
    m_output.reset();
    m_input.reset();
    FreeConsole();
    AttachConsole(ATTACH_PARENT_PROCESS);
}

void ConsoleUser::Look(DWORD processId, std::vector<std::wstring>& seen)
{
    if (!m_output || m_processId != processId)
    {
        m_output.reset();
        m_input.reset();
        FreeConsole();
        if (!AttachConsole(processId))
        {
            return;
        }
        m_processId = processId;
        m_output = Open(L"CONOUT$");
        m_input = Open(L"CONIN$");
    }
    if (m_hasPressed)
    {
        return;
    }
    const std::vector<std::wstring> lines = Lines();
    if (std::ranges::any_of(lines, [](const auto& line) { return line.starts_with(L"Press any key"); }))
    {
        seen = lines;
        PressKey();
    }
}

std::vector<std::wstring> ConsoleUser::Lines() const
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    GetConsoleScreenBufferInfo(m_output.get(), &info);
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

void ConsoleUser::PressKey()
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
    m_hasPressed = true;
}
} // namespace Testing
