#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Testing
{

// What came with one request.
struct IngestionRequest
{
    std::string method;
    std::string path;
    std::vector<std::pair<std::string, std::string>> headers; // names in lower case
    std::string body;

    // A header's value; empty when it did not come.
    std::string Header(const std::string& name) const;
};

// What the server does with a request, once it has read as much of it as it wants to.
struct IngestionAnswer
{
    // What it sends, as it is.
    std::string text = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 2\r\n\r\n{}";
    // It reads so much of the body before it answers.
    std::size_t mostOfBody = static_cast<std::size_t>(-1);
    // It keeps the connection open, and silent, until the server ends.
    bool staysSilent = false;
};

// A server like the one that takes crash reports, in this process, on a port of the machine's own that nobody else can
// reach: it writes down what comes and answers as it is told. It has a thread of its own; what it is told must not be a
// test's assertion.
class IngestionServer
{
public:
    // With an answer to every request, by its number from 0. Throws std::runtime_error when there is no port.
    explicit IngestionServer(std::function<IngestionAnswer(std::size_t)> answer = [](std::size_t) {
        return IngestionAnswer();
    });
    ~IngestionServer();
    IngestionServer(const IngestionServer&) = delete;
    IngestionServer& operator=(const IngestionServer&) = delete;

    unsigned short Port() const;

    // The DSN that leads here.
    std::string Dsn() const;

    // The path that envelopes come to, and the key that they come with.
    static constexpr const char* c_path = "/api/1234567890123456/envelope/";
    static constexpr const char* c_key = "0123456789abcdef0123456789abcdef";

    // What has come so far, in order; requests that broke off as far as they came.
    std::vector<IngestionRequest> Requests() const;

    // Waits until so many requests have come, for twenty seconds at most. Returns whether they have.
    bool WaitFor(std::size_t count) const;

private:
    struct State;

    std::unique_ptr<State> m_state;
};

// A DSN that leads to a port of this machine's own where nobody listens.
std::string DsnOfNobody();

} // namespace Testing
