#include "Uninstaller/Confirmation.h"

#include "Installer/Resources.h"
#include "ProductSettings.h"

#include <windows.h>

#include <commctrl.h>

#include <string>
#include <variant>

namespace Uninstaller
{

namespace
{

enum RadioButton : int
{
    c_keepSettings = 0,
    c_removeSettings = 1,
};

constexpr TASKDIALOG_BUTTON c_radioButtons[] = {
    {c_keepSettings, L"Keep user settings"},
    {c_removeSettings, L"Remove user settings"},
};

constexpr wchar_t c_footer[] =
    L"If you plan on re-installing Velmora in the future, ensure 'Keep user settings' is selected.\n\n"
    L"If Velmora was used by multiple users on this machine, you'll need to manually remove the settings for these "
    L"users. See " VELMORA_SUPPORT_SITE L" for more information.";

} // namespace

std::variant<UserSettings, Ending> AskForConfirmation(const RunContext& run)
{
    TASKDIALOGCONFIG dialog{};
    dialog.cbSize = sizeof(dialog);
    dialog.hwndParent = GetDialogOwner(run);
    dialog.hInstance = GetModuleHandleW(nullptr);
    dialog.dwFlags = TDF_SIZE_TO_CONTENT;
    dialog.dwCommonButtons = TDCBF_YES_BUTTON | TDCBF_NO_BUTTON | TDCBF_CANCEL_BUTTON;
    dialog.pszWindowTitle = L"Velmora";
    dialog.pszMainIcon = MAKEINTRESOURCEW(IDI_VELMORA);
    dialog.pszMainInstruction = L"Uninstall Velmora?";
    dialog.pszContent = L"Are you sure you want to uninstall Velmora? By uninstalling, existing software and "
                        L"Brindlewave installed by Velmora may stop working.";
    dialog.nDefaultButton = IDCANCEL;
    dialog.cRadioButtons = ARRAYSIZE(c_radioButtons);
    dialog.pRadioButtons = c_radioButtons;
    dialog.pszFooter = c_footer;

    int button = 0;
    int radioButton = c_keepSettings;
    const HRESULT result = TaskDialogIndirect(&dialog, &button, &radioButton, nullptr);
    if (FAILED(result))
    {
        run.logger.Warning(L"Unable to prompt user to uninstall, assuming yes for uninstall. error: " +
                               std::to_wstring(result),
                           false);
        return UserSettings::Keep;
    }
    switch (button)
    {
    case IDYES:
        return radioButton == c_removeSettings ? UserSettings::Remove : UserSettings::Keep;
    case IDNO:
    case IDCANCEL:
        return Ending(Outcome::Cancelled);
    default:
        return Ending(Outcome::UnexpectedButton,
                      L"Unknown button event from task dialog, assuming yes for uninstall: " + std::to_wstring(button));
    }
}

} // namespace Uninstaller
