#include "RecordedFailures.h"
#include "support/ImportTableFake.h"

#include <gmock/gmock.h>
#include <wil/result.h>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

using namespace Testing;
using wil::FailureType;

namespace
{

constexpr HRESULT c_accessDenied = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
constexpr HRESULT c_assertionFailure = HRESULT_FROM_WIN32(668);
constexpr HRESULT c_unhandledException = HRESULT_FROM_WIN32(574);

class ResultTest : public testing::Test
{
protected:
    // Shows that the last macro recorded one failure, in this file.
    void ExpectRecorded(FailureType type, HRESULT hr, unsigned int line)
    {
        ASSERT_EQ(failures.Count(), 1U);
        EXPECT_EQ(failures.Last().type, type);
        EXPECT_EQ(failures.Last().hr, hr);
        EXPECT_EQ(failures.Last().line, line);
        EXPECT_EQ(failures.Last().file, "ResultTest.cpp");
        EXPECT_EQ(failures.Last().thread, GetCurrentThreadId());
    }

    RecordedFailures failures;
};

// What a function returns that goes on to its end.
constexpr HRESULT c_end = S_FALSE;

// Runs a function and tells the code of the ResultException that it throws; 0 when it throws nothing.
HRESULT CodeThrownBy(const std::function<void()>& function)
{
    try
    {
        function();
        return S_OK;
    }
    catch (const wil::ResultException& exception)
    {
        return exception.GetErrorCode();
    }
}

// Returns a failure that a macro records.
HRESULT Fail()
{
    RETURN_IF_FAILED(E_ABORT);
    return S_OK;
}

} // namespace

TEST_F(ResultTest, RETURN_IF_FAILED_goes_on_after_a_success)
{
    const auto run = [](HRESULT hr) -> HRESULT {
        RETURN_IF_FAILED(hr);
        return c_end;
    };
    const unsigned int line = __LINE__ - 3;
    EXPECT_EQ(run(S_OK), c_end);
    EXPECT_EQ(failures.Count(), 0U);
    EXPECT_EQ(run(E_FAIL), E_FAIL);
    ExpectRecorded(FailureType::Return, E_FAIL, line);
}

TEST_F(ResultTest, RETURN_IF_FAILED_evaluates_its_argument_once)
{
    int calls = 0;
    const auto call = [&] {
        ++calls;
        return E_FAIL;
    };
    EXPECT_EQ(
        [&]() -> HRESULT {
            RETURN_IF_FAILED(call());
            return c_end;
        }(),
        E_FAIL);
    EXPECT_EQ(calls, 1);
}

TEST_F(ResultTest, RETURN_IF_WIN32_ERROR_takes_the_status_of_a_registry_call)
{
    const auto run = [](LSTATUS status) -> HRESULT {
        RETURN_IF_WIN32_ERROR(status);
        return c_end;
    };
    EXPECT_EQ(run(ERROR_SUCCESS), c_end);
    EXPECT_EQ(failures.Count(), 0U);
    EXPECT_EQ(run(ERROR_ACCESS_DENIED), c_accessDenied);
    EXPECT_EQ(failures.Last().hr, c_accessDenied);
}

TEST_F(ResultTest, RETURN_IF_WIN32_BOOL_FALSE_returns_the_last_error)
{
    const auto run = [](BOOL result) -> HRESULT {
        SetLastError(ERROR_ACCESS_DENIED);
        RETURN_IF_WIN32_BOOL_FALSE(result);
        return c_end;
    };
    EXPECT_EQ(run(2), c_end);
    EXPECT_EQ(failures.Count(), 0U);
    EXPECT_EQ(run(FALSE), c_accessDenied);
}

TEST_F(ResultTest, RETURN_LAST_ERROR_IF_takes_every_kind_of_condition)
{
    const auto run = [](auto condition) -> HRESULT {
        SetLastError(ERROR_ACCESS_DENIED);
        RETURN_LAST_ERROR_IF(condition);
        return c_end;
    };
    EXPECT_EQ(run(false), c_end);
    EXPECT_EQ(run(FALSE), c_end);
    EXPECT_EQ(failures.Count(), 0U);
    EXPECT_EQ(run(true), c_accessDenied);
    EXPECT_EQ(run(TRUE), c_accessDenied);
    EXPECT_EQ(failures.Count(), 2U);
}

