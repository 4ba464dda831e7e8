#include "Timestamp.h"

#include <windows.h>

#include <cstddef>

namespace Reporter
{

namespace
{

void WriteNumber(Timestamp& timestamp, std::size_t end, std::size_t digits, unsigned number) noexcept
{
    for (; digits > 0; --digits, number /= 10)
    {
        timestamp[--end] = static_cast<char>('0' + number % 10);
    }
}

} // namespace

Timestamp TimestampNow() noexcept
{
    Timestamp timestamp{'0', '0', '0', '0', '-', '0', '0', '-', '0', '0', 'T', '0',
                        '0', ':', '0', '0', ':', '0', '0', '.', '0', '0', '0', 'Z'};
    SYSTEMTIME now{};
    GetSystemTime(&now);
    WriteNumber(timestamp, 4, 4, now.wYear);
    WriteNumber(timestamp, 7, 2, now.wMonth);
    WriteNumber(timestamp, 10, 2, now.wDay);
    WriteNumber(timestamp, 13, 2, now.wHour);
    WriteNumber(timestamp, 16, 2, now.wMinute);
    WriteNumber(timestamp, 19, 2, now.wSecond);
    WriteNumber(timestamp, 23, 3, now.wMilliseconds);
    return timestamp;
}

} // namespace Reporter
