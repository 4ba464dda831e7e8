#include "sentry.h"

#include "Crash.h"
#include "Dsn.h"
#include "Envelope.h"
#include "Identifier.h"
#include "Store.h"
#include "Timestamp.h"
#include "Transport.h"

#include <windows.h>

#include <wil/resource.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

struct sentry_options_s
{
    std::string dsn;
    std::string databasePath;
    Reporter::Origin origin;
};

namespace
{

constexpr size_t c_breadcrumbLimit = 100;

// How long sentry_close waits for the transport, in milliseconds.
constexpr DWORD c_closeLimit = 2000;

// What a sentry_value_t points to: a breadcrumb as JSON, or an event.
using Value = std::variant<std::string, Reporter::Message>;

// From sentry_init to sentry_close.
struct Session
{
    explicit Session(Reporter::Origin its) : origin(std::move(its)) {}

    Reporter::Origin origin;
    std::deque<std::string> breadcrumbs; // as JSON, oldest first
    // Null without a usable database folder:
    std::shared_ptr<Reporter::Store> store;
    std::unique_ptr<Reporter::CrashHandler> crashHandler;
    // Null without an address to send to:
    std::unique_ptr<Reporter::Transport> transport;
};

wil::srwlock g_lock; // the runtime's locks allocate when they are first used
std::unique_ptr<Session> g_session;

std::string ToText(const char* text)
{
    return text ? text : "";
}

sentry_value_t NewValue(Value content)
{
    sentry_value_t value{};
    value._bits = reinterpret_cast<uint64_t>(std::make_unique<Value>(std::move(content)).release());
    return value;
}

std::unique_ptr<Value> TakeOver(sentry_value_t value) noexcept
{
    return std::unique_ptr<Value>(reinterpret_cast<Value*>(value._bits));
}

// The variable SENTRY_ENVIRONMENT in UTF-8.
std::string ReadEnvironment()
{
    constexpr const wchar_t* c_name = L"SENTRY_ENVIRONMENT";
    std::wstring value(GetEnvironmentVariableW(c_name, nullptr, 0), L'\0'); // with the terminator
    if (value.size() <= 1)
    {
        return "production";
    }
    GetEnvironmentVariableW(c_name, value.data(), static_cast<DWORD>(value.size()));
    std::string text(
        static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, value.c_str(), -1, nullptr, 0, nullptr, nullptr)), '\0');
    WideCharToMultiByte(CP_UTF8, 0, value.c_str(), -1, text.data(), static_cast<int>(text.size()), nullptr, nullptr);
    text.pop_back(); // the terminator
    return text;
}

// Calls a function that may run out of memory: its result is then zero.
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

void SendPending(Session& session)
{
    if (session.store && session.store->HasPending())
    {
        session.transport->SendPending();
    }
}

// Ends the session, if there is one. Returns how many of its envelopes are pending.
int Close()
{
    const std::unique_ptr<Session> session = std::move(g_session);
    if (session && session->transport)
    {
        // The reports of a run that was not over when this one started.
        Try([&] { SendPending(*session); });
        session->transport->Close(c_closeLimit);
    }
    return session && session->store ? Try([&] { return static_cast<int>(session->store->Count()); }) : 0;
}

void OpenStore(Session& session, const std::string& databasePath)
{
    session.store = databasePath.empty() ? nullptr : Reporter::Store::Open(databasePath);
    if (session.store)
    {
        const std::string id = Reporter::ToHex(Reporter::NewId());
        session.crashHandler = std::make_unique<Reporter::CrashHandler>(
            Reporter::CrashPlan{.envelope = Reporter::MakeCrashEnvelope(session.origin, id),
                                .folder = session.store->DuplicateRunFolder(),
                                .envelopeName = Reporter::Store::EnvelopeName(id),
                                .minidumpName = Reporter::Store::MinidumpName(id)});
    }
}

