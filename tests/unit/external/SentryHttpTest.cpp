#include "Http.h"
#include "support/unit/FakeWinHttp.h"

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
    ~SentryHttpTest() override { ExpectNothingOpen(); }

    void ExpectNothingOpen() const
    {
        EXPECT_EQ(winHttp.openHandles, 0);
        EXPECT_EQ(winHttp.openContexts, 0);
    }

    std::optional<HttpResponse> Post(const std::string& body = "body")
    {
        Http http(dsn);
        return http.Post(body, stop.get());
    }

    Dsn dsn{.isSecure = true, .publicKey = "key", .host = "host.example", .port = 8443, .path = "/api/1/envelope/"};
    wil::unique_handle stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    FakeWinHttp winHttp;
};

TEST_F(SentryHttpTest, Posts_an_envelope_to_the_server_of_the_DSN)
{
    const std::string body("an\nenvelope\0!", 13);

    const auto response = Post(body);

    ASSERT_TRUE(response);
    EXPECT_EQ(response->status, 200U);
    EXPECT_EQ(response->rateLimits, "");
    EXPECT_EQ(response->retryAfter, "");
    EXPECT_THAT(winHttp.libraries, ElementsAre(L"winhttp.dll"));
    EXPECT_EQ(winHttp.loadFlags, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32});
    EXPECT_EQ(winHttp.userAgent, L"sentry.native.velmora/0.7.5");
    EXPECT_THAT(winHttp.accessTypes, ElementsAre(DWORD{WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY}));
    EXPECT_EQ(winHttp.sessionFlags, DWORD{WINHTTP_FLAG_ASYNC});
    EXPECT_THAT(winHttp.timeouts, ElementsAre(20'000, 20'000, 20'000, 20'000));
    EXPECT_EQ(winHttp.host, L"host.example");
    EXPECT_EQ(winHttp.port, 8443);
    ASSERT_EQ(winHttp.requests.size(), 1U);
    const FakeWinHttp::Request& request = winHttp.requests[0];
    EXPECT_EQ(request.verb, L"POST");
    EXPECT_EQ(request.path, L"/api/1/envelope/");
    EXPECT_EQ(request.flags, DWORD{WINHTTP_FLAG_SECURE});
    EXPECT_EQ(request.headers, L"Content-Type: application/x-sentry-envelope\r\n"
                               L"X-Sentry-Auth: Sentry sentry_key=key, sentry_version=7, "
                               L"sentry_client=sentry.native.velmora/0.7.5\r\n");
    EXPECT_EQ(request.body, body);
    // These and no others: none that takes something off the verification of the server's certificate.
    EXPECT_EQ(request.options,
              (std::map<DWORD, DWORD>{
                  {WINHTTP_OPTION_REDIRECT_POLICY, WINHTTP_OPTION_REDIRECT_POLICY_NEVER},
                  {WINHTTP_OPTION_AUTOLOGON_POLICY, WINHTTP_AUTOLOGON_SECURITY_LEVEL_HIGH},
                  {WINHTTP_OPTION_DISABLE_FEATURE, WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION}}));
}

TEST_F(SentryHttpTest, Does_not_encrypt_when_the_DSN_says_so)
{
    dsn.isSecure = false;
    Post();
    EXPECT_EQ(winHttp.requests.at(0).flags, 0U);
}

TEST_F(SentryHttpTest, Sends_nothing_when_an_option_is_refused)
{
    for (const DWORD option : {DWORD{WINHTTP_OPTION_REDIRECT_POLICY}, DWORD{WINHTTP_OPTION_AUTOLOGON_POLICY},
                               DWORD{WINHTTP_OPTION_DISABLE_FEATURE}, DWORD{WINHTTP_OPTION_CONTEXT_VALUE}})
    {
        winHttp.refusedOptions = {option};
        EXPECT_FALSE(Post());
        EXPECT_EQ(winHttp.requests.back().body, "") << option;
        ExpectNothingOpen();
    }
}

TEST_F(SentryHttpTest, Falls_back_to_the_default_proxy_before_Windows_8_1)
{
    winHttp.refusedAccessTypes = {WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY};
    EXPECT_TRUE(Post());
    EXPECT_THAT(winHttp.accessTypes,
                ElementsAre(DWORD{WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY}, DWORD{WINHTTP_ACCESS_TYPE_DEFAULT_PROXY}));
}

