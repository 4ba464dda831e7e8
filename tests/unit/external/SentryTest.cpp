#include "FakeWinHttp.h"
#include "Store.h"
#include "support/OutOfMemory.h"
#include "support/TestFolder.h"
#include "support/Text.h"

#include <sentry.h>
#include <sentry_testing.h>

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

using SentryTesting::Breadcrumb;
using SentryTesting::CurrentRun;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class SentryTest : public testing::Test
{
protected:
    SentryTest() { SentryTesting::Forget(); }
    ~SentryTest() override
    {
        SentryTesting::Forget();
        EXPECT_EQ(SentryTesting::LivingObjects(), 0);
    }

    static void Start() { EXPECT_EQ(sentry_init(sentry_options_new()), 0); }
    static void Leave(const char* message) { sentry_add_breadcrumb(sentry_value_new_breadcrumb("default", message)); }
    static sentry_uuid_t Capture(const char* message)
    {
        return sentry_capture_event(sentry_value_new_message_event(SENTRY_LEVEL_ERROR, "logger", message));
    }
    static bool IsNil(const sentry_uuid_t& id)
    {
        const sentry_uuid_t nil{};
        return std::memcmp(&id, &nil, sizeof(id)) == 0;
    }
};

} // namespace

TEST_F(SentryTest, init_starts_a_run_with_the_options)
{
    sentry_options_t* const options = sentry_options_new();
    sentry_options_set_dsn(options, "https://key@host/1");
    sentry_options_set_database_path(options, "C:\\Temp\\Sentry");
    sentry_options_set_release(options, "program@1.2");
    sentry_options_set_debug(options, 1);
    EXPECT_FALSE(CurrentRun().isStarted);
    EXPECT_EQ(sentry_init(options), 0);
    const auto run = CurrentRun();
    EXPECT_TRUE(run.isStarted);
    EXPECT_EQ(run.dsn, "https://key@host/1");
    EXPECT_EQ(run.databasePath, "C:\\Temp\\Sentry");
    EXPECT_EQ(run.release, "program@1.2");
    EXPECT_TRUE(run.debug);
    EXPECT_THAT(run.options, ElementsAre("dsn", "database path", "release", "debug"));
}

TEST_F(SentryTest, options_can_be_set_anew_removed_and_freed)
{
    sentry_options_t* const options = sentry_options_new();
    sentry_options_set_dsn(options, "one");
    sentry_options_set_dsn(options, nullptr);
    sentry_options_set_release(options, "one");
    sentry_options_set_release(options, "two");
    sentry_options_set_database_path(options, nullptr);
    sentry_options_set_debug(options, 1);
    sentry_options_set_debug(options, 0);
    sentry_init(options);
    EXPECT_EQ(CurrentRun().dsn, "");
    EXPECT_EQ(CurrentRun().release, "two");
    EXPECT_FALSE(CurrentRun().debug);
    sentry_options_free(sentry_options_new());
    sentry_options_free(nullptr);
}

TEST_F(SentryTest, close_ends_the_run_and_what_it_kept_can_still_be_seen)
{
    Start();
    Leave("a");
    Capture("e");
    EXPECT_EQ(CurrentRun().closes, 0);
    EXPECT_EQ(sentry_close(), 0);
    EXPECT_EQ(sentry_close(), 0);
    EXPECT_EQ(CurrentRun().closes, 2);
    EXPECT_FALSE(CurrentRun().isStarted);
    EXPECT_EQ(CurrentRun().breadcrumbs.size(), 1U);
    EXPECT_EQ(CurrentRun().events.size(), 1U);
}

TEST_F(SentryTest, init_starts_afresh)
{
    Start();
    Leave("a");
    Capture("e");
    Start();
    EXPECT_TRUE(CurrentRun().isStarted);
    EXPECT_THAT(CurrentRun().breadcrumbs, IsEmpty());
    EXPECT_THAT(CurrentRun().events, IsEmpty());
}

TEST_F(SentryTest, init_without_options_starts_nothing)
{
    Start();
    EXPECT_EQ(sentry_init(nullptr), 1);
    EXPECT_FALSE(CurrentRun().isStarted);
}

