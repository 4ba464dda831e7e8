// The owner of a reference to a COM object: it is released when the owner goes out of scope.
#pragma once

#include "result_macros.h"

#include <combaseapi.h>
#include <unknwn.h>

#include <concepts>
#include <cstddef>
#include <utility>

namespace wil
{

// What an owner's own calls do with a failure: throw it, or return it.
struct err_exception_policy
{
    using result = void;
    static void HResult(HRESULT hr) { THROW_IF_FAILED(hr); }
};
struct err_returncode_policy
{
    using result = HRESULT;
    static HRESULT HResult(HRESULT hr) noexcept { return hr; }
};

// Holds one reference, or none. A copy has a reference of its own.
template <class T, class ErrorPolicy = err_exception_policy>
class com_ptr_t
{
public:
    using element_type = T;
    using pointer = T*;
    using result = typename ErrorPolicy::result;

    // Empty.
    com_ptr_t() noexcept = default;
    explicit(false) com_ptr_t(std::nullptr_t) noexcept {}

    // Adds a reference of its own.
    explicit(false) com_ptr_t(pointer object) noexcept : m_object(object)
    {
        if (m_object != nullptr)
        {
            m_object->AddRef();
        }
    }
    com_ptr_t(const com_ptr_t& other) noexcept : com_ptr_t(other.get()) {}
    template <std::derived_from<T> U, class OtherPolicy>
    explicit(false) com_ptr_t(const com_ptr_t<U, OtherPolicy>& other) noexcept : com_ptr_t(other.get())
    {}

    // Takes the other's reference over.
    com_ptr_t(com_ptr_t&& other) noexcept : m_object(other.detach()) {}
    template <std::derived_from<T> U, class OtherPolicy>
    explicit(false) com_ptr_t(com_ptr_t<U, OtherPolicy>&& other) noexcept : m_object(other.detach())
    {}

    com_ptr_t& operator=(com_ptr_t other) noexcept
    {
        swap(other);
        return *this;
    }

    ~com_ptr_t() { reset(); }

    pointer get() const noexcept { return m_object; }
    pointer operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

    // Releases what is held.
    void reset() noexcept
    {
        if (const pointer last = detach(); last != nullptr)
        {
            last->Release();
        }
    }

    // Takes over a reference of the caller's, and gives the own one to the caller.
    void attach(pointer object) noexcept
    {
        reset();
        m_object = object;
    }
    [[nodiscard]] pointer detach() noexcept { return std::exchange(m_object, nullptr); }

    // Releases what is held and gives the place for a new reference: for a function that brings one.
    pointer* put() noexcept
    {
        reset();
        return &m_object;
    }
    void** put_void() noexcept { return reinterpret_cast<void**>(put()); }
    pointer* operator&() noexcept { return put(); }

    // Where the pointer lies, as it is.
    pointer* addressof() noexcept { return &m_object; }

    // Asks the object, which must be there, for another interface.
    template <class U>
    result query_to(U** object) const
    {
        return ErrorPolicy::HResult(m_object->QueryInterface(IID_PPV_ARGS(object)));
    }
    template <class U>
    [[nodiscard]] com_ptr_t<U, ErrorPolicy> query() const
        requires std::same_as<result, void>
    {
        com_ptr_t<U, ErrorPolicy> object;
        query_to(object.put());
        return object;
    }
    // Empty when the object does not have that interface.
    template <class U>
    [[nodiscard]] com_ptr_t<U, ErrorPolicy> try_query() const noexcept
    {
        com_ptr_t<U, ErrorPolicy> object;
        m_object->QueryInterface(IID_PPV_ARGS(object.put()));
        return object;
    }

    void swap(com_ptr_t& other) noexcept { std::swap(m_object, other.m_object); }

    friend void swap(com_ptr_t& left, com_ptr_t& right) noexcept { left.swap(right); }
    friend bool operator==(const com_ptr_t& left, const com_ptr_t& right) noexcept
    {
        return left.m_object == right.m_object;
    }
    friend bool operator==(const com_ptr_t& owner, std::nullptr_t) noexcept { return owner.m_object == nullptr; }

private:
    pointer m_object = nullptr;
};

template <class T>
using com_ptr = com_ptr_t<T, err_exception_policy>;
template <class T>
using com_ptr_nothrow = com_ptr_t<T, err_returncode_policy>;

} // namespace wil
