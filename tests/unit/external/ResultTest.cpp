#include "support/common/ImportTableFake.h"
#include "support/unit/RecordedFailures.h"

#include <gmock/gmock.h>
#include <wil/result.h>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

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

// Returns a failure that a macro records.
HRESULT Fail()
{
    RETURN_IF_FAILED(E_ABORT);
    return S_OK;
}

// A macro in a function that returns c_end unless the macro fails. The last error is "access denied".
struct Use
{
    const char* macro;
    HRESULT (*run)(bool fails);
    HRESULT code; // of the failure
};

const Use c_uses[] = {
    {"RETURN_IF_FAILED",
     [](bool fails) -> HRESULT {
         RETURN_IF_FAILED(fails ? E_FAIL : S_OK);
         return c_end;
     },
     E_FAIL},
    {"RETURN_HR_IF",
     [](bool fails) -> HRESULT {
         RETURN_HR_IF(E_ABORT, fails);
         return c_end;
     },
     E_ABORT},
    {"RETURN_IF_WIN32_ERROR",
     [](bool fails) -> HRESULT {
         RETURN_IF_WIN32_ERROR(LSTATUS{fails ? ERROR_ACCESS_DENIED : ERROR_SUCCESS});
         return c_end;
     },
     c_accessDenied},
    {"RETURN_IF_WIN32_BOOL_FALSE",
     [](bool fails) -> HRESULT {
         RETURN_IF_WIN32_BOOL_FALSE(fails ? FALSE : 2);
         return c_end;
     },
     c_accessDenied},
    {"RETURN_LAST_ERROR_IF a bool",
     [](bool fails) -> HRESULT {
         RETURN_LAST_ERROR_IF(fails);
         return c_end;
     },
     c_accessDenied},
    {"RETURN_LAST_ERROR_IF a BOOL",
     [](bool fails) -> HRESULT {
         RETURN_LAST_ERROR_IF(BOOL{fails});
         return c_end;
     },
     c_accessDenied},
    {"RETURN_LAST_ERROR_IF_NULL",
     [](bool fails) -> HRESULT {
         RETURN_LAST_ERROR_IF_NULL(fails ? nullptr : &c_end);
         return c_end;
     },
     c_accessDenied},
    {"RETURN_IF_NULL_ALLOC",
     [](bool fails) -> HRESULT {
         const auto owner = fails ? nullptr : std::make_unique<int>();
         RETURN_IF_NULL_ALLOC(owner);
         return c_end;
     },
     E_OUTOFMEMORY},
    // What these give back is compared with what they were given: true is c_end.
    {"THROW_IF_FAILED", [](bool fails) -> HRESULT { return THROW_IF_FAILED(fails ? E_FAIL : S_FALSE) == S_FALSE; },
     E_FAIL},
    {"THROW_HR_IF", [](bool fails) -> HRESULT { return !THROW_HR_IF(E_ABORT, fails); }, E_ABORT},
    {"THROW_IF_WIN32_ERROR",
     [](bool fails) -> HRESULT { return THROW_IF_WIN32_ERROR(fails ? ERROR_ACCESS_DENIED : ERROR_SUCCESS) == 0; },
     c_accessDenied},
    {"THROW_IF_WIN32_BOOL_FALSE",
     [](bool fails) -> HRESULT { return THROW_IF_WIN32_BOOL_FALSE(fails ? FALSE : 2) == 2; }, c_accessDenied},
    {"THROW_LAST_ERROR_IF", [](bool fails) -> HRESULT { return !THROW_LAST_ERROR_IF(fails); }, c_accessDenied},
    {"THROW_IF_NULL_ALLOC of a pointer",
     [](bool fails) -> HRESULT {
         const HRESULT* const pointer = fails ? nullptr : &c_end;
         THROW_IF_NULL_ALLOC(pointer);
         return c_end;
     },
     E_OUTOFMEMORY},
    {"THROW_IF_NULL_ALLOC of an owner",
     [](bool fails) -> HRESULT {
         const auto owner = fails ? nullptr : std::make_unique<int>();
         THROW_IF_NULL_ALLOC(owner);
         return c_end;
     },
     E_OUTOFMEMORY},
};

} // namespace

TEST_F(ResultTest, Macros_return_or_throw_a_failure_and_else_go_on_or_give_back_what_they_were_given)
{
    for (const Use& use : c_uses)
    {
        SCOPED_TRACE(use.macro);
        const bool throws = std::string_view(use.macro).starts_with("THROW_");
        const std::size_t count = failures.Count();
        SetLastError(ERROR_ACCESS_DENIED);
        EXPECT_EQ(CodeThrownBy([&] { EXPECT_EQ(use.run(false), c_end); }), S_OK);
        EXPECT_EQ(failures.Count(), count);
        HRESULT returned = S_OK;
        const HRESULT thrown = CodeThrownBy([&] { returned = use.run(true); });
        EXPECT_EQ(throws ? thrown : returned, use.code);
        ASSERT_EQ(failures.Count(), count + 1);
        EXPECT_EQ(failures.Last().hr, use.code);
        EXPECT_EQ(failures.Last().type, throws ? FailureType::Exception : FailureType::Return);
    }
}

TEST_F(ResultTest, A_failure_is_recorded_with_its_place_and_evaluated_once)
{
    int calls = 0;
    const auto run = [&]() -> HRESULT {
        RETURN_IF_FAILED((++calls, E_FAIL));
        return c_end;
    };
    const unsigned int line = __LINE__ - 3;
    EXPECT_EQ(run(), E_FAIL);
    ExpectRecorded(FailureType::Return, E_FAIL, line);
    EXPECT_EQ(calls, 1);
}

TEST_F(ResultTest, A_failed_call_without_a_last_error_is_a_failure_all_the_same)
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

TEST_F(ResultTest, An_exception_tells_where_and_why_even_as_a_copy)
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

TEST(ResultLineTest, Goes_to_the_debugger_only_when_there_is_one)
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
