// Dialogs that the program shows, and a user who answers them.
#pragma once

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
};

// Does it when the dialog is there. Returns whether it was.
bool AnswerDialog(const DialogAnswer& answer);
} // namespace Testing
