#include "Store.h"
#include "support/common/EnvelopeParser.h"
#include "support/common/Text.h"
#include "support/unit/FakeWinHttp.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/TestFolder.h"

#include <sentry.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* c_dsn = "https://key@host.example/1";

class SentryTest : public testing::Test
{
protected:
    ~SentryTest() override { sentry_close(); }

    static sentry_options_t* Options(const char* dsn = c_dsn)
    {
        sentry_options_t* const options = sentry_options_new();
        sentry_options_set_dsn(options, dsn);
        return options;
    }
    void StartWithFolder(const char* dsn = c_dsn) const
    {
        sentry_options_t* const options = Options(dsn);
        sentry_options_set_database_path(options, Narrow(database).c_str());
        EXPECT_EQ(sentry_init(options), 0);
    }
    static void Leave(const char* message) { sentry_add_breadcrumb(sentry_value_new_breadcrumb(nullptr, message)); }
    static sentry_uuid_t Capture(const char* message = "text")
    {
        return sentry_capture_event(sentry_value_new_message_event(SENTRY_LEVEL_ERROR, "logger", message));
    }
    static bool IsNil(const sentry_uuid_t& id)
    {
        return std::string_view(id.bytes, sizeof(id)) == std::string(16, '\0');
    }

    // The events that were sent. Ends the session.
    std::vector<nlohmann::json> Sent() const
    {
        EXPECT_EQ(sentry_close(), 0);
        std::vector<nlohmann::json> events;
        for (const FakeWinHttp::Request& request : winHttp.requests)
        {
            events.push_back(EventOf(ParseEnvelope(request.body)));
        }
        return events;
    }

    TestFolder root;
    std::wstring database = root / L"Sentry";
    FakeWinHttp winHttp;
    // So that sentry_close does not give up on a busy machine.
    Fake<&WaitForSingleObject> wait = [this](HANDLE handle, DWORD limit) {
        return wait.Hidden(handle, limit == 0 ? 0 : std::max<DWORD>(limit, 60'000));
    };
};

TEST_F(SentryTest, Sends_events_with_the_breadcrumbs_so_far)
{
    sentry_options_t* const options = Options();
    sentry_options_set_release(options, "program@1.1");
    sentry_options_set_release(options, "program@1.2");
    sentry_options_set_debug(options, 0);
    EXPECT_EQ(sentry_init(options), 0);
    Leave("one");
    Capture("first");
    sentry_add_breadcrumb(sentry_value_new_breadcrumb("http", "two"));
    sentry_capture_event(sentry_value_new_message_event(SENTRY_LEVEL_WARNING, "other", "second"));

    const auto events = Sent();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0]["level"], "error");
    EXPECT_EQ(events[0]["logger"], "logger");
    EXPECT_EQ(events[0]["message"]["formatted"], "first");
    EXPECT_EQ(events[0]["release"], "program@1.2");
    EXPECT_EQ(events[0]["environment"], "production");
    EXPECT_EQ(events[0]["breadcrumbs"].size(), 1U);
    EXPECT_EQ(events[1]["level"], "warning");
    EXPECT_EQ(events[1]["logger"], "other");
    EXPECT_EQ(events[1]["breadcrumbs"][0]["message"], "one");
    EXPECT_FALSE(events[1]["breadcrumbs"][0].contains("type"));
    EXPECT_EQ(events[1]["breadcrumbs"][1]["message"], "two");
    EXPECT_EQ(events[1]["breadcrumbs"][1]["type"], "http");
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryTest, Takes_the_environment_from_its_variable)
{
    for (const wchar_t* const name : {L"t\u00e4st", L""})
    {
        _wputenv_s(L"SENTRY_ENVIRONMENT", name);
        sentry_init(Options());
        Capture();
        sentry_close();
    }
    const auto events = Sent();
    EXPECT_EQ(events.at(0)["environment"], "t\xc3\xa4st");
    EXPECT_EQ(events.at(1)["environment"], "production");
}

TEST_F(SentryTest, Sends_the_last_hundred_breadcrumbs)
{
    sentry_init(Options());
    for (int i = 0; i < 102; ++i)
    {
        Leave(std::to_string(i).c_str());
    }
    Capture();
    const auto breadcrumbs = Sent().at(0)["breadcrumbs"];
    ASSERT_EQ(breadcrumbs.size(), 100U);
    EXPECT_EQ(breadcrumbs.front()["message"], "2");
    EXPECT_EQ(breadcrumbs.back()["message"], "101");
}

TEST_F(SentryTest, Every_event_gets_a_random_id)
{
    sentry_init(Options(nullptr));
    const sentry_uuid_t first = Capture();
    const sentry_uuid_t second = Capture();
    EXPECT_FALSE(IsNil(first));
    EXPECT_NE(std::memcmp(&first, &second, sizeof(first)), 0);
    EXPECT_EQ(first.bytes[6] & 0xF0, 0x40);
    EXPECT_EQ(first.bytes[8] & 0xC0, 0x80);
}