TEST_F(SentryTest, breadcrumbs_are_kept_in_order)
{
    Start();
    Leave("one");
    sentry_add_breadcrumb(sentry_value_new_breadcrumb("error", "two"));
    EXPECT_THAT(CurrentRun().breadcrumbs, ElementsAre(Breadcrumb{"default", "one"}, Breadcrumb{"error", "two"}));
}

TEST_F(SentryTest, a_breadcrumb_without_a_type_is_not_one_with_an_empty_type)
{
    Start();
    sentry_add_breadcrumb(sentry_value_new_breadcrumb(nullptr, "one"));
    sentry_add_breadcrumb(sentry_value_new_breadcrumb("", "two"));
    EXPECT_THAT(CurrentRun().breadcrumbs, ElementsAre(Breadcrumb{std::nullopt, "one"}, Breadcrumb{"", "two"}));
}

TEST_F(SentryTest, the_last_hundred_breadcrumbs_are_kept)
{
    Start();
    for (int i = 0; i < 102; ++i)
    {
        Leave(std::to_string(i).c_str());
    }
    const auto breadcrumbs = CurrentRun().breadcrumbs;
    ASSERT_EQ(breadcrumbs.size(), 100U);
    EXPECT_EQ(breadcrumbs.front().message, "2");
    EXPECT_EQ(breadcrumbs.back().message, "101");
}

TEST_F(SentryTest, an_event_carries_the_breadcrumbs_that_stood_when_it_was_captured)
{
    Start();
    Leave("one");
    Capture("first");
    Leave("two");
    sentry_capture_event(sentry_value_new_message_event(SENTRY_LEVEL_WARNING, "other", "second"));
    const auto events = CurrentRun().events;
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0], (SentryTesting::Event{SENTRY_LEVEL_ERROR, "logger", "first", {{"default", "one"}}}));
    EXPECT_EQ(events[1], (SentryTesting::Event{
                             SENTRY_LEVEL_WARNING, "other", "second", {{"default", "one"}, {"default", "two"}}}));
}

TEST_F(SentryTest, every_event_gets_a_random_id)
{
    Start();
    const sentry_uuid_t first = Capture("e");
    const sentry_uuid_t second = Capture("e");
    EXPECT_FALSE(IsNil(first));
    EXPECT_NE(std::memcmp(&first, &second, sizeof(first)), 0);
    EXPECT_EQ(first.bytes[6] & 0xF0, 0x40);
    EXPECT_EQ(first.bytes[8] & 0xC0, 0x80);
}

TEST_F(SentryTest, nothing_is_kept_without_a_run)
{
    Leave("before");
    EXPECT_TRUE(IsNil(Capture("before")));
    Start();
    sentry_close();
    Leave("after");
    EXPECT_TRUE(IsNil(Capture("after")));
    EXPECT_THAT(CurrentRun().breadcrumbs, IsEmpty());
    EXPECT_THAT(CurrentRun().events, IsEmpty());
}

TEST_F(SentryTest, null_is_taken_everywhere)
{
    Start();
    sentry_options_set_dsn(nullptr, "x");
    sentry_options_set_database_path(nullptr, "x");
    sentry_options_set_release(nullptr, "x");
    sentry_options_set_debug(nullptr, 1);
    sentry_value_decref(sentry_value_t{});
    sentry_add_breadcrumb(sentry_value_t{});
    EXPECT_TRUE(IsNil(sentry_capture_event(sentry_value_t{})));
    sentry_add_breadcrumb(sentry_value_new_breadcrumb(nullptr, nullptr));
    sentry_capture_event(sentry_value_new_message_event(SENTRY_LEVEL_INFO, nullptr, nullptr));
    EXPECT_THAT(CurrentRun().breadcrumbs, ElementsAre(Breadcrumb{}));
    EXPECT_EQ(CurrentRun().events.size(), 1U);
}

TEST_F(SentryTest, values_of_the_wrong_kind_are_dropped)
{
    Start();
    sentry_add_breadcrumb(sentry_value_new_message_event(SENTRY_LEVEL_INFO, "l", "m"));
    EXPECT_TRUE(IsNil(sentry_capture_event(sentry_value_new_breadcrumb("t", "m"))));
    EXPECT_THAT(CurrentRun().breadcrumbs, IsEmpty());
    EXPECT_THAT(CurrentRun().events, IsEmpty());
}

