#include "support/EnvelopeParser.h"

#include <regex>
#include <stdexcept>

namespace Testing
{

namespace
{

// Takes a line off the text; the last one may lack its end.
std::string_view TakeLine(std::string_view& text)
{
    const auto end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

bool Matches(const nlohmann::json& json, const char* name, const char* pattern)
{
    return json.contains(name) && json[name].is_string() &&
           std::regex_match(json[name].get<std::string>(), std::regex(pattern));
}

constexpr const char* c_timestamp = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d{1,6})?Z)";

} // namespace

ParsedEnvelope ParseEnvelope(std::string_view text)
{
    ParsedEnvelope envelope;
    envelope.header = nlohmann::json::parse(TakeLine(text));
    while (!text.empty())
    {
        EnvelopeItem item;
        item.header = nlohmann::json::parse(TakeLine(text));
        if (!item.header.at("type").is_string())
        {
            throw std::runtime_error("an item without a type");
        }
        if (item.header.contains("length"))
        {
            const auto length = item.header["length"].get<std::size_t>();
            if (text.size() < length)
            {
                throw std::runtime_error("an item that is shorter than it says");
            }
            item.payload = text.substr(0, length);
            text.remove_prefix(length);
            if (!text.empty() && !TakeLine(text).empty())
            {
                throw std::runtime_error("an item that is longer than it says");
            }
        }
        else
        {
            item.payload = TakeLine(text);
        }
        envelope.items.push_back(std::move(item));
    }
    return envelope;
}

nlohmann::json EventOf(const ParsedEnvelope& envelope)
{
    nlohmann::json event;
    for (const EnvelopeItem& item : envelope.items)
    {
        if (item.header["type"] == "event")
        {
            if (!event.is_null())
            {
                throw std::runtime_error("two events in one envelope");
            }
            event = nlohmann::json::parse(item.payload);
        }
    }
    if (event.is_null() || event.at("event_id") != envelope.header.at("event_id"))
    {
        throw std::runtime_error("an envelope without the event that it names");
    }
    return event;
}

std::vector<std::string> FaultsOf(const nlohmann::json& event)
{
    std::vector<std::string> faults;
    const auto check = [&](bool isRight, const char* fault) {
        if (!isRight)
        {
            faults.emplace_back(fault);
        }
    };
    // Dashes are against the documentation, and taken.
    check(Matches(event, "event_id", "[0-9a-f]{8}-?([0-9a-f]{4}-?){3}[0-9a-f]{12}"), "event_id");
    check(Matches(event, "timestamp", c_timestamp) || event.contains("exception"), "timestamp");
    check(Matches(event, "platform", "native"), "platform");
    check(Matches(event, "level", "fatal|error|warning|info|debug"), "level");
    check(!event.contains("logger") || Matches(event, "logger", ".{1,64}"), "logger");
    check(!event.contains("release") || Matches(event, "release", R"([^\s/\\]{1,200})"), "release");
    check(!event.contains("environment") || Matches(event, "environment", R"([^\s/]{1,64})"), "environment");
    check(event.contains("sdk") && Matches(event["sdk"], "name", "[a-z.]+") &&
              Matches(event["sdk"], "version", R"(\d+\.\d+\.\d+)"),
          "sdk");
    if (event.contains("message"))
    {
        check(event["message"].is_object() && event["message"].contains("formatted") &&
                  event["message"]["formatted"].is_string() &&
                  event["message"]["formatted"].get<std::string>().size() <= 8192,
              "message");
    }
    check(event.contains("contexts") && event["contexts"].is_object() && event["contexts"].contains("os") &&
              Matches(event["contexts"]["os"], "name", "Windows"),
          "contexts");
    if (event.contains("breadcrumbs"))
    {
        check(event["breadcrumbs"].is_array() && event["breadcrumbs"].size() <= 100, "breadcrumbs");
        std::string last;
        for (const nlohmann::json& breadcrumb : event["breadcrumbs"])
        {
            check(Matches(breadcrumb, "timestamp", c_timestamp), "breadcrumb's timestamp");
            check(!breadcrumb.contains("message") || breadcrumb["message"].is_string(), "breadcrumb's message");
            check(!breadcrumb.contains("type") || breadcrumb["type"].is_string(), "breadcrumb's type");
        }
    }
    if (event.contains("exception"))
    {
        check(event["exception"].contains("values") && event["exception"]["values"].is_array() &&
                  event["exception"]["values"].size() == 1 && Matches(event["exception"]["values"][0], "type", ".+"),
              "exception");
    }
    return faults;
}

} // namespace Testing
