#include "FakeWinHttp.h"
#include "Store.h"
#include "Transport.h"
#include "support/EnvelopeParser.h"
#include "support/TestFolder.h"
#include "support/Text.h"

#include <gmock/gmock.h>
#include <wil/resource.h>

#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace Reporter;
using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

// More than anything here takes, in milliseconds: a test that waits for so long has failed.
constexpr DWORD c_long = 20'000;

std::string MakeText(const std::string& id)
{
    return "{\"event_id\":\"" + id + "\"}\n{\"type\":\"event\"}\n{\"event_id\":\"" + id + "\"}\n";
}

class SentryTransportTest : public testing::Test
{
protected:
    ~SentryTransportTest() override
    {
        transport.reset();
        SetEvent(goOn.get());
        ExpectThreadToEnd();
        EXPECT_EQ(winHttp.openHandles, 0);
        EXPECT_EQ(winHttp.openContexts, 0);
    }

    std::shared_ptr<Store> OpenStore() const { return Store::Open(Narrow(database)); }

    void Send(const std::string& id) const
    {
        if (store)
        {
            EXPECT_TRUE(store->Keep(id, MakeText(id)));
        }
        transport->Send(id, MakeText(id));
    }

    // Closes with time enough.
    void Close() const { transport->Close(c_long); }

    void ExpectThreadToEnd()
    {
        if (thread)
        {
            EXPECT_EQ(WaitForSingleObject(thread.get(), c_long), WAIT_OBJECT_0);
        }
    }

    // The ids of the events that were sent.
    std::vector<std::string> Sent() const
    {
        std::vector<std::string> ids;
        for (const auto& request : winHttp.requests)
        {
            ids.push_back(EventOf(ParseEnvelope(request.body))["event_id"]);
        }
        return ids;
    }

    // The envelopes of the runs before that a run finds now.
    std::vector<std::string> Left() const
    {
        std::vector<std::string> texts;
        const auto later = OpenStore();
        while (const auto left = later->NextLeft())
        {
            texts.push_back(left->envelope);
        }
        return texts;
    }

