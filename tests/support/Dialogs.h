// Dialogs that the program shows, and a user who answers them.
#pragma once

#include <windows.h>

#include <functional>
#include <optional>
#include <string>

namespace Testing
{
// A dialog and what a user does with it.
struct DialogAnswer
{
    std::wstring title;
    // The number of the button; nothing to close the dialog by its frame.
    std::optional<int> button{};
    // The number of the radio button that is chosen before.
    std::optional<int> radioButton{};
    // What the user does before the button is pressed.
    std::function<void()> before = [] {};
};

// Does it when the dialog is there, one after the other.
class DialogUser
{
public:
    // Returns whether it was there.
    bool Answer(const DialogAnswer& answer);

private:
    // The dialog that was answered last, which may take its time to go.
    HWND m_answered = nullptr;
};
} // namespace Testing
