#include "support/common/Sockets.h"

#include <stdexcept>

namespace Testing
{

sockaddr_in LoopbackAddress(unsigned short port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

std::pair<Socket, unsigned short> BindLoopback()
{
    WSADATA data{};
    static const int started = WSAStartup(MAKEWORD(2, 2), &data);
    Socket socket(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    sockaddr_in address = LoopbackAddress(0);
    int size = sizeof(address);
    if (started != 0 || bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
    {
        throw std::runtime_error("no port");
    }
    return {std::move(socket), ntohs(address.sin_port)};
}

} // namespace Testing
