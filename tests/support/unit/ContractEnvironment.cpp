// Lets each broken contract of Windows fail the test that runs, whoever breaks it: the program, a fake or the test
// itself. A call from within a test program goes through the same import table as the program's, so they cannot be told
// apart, and need not be: what Windows refuses is wrong everywhere. What a fake calls by Real() is not judged again.
#include "support/common/contract/Contract.h"
#include "support/common/contract/OpenObjects.h"

#include <gtest/gtest.h>

namespace Testing
{

namespace
{

void Fail(const char* function, const char* rule)
{
    ADD_FAILURE() << "Windows refuses this call. " << function << ": " << rule;
}

class ContractEnvironment : public testing::Environment, public testing::EmptyTestEventListener
{
public:
    void SetUp() override
    {
        JudgeCalls(Fail);
        testing::UnitTest::GetInstance()->listeners().Append(new ContractEnvironment);
    }

    // Fakes give out the same handles in each test.
    void OnTestStart(const testing::TestInfo&) override { ForgetOpened(); }
};

[[maybe_unused]] const auto* const s_environment = testing::AddGlobalTestEnvironment(new ContractEnvironment);

} // namespace

} // namespace Testing
