#include "Uninstaller/Confirmation.h"

#include "ProductSettings.h"
#include "support/FakeFolders.h"
#include "support/FakeStatusWindow.h"
#include "support/LoggedLines.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <commctrl.h>
#include <sentry_testing.h>

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

// The members of the structure are packed, so there can be no references to them.
template <class T>
T Copy(T value)
{
    return value;
}

// A user who answers the dialog as the test says.
class ConfirmationTest : public testing::Test
{
protected:
    ConfirmationTest() { sentry_init(sentry_options_new()); }
    ~ConfirmationTest() override { SentryTesting::Forget(); }

    std::variant<UserSettings, Ending> Ask(Installer::StatusWindow* window = nullptr)
    {
        return AskForConfirmation({.logger = logger, .runType = RunType::Verbose, .window = window});
    }

    // A yes, with what it says about the settings.
    void ExpectConfirmed(UserSettings settings)
    {
        const auto answer = Ask();
        ASSERT_TRUE(std::holds_alternative<UserSettings>(answer));
        EXPECT_EQ(std::get<UserSettings>(answer), settings);
    }

    // A dialog that ends the run.
    void ExpectEnd(Outcome outcome, const std::wstring& text)
    {
        const auto answer = Ask();
        ASSERT_TRUE(std::holds_alternative<Ending>(answer));
        EXPECT_EQ(std::get<Ending>(answer).outcome, outcome);
        EXPECT_EQ(std::get<Ending>(answer).text, text);
        EXPECT_TRUE(log.All().empty()); // the end of the run says it
    }

    TASKDIALOGCONFIG shown{};
    std::vector<std::wstring> radioButtons;
    int button = 0;
    int radioButton = 0;
    HRESULT result = S_OK;
    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    LoggedLines log;
    Fake<&TaskDialogIndirect> dialog = [this](const TASKDIALOGCONFIG* config, int* pressed, int* chosen,
                                              BOOL* verified) {
        shown = *config;
        for (UINT index = 0; index < config->cRadioButtons; ++index)
        {
            radioButtons.push_back(std::to_wstring(config->pRadioButtons[index].nButtonID) + L" " +
                                   config->pRadioButtons[index].pszButtonText);
        }
        EXPECT_EQ(verified, nullptr);
        if (SUCCEEDED(result))
        {
            *pressed = button;
            *chosen = radioButton;
        }
        return result;
    };
    Installer::Logger logger{RunType::Silent};
};

TEST_F(ConfirmationTest, is_worded_and_built_as_designed)
{
    button = IDYES;
    Ask();

    EXPECT_EQ(Copy(shown.cbSize), 160U);
    EXPECT_EQ(Copy(shown.hwndParent), nullptr);
    EXPECT_EQ(Copy(shown.hInstance), GetModuleHandleW(nullptr));
    EXPECT_EQ(Copy(shown.dwFlags), 0x01000000);
    EXPECT_EQ(Copy(shown.dwCommonButtons), 14);
    EXPECT_STREQ(shown.pszWindowTitle, L"Velmora");
    EXPECT_EQ(Copy(shown.pszMainIcon), MAKEINTRESOURCEW(101));
    EXPECT_STREQ(shown.pszMainInstruction, L"Uninstall Velmora?");
    EXPECT_STREQ(shown.pszContent,
                 L"Are you sure you want to uninstall Velmora? By uninstalling, existing software and Brindlewave "
                 L"installed by Velmora may stop working.");
    EXPECT_EQ(Copy(shown.cButtons), 0U);
    EXPECT_EQ(Copy(shown.pButtons), nullptr);
    EXPECT_EQ(Copy(shown.nDefaultButton), 2);
    EXPECT_EQ(radioButtons, (std::vector<std::wstring>{L"0 Keep user settings", L"1 Remove user settings"}));
    EXPECT_EQ(Copy(shown.nDefaultRadioButton), 0);
    EXPECT_EQ(Copy(shown.pszVerificationText), nullptr);
    EXPECT_EQ(Copy(shown.pszExpandedInformation), nullptr);
    EXPECT_EQ(Copy(shown.pszFooterIcon), nullptr);
    EXPECT_EQ(Copy(shown.pszFooter),
              std::wstring(L"If you plan on re-installing Velmora in the future, ensure 'Keep user settings' is "
                           L"selected.\n\nIf Velmora was used by multiple users on this machine, you'll need to "
                           L"manually remove the settings for these users. See ") +
                  L"" VELMORA_SUPPORT_SITE + L" for more information.");
    EXPECT_EQ(Copy(shown.pfCallback), nullptr);
    EXPECT_EQ(Copy(shown.cxWidth), 0U);
}

TEST_F(ConfirmationTest, is_owned_by_the_window_when_there_is_one)
{
    FakeStatusWindow desktop;
    button = IDYES;
    {
        ShownStatusWindow window(desktop);
        Ask(window.Get());
        EXPECT_EQ(Copy(shown.hwndParent), FakeStatusWindow::Window());
    }
    desktop.outcome = FakeStatusWindow::Outcome::Refused;
    ShownStatusWindow window(desktop);
    Ask(window.Get());
    EXPECT_EQ(Copy(shown.hwndParent), nullptr);
}

TEST_F(ConfirmationTest, yes_keeps_the_settings_unless_the_user_chose_otherwise)
{
    button = IDYES;
    ExpectConfirmed(UserSettings::Stay);

    radioButton = 1;
    ExpectConfirmed(UserSettings::Go);

    radioButton = 2;
    ExpectConfirmed(UserSettings::Stay);
    EXPECT_TRUE(log.All().empty());
}

TEST_F(ConfirmationTest, no_and_cancel_and_closing_cancel)
{
    for (const int id : {7, 2})
    {
        button = id;
        radioButton = 1;
        ExpectEnd(Outcome::Cancelled, L"");
    }
}

TEST_F(ConfirmationTest, a_dialog_that_cannot_be_shown_counts_as_a_yes_that_keeps_the_settings)
{
    result = E_OUTOFMEMORY;
    radioButton = 1;

    ExpectConfirmed(UserSettings::Stay);

    EXPECT_EQ(log.All(), Lines{"|WARNING|: Unable to prompt user to uninstall, assuming yes for uninstall. error: "
                               "-2147024882"});
    EXPECT_TRUE(SentryTesting::CurrentRun().events.empty());
}

TEST_F(ConfirmationTest, a_button_that_it_does_not_have_ends_the_run)
{
    button = 42;

    ExpectEnd(Outcome::UnknownAnswer, L"Unknown button event from task dialog, assuming yes for uninstall: 42");
}

} // namespace
