#include "Installer/Environment.h"

#include "support/FailureLog.h"
#include "support/FakeRegistry.h"
#include "support/OutOfMemory.h"
#include "support/VirtualClock.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using namespace std::string_literals;
using Calls = std::vector<std::string>;

constexpr wchar_t c_key[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
constexpr wchar_t c_entry[] = L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib";

const std::string c_keyName = "SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
const std::string c_openForReading = "open " + c_keyName + " 20019";
const std::string c_openForWriting = "open " + c_keyName + " f003f";
const std::string c_querySize = "query " + c_keyName + " PATH size";
const std::string c_query = "query " + c_keyName + " PATH";
const std::string c_set = "set " + c_keyName + " PATH";
const Calls c_readCalls{c_openForReading, c_querySize, c_query};

class EnvironmentTest : public testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(registry.OpenKeys(), 0U);
        EXPECT_TRUE(clock.Sleeps().empty());
    }

    void SetPath(std::wstring_view path, DWORD type = REG_EXPAND_SZ) { registry.SetString(c_key, L"PATH", path, type); }
    std::wstring Path() const { return registry.FindString(c_key, L"PATH"); }

    // Removes the entry from a path and returns what became of it.
    std::wstring RemoveFrom(std::wstring_view path, const std::wstring& entry = c_entry)
    {
        SetPath(path);
        EXPECT_EQ(RemoveFromMachinePath(entry), S_OK);
        return Path();
    }

    void ExpectUntouched(std::wstring_view path)
    {
        const auto calls = registry.Calls().size();
        EXPECT_EQ(RemoveFrom(path), path);
        EXPECT_EQ(registry.Calls().size(), calls + 3); // read only
        EXPECT_TRUE(broadcasts.empty());
    }

    using Broadcast = std::tuple<HWND, UINT, WPARAM, std::wstring, UINT, UINT, PDWORD_PTR>;

    VirtualClock clock;
    FakeRegistry registry;
    FailureLog failures;
    std::vector<Broadcast> broadcasts;
    Fake<&SendMessageTimeoutW> send = [this](HWND window, UINT message, WPARAM first, LPARAM second, UINT flags,
                                             UINT timeout, PDWORD_PTR result) -> LRESULT {
        broadcasts.emplace_back(window, message, first, reinterpret_cast<const wchar_t*>(second), flags, timeout,
                                result);
        return 0; // nobody answered: that does not matter
    };
};

TEST_F(EnvironmentTest, OpenEnvironmentKey_opens_with_the_access_asked_for)
{
    registry.AddKey(c_key);
    wil::unique_hkey key;

    EXPECT_EQ(OpenEnvironmentKey(KEY_READ, key), S_OK);
    EXPECT_TRUE(key);
    EXPECT_EQ(OpenEnvironmentKey(KEY_ALL_ACCESS, key), S_OK);

    EXPECT_EQ(registry.Calls(), (Calls{c_openForReading, c_openForWriting}));
}

TEST_F(EnvironmentTest, OpenEnvironmentKey_returns_and_records_a_failure)
{
    wil::unique_hkey key;

    EXPECT_EQ(OpenEnvironmentKey(KEY_READ, key), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));

    EXPECT_FALSE(key);
    EXPECT_TRUE(failures.Contains("Environment", HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)));
}

TEST_F(EnvironmentTest, ReadMachinePath_gives_the_raw_text_and_ends_it)
{
    SetPath(L"%SystemRoot%;C:\\A");
    std::wstring path = L"old";

    EXPECT_EQ(ReadMachinePath(path), S_OK);

    EXPECT_EQ(path, L"%SystemRoot%;C:\\A;");
    EXPECT_EQ(registry.Calls(), c_readCalls);
}

TEST_F(EnvironmentTest, ReadMachinePath_leaves_a_text_that_is_ended_already)
{
    SetPath(L"C:\\A;");
    std::wstring path;

    EXPECT_EQ(ReadMachinePath(path), S_OK);

    EXPECT_EQ(path, L"C:\\A;");
}

