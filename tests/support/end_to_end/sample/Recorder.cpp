#include "support/end_to_end/sample/Recorder.h"

#include "support/end_to_end/Dialogs.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Search.h"

#include <windows.h>

#include <array>

namespace Testing
{
namespace
{
constexpr std::uint32_t c_emptyScreen = 0; // black
constexpr std::size_t c_mostPictures = 300;

// How long a dialog stands as it is before it is answered: a moment for a person, and enough for it to be drawn.
constexpr std::chrono::milliseconds c_readingTime{300};

// The title of both questions: whether to uninstall, and what to do with programs in the way.
constexpr wchar_t c_question[] = L"Velmora";

constexpr std::array c_messages{L"Velmora Uninstalled", L"Velmora Partially Uninstalled", L"Velmora Uninstaller Failed",
                                L"Version Not Supported", L"Uninstaller Not Elevated"};

// The part of a picture in which there is anything; all 0 for none.
RECT FindContent(const Picture& screen)
{
    return screen.FindArea([](int, int, std::uint32_t colour) { return colour != c_emptyScreen; });
}

Picture Cut(const Picture& picture, const RECT& area)
{
    std::vector<std::uint32_t> pixels;
    for (LONG y = area.top; y < area.bottom; ++y)
    {
        for (LONG x = area.left; x < area.right; ++x)
        {
            pixels.push_back(picture.At(x, y));
        }
    }
    return {area.right - area.left, area.bottom - area.top, std::move(pixels)};
}
} // namespace

void Recorder::Look()
{
    TakePicture();
    if (std::chrono::steady_clock::now() - m_lastChange > c_readingTime)
    {
        Answer();
    }
}

void Recorder::TakePicture()
{
    Picture screen = CaptureWindow(GetDesktopWindow());
    if (screen == m_screen)
    {
        return;
    }
    m_screen = std::move(screen);
    m_lastChange = std::chrono::steady_clock::now();
    const RECT content = FindContent(m_screen);
    if (content.right != 0 && m_pictures.size() < c_mostPictures)
    {
        m_pictures.push_back(Cut(m_screen, content));
    }
}

void Recorder::Answer()
{
    HWND question = FindDialog(c_question);
    if (question != nullptr && question != m_lastQuestion)
    {
        AnswerDialog({.title = c_question, .button = m_questions == 0 ? IDYES : IDCONTINUE}, m_lastQuestion);
        ++m_questions;
    }
    for (const wchar_t* const title : c_messages)
    {
        ReadAndCloseMessageBox(title);
    }
}

std::size_t Recorder::Save(const std::wstring& folder) const
{
    for (auto end = folder.find(L'\\'); end != std::wstring::npos; end = folder.find(L'\\', end + 1))
    {
        CreateDirectoryW(folder.substr(0, end).c_str(), nullptr);
    }
    CreateDirectoryW(folder.c_str(), nullptr);
    ForEachFound(folder + L"\\*.png",
                 [&](const WIN32_FIND_DATAW& found) { DeleteFileW((folder + L"\\" + found.cFileName).c_str()); });
    std::size_t number = 0;
    for (const Picture& picture : m_pictures)
    {
        ++number;
        picture.SaveAsPng(folder + (number < 10 ? L"\\0" : L"\\") + std::to_wstring(number) + L".png");
    }
    return number;
}
} // namespace Testing
