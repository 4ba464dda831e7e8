// The owner of a reference to a COM object: it is released when the owner goes out of scope.
#pragma once

#include <combaseapi.h>

#include <cstddef>
#include <utility>

namespace wil
{

// Holds one reference, or none. A copy has a reference of its own.
template <class T>
class com_ptr_t
{
public:
    using pointer = T*;

    // Empty.
    com_ptr_t() noexcept = default;
    explicit(false) com_ptr_t(std::nullptr_t) noexcept {}

    com_ptr_t(const com_ptr_t& other) noexcept : m_object(other.m_object)
    {
        if (m_object != nullptr)
        {
            m_object->AddRef();
        }
    }

    // Takes the other's reference over.
    com_ptr_t(com_ptr_t&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}

    com_ptr_t& operator=(com_ptr_t other) noexcept
    {
        std::swap(m_object, other.m_object);
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
        if (const pointer last = std::exchange(m_object, nullptr); last != nullptr)
        {
            last->Release();
        }
    }

    // Takes over a reference of the caller's.
    void attach(pointer object) noexcept
    {
        reset();
        m_object = object;
    }

    // Releases what is held and gives the place for a new reference: for a function that brings one.
    pointer* put() noexcept
    {
        reset();
        return &m_object;
    }

private:
    pointer m_object = nullptr;
};

// They differ in calls that can fail, of which there are none here.
template <class T>
using com_ptr = com_ptr_t<T>;
template <class T>
using com_ptr_nothrow = com_ptr_t<T>;

} // namespace wil
