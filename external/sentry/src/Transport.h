#pragma once

#include "Dsn.h"

#include <windows.h>

#include <wil/resource.h>

#include <memory>
#include <string>

namespace Reporter
{

class Store;

// Sends envelopes from a thread that starts with the first one: this run's before the pending reports of others. An
// envelope is dropped from the store after any response, and stays there for a later run without one.
class Transport
{
public:
    Transport(const Dsn& dsn, std::shared_ptr<Store> store);
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    // `id` is the envelope's in the store.
    void Send(std::string id, std::string envelope);

    // Sends the pending reports of other runs until one gets no response.
    void SendPending();

    // Waits at most so many milliseconds for the thread to send what it has, then cancels the request under way.
    void Close(DWORD limit);

private:
    struct Shared;

    void Start();

    std::shared_ptr<Shared> m_shared;
    wil::unique_handle m_thread;
};

} // namespace Reporter
