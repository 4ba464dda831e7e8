#pragma once

#include <sentry.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Testing
{

struct Breadcrumb
{
    std::optional<std::string> type;
    std::string message;

    bool operator==(const Breadcrumb&) const = default;
};

struct SentryEvent
{
    sentry_level_t level;
    std::string logger;
    std::string message;

    bool operator==(const SentryEvent&) const = default;
};

// What sentry-native was told, whose functions this program defines itself. It begins anew with every test and with
// every sentry_init; without a run, breadcrumbs and events are dropped. Sends nothing, writes nothing.
struct FakeSentry
{
    bool isStarted = false;                // and not closed
    std::vector<std::string> options;      // each with its value, in the order of the calls
    int closes = 0;                        // since the start
    std::vector<Breadcrumb> breadcrumbs{}; // oldest first
    std::vector<SentryEvent> events{};
    std::function<void()> onClose = [] {}; // called when a run ends; stays through sentry_init
};

FakeSentry& Sentry();

} // namespace Testing
