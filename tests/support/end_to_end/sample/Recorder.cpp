#include "support/end_to_end/sample/Recorder.h"

#include "support/end_to_end/Dialogs.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Search.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <regex>
#include <string_view>

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

// A name for a picture from the last line of the log: its words, joined by hyphens.
std::string NameFrom(const std::string& log)
{
    constexpr std::size_t c_longest = 48;
    const std::string text = log.substr(0, log.find_last_not_of("\r\n") + 1);
    std::string line = text.substr(text.find_last_of('\n') + 1);
    line.erase(0, line.find(": ") + 1);
    std::ranges::transform(line, line.begin(),
                           [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    const std::string name = std::regex_replace(line, std::regex("^[^a-z0-9]+|[^a-z0-9]+$"), "");
    return name.empty() ? "beginning" : std::regex_replace(name, std::regex("[^a-z0-9]+"), "-").substr(0, c_longest);
}

std::wstring FileName(std::size_t number, const std::string& name)
{
    return (number < 10 ? L"0" : L"") + std::to_wstring(number) + L"-" + std::wstring(name.begin(), name.end()) +
           L".png";
}
} // namespace

void Recorder::Look(const std::string& log)
{
    TakePicture(log);
    if (std::chrono::steady_clock::now() - m_lastChange > c_readingTime)
    {
        Answer();
    }
}

void Recorder::TakePicture(const std::string& log)
{
    Picture screen = CaptureWindow(GetDesktopWindow());
    if (screen == m_screen)
    {
        return;
    }
    m_screen = std::move(screen);
    m_lastChange = std::chrono::steady_clock::now();
    const RECT content = FindContent(m_screen);
    if (content.right != 0 && m_shots.size() < c_mostPictures)
    {
        m_shots.push_back({Cut(m_screen, content), NameFrom(log)});
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
    for (const Shot& shot : m_shots)
    {
        shot.picture.SaveAsPng(folder + L"\\" + FileName(++number, shot.name));
    }
    return number;
}
} // namespace Testing
