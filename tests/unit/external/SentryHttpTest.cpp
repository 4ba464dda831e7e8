#include "FakeWinHttp.h"
#include "Http.h"

#include <gmock/gmock.h>
#include <wil/resource.h>

#include <string>
#include <vector>

namespace
{

using namespace Reporter;
using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

class SentryHttpTest : public testing::Test
{
protected:
    ~SentryHttpTest() override
    {
        EXPECT_EQ(winHttp.openHandles, 0);
        EXPECT_EQ(winHttp.openContexts, 0);
    }

    std::optional<HttpAnswer> Post(const std::string& body = "body")
    {
        Http http(dsn);
        return http.Post(body, stop.get());
    }

    Dsn dsn{.isSecure = true, .publicKey = "key", .host = "host.example", .port = 8443, .path = "/api/1/envelope/"};
    wil::unique_handle stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    FakeWinHttp winHttp;
};

TEST_F(SentryHttpTest, posts_an_envelope_to_the_server_of_the_DSN)
{
    const std::string body("an\nenvelope\0!", 13);

    const auto answer = Post(body);

    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200U);
    EXPECT_EQ(answer->rateLimits, "");
    EXPECT_EQ(answer->retryAfter, "");
    EXPECT_EQ(winHttp.userAgent, L"sentry.native.velmora/0.7.5");
    EXPECT_EQ(winHttp.sessionFlags, DWORD{WINHTTP_FLAG_ASYNC});
    EXPECT_EQ(winHttp.host, L"host.example");
    EXPECT_EQ(winHttp.port, 8443);
    ASSERT_EQ(winHttp.requests.size(), 1U);
    const FakeWinHttp::Request& request = winHttp.requests[0];
    EXPECT_EQ(request.verb, L"POST");
    EXPECT_EQ(request.path, L"/api/1/envelope/");
    EXPECT_EQ(request.headers, L"Content-Type: application/x-sentry-envelope\r\n"
                               L"X-Sentry-Auth: Sentry sentry_key=key, sentry_version=7, "
                               L"sentry_client=sentry.native.velmora/0.7.5\r\n");
    EXPECT_EQ(request.body, body);
}

TEST_F(SentryHttpTest, encrypts_exactly_when_the_DSN_says_so)
{
    Post();
    EXPECT_EQ(winHttp.requests.at(0).flags, DWORD{WINHTTP_FLAG_SECURE});
    dsn.isSecure = false;
    Post();
    EXPECT_EQ(winHttp.requests.at(1).flags, 0U);
}

TEST_F(SentryHttpTest, follows_no_redirection_tells_no_credentials_and_leaves_certificates_to_be_verified)
{
    Post();
    // These and no others: none that takes something off the verification of the server's certificate.
    EXPECT_EQ(winHttp.requests.at(0).options,
              (std::map<DWORD, DWORD>{
                  {WINHTTP_OPTION_REDIRECT_POLICY, WINHTTP_OPTION_REDIRECT_POLICY_NEVER},
                  {WINHTTP_OPTION_AUTOLOGON_POLICY, WINHTTP_AUTOLOGON_SECURITY_LEVEL_HIGH},
                  {WINHTTP_OPTION_DISABLE_FEATURE, WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION}}));
}

TEST_F(SentryHttpTest, sends_nothing_when_one_of_these_cannot_be_had)
{
    for (const DWORD option : {DWORD{WINHTTP_OPTION_REDIRECT_POLICY}, DWORD{WINHTTP_OPTION_AUTOLOGON_POLICY},
                               DWORD{WINHTTP_OPTION_DISABLE_FEATURE}, DWORD{WINHTTP_OPTION_CONTEXT_VALUE}})
    {
        winHttp.refusedOptions = {option};
        EXPECT_FALSE(Post());
        EXPECT_EQ(winHttp.requests.back().body, "") << option;
        EXPECT_EQ(winHttp.openHandles, 0);
    }
}

TEST_F(SentryHttpTest, gives_no_step_more_than_twenty_seconds)
{
    Post();
    EXPECT_THAT(winHttp.timeouts, ElementsAre(20'000, 20'000, 20'000, 20'000));
}

TEST_F(SentryHttpTest, loads_the_library_from_the_system_folder_alone)
{
    Post();
    EXPECT_THAT(winHttp.libraries, ElementsAre(L"winhttp.dll"));
    EXPECT_EQ(winHttp.loadFlags, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32});
}

TEST_F(SentryHttpTest, goes_through_the_proxy_that_the_system_finds_or_has)
{
    Post();
    EXPECT_THAT(winHttp.accessTypes, ElementsAre(DWORD{WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY}));
    winHttp.accessTypes.clear();
    winHttp.refusedAccessTypes = {WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY}; // Windows before 8.1
    EXPECT_TRUE(Post());
    EXPECT_THAT(winHttp.accessTypes,
                ElementsAre(DWORD{WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY}, DWORD{WINHTTP_ACCESS_TYPE_DEFAULT_PROXY}));
}

TEST_F(SentryHttpTest, keeps_its_session_for_the_next_envelope)
{
    Http http(dsn);
    http.Post("one", stop.get());
    http.Post("two", stop.get());
    EXPECT_EQ(winHttp.accessTypes.size(), 1U);
    EXPECT_EQ(winHttp.requests.size(), 2U);
    EXPECT_EQ(winHttp.openHandles, 2); // the session and the connection
}

