// mingw-w64's header, with missing error codes.
#include_next <winerror.h>

#ifndef VELMORA_WINERROR_ADDITIONS
#define VELMORA_WINERROR_ADDITIONS

#ifndef ERROR_UNHANDLED_EXCEPTION
#define ERROR_UNHANDLED_EXCEPTION __MSABI_LONG(574)
#endif
#ifndef ERROR_ASSERTION_FAILURE
#define ERROR_ASSERTION_FAILURE __MSABI_LONG(668)
#endif
#ifndef ERROR_REPARSE_POINT_ENCOUNTERED
#define ERROR_REPARSE_POINT_ENCOUNTERED __MSABI_LONG(4395)
#endif
// mingw-w64's macro evaluates its argument twice.
#ifdef __cplusplus
#undef HRESULT_FROM_WIN32
extern "C++" {
template <class Error>
constexpr HRESULT HRESULT_FROM_WIN32(Error error) noexcept
{
    return static_cast<HRESULT>(error) <= 0
               ? static_cast<HRESULT>(error)
               : static_cast<HRESULT>((static_cast<unsigned long>(error) & 0xFFFFUL) | 0x80070000UL);
}
}
#endif

// Only the real WIL needs the rest.
#ifndef ERROR_ILLEGAL_CHARACTER
#define ERROR_ILLEGAL_CHARACTER __MSABI_LONG(582)
#endif
#ifndef ERROR_UNDEFINED_CHARACTER
#define ERROR_UNDEFINED_CHARACTER __MSABI_LONG(583)
#endif
#ifndef ERROR_NO_MORE_MATCHES
#define ERROR_NO_MORE_MATCHES __MSABI_LONG(626)
#endif
#ifndef ERROR_HANDLE_REVOKED
#define ERROR_HANDLE_REVOKED __MSABI_LONG(811)
#endif
#ifndef ERROR_IMPLEMENTATION_LIMIT
#define ERROR_IMPLEMENTATION_LIMIT __MSABI_LONG(1292)
#endif
#ifndef E_NOT_SET
#define E_NOT_SET HRESULT_FROM_WIN32(ERROR_NOT_FOUND)
#endif

#endif
