// Token queries.
#pragma once

#include "result_macros.h"

#include <cstddef>
#include <memory>
#include <new>

namespace wil
{

namespace details
{

// The information class of each type.
template <class T>
struct TokenInformationClass;
template <>
struct TokenInformationClass<TOKEN_ELEVATION> : std::integral_constant<TOKEN_INFORMATION_CLASS, TokenElevation>
{
};
template <>
struct TokenInformationClass<TOKEN_USER> : std::integral_constant<TOKEN_INFORMATION_CLASS, TokenUser>
{
};

// Frees a variable-length structure, a single allocation.
struct TokenInformationDeleter
{
    template <class T>
    void operator()(T* information) const noexcept
    {
        ::operator delete(information);
    }
};

} // namespace details

template <class T>
using unique_tokeninfo_ptr = std::unique_ptr<T, details::TokenInformationDeleter>;

// Queries a token. Variable-length structures are returned as an owning pointer. Throws ResultException on failure,
// also when out of memory (E_OUTOFMEMORY).
template <class T>
    requires std::is_same_v<T, TOKEN_USER>
unique_tokeninfo_ptr<T> get_token_information(HANDLE token)
{
    DWORD size = 0;
    THROW_LAST_ERROR_IF(!::GetTokenInformation(token, details::TokenInformationClass<T>::value, nullptr, 0, &size) &&
                        GetLastError() != ERROR_INSUFFICIENT_BUFFER);
    unique_tokeninfo_ptr<T> information(static_cast<T*>(::operator new(size, std::nothrow)));
    THROW_IF_NULL_ALLOC(information);
    THROW_IF_WIN32_BOOL_FALSE(
        ::GetTokenInformation(token, details::TokenInformationClass<T>::value, information.get(), size, &size));
    return information;
}

template <class T>
    requires(!std::is_same_v<T, TOKEN_USER>)
T get_token_information(HANDLE token)
{
    T information{};
    DWORD size = 0;
    THROW_IF_WIN32_BOOL_FALSE(::GetTokenInformation(token, details::TokenInformationClass<T>::value, &information,
                                                    sizeof(information), &size));
    return information;
}

} // namespace wil
