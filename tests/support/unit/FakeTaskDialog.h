#pragma once

#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <commctrl.h>

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

// A task dialog as it was asked for. A text that was null is empty, one that stands for a resource is "#<number>".
struct ShownTaskDialog
{
    using Buttons = std::vector<std::pair<int, std::wstring>>; // ids and texts

    HWND owner = nullptr;
    HINSTANCE module = nullptr;
    int flags = 0;
    int commonButtons = 0;
    std::wstring title{};
    std::wstring mainIcon{};
    std::wstring mainInstruction{};
    std::wstring content{};
    Buttons buttons{};
    int defaultButton = 0;
    Buttons radioButtons{};
    std::wstring footer{};
    bool tellsRadioButton = false; // the caller wants to know it

    bool operator==(const ShownTaskDialog&) const = default;
};

// Task dialogs that are answered at once, in the order of the answers:
//     dialog.Answer({.button = IDRETRY});
// One more than there are answers is a failure of the test.
class FakeTaskDialog
{
public:
    struct TheAnswer
    {
        HRESULT result = S_OK; // of the call
        int button = 0;
        int radioButton = 0;
        std::function<void()> whileShown = [] {};
    };

    ~FakeTaskDialog() { EXPECT_TRUE(m_answers.empty()) << "a dialog was not shown"; }

    void Answer(const TheAnswer& answer) { m_answers.push_back(answer); }

    // Every dialog so far.
    const std::vector<ShownTaskDialog>& Shown() const { return m_shown; }

private:
    static std::wstring Text(const wchar_t* text)
    {
        if (text == nullptr)
        {
            return {};
        }
        return IS_INTRESOURCE(text) ? L'#' + std::to_wstring(reinterpret_cast<ULONG_PTR>(text)) : text;
    }

    static ShownTaskDialog::Buttons Copy(const TASKDIALOG_BUTTON* buttons, UINT count)
    {
        ShownTaskDialog::Buttons copy;
        for (UINT i = 0; i < count; ++i)
        {
            copy.emplace_back(buttons[i].nButtonID, Text(buttons[i].pszButtonText));
        }
        return copy;
    }

    HRESULT Show(const TASKDIALOGCONFIG& dialog, int* button, int* radioButton, const BOOL* verification)
    {
        EXPECT_TRUE(verification == nullptr && dialog.pszVerificationText == nullptr &&
                    dialog.pszExpandedInformation == nullptr && dialog.pszExpandedControlText == nullptr &&
                    dialog.pszCollapsedControlText == nullptr && dialog.pszFooterIcon == nullptr &&
                    dialog.pfCallback == nullptr && dialog.cxWidth == 0 && dialog.nDefaultRadioButton == 0)
            << "a dialog has what none of this program's has";
        m_shown.push_back({.owner = dialog.hwndParent,
                           .module = dialog.hInstance,
                           .flags = dialog.dwFlags,
                           .commonButtons = dialog.dwCommonButtons,
                           .title = Text(dialog.pszWindowTitle),
                           .mainIcon = Text(dialog.pszMainIcon),
                           .mainInstruction = Text(dialog.pszMainInstruction),
                           .content = Text(dialog.pszContent),
                           .buttons = Copy(dialog.pButtons, dialog.cButtons),
                           .defaultButton = dialog.nDefaultButton,
                           .radioButtons = Copy(dialog.pRadioButtons, dialog.cRadioButtons),
                           .footer = Text(dialog.pszFooter),
                           .tellsRadioButton = radioButton != nullptr});
        if (m_answers.empty())
        {
            ADD_FAILURE() << "a dialog is shown that nobody answers";
            return E_UNEXPECTED;
        }
        const TheAnswer answer = std::move(m_answers.front());
        m_answers.pop_front();
        answer.whileShown();
        if (button != nullptr)
        {
            *button = answer.button;
        }
        if (radioButton != nullptr)
        {
            *radioButton = answer.radioButton;
        }
        return answer.result;
    }

    std::deque<TheAnswer> m_answers;
    std::vector<ShownTaskDialog> m_shown;
    Fake<&TaskDialogIndirect> m_show = [this](const TASKDIALOGCONFIG* dialog, int* button, int* radioButton,
                                              BOOL* verification) {
        return Show(*dialog, button, radioButton, verification);
    };
};

} // namespace Testing
