#include "sentry.h"

#include "Crash.h"
#include "Dsn.h"
#include "Envelope.h"
#include "Identifier.h"
#include "Store.h"
#include "Timestamp.h"
#include "Transport.h"
#include "sentry_testing.h"

#include <windows.h>

#include <wil/resource.h>

#include <atomic>
#include <deque>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace
{

using SentryTesting::Breadcrumb;
using SentryTesting::Event;
using SentryTesting::Run;

constexpr size_t c_breadcrumbLimit = 100;

// How long sentry_close waits for what is not sent yet, in milliseconds.
constexpr DWORD c_closeLimit = 2000;

constexpr const char* c_defaultEnvironment = "production";

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
    Reporter::Timestamp timestamp = Reporter::TimestampNow();
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

// A run: from sentry_init to sentry_close, and what it has kept beyond that.
struct Session
{
    Run run;
    Reporter::Origin origin;
    std::deque<std::string> breadcrumbs; // as JSON, oldest first
    // Null where there is no database folder, or nothing can be done there:
    std::shared_ptr<Reporter::Store> store;
    std::unique_ptr<Reporter::CrashHandler> crashHandler;
    // Null without an address to send to:
    std::unique_ptr<Reporter::Transport> transport;
};

wil::srwlock g_lock; // one of Windows': the runtime's take memory, and throw without it
Session g_session;
bool g_isOffline = false;

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

// The value of an environment variable in UTF-8; empty when there is none.
std::string ReadEnvironment(const wchar_t* name)
{
    const wchar_t* const value = _wgetenv(name);
    if (!value)
    {
        return {};
    }
    std::string text(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, value, -1, nullptr, 0, nullptr, nullptr)),
                     '\0');
    WideCharToMultiByte(CP_UTF8, 0, value, -1, text.data(), static_cast<int>(text.size()), nullptr, nullptr);
    text.resize(text.empty() ? 0 : text.size() - 1); // less the final zero
    return text;
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

// Sends what other runs have left, if there is any.
void SendLeft(Session& session)
{
    if (session.store && session.store->HasLeft())
    {
        session.transport->SendLeft();
    }
}

// Ends a run. Returns how many of its envelopes are left on the disk.
int Close(Session& session)
{
    session.run.isStarted = false;
    if (session.transport)
    {
        // A run that was still ending when this one began has ended by now: what it did not get sent is in nobody's
        // hands.
        Try([&] { SendLeft(session); });
        Try([&] { session.transport->Close(c_closeLimit); });
        session.transport.reset();
    }
    session.crashHandler.reset();
    const size_t left = session.store ? Try([&] { return session.store->Count(); }) : 0;
    session.store.reset();
    return static_cast<int>(left);
}

void OpenStore(Session& session)
{
    if (session.run.databasePath.empty())
    {
        return;
    }
    session.store = Reporter::Store::Open(session.run.databasePath);
    if (session.store)
    {
        const std::string id = Reporter::ToHex(Reporter::NewId());
        session.crashHandler = std::make_unique<Reporter::CrashHandler>(
            Reporter::CrashPlan{.envelope = Reporter::MakeCrashEnvelope(session.origin, id),
                                .envelopePath = session.store->EnvelopePath(id),
                                .minidumpPath = session.store->MinidumpPath(id)});
    }
}

void OpenTransport(Session& session)
{
    const auto dsn = Reporter::ParseDsn(session.run.dsn);
    if (!dsn || Reporter::LeadsNowhere(*dsn) || g_isOffline)
    {
        return;
    }
    session.transport = std::make_unique<Reporter::Transport>(*dsn, session.store);
    SendLeft(session);
}

void AddBreadcrumb(Session& session, const Value& value, const Breadcrumb& breadcrumb)
{
    const std::string text = Reporter::MakeBreadcrumb(value.timestamp, breadcrumb.type, breadcrumb.message);
    session.run.breadcrumbs.push_back(breadcrumb);
    session.breadcrumbs.push_back(text);
    if (session.breadcrumbs.size() > c_breadcrumbLimit)
    {
        session.breadcrumbs.pop_front();
        session.run.breadcrumbs.erase(session.run.breadcrumbs.begin());
    }
    if (session.crashHandler)
    {
        session.crashHandler->AddBreadcrumb(text);
    }
}

sentry_uuid_t Capture(Session& session, const Event& event)
{
    const sentry_uuid_t id = Reporter::NewId();
    Event kept = event;
    kept.breadcrumbs = session.run.breadcrumbs;
    session.run.events.push_back(std::move(kept));
    if (session.transport)
    {
        std::string hex = Reporter::ToHex(id);
        std::string envelope = Reporter::MakeEnvelope(
            session.origin, hex, {.level = event.level, .logger = event.logger, .text = event.message},
            session.breadcrumbs);
        if (session.store)
        {
            session.store->Keep(hex, envelope);
        }
        session.transport->Send(std::move(hex), std::move(envelope));
    }
    return id;
}

} // namespace

