#include "Dsn.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace Reporter
{

namespace
{

constexpr std::string_view c_reservedName = "invalid";

bool IsOneOf(std::string_view text, std::string_view marks)
{
    return !text.empty() && std::ranges::all_of(text, [&](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || marks.find(c) != std::string_view::npos;
    });
}

std::string ToLower(std::string_view text)
{
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(),
                           [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    return lower;
}

// Takes what stands before a mark off the text, with the mark.
std::optional<std::string_view> TakeUntil(std::string_view& text, std::string_view mark)
{
    const auto end = text.find(mark);
    if (end == std::string_view::npos)
    {
        return std::nullopt;
    }
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(end + mark.size());
    return taken;
}

std::optional<std::uint16_t> ParsePort(std::string_view text)
{
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0)
    {
        return std::nullopt;
    }
    return port;
}

// Parses "host[:port]".
bool ParseAuthority(std::string_view text, Dsn& dsn)
{
    dsn.port = dsn.isSecure ? 443 : 80;
    const bool isAddress = text.starts_with('[');
    const auto hostEnd = isAddress ? text.find(']') : text.find(':');
    if (isAddress && hostEnd == std::string_view::npos)
    {
        return false;
    }
    const std::string_view host = text.substr(0, isAddress ? hostEnd + 1 : hostEnd);
    text.remove_prefix(host.size());
    if (!text.empty())
    {
        const auto port = text.starts_with(':') ? ParsePort(text.substr(1)) : std::nullopt;
        if (!port)
        {
            return false;
        }
        dsn.port = *port;
    }
    dsn.host = host;
    return isAddress ? IsOneOf(host.substr(1, host.size() - 2), ":.") : IsOneOf(host, "-._");
}

} // namespace

std::optional<Dsn> ParseDsn(std::string_view text)
{
    Dsn dsn;
    const auto scheme = TakeUntil(text, "://");
    const auto authority = TakeUntil(text, "/"); // with the key
    if (!scheme || !authority)
    {
        return std::nullopt;
    }
    dsn.isSecure = ToLower(*scheme) == "https";
    if (!dsn.isSecure && ToLower(*scheme) != "http")
    {
        return std::nullopt;
    }

    std::string_view host = *authority;
    const auto keys = TakeUntil(host, "@");
    if (!keys || !ParseAuthority(host, dsn))
    {
        return std::nullopt;
    }
    dsn.publicKey = keys->substr(0, keys->find(':'));

    while (text.ends_with('/'))
    {
        text.remove_suffix(1);
    }
    const auto projectBegin = text.rfind('/') + 1; // 0 when there is no slash
    const std::string_view project = text.substr(projectBegin);
    const std::string_view prefix = text.substr(0, projectBegin);
    if (!IsOneOf(dsn.publicKey, "-_") || !IsOneOf(project, "-_") || !(prefix.empty() || IsOneOf(prefix, "-._~/")))
    {
        return std::nullopt;
    }
    dsn.path = "/" + std::string(prefix) + "api/" + std::string(project) + "/envelope/";
    return dsn;
}

bool IsReserved(const Dsn& dsn)
{
    std::string host = ToLower(dsn.host);
    if (host.ends_with('.'))
    {
        host.pop_back();
    }
    return host == c_reservedName || host.ends_with("." + std::string(c_reservedName));
}

} // namespace Reporter