TEST_F(SentryTest, Init_begins_anew)
{
    sentry_init(Options());
    Leave("one");
    sentry_init(Options());
    Capture();
    EXPECT_THAT(Sent().at(0)["breadcrumbs"], IsEmpty());
}

TEST_F(SentryTest, Keeps_nothing_without_a_session)
{
    Leave("before");
    EXPECT_TRUE(IsNil(Capture()));
    sentry_init(Options());
    EXPECT_EQ(sentry_init(nullptr), 1);
    EXPECT_TRUE(IsNil(Capture()));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SentryTest, Takes_null_and_drops_values_of_the_wrong_kind)
{
    sentry_options_set_dsn(nullptr, "x");
    sentry_options_set_database_path(nullptr, "x");
    sentry_options_set_release(nullptr, "x");
    sentry_options_set_debug(nullptr, 1);
    sentry_init(Options());
    sentry_add_breadcrumb({});
    sentry_add_breadcrumb(sentry_value_new_breadcrumb(nullptr, nullptr));
    sentry_add_breadcrumb(sentry_value_new_message_event(SENTRY_LEVEL_ERROR, "l", "m"));
    EXPECT_TRUE(IsNil(sentry_capture_event({})));
    EXPECT_TRUE(IsNil(sentry_capture_event(sentry_value_new_breadcrumb("t", "m"))));
    sentry_capture_event(sentry_value_new_message_event(SENTRY_LEVEL_ERROR, nullptr, nullptr));
    const auto events = Sent();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0]["breadcrumbs"].size(), 1U);
}

TEST_F(SentryTest, Threads_can_report_at_the_same_time)
{
    sentry_init(Options());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([] {
            for (int j = 0; j < 50; ++j)
            {
                Leave("b");
                Capture();
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(Sent().size(), 200U);
}

TEST_F(SentryTest, Sends_events_without_a_usable_folder)
{
    root.AddFile(L"Sentry", "a file");
    StartWithFolder();
    Capture();
    EXPECT_EQ(Sent().size(), 1U);
    EXPECT_EQ(ReadFileText(database), "a file");
}

TEST_F(SentryTest, Keeps_what_got_no_response_and_sends_it_in_the_next_session)
{
    StartWithFolder();
    winHttp.failing = {"ReceiveResponse"};
    Capture();
    Capture();
    EXPECT_EQ(sentry_close(), 2);
    EXPECT_EQ(winHttp.requests.size(), 2U);

    winHttp.failing.clear();
    winHttp.requests.clear();
    StartWithFolder();
    EXPECT_EQ(Sent().size(), 2U);
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryTest, Close_sends_what_is_pending_of_a_run_that_ended_meanwhile)
{
    StartWithFolder();
    auto other = Reporter::Store::Open(Narrow(database));
    ASSERT_TRUE(other);
    ASSERT_TRUE(other->Keep("1", "{\"event_id\":\"1\"}\n{\"type\":\"event\"}\n{\"event_id\":\"1\"}\n"));
    other.reset();
    EXPECT_EQ(Sent().size(), 1U);
    EXPECT_FALSE(Exists(database));

    // WinHTTP is not even asked when nothing is pending.
    const auto libraries = winHttp.libraries;
    StartWithFolder();
    EXPECT_EQ(Sent().size(), 1U);
    EXPECT_EQ(winHttp.libraries, libraries);
}

TEST_F(SentryTest, Sends_nothing_to_a_reserved_address_or_to_none)
{
    root.AddFile(L"Sentry\\x.run\\1.envelope");
    bool hasThread = false;
    Fake<&CreateThread> thread = [&](auto...) -> HANDLE {
        hasThread = true;
        return nullptr;
    };
    for (const char* const dsn : {"https://key@reports.invalid/1", "nonsense", ""})
    {
        StartWithFolder(dsn);
        EXPECT_FALSE(IsNil(Capture()));
        EXPECT_EQ(sentry_close(), 0);
    }
    EXPECT_FALSE(hasThread);
    EXPECT_TRUE(Exists(database + L"\\x.run\\1.envelope"));
}

TEST_F(SentryTest, Reports_nothing_without_memory)
{
    StartWithFolder();
    EXPECT_TRUE(Exists(database));
    const sentry_value_t breadcrumb = sentry_value_new_breadcrumb("t", "a message that is too long to need no memory");
    const sentry_value_t event = sentry_value_new_message_event(SENTRY_LEVEL_ERROR, "l", "m");
    sentry_options_t* const options = sentry_options_new();
    sentry_value_t made{};
    sentry_options_t* madeOptions = nullptr;
    sentry_uuid_t id{};
    int isFailed = 0;
    {
        const OutOfMemory outOfMemory;
        made = sentry_value_new_breadcrumb("t", "m");
        madeOptions = sentry_options_new();
        sentry_add_breadcrumb(breadcrumb);
        id = sentry_capture_event(event);
        isFailed = sentry_init(options);
    }
    EXPECT_EQ(made._bits, 0U);
    EXPECT_EQ(madeOptions, nullptr);
    EXPECT_TRUE(IsNil(id));
    EXPECT_EQ(isFailed, 1);
    EXPECT_FALSE(Exists(database));
}

} // namespace