TEST_F(ResultTest, RETURN_LAST_ERROR_IF_NULL_returns_the_last_error)
{
    const auto run = [](const int* pointer) -> HRESULT {
        SetLastError(ERROR_ACCESS_DENIED);
        RETURN_LAST_ERROR_IF_NULL(pointer);
        return c_end;
    };
    const int value = 0;
    EXPECT_EQ(run(&value), c_end);
    EXPECT_EQ(run(nullptr), c_accessDenied);
}

TEST_F(ResultTest, RETURN_HR_IF_returns_the_result_when_the_condition_holds)
{
    const auto run = [](bool condition) -> HRESULT {
        RETURN_HR_IF(E_ABORT, condition);
        return c_end;
    };
    EXPECT_EQ(run(false), c_end);
    EXPECT_EQ(failures.Count(), 0U);
    EXPECT_EQ(run(true), E_ABORT);
    EXPECT_EQ(failures.Last().hr, E_ABORT);
}

TEST_F(ResultTest, RETURN_IF_NULL_ALLOC_looks_at_the_pointer)
{
    const auto allocate = [](const std::unique_ptr<int>& pointer) -> HRESULT {
        RETURN_IF_NULL_ALLOC(pointer);
        return c_end;
    };
    EXPECT_EQ(allocate(std::make_unique<int>()), c_end);
    EXPECT_EQ(failures.Count(), 0U);
    EXPECT_EQ(allocate(nullptr), E_OUTOFMEMORY);
    EXPECT_EQ(failures.Last().hr, E_OUTOFMEMORY);
}

TEST_F(ResultTest, a_failed_call_without_a_last_error_is_a_failure_all_the_same)
{
    const auto run = []() -> HRESULT {
        RETURN_IF_WIN32_BOOL_FALSE(FALSE);
        return c_end;
    };
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(run(), c_assertionFailure);
    EXPECT_EQ(failures.Last().hr, c_assertionFailure);
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(CodeThrownBy([] { THROW_LAST_ERROR_IF(true); }), c_assertionFailure);
}

TEST_F(ResultTest, THROW_IF_FAILED_gives_back_a_success)
{
    EXPECT_EQ(CodeThrownBy([] { EXPECT_EQ(THROW_IF_FAILED(S_FALSE), S_FALSE); }), S_OK);
    EXPECT_EQ(CodeThrownBy([] { THROW_IF_FAILED(E_FAIL); }), E_FAIL);
}

TEST_F(ResultTest, THROW_HR_IF_throws_the_result_when_the_condition_holds)
{
    EXPECT_EQ(CodeThrownBy([] { EXPECT_FALSE(THROW_HR_IF(E_FAIL, false)); }), S_OK);
    EXPECT_EQ(failures.Count(), 0U);
    EXPECT_EQ(CodeThrownBy([] { THROW_HR_IF(E_FAIL, true); }), E_FAIL);
    ExpectRecorded(FailureType::Exception, E_FAIL, __LINE__ - 1);
}

TEST_F(ResultTest, THROW_LAST_ERROR_IF_gives_back_a_condition_that_does_not_hold)
{
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(CodeThrownBy([] { EXPECT_FALSE(THROW_LAST_ERROR_IF(false)); }), S_OK);
    EXPECT_EQ(CodeThrownBy([] { THROW_LAST_ERROR_IF(true); }), c_accessDenied);
}

TEST_F(ResultTest, THROW_IF_NULL_ALLOC_takes_pointers_and_owners)
{
    int value = 0;
    int* const pointer = &value;
    const std::unique_ptr<int> owner = std::make_unique<int>();
    const std::unique_ptr<int> empty;
    EXPECT_EQ(CodeThrownBy([&] {
                  THROW_IF_NULL_ALLOC(pointer);
                  THROW_IF_NULL_ALLOC(owner);
              }),
              S_OK);
    EXPECT_EQ(CodeThrownBy([&] { THROW_IF_NULL_ALLOC(empty); }), E_OUTOFMEMORY);
}

