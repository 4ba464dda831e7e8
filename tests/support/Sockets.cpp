#include "support/Sockets.h"

#include <stdexcept>

namespace Testing
{

namespace
{

void StartSockets()
{
    static const int result = [] {
        WSADATA data{};
        return WSAStartup(MAKEWORD(2, 2), &data);
    }();
    if (result != 0)
    {
        throw std::runtime_error("no sockets");
    }
}

} // namespace

std::pair<Socket, unsigned short> BindLoopback()
{
    StartSockets();
    Socket socket(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof(address);
    if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
    {
        throw std::runtime_error("no port");
    }
    return {std::move(socket), ntohs(address.sin_port)};
}

} // namespace Testing