    TestFolder root;
    std::wstring database = root / L"Sentry";
    FakeWinHttp winHttp;
    wil::unique_handle thread; // the transport's
    int threads = 0;
    Fake<&CreateThread> createThread = [this](LPSECURITY_ATTRIBUTES attributes, SIZE_T stack,
                                              LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags, LPDWORD id) {
        const HANDLE made = createThread.Hidden(attributes, stack, start, parameter, flags, id);
        HANDLE copy = nullptr;
        DuplicateHandle(GetCurrentProcess(), made, GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS);
        thread.reset(copy);
        ++threads;
        return made;
    };
    wil::unique_handle isStuck{CreateEventW(nullptr, TRUE, FALSE, nullptr)}; // the transport's thread, until
    wil::unique_handle goOn{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::shared_ptr<Store> store = OpenStore();
    std::unique_ptr<Transport> transport = std::make_unique<Transport>(
        Dsn{.isSecure = true, .publicKey = "key", .host = "host.example", .port = 443, .path = "/api/1/envelope/"},
        store);
};

TEST_F(SentryTransportTest, has_no_thread_while_there_is_nothing_to_send)
{
    Close();
    EXPECT_EQ(threads, 0);
    EXPECT_THAT(winHttp.libraries, IsEmpty());
}

TEST_F(SentryTransportTest, sends_in_order_from_one_thread_and_drops_what_was_answered)
{
    winHttp.status = 500;
    Send("1");
    Send("2");
    Send("3");
    Close();
    EXPECT_THAT(Sent(), ElementsAre("1", "2", "3"));
    EXPECT_EQ(threads, 1);
    EXPECT_EQ(store->Count(), 0U);
}

TEST_F(SentryTransportTest, leaves_room_for_a_crash_report_on_the_stack_of_its_thread)
{
    ULONG reserved = 0;
    DWORD reserving = 0;
    Fake<&SetThreadStackGuarantee> guarantee = [&](PULONG bytes) -> BOOL {
        reserved = *bytes;
        reserving = GetCurrentThreadId();
        return TRUE;
    };
    Send("1");
    Close();
    EXPECT_EQ(reserved, 65536U);
    EXPECT_NE(reserving, GetCurrentThreadId());
}

TEST_F(SentryTransportTest, keeps_what_got_no_answer)
{
    winHttp.failing = {"ReceiveResponse"};
    Send("1");
    Send("2");
    Close();
    EXPECT_THAT(Sent(), ElementsAre("1", "2"));
    EXPECT_EQ(store->Count(), 2U);
}

TEST_F(SentryTransportTest, drops_what_the_server_wants_no_more_of)
{
    winHttp.status = 429;
    Send("1");
    Send("2");
    Close();
    EXPECT_THAT(Sent(), ElementsAre("1"));
    EXPECT_EQ(store->Count(), 0U);
}

TEST_F(SentryTransportTest, sends_what_was_left_after_what_is_new)
{
    root.AddFile(L"Sentry\\x.run\\old.envelope", MakeText("old"));
    root.AddFile(L"Sentry\\x.run\\old.dmp", "MDMP");
    root.AddFile(L"Sentry\\y.run\\none.envelope", "garbage");
    transport->SendLeft();
    Close();
    ASSERT_EQ(winHttp.requests.size(), 1U);
    const ParsedEnvelope envelope = ParseEnvelope(winHttp.requests[0].body);
    EXPECT_EQ(EventOf(envelope)["event_id"], "old");
    ASSERT_EQ(envelope.items.size(), 2U);
    EXPECT_EQ(envelope.items[1].payload, "MDMP");
    transport.reset();
    store.reset();
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryTransportTest, sends_nothing_more_of_what_was_left_when_the_first_got_no_answer)
{
    root.AddFile(L"Sentry\\x.run\\1.envelope", MakeText("1"));
    root.AddFile(L"Sentry\\x.run\\2.envelope", MakeText("2"));
    winHttp.failing = {"SendRequest"};
    transport->SendLeft();
    Close();
    EXPECT_EQ(winHttp.requests.size(), 1U);
    transport.reset();
    store.reset();
    EXPECT_EQ(Left().size(), 2U);
}

TEST_F(SentryTransportTest, sends_later_what_a_run_leaves_that_went_on)
{
    auto other = OpenStore();
    ASSERT_TRUE(other->Keep("1", MakeText("1")));
    transport->SendLeft();
    Send("2");
    while (store->Count() != 0)
    {
        Sleep(1);
    }
    other.reset();
    transport->SendLeft();
    Close();
    EXPECT_THAT(Sent(), ElementsAre("2", "1"));
}

TEST_F(SentryTransportTest, sends_nothing_that_was_left_after_one_that_got_no_answer)
{
    root.AddFile(L"Sentry\\x.run\\1.envelope", MakeText("1"));
    root.AddFile(L"Sentry\\x.run\\2.envelope", MakeText("2"));
    winHttp.failing = {"ReceiveResponse"};
    winHttp.onSend = [&](const FakeWinHttp::Tell& tell) {
        SetEvent(isStuck.get());
        tell(WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE);
    };
    transport->SendLeft();
    ASSERT_EQ(WaitForSingleObject(isStuck.get(), c_long), WAIT_OBJECT_0);
    transport->SendLeft();
    Close();
    EXPECT_EQ(winHttp.requests.size(), 1U);
}

// The thread is in the middle of looking when it is told to look again.
TEST_F(SentryTransportTest, looks_again_when_it_is_told_so_while_it_looks)
{
    auto other = OpenStore();
    ASSERT_TRUE(other->Keep("1", MakeText("1")));
    int looks = 0;
    Fake<&FindFirstFileW> find = [&](LPCWSTR path, LPWIN32_FIND_DATAW found) {
        if (++looks == 1)
        {
            SetEvent(isStuck.get());
            WaitForSingleObject(goOn.get(), c_long);
        }
        else if (looks == 2)
        {
            other.reset(); // between the two
        }
        return find.Hidden(path, found);
    };
    transport->SendLeft();
    ASSERT_EQ(WaitForSingleObject(isStuck.get(), c_long), WAIT_OBJECT_0);
    transport->SendLeft();
    SetEvent(goOn.get());
    Close();
    EXPECT_THAT(Sent(), ElementsAre("1"));
}

TEST_F(SentryTransportTest, works_without_a_store)
{
    store.reset();
    transport = std::make_unique<Transport>(
        Dsn{.isSecure = false, .publicKey = "key", .host = "host.example", .port = 80, .path = "/api/1/envelope/"},
        nullptr);
    Send("1");
    transport->SendLeft();
    Close();
    EXPECT_THAT(Sent(), ElementsAre("1"));
}

TEST_F(SentryTransportTest, gives_up_what_is_under_way_when_it_is_closed)
{
    winHttp.onReceive = [&](const FakeWinHttp::Tell&) { SetEvent(isStuck.get()); }; // no answer ever comes
    Send("1");
    Send("2");
    ASSERT_EQ(WaitForSingleObject(isStuck.get(), c_long), WAIT_OBJECT_0);
    std::vector<DWORD> waits;
    const DWORD closer = GetCurrentThreadId();
    {
        Fake<&WaitForSingleObject> wait = [&](HANDLE handle, DWORD limit) {
            if (GetCurrentThreadId() != closer)
            {
                return wait.Hidden(handle, limit);
            }
            waits.push_back(limit);
            return wait.Hidden(handle, waits.size() == 1 ? 0 : c_long);
        };
        transport->Close(2000);
        ExpectThreadToEnd(); // before the fake goes
        waits.pop_back();
    }
    EXPECT_THAT(waits, ElementsAre(1900U, 100U)); // two seconds together
    EXPECT_THAT(Sent(), ElementsAre("1"));
    EXPECT_EQ(store->Count(), 2U);
}

TEST_F(SentryTransportTest, closes_at_once_when_it_has_no_time)
{
    winHttp.onReceive = [&](const FakeWinHttp::Tell&) { SetEvent(isStuck.get()); };
    Send("1");
    ASSERT_EQ(WaitForSingleObject(isStuck.get(), c_long), WAIT_OBJECT_0);
    transport.reset();
    ExpectThreadToEnd();
    EXPECT_EQ(store->Count(), 1U);
}

TEST_F(SentryTransportTest, lets_go_of_the_store_though_its_thread_is_stuck)
{
    winHttp.onSend = [&](const FakeWinHttp::Tell&) {
        SetEvent(isStuck.get());
        WaitForSingleObject(goOn.get(), c_long);
    };
    Send("1");
    ASSERT_EQ(WaitForSingleObject(isStuck.get(), c_long), WAIT_OBJECT_0);
    transport->Close(1);
    store.reset();
    // The run has ended: another one can take over what it has left.
    EXPECT_THAT(Left(), ElementsAre(MakeText("1")));
}

TEST_F(SentryTransportTest, does_not_wait_for_a_disk_that_takes_its_time)
{
    bool isReleased = false;
    Fake<&DeleteFileW> remove = [&](LPCWSTR path) {
        SetEvent(isStuck.get());
        isReleased = WaitForSingleObject(goOn.get(), c_long) == WAIT_OBJECT_0;
        return remove.Hidden(path);
    };
    Send("1");
    ASSERT_EQ(WaitForSingleObject(isStuck.get(), c_long), WAIT_OBJECT_0);
    transport->Close(1);
    transport.reset();
    store.reset();
    SetEvent(goOn.get());
    ExpectThreadToEnd();
    EXPECT_TRUE(isReleased);
    EXPECT_FALSE(Exists(database)); // the thread's end was the store's
}

TEST_F(SentryTransportTest, does_not_spin_without_an_event_to_wait_for)
{
    int events = 0;
    {
        Fake<&CreateEventW> create = [&](LPSECURITY_ATTRIBUTES attributes, BOOL isManual, BOOL isSet, LPCWSTR name) {
            return ++events == 1 ? nullptr : create.Hidden(attributes, isManual, isSet, name);
        };
        transport = std::make_unique<Transport>(
            Dsn{.isSecure = true, .publicKey = "key", .host = "host.example", .port = 443, .path = "/1/"}, store);
    }
    ASSERT_EQ(events, 2);
    Send("1");
    ExpectThreadToEnd(); // by itself
    EXPECT_THAT(Sent(), ElementsAre("1"));
}

} // namespace
