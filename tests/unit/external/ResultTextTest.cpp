#include "support/common/ImportTableFake.h"
#include "support/unit/RecordedFailures.h"

#include <gmock/gmock.h>
#include <wil/result.h>

#include <algorithm>
#include <stdexcept>
#include <string>

using namespace Testing;
using wil::FailureInfo;
using wil::FailureType;

namespace
{

FailureInfo Failure(FailureType type)
{
    FailureInfo failure{};
    failure.type = type;
    failure.hr = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    failure.threadId = 0x1f;
    failure.cFailureCount = 7;
    failure.pszFile = "Folder/File.cpp";
    failure.uLineNumber = 12;
    failure.pszFunction = "Run";
    failure.pszCode = "Call()";
    return failure;
}

std::string Line(const FailureInfo& failure)
{
    return wil::ResultException(failure).what();
}

} // namespace

TEST(FailureTextTest, Tells_all_in_one_line)
{
    FailureInfo failure = Failure(FailureType::Return);
    EXPECT_EQ(Line(failure), "Folder/File.cpp(12): ReturnHr(7) tid(1f) 80070005 Access denied. [Run(Call())]");
    failure.pszMessage = L"more";
    failure.pszCode = nullptr;
    EXPECT_EQ(Line(failure), "Folder/File.cpp(12): ReturnHr(7) tid(1f) 80070005 Access denied. Msg:[more] [Run()]");
}

TEST(FailureTextTest, Names_what_was_done)
{
    EXPECT_THAT(Line(Failure(FailureType::Exception)), testing::HasSubstr(" Exception("));
    EXPECT_THAT(Line(Failure(FailureType::Log)), testing::HasSubstr(" LogHr("));
    EXPECT_THAT(Line(Failure(FailureType::FailFast)), testing::HasSubstr(" FailFast("));
}

TEST(FailureTextTest, Leaves_out_what_is_not_known)
{
    FailureInfo failure{};
    failure.type = FailureType::Log;
    failure.hr = static_cast<HRESULT>(0xA1234567);
    EXPECT_EQ(Line(failure), "LogHr(0) tid(0) A1234567 ");
}

TEST(FailureTextTest, Is_cut_off_where_it_becomes_too_long)
{
    const std::wstring message(3000, L'x');
    FailureInfo failure = Failure(FailureType::Log);
    failure.pszMessage = message.c_str();
    EXPECT_EQ(Line(failure).size(), 2047U);
    EXPECT_THAT(Line(failure), testing::EndsWith("xxx"));
}

TEST(ResultLineTest, Is_one_line_even_when_it_is_cut_off)
{
    std::wstring output;
    const Fake<&IsDebuggerPresent> debugger = [] { return TRUE; };
    const Fake<&OutputDebugStringW> debug = [&](const wchar_t* text) { output = text; };
    for (const std::size_t length : {1U, 3000U})
    {
        try
        {
            throw std::runtime_error(std::string(length, 'x'));
        }
        CATCH_LOG()
        EXPECT_EQ(std::ranges::count(output, L'\n'), 1);
        EXPECT_THAT(output, testing::EndsWith(L"\n"));
    }
    EXPECT_EQ(output.size(), 2047U);
    EXPECT_THAT(output, testing::EndsWith(L"xxx\n"));
}

TEST(ResultExceptionTest, Keeps_a_message_that_goes)
{
    std::wstring message = L"pr\u00FCfen";
    FailureInfo failure = Failure(FailureType::Exception);
    failure.pszMessage = message.c_str();
    const wil::ResultException exception(failure);
    message.assign(message.size(), L'#');
    EXPECT_STREQ(exception.GetFailureInfo().pszMessage, L"pr\u00FCfen");
    EXPECT_THAT(exception.what(), testing::HasSubstr("Msg:[pr\xC3\xBC"
                                                     "fen]"));
}

TEST(CATCH_RETURNTest, Ends_the_process_for_an_exception_of_an_unknown_type)
{
    const RecordedFailures failures;
    int ends = 0;
    const Fake<&RaiseFailFastException> raise = [&](EXCEPTION_RECORD*, CONTEXT*, DWORD flags) {
        EXPECT_EQ(flags, static_cast<DWORD>(FAIL_FAST_GENERATE_EXCEPTION_ADDRESS));
        ++ends;
    };
    const auto run = []() -> HRESULT {
        try
        {
            throw 1;
        }
        CATCH_RETURN()
    };
    EXPECT_EQ(run(), HRESULT_FROM_WIN32(574));
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(failures.Last().type, FailureType::FailFast);
    try
    {
        throw 1;
    }
    CATCH_LOG()
    EXPECT_EQ(ends, 2);
}

TEST(THROW_HR_IFTest, Of_a_success_is_thrown_as_a_failed_assertion)
{
    EXPECT_EQ(CodeThrownBy([] { THROW_HR_IF(S_OK, true); }), HRESULT_FROM_WIN32(668));
}
