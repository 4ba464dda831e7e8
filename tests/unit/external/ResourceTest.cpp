#include "support/common/ImportTableFake.h"
#include "support/unit/RecordedFailures.h"

#include <windows.h>

#include <combaseapi.h>
#include <oleauto.h>
#include <winsvc.h>

#include <gmock/gmock.h>
#include <wil/resource.h>
#include <wil/result.h>

#include <algorithm>
#include <concepts>
#include <type_traits>
#include <utility>
#include <vector>

using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

template <class Handle = HANDLE>
Handle ToHandle(INT_PTR number)
{
    return reinterpret_cast<Handle>(number);
}

// What one function of Windows closes while this lives; closing spoils the last error.
template <auto Function, class Type = decltype(Function)>
class Closed;

template <auto Function, class Result, class Handle>
class Closed<Function, Result(WINAPI*)(Handle)>
{
public:
    std::vector<Handle> all;

private:
    Fake<Function> m_close = [this](Handle handle) -> Result {
        all.push_back(handle);
        SetLastError(ERROR_BAD_COMMAND);
        if constexpr (std::same_as<Result, BOOL>)
        {
            return TRUE;
        }
        else
        {
            return Result();
        }
    };
};

using ClosedHandles = Closed<&CloseHandle>;

// Shows that an owner closes what it owns once, at its end, and nothing when it owns nothing.
template <class Owner, auto Function, class Handle>
void ExpectClosing(Handle handle)
{
    const Closed<Function> closed;
    {
        const Owner none;
        const Owner owner(handle);
        EXPECT_FALSE(none);
        EXPECT_TRUE(owner);
        EXPECT_EQ(owner.get(), handle);
        EXPECT_THAT(closed.all, IsEmpty());
    }
    EXPECT_THAT(closed.all, ElementsAre(handle));
}

} // namespace

TEST(OwnerTest, Closes_what_it_owns_with_the_function_for_it)
{
    wchar_t text[] = L"text";
    ExpectClosing<wil::unique_handle, &CloseHandle>(ToHandle(8));
    ExpectClosing<wil::unique_hfile, &CloseHandle>(ToHandle(8));
    ExpectClosing<wil::unique_tool_help_snapshot, &CloseHandle>(ToHandle(8));
    ExpectClosing<wil::unique_process_handle, &CloseHandle>(GetCurrentProcess());
    ExpectClosing<wil::unique_hfind, &FindClose>(ToHandle(8));
    ExpectClosing<wil::unique_hkey, &RegCloseKey>(ToHandle<HKEY>(8));
    ExpectClosing<wil::unique_schandle, &CloseServiceHandle>(ToHandle<SC_HANDLE>(8));
    ExpectClosing<wil::unique_hwnd, &DestroyWindow>(ToHandle<HWND>(8));
    ExpectClosing<wil::unique_hglobal, &GlobalFree>(ToHandle<HGLOBAL>(8));
    ExpectClosing<wil::unique_cotaskmem_string, &CoTaskMemFree>(text);
    ExpectClosing<wil::unique_bstr, &SysFreeString>(text);
}

TEST(OwnerTest, Knows_what_is_no_handle)
{
    const ClosedHandles closed;
    {
        const wil::unique_handle none;
        EXPECT_EQ(none.get(), nullptr);
        EXPECT_TRUE(none == nullptr);
        EXPECT_FALSE(wil::unique_handle(nullptr));
        EXPECT_FALSE(wil::unique_handle(INVALID_HANDLE_VALUE));
        wil::unique_hfile file;
        EXPECT_EQ(file.get(), INVALID_HANDLE_VALUE);
        EXPECT_FALSE(wil::unique_hfile(HANDLE{}));
        file.reset(ToHandle(8));
        EXPECT_EQ(file.release(), ToHandle(8));
        EXPECT_EQ(file.get(), INVALID_HANDLE_VALUE);
    }
    EXPECT_THAT(closed.all, IsEmpty());
}

TEST(OwnerTest, Is_moved_and_never_copied)
{
    static_assert(!std::copyable<wil::unique_handle>);
    static_assert(!std::is_convertible_v<HANDLE, wil::unique_handle>);
    const ClosedHandles closed;
    {
        wil::unique_handle first(ToHandle(8));
        wil::unique_handle second(std::move(first));
        EXPECT_FALSE(first);
        wil::unique_handle third(ToHandle(12));
        third = std::move(second);
        EXPECT_THAT(closed.all, ElementsAre(ToHandle(12)));
        wil::unique_handle& same = third;
        third = std::move(same);
        EXPECT_EQ(third.get(), ToHandle(8));
    }
    EXPECT_THAT(closed.all, ElementsAre(ToHandle(12), ToHandle(8)));
}

TEST(OwnerTest, Closes_what_it_has_before_it_takes_another_and_keeps_the_last_error)
{
    const ClosedHandles closed;
    wil::unique_handle handle(ToHandle(8));
    SetLastError(ERROR_ACCESS_DENIED);
    handle.reset(ToHandle(12));
    EXPECT_EQ(GetLastError(), 5U);
    handle.reset();
    EXPECT_FALSE(handle);
    EXPECT_THAT(closed.all, ElementsAre(ToHandle(8), ToHandle(12)));
    *handle.put() = ToHandle(16);
    EXPECT_EQ(*handle.put(), nullptr);
    *&handle = ToHandle(20);
    EXPECT_EQ(*&handle, nullptr);
    EXPECT_THAT(closed.all, ElementsAre(ToHandle(8), ToHandle(12), ToHandle(16), ToHandle(20)));
    handle.reset(ToHandle(24));
    EXPECT_EQ(handle.release(), ToHandle(24));
    EXPECT_FALSE(handle);
    EXPECT_EQ(closed.all.size(), 4U);
}

