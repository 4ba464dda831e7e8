#include "Envelope.h"
#include "support/EnvelopeParser.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

namespace
{

using namespace Reporter;
using namespace Testing;
using testing::IsEmpty;

const std::string c_id = "0123456789abcdef0123456789abcdef";
const Origin c_origin{.release = "program@1.2.3", .environment = "production"};
constexpr Timestamp c_time{'2', '0', '2', '6', '-', '0', '3', '-', '0', '7', 'T', '0',
                           '9', ':', '0', '5', ':', '1', '2', '.', '3', '4', '5', 'Z'};

std::string MakeMessage(sentry_level_t level, const std::string& text, const std::deque<std::string>& breadcrumbs = {})
{
    return MakeEnvelope(c_origin, c_id, {.level = level, .logger = "logger", .text = text}, breadcrumbs);
}

TEST(SentryEnvelopeTest, an_event_says_what_happened_where)
{
    const auto envelope = ParseEnvelope(MakeMessage(SENTRY_LEVEL_ERROR, "It failed: \"x\"\nBadly."));

    EXPECT_EQ(envelope.header["event_id"], c_id);
    ASSERT_EQ(envelope.items.size(), 1U);
    EXPECT_EQ(envelope.items[0].header["type"], "event");
    const auto event = EventOf(envelope);
    EXPECT_THAT(FaultsOf(event), IsEmpty()) << event;
    EXPECT_EQ(event["event_id"], c_id);
    EXPECT_EQ(event["level"], "error");
    EXPECT_EQ(event["logger"], "logger");
    EXPECT_EQ(event["message"], nlohmann::json::object({{"formatted", "It failed: \"x\"\nBadly."}}));
    EXPECT_EQ(event["release"], "program@1.2.3");
    EXPECT_EQ(event["environment"], "production");
    EXPECT_EQ(event["sdk"]["name"], "sentry.native.velmora");
    EXPECT_EQ(event["sdk"]["version"], "0.7.5");
    EXPECT_EQ(event["breadcrumbs"], nlohmann::json::array());
    EXPECT_TRUE(event["contexts"]["os"]["version"].get<std::string>().starts_with("10.0."));
    EXPECT_EQ(event["contexts"]["os"]["version"], "10.0." + event["contexts"]["os"]["build"].get<std::string>());
    EXPECT_EQ(event["contexts"]["device"]["arch"], "x86_64");
    EXPECT_GE(event["contexts"]["device"]["processor_count"].get<int>(), 1);
}

TEST(SentryEnvelopeTest, an_event_says_nothing_else)
{
    const auto event = EventOf(ParseEnvelope(MakeMessage(SENTRY_LEVEL_ERROR, "text")));
    std::vector<std::string> names;
    for (const auto& item : event.items())
    {
        names.push_back(item.key());
    }
    EXPECT_THAT(names,
                testing::UnorderedElementsAre("event_id", "timestamp", "platform", "level", "release", "environment",
                                              "sdk", "contexts", "logger", "message", "breadcrumbs"));
}

TEST(SentryEnvelopeTest, every_level_has_its_name)
{
    const std::vector<std::pair<sentry_level_t, std::string>> names{{SENTRY_LEVEL_DEBUG, "debug"},
                                                                    {SENTRY_LEVEL_INFO, "info"},
                                                                    {SENTRY_LEVEL_WARNING, "warning"},
                                                                    {SENTRY_LEVEL_ERROR, "error"},
                                                                    {SENTRY_LEVEL_FATAL, "fatal"}};
    for (const auto& [level, name] : names)
    {
        EXPECT_EQ(EventOf(ParseEnvelope(MakeMessage(level, "text")))["level"], name);
    }
}

TEST(SentryEnvelopeTest, what_is_not_known_is_left_out)
{
    const auto event = EventOf(ParseEnvelope(MakeEnvelope({}, c_id, {}, {})));
    EXPECT_FALSE(event.contains("release"));
    EXPECT_FALSE(event.contains("environment"));
    EXPECT_FALSE(event.contains("logger"));
    EXPECT_THAT(FaultsOf(event), IsEmpty()) << event;
}

TEST(SentryEnvelopeTest, breadcrumbs_follow_in_their_order)
{
    const auto event = EventOf(ParseEnvelope(
        MakeMessage(SENTRY_LEVEL_INFO, "text",
                    {MakeBreadcrumb(c_time, std::nullopt, "one, \"first\""), MakeBreadcrumb(c_time, "http", "")})));
    EXPECT_THAT(FaultsOf(event), IsEmpty()) << event;
    EXPECT_EQ(event["breadcrumbs"],
              nlohmann::json::array({{{"timestamp", "2026-03-07T09:05:12.345Z"}, {"message", "one, \"first\""}},
                                     {{"timestamp", "2026-03-07T09:05:12.345Z"}, {"type", "http"}}}));
}

TEST(SentryEnvelopeTest, a_type_that_is_empty_is_one)
{
    EXPECT_EQ(MakeBreadcrumb(c_time, "", "one"),
              R"({"timestamp":"2026-03-07T09:05:12.345Z","type":"","message":"one"})");
    EXPECT_EQ(MakeBreadcrumb(c_time, std::nullopt, "one"),
              R"({"timestamp":"2026-03-07T09:05:12.345Z","message":"one"})");
}

TEST(SentryEnvelopeTest, what_is_no_UTF_8_is_replaced)
{
    const auto event = EventOf(ParseEnvelope(
        MakeMessage(SENTRY_LEVEL_INFO, "a\xFFz \xC3\xA4", {MakeBreadcrumb(c_time, std::nullopt, "b\xC3")})));
    EXPECT_EQ(event["message"]["formatted"], "a\xEF\xBF\xBDz \xC3\xA4");
    EXPECT_EQ(event["breadcrumbs"][0]["message"], "b\xEF\xBF\xBD");
}

TEST(SentryEnvelopeTest, a_crash_has_places_for_what_is_not_known_yet)
{
    CrashEnvelope crash = MakeCrashEnvelope(c_origin, c_id);
    std::ranges::copy(c_time, crash.head.begin() + static_cast<std::ptrdiff_t>(crash.timestampOffset));
    std::ranges::copy(std::string("c0000005"), crash.head.begin() + static_cast<std::ptrdiff_t>(crash.codeOffset));

    const auto event = EventOf(ParseEnvelope(crash.head + MakeBreadcrumb(c_time, std::nullopt, "one") + "," +
                                             MakeBreadcrumb(c_time, std::nullopt, "two") + crash.tail));

    EXPECT_THAT(FaultsOf(event), IsEmpty()) << event;
    EXPECT_EQ(event["level"], "fatal");
    EXPECT_EQ(event["timestamp"], "2026-03-07T09:05:12.345Z");
    EXPECT_EQ(event["release"], "program@1.2.3");
    EXPECT_EQ(event["exception"]["values"][0]["type"], "Exception 0xc0000005");
    EXPECT_EQ(event["exception"]["values"][0]["mechanism"],
              (nlohmann::json{{"type", "minidump"}, {"handled", false}, {"synthetic", true}}));
    ASSERT_EQ(event["breadcrumbs"].size(), 2U);
    EXPECT_EQ(event["breadcrumbs"][1]["message"], "two");
}

TEST(SentryEnvelopeTest, a_crash_without_breadcrumbs_is_complete_too)
{
    const CrashEnvelope crash = MakeCrashEnvelope(c_origin, c_id);
    EXPECT_THAT(FaultsOf(EventOf(ParseEnvelope(crash.head + crash.tail))), IsEmpty());
}

TEST(SentryEnvelopeTest, goes_out_with_the_time_of_sending)
{
    const auto text = PrepareToSend(MakeMessage(SENTRY_LEVEL_INFO, "text"), {}, c_time);
    ASSERT_TRUE(text);
    const auto envelope = ParseEnvelope(*text);
    EXPECT_EQ(envelope.header["sent_at"], "2026-03-07T09:05:12.345Z");
    EXPECT_EQ(envelope.items.size(), 1U);
    EXPECT_EQ(EventOf(envelope)["message"]["formatted"], "text");
}

TEST(SentryEnvelopeTest, goes_out_with_its_minidump_attached)
{
    const std::string minidump("MDMP\n\0\r{}\xFF\n", 12);
    const auto text = PrepareToSend(MakeMessage(SENTRY_LEVEL_INFO, "text"), minidump, c_time);
    ASSERT_TRUE(text);
    const auto envelope = ParseEnvelope(*text);
    ASSERT_EQ(envelope.items.size(), 2U);
    EXPECT_EQ(EventOf(envelope)["message"]["formatted"], "text");
    EXPECT_EQ(envelope.items[1].header, (nlohmann::json{{"type", "attachment"},
                                                        {"attachment_type", "event.minidump"},
                                                        {"filename", "crash.dmp"},
                                                        {"content_type", "application/x-dmp"},
                                                        {"length", 12}}));
    EXPECT_EQ(envelope.items[1].payload, minidump);
}

TEST(SentryEnvelopeTest, goes_out_with_its_minidump_even_when_it_was_cut_off)
{
    const auto text = PrepareToSend("{\"event_id\":\"1\"}\n{\"type\":\"event\"}\n{\"level\":\"fa", "MDMP", c_time);
    ASSERT_TRUE(text);
    const auto envelope = ParseEnvelope(*text);
    ASSERT_EQ(envelope.items.size(), 2U);
    EXPECT_EQ(envelope.items[1].payload, "MDMP");
}

TEST(SentryEnvelopeTest, does_not_go_out_when_it_is_none)
{
    for (const char* const text :
         {"", "{}", "{}\n", "\n", "[]\n", "garbage\n{}", "{\"event_id\":1}\n", "{\"event_id\":\"1\"}", "{\"event_id\n"})
    {
        EXPECT_FALSE(PrepareToSend(text, {}, c_time)) << text;
    }
}

TEST(SentryEnvelopeTest, goes_out_with_nothing_else_of_its_header)
{
    const auto text = PrepareToSend(
        "{\"dsn\":\"https://key@elsewhere/1\",\"event_id\":\"1\"}\n{\"type\":\"event\"}\n{}\n", {}, c_time);
    ASSERT_TRUE(text);
    EXPECT_EQ(ParseEnvelope(*text).header,
              (nlohmann::json{{"event_id", "1"},
                              {"sdk", {{"name", "sentry.native.velmora"}, {"version", "0.7.5"}}},
                              {"sent_at", "2026-03-07T09:05:12.345Z"}}));
}

TEST(SentryEnvelopeTest, no_header_is_too_deep_for_it)
{
    const std::string deep(500'000, '['); // a file may hold twice as many
    const std::string header = R"({"event_id":"1","x":)" + deep + std::string(deep.size(), ']') + "}\n";
    EXPECT_TRUE(PrepareToSend(header, {}, c_time));
    EXPECT_FALSE(PrepareToSend(deep + "\n", {}, c_time));
}

TEST(SentryEnvelopeTest, no_text_can_add_a_line_to_it)
{
    const std::string evil = "1\r\n{\"type\":\"attachment\"}\n\"";
    const Origin origin{.release = evil, .environment = evil};
    const auto envelope =
        ParseEnvelope(MakeEnvelope(origin, c_id, {.level = SENTRY_LEVEL_INFO, .logger = evil, .text = evil},
                                   {MakeBreadcrumb(c_time, evil, evil)}));
    EXPECT_EQ(envelope.items.size(), 1U);
    const auto event = EventOf(envelope);
    EXPECT_EQ(event["release"], evil);
    EXPECT_EQ(event["environment"], evil);
    EXPECT_EQ(event["logger"], evil);
    EXPECT_EQ(event["message"]["formatted"], evil);
    EXPECT_EQ(event["breadcrumbs"][0]["type"], evil);
    const CrashEnvelope crash = MakeCrashEnvelope(origin, c_id);
    EXPECT_EQ(EventOf(ParseEnvelope(crash.head + crash.tail))["release"], evil);
}

TEST(SentryEnvelopeTest, a_crash_has_its_places_even_when_texts_look_like_them)
{
    const CrashEnvelope crash =
        MakeCrashEnvelope({.release = "Exception 0x\"timestamp\":\"", .environment = "Exception 0x"}, c_id);
    CrashEnvelope changed = crash;
    changed.head.replace(changed.codeOffset, 8, "12345678");
    const auto event = EventOf(ParseEnvelope(changed.head + changed.tail));
    EXPECT_EQ(event["exception"]["values"][0]["type"], "Exception 0x12345678");
    EXPECT_EQ(event["release"], "Exception 0x\"timestamp\":\"");
}

TEST(SentryEnvelopeTest, knows_a_minidump_by_its_beginning)
{
    EXPECT_TRUE(IsMinidump("MDMP rest"));
    EXPECT_FALSE(IsMinidump("MDM"));
    EXPECT_FALSE(IsMinidump("PMDM"));
}

} // namespace
