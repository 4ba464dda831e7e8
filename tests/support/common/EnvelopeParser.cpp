#include "support/common/EnvelopeParser.h"

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
    const auto object = [](const nlohmann::json& parent, const char* name) {
        return parent.is_object() ? parent.value(name, nlohmann::json()) : nlohmann::json();
    };
    struct Field
    {
        const char* name;
        const char* pattern;
        bool isOptional = false;
    };
    for (const Field& field :
         {Field{"event_id", "[0-9a-f]{8}-?([0-9a-f]{4}-?){3}[0-9a-f]{12}"}, // dashes are taken, too
          Field{"timestamp", c_timestamp, event.contains("exception")}, Field{"platform", "native"},
          Field{"level", "fatal|error|warning|info|debug"}, Field{"logger", ".{1,64}", true},
          Field{"release", R"([^\s/\\]{1,200})", true}, Field{"environment", R"([^\s/]{1,64})", true}})
    {
        check((field.isOptional && !event.contains(field.name)) || Matches(event, field.name, field.pattern),
              field.name);
    }
    check(Matches(object(event, "sdk"), "name", "[a-z.]+") &&
              Matches(object(event, "sdk"), "version", R"(\d+\.\d+\.\d+)"),
          "sdk");
    check(Matches(object(object(event, "contexts"), "os"), "name", "Windows"), "contexts");
    if (event.contains("message"))
    {
        const nlohmann::json text = object(event["message"], "formatted");
        check(text.is_string() && text.get<std::string>().size() <= 8192, "message");
    }
    if (event.contains("breadcrumbs"))
    {
        check(event["breadcrumbs"].is_array() && event["breadcrumbs"].size() <= 100, "breadcrumbs");
        for (const nlohmann::json& breadcrumb : event["breadcrumbs"])
        {
            check(Matches(breadcrumb, "timestamp", c_timestamp), "breadcrumb's timestamp");
            check(object(breadcrumb, "message").is_string() || !breadcrumb.contains("message"), "breadcrumb's message");
            check(object(breadcrumb, "type").is_string() || !breadcrumb.contains("type"), "breadcrumb's type");
        }
    }
    if (event.contains("exception"))
    {
        const nlohmann::json values = object(event["exception"], "values");
        check(values.is_array() && values.size() == 1 && Matches(values[0], "type", ".+"), "exception");
    }
    return faults;
}

} // namespace Testing
