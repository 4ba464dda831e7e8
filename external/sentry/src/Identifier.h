#pragma once

#include <sentry.h>

#include <string>

namespace Reporter
{

// A random UUID (version 4).
sentry_uuid_t NewId();

// 32 hexadecimal digits in lower case.
std::string ToHex(const sentry_uuid_t& id);

} // namespace Reporter
