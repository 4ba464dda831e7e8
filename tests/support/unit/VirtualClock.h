#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Testing
{

// Time that passes only while the code under test sleeps. No threads while it lives: the C++ runtime sleeps too.
class VirtualClock
{
public:
    // The pauses come into the journal, if there is one: "Sleep(milliseconds)".
    explicit VirtualClock(Journal* journal = nullptr) : m_journal(journal) {}
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    // Milliseconds since the clock was made.
    ULONGLONG Now() const { return m_now; }

    // Every pause that was made, in milliseconds, in order.
    const std::vector<DWORD>& Sleeps() const { return m_sleeps; }

    // Is told of every pause, in milliseconds, when it begins.
    std::function<void(DWORD)> onSleep = [](DWORD) {};

    // Lets something happen at a time, during the sleep that reaches it.
    void At(ULONGLONG time, std::function<void()> event) { m_events.emplace(time, std::move(event)); }

private:
    void Pass(DWORD milliseconds)
    {
        if (m_now > c_end)
        {
            throw std::logic_error("something is waited for without end");
        }
        m_sleeps.push_back(milliseconds);
        onSleep(milliseconds);
        if (m_journal != nullptr)
        {
            m_journal->Add("Sleep", milliseconds);
        }
        const ULONGLONG end = m_now + milliseconds;
        while (!m_events.empty() && m_events.begin()->first <= end)
        {
            auto event = m_events.extract(m_events.begin());
            m_now = event.key();
            event.mapped()();
        }
        m_now = end;
    }

    static constexpr ULONGLONG c_end = 7'200'000; // no test lets anybody wait for two hours

    Journal* m_journal;
    ULONGLONG m_now = 0;
    std::vector<DWORD> m_sleeps;
    std::multimap<ULONGLONG, std::function<void()>> m_events;
    Fake<&::Sleep> m_sleep = [this](DWORD milliseconds) { Pass(milliseconds); };
};

} // namespace Testing
