#include "support/unit/FakeSentry.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <variant>

struct sentry_options_s
{
    std::vector<std::string> calls;
};

namespace Testing
{

namespace
{

using Value = std::variant<Breadcrumb, SentryEvent>;

FakeSentry g_sentry;
int g_livingObjects = 0; // values and options that nobody has taken over

class EveryTest : public testing::EmptyTestEventListener
{
    void OnTestStart(const testing::TestInfo&) override
    {
        g_sentry = {};
        g_livingObjects = 0;
    }
    void OnTestEnd(const testing::TestInfo&) override { EXPECT_EQ(g_livingObjects, 0) << "of sentry-native's"; }
};

const bool c_isListening = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new EveryTest);
    return true;
}();

sentry_value_t NewValue(Value content)
{
    sentry_value_t value{};
    value._bits = reinterpret_cast<uint64_t>(new Value(std::move(content)));
    ++g_livingObjects;
    return value;
}

// Takes a value over and keeps it in a run.
template <class Content>
void Keep(sentry_value_t value, std::vector<Content>& list)
{
    const std::unique_ptr<Value> owned(reinterpret_cast<Value*>(value._bits));
    --g_livingObjects;
    if (g_sentry.isStarted)
    {
        list.push_back(std::get<Content>(*owned));
    }
}

} // namespace

FakeSentry& Sentry()
{
    return g_sentry;
}

} // namespace Testing

using namespace Testing;

extern "C" {

sentry_value_t sentry_value_new_breadcrumb(const char* type, const char* message)
{
    return NewValue(Breadcrumb{type ? std::optional<std::string>(type) : std::nullopt, message});
}

sentry_value_t sentry_value_new_message_event(sentry_level_t level, const char* logger, const char* text)
{
    return NewValue(SentryEvent{level, logger, text});
}

sentry_options_t* sentry_options_new(void)
{
    ++g_livingObjects;
    return new sentry_options_t;
}

void sentry_options_set_dsn(sentry_options_t* opts, const char* dsn)
{
    opts->calls.push_back(std::string("dsn ") + dsn);
}

void sentry_options_set_database_path(sentry_options_t* opts, const char* path)
{
    opts->calls.push_back(std::string("database path ") + path);
}

void sentry_options_set_release(sentry_options_t* opts, const char* release)
{
    opts->calls.push_back(std::string("release ") + release);
}

void sentry_options_set_debug(sentry_options_t* opts, int debug)
{
    opts->calls.push_back("debug " + std::to_string(debug));
}

int sentry_init(sentry_options_t* options)
{
    const std::unique_ptr<sentry_options_t> owned(options);
    --g_livingObjects;
    g_sentry = {.isStarted = true, .options = std::move(owned->calls), .onClose = std::move(g_sentry.onClose)};
    return 0;
}

int sentry_close(void)
{
    ++g_sentry.closes;
    if (std::exchange(g_sentry.isStarted, false))
    {
        g_sentry.onClose();
    }
    return 0;
}

void sentry_add_breadcrumb(sentry_value_t breadcrumb)
{
    Keep(breadcrumb, g_sentry.breadcrumbs);
}

sentry_uuid_t sentry_capture_event(sentry_value_t event)
{
    Keep(event, g_sentry.events);
    return {};
}
}
