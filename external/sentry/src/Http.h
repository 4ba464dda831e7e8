#pragma once

#include "Dsn.h"

#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Reporter
{

// Headers that were not sent are empty.
struct HttpResponse
{
    unsigned status = 0;
    std::string rateLimits;
    std::string retryAfter;
};

// WinHTTP with the system's proxy and verified certificates, without redirects, cookies and credentials. It is loaded
// on first use.
class Http
{
public:
    explicit Http(Dsn dsn);
    ~Http();
    Http(const Http&) = delete;
    Http& operator=(const Http&) = delete;

    // Posts an envelope and waits for the response's headers. Nothing without a response within a minute, or when
    // `stop` is signalled.
    std::optional<HttpResponse> Post(std::string_view envelope, HANDLE stop);

private:
    struct Connection;

    std::unique_ptr<Connection> Connect() const;

    Dsn m_dsn;
    std::unique_ptr<Connection> m_connection;
};

} // namespace Reporter