TEST(UniqueVariantTest, Is_a_variant_that_is_empty_at_first_and_cleared_at_the_end)
{
    static_assert(!std::copyable<wil::unique_variant>);
    static_assert(!std::is_convertible_v<VARIANT, wil::unique_variant>);
    std::vector<VARTYPE> cleared;
    const Fake<&VariantClear> clear = [&](VARIANT* value) {
        cleared.push_back(value->vt);
        const HRESULT result = Fake<&VariantClear>::Real(value);
        SetLastError(ERROR_BAD_COMMAND);
        return result;
    };
    {
        wil::unique_variant number;
        EXPECT_EQ(number.vt, VT_EMPTY);
        number.vt = VT_I4;
        number.lVal = 5;
        const VARIANT copy = number;
        EXPECT_EQ(copy.lVal, 5);
        EXPECT_EQ(number.addressof(), static_cast<VARIANT*>(&number));
        EXPECT_THAT(cleared, IsEmpty());
        SetLastError(ERROR_ACCESS_DENIED);
    }
    EXPECT_EQ(GetLastError(), 5U);
    EXPECT_THAT(cleared, ElementsAre(VT_I4));
    {
        wil::unique_variant first = wil::make_variant_bstr(L"text");
        const wil::unique_variant second(std::move(first));
        EXPECT_EQ(first.vt, VT_EMPTY);
        EXPECT_STREQ(second.bstrVal, L"text");
    }
    EXPECT_EQ(std::ranges::count(cleared, VT_BSTR), 1);
}

TEST(MakeBstrTest, Copies_a_text)
{
    for (const wchar_t* const text : {L"", L"pr\u00FCfen"})
    {
        const wil::unique_bstr copy = wil::make_bstr(text);
        ASSERT_NE(copy.get(), nullptr);
        EXPECT_STREQ(copy.get(), text);
        EXPECT_EQ(SysStringLen(copy.get()), wcslen(text));
        const wil::unique_variant variant = wil::make_variant_bstr(text);
        EXPECT_EQ(variant.vt, VT_BSTR);
        EXPECT_STREQ(variant.bstrVal, text);
    }
}

TEST(MakeBstrTest, Throws_when_memory_runs_out)
{
    const Fake<&SysAllocString> allocate = [](const wchar_t*) -> BSTR { return nullptr; };
    EXPECT_EQ(CodeThrownBy([] { wil::make_bstr(L"text"); }), E_OUTOFMEMORY);
    EXPECT_EQ(CodeThrownBy([] { wil::make_variant_bstr(L"text"); }), E_OUTOFMEMORY);
}

TEST(UniqueEventTest, Stays_signaled_and_is_closed_at_the_end)
{
    const ClosedHandles closed;
    HANDLE made = nullptr;
    {
        const wil::unique_event event(wil::EventOptions::ManualReset);
        made = event.get();
        EXPECT_FALSE(event.wait(0));
        event.SetEvent();
        EXPECT_TRUE(event.wait());
        EXPECT_TRUE(event.wait(0));
        EXPECT_THAT(closed.all, IsEmpty());
    }
    EXPECT_THAT(closed.all, ElementsAre(made));
    EXPECT_TRUE(Fake<&CloseHandle>::Real(made));
}

TEST(UniqueEventTest, Is_made_for_all_access_and_throws_the_last_error_when_it_cannot_be)
{
    const Fake<&CreateEventExW> create = [](SECURITY_ATTRIBUTES* security, LPCWSTR name, DWORD flags,
                                            DWORD access) -> HANDLE {
        EXPECT_EQ(security, nullptr);
        EXPECT_EQ(name, nullptr);
        EXPECT_EQ(flags, 1U);
        EXPECT_EQ(access, DWORD{EVENT_ALL_ACCESS});
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return nullptr;
    };
    EXPECT_EQ(CodeThrownBy([] { const wil::unique_event event(wil::EventOptions::ManualReset); }),
              HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES));
}

TEST(UniqueEventTest, Waits_for_ever_unless_it_is_told_otherwise)
{
    std::vector<std::pair<DWORD, BOOL>> waits;
    const wil::unique_event event(wil::EventOptions::ManualReset);
    const Fake<&WaitForSingleObjectEx> wait = [&](HANDLE handle, DWORD milliseconds, BOOL alertable) -> DWORD {
        EXPECT_EQ(handle, event.get());
        waits.emplace_back(milliseconds, alertable);
        return waits.size() == 1 ? WAIT_OBJECT_0 : waits.size() == 2 ? WAIT_TIMEOUT : WAIT_IO_COMPLETION;
    };
    EXPECT_TRUE(event.wait());
    EXPECT_FALSE(event.wait(20));
    EXPECT_FALSE(event.wait(30, TRUE));
    EXPECT_THAT(waits,
                ElementsAre(std::pair(INFINITE, FALSE), std::pair(DWORD{20}, FALSE), std::pair(DWORD{30}, TRUE)));
}
