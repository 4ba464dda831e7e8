// Asking a token about itself.
#pragma once

#include "result_macros.h"

#include <cstddef>
#include <memory>
#include <new>

namespace wil
{

namespace details
{

// Which question is answered with which type.
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

// Frees an answer that brings what it points to along, in one piece of memory.
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

// What the token tells of itself. An answer of a size that depends on the token comes as an owned pointer. Throws
// ResultException with the code of any failure, E_OUTOFMEMORY when there is no memory for the answer.
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
