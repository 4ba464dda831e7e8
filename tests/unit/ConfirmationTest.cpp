#include "Uninstaller/Confirmation.h"

#include "ProductSettings.h"
#include "support/unit/FakeDesktop.h"
#include "support/unit/FakeTaskDialog.h"
#include "support/unit/RunLog.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

namespace
{

using namespace Uninstaller;
using namespace Testing;
using Installer::RunType;
using Lines = std::vector<std::string>;

// A user who answers the dialog as the test says.
class ConfirmationTest : public testing::Test
{
protected:
    std::variant<UserSettings, Ending> Ask(Installer::StatusWindow* window = nullptr)
    {
        return AskForConfirmation({.logger = log.Logger(), .runType = RunType::Verbose, .window = window});
    }

    // A yes, with what it says about the settings.
    void ExpectConfirmed(const FakeTaskDialog::TheAnswer& given, UserSettings settings)
    {
        dialog.Answer(given);
        const auto answer = Ask();
        ASSERT_TRUE(std::holds_alternative<UserSettings>(answer));
        EXPECT_EQ(std::get<UserSettings>(answer), settings);
    }

    // A button that ends the run.
    void ExpectEnd(int button, Outcome outcome, const std::wstring& text)
    {
        dialog.Answer({.button = button, .radioButton = 1});
        const auto answer = Ask();
        ASSERT_TRUE(std::holds_alternative<Ending>(answer));
        EXPECT_EQ(std::get<Ending>(answer).outcome, outcome);
        EXPECT_EQ(std::get<Ending>(answer).text, text);
        EXPECT_TRUE(log.Lines().empty()); // the end of the run says it
    }

    RunLog log;
    FakeTaskDialog dialog;
};

TEST_F(ConfirmationTest, Is_worded_and_built_as_designed)
{
    dialog.Answer({.button = IDYES});

    Ask();

    const ShownTaskDialog expected{
        .module = GetModuleHandleW(nullptr),
        .flags = 0x01000000,
        .commonButtons = 14,
        .title = L"Velmora",
        .mainIcon = L"#101",
        .mainInstruction = L"Uninstall Velmora?",
        .content = L"Are you sure you want to uninstall Velmora? By uninstalling, existing software and Brindlewave "
                   L"installed by Velmora may stop working.",
        .defaultButton = 2,
        .radioButtons = {{0, L"Keep user settings"}, {1, L"Remove user settings"}},
        .footer = L"If you plan on re-installing Velmora in the future, ensure 'Keep user settings' is selected.\n\n"
                  L"If Velmora was used by multiple users on this machine, you'll need to manually remove the settings "
                  L"for these users. See " VELMORA_SUPPORT_SITE L" for more information.",
        .tellsRadioButton = true};
    EXPECT_EQ(dialog.Shown().front(), expected);
}

TEST_F(ConfirmationTest, Is_owned_by_the_window_when_there_is_one)
{
    Journal journal;
    FakeDesktop desktop{journal};
    for (HWND owner : {FakeDesktop::Window(), HWND{}})
    {
        ShownStatusWindow window(desktop);
        dialog.Answer({.button = IDYES});
        Ask(window.Get());
        EXPECT_EQ(dialog.Shown().back().owner, owner);
        journal.Fail("RunStatusWindowThread");
    }
}

TEST_F(ConfirmationTest, Yes_keeps_the_settings_unless_the_user_chose_otherwise)
{
    ExpectConfirmed({.button = IDYES}, UserSettings::Keep);
    ExpectConfirmed({.button = IDYES, .radioButton = 1}, UserSettings::Remove);
    ExpectConfirmed({.button = IDYES, .radioButton = 2}, UserSettings::Keep);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ConfirmationTest, Every_other_button_ends_the_run)
{
    ExpectEnd(IDNO, Outcome::Cancelled, L"");
    ExpectEnd(IDCANCEL, Outcome::Cancelled, L"");
    ExpectEnd(42, Outcome::UnexpectedButton, L"Unknown button event from task dialog, assuming yes for uninstall: 42");
}

TEST_F(ConfirmationTest, A_dialog_that_cannot_be_shown_counts_as_a_yes_that_keeps_the_settings)
{
    ExpectConfirmed({.result = E_OUTOFMEMORY, .radioButton = 1}, UserSettings::Keep);

    EXPECT_EQ(log.Lines(), Lines{"|WARNING|: Unable to prompt user to uninstall, assuming yes for uninstall. error: "
                                 "-2147024882"});
}

} // namespace
