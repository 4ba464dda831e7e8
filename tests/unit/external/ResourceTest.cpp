#include "support/ImportTableFake.h"

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

namespace
{

HANDLE ToHandle(INT_PTR number)
{
    return reinterpret_cast<HANDLE>(number);
}

// The handles that are closed while this lives; closing spoils the last error.
class ClosedHandles
{
public:
    std::vector<HANDLE> closed;

private:
    Fake<&CloseHandle> m_close = [this](HANDLE handle) {
        closed.push_back(handle);
        SetLastError(ERROR_BAD_COMMAND);
        return TRUE;
    };
};

using testing::ElementsAre;
using testing::IsEmpty;

} // namespace

TEST(UniqueHandle, closes_its_handle_once_at_the_end)
{
    const ClosedHandles handles;
    {
        const wil::unique_handle handle(ToHandle(8));
        EXPECT_TRUE(handle);
        EXPECT_EQ(handle.get(), ToHandle(8));
        EXPECT_THAT(handles.closed, IsEmpty());
    }
    EXPECT_THAT(handles.closed, ElementsAre(ToHandle(8)));
}

TEST(UniqueHandle, closes_nothing_when_empty)
{
    const ClosedHandles handles;
    {
        const wil::unique_handle none;
        const wil::unique_handle null(nullptr);
        const wil::unique_handle invalid(INVALID_HANDLE_VALUE);
        EXPECT_EQ(none.get(), nullptr);
        EXPECT_FALSE(none);
        EXPECT_FALSE(null);
        EXPECT_FALSE(invalid);
        EXPECT_TRUE(none == nullptr);
    }
    EXPECT_THAT(handles.closed, IsEmpty());
}

TEST(UniqueHandle, is_moved_and_never_copied)
{
    static_assert(!std::copyable<wil::unique_handle>);
    static_assert(!std::is_convertible_v<HANDLE, wil::unique_handle>);
    const ClosedHandles handles;
    {
        wil::unique_handle first(ToHandle(8));
        wil::unique_handle second(std::move(first));
        EXPECT_FALSE(first);
        wil::unique_handle third(ToHandle(12));
        third = std::move(second);
        EXPECT_THAT(handles.closed, ElementsAre(ToHandle(12)));
        EXPECT_EQ(third.get(), ToHandle(8));
    }
    EXPECT_THAT(handles.closed, ElementsAre(ToHandle(12), ToHandle(8)));
}

TEST(UniqueHandle, survives_being_moved_to_itself)
{
    const ClosedHandles handles;
    wil::unique_handle handle(ToHandle(8));
    wil::unique_handle& same = handle;
    handle = std::move(same);
    EXPECT_EQ(handle.release(), ToHandle(8));
    EXPECT_THAT(handles.closed, IsEmpty());
}

TEST(UniqueHandle, reset_closes_and_takes_another_and_keeps_the_last_error)
{
    const ClosedHandles handles;
    wil::unique_handle handle(ToHandle(8));
    SetLastError(ERROR_ACCESS_DENIED);
    handle.reset(ToHandle(12));
    EXPECT_EQ(GetLastError(), 5U);
    EXPECT_THAT(handles.closed, ElementsAre(ToHandle(8)));
    handle.reset();
    EXPECT_THAT(handles.closed, ElementsAre(ToHandle(8), ToHandle(12)));
    EXPECT_FALSE(handle);
}

TEST(UniqueHandle, release_hands_the_handle_over)
{
    const ClosedHandles handles;
    wil::unique_handle handle(ToHandle(8));
    EXPECT_EQ(handle.release(), ToHandle(8));
    EXPECT_FALSE(handle);
    EXPECT_THAT(handles.closed, IsEmpty());
}

TEST(UniqueHandle, put_and_its_address_close_first)
{
    const ClosedHandles handles;
    wil::unique_handle handle(ToHandle(8));
    *handle.put() = ToHandle(12);
    EXPECT_THAT(handles.closed, ElementsAre(ToHandle(8)));
    EXPECT_EQ(*&handle, nullptr);
    EXPECT_THAT(handles.closed, ElementsAre(ToHandle(8), ToHandle(12)));
}

