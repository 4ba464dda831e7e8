// For tests: what the stand-in for sentry-native was told. Nothing of this is in the library itself.
#pragma once

#include <sentry.h>

#include <optional>
#include <string>
#include <vector>

namespace SentryTesting
{

struct Breadcrumb
{
    std::optional<std::string> type; // nothing: null
    std::string message;             // one that was null is empty

    bool operator==(const Breadcrumb&) const = default;
};

struct Event
{
    sentry_level_t level = SENTRY_LEVEL_INFO;
    std::string logger;
    std::string message;
    std::vector<Breadcrumb> breadcrumbs; // those there were when it was captured, oldest first

    bool operator==(const Event&) const = default;
};

// One run: from sentry_init on.
struct Run
{
    bool isStarted = false; // and not closed
    std::string dsn;
    std::string databasePath;
    std::string release;
    bool debug = false;
    std::vector<std::string> options;    // the names of those that were set, in the order of the calls
    int closes = 0;                      // calls of sentry_close since it was started
    std::vector<Breadcrumb> breadcrumbs; // oldest first
    std::vector<Event> events;           // in the order of their capture
};

// A copy of the run that is under way or, when there is none, of the last one.
Run CurrentRun();

// Ends the run and forgets it.
void Forget();

// From now on runs send nothing, whatever their DSN is, or send again.
void SetOffline(bool isOffline);

// How many values and options live: made, and neither freed nor taken over.
int LivingObjects();

} // namespace SentryTesting
