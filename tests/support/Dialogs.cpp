#include "support/Dialogs.h"

#include <windows.h>

#include <commctrl.h>

namespace Testing
{
bool DialogUser::Answer(const DialogAnswer& answer)
{
    const HWND dialog = FindWindowW(L"#32770", answer.title.c_str());
    if (dialog == nullptr || dialog == m_answered || !IsWindowVisible(dialog))
    {
        return false;
    }
    m_answered = dialog;
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
} // namespace Testing
