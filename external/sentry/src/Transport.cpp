#include "Transport.h"

#include "Crash.h"
#include "Envelope.h"
#include "Http.h"
#include "RateLimits.h"
#include "Store.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Reporter
{

namespace
{

// How long a request that is given up may take to notice, in milliseconds.
constexpr DWORD c_stopTime = 100;

struct Envelope
{
    std::string id;
    std::string text;
};

} // namespace

// What the thread and its owner share. A thread that does not end in time keeps it.
struct Transport::Shared
{
    Shared(const Dsn& dsn, std::shared_ptr<Store> keep) : m_http(dsn), m_store(std::move(keep)) {}

    void Add(Envelope envelope)
    {
        const auto held = m_queueLock.lock_exclusive();
        m_queue.push_back(std::move(envelope));
    }

    // The thread is to end when it has nothing more to do, and to end now.
    void SetClosing()
    {
        m_isClosing = true;
        SetEvent(wake.get());
    }
    void Stop()
    {
        SetEvent(m_stop.get());
        SetEvent(wake.get());
    }

    // The thread is not to touch the disk any more. When it is in the middle of that, on a disk that takes its time, it
    // is left to it: nobody waits for that, and the store ends when the thread does.
    void TakeStore()
    {
        if (const auto held = m_storeLock.try_lock_exclusive())
        {
            m_store.reset();
        }
    }

    static DWORD WINAPI ThreadMain(void* parameter) noexcept;

    std::atomic<bool> hasLeft = false; // what other runs have left is to be looked at
    wil::unique_handle wake{CreateEventW(nullptr, FALSE, FALSE, nullptr)};

private:
    void Run();
    void Send(const Envelope& envelope);
    void SendNextLeft();
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

    // Calls something with the store; without one, the result is an empty one.
    template <class Function>
    auto WithStore(Function function)
    {
        using Result = std::invoke_result_t<Function, Store&>;
        const auto held = m_storeLock.lock_exclusive();
        return m_store ? function(*m_store) : Result();
    }

    wil::unique_handle m_stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::atomic<bool> m_isClosing = false;
    Http m_http;               // the thread's own
    RateLimits m_limits;       // the thread's own
    bool m_leavesLeft = false; // the thread's own: what others have left stays with them
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
        // Without memory there are no more reports.
    }
    return 0;
}

void Transport::Shared::Run()
{
    while (WaitForSingleObject(m_stop.get(), 0) == WAIT_TIMEOUT)
    {
        const bool isLast = m_isClosing; // before the queue is looked at: nothing is added later
        if (const auto envelope = TakeNext())
        {
            Send(*envelope);
        }
        else if (hasLeft.exchange(false)) // before it is looked at: it may be said again meanwhile
        {
            SendNextLeft();
        }
        else if (isLast || WaitForSingleObject(wake.get(), INFINITE) != WAIT_OBJECT_0)
        {
            return; // done, or without the event, which there were no handles for
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

void Transport::Shared::SendNextLeft()
{
    const auto left = m_leavesLeft ? std::nullopt : WithStore([](Store& store) { return store.NextLeft(); });
    if (!left)
    {
        return;
    }
    if (!Deliver(left->envelope, left->minidump))
    {
        m_leavesLeft = true;
        return;
    }
    WithStore([&](Store& /*store*/) { Store::Drop(*left); });
    hasLeft = true; // there may be more
}

// Returns whether nothing more is to be done for the envelope: it was answered in whatever way, it is none at all, or
// the server wants no more of them. The protocol forbids to repeat what was refused.
bool Transport::Shared::Deliver(std::string_view envelope, std::string_view minidump)
{
    const auto text = PrepareToSend(envelope, minidump, TimestampNow());
    if (!text || !m_limits.IsOpen(GetTickCount64()))
    {
        return true;
    }
    const auto answer = m_http.Post(*text, m_stop.get());
    if (!answer)
    {
        return false;
    }
    m_limits.Update(answer->status, answer->rateLimits, answer->retryAfter, GetTickCount64());
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

void Transport::SendLeft()
{
    m_shared->hasLeft = true;
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
    SetEvent(m_shared->wake.get());
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
