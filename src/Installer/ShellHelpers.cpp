#include "Installer/ShellHelpers.h"

#include "Installer/Security.h"

#include <windows.h>

#include <combaseapi.h>
#include <exdisp.h>
#include <oleauto.h>
#include <servprov.h>
#include <shellapi.h>
#include <shldisp.h>
#include <shlguid.h>
#include <shlobj.h>

#include <wil/com.h>
#include <wil/resource.h>
#include <wil/result.h>

#include <string>

namespace Installer
{

namespace
{

// ShellExecuteW's results up to this are errors.
constexpr INT_PTR c_lastShellError = 32;

wil::unique_variant MakeVariant(int number)
{
    wil::unique_variant variant;
    variant.vt = VT_INT;
    variant.intVal = number;
    return variant;
}

// The desktop's shell view, an object of Explorer's process.
wil::com_ptr<IShellView> FindDesktopView()
{
    wil::com_ptr<IShellWindows> windows;
    THROW_IF_FAILED(CoCreateInstance(CLSID_ShellWindows, nullptr, CLSCTX_LOCAL_SERVER, IID_PPV_ARGS(windows.put())));

    wil::unique_variant location = MakeVariant(CSIDL_DESKTOP);
    wil::unique_variant root;
    long window = 0;
    wil::com_ptr<IDispatch> desktop;
    THROW_IF_FAILED(windows->FindWindowSW(location.addressof(), root.addressof(), SWC_DESKTOP, &window,
                                          SWFO_NEEDDISPATCH, desktop.put()));
    // FindWindowSW returns S_FALSE when it finds nothing.
    THROW_HR_IF(HRESULT_FROM_WIN32(ERROR_NOT_FOUND), !desktop);

    wil::com_ptr<IServiceProvider> services;
    THROW_IF_FAILED(desktop->QueryInterface(IID_PPV_ARGS(services.put())));
    wil::com_ptr<IShellBrowser> browser;
    THROW_IF_FAILED(services->QueryService(SID_STopLevelBrowser, IID_PPV_ARGS(browser.put())));
    wil::com_ptr<IShellView> activeView;
    THROW_IF_FAILED(browser->QueryActiveShellView(activeView.put()));
    wil::com_ptr<IShellView> view;
    THROW_IF_FAILED(activeView->QueryInterface(IID_PPV_ARGS(view.put())));
    return view;
}

// The automation object of the view's shell.
wil::com_ptr<IShellDispatch2> GetShell(IShellView& view)
{
    wil::com_ptr<IDispatch> background;
    THROW_IF_FAILED(view.GetItemObject(SVGIO_BACKGROUND, IID_PPV_ARGS(background.put())));
    wil::com_ptr<IShellFolderViewDual> folderView;
    THROW_IF_FAILED(background->QueryInterface(IID_PPV_ARGS(folderView.put())));
    wil::com_ptr<IDispatch> application;
    THROW_IF_FAILED(folderView->get_Application(application.put()));
    wil::com_ptr<IShellDispatch2> shell;
    THROW_IF_FAILED(application->QueryInterface(IID_PPV_ARGS(shell.put())));
    return shell;
}

} // namespace

void ShellExecuteFromExplorer(const std::wstring& file)
{
    if (!IsTokenElevated())
    {
        THROW_LAST_ERROR_IF(reinterpret_cast<INT_PTR>(ShellExecuteW(nullptr, nullptr, file.c_str(), nullptr, nullptr,
                                                                    SW_SHOWNORMAL)) <= c_lastShellError);
        return;
    }
    const wil::com_ptr<IShellDispatch2> shell = GetShell(*FindDesktopView());
    const wil::unique_bstr name = wil::make_bstr(file.c_str());
    const wil::unique_variant arguments = wil::make_variant_bstr(L"");
    const wil::unique_variant directory = wil::make_variant_bstr(L"");
    const wil::unique_variant operation = wil::make_variant_bstr(L"");
    const wil::unique_variant show = MakeVariant(SW_SHOWNORMAL);
    THROW_IF_FAILED(shell->ShellExecute(name.get(), arguments, directory, operation, show));
}

} // namespace Installer