TEST_F(SentryHttpTest, keeps_nothing_of_a_request_that_has_ended)
{
    std::vector<HANDLE> made;
    std::vector<HANDLE> closed;
    {
        Fake<&CreateEventW> create = [&](LPSECURITY_ATTRIBUTES attributes, BOOL isManual, BOOL isSet, LPCWSTR name) {
            made.push_back(create.Hidden(attributes, isManual, isSet, name));
            return made.back();
        };
        Fake<&CloseHandle> close = [&](HANDLE handle) {
            closed.push_back(handle);
            return close.Hidden(handle);
        };
        Post();
        winHttp.failing = {"ReceiveResponse"};
        Post();
        winHttp.failing = {"OpenRequest"};
        Post();
    }
    EXPECT_EQ(made.size(), 3U);
    EXPECT_EQ(closed, made);
}

TEST_F(SentryHttpTest, sends_nothing_without_an_event_to_wait_for)
{
    Fake<&CreateEventW> create = [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE { return nullptr; };
    EXPECT_FALSE(Post());
    EXPECT_EQ(winHttp.requests.at(0).body, "");
}

TEST_F(SentryHttpTest, takes_the_limits_from_the_answer)
{
    winHttp.status = 429;
    winHttp.answerHeaders = {{L"X-Sentry-Rate-Limits", L"60:error:key\u00e4"}, {L"Retry-After", L"7"}};
    const auto answer = Post();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 429U);
    EXPECT_EQ(answer->rateLimits, "60:error:key?");
    EXPECT_EQ(answer->retryAfter, "7");
}

TEST_F(SentryHttpTest, does_not_take_a_header_that_is_longer_than_any_of_use)
{
    winHttp.answerHeaders = {{L"X-Sentry-Rate-Limits", std::wstring(100'000, L'1')},
                             {L"Retry-After", std::wstring(511, L'1')}};
    const auto answer = Post();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->rateLimits, "");
    EXPECT_EQ(answer->retryAfter, std::string(511, '1'));
}

TEST_F(SentryHttpTest, has_no_answer_when_a_function_fails)
{
    for (const auto& [name, function] : FakeWinHttp::Functions())
    {
        if (name != "CloseHandle")
        {
            winHttp.failing = {name};
            EXPECT_FALSE(Post()) << name;
            EXPECT_EQ(winHttp.openHandles, 0) << name;
            EXPECT_EQ(winHttp.openContexts, 0) << name;
        }
    }
}

TEST_F(SentryHttpTest, calls_nothing_of_a_library_that_lacks_something)
{
    for (const auto& [name, function] : FakeWinHttp::Functions())
    {
        winHttp.missing = {name};
        EXPECT_FALSE(Post()) << name;
    }
    winHttp.missing.clear();
    winHttp.isThere = false;
    EXPECT_FALSE(Post());
    EXPECT_THAT(winHttp.accessTypes, IsEmpty());
}

TEST_F(SentryHttpTest, has_no_answer_when_a_step_fails)
{
    const auto fail = [](const FakeWinHttp::Tell& tell) { tell(WINHTTP_CALLBACK_STATUS_REQUEST_ERROR); };
    const auto send = winHttp.onSend;
    winHttp.onSend = fail;
    EXPECT_FALSE(Post());
    winHttp.onSend = send;
    winHttp.onReceive = fail;
    EXPECT_FALSE(Post());
}

TEST_F(SentryHttpTest, gives_up_when_it_is_told_to_stop)
{
    const auto send = winHttp.onSend;
    winHttp.onSend = [&](const FakeWinHttp::Tell&) { SetEvent(stop.get()); };
    EXPECT_FALSE(Post());
    ResetEvent(stop.get());
    winHttp.onSend = send;
    winHttp.onReceive = [&](const FakeWinHttp::Tell& tell) {
        SetEvent(stop.get());
        tell(WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE); // too late
    };
    EXPECT_FALSE(Post());
    EXPECT_EQ(winHttp.requests.size(), 2U);
}

TEST_F(SentryHttpTest, gives_up_after_a_minute)
{
    ULONGLONG now = 5'000'000;
    std::vector<DWORD> waits;
    Fake<&GetTickCount64> clock = [&] { return now; };
    Fake<&WaitForMultipleObjects> wait = [&](DWORD count, const HANDLE* handles, BOOL all, DWORD limit) -> DWORD {
        waits.push_back(limit);
        if (waits.size() == 1)
        {
            now += 59'000;
            return wait.Hidden(count, handles, all, 0);
        }
        now += limit;
        return WAIT_TIMEOUT;
    };
    winHttp.onReceive = [](const FakeWinHttp::Tell&) {};
    EXPECT_FALSE(Post());
    EXPECT_THAT(waits, ElementsAre(60'000U, 1000U));
}

TEST_F(SentryHttpTest, does_not_wait_when_the_minute_is_over)
{
    ULONGLONG now = 5'000'000;
    std::vector<DWORD> waits;
    Fake<&GetTickCount64> clock = [&] { return now; };
    Fake<&WaitForMultipleObjects> wait = [&](DWORD, const HANDLE*, BOOL, DWORD limit) -> DWORD {
        waits.push_back(limit);
        return WAIT_TIMEOUT;
    };
    winHttp.onSend = [&](const FakeWinHttp::Tell&) { now += 70'000; };
    EXPECT_FALSE(Post());
    EXPECT_THAT(waits, ElementsAre(0U));
}

} // namespace
