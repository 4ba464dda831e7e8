#include "RecordedFailures.h"
#include "support/ImportTableFake.h"

#include <gmock/gmock.h>
#include <wil/result.h>

#include <algorithm>
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

std::wstring Line(const FailureInfo& failure, size_t capacity = 300)
{
    std::wstring line(300, L'#');
    EXPECT_EQ(wil::GetFailureLogString(line.data(), capacity, failure), S_OK);
    return line.c_str();
}

} // namespace

TEST(GetFailureLogString, tells_all_in_one_line)
{
    FailureInfo failure = Failure(FailureType::Return);
    EXPECT_EQ(Line(failure), L"Folder/File.cpp(12): ReturnHr(7) tid(1f) 80070005 Access denied. [Run(Call())]");
    failure.pszMessage = L"more";
    failure.pszCode = nullptr;
    EXPECT_EQ(Line(failure), L"Folder/File.cpp(12): ReturnHr(7) tid(1f) 80070005 Access denied. Msg:[more] [Run()]");
}

TEST(GetFailureLogString, names_what_was_done)
{
    EXPECT_THAT(Line(Failure(FailureType::Exception)), testing::HasSubstr(L" Exception("));
    EXPECT_THAT(Line(Failure(FailureType::Log)), testing::HasSubstr(L" LogHr("));
    EXPECT_THAT(Line(Failure(FailureType::FailFast)), testing::HasSubstr(L" FailFast("));
}

TEST(GetFailureLogString, leaves_out_what_is_not_known)
{
    FailureInfo failure{};
    failure.type = FailureType::Log;
    failure.hr = static_cast<HRESULT>(0xA1234567);
    EXPECT_EQ(Line(failure), L"LogHr(0) tid(0) A1234567 ");
}

TEST(GetFailureLogString, is_cut_off_at_the_end_of_the_buffer)
{
    EXPECT_EQ(Line(Failure(FailureType::Log), 8), L"Folder/");
    EXPECT_EQ(Line(Failure(FailureType::Log), 1), L"");
    EXPECT_EQ(wil::GetFailureLogString(nullptr, 0, Failure(FailureType::Log)), S_OK);
}

TEST(ResultLine, ends_where_the_next_one_begins)
{
    std::wstring output;
    const Fake<&IsDebuggerPresent> debugger = [] { return TRUE; };
    const Fake<&OutputDebugStringW> debug = [&](const wchar_t* text) { output += text; };
    LOG_HR(E_ABORT);
    EXPECT_THAT(output, testing::EndsWith(L"\n"));
    EXPECT_EQ(std::count(output.begin(), output.end(), L'\n'), 1);
}

TEST(ResultException, made_of_a_code_alone_tells_it)
{
    const wil::ResultException exception(E_ACCESSDENIED);
    EXPECT_EQ(exception.GetErrorCode(), E_ACCESSDENIED);
    EXPECT_EQ(exception.GetFailureInfo().type, FailureType::Exception);
    EXPECT_STREQ(exception.what(), "Exception(0) tid(0) 80070005 Access denied.");
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

TEST(ResultFromCaughtException, ends_the_process_for_an_exception_of_an_unknown_type)
{
    const RecordedFailures failures;
    int ends = 0;
    const Fake<&RaiseFailFastException> raise = [&](EXCEPTION_RECORD*, CONTEXT*, DWORD flags) {
        EXPECT_EQ(flags, static_cast<DWORD>(FAIL_FAST_GENERATE_EXCEPTION_ADDRESS));
        ++ends;
    };
    try
    {
        throw 1;
    }
    catch (...)
    {
        EXPECT_EQ(wil::ResultFromCaughtException(), HRESULT_FROM_WIN32(574));
    }
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(failures.Last().type, FailureType::FailFast);
    try
    {
        throw 1;
    }
    CATCH_LOG()
    EXPECT_EQ(ends, 2);
}

TEST(LOG_HR, of_a_success_is_recorded_as_a_failed_assertion)
{
    const RecordedFailures failures;
    EXPECT_EQ(LOG_HR(S_OK), S_OK);
    EXPECT_EQ(failures.Last().hr, HRESULT_FROM_WIN32(668));
}
