// Somebody who sits before the screen, takes a picture whenever it changes, and answers the uninstaller's dialogs.
#pragma once

#include "support/end_to_end/WindowCapture.h"

#include <chrono>
#include <string>
#include <vector>

namespace Testing
{
class Recorder
{
public:
    // Looks at the screen, and does what there is to do: says yes to uninstalling, has programs in the way ended, and
    // closes what only tells something. To be called again and again.
    void Look();

    // Writes the pictures to a folder, in their order, in place of those of an earlier run. Returns how many there are.
    std::size_t Save(const std::wstring& folder) const;

private:
    void TakePicture();
    void Answer();

    std::vector<Picture> m_pictures;
    Picture m_screen;
    std::chrono::steady_clock::time_point m_lastChange = std::chrono::steady_clock::now();
    int m_questions = 0;
    HWND m_lastQuestion = nullptr;
};
} // namespace Testing