void OpenTransport(Session& session, const std::string& text)
{
    const auto dsn = Reporter::ParseDsn(text);
    if (dsn && !Reporter::IsReserved(*dsn))
    {
        session.transport = std::make_unique<Reporter::Transport>(*dsn, session.store);
        SendPending(session);
    }
}

void AddBreadcrumb(Session& session, const std::string& breadcrumb)
{
    session.breadcrumbs.push_back(breadcrumb);
    if (session.breadcrumbs.size() > c_breadcrumbLimit)
    {
        session.breadcrumbs.pop_front();
    }
    if (session.crashHandler)
    {
        session.crashHandler->AddBreadcrumb(breadcrumb);
    }
}

sentry_uuid_t Capture(Session& session, const Reporter::Message& message)
{
    const sentry_uuid_t id = Reporter::NewId();
    if (session.transport)
    {
        std::string hex = Reporter::ToHex(id);
        std::string envelope = Reporter::MakeEnvelope(session.origin, hex, message, session.breadcrumbs);
        if (session.store)
        {
            session.store->Keep(hex, envelope);
        }
        session.transport->Send(std::move(hex), std::move(envelope));
    }
    return id;
}

void Set(std::string& option, const char* value) noexcept
{
    Try([&] { option = ToText(value); });
}

} // namespace

extern "C" {

sentry_value_t sentry_value_new_breadcrumb(const char* type, const char* message)
{
    return Try([&] { return NewValue(Reporter::MakeBreadcrumb(Reporter::TimestampNow(), type, ToText(message))); });
}

sentry_value_t sentry_value_new_message_event(sentry_level_t level, const char* logger, const char* text)
{
    return Try(
        [&] { return NewValue(Reporter::Message{.level = level, .logger = ToText(logger), .text = ToText(text)}); });
}

sentry_options_t* sentry_options_new(void)
{
    return Try([] {
        auto options = std::make_unique<sentry_options_t>();
        options->origin.environment = ReadEnvironment();
        return options.release();
    });
}

void sentry_options_set_dsn(sentry_options_t* opts, const char* dsn)
{
    if (opts)
    {
        Set(opts->dsn, dsn);
    }
}

void sentry_options_set_database_path(sentry_options_t* opts, const char* path)
{
    if (opts)
    {
        Set(opts->databasePath, path);
    }
}

void sentry_options_set_release(sentry_options_t* opts, const char* release)
{
    if (opts)
    {
        Set(opts->origin.release, release);
    }
}

void sentry_options_set_debug(sentry_options_t* /*opts*/, int /*debug*/) {}

int sentry_init(sentry_options_t* options)
{
    const std::unique_ptr<sentry_options_t> owned(options);
    const auto held = g_lock.lock_exclusive();
    Close();
    if (options)
    {
        Try([&] { g_session = std::make_unique<Session>(std::move(options->origin)); });
    }
    if (!g_session)
    {
        return 1;
    }
    // Either may be missing.
    Try([&] { OpenStore(*g_session, options->databasePath); });
    Try([&] { OpenTransport(*g_session, options->dsn); });
    return 0;
}

int sentry_close(void)
{
    const auto held = g_lock.lock_exclusive();
    return Close();
}

void sentry_add_breadcrumb(sentry_value_t breadcrumb)
{
    const std::unique_ptr<Value> value = TakeOver(breadcrumb);
    const auto held = g_lock.lock_exclusive();
    const auto* const text = std::get_if<std::string>(value.get());
    if (g_session && text)
    {
        Try([&] { AddBreadcrumb(*g_session, *text); });
    }
}

sentry_uuid_t sentry_capture_event(sentry_value_t event)
{
    const std::unique_ptr<Value> value = TakeOver(event);
    const auto held = g_lock.lock_exclusive();
    const auto* const message = std::get_if<Reporter::Message>(value.get());
    return g_session && message ? Try([&] { return Capture(*g_session, *message); }) : sentry_uuid_t{};
}
}
