#include "support/common/contract/Contract.h"

#include "support/common/contract/OpenObjects.h"

#include <algorithm>
#include <atomic>
#include <initializer_list>

namespace Testing
{

namespace
{

// Set before the constructors of the contracts run.
constinit Details::AnyContract* s_first = nullptr;
constinit ViolationReport s_report = nullptr;
constinit Verdict::Observer s_observer = nullptr;
constinit std::atomic<int> s_wholeRuns = 0;

// The thread that reports. What it calls is not judged.
constinit std::atomic<DWORD> s_reporter = 0;

const char* FirstBroken(std::initializer_list<Rule> rules)
{
    const auto* const broken = std::ranges::find(rules, false, &Rule::isKept);
    return broken == rules.end() ? nullptr : broken->text;
}

} // namespace

Verdict::Verdict(std::initializer_list<Rule> rules) noexcept : m_broken(FirstBroken(rules))
{
    if (s_observer != nullptr)
    {
        s_observer(rules, false);
    }
}

Verdict& Verdict::Add(std::initializer_list<Rule> rules) noexcept
{
    m_broken = m_broken == nullptr ? FirstBroken(rules) : m_broken;
    if (s_observer != nullptr)
    {
        s_observer(rules, true);
    }
    return *this;
}

void Verdict::Observe(Observer observer)
{
    s_observer = observer;
}

WholeRun::WholeRun()
{
    ForgetOpened();
    ++s_wholeRuns;
}

WholeRun::~WholeRun()
{
    --s_wholeRuns;
}

bool WholeRun::IsUnderWay()
{
    return s_wholeRuns != 0;
}

void JudgeCalls(ViolationReport report)
{
    s_report = report;
    for (const auto* contract = s_first; contract != nullptr; contract = contract->m_following)
    {
        if (void* const slot = FindImportSlot(contract->m_name))
        {
            StandBefore(slot, contract->m_call, contract->m_next);
            contract->m_delayedSlot = FindDelayedSlot(contract->m_name);
        }
    }
}

namespace Details
{

AnyContract::AnyContract(const char* name, void* call, void** next)
    : m_name(name),
      m_call(call),
      m_next(next),
      m_following(s_first)
{
    s_first = this;
}

void AnyContract::ReturnTo(void* slot) const
{
    void* const loaded = GetImportSlot(slot);
    if (loaded != m_call)
    {
        *m_next = loaded;
        SetImportSlot(slot, m_call);
        m_delayedSlot = nullptr;
    }
}

void Report(const char* function, const char* rule)
{
    const DWORD self = GetCurrentThreadId();
    if (s_reporter == self)
    {
        return;
    }
    for (DWORD nobody = 0; !s_reporter.compare_exchange_weak(nobody, self); nobody = 0)
    {
    }
    s_report(function, rule);
    s_reporter = 0;
}

} // namespace Details

} // namespace Testing