TEST_F(EnvironmentTest, ReadMachinePath_gives_an_empty_text_for_an_empty_value)
{
    for (const auto& data : {std::vector<BYTE>{}, std::vector<BYTE>{0, 0}})
    {
        registry.SetValue(c_key, L"PATH", REG_SZ, data);
        std::wstring path = L"old";

        EXPECT_EQ(ReadMachinePath(path), S_OK);

        EXPECT_EQ(path, L"");
    }
}

TEST_F(EnvironmentTest, ReadMachinePath_reads_up_to_the_first_zero)
{
    SetPath(L"C:\\A\0C:\\B"s);
    std::wstring path;

    EXPECT_EQ(ReadMachinePath(path), S_OK);

    EXPECT_EQ(path, L"C:\\A;");
}

TEST_F(EnvironmentTest, ReadMachinePath_copes_with_a_text_without_an_end)
{
    for (const auto& data : {std::vector<BYTE>{'A', 0}, std::vector<BYTE>{'A', 0, 'B'}, std::vector<BYTE>{'A'}})
    {
        registry.SetValue(c_key, L"PATH", REG_SZ, data);
        std::wstring path;

        EXPECT_EQ(ReadMachinePath(path), S_OK);

        EXPECT_EQ(path, data.size() == 3 ? L"AB;" : L"A;");
    }
}

TEST_F(EnvironmentTest, ReadMachinePath_reports_a_missing_value_after_the_second_query)
{
    registry.AddKey(c_key);
    std::wstring path = L"old";

    EXPECT_EQ(ReadMachinePath(path), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));

    EXPECT_EQ(path, L"");
    EXPECT_EQ(registry.Calls(), c_readCalls);
    EXPECT_TRUE(failures.Contains("Environment", HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)));
}

TEST_F(EnvironmentTest, ReadMachinePath_reports_a_key_that_cannot_be_opened)
{
    SetPath(L"C:\\A");
    registry.FailCall(c_openForReading, ERROR_ACCESS_DENIED);
    std::wstring path;

    EXPECT_EQ(ReadMachinePath(path), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    EXPECT_EQ(registry.Calls(), Calls{c_openForReading});
    EXPECT_TRUE(failures.Contains("Environment", HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)));
}

TEST_F(EnvironmentTest, ReadMachinePath_reports_a_size_that_cannot_be_read)
{
    SetPath(L"C:\\A");
    registry.FailCall(c_querySize, ERROR_ACCESS_DENIED);
    std::wstring path;

    EXPECT_EQ(ReadMachinePath(path), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    EXPECT_EQ(registry.Calls(), (Calls{c_openForReading, c_querySize}));
    EXPECT_TRUE(failures.Contains("Environment", HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)));
}

TEST_F(EnvironmentTest, ReadMachinePath_reports_a_value_that_has_grown_since_its_size_was_read)
{
    SetPath(L"C:\\A");
    registry.onQuery = [this] { SetPath(L"C:\\A;C:\\B"); };
    std::wstring path;

    EXPECT_EQ(ReadMachinePath(path), HRESULT_FROM_WIN32(ERROR_MORE_DATA));

    EXPECT_EQ(path, L"");
    EXPECT_TRUE(failures.Contains("Environment", HRESULT_FROM_WIN32(ERROR_MORE_DATA)));
}

