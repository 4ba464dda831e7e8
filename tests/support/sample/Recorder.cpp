#include "support/sample/Recorder.h"

#include "support/Dialogs.h"
#include "support/Names.h"
#include "support/Owners.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cctype>
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
    RECT content{screen.Width(), screen.Height(), 0, 0};
    for (int y = 0; y < screen.Height(); ++y)
    {
        for (int x = 0; x < screen.Width(); ++x)
        {
            if (screen.At(x, y) != c_emptyScreen)
            {
                content = {std::min<LONG>(content.left, x), std::min<LONG>(content.top, y),
                           std::max<LONG>(content.right, x + 1), std::max<LONG>(content.bottom, y + 1)};
            }
        }
    }
    return content.right == 0 ? RECT{} : content;
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
    const std::string_view text = std::string_view(log).substr(0, log.find_last_not_of("\r\n") + 1);
    const std::string_view line = text.substr(text.find_last_of('\n') + 1);
    std::string name;
    for (const char character : line.substr(std::min(line.size(), line.find(": ") + 1)))
    {
        const auto code = static_cast<unsigned char>(character);
        if (std::isalnum(code) != 0)
        {
            name += static_cast<char>(std::tolower(code));
        }
        else if (!name.empty() && name.back() != '-')
        {
            name += '-';
        }
    }
    name.resize(std::min(name.size(), c_longest));
    return name.empty() ? "beginning" : name.substr(0, name.find_last_not_of('-') + 1);
}

std::wstring FileName(std::size_t number, const std::string& name)
{
    const std::wstring digits = std::to_wstring(number);
    return std::wstring(digits.size() < 2 ? 1 : 0, L'0') + digits + L"-" + std::wstring(name.begin(), name.end()) +
           L".png";
}

void DeletePictures(const std::wstring& folder)
{
    WIN32_FIND_DATAW found{};
    const HANDLE handle = FindFirstFileW((folder + L"\\*.png").c_str(), &found);
    if (handle == INVALID_HANDLE_VALUE)
    {
        return;
    }
    const UniqueSearch search(handle);
    do
    {
        DeleteFileW((folder + L"\\" + found.cFileName).c_str());
    } while (FindNextFileW(search.get(), &found));
}
} // namespace

void Recorder::Look(const std::string& log)
{
    TakePicture(NameFrom(log));
    if (std::chrono::steady_clock::now() - m_lastChange > c_readingTime)
    {
        Answer();
    }
}

void Recorder::TakePicture(const std::string& name)
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
        m_shots.push_back({Cut(m_screen, content), name});
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
    DeletePictures(folder);
    std::size_t number = 0;
    for (const Shot& shot : m_shots)
    {
        shot.picture.SaveAsPng(folder + L"\\" + FileName(++number, shot.name));
    }
    return number;
}
} // namespace Testing
