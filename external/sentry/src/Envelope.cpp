#include "Envelope.h"

#include "Library.h"

#include <windows.h>

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

namespace Reporter
{

namespace
{

using Json = nlohmann::ordered_json;

constexpr const char* c_sdkName = "sentry.native.velmora";
constexpr Timestamp c_anyTime{'2', '0', '0', '0', '-', '0', '1', '-', '0', '1', 'T', '0',
                              '0', ':', '0', '0', ':', '0', '0', '.', '0', '0', '0', 'Z'};
constexpr std::string_view c_codePrefix = "Exception 0x";

std::string Write(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json Sdk()
{
    return {{"name", c_sdkName}, {"version", SENTRY_SDK_VERSION}};
}

const char* NameOf(sentry_level_t level)
{
    switch (level)
    {
    case SENTRY_LEVEL_WARNING:
        return "warning";
    case SENTRY_LEVEL_FATAL:
        return "fatal";
    case SENTRY_LEVEL_ERROR:
    default:
        return "error";
    }
}

// RtlGetVersion does not depend on the program's manifest.
Json OperatingSystem()
{
    Json os{{"name", "Windows"}};
    using Function = LONG(WINAPI*)(OSVERSIONINFOW*);
    const auto getVersion = FindFunction<Function>(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion");
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    if (getVersion && getVersion(&version) == 0)
    {
        os["version"] = std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + "." +
                        std::to_string(version.dwBuildNumber);
        os["build"] = std::to_string(version.dwBuildNumber);
    }
    return os;
}

Json Device()
{
    SYSTEM_INFO system{};
    GetNativeSystemInfo(&system);
    Json device = Json::object();
    if (system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64)
    {
        device["arch"] = "x86_64";
    }
    else if (system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_ARM64)
    {
        device["arch"] = "arm64";
    }
    device["processor_count"] = system.dwNumberOfProcessors;
    return device;
}

void AddText(Json& json, const char* name, const std::string& text)
{
    if (!text.empty())
    {
        json[name] = text;
    }
}

Json MakeEvent(const Origin& origin, const std::string& id, const Timestamp& timestamp, sentry_level_t level)
{
    Json event{{"event_id", id}, {"timestamp", ToText(timestamp)}, {"platform", "native"}, {"level", NameOf(level)}};
    AddText(event, "release", origin.release);
    AddText(event, "environment", origin.environment);
    event["sdk"] = Sdk();
    event["contexts"] = {{"os", OperatingSystem()}, {"device", Device()}};
    return event;
}

// The envelope's header and the event item's. Without a length, the item ends with its line.
std::string MakeHeaders(const std::string& id)
{
    return Write({{"event_id", id}, {"sdk", Sdk()}}) + "\n" +
           Write({{"type", "event"}, {"content_type", "application/json"}}) + "\n";
}

// An event whose last member, the array of breadcrumbs, is still open.
std::string WriteUpToBreadcrumbs(Json event)
{
    event["breadcrumbs"] = Json::array();
    std::string text = Write(event);
    text.resize(text.size() - std::string_view("]}").size());
    return text;
}

// The offset after a part of a JSON text. A part with quotation marks is not found within a value.
std::size_t EndOf(std::string_view text, std::string_view part)
{
    return text.find(part) + part.size();
}

} // namespace

std::string MakeBreadcrumb(const Timestamp& timestamp, const char* type, const std::string& message)
{
    Json breadcrumb{{"timestamp", ToText(timestamp)}};
    if (type)
    {
        breadcrumb["type"] = type;
    }
    AddText(breadcrumb, "message", message);
    return Write(breadcrumb);
}

std::string MakeEnvelope(const Origin& origin, const std::string& id, const Message& message,
                         const std::deque<std::string>& breadcrumbs)
{
    Json event = MakeEvent(origin, id, TimestampNow(), message.level);
    AddText(event, "logger", message.logger);
    event["message"] = {{"formatted", message.text}};
    std::string text = MakeHeaders(id) + WriteUpToBreadcrumbs(std::move(event));
    for (const std::string& breadcrumb : breadcrumbs)
    {
        text += (&breadcrumb == &breadcrumbs.front() ? "" : ",") + breadcrumb;
    }
    return text + "]}\n";
}

CrashEnvelope MakeCrashEnvelope(const Origin& origin, const std::string& id)
{
    Json event = MakeEvent(origin, id, c_anyTime, SENTRY_LEVEL_FATAL);
    Json exception{{"type", std::string(c_codePrefix) + "00000000"}};
    exception["mechanism"] = {{"type", "minidump"}, {"handled", false}, {"synthetic", true}};
    event["exception"] = {{"values", Json::array({std::move(exception)})}};
    CrashEnvelope envelope;
    envelope.head = MakeHeaders(id) + WriteUpToBreadcrumbs(std::move(event));
    envelope.timestampOffset = EndOf(envelope.head, R"("timestamp":")");
    envelope.codeOffset = EndOf(envelope.head, R"("type":")" + std::string(c_codePrefix));
    envelope.tail = "]}\n";
    return envelope;
}

std::optional<std::string> PrepareToSend(std::string_view envelope, std::string_view minidump, const Timestamp& now)
{
    const auto headerEnd = envelope.find('\n');
    if (headerEnd == std::string_view::npos)
    {
        return std::nullopt;
    }
    const Json header = Json::parse(envelope.substr(0, headerEnd), nullptr, false);
    if (!header.is_object() || !header.contains("event_id") || !header["event_id"].is_string())
    {
        return std::nullopt;
    }
    // Nothing else of the header is sent: others may be able to write the file.
    std::string text = Write({{"event_id", header["event_id"]}, {"sdk", Sdk()}, {"sent_at", ToText(now)}});
    text += envelope.substr(headerEnd);
    if (!minidump.empty())
    {
        if (!text.ends_with('\n')) // cut off
        {
            text += '\n';
        }
        text += Write({{"type", "attachment"},
                       {"attachment_type", "event.minidump"},
                       {"filename", "crash.dmp"},
                       {"content_type", "application/x-dmp"},
                       {"length", minidump.size()}});
        text += '\n';
        text += minidump;
        text += '\n';
    }
    return text;
}

bool IsMinidump(std::string_view bytes)
{
    return bytes.starts_with("MDMP");
}

} // namespace Reporter