TEST(UniqueHfile, is_empty_as_an_invalid_handle)
{
    const ClosedHandles handles;
    {
        wil::unique_hfile file;
        EXPECT_EQ(file.get(), INVALID_HANDLE_VALUE);
        EXPECT_FALSE(file);
        EXPECT_FALSE(wil::unique_hfile(ToHandle(0)));
        file.reset(ToHandle(8));
        EXPECT_TRUE(file);
        EXPECT_EQ(file.release(), ToHandle(8));
        EXPECT_EQ(file.get(), INVALID_HANDLE_VALUE);
        static_assert(std::is_same_v<wil::unique_tool_help_snapshot, wil::unique_hfile>);
    }
    EXPECT_THAT(handles.closed, IsEmpty());
}

TEST(UniqueProcessHandle, takes_the_handle_of_the_calling_process)
{
    const ClosedHandles handles;
    EXPECT_FALSE(wil::unique_process_handle());
    EXPECT_TRUE(wil::unique_process_handle(GetCurrentProcess()));
    EXPECT_THAT(handles.closed, ElementsAre(GetCurrentProcess()));
}

TEST(UniqueHfind, ends_a_search)
{
    std::vector<HANDLE> closed;
    const Fake<&FindClose> close = [&](HANDLE search) {
        closed.push_back(search);
        return TRUE;
    };
    wil::unique_hfind(ToHandle(8)).reset();
    wil::unique_hfind().reset();
    EXPECT_THAT(closed, ElementsAre(ToHandle(8)));
}

TEST(UniqueHkey, closes_a_key)
{
    std::vector<HKEY> closed;
    const Fake<&RegCloseKey> close = [&](HKEY key) {
        closed.push_back(key);
        return ERROR_SUCCESS;
    };
    {
        wil::unique_hkey key;
        EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, nullptr, 0, KEY_READ, &key), ERROR_SUCCESS);
        EXPECT_TRUE(key);
    }
    EXPECT_EQ(closed.size(), 1U);
}

TEST(UniqueSchandle, closes_a_service_handle)
{
    std::vector<SC_HANDLE> closed;
    const Fake<&CloseServiceHandle> close = [&](SC_HANDLE handle) {
        closed.push_back(handle);
        return TRUE;
    };
    const auto handle = reinterpret_cast<SC_HANDLE>(INT_PTR{8});
    wil::unique_schandle(handle).reset();
    EXPECT_THAT(closed, ElementsAre(handle));
}

TEST(UniqueStrings, are_freed_by_what_they_come_from)
{
    std::vector<const void*> freed;
    const Fake<&CoTaskMemFree> freeTask = [&](void* memory) { freed.push_back(memory); };
    const Fake<&SysFreeString> freeBstr = [&](BSTR memory) { freed.push_back(memory); };
    wchar_t task[] = L"t";
    wchar_t bstr[] = L"b";
    EXPECT_STREQ(wil::unique_cotaskmem_string(task).get(), L"t");
    EXPECT_STREQ(wil::unique_bstr(bstr).get(), L"b");
    EXPECT_THAT(freed, ElementsAre(task, bstr));
}

namespace
{

// The variants that are cleared while this lives, as their types; clearing spoils the last error.
class ClearedVariants
{
public:
    std::vector<VARTYPE> types;

private:
    Fake<&VariantClear> m_clear = [this](VARIANT* value) {
        types.push_back(value->vt);
        const HRESULT result = Fake<&VariantClear>::Real(value);
        SetLastError(ERROR_BAD_COMMAND);
        return result;
    };
};

} // namespace

TEST(UniqueVariant, is_a_variant_that_is_empty_at_first_and_cleared_at_the_end)
{
    const ClearedVariants cleared;
    {
        wil::unique_variant number;
        EXPECT_EQ(number.vt, VT_EMPTY);
        number.vt = VT_I4;
        number.lVal = 5;
        const VARIANT copy = number;
        EXPECT_EQ(copy.lVal, 5);
        EXPECT_EQ(number.addressof(), static_cast<VARIANT*>(&number));
        EXPECT_THAT(cleared.types, IsEmpty());
    }
    EXPECT_THAT(cleared.types, ElementsAre(VT_I4));
}

