// C++/WinRT tells Windows, and a debugger, of each exception that it makes. The function that it calls for that came
// with Windows 8.1; this one takes its place in the program, and passes the call on where Windows has it.
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
