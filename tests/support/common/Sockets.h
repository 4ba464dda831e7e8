#pragma once

// Before windows.h, which would otherwise bring an older one.
#include <winsock2.h>

#include <ws2tcpip.h>

#include <utility>

namespace Testing
{

// A socket that is closed in the end.
class Socket
{
public:
    explicit Socket(SOCKET socket = INVALID_SOCKET) : m_socket(socket) {}
    ~Socket()
    {
        if (m_socket != INVALID_SOCKET)
        {
            closesocket(m_socket);
        }
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    Socket(Socket&& other) noexcept : m_socket(std::exchange(other.m_socket, INVALID_SOCKET)) {}
    Socket& operator=(Socket&& other) noexcept
    {
        std::swap(m_socket, other.m_socket);
        return *this;
    }

    SOCKET Get() const { return m_socket; }

private:
    SOCKET m_socket;
};

sockaddr_in LoopbackAddress(unsigned short port);

// A socket bound to a free port of the loopback address, and the port. Throws std::runtime_error when there is none.
std::pair<Socket, unsigned short> BindLoopback();

} // namespace Testing
