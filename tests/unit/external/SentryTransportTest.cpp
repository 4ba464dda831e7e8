#include "Store.h"
#include "Transport.h"
#include "support/common/EnvelopeParser.h"
#include "support/common/Text.h"
#include "support/unit/FakeWinHttp.h"
#include "support/unit/TestFolder.h"

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
    std::unique_ptr<Transport> MakeTransport() const
    {
        return std::make_unique<Transport>(
            Dsn{.isSecure = true, .publicKey = "key", .host = "host.example", .port = 443, .path = "/api/1/envelope/"},
            store);
    }

    // The pending reports of a run that is over.
    void AddPending(const std::string& id) const
    {
        root.AddFile(L"Sentry\\x.run\\" + std::wstring(id.begin(), id.end()) + L".envelope", MakeText(id));
    }

    void Send(const std::string& id) const
    {
        EXPECT_TRUE(store->Keep(id, MakeText(id)));
        transport->Send(id, MakeText(id));
    }

    // Closes with time enough. Returns the ids of the events that were sent.
    std::vector<std::string> Sent() const
    {
        transport->Close(c_long);
        std::vector<std::string> ids;
        for (const auto& request : winHttp.requests)
        {
            ids.push_back(EventOf(ParseEnvelope(request.body))["event_id"]);
        }
        return ids;
    }

    // Ends this run. Returns the envelopes that the next one finds.
    std::vector<std::string> Pending()
    {
        transport.reset();
        store.reset();
        std::vector<std::string> texts;
        const auto later = OpenStore();
        while (const auto report = later->NextPending())
        {
            texts.push_back(report->envelope);
        }
        return texts;
    }

    // The transport's thread halts until it is to go on.
    bool Halt() const
    {
        SetEvent(isHalted.get());
        return WaitForSingleObject(goOn.get(), c_long) == WAIT_OBJECT_0;
    }
    void WaitUntilHalted() const { ASSERT_EQ(WaitForSingleObject(isHalted.get(), c_long), WAIT_OBJECT_0); }

    void ExpectThreadToEnd() const
    {
        EXPECT_TRUE(!thread || WaitForSingleObject(thread.get(), c_long) == WAIT_OBJECT_0);
    }

    TestFolder root;
    std::wstring database = root / L"Sentry";
    FakeWinHttp winHttp;
    wil::unique_handle thread; // the transport's
    int threads = 0;
    Fake<&CreateThread> createThread = [this](auto... arguments) {
        const HANDLE made = createThread.Hidden(arguments...);
        DuplicateHandle(GetCurrentProcess(), made, GetCurrentProcess(), thread.put(), 0, FALSE, DUPLICATE_SAME_ACCESS);
        ++threads;
        return made;
    };
    wil::unique_handle isHalted{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    wil::unique_handle goOn{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::shared_ptr<Store> store = OpenStore();
    std::unique_ptr<Transport> transport = MakeTransport();
};

TEST_F(SentryTransportTest, Has_no_thread_while_there_is_nothing_to_send)
{
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_EQ(threads, 0);
    EXPECT_THAT(winHttp.libraries, IsEmpty());
}

TEST_F(SentryTransportTest, Sends_in_order_from_one_thread_and_drops_after_any_response)
{
    winHttp.status = 500;
    Send("1");
    Send("2");
    Send("3");
    EXPECT_THAT(Sent(), ElementsAre("1", "2", "3"));
    EXPECT_EQ(threads, 1);
    EXPECT_EQ(store->Count(), 0U);
}

TEST_F(SentryTransportTest, Reserves_stack_for_a_crash_report_on_its_thread)
{
    ULONG reserved = 0;
    DWORD reserving = 0;
    Fake<&SetThreadStackGuarantee> guarantee = [&](PULONG bytes) -> BOOL {
        reserved = *bytes;
        reserving = GetCurrentThreadId();
        return TRUE;
    };
    Send("1");
    Sent();
    EXPECT_EQ(reserved, 65536U);
    EXPECT_NE(reserving, GetCurrentThreadId());
}

TEST_F(SentryTransportTest, Drops_what_exceeds_the_rate_limit)
{
    winHttp.status = 429;
    Send("1");
    Send("2");
    EXPECT_THAT(Sent(), ElementsAre("1"));
    EXPECT_EQ(store->Count(), 0U);
}

TEST_F(SentryTransportTest, Sends_pending_reports_with_their_minidump_and_drops_what_is_none)
{
    AddPending("old");
    root.AddFile(L"Sentry\\x.run\\old.dmp", "MDMP");
    root.AddFile(L"Sentry\\y.run\\none.envelope", "garbage");
    transport->SendPending();
    EXPECT_THAT(Sent(), ElementsAre("old"));
    const ParsedEnvelope envelope = ParseEnvelope(winHttp.requests[0].body);
    ASSERT_EQ(envelope.items.size(), 2U);
    EXPECT_EQ(envelope.items[1].payload, "MDMP");
    transport.reset();
    store.reset();
    EXPECT_FALSE(Exists(database));
}

TEST_F(SentryTransportTest, Sends_no_pending_report_after_one_that_got_no_response)
{
    AddPending("1");
    AddPending("2");
    winHttp.failing = {"ReceiveResponse"};
    winHttp.onSend = [&](const FakeWinHttp::Tell& tell) {
        SetEvent(isHalted.get());
        tell(WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE);
    };
    transport->SendPending();
    WaitUntilHalted();
    transport->SendPending();
    EXPECT_EQ(Sent().size(), 1U);
    EXPECT_EQ(Pending().size(), 2U);
}

TEST_F(SentryTransportTest, Sends_the_reports_of_a_run_that_ends_later)
{
    auto other = OpenStore();
    ASSERT_TRUE(other->Keep("1", MakeText("1")));
    transport->SendPending();
    Send("2");
    while (store->Count() != 0)
    {
        Sleep(1);
    }
    other.reset();
    transport->SendPending();
    EXPECT_THAT(Sent(), ElementsAre("2", "1"));
}

TEST_F(SentryTransportTest, Searches_again_when_it_is_told_so_during_a_search)
{
    auto other = OpenStore();
    ASSERT_TRUE(other->Keep("1", MakeText("1")));
    int searches = 0;
    Fake<&ReOpenFile> list = [&](HANDLE folder, DWORD access, DWORD share, DWORD flags) {
        if (access == FILE_LIST_DIRECTORY && ++searches == 1)
        {
            Halt();
        }
        else if (access == FILE_LIST_DIRECTORY && searches == 2)
        {
            other.reset(); // between the two
        }
        return list.Hidden(folder, access, share, flags);
    };
    transport->SendPending();
    WaitUntilHalted();
    transport->SendPending();
    SetEvent(goOn.get());
    EXPECT_THAT(Sent(), ElementsAre("1"));
}

TEST_F(SentryTransportTest, Cancels_the_request_that_is_under_way_when_its_time_is_over)
{
    winHttp.onReceive = [&](const FakeWinHttp::Tell&) { SetEvent(isHalted.get()); }; // no response ever comes
    Send("1");
    Send("2");
    WaitUntilHalted();
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
    }
    EXPECT_THAT(waits, ElementsAre(1900U, 100U, c_long)); // two seconds together, and the test's own
    EXPECT_THAT(Sent(), ElementsAre("1"));
    EXPECT_EQ(store->Count(), 2U);
}

