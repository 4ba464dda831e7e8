#include "Envelope.h"
#include "support/common/EnvelopeParser.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <utility>

namespace
{

using namespace Reporter;
using namespace Testing;
using nlohmann::json;
using testing::IsEmpty;

const std::string c_id = "0123456789abcdef0123456789abcdef";
const Origin c_origin{.release = "program@1.2.3", .environment = "production"};
const std::string c_timeText = "2026-03-07T09:05:12.345Z";

Timestamp Time()
{
    Timestamp time{};
    std::ranges::copy(c_timeText, time.begin());
    return time;
}

// A text that would add a line and end a string if it were not escaped.
const std::string c_hostile = "1\r\n{\"type\":\"attachment\"}\n\"";

std::string MakeMessage(const std::string& text, const std::deque<std::string>& breadcrumbs = {},
                        sentry_level_t level = SENTRY_LEVEL_ERROR)
{
    return MakeEnvelope(c_origin, c_id, {.level = level, .logger = "logger", .text = text}, breadcrumbs);
}

// The event of an envelope that is as documented.
json ValidEvent(const std::string& envelope)
{
    json event = EventOf(ParseEnvelope(envelope));
    EXPECT_THAT(FaultsOf(event), IsEmpty()) << event;
    return event;
}

ParsedEnvelope Prepared(const std::string& envelope, const std::string& minidump = "")
{
    return ParseEnvelope(PrepareToSend(envelope, minidump, Time()).value());
}

TEST(SentryEnvelopeTest, An_event_says_what_happened_where_and_nothing_else)
{
    const auto envelope = ParseEnvelope(MakeMessage("It failed: \"x\"\nBadly."));

    EXPECT_EQ(envelope.header["event_id"], c_id);
    ASSERT_EQ(envelope.items.size(), 1U);
    EXPECT_EQ(envelope.items[0].header["type"], "event");
    json event = EventOf(envelope);
    EXPECT_THAT(FaultsOf(event), IsEmpty()) << event;
    const json contexts = event["contexts"];
    EXPECT_TRUE(contexts["os"]["version"].get<std::string>().starts_with("10.0."));
    EXPECT_EQ(contexts["os"]["version"], "10.0." + contexts["os"]["build"].get<std::string>());
    EXPECT_EQ(contexts["device"]["arch"], "x86_64");
    EXPECT_GE(contexts["device"]["processor_count"].get<int>(), 1);
    event.erase("contexts");
    event.erase("timestamp");
    EXPECT_EQ(event, json({{"event_id", c_id},
                           {"platform", "native"},
                           {"level", "error"},
                           {"logger", "logger"},
                           {"message", {{"formatted", "It failed: \"x\"\nBadly."}}},
                           {"release", "program@1.2.3"},
                           {"environment", "production"},
                           {"sdk", {{"name", "sentry.native.velmora"}, {"version", "0.7.5"}}},
                           {"breadcrumbs", json::array()}}));
}

TEST(SentryEnvelopeTest, Every_level_has_its_name)
{
    for (const auto& [level, name] : {std::pair(SENTRY_LEVEL_WARNING, "warning"),
                                      std::pair(SENTRY_LEVEL_ERROR, "error"), std::pair(SENTRY_LEVEL_FATAL, "fatal")})
    {
        EXPECT_EQ(ValidEvent(MakeMessage("text", {}, level))["level"], name);
    }
}

TEST(SentryEnvelopeTest, Empty_texts_are_left_out)
{
    const auto event = ValidEvent(MakeEnvelope({}, c_id, {}, {}));
    for (const char* const name : {"release", "environment", "logger"})
    {
        EXPECT_FALSE(event.contains(name)) << name;
    }
}

TEST(SentryEnvelopeTest, Breadcrumbs_follow_in_their_order)
{
    const auto event =
        ValidEvent(MakeMessage("text", {MakeBreadcrumb(Time(), nullptr, "one, \"first\""),
                                        MakeBreadcrumb(Time(), "http", ""), MakeBreadcrumb(Time(), "", "")}));
    EXPECT_EQ(event["breadcrumbs"], json::array({{{"timestamp", c_timeText}, {"message", "one, \"first\""}},
                                                 {{"timestamp", c_timeText}, {"type", "http"}},
                                                 {{"timestamp", c_timeText}, {"type", ""}}}));
}

TEST(SentryEnvelopeTest, Invalid_UTF_8_is_replaced)
{
    const auto event = ValidEvent(MakeMessage("a\xFFz \xC3\xA4", {MakeBreadcrumb(Time(), nullptr, "b\xC3")}));
    EXPECT_EQ(event["message"]["formatted"], "a\xEF\xBF\xBDz \xC3\xA4");
    EXPECT_EQ(event["breadcrumbs"][0]["message"], "b\xEF\xBF\xBD");
}

TEST(SentryEnvelopeTest, A_crash_has_offsets_for_its_time_and_code)
{
    CrashEnvelope crash = MakeCrashEnvelope(c_origin, c_id);
    EXPECT_THAT(ValidEvent(crash.head + crash.tail)["breadcrumbs"], IsEmpty());
    crash.head.replace(crash.timestampOffset, c_timeText.size(), c_timeText);
    crash.head.replace(crash.codeOffset, 8, "c0000005");

    const auto event = ValidEvent(crash.head + MakeBreadcrumb(Time(), nullptr, "one") + "," +
                                  MakeBreadcrumb(Time(), nullptr, "two") + crash.tail);

    EXPECT_EQ(event["level"], "fatal");
    EXPECT_EQ(event["timestamp"], c_timeText);
    EXPECT_EQ(event["release"], "program@1.2.3");
    const json exception{{"type", "Exception 0xc0000005"},
                         {"mechanism", {{"type", "minidump"}, {"handled", false}, {"synthetic", true}}}};
    EXPECT_EQ(event["exception"]["values"], json::array({exception}));
    ASSERT_EQ(event["breadcrumbs"].size(), 2U);
    EXPECT_EQ(event["breadcrumbs"][1]["message"], "two");
}

TEST(SentryEnvelopeTest, A_crash_has_its_offsets_even_when_texts_look_like_them)
{
    const std::string release = "Exception 0x\"timestamp\":\"";
    CrashEnvelope crash = MakeCrashEnvelope({.release = release, .environment = "Exception 0x"}, c_id);
    crash.head.replace(crash.codeOffset, 8, "12345678");
    const auto event = EventOf(ParseEnvelope(crash.head + crash.tail));
    EXPECT_EQ(event["exception"]["values"][0]["type"], "Exception 0x12345678");
    EXPECT_EQ(event["release"], release);
}

TEST(SentryEnvelopeTest, No_text_can_add_a_line)
{
    const Origin origin{.release = c_hostile, .environment = c_hostile};
    const auto envelope =
        ParseEnvelope(MakeEnvelope(origin, c_id, {.level = SENTRY_LEVEL_ERROR, .logger = c_hostile, .text = c_hostile},
                                   {MakeBreadcrumb(Time(), c_hostile.c_str(), c_hostile)}));
    EXPECT_EQ(envelope.items.size(), 1U);
    const auto event = EventOf(envelope);
    for (const json& text : {event["release"], event["environment"], event["logger"], event["message"]["formatted"],
                             event["breadcrumbs"][0]["type"], event["breadcrumbs"][0]["message"]})
    {
        EXPECT_EQ(text, c_hostile);
    }
    const CrashEnvelope crash = MakeCrashEnvelope(origin, c_id);
    EXPECT_EQ(EventOf(ParseEnvelope(crash.head + crash.tail))["release"], c_hostile);
}

TEST(SentryEnvelopeTest, Goes_out_with_the_time_of_sending_and_nothing_else_in_its_header)
{
    const auto envelope = Prepared(
        "{\"dsn\":\"https://key@elsewhere/1\",\"event_id\":\"1\"}\n{\"type\":\"event\"}\n{\"event_id\":\"1\"}\n");
    EXPECT_EQ(envelope.header, (json{{"event_id", "1"},
                                     {"sdk", {{"name", "sentry.native.velmora"}, {"version", "0.7.5"}}},
                                     {"sent_at", c_timeText}}));
    EXPECT_EQ(envelope.items.size(), 1U);
    EXPECT_EQ(EventOf(envelope), (json{{"event_id", "1"}}));
}

TEST(SentryEnvelopeTest, Goes_out_with_its_minidump_attached)
{
    const std::string minidump("MDMP\n\0\r{}\xFF\n", 12);
    const auto envelope = Prepared(MakeMessage("text"), minidump);
    ASSERT_EQ(envelope.items.size(), 2U);
    EXPECT_EQ(EventOf(envelope)["message"]["formatted"], "text");
    EXPECT_EQ(envelope.items[1].header, (json{{"type", "attachment"},
                                              {"attachment_type", "event.minidump"},
                                              {"filename", "crash.dmp"},
                                              {"content_type", "application/x-dmp"},
                                              {"length", 12}}));
    EXPECT_EQ(envelope.items[1].payload, minidump);

    const auto cutOff = Prepared("{\"event_id\":\"1\"}\n{\"type\":\"event\"}\n{\"level\":\"fa", "MDMP");
    ASSERT_EQ(cutOff.items.size(), 2U);
    EXPECT_EQ(cutOff.items[1].payload, "MDMP");
}

TEST(SentryEnvelopeTest, Does_not_go_out_when_it_is_none)
{
    for (const char* const text :
         {"", "{}", "{}\n", "\n", "[]\n", "garbage\n{}", "{\"event_id\":1}\n", "{\"event_id\":\"1\"}", "{\"event_id\n"})
    {
        EXPECT_FALSE(PrepareToSend(text, {}, Time())) << text;
    }
}

TEST(SentryEnvelopeTest, May_have_a_header_of_any_depth)
{
    const std::string deep(500'000, '['); // a file may hold twice as many
    const std::string header = R"({"event_id":"1","x":)" + deep + std::string(deep.size(), ']') + "}\n";
    EXPECT_TRUE(PrepareToSend(header, {}, Time()));
    EXPECT_FALSE(PrepareToSend(deep + "\n", {}, Time()));
}

TEST(SentryEnvelopeTest, Knows_a_minidump_by_its_signature)
{
    EXPECT_TRUE(IsMinidump("MDMP rest"));
    EXPECT_FALSE(IsMinidump("MDM"));
    EXPECT_FALSE(IsMinidump("PMDM"));
}

} // namespace
