#include "support/common/IngestionServer.h"

#include "support/common/Sockets.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <tuple>

namespace Testing
{

namespace
{

std::string DsnWithPort(unsigned short port)
{
    return "http://" + std::string(IngestionServer::c_key) + "@127.0.0.1:" + std::to_string(port) + "/1234567890123456";
}

std::string ToLower(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    return text;
}

IngestionRequest ParseHead(const std::string& head)
{
    IngestionRequest request;
    const auto firstEnd = head.find("\r\n");
    const auto methodEnd = head.find(' ');
    const auto pathEnd = head.find(' ', methodEnd + 1);
    request.method = head.substr(0, methodEnd);
    request.path = head.substr(methodEnd + 1, pathEnd - methodEnd - 1);
    for (auto begin = firstEnd + 2; begin < head.size();)
    {
        const auto end = std::min(head.find("\r\n", begin), head.size());
        const std::string line = head.substr(begin, end - begin);
        const auto colon = line.find(':');
        const auto value = line.find_first_not_of(' ', colon + 1);
        request.headers.emplace_back(ToLower(line.substr(0, colon)),
                                     value == std::string::npos ? std::string() : line.substr(value));
        begin = end + 2;
    }
    return request;
}

// Adds what comes next to the text. False when nothing more comes.
bool Receive(const Socket& connection, std::string& text)
{
    std::array<char, 16 * 1024> buffer{};
    const int size = recv(connection.Get(), buffer.data(), static_cast<int>(buffer.size()), 0);
    text.append(buffer.data(), static_cast<std::size_t>(std::max(size, 0)));
    return size > 0;
}

} // namespace

std::string IngestionRequest::Header(const std::string& name) const
{
    const auto found = std::ranges::find(headers, name, &std::pair<std::string, std::string>::first);
    return found == headers.end() ? std::string() : found->second;
}

struct IngestionServer::State
{
    Socket listener;
    unsigned short port = 0;
    std::function<IngestionAnswer(std::size_t)> answer;
    std::thread thread;

    std::mutex mutex;
    std::condition_variable hasCome;        // a request
    std::vector<IngestionRequest> requests; // guarded by it, like the rest
    std::vector<Socket> silent;
    SOCKET current = INVALID_SOCKET;
    bool isEnding = false;

    void Run();
    void Serve(Socket connection);
    std::size_t CountRequests()
    {
        const std::scoped_lock lock(mutex);
        return requests.size();
    }
};

// One connection, with one request.
void IngestionServer::State::Serve(Socket connection)
{
    std::string text;
    while (text.find("\r\n\r\n") == std::string::npos)
    {
        if (!Receive(connection, text))
        {
            return;
        }
    }
    const auto headEnd = text.find("\r\n\r\n");
    IngestionRequest request = ParseHead(text.substr(0, headEnd));
    text.erase(0, headEnd + 4);
    std::size_t length = 0;
    const std::string header = request.Header("content-length");
    std::from_chars(header.data(), header.data() + header.size(), length);
    const IngestionAnswer its = answer(CountRequests());
    const std::size_t wanted = std::min(length, its.mostOfBody);
    while (text.size() < wanted && Receive(connection, text))
    {
    }
    request.body = text.substr(0, wanted);
    const std::scoped_lock lock(mutex);
    requests.push_back(std::move(request)); // before the answer, after which the sender goes on
    hasCome.notify_all();
    send(connection.Get(), its.text.data(), static_cast<int>(its.text.size()), 0);
    if (its.staysSilent)
    {
        silent.push_back(std::move(connection));
    }
}

void IngestionServer::State::Run()
{
    for (;;)
    {
        Socket connection(accept(listener.Get(), nullptr, nullptr));
        {
            const std::scoped_lock lock(mutex);
            if (connection.Get() == INVALID_SOCKET || isEnding)
            {
                return;
            }
            current = connection.Get();
        }
        Serve(std::move(connection));
        const std::scoped_lock lock(mutex);
        current = INVALID_SOCKET;
    }
}

IngestionServer::IngestionServer(std::function<IngestionAnswer(std::size_t)> answer)
    : m_state(std::make_unique<State>())
{
    std::tie(m_state->listener, m_state->port) = BindLoopback();
    m_state->answer = std::move(answer);
    if (listen(m_state->listener.Get(), SOMAXCONN) != 0)
    {
        throw std::runtime_error("no server");
    }
    m_state->thread = std::thread([this] { m_state->Run(); });
}

IngestionServer::~IngestionServer()
{
    {
        const std::scoped_lock lock(m_state->mutex);
        m_state->isEnding = true;
        if (m_state->current != INVALID_SOCKET)
        {
            shutdown(m_state->current, SD_BOTH);
        }
        m_state->silent.clear();
    }
    // A last connection wakes the thread.
    const Socket last(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    const sockaddr_in address = LoopbackAddress(m_state->port);
    connect(last.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    m_state->thread.join();
}

unsigned short IngestionServer::Port() const
{
    return m_state->port;
}

std::string IngestionServer::Dsn() const
{
    return DsnWithPort(m_state->port);
}

std::vector<IngestionRequest> IngestionServer::Requests() const
{
    const std::scoped_lock lock(m_state->mutex);
    return m_state->requests;
}

bool IngestionServer::WaitFor(std::size_t count) const
{
    std::unique_lock lock(m_state->mutex);
    return m_state->hasCome.wait_for(lock, std::chrono::seconds(20), [&] { return m_state->requests.size() >= count; });
}

std::string DsnOfNobody()
{
    // Taken for good, so that it is nobody else's meanwhile, and not listened to.
    static const auto taken = BindLoopback();
    return DsnWithPort(taken.second);
}

} // namespace Testing
