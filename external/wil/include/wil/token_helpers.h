// Asking a token about itself.
#pragma once

#include "result_macros.h"

namespace wil
{

namespace details
{

// Which question is answered with which type: only answers of a fixed size.
template <class T>
struct TokenInformationClass;
template <>
struct TokenInformationClass<TOKEN_ELEVATION> : std::integral_constant<TOKEN_INFORMATION_CLASS, TokenElevation>
{
};
template <>
struct TokenInformationClass<TOKEN_ELEVATION_TYPE> : std::integral_constant<TOKEN_INFORMATION_CLASS, TokenElevationType>
{
};

} // namespace details

// What the token tells of itself; null: the token that the calling thread works with. Throws ResultException with the
// code of any failure.
template <class T>
T get_token_information(HANDLE token = nullptr)
{
    T information{};
    DWORD size = 0;
    THROW_IF_WIN32_BOOL_FALSE(::GetTokenInformation(token ? token : GetCurrentThreadEffectiveToken(),
                                                    details::TokenInformationClass<T>::value, &information,
                                                    sizeof(information), &size));
    return information;
}

} // namespace wil
