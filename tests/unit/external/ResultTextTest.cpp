#include "RecordedFailures.h"
#include "support/ImportTableFake.h"

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

TEST(FailureText, tells_all_in_one_line)
{
    FailureInfo failure = Failure(FailureType::Return);
    EXPECT_EQ(Line(failure), "Folder/File.cpp(12): ReturnHr(7) tid(1f) 80070005 Access denied. [Run(Call())]");
    failure.pszMessage = L"more";
    failure.pszCode = nullptr;
    EXPECT_EQ(Line(failure), "Folder/File.cpp(12): ReturnHr(7) tid(1f) 80070005 Access denied. Msg:[more] [Run()]");
}

TEST(FailureText, names_what_was_done)
{
    EXPECT_THAT(Line(Failure(FailureType::Exception)), testing::HasSubstr(" Exception("));
    EXPECT_THAT(Line(Failure(FailureType::Log)), testing::HasSubstr(" LogHr("));
    EXPECT_THAT(Line(Failure(FailureType::FailFast)), testing::HasSubstr(" FailFast("));
}

TEST(FailureText, leaves_out_what_is_not_known)
{
    FailureInfo failure{};
    failure.type = FailureType::Log;
    failure.hr = static_cast<HRESULT>(0xA1234567);
    EXPECT_EQ(Line(failure), "LogHr(0) tid(0) A1234567 ");
}

TEST(FailureText, is_cut_off_where_it_becomes_too_long)
{
    const std::wstring message(3000, L'x');
    FailureInfo failure = Failure(FailureType::Log);
    failure.pszMessage = message.c_str();
    EXPECT_EQ(Line(failure).size(), 2047U);
    EXPECT_THAT(Line(failure), testing::EndsWith("xxx"));
}

TEST(ResultLine, ends_where_the_next_one_begins)
{
    std::wstring output;
    const Fake<&IsDebuggerPresent> debugger = [] { return TRUE; };
    const Fake<&OutputDebugStringW> debug = [&](const wchar_t* text) { output += text; };
    static_cast<void>([]() -> HRESULT {
        RETURN_IF_FAILED(E_ABORT);
        return S_OK;
    }());
    EXPECT_THAT(output, testing::EndsWith(L"\n"));
    EXPECT_EQ(std::count(output.begin(), output.end(), L'\n'), 1);
}

TEST(ResultLine, ends_so_even_when_it_is_cut_off)
{
    std::wstring output;
    const Fake<&IsDebuggerPresent> debugger = [] { return TRUE; };
    const Fake<&OutputDebugStringW> debug = [&](const wchar_t* text) { output += text; };
    try
    {
        throw std::runtime_error(std::string(3000, 'x'));
    }
    CATCH_LOG()
    EXPECT_THAT(output, testing::EndsWith(L"xxx\n"));
    EXPECT_EQ(output.size(), 2047U);
}

TEST(ResultException, keeps_a_message_that_goes)
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

TEST(CATCH_RETURN, ends_the_process_for_an_exception_of_an_unknown_type)
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

TEST(THROW_HR_IF, of_a_success_is_thrown_as_a_failed_assertion)
{
    try
    {
        THROW_HR_IF(S_OK, true);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const wil::ResultException& exception)
    {
        EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(668));
    }
}
