#include "sentry.h"

#include "sentry_testing.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <type_traits>
#include <utility>
#include <variant>

namespace
{

using SentryTesting::Breadcrumb;
using SentryTesting::Event;
using SentryTesting::Run;

constexpr size_t c_breadcrumbLimit = 100;

std::atomic<int> g_livingObjects;

// Counts itself among the living objects.
class Counted
{
public:
    Counted() noexcept { ++g_livingObjects; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() { --g_livingObjects; }
};

// What a sentry_value_t points to.
struct Value : Counted
{
    std::atomic<int> references = 1;
    std::variant<Breadcrumb, Event> content;
};

struct Dereference
{
    void operator()(Value* value) const noexcept
    {
        if (--value->references == 0)
        {
            delete value;
        }
    }
};

using OwnedValue = std::unique_ptr<Value, Dereference>;

std::mutex g_mutex;
Run g_run;

std::string ToText(const char* text)
{
    return text ? text : "";
}

sentry_value_t NewValue(std::variant<Breadcrumb, Event> content)
{
    auto value = std::make_unique<Value>();
    value->content = std::move(content);
    sentry_value_t result{};
    result._bits = reinterpret_cast<uint64_t>(value.release());
    return result;
}

// Takes a value over.
OwnedValue Take(sentry_value_t value) noexcept
{
    return OwnedValue(reinterpret_cast<Value*>(value._bits));
}

// A random id, marked as one.
sentry_uuid_t NewId()
{
    sentry_uuid_t id{};
    std::random_device random;
    for (size_t i = 0; i < sizeof(id.bytes); i += sizeof(unsigned int))
    {
        const unsigned int bits = random();
        std::memcpy(id.bytes + i, &bits, sizeof(bits));
    }
    id.bytes[6] = static_cast<char>((id.bytes[6] & 0x0F) | 0x40);
    id.bytes[8] = static_cast<char>((id.bytes[8] & 0x3F) | 0x80);
    return id;
}

// Calls something that may run out of memory; then the result is a zero.
template <class Function>
auto Try(Function function) noexcept
{
    using Result = std::invoke_result_t<Function>;
    try
    {
        return function();
    }
    catch (...)
    {
        return Result();
    }
}

} // namespace

struct sentry_options_s : Counted
{
    Run run;
};

extern "C" {

void sentry_value_decref(sentry_value_t value)
{
    Take(value).reset();
}

sentry_value_t sentry_value_new_breadcrumb(const char* type, const char* message)
{
    return Try([&] { return NewValue(Breadcrumb{.type = ToText(type), .message = ToText(message)}); });
}

sentry_value_t sentry_value_new_message_event(sentry_level_t level, const char* logger, const char* text)
{
    return Try([&] {
        return NewValue(Event{.level = level, .logger = ToText(logger), .message = ToText(text), .breadcrumbs = {}});
    });
}

sentry_options_t* sentry_options_new(void)
{
    return Try([] { return std::make_unique<sentry_options_t>().release(); });
}

void sentry_options_free(sentry_options_t* opts)
{
    delete opts;
}

void sentry_options_set_dsn(sentry_options_t* opts, const char* dsn)
{
    if (opts)
    {
        Try([&] { opts->run.dsn = ToText(dsn); });
    }
}

void sentry_options_set_database_path(sentry_options_t* opts, const char* path)
{
    if (opts)
    {
        Try([&] { opts->run.databasePath = ToText(path); });
    }
}

void sentry_options_set_release(sentry_options_t* opts, const char* release)
{
    if (opts)
    {
        Try([&] { opts->run.release = ToText(release); });
    }
}

void sentry_options_set_debug(sentry_options_t* opts, int debug)
{
    if (opts)
    {
        opts->run.debug = debug != 0;
    }
}

int sentry_init(sentry_options_t* options)
{
    const std::unique_ptr<sentry_options_t> owner(options);
    const std::scoped_lock lock(g_mutex);
    g_run.isStarted = false;
    if (!options)
    {
        return 1;
    }
    g_run = std::move(options->run);
    g_run.isStarted = true;
    return 0;
}

int sentry_close(void)
{
    const std::scoped_lock lock(g_mutex);
    g_run.isStarted = false;
    return 0;
}

void sentry_add_breadcrumb(sentry_value_t breadcrumb)
{
    const OwnedValue value = Take(breadcrumb);
    const std::scoped_lock lock(g_mutex);
    const auto* const content = value ? std::get_if<Breadcrumb>(&value->content) : nullptr;
    if (g_run.isStarted && content)
    {
        Try([&] {
            g_run.breadcrumbs.push_back(*content);
            if (g_run.breadcrumbs.size() > c_breadcrumbLimit)
            {
                g_run.breadcrumbs.erase(g_run.breadcrumbs.begin());
            }
        });
    }
}

sentry_uuid_t sentry_capture_event(sentry_value_t event)
{
    const OwnedValue value = Take(event);
    const std::scoped_lock lock(g_mutex);
    const auto* const content = value ? std::get_if<Event>(&value->content) : nullptr;
    if (!g_run.isStarted || !content)
    {
        return {};
    }
    return Try([&] {
        Event kept = *content;
        kept.breadcrumbs = g_run.breadcrumbs;
        const sentry_uuid_t id = NewId();
        g_run.events.push_back(std::move(kept));
        return id;
    });
}
}

namespace SentryTesting
{

Run CurrentRun()
{
    const std::scoped_lock lock(g_mutex);
    return g_run;
}

void Forget()
{
    const std::scoped_lock lock(g_mutex);
    g_run = {};
}

int LivingObjects()
{
    return g_livingObjects;
}

} // namespace SentryTesting
