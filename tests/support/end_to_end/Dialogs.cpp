#include "support/end_to_end/Dialogs.h"

#include "support/end_to_end/Names.h"
#include "support/end_to_end/WindowCapture.h"

#include <windows.h>

#include <commctrl.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace Testing
{
namespace
{
// The last one of a dialog's controls of that class that is seen (parts of other message boxes are not), with or
// without an icon; null when there is none.
HWND FindControl(HWND dialog, const wchar_t* className, bool hasIcon = false)
{
    HWND found = nullptr;
    for (HWND child = nullptr; (child = FindWindowExW(dialog, child, className, nullptr)) != nullptr;)
    {
        if (IsWindowVisible(child) && ((GetWindowLongW(child, GWL_STYLE) & SS_TYPEMASK) == SS_ICON) == hasIcon)
        {
            found = child;
        }
    }
    return found;
}

std::wstring TextOf(HWND control)
{
    std::wstring text(static_cast<std::size_t>(SendMessageW(control, WM_GETTEXTLENGTH, 0, 0)) + 1, L'\0');
    text.resize(static_cast<std::size_t>(
        SendMessageW(control, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()))));
    return text;
}

// The icon that the picture looks like, clearly more than like any other: handles of icons mean nothing to another
// process. Nothing when there is none like that, as long as it is not drawn.
std::optional<MessageIcon> RecognizeIcon(const Picture& picture)
{
    std::vector<std::pair<double, MessageIcon>> candidates;
    for (const auto& [icon, name] :
         {std::pair{MessageIcon::Error, IDI_ERROR}, std::pair{MessageIcon::Warning, IDI_WARNING},
          std::pair{MessageIcon::Information, IDI_INFORMATION}})
    {
        const Picture drawn =
            DrawIconOnGround(LoadIconW(nullptr, name), picture.Width(), picture.Height(), picture.At(0, 0));
        candidates.emplace_back(Difference(picture, drawn), icon);
    }
    std::ranges::sort(candidates);
    const bool isClear = candidates[0].first * 2 < candidates[1].first;
    return isClear ? std::optional(candidates[0].second) : std::nullopt;
}
// Lets a message box be seen whole. Every thread tells the screen below Wine for itself which of its windows is in
// front, and so the box's owner, a window of another thread, may end up before it. It is in the middle; the corner is
// free.
void Uncover(HWND dialog)
{
    RECT place{};
    if (GetWindowRect(dialog, &place) && (place.left != 0 || place.top != 0))
    {
        SetWindowPos(dialog, nullptr, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE | SWP_ASYNCWINDOWPOS);
    }
}
} // namespace

void PrintTo(const MessageBoxText& box, std::ostream* stream)
{
    constexpr std::array names{"none", "error", "warning", "information"};
    *stream << '"' << ToUtf8(box.text) << "\", icon: " << names.at(static_cast<std::size_t>(box.icon));
}

HWND FindDialog(const std::wstring& title)
{
    HWND dialog = FindWindowW(L"#32770", title.c_str());
    return dialog != nullptr && IsWindowVisible(dialog) ? dialog : nullptr;
}

bool AnswerDialog(const DialogAnswer& answer, HWND& last)
{
    HWND dialog = FindDialog(answer.title);
    if (dialog == nullptr || dialog == last)
    {
        return false;
    }
    last = dialog;
    answer.before();
    if (answer.radioButton)
    {
        SendMessageW(dialog, TDM_CLICK_RADIO_BUTTON, static_cast<WPARAM>(*answer.radioButton), 0);
    }
    if (answer.button)
    {
        PostMessageW(dialog, TDM_CLICK_BUTTON, static_cast<WPARAM>(*answer.button), 0);
    }
    else
    {
        PostMessageW(dialog, WM_SYSCOMMAND, SC_CLOSE, 0);
    }
    return true;
}

bool AnswerDialog(const DialogAnswer& answer)
{
    HWND none = nullptr;
    return AnswerDialog(answer, none);
}

std::optional<MessageBoxText> ReadAndCloseMessageBox(const std::wstring& title)
{
    HWND dialog = FindDialog(title);
    if (dialog == nullptr)
    {
        return std::nullopt;
    }
    HWND text = FindControl(dialog, L"Static");
    HWND button = FindControl(dialog, L"Button");
    if (text == nullptr || button == nullptr)
    {
        return std::nullopt;
    }
    MessageBoxText box{.text = TextOf(text)};
    if (HWND iconControl = FindControl(dialog, L"Static", true))
    {
        const auto icon = RecognizeIcon(CaptureWindow(iconControl));
        if (!icon)
        {
            Uncover(dialog);
            return std::nullopt;
        }
        box.icon = *icon;
    }
    PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(button), BN_CLICKED), reinterpret_cast<LPARAM>(button));
    return box;
}
} // namespace Testing
