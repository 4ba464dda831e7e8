// What a hook of the delay-load helper needs.
#pragma once

#include <windows.h>

struct ImgDelayDescr;

struct DelayLoadProc
{
    BOOL fImportByName;
    union {
        LPCSTR szProcName;
        DWORD dwOrdinal;
    };
};

struct DelayLoadInfo
{
    DWORD cb;
    const ImgDelayDescr* pidd;
    FARPROC* ppfn;
    LPCSTR szDll;
    DelayLoadProc dlp;
    HMODULE hmodCur;
    FARPROC pfnCur;
    DWORD dwLastError;
};
typedef DelayLoadInfo* PDelayLoadInfo;

enum
{
    dliStartProcessing,
    dliNoteStartProcessing = dliStartProcessing,
    dliNotePreLoadLibrary,
    dliNotePreGetProcAddress,
    dliFailLoadLib,
    dliFailGetProc,
    dliNoteEndProcessing
};

typedef FARPROC(WINAPI* PfnDliHook)(unsigned dliNotify, PDelayLoadInfo pdli);

extern "C" const PfnDliHook __pfnDliNotifyHook2;

#ifndef FACILITY_VISUALCPP
#define FACILITY_VISUALCPP ((LONG)0x6d)
#endif
#define VcppException(sev, err) ((sev) | (FACILITY_VISUALCPP << 16) | (err))
