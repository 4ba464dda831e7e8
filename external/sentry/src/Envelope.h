#pragma once

#include "Timestamp.h"

#include <sentry.h>

#include <deque>
#include <optional>
#include <string>
#include <string_view>

// Events and envelopes as the ingestion service documents them. Invalid UTF-8 is replaced.
namespace Reporter
{

// A breadcrumb as JSON. A type that is null and an empty message are left out.
std::string MakeBreadcrumb(const Timestamp& timestamp, const char* type, const std::string& message);

struct Origin
{
    std::string release;
    std::string environment;
};

struct Message
{
    sentry_level_t level = SENTRY_LEVEL_ERROR;
    std::string logger;
    std::string text;
};

// An envelope with a message event. `id` is the event's, in hexadecimal; breadcrumbs are those of MakeBreadcrumb,
// oldest first.
std::string MakeEnvelope(const Origin& origin, const std::string& id, const Message& message,
                         const std::deque<std::string>& breadcrumbs);

// A template of an envelope for a crash, in which the dying process fills in the time and the code. It writes `head`,
// the breadcrumbs separated by commas, `tail`.
struct CrashEnvelope
{
    std::string head;
    std::size_t timestampOffset = 0; // in the head, of a Timestamp
    std::size_t codeOffset = 0;      // in the head, of eight hexadecimal digits
    std::string tail;
};
CrashEnvelope MakeCrashEnvelope(const Origin& origin, const std::string& id);

// Adds the time of sending and, unless it is empty, the minidump as an attachment. Nothing when the text is no envelope
// of an event.
std::optional<std::string> PrepareToSend(std::string_view envelope, std::string_view minidump, const Timestamp& now);

bool IsMinidump(std::string_view bytes);

} // namespace Reporter
