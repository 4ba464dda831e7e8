// mingw-w64's header, with agile references. Only the real WIL needs them.
#include_next <combaseapi.h>

#if defined(__cplusplus) && !defined(VELMORA_COMBASEAPI_ADDITIONS)
#define VELMORA_COMBASEAPI_ADDITIONS

struct IAgileReference;

enum AgileReferenceOptions
{
    AGILEREFERENCE_DEFAULT = 0,
    AGILEREFERENCE_DELAYEDMARSHAL = 1,
};

extern "C" HRESULT WINAPI RoGetAgileReference(AgileReferenceOptions options, REFIID id, IUnknown* object,
                                              IAgileReference** reference);

#endif
