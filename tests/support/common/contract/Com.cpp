// COM, automation, the Windows Runtime, the shell, UI Automation.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <initguid.h>
#include <oleauto.h>
#include <roapi.h>
#include <shellapi.h>
#include <shlobj.h>
#include <uiautomationclient.h>
#include <uiautomationcoreapi.h>

namespace Testing
{

namespace
{

constexpr char c_initialized[] = "CoInitializeEx: COM is initialized on the thread";

const Contract<&CoInitializeEx> s_initialize{
    [](LPVOID reserved, DWORD model) {
        constexpr DWORD c_models = COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE | COINIT_SPEED_OVER_MEMORY;
        return Verdict{
            {reserved == nullptr, "the first parameter is reserved"},
            {HasOnly(model, c_models), "COINIT: known flags"},
        };
    },
    [](HRESULT result, LPVOID, DWORD) {
        if (SUCCEEDED(result) || result == RPC_E_CHANGED_MODE) // it is, in the other way
        {
            NoteInitialized(State::Com);
        }
    }};

const Contract<&CoCreateInstance> s_createInstance = [](REFCLSID, LPUNKNOWN outer, DWORD context, REFIID id,
                                                        LPVOID* object) {
    constexpr DWORD c_servers = CLSCTX_ALL;
    constexpr DWORD c_downloads = CLSCTX_NO_CODE_DOWNLOAD | CLSCTX_ENABLE_CODE_DOWNLOAD;
    constexpr DWORD c_activations = CLSCTX_DISABLE_AAA | CLSCTX_ENABLE_AAA;
    constexpr DWORD c_contexts =
        c_servers | c_downloads | c_activations | 0x839C5000; // the others that are neither obsolete nor reserved
    return Verdict{
        {IsInitialized(State::Com), c_initialized},
        {(context & c_servers) != 0, "CLSCTX: a kind of server"},
        {HasOnly(context, c_contexts), "CLSCTX: known flags"},
        {HasAtMostOneOf(context, c_downloads), "CLSCTX: code is downloaded or not"},
        {HasAtMostOneOf(context, c_activations), "CLSCTX: activate-as-activator is enabled or disabled"},
        {object != nullptr, "a place for the interface"},
        {outer == nullptr || IsEqualGUID(id, IID_IUnknown),
         "IClassFactory::CreateInstance: an aggregated object gives IUnknown first"},
    };
};

const Contract<&RoGetActivationFactory> s_getFactory = [](HSTRING name, REFIID, void** factory) {
    return Verdict{
        {IsInitialized(State::Com), c_initialized},
        {name != nullptr, "a class's name"},
        {factory != nullptr, "a place for the factory"},
    };
};

const Contract<&CoCreateFreeThreadedMarshaler> s_createMarshaler = [](LPUNKNOWN, LPUNKNOWN* marshaler) {
    return Verdict{{marshaler != nullptr, "a place for the marshaler"}};
};

const Contract<&CoTaskMemAlloc> s_taskAlloc{[](SIZE_T) { return Verdict{}; },
                                            [](LPVOID memory, SIZE_T) { NoteOpened(memory, Kind::TaskMemory); }};

const Contract<&CoTaskMemFree> s_taskFree{
    [](LPVOID memory) {
        return Verdict{{memory == nullptr || MayBe(memory, Kind::TaskMemory), "memory of CoTaskMemAlloc"}};
    },
    nullptr, [](LPVOID memory) { NoteClosed(memory); }};

const Contract<&CreateStreamOnHGlobal> s_createStream{
    [](HGLOBAL memory, BOOL, LPSTREAM* stream) {
        return Verdict{
            {memory == nullptr || MayBe(memory, Kind::GlobalMemory), "memory of GlobalAlloc"},
            {memory == nullptr || Grants(memory, Kind::GlobalMemory, GMEM_MOVEABLE),
             "the memory was allocated as moveable"},
            {stream != nullptr, "a place for the stream"},
        };
    },
    [](HRESULT result, HGLOBAL memory, BOOL frees, LPSTREAM*) {
        if (SUCCEEDED(result) && frees)
        {
            NoteClosed(memory);
        }
    }};

const Contract<&SysAllocString> s_allocText{[](const OLECHAR*) { return Verdict{}; },
                                            [](BSTR text, const OLECHAR*) { NoteOpened(text, Kind::Text); }};

const Contract<&SysAllocStringLen> s_allocTextOfLength{
    [](const OLECHAR*, UINT) { return Verdict{}; },
    [](BSTR text, const OLECHAR*, UINT) { NoteOpened(text, Kind::Text); }};

bool IsText(BSTR text)
{
    return text == nullptr || MayBe(text, Kind::Text);
}
constexpr char c_text[] = "a BSTR or null";

const Contract<&SysFreeString> s_freeText{[](BSTR text) { return Verdict{{IsText(text), c_text}}; }, nullptr,
                                          [](BSTR text) { NoteClosed(text); }};

const Contract<&SysStringLen> s_textLength = [](BSTR text) { return Verdict{{IsText(text), c_text}}; };

const Contract<&VariantInit> s_variantInit = [](VARIANTARG* variant) {
    return Verdict{{variant != nullptr, "a variant"}};
};

// The kinds of variant that there are, less the flags for arrays and references.
bool IsVariant(const VARIANTARG& variant)
{
    constexpr int c_flags = VT_ARRAY | VT_BYREF;
    const int type = variant.vt & ~c_flags;
    constexpr int c_record = 36; // VT_RECORD
    return (type <= VT_UINT && type != 15) || type == c_record;
}

const Contract<&VariantClear> s_variantClear{
    [](VARIANTARG* variant) {
        const bool isText = variant != nullptr && variant->vt == VT_BSTR;
        return Verdict{
            {variant != nullptr, "a variant"},
            {variant == nullptr || IsVariant(*variant), "VARENUM: a known type"},
            {!isText || IsText(variant->bstrVal), c_text},
        };
    },
    [](HRESULT, VARIANTARG*) {}};

const Contract<&SafeArrayCreateVector> s_createVector = [](VARTYPE type, LONG, ULONG) {
    return Verdict{
        {(type & (VT_ARRAY | VT_BYREF)) == 0, "neither VT_ARRAY nor VT_BYREF"},
        {!IsOneOf(type, VT_EMPTY, VT_NULL), "a type of elements"},
    };
};

const Contract<&SafeArrayPutElement> s_putElement = [](SAFEARRAY* array, LONG* indices, void* element) {
    const bool isVector = array != nullptr && indices != nullptr && array->cDims == 1;
    return Verdict{
        {array != nullptr, "an array"},
        {indices != nullptr, "an index"},
        {element != nullptr, "an element"},
        {!isVector || (*indices >= array->rgsabound[0].lLbound &&
                       *indices - array->rgsabound[0].lLbound < static_cast<LONG>(array->rgsabound[0].cElements)),
         "an index within the bounds"},
    };
};

const Contract<&GetErrorInfo> s_getErrorInfo = [](ULONG reserved, IErrorInfo** information) {
    return Verdict{
        {reserved == 0, "the first parameter is reserved"},
        {information != nullptr, "a place for the error object"},
    };
};

const Contract<&SetErrorInfo> s_setErrorInfo = [](ULONG reserved, IErrorInfo*) {
    return Verdict{{reserved == 0, "the first parameter is reserved"}};
};

const Contract<&SHGetKnownFolderPath> s_getKnownFolder{
    [](REFKNOWNFOLDERID, DWORD flags, HANDLE token, PWSTR* path) {
        constexpr DWORD c_flags = 0x800FDF00; // KNOWN_FOLDER_FLAG, without KF_FLAG_DONT_UNEXPAND
        constexpr DWORD c_notParentRelative = 0x200;
        constexpr DWORD c_defaultPath = 0x400;
        constexpr DWORD c_initialize = 0x800;
        constexpr DWORD c_create = 0x8000;
        const bool isDefaultUser = token == INVALID_HANDLE_VALUE;
        return Verdict{
            {HasOnly(flags, c_flags), "KNOWN_FOLDER_FLAG: known flags"},
            {!HasAll(flags, c_notParentRelative) || HasAll(flags, c_defaultPath),
             "KNOWN_FOLDER_FLAG: KF_FLAG_NOT_PARENT_RELATIVE needs KF_FLAG_DEFAULT_PATH"},
            {!HasAll(flags, c_initialize) || HasAll(flags, c_create),
             "KNOWN_FOLDER_FLAG: KF_FLAG_INIT needs KF_FLAG_CREATE"},
            {token == nullptr || isDefaultUser || Grants(token, Kind::Token, TOKEN_QUERY | TOKEN_IMPERSONATE),
             "the token was opened with TOKEN_QUERY and TOKEN_IMPERSONATE"},
            {path != nullptr, "a place for the path"},
        };
    },
    [](HRESULT result, REFKNOWNFOLDERID, DWORD, HANDLE, PWSTR* path) {
        if (SUCCEEDED(result))
        {
            NoteOpened(*path, Kind::TaskMemory);
        }
    }};

const Contract<&SHChangeNotify> s_changeNotify = [](LONG event, UINT flags, LPCVOID first, LPCVOID second) {
    constexpr LONG c_withPath = SHCNE_ATTRIBUTES | SHCNE_CREATE | SHCNE_DELETE | SHCNE_DRIVEADD | SHCNE_DRIVEREMOVED |
                                SHCNE_FREESPACE | SHCNE_MEDIAINSERTED | SHCNE_MEDIAREMOVED | SHCNE_MKDIR |
                                SHCNE_NETSHARE | SHCNE_NETUNSHARE | SHCNE_RMDIR | SHCNE_SERVERDISCONNECT |
                                SHCNE_UPDATEDIR | SHCNE_UPDATEITEM;
    constexpr DWORD c_interrupt = 0x80000000; // SHCNE_INTERRUPT
    const UINT type = flags & SHCNF_TYPE;
    const bool isOfAssociations = event == SHCNE_ASSOCCHANGED;
    const bool isOfItem = (event & c_withPath) != 0 && !isOfAssociations;
    return Verdict{
        {(static_cast<DWORD>(event) & ~c_interrupt) != 0, "an event, not SHCNE_INTERRUPT alone"},
        {HasOnly(flags, SHCNF_TYPE | SHCNF_FLUSHNOWAIT | 0x10000 /* SHCNF_NOTIFYRECURSIVE */), "known flags"},
        {IsOneOf(type, SHCNF_IDLIST, SHCNF_PATHA, SHCNF_PATHW, SHCNF_PRINTERA, SHCNF_PRINTERW, SHCNF_DWORD),
         "a kind of items"},
        {!isOfAssociations || type == SHCNF_IDLIST, "SHCNE_ASSOCCHANGED needs SHCNF_IDLIST"},
        {!isOfAssociations || (first == nullptr && second == nullptr), "SHCNE_ASSOCCHANGED has no items"},
        {!isOfItem || IsOneOf(type, SHCNF_IDLIST, SHCNF_PATHA, SHCNF_PATHW),
         "an item needs SHCNF_IDLIST or SHCNF_PATH"},
        {!isOfItem || first != nullptr, "an item"},
        {!isOfItem || second == nullptr, "no second item"},
    };
};

const Contract<&ShellExecuteW> s_shellExecute = [](HWND, LPCWSTR, LPCWSTR file, LPCWSTR, LPCWSTR, INT show) {
    return Verdict{
        {file != nullptr, "a file"},
        {show >= SW_HIDE && show <= SW_SHOWDEFAULT, "a way to show it"},
    };
};

const Contract<&UiaReturnRawElementProvider> s_returnProvider = [](HWND window, WPARAM wParam, LPARAM lParam,
                                                                   IRawElementProviderSimple* provider) {
    return Verdict{
        {window != nullptr, "a window"},
        {provider != nullptr || (wParam == 0 && lParam == 0), "no provider only to disconnect"},
    };
};

const Contract<&UiaHostProviderFromHwnd> s_hostProvider = [](HWND window, IRawElementProviderSimple** provider) {
    return Verdict{
        {window != nullptr, "a window"},
        {provider != nullptr, "a place for the provider"},
    };
};

const Contract<&UiaRaiseAutomationEvent> s_raiseEvent = [](IRawElementProviderSimple* provider, EVENTID event) {
    constexpr EVENTID c_first = 20000; // UIA_ToolTipOpenedEventId
    constexpr EVENTID c_last = 20099;
    return Verdict{
        {provider != nullptr, "a provider"},
        {event >= c_first && event <= c_last, "Event Identifiers: an event"},
    };
};

} // namespace

} // namespace Testing
