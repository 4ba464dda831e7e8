#pragma once

#include <sentry.h>

#include <string>

namespace Reporter
{

// A new random id, marked as one (version 4).
sentry_uuid_t NewId();

// An id as reports have it: 32 hexadecimal digits in lower case.
std::string ToHex(const sentry_uuid_t& id);

} // namespace Reporter
