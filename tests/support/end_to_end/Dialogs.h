// Dialogs that the program shows, and a user who answers them.
#pragma once

#include <windows.h>

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
    // For a message box, which has one button only: what it is to say. It is closed whatever it says.
    std::optional<std::wstring> message{};
};

// The dialog with that title, if it is there.
HWND FindDialog(const std::wstring& title);

// Does it when the dialog is there. Returns whether it was.
bool AnswerDialog(const DialogAnswer& answer);

// The same for dialogs that follow one another: not for the last one, which may take its time to go.
bool AnswerDialog(const DialogAnswer& answer, HWND& last);

// The same for a message box: reads what it says, and closes it. Nothing when it is not there.
std::optional<std::wstring> ReadAndCloseMessageBox(const std::wstring& title);
} // namespace Testing
