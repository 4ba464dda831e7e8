// What somebody may put beside the program under the name of a library of Windows: it leaves a file when it is loaded.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, void* /*reserved*/)
{
    if (reason == DLL_PROCESS_ATTACH)
    {
        wchar_t path[MAX_PATH + 8]{};
        lstrcpyW(path + GetModuleFileNameW(instance, path, MAX_PATH), L".loaded");
        CloseHandle(CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    return TRUE;
}
