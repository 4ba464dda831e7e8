#pragma once

#include "Dsn.h"

#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Reporter
{

// What the server has answered. Headers that it did not send are empty.
struct HttpAnswer
{
    unsigned status = 0;
    std::string rateLimits;
    std::string retryAfter;
};

// The way to the server that a DSN names: WinHTTP with the system's proxy, with a verified certificate for https,
// without redirections, cookies and credentials. The library is loaded when it is first needed, from the system's
// folder.
class Http
{
public:
    explicit Http(Dsn dsn);
    ~Http();
    Http(const Http&) = delete;
    Http& operator=(const Http&) = delete;

    // Sends an envelope and waits for the answer's headers. Nothing when none came: no server, a broken connection, a
    // certificate that does not hold, a minute without an answer, or `stop` was set meanwhile.
    std::optional<HttpAnswer> Post(std::string_view envelope, HANDLE stop);

private:
    struct Connection;

    std::unique_ptr<Connection> Connect() const;

    Dsn m_dsn;
    std::unique_ptr<Connection> m_connection;
};

} // namespace Reporter
