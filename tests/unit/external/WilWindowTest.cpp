#include "support/common/ImportTableFake.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/resource.h>

#include <utility>
#include <vector>

using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const auto c_window = reinterpret_cast<HWND>(INT_PTR{8});
const auto c_dc = reinterpret_cast<HDC>(INT_PTR{16});

// Windows' device contexts, while this lives. What gives one back spoils the last error.
class DeviceContexts
{
public:
    HDC dc = c_dc;
    std::vector<std::pair<HWND, HDC>> givenBack;

private:
    void GiveBack(HWND window, HDC given)
    {
        givenBack.emplace_back(window, given);
        SetLastError(ERROR_BAD_COMMAND);
    }

    Fake<&GetDC> m_get = [this](HWND) { return dc; };
    Fake<&ReleaseDC> m_release = [this](HWND window, HDC given) {
        GiveBack(window, given);
        return 1;
    };
    Fake<&BeginPaint> m_begin = [this](HWND, LPPAINTSTRUCT paint) {
        paint->hdc = dc;
        paint->rcPaint = {1, 2, 3, 4};
        return dc;
    };
    Fake<&EndPaint> m_end = [this](HWND window, const PAINTSTRUCT* paint) {
        EXPECT_EQ(paint->rcPaint.bottom, 4);
        GiveBack(window, paint->hdc);
        return TRUE;
    };
};

template <class Get>
void ExpectGivenBack(Get get)
{
    DeviceContexts contexts;
    {
        const auto dc = get(c_window);
        EXPECT_TRUE(dc);
        EXPECT_EQ(dc.get(), c_dc);
        EXPECT_THAT(contexts.givenBack, IsEmpty());
        SetLastError(ERROR_ACCESS_DENIED);
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_THAT(contexts.givenBack, ElementsAre(std::pair(c_window, c_dc)));
    contexts.dc = nullptr;
    EXPECT_FALSE(get(c_window));
    EXPECT_EQ(contexts.givenBack.size(), 1U);
}

} // namespace

TEST(DeviceContextTest, Is_given_back_as_it_was_got)
{
    ExpectGivenBack([](HWND window) { return wil::GetDC(window); });
    ExpectGivenBack([](HWND window) { return wil::BeginPaint(window); });
}

TEST(SrwlockTest, Is_held_by_one_writer_or_any_number_of_readers)
{
    wil::srwlock lock;
    {
        const auto writer = lock.lock_exclusive();
        EXPECT_FALSE(lock.try_lock_exclusive());
    }
    {
        const auto reader = lock.lock_shared();
        const auto other = lock.lock_shared();
        EXPECT_FALSE(lock.try_lock_exclusive());
    }
    auto writer = lock.try_lock_exclusive();
    EXPECT_TRUE(writer);
    EXPECT_FALSE(lock.try_lock_exclusive());
    writer.reset();
    EXPECT_TRUE(lock.try_lock_exclusive());
}

TEST(SrwlockTest, Keeps_readers_out_while_there_is_a_writer)
{
    SRWLOCK* locked = nullptr;
    Fake<&AcquireSRWLockExclusive> acquire = [&](PSRWLOCK lock) {
        locked = lock;
        decltype(acquire)::Real(lock);
    };
    wil::srwlock lock;
    {
        const auto writer = lock.lock_exclusive();
        ASSERT_NE(locked, nullptr);
        EXPECT_FALSE(TryAcquireSRWLockShared(locked));
    }
    EXPECT_TRUE(TryAcquireSRWLockShared(locked));
    ReleaseSRWLockShared(locked);
}
