// Smart pointers for COM objects.
#pragma once

#include <combaseapi.h>

#include <cstddef>
#include <utility>

namespace wil
{

// Owns a reference, or is empty.
template <class T>
class com_ptr_t
{
public:
    using pointer = T*;

    com_ptr_t() noexcept = default;
    explicit(false) com_ptr_t(std::nullptr_t) noexcept {}

    com_ptr_t(const com_ptr_t& other) noexcept : m_object(other.m_object)
    {
        if (m_object != nullptr)
        {
            m_object->AddRef();
        }
    }

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

    void reset() noexcept
    {
        if (const pointer last = std::exchange(m_object, nullptr); last != nullptr)
        {
            last->Release();
        }
    }

    // Takes ownership of a reference.
    void attach(pointer object) noexcept
    {
        reset();
        m_object = object;
    }

    // For an out parameter: releases the reference and returns the address of the pointer.
    pointer* put() noexcept
    {
        reset();
        return &m_object;
    }

private:
    pointer m_object = nullptr;
};

// In the library they differ in their error policy; nothing here can fail.
template <class T>
using com_ptr = com_ptr_t<T>;
template <class T>
using com_ptr_nothrow = com_ptr_t<T>;

} // namespace wil
