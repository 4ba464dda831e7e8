#include "support/ImportTableFake.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/resource.h>

#include <vector>

using namespace Testing;

namespace
{

const auto c_window = reinterpret_cast<HWND>(INT_PTR{8});
const auto c_dc = reinterpret_cast<HDC>(INT_PTR{16});

} // namespace

TEST(GetDC, gives_the_device_context_back_to_its_window)
{
    std::vector<std::pair<HWND, HDC>> released;
    const Fake<&GetDC> get = [](HWND window) {
        EXPECT_EQ(window, c_window);
        return c_dc;
    };
    const Fake<&ReleaseDC> release = [&](HWND window, HDC dc) {
        released.emplace_back(window, dc);
        SetLastError(ERROR_BAD_COMMAND);
        return 1;
    };
    {
        const auto dc = wil::GetDC(c_window);
        EXPECT_TRUE(dc);
        EXPECT_EQ(dc.get(), c_dc);
        EXPECT_TRUE(released.empty());
        SetLastError(ERROR_ACCESS_DENIED);
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_THAT(released, testing::ElementsAre(std::pair(c_window, c_dc)));
}

TEST(GetDC, gives_nothing_back_when_there_is_none)
{
    const Fake<&GetDC> get = [](HWND) -> HDC { return nullptr; };
    const Fake<&ReleaseDC> release = [](HWND, HDC) {
        ADD_FAILURE();
        return 0;
    };
    const auto dc = wil::GetDC(nullptr);
    EXPECT_FALSE(dc);
    EXPECT_EQ(dc.get(), nullptr);
}

TEST(BeginPaint, ends_the_painting_with_what_began_it)
{
    int ended = 0;
    const Fake<&BeginPaint> begin = [](HWND window, LPPAINTSTRUCT paint) {
        EXPECT_EQ(window, c_window);
        paint->hdc = c_dc;
        paint->rcPaint = {1, 2, 3, 4};
        return c_dc;
    };
    const Fake<&EndPaint> end = [&](HWND window, const PAINTSTRUCT* paint) {
        EXPECT_EQ(window, c_window);
        EXPECT_EQ(paint->hdc, c_dc);
        EXPECT_EQ(paint->rcPaint.bottom, 4);
        ++ended;
        return TRUE;
    };
    {
        const auto dc = wil::BeginPaint(c_window);
        EXPECT_TRUE(dc);
        EXPECT_EQ(dc.get(), c_dc);
        EXPECT_EQ(ended, 0);
    }
    EXPECT_EQ(ended, 1);
}

TEST(BeginPaint, ends_nothing_that_has_not_begun)
{
    const Fake<&BeginPaint> begin = [](HWND, LPPAINTSTRUCT) -> HDC { return nullptr; };
    const Fake<&EndPaint> end = [](HWND, const PAINTSTRUCT*) {
        ADD_FAILURE();
        return FALSE;
    };
    EXPECT_FALSE(wil::BeginPaint(c_window));
}

TEST(UniqueHwnd, destroys_its_window)
{
    std::vector<HWND> destroyed;
    const Fake<&DestroyWindow> destroy = [&](HWND window) {
        destroyed.push_back(window);
        return TRUE;
    };
    wil::unique_hwnd(c_window).reset();
    wil::unique_hwnd().reset();
    EXPECT_THAT(destroyed, testing::ElementsAre(c_window));
}

TEST(UniqueHglobal, frees_its_memory)
{
    std::vector<HGLOBAL> freed;
    const Fake<&GlobalFree> free = [&](HGLOBAL memory) -> HGLOBAL {
        freed.push_back(memory);
        return nullptr;
    };
    wil::unique_hglobal(HGLOBAL{c_window}).reset();
    wil::unique_hglobal().reset();
    EXPECT_THAT(freed, testing::ElementsAre(HGLOBAL{c_window}));
}

TEST(Srwlock, is_held_by_one_writer)
{
    SRWLOCK* locked = nullptr;
    std::vector<SRWLOCK*> left;
    Fake<&AcquireSRWLockExclusive> acquire = [&](PSRWLOCK lock) {
        locked = lock;
        decltype(acquire)::Real(lock);
    };
    Fake<&ReleaseSRWLockExclusive> release = [&](PSRWLOCK lock) {
        left.push_back(lock);
        decltype(release)::Real(lock);
    };
    wil::srwlock lock;
    {
        const auto held = lock.lock_exclusive();
        EXPECT_NE(locked, nullptr);
        EXPECT_FALSE(TryAcquireSRWLockShared(locked));
        EXPECT_TRUE(left.empty());
    }
    EXPECT_THAT(left, testing::ElementsAre(locked));
    EXPECT_TRUE(TryAcquireSRWLockShared(locked));
    ReleaseSRWLockShared(locked);
}

TEST(Srwlock, is_taken_without_waiting_when_it_is_free)
{
    wil::srwlock lock;
    auto held = lock.try_lock_exclusive();
    EXPECT_TRUE(held);
    EXPECT_FALSE(lock.try_lock_exclusive());
    held.reset();
    EXPECT_TRUE(lock.try_lock_exclusive());
    const auto reader = lock.lock_shared();
    EXPECT_FALSE(lock.try_lock_exclusive());
}

TEST(Srwlock, is_held_by_any_number_of_readers)
{
    std::vector<SRWLOCK*> locked;
    std::vector<SRWLOCK*> left;
    Fake<&AcquireSRWLockShared> acquire = [&](PSRWLOCK lock) {
        locked.push_back(lock);
        decltype(acquire)::Real(lock);
    };
    Fake<&ReleaseSRWLockShared> release = [&](PSRWLOCK lock) {
        left.push_back(lock);
        decltype(release)::Real(lock);
    };
    wil::srwlock lock;
    {
        const auto one = lock.lock_shared();
        const auto other = lock.lock_shared();
        ASSERT_EQ(locked.size(), 2U);
        EXPECT_FALSE(TryAcquireSRWLockExclusive(locked.front()));
    }
    EXPECT_EQ(left, locked);
    EXPECT_TRUE(TryAcquireSRWLockExclusive(locked.front()));
    ReleaseSRWLockExclusive(locked.front());
}
