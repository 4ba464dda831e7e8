#pragma once

#include "Dsn.h"

#include <windows.h>

#include <wil/resource.h>

#include <memory>
#include <string>

namespace Reporter
{

class Store;

// Sends envelopes from a thread of its own, one after the other, first this run's and then those that other runs have
// left behind. The thread is started with the first one, so a run without reports has none. What was answered, however,
// is dropped; what got no answer stays in the store for a later run.
class Transport
{
public:
    // Without a store, what does not get through is lost.
    Transport(const Dsn& dsn, std::shared_ptr<Store> store);
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    // Takes an envelope with the id that it has in the store.
    void Send(std::string id, std::string envelope);

    // Sends what other runs have left behind, also since the last time. Once one of these reports has got no answer,
    // the others stay for a later run.
    void SendLeft();

    // Lets the thread finish what it has, for so many milliseconds at most. It then gives up what is under way, and
    // takes nothing more.
    void Close(DWORD limit);

private:
    struct Shared;

    void Start();

    std::shared_ptr<Shared> m_shared;
    wil::unique_handle m_thread;
};

} // namespace Reporter
