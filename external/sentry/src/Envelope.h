#pragma once

#include "Timestamp.h"

#include <sentry.h>

#include <deque>
#include <optional>
#include <string>
#include <string_view>

// What is sent, in the documented forms: an event is a JSON object, and an envelope is lines of JSON headers with the
// event, and what is attached to it, in between. Texts that are no UTF-8 come out with replacement characters.
namespace Reporter
{

// A breadcrumb as JSON. A type that is none and an empty message are left out.
std::string MakeBreadcrumb(const Timestamp& timestamp, const std::optional<std::string>& type,
                           const std::string& message);

// What every event of a run says.
struct Origin
{
    std::string release;
    std::string environment;
};

// An event that carries a message.
struct Message
{
    sentry_level_t level = SENTRY_LEVEL_INFO;
    std::string logger;
    std::string text;
};

// A complete envelope with an event that carries a message. `id` is the event's, in hexadecimal digits; breadcrumbs are
// those of MakeBreadcrumb, oldest first.
std::string MakeEnvelope(const Origin& origin, const std::string& id, const Message& message,
                         const std::deque<std::string>& breadcrumbs);

// An envelope with a crash, made while all is well: what a dying process must do is put in the time, the code and the
// breadcrumbs. The pieces follow each other as `head`, the breadcrumbs with commas in between, `tail`.
struct CrashEnvelope
{
    std::string head;
    std::size_t timestampOffset = 0; // in the head, of a Timestamp
    std::size_t codeOffset = 0;      // in the head, of eight hexadecimal digits
    std::string tail;
};
CrashEnvelope MakeCrashEnvelope(const Origin& origin, const std::string& id);

// An envelope as it goes out: with the time of sending and, unless the minidump is empty, with the minidump attached.
// Nothing when the text is no envelope of an event.
std::optional<std::string> PrepareToSend(std::string_view envelope, std::string_view minidump, const Timestamp& now);

// Whether these bytes begin as a minidump does.
bool IsMinidump(std::string_view bytes);

} // namespace Reporter