struct sentry_options_s : Counted
{
    Run run;
    std::string environment;
};

namespace
{

// Sets an option of that name.
template <class Function>
void Set(sentry_options_t& options, const char* name, Function function) noexcept
{
    Try([&] {
        function(options.run);
        options.run.options.emplace_back(name);
    });
}

} // namespace

extern "C" {

void sentry_value_decref(sentry_value_t value)
{
    Take(value).reset();
}

sentry_value_t sentry_value_new_breadcrumb(const char* type, const char* message)
{
    return Try([&] {
        return NewValue(
            Breadcrumb{.type = type ? std::optional<std::string>(type) : std::nullopt, .message = ToText(message)});
    });
}

sentry_value_t sentry_value_new_message_event(sentry_level_t level, const char* logger, const char* text)
{
    return Try([&] {
        return NewValue(Event{.level = level, .logger = ToText(logger), .message = ToText(text), .breadcrumbs = {}});
    });
}

sentry_options_t* sentry_options_new(void)
{
    return Try([] {
        auto options = std::make_unique<sentry_options_t>();
        options->run.release = ReadEnvironment(L"SENTRY_RELEASE");
        options->environment = ReadEnvironment(L"SENTRY_ENVIRONMENT");
        return options.release();
    });
}

void sentry_options_free(sentry_options_t* opts)
{
    delete opts;
}

void sentry_options_set_dsn(sentry_options_t* opts, const char* dsn)
{
    if (opts)
    {
        Set(*opts, "dsn", [&](Run& run) { run.dsn = ToText(dsn); });
    }
}

void sentry_options_set_database_path(sentry_options_t* opts, const char* path)
{
    if (opts)
    {
        Set(*opts, "database path", [&](Run& run) { run.databasePath = ToText(path); });
    }
}

void sentry_options_set_release(sentry_options_t* opts, const char* release)
{
    if (opts)
    {
        Set(*opts, "release", [&](Run& run) { run.release = ToText(release); });
    }
}

void sentry_options_set_debug(sentry_options_t* opts, int debug)
{
    if (opts)
    {
        Set(*opts, "debug", [&](Run& run) { run.debug = debug != 0; });
    }
}

int sentry_init(sentry_options_t* options)
{
    const std::unique_ptr<sentry_options_t> owner(options);
    const auto held = g_lock.lock_exclusive();
    Close(g_session);
    if (!options)
    {
        return 1;
    }
    const bool isStarted = Try([&] {
        g_session = {};
        g_session.origin = {.release = options->run.release,
                            .environment = options->environment.empty() ? c_defaultEnvironment : options->environment};
        g_session.run = std::move(options->run);
        g_session.run.isStarted = true;
        return true;
    });
    if (!isStarted)
    {
        return 1;
    }
    // A run without a folder, or without an address, is a run nonetheless.
    Try([] { OpenStore(g_session); });
    Try([] { OpenTransport(g_session); });
    return 0;
}

int sentry_close(void)
{
    const auto held = g_lock.lock_exclusive();
    ++g_session.run.closes;
    return Close(g_session);
}

void sentry_add_breadcrumb(sentry_value_t breadcrumb)
{
    const OwnedValue value = Take(breadcrumb);
    const auto held = g_lock.lock_exclusive();
    const auto* const content = value ? std::get_if<Breadcrumb>(&value->content) : nullptr;
    if (g_session.run.isStarted && content)
    {
        Try([&] { AddBreadcrumb(g_session, *value, *content); });
    }
}

sentry_uuid_t sentry_capture_event(sentry_value_t event)
{
    const OwnedValue value = Take(event);
    const auto held = g_lock.lock_exclusive();
    const auto* const content = value ? std::get_if<Event>(&value->content) : nullptr;
    if (!g_session.run.isStarted || !content)
    {
        return {};
    }
    return Try([&] { return Capture(g_session, *content); });
}
}

namespace SentryTesting
{

Run CurrentRun()
{
    const auto held = g_lock.lock_exclusive();
    return g_session.run;
}

void Forget()
{
    const auto held = g_lock.lock_exclusive();
    Close(g_session);
    g_session = {};
}

void SetOffline(bool isOffline)
{
    const auto held = g_lock.lock_exclusive();
    g_isOffline = isOffline;
}

int LivingObjects()
{
    return g_livingObjects;
}

} // namespace SentryTesting
