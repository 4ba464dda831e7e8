// C++/WinRT calls RoOriginateLanguageException for each hresult_error. Windows before 8.1 lacks it; this definition
// replaces the import and forwards the call where Windows has the function.
#include "Installer/SystemFunction.h"

#include <windows.h>

#include <unknwn.h>
#include <winstring.h>

extern "C" BOOL WINAPI RoOriginateLanguageException(HRESULT error, HSTRING message, IUnknown* exception);

extern "C" BOOL WINAPI RoOriginateLanguageException(HRESULT error, HSTRING message, IUnknown* exception)
{
    using Originate = BOOL(WINAPI*)(HRESULT, HSTRING, IUnknown*);
    const auto originate = Installer::FindSystemFunction<Originate>(L"combase.dll", "RoOriginateLanguageException");
    return originate == nullptr ? FALSE : originate(error, message, exception);
}
