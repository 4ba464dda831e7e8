// Missing in mingw-w64. Only the real WIL needs it.
#pragma once

#include <combaseapi.h>
#include <inspectable.h>
#include <unknwn.h>

#ifdef __cplusplus
struct IWeakReference : public IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE Resolve(REFIID id, IInspectable** object) = 0;
};
__CRT_UUID_DECL(IWeakReference, 0x00000037, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46)

struct IWeakReferenceSource : public IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE GetWeakReference(IWeakReference** reference) = 0;
};
__CRT_UUID_DECL(IWeakReferenceSource, 0x00000038, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46)
#endif
