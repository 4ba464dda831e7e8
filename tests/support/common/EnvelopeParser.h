#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace Testing
{

// One item of an envelope.
struct EnvelopeItem
{
    nlohmann::json header;
    std::string payload;
};

struct ParsedEnvelope
{
    nlohmann::json header;
    std::vector<EnvelopeItem> items;
};

// Reads an envelope as the ingestion service's documentation describes it. Throws std::runtime_error, or the JSON
// library's exception, when it is none.
ParsedEnvelope ParseEnvelope(std::string_view text);

// The event of an envelope that has exactly one. Throws the same.
nlohmann::json EventOf(const ParsedEnvelope& envelope);

// What is wrong with an event by that documentation, one line each; nothing when all is well.
std::vector<std::string> FaultsOf(const nlohmann::json& event);

} // namespace Testing