TEST(UniqueVariant, is_moved_and_never_copied)
{
    static_assert(!std::copyable<wil::unique_variant>);
    static_assert(!std::is_convertible_v<VARIANT, wil::unique_variant>);
    const ClearedVariants cleared;
    {
        wil::unique_variant first = wil::make_variant_bstr(L"text");
        const wil::unique_variant second(std::move(first));
        EXPECT_EQ(first.vt, VT_EMPTY);
        EXPECT_STREQ(second.bstrVal, L"text");
    }
    EXPECT_EQ(std::count(cleared.types.begin(), cleared.types.end(), VT_BSTR), 1);
}

TEST(UniqueVariant, keeps_the_last_error)
{
    const ClearedVariants cleared;
    {
        const wil::unique_variant variant = wil::make_variant_bstr(L"text");
        SetLastError(ERROR_ACCESS_DENIED);
    }
    EXPECT_EQ(GetLastError(), 5U);
}

TEST(MakeBstr, copies_a_text)
{
    const wchar_t text[] = L"pr\u00FCfen";
    const wil::unique_bstr copy = wil::make_bstr(text);
    EXPECT_STREQ(copy.get(), text);
    EXPECT_EQ(SysStringLen(copy.get()), 6U);
    EXPECT_EQ(SysStringLen(wil::make_bstr(L"").get()), 0U);
    EXPECT_NE(wil::make_bstr(L"").get(), nullptr);
}

TEST(MakeVariantBstr, copies_a_text)
{
    const wil::unique_variant copy = wil::make_variant_bstr(L"");
    EXPECT_EQ(copy.vt, VT_BSTR);
    ASSERT_NE(copy.bstrVal, nullptr);
    EXPECT_STREQ(copy.bstrVal, L"");
}

TEST(MakeBstr, throws_when_memory_runs_out)
{
    const Fake<&SysAllocString> allocate = [](const wchar_t*) -> BSTR { return nullptr; };
    const auto thrownBy = [](auto make) {
        try
        {
            make(L"text");
            return S_OK;
        }
        catch (const wil::ResultException& exception)
        {
            return exception.GetErrorCode();
        }
    };
    EXPECT_EQ(thrownBy(wil::make_bstr), E_OUTOFMEMORY);
    EXPECT_EQ(thrownBy(wil::make_variant_bstr), E_OUTOFMEMORY);
}

namespace
{

// How the events are made that are made while this lives.
class MadeEvents
{
public:
    std::vector<DWORD> flags;
    DWORD error = ERROR_SUCCESS;

private:
    Fake<&CreateEventExW> m_create = [this](SECURITY_ATTRIBUTES* security, LPCWSTR name, DWORD how,
                                            DWORD access) -> HANDLE {
        EXPECT_EQ(security, nullptr);
        EXPECT_EQ(access, static_cast<DWORD>(EVENT_ALL_ACCESS));
        flags.push_back(how);
        SetLastError(error);
        return error == ERROR_SUCCESS ? Fake<&CreateEventExW>::Real(security, name, how, access) : nullptr;
    };
};

} // namespace

TEST(UniqueEvent, is_made_as_its_option_says_and_stays_signaled)
{
    const MadeEvents made;
    const wil::unique_event event(wil::EventOptions::ManualReset);
    EXPECT_THAT(made.flags, ElementsAre(1U));
    EXPECT_FALSE(event.wait(0));
    event.SetEvent();
    EXPECT_TRUE(event.wait());
    EXPECT_TRUE(event.wait(0));
}

TEST(UniqueEvent, waits_for_ever_unless_it_is_told_otherwise)
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

TEST(UniqueEvent, is_closed_at_the_end)
{
    const ClosedHandles handles;
    const Fake<&CreateEventExW> create = [](SECURITY_ATTRIBUTES*, LPCWSTR, DWORD, DWORD) { return ToHandle(8); };
    {
        const wil::unique_event event(wil::EventOptions::ManualReset);
        EXPECT_THAT(handles.closed, IsEmpty());
    }
    EXPECT_THAT(handles.closed, ElementsAre(ToHandle(8)));
}

TEST(UniqueEvent, throws_the_last_error_when_it_cannot_be_made)
{
    MadeEvents made;
    made.error = ERROR_NO_SYSTEM_RESOURCES;
    try
    {
        const wil::unique_event event(wil::EventOptions::ManualReset);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const wil::ResultException& exception)
    {
        EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES));
    }
}