TEST_F(EnvironmentTest, ReadMachinePath_asks_for_as_many_bytes_as_were_reported)
{
    SetPath(L"C:\\A");
    DWORD reported = 0;
    Fake<&RegQueryValueExW> query = [&](HKEY, LPCWSTR name, LPDWORD reserved, LPDWORD, LPBYTE data,
                                        LPDWORD size) -> LSTATUS {
        EXPECT_STREQ(name, L"PATH");
        EXPECT_EQ(reserved, nullptr);
        if (data == nullptr)
        {
            reported = *size = 10;
            return ERROR_SUCCESS;
        }
        EXPECT_EQ(*size, 10U);
        return ERROR_SUCCESS;
    };
    std::wstring path;

    EXPECT_EQ(ReadMachinePath(path), S_OK);

    EXPECT_EQ(reported, 10U);
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_takes_the_entry_out_from_between_others)
{
    EXPECT_EQ(RemoveFrom(L"C:\\A;%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib;C:\\B"), L"C:\\A;C:\\B;");

    Calls expected = c_readCalls;
    expected.insert(expected.end(), {c_openForWriting, c_set});
    EXPECT_EQ(registry.Calls(), expected);
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_takes_out_the_first_entry_and_the_last)
{
    EXPECT_EQ(RemoveFrom(c_entry + L";C:\\B;"s), L"C:\\B;");
    EXPECT_EQ(RemoveFrom(L"C:\\B;"s + c_entry + L";"), L"C:\\B;");
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_ignores_letter_case)
{
    EXPECT_EQ(RemoveFrom(L"C:\\A;%userprofile%\\appdata\\local\\VEL MORA\\LIB"), L"C:\\A;");
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_leaves_an_empty_value_where_it_was_the_only_entry)
{
    EXPECT_EQ(RemoveFrom(c_entry), L"");

    const auto value = registry.FindValue(c_key, L"PATH");
    EXPECT_EQ(value->type, static_cast<DWORD>(REG_EXPAND_SZ));
    EXPECT_EQ(value->data.size(), 2U);
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_takes_only_the_last_of_two)
{
    EXPECT_EQ(RemoveFrom(L"C:\\A;"s + c_entry + L";C:\\B;" + c_entry + L";C:\\C"),
              L"C:\\A;"s + c_entry + L";C:\\B;C:\\C;");
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_compares_the_text_as_it_stands)
{
    ExpectUntouched(L"C:\\Users\\ann\\AppData\\Local\\Vel Mora\\lib;C:\\B");
    ExpectUntouched(L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib\\");
    ExpectUntouched(L" %USERPROFILE%\\AppData\\Local\\Vel Mora\\lib");
    ExpectUntouched(L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib ;C:\\B");
    ExpectUntouched(L"\"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib\"");
    ExpectUntouched(L"X%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib");
    ExpectUntouched(L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib2");
    ExpectUntouched(L"%USERPROFILE%/AppData/Local/Vel Mora/lib");
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_compares_ordinally)
{
    EXPECT_EQ(RemoveFrom(L"C:\\stra\u00dfe", L"C:\\strasse"), L"C:\\stra\u00dfe");
    EXPECT_EQ(RemoveFrom(L"C:\\\u00c4", L"C:\\\u00e4"), L"");
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_has_nothing_to_do_in_paths_without_entries)
{
    ExpectUntouched(L"");
    ExpectUntouched(L";");
    ExpectUntouched(L";;;");
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_keeps_empty_entries)
{
    EXPECT_EQ(RemoveFrom(L";;"s + c_entry + L";;"), L";;;");
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_takes_an_entry_that_ends_itself)
{
    EXPECT_EQ(RemoveFrom(L"C:\\A;C:\\B", L"C:\\B;"), L"C:\\A;");
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_finds_the_entry_among_a_thousand)
{
    std::wstring others;
    for (int i = 0; i < 1000; ++i)
    {
        others += L"C:\\Tools\\" + std::to_wstring(i) + L";";
    }

    EXPECT_EQ(RemoveFrom(c_entry + L";"s + others), others);
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_copes_with_the_longest_value)
{
    const std::wstring longest = std::wstring(32'767 - std::size(c_entry), L'x') + L";" + c_entry;
    ASSERT_EQ(longest.size(), 32'767U);

    EXPECT_EQ(RemoveFrom(longest), std::wstring(32'767 - std::size(c_entry), L'x') + L";");
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_always_writes_a_value_with_references)
{
    SetPath(L"C:\\A;"s + c_entry, REG_SZ);

    EXPECT_EQ(RemoveFromMachinePath(c_entry), S_OK);

    const auto value = registry.FindValue(c_key, L"PATH");
    EXPECT_EQ(value->type, static_cast<DWORD>(REG_EXPAND_SZ));
    EXPECT_EQ(value->data.size(), (std::size(L"C:\\A;")) * 2);
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_tells_running_programs)
{
    RemoveFrom(c_entry);

    ASSERT_EQ(broadcasts.size(), 1U);
    EXPECT_EQ(broadcasts[0], Broadcast(reinterpret_cast<HWND>(0xffff), 0x1aU, 0U, L"Environment", 9U, 1000U, nullptr));
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_never_writes_a_path_that_it_could_not_read)
{
    SetPath(L"C:\\A;"s + c_entry);
    registry.FailCall(c_query, ERROR_ACCESS_DENIED);

    EXPECT_EQ(RemoveFromMachinePath(c_entry), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    EXPECT_EQ(registry.Calls(), c_readCalls);
    EXPECT_EQ(Path(), L"C:\\A;"s + c_entry);
    EXPECT_TRUE(broadcasts.empty());
    EXPECT_TRUE(failures.Contains("Environment", HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)));
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_reports_a_missing_value)
{
    registry.AddKey(c_key);

    EXPECT_EQ(RemoveFromMachinePath(c_entry), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));

    EXPECT_FALSE(registry.FindValue(c_key, L"PATH"));
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_reports_a_key_that_cannot_be_opened_for_writing)
{
    SetPath(c_entry);
    registry.FailCall(c_openForWriting, ERROR_ACCESS_DENIED);

    EXPECT_EQ(RemoveFromMachinePath(c_entry), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    EXPECT_EQ(Path(), c_entry);
    EXPECT_TRUE(broadcasts.empty());
    EXPECT_TRUE(failures.Contains("Environment", HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)));
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_tells_nobody_when_the_value_cannot_be_written)
{
    SetPath(c_entry);
    registry.FailCall(c_set, ERROR_WRITE_PROTECT);

    EXPECT_EQ(RemoveFromMachinePath(c_entry), HRESULT_FROM_WIN32(ERROR_WRITE_PROTECT));

    EXPECT_TRUE(broadcasts.empty());
    EXPECT_TRUE(failures.Contains("Environment", HRESULT_FROM_WIN32(ERROR_WRITE_PROTECT)));
}

// The fake registry needs memory too, so only what comes after it can run out of it.
TEST_F(EnvironmentTest, nothing_is_thrown_or_written_when_memory_runs_out)
{
    std::optional<OutOfMemory> outOfMemory;
    Fake<&RegOpenKeyExW> open = [](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY key) -> LSTATUS {
        *key = reinterpret_cast<HKEY>(1);
        return ERROR_SUCCESS;
    };
    Fake<&RegCloseKey> justClose = [](HKEY) -> LSTATUS { return ERROR_SUCCESS; };
    Fake<&RegQueryValueExW> query = [&](HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE data, LPDWORD size) -> LSTATUS {
        if (data == nullptr)
        {
            *size = 2000;
            outOfMemory.emplace();
        }
        return ERROR_SUCCESS;
    };
    std::wstring path;

    const HRESULT readResult = ReadMachinePath(path);
    outOfMemory.reset();
    EXPECT_EQ(readResult, E_OUTOFMEMORY);

    // The path is read whole, and memory runs out at the copy of the entry.
    const std::wstring entry(2000, L'x');
    Fake<&RegQueryValueExW> lastQuery = [&](HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD size) -> LSTATUS {
        *size = 0;
        return ERROR_SUCCESS;
    };
    Fake<&RegCloseKey> close = [&](HKEY) -> LSTATUS {
        outOfMemory.emplace();
        return ERROR_SUCCESS;
    };
    const HRESULT removeResult = RemoveFromMachinePath(entry);
    outOfMemory.reset();
    EXPECT_EQ(removeResult, E_OUTOFMEMORY);
    EXPECT_TRUE(broadcasts.empty());
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_compares_whole_segments_with_the_target)
{
    std::vector<std::pair<std::wstring, std::wstring>> compared;
    Fake<&CompareStringOrdinal> compare = [&](LPCWSTR left, INT leftLength, LPCWSTR right, INT rightLength,
                                              BOOL ignoreCase) {
        // The fake registry compares too, with lengths.
        if (leftLength == -1)
        {
            EXPECT_EQ(rightLength, -1);
            EXPECT_EQ(ignoreCase, TRUE);
            compared.emplace_back(left, right);
        }
        return decltype(compare)::Real(left, leftLength, right, rightLength, ignoreCase);
    };

    RemoveFrom(L"C:\\A;C:\\B;C:\\C", L"C:\\B");

    EXPECT_EQ(compared, (decltype(compared){{L"C:\\C;", L"C:\\B;"}, {L"C:\\B;", L"C:\\B;"}}));
}

} // namespace