TEST_F(SentryTest, bytes_that_are_no_UTF_8_are_kept_as_they_are)
{
    Start();
    Leave("\xFF\xC3");
    EXPECT_THAT(CurrentRun().breadcrumbs, ElementsAre(Breadcrumb{"default", "\xFF\xC3"}));
}

TEST_F(SentryTest, an_unused_value_is_freed_by_giving_it_up)
{
    const sentry_value_t value = sentry_value_new_breadcrumb("t", "m");
    sentry_options_t* const options = sentry_options_new();
    EXPECT_EQ(SentryTesting::LivingObjects(), 2);
    sentry_value_decref(value);
    sentry_options_free(options);
    EXPECT_EQ(SentryTesting::LivingObjects(), 0);
}

TEST_F(SentryTest, threads_can_report_at_the_same_time)
{
    Start();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([] {
            for (int j = 0; j < 50; ++j)
            {
                Leave("b");
                Capture("e");
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(CurrentRun().breadcrumbs.size(), 100U);
    EXPECT_EQ(CurrentRun().events.size(), 200U);
}

// What there was at the start has been looked for then, and nothing else wakes the thread that sends.
TEST_F(SentryTest, close_sends_what_a_run_has_left_that_ended_meanwhile)
{
    const Testing::TestFolder root;
    const std::string database = Testing::Narrow(root / L"Sentry");
    Testing::FakeWinHttp winHttp;
    SentryTesting::SetOffline(false);
    const auto start = [&] {
        sentry_options_t* const options = sentry_options_new();
        sentry_options_set_dsn(options, "https://key@host.example/1");
        sentry_options_set_database_path(options, database.c_str());
        EXPECT_EQ(sentry_init(options), 0);
    };
    start();
    auto other = Reporter::Store::Open(database);
    ASSERT_TRUE(other);
    ASSERT_TRUE(other->Keep("1", "{\"event_id\":\"1\"}\n{\"type\":\"event\"}\n{}\n"));
    other.reset();
    EXPECT_EQ(sentry_close(), 0);
    EXPECT_EQ(winHttp.requests.size(), 1U);
    EXPECT_FALSE(Testing::Exists(root / L"Sentry"));

    // And none there is: nobody is asked.
    start();
    EXPECT_EQ(sentry_close(), 0);
    EXPECT_EQ(winHttp.requests.size(), 1U);
    SentryTesting::SetOffline(true);
}

TEST_F(SentryTest, without_memory_nothing_is_reported_and_nothing_breaks)
{
    const Testing::TestFolder root;
    sentry_options_t* const options = sentry_options_new();
    sentry_options_set_database_path(options, Testing::Narrow(root / L"Sentry").c_str());
    EXPECT_EQ(sentry_init(options), 0);
    EXPECT_TRUE(Testing::Exists(root / L"Sentry"));
    const sentry_value_t breadcrumb = sentry_value_new_breadcrumb("t", "a message that is too long to need no memory");
    const sentry_value_t event = sentry_value_new_message_event(SENTRY_LEVEL_ERROR, "l", "m");
    sentry_value_t made{};
    sentry_options_t* madeOptions = nullptr;
    sentry_uuid_t id{};
    {
        const Testing::OutOfMemory outOfMemory;
        made = sentry_value_new_breadcrumb("t", "m");
        madeOptions = sentry_options_new();
        sentry_add_breadcrumb(breadcrumb);
        id = sentry_capture_event(event);
        sentry_close();
    }
    EXPECT_EQ(made._bits, 0U);
    EXPECT_EQ(madeOptions, nullptr);
    EXPECT_TRUE(IsNil(id));
    EXPECT_FALSE(CurrentRun().isStarted);
    EXPECT_THAT(CurrentRun().breadcrumbs, IsEmpty());
    EXPECT_THAT(CurrentRun().events, IsEmpty());
    EXPECT_FALSE(Testing::Exists(root / L"Sentry"));
}
