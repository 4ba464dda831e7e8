#include "Identifier.h"

#include <cstring>
#include <random>
#include <string>

namespace Reporter
{

sentry_uuid_t NewId()
{
    sentry_uuid_t id{};
    std::random_device random;
    for (size_t i = 0; i < sizeof(id.bytes); i += sizeof(unsigned int))
    {
        const unsigned int bits = random();
        std::memcpy(id.bytes + i, &bits, sizeof(bits));
    }
    id.bytes[6] = static_cast<char>((id.bytes[6] & 0x0F) | 0x40);
    id.bytes[8] = static_cast<char>((id.bytes[8] & 0x3F) | 0x80);
    return id;
}

std::string ToHex(const sentry_uuid_t& id)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : id.bytes)
    {
        const auto value = static_cast<unsigned char>(byte);
        text += digits[value >> 4];
        text += digits[value & 0x0F];
    }
    return text;
}

} // namespace Reporter
