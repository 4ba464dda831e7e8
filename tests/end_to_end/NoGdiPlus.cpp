// GDI+ that does not work: every function of it fails, the one that starts it too.
#include <windows.h>

extern "C" int WINAPI Refuse();

int WINAPI Refuse()
{
    return 7; // Win32Error
}