TEST_F(SentryHttpTest, Keeps_its_session_for_the_next_envelope)
{
    Http http(dsn);
    http.Post("one", stop.get());
    http.Post("two", stop.get());
    EXPECT_EQ(winHttp.accessTypes.size(), 1U);
    EXPECT_EQ(winHttp.requests.size(), 2U);
    EXPECT_EQ(winHttp.openHandles, 2); // the session and the connection
}

TEST_F(SentryHttpTest, Keeps_nothing_of_a_request_that_has_ended)
{
    std::vector<HANDLE> made;
    std::vector<HANDLE> closed;
    Fake<&CreateEventW> create = [&](auto... arguments) { return made.emplace_back(create.Hidden(arguments...)); };
    {
        Fake<&CloseHandle> close = [&](HANDLE handle) { return close.Hidden(closed.emplace_back(handle)); };
        for (const char* const failing : {"", "ReceiveResponse", "OpenRequest"})
        {
            winHttp.failing = {failing};
            Post();
        }
    }
    EXPECT_EQ(made.size(), 3U);
    EXPECT_EQ(closed, made);
}

TEST_F(SentryHttpTest, Sends_nothing_without_an_event_to_wait_for)
{
    Fake<&CreateEventW> create = [](auto...) -> HANDLE { return nullptr; };
    EXPECT_FALSE(Post());
    EXPECT_EQ(winHttp.requests.at(0).body, "");
}

TEST_F(SentryHttpTest, Reads_the_rate_limits_of_the_response)
{
    winHttp.status = 429;
    winHttp.responseHeaders = {{L"X-Sentry-Rate-Limits", L"60:error:key\u00e4"},
                               {L"Retry-After", std::wstring(511, L'1')}};
    auto response = Post();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->status, 429U);
    EXPECT_EQ(response->rateLimits, "60:error:key?");
    EXPECT_EQ(response->retryAfter, std::string(511, '1'));

    winHttp.responseHeaders = {{L"X-Sentry-Rate-Limits", std::wstring(100'000, L'1')}};
    response = Post();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->rateLimits, "") << "longer than makes sense";
}

TEST_F(SentryHttpTest, Has_no_response_when_a_function_fails_or_is_missing)
{
    for (const auto& [name, function] : FakeWinHttp::Functions())
    {
        if (name != "CloseHandle")
        {
            winHttp.failing = {name};
            EXPECT_FALSE(Post()) << name;
            ExpectNothingOpen();
        }
    }
    winHttp.failing.clear();
    winHttp.accessTypes.clear();
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

TEST_F(SentryHttpTest, Has_no_response_when_a_step_fails)
{
    for (auto* const step : {&winHttp.onSend, &winHttp.onReceive})
    {
        const auto original =
            std::exchange(*step, [](const FakeWinHttp::Tell& tell) { tell(WINHTTP_CALLBACK_STATUS_REQUEST_ERROR); });
        EXPECT_FALSE(Post());
        *step = original;
    }
}

TEST_F(SentryHttpTest, Gives_up_when_it_is_told_to_stop)
{
    winHttp.onReceive = [&](const FakeWinHttp::Tell& tell) {
        SetEvent(stop.get());
        tell(WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE); // too late
    };
    EXPECT_FALSE(Post());
    winHttp.onSend = [](const FakeWinHttp::Tell&) {};
    EXPECT_FALSE(Post());
    EXPECT_EQ(winHttp.requests.size(), 2U);
}

TEST_F(SentryHttpTest, Gives_up_after_a_minute)
{
    ULONGLONG now = 5'000'000;
    std::vector<DWORD> waits;
    Fake<&GetTickCount64> clock = [&] { return now; };
    Fake<&WaitForMultipleObjects> wait = [&](DWORD count, const HANDLE* handles, BOOL all, DWORD limit) -> DWORD {
        waits.push_back(limit);
        now += waits.size() == 1 ? 59'000 : limit;
        return waits.size() == 1 ? wait.Hidden(count, handles, all, 0) : DWORD{WAIT_TIMEOUT};
    };
    winHttp.onReceive = [](const FakeWinHttp::Tell&) {};
    EXPECT_FALSE(Post());
    EXPECT_THAT(waits, ElementsAre(60'000U, 1000U));

    winHttp.onSend = [&](const FakeWinHttp::Tell&) { now += 70'000; };
    EXPECT_FALSE(Post());
    EXPECT_THAT(waits, ElementsAre(60'000U, 1000U, 0U));
}

} // namespace
