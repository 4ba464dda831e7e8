#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

namespace Testing
{

// Lets something happen right after the first instruction that reads or writes an object, as another thread may do it:
//     const AfterFirstAccess comes(shared, [&] { shared.isReady = true; });
// One at a time, on one thread. The object's pages are guarded; the instruction that runs into the guard is let through
// and stepped over.
class AfterFirstAccess
{
public:
    template <class Object>
    AfterFirstAccess(const Object& object, std::function<void()> event)
        : m_begin(reinterpret_cast<std::uintptr_t>(&object)),
          m_size(sizeof(object)),
          m_event(std::move(event))
    {
        s_current = this;
        m_handler = AddVectoredExceptionHandler(TRUE, &Handle);
        Guard(PAGE_READWRITE | PAGE_GUARD);
    }
    AfterFirstAccess(const AfterFirstAccess&) = delete;
    AfterFirstAccess& operator=(const AfterFirstAccess&) = delete;
    ~AfterFirstAccess()
    {
        Guard(PAGE_READWRITE);
        RemoveVectoredExceptionHandler(m_handler);
        s_current = nullptr;
        EXPECT_TRUE(m_hasHappened) << "nobody touched the object";
    }

private:
    static constexpr DWORD c_trapFlag = 0x100;

    void Guard(DWORD protection) const
    {
        DWORD before = 0;
        VirtualProtect(reinterpret_cast<void*>(m_begin), m_size, protection, &before);
    }

    LONG OnGuardHit(std::uintptr_t address, CONTEXT& context)
    {
        m_isHit = address >= m_begin && address < m_begin + m_size;
        m_isStepping = true;
        context.EFlags |= c_trapFlag;
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    LONG OnStepped(CONTEXT& context)
    {
        m_isStepping = false;
        context.EFlags &= ~c_trapFlag;
        if (m_isHit)
        {
            Guard(PAGE_READWRITE);
            m_hasHappened = true;
            m_event();
        }
        else
        {
            Guard(PAGE_READWRITE | PAGE_GUARD);
        }
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    static LONG CALLBACK Handle(EXCEPTION_POINTERS* exception)
    {
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        if (record.ExceptionCode == STATUS_GUARD_PAGE_VIOLATION)
        {
            return s_current->OnGuardHit(record.ExceptionInformation[1], *exception->ContextRecord);
        }
        if (record.ExceptionCode == STATUS_SINGLE_STEP && s_current->m_isStepping)
        {
            return s_current->OnStepped(*exception->ContextRecord);
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    std::uintptr_t m_begin;
    std::size_t m_size;
    std::function<void()> m_event;
    void* m_handler = nullptr;
    bool m_isStepping = false;
    bool m_isHit = false;
    bool m_hasHappened = false;
    static constinit inline AfterFirstAccess* s_current = nullptr;
};

} // namespace Testing