TEST_F(SentryTransportTest, Closes_at_once_when_it_has_no_time)
{
    winHttp.onReceive = [&](const FakeWinHttp::Tell&) { SetEvent(isHalted.get()); };
    Send("1");
    WaitUntilHalted();
    transport.reset();
    ExpectThreadToEnd();
    EXPECT_EQ(store->Count(), 1U);
}

TEST_F(SentryTransportTest, Lets_go_of_the_store_though_its_thread_hangs)
{
    winHttp.onSend = [&](const FakeWinHttp::Tell&) { Halt(); };
    Send("1");
    WaitUntilHalted();
    transport->Close(1);
    EXPECT_THAT(Pending(), ElementsAre(MakeText("1")));
}

TEST_F(SentryTransportTest, Does_not_wait_for_a_slow_disk)
{
    bool isReleased = false;
    Fake<&SetFileInformationByHandle> remove = [&](auto... arguments) {
        isReleased = isReleased || Halt();
        return remove.Hidden(arguments...);
    };
    Send("1");
    WaitUntilHalted();
    transport->Close(1);
    transport.reset();
    store.reset();
    SetEvent(goOn.get());
    ExpectThreadToEnd();
    EXPECT_TRUE(isReleased);
    EXPECT_FALSE(Exists(database)); // the store ended with the thread
}

TEST_F(SentryTransportTest, Does_not_spin_without_an_event_to_wait_for)
{
    int events = 0;
    {
        Fake<&CreateEventW> create = [&](auto... arguments) {
            return ++events == 1 ? nullptr : create.Hidden(arguments...);
        };
        transport = MakeTransport();
    }
    ASSERT_EQ(events, 2);
    Send("1");
    ExpectThreadToEnd(); // by itself
    EXPECT_THAT(Sent(), ElementsAre("1"));
}

} // namespace
