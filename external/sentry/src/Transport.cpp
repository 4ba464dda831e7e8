#include "Transport.h"

#include "Crash.h"
#include "Envelope.h"
#include "Http.h"
#include "RateLimits.h"
#include "Store.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Reporter
{

namespace
{

// How long a cancelled request may take to return, in milliseconds.
constexpr DWORD c_stopTime = 100;

struct Envelope
{
    std::string id;
    std::string text;
};

// There is none when Windows had no memory for it.
void Signal(const wil::unique_handle& event) noexcept
{
    if (event)
    {
        SetEvent(event.get());
    }
}

} // namespace

// What the thread shares with its owner, and keeps if it outlives that.
struct Transport::Shared
{
    Shared(const Dsn& dsn, std::shared_ptr<Store> keep) : m_http(dsn), m_store(std::move(keep)) {}

    void Add(Envelope envelope)
    {
        const auto held = m_queueLock.lock_exclusive();
        m_queue.push_back(std::move(envelope));
    }

    // Lets the thread end when it is idle.
    void SetClosing()
    {
        m_isClosing = true;
        Signal(wake);
    }
    // Cancels the request that is under way.
    void Stop()
    {
        Signal(m_stop);
        Signal(wake);
    }

    // Takes the store away from the thread, unless that is waiting for a slow disk: then the store ends with the
    // thread.
    void TakeStore()
    {
        if (const auto held = m_storeLock.try_lock_exclusive())
        {
            m_store.reset();
        }
    }

    static DWORD WINAPI ThreadMain(void* parameter) noexcept;

    std::atomic<bool> hasPending = false; // to be looked for
    wil::unique_handle wake{CreateEventW(nullptr, FALSE, FALSE, nullptr)};

private:
    void Run();
    void Send(const Envelope& envelope);
    void SendNextPending();
    bool Deliver(std::string_view envelope, std::string_view minidump);

    std::optional<Envelope> TakeNext()
    {
        const auto held = m_queueLock.lock_exclusive();
        if (m_queue.empty())
        {
            return std::nullopt;
        }
        Envelope envelope = std::move(m_queue.front());
        m_queue.pop_front();
        return envelope;
    }

    // Without a store, the result is empty.
    template <class Function>
    auto WithStore(Function function)
    {
        using Result = std::invoke_result_t<Function, Store&>;
        const auto held = m_storeLock.lock_exclusive();
        return m_store ? function(*m_store) : Result();
    }

    wil::unique_handle m_stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::atomic<bool> m_isClosing = false;
    // Used by the thread alone:
    Http m_http;
    RateLimits m_limits;
    bool m_hasGivenUpPending = false;

    wil::srwlock m_queueLock;
    std::deque<Envelope> m_queue; // guarded by it
    wil::srwlock m_storeLock;
    std::shared_ptr<Store> m_store; // guarded by it
};

DWORD WINAPI Transport::Shared::ThreadMain(void* parameter) noexcept
{
    ReserveStack();
    const std::unique_ptr<std::shared_ptr<Shared>> shared(static_cast<std::shared_ptr<Shared>*>(parameter));
    try
    {
        (*shared)->Run();
    }
    catch (...)
    {
        // No memory, no reports.
    }
    return 0;
}

void Transport::Shared::Run()
{
    while (m_stop && WaitForSingleObject(m_stop.get(), 0) == WAIT_TIMEOUT)
    {
        const bool isLast = m_isClosing; // read before the queue: nothing is added afterwards
        if (const auto envelope = TakeNext())
        {
            Send(*envelope);
        }
        else if (hasPending.exchange(false)) // before the search, during which it may be set again
        {
            SendNextPending();
        }
        else if (isLast || !wake || WaitForSingleObject(wake.get(), INFINITE) != WAIT_OBJECT_0)
        {
            return; // done, or without the event
        }
    }
}

void Transport::Shared::Send(const Envelope& envelope)
{
    if (Deliver(envelope.text, {}))
    {
        WithStore([&](Store& store) { store.Drop(envelope.id); });
    }
}

void Transport::Shared::SendNextPending()
{
    const auto report =
        m_hasGivenUpPending ? std::nullopt : WithStore([](Store& store) { return store.NextPending(); });
    if (!report)
    {
        return;
    }
    if (!Deliver(report->envelope, report->minidump))
    {
        m_hasGivenUpPending = true;
        return;
    }
    WithStore([&](Store& store) { store.Drop(*report); });
    hasPending = true; // there may be more
}

// Returns whether the envelope is done with: after any response (the protocol forbids to retry what was refused), under
// a rate limit, or when it is invalid.
bool Transport::Shared::Deliver(std::string_view envelope, std::string_view minidump)
{
    const auto text = PrepareToSend(envelope, minidump, TimestampNow());
    if (!text || !m_limits.IsOpen(GetTickCount64()))
    {
        return true;
    }
    const auto response = m_http.Post(*text, m_stop.get());
    if (!response)
    {
        return false;
    }
    m_limits.Update(response->status, response->rateLimits, response->retryAfter, GetTickCount64());
    return true;
}

Transport::Transport(const Dsn& dsn, std::shared_ptr<Store> store)
    : m_shared(std::make_shared<Shared>(dsn, std::move(store)))
{}

Transport::~Transport()
{
    Close(0);
}

void Transport::Send(std::string id, std::string envelope)
{
    m_shared->Add({std::move(id), std::move(envelope)});
    Start();
}

void Transport::SendPending()
{
    m_shared->hasPending = true;
    Start();
}

void Transport::Start()
{
    if (!m_thread)
    {
        auto shared = std::make_unique<std::shared_ptr<Shared>>(m_shared);
        m_thread.reset(CreateThread(nullptr, 0, Shared::ThreadMain, shared.get(), 0, nullptr));
        if (m_thread)
        {
            // The thread's from here on.
            static_cast<void>(shared.release()); // NOLINT(bugprone-unused-return-value)
        }
    }
    Signal(m_shared->wake);
}

void Transport::Close(DWORD limit)
{
    if (m_thread)
    {
        m_shared->SetClosing();
        const DWORD stopTime = std::min(limit, c_stopTime);
        if (WaitForSingleObject(m_thread.get(), limit - stopTime) != WAIT_OBJECT_0)
        {
            m_shared->Stop();
            WaitForSingleObject(m_thread.get(), stopTime);
        }
        m_thread.reset();
    }
    m_shared->TakeStore();
}

} // namespace Reporter
