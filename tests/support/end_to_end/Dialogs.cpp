#include "support/end_to_end/Dialogs.h"

#include <windows.h>

#include <commctrl.h>

namespace Testing
{
namespace
{
// The last one of a dialog's controls of that class that is seen (parts of other message boxes are not) and shows no
// icon; null when there is none.
HWND FindControl(HWND dialog, const wchar_t* className)
{
    HWND found = nullptr;
    for (HWND child = nullptr; (child = FindWindowExW(dialog, child, className, nullptr)) != nullptr;)
    {
        if (IsWindowVisible(child) && (GetWindowLongW(child, GWL_STYLE) & SS_TYPEMASK) != SS_ICON)
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
} // namespace

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

std::optional<std::wstring> ReadAndCloseMessageBox(const std::wstring& title)
{
    HWND dialog = FindDialog(title);
    HWND text = dialog != nullptr ? FindControl(dialog, L"Static") : nullptr;
    HWND button = dialog != nullptr ? FindControl(dialog, L"Button") : nullptr;
    if (text == nullptr || button == nullptr)
    {
        return std::nullopt;
    }
    std::wstring said = TextOf(text);
    PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(button), BN_CLICKED), reinterpret_cast<LPARAM>(button));
    return said;
}
} // namespace Testing
