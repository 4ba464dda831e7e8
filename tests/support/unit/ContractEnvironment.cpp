// Lets each broken contract of Windows fail the test that runs, whoever breaks it: the program, a fake or the test
// itself. A call from within a test program goes through the same import table as the program's, so they cannot be told
// apart, and need not be: what Windows refuses is wrong everywhere. What a fake calls by Real() is not judged again.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>

namespace Testing
{

namespace
{

struct Violation
{
    const char* function;
    const char* rule;
};

// Those of other threads, for which GoogleTest is not built: they fail the test at its end.
constinit std::array<Violation, 16> s_ofOtherThreads{};
constinit std::atomic<std::size_t> s_countOfOtherThreads = 0;
const DWORD s_testThread = GetCurrentThreadId();

void Fail(const Violation& violation)
{
    ADD_FAILURE() << "Windows refuses this call. " << violation.function << ": " << violation.rule;
}

void Report(const char* function, const char* rule)
{
    const Violation violation{.function = function, .rule = rule};
    if (GetCurrentThreadId() == s_testThread)
    {
        Fail(violation);
    }
    else if (const std::size_t index = s_countOfOtherThreads++; index < s_ofOtherThreads.size())
    {
        s_ofOtherThreads[index] = violation;
    }
}

class ContractEnvironment : public testing::Environment, public testing::EmptyTestEventListener
{
public:
    void SetUp() override
    {
        JudgeCalls(Report);
        testing::UnitTest::GetInstance()->listeners().Append(new ContractEnvironment);
    }

    // Fakes give out the same handles in each test.
    void OnTestStart(const testing::TestInfo&) override { ForgetOpened(); }

    void OnTestEnd(const testing::TestInfo&) override
    {
        const std::size_t count = std::min(s_countOfOtherThreads.exchange(0), s_ofOtherThreads.size());
        std::for_each_n(s_ofOtherThreads.begin(), count, Fail);
    }
};

[[maybe_unused]] const auto* const s_environment = testing::AddGlobalTestEnvironment(new ContractEnvironment);

} // namespace

} // namespace Testing
