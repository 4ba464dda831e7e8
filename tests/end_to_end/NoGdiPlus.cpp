// GDI+ that cannot be started.
#include <windows.h>

extern "C" __declspec(dllexport) int WINAPI GdiplusStartup(ULONG_PTR* token, const void* input, void* output);

int WINAPI GdiplusStartup(ULONG_PTR* /*token*/, const void* /*input*/, void* /*output*/)
{
    return 7; // Win32Error
}