TEST_F(ResultTest, THROW_IF_WIN32_ERROR_throws_the_code_as_a_result)
{
    EXPECT_EQ(CodeThrownBy([] { EXPECT_EQ(THROW_IF_WIN32_ERROR(ERROR_SUCCESS), 0U); }), S_OK);
    EXPECT_EQ(CodeThrownBy([] { THROW_IF_WIN32_ERROR(ERROR_ACCESS_DENIED); }), c_accessDenied);
}

TEST_F(ResultTest, THROW_IF_WIN32_BOOL_FALSE_throws_the_last_error)
{
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(CodeThrownBy([] { EXPECT_EQ(THROW_IF_WIN32_BOOL_FALSE(2), 2); }), S_OK);
    EXPECT_EQ(CodeThrownBy([] { THROW_IF_WIN32_BOOL_FALSE(FALSE); }), c_accessDenied);
}

TEST_F(ResultTest, CATCH_RETURN_returns_the_code_of_what_was_thrown)
{
    const auto run = [](const std::function<void()>& function) -> HRESULT {
        try
        {
            function();
            return c_end;
        }
        CATCH_RETURN()
    };
    EXPECT_EQ(run([] {}), c_end);
    EXPECT_EQ(failures.Count(), 0U);
    EXPECT_EQ(run([] { THROW_IF_FAILED(E_ABORT); }), E_ABORT);
    EXPECT_EQ(failures.Last().type, FailureType::Return);
    EXPECT_EQ(run([] { throw std::bad_alloc(); }), E_OUTOFMEMORY);
    EXPECT_EQ(run([] { throw std::runtime_error("why"); }), c_unhandledException);
    EXPECT_EQ(failures.Last().hr, c_unhandledException);
    EXPECT_THAT(failures.Last().message, testing::HasSubstr(L"why"));
}

TEST_F(ResultTest, CATCH_LOG_records_and_goes_on)
{
    try
    {
        throw std::runtime_error("why");
    }
    CATCH_LOG()
    ExpectRecorded(FailureType::Log, c_unhandledException, __LINE__ - 1);
    EXPECT_THAT(failures.Last().message, testing::HasSubstr(L"why"));
}

TEST_F(ResultTest, an_exception_tells_where_and_why_even_as_a_copy)
{
    std::unique_ptr<wil::ResultException> copy;
    try
    {
        THROW_IF_WIN32_ERROR(ERROR_ACCESS_DENIED);
    }
    catch (const wil::ResultException& exception)
    {
        copy = std::make_unique<wil::ResultException>(exception);
    }
    ASSERT_TRUE(copy);
    const unsigned int line = __LINE__ - 7;
    EXPECT_EQ(copy->GetFailureInfo().hr, c_accessDenied);
    EXPECT_EQ(copy->GetFailureInfo().uLineNumber, line);
    EXPECT_EQ(copy->GetFailureInfo().type, FailureType::Exception);
    const std::string what = copy->what();
    EXPECT_THAT(what, testing::HasSubstr("ResultTest.cpp(" + std::to_string(line) + ")"));
    EXPECT_THAT(what, testing::HasSubstr("80070005"));
    EXPECT_THAT(what, testing::HasSubstr("Access denied"));
}

TEST(ResultLine, goes_to_the_debugger_only_when_there_is_one)
{
    BOOL isDebugged = FALSE;
    std::wstring output;
    const Fake<&IsDebuggerPresent> debugger = [&] { return isDebugged; };
    const Fake<&OutputDebugStringW> debug = [&](const wchar_t* text) { output += text; };

    Fail();
    EXPECT_EQ(output, L"");

    isDebugged = TRUE;
    Fail();
    EXPECT_THAT(output, testing::HasSubstr(L"80004004"));
    EXPECT_THAT(output, testing::HasSubstr(L"ResultTest.cpp"));
}
