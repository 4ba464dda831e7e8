#include "Installer/Environment.h"

#include "support/unit/FailureLog.h"
#include "support/unit/FakeRegistry.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/VirtualClock.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t c_key[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";
constexpr wchar_t c_entry[] = L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib";

// Calls, as the journal has them.
std::string About(const char* function, const std::string& rest)
{
    return function + "(\""s + Narrow(c_key) + "\"" + rest + ")";
}

const std::string c_openForReading = About("RegOpenKeyExW", ", 0x20019");
const std::string c_openForWriting = About("RegOpenKeyExW", ", 0xf003f");
const std::string c_querySize = About("RegQueryValueExW", ", \"PATH\", null");
const std::string c_query = About("RegQueryValueExW", ", \"PATH\", data");
const std::string c_set = About("RegSetKeyValueW", ", \"PATH\", 2"); // REG_EXPAND_SZ
const std::string c_close = About("RegCloseKey", "");
const Calls c_read{c_openForReading, c_querySize, c_query, c_close};

class EnvironmentTest : public testing::Test
{
protected:
    ~EnvironmentTest() override { EXPECT_THAT(clock.Sleeps(), IsEmpty()); }

    void SetPath(std::wstring_view path, DWORD type = REG_EXPAND_SZ) { registry.SetString(c_key, L"PATH", path, type); }

    // Removes the entry from a path and returns what became of it.
    std::wstring RemoveFrom(std::wstring_view path, const std::wstring& entry = c_entry)
    {
        SetPath(path);
        EXPECT_EQ(RemoveFromMachinePath(entry), S_OK);
        return registry.FindString(c_key, L"PATH");
    }

    // Whether a failure was recorded, which comes back too.
    bool Recorded(DWORD error) const { return failures.Contains("Environment", HRESULT_FROM_WIN32(error)); }

    using Broadcast = std::tuple<HWND, UINT, WPARAM, std::wstring, UINT, UINT, PDWORD_PTR>;

    Journal journal;
    Handles handles{journal};
    VirtualClock clock;
    FakeRegistry registry{journal, handles};
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

    EXPECT_THAT(journal.All(), ElementsAre(c_openForReading, c_close, c_openForWriting));
}

TEST_F(EnvironmentTest, OpenEnvironmentKey_returns_and_records_a_failure)
{
    wil::unique_hkey key;

    EXPECT_EQ(OpenEnvironmentKey(KEY_READ, key), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));

    EXPECT_FALSE(key);
    EXPECT_TRUE(Recorded(ERROR_FILE_NOT_FOUND));
}

TEST_F(EnvironmentTest, ReadMachinePath_gives_the_text_as_it_is_stored_and_ends_it)
{
    const std::pair<std::vector<BYTE>, const wchar_t*> values[] = {
        {{'%', 0, 'A', 0, '%', 0, ';', 0, 'B', 0, 0, 0}, L"%A%;B;"},
        {{'A', 0, ';', 0, 0, 0}, L"A;"},
        {{}, L""},
        {{0, 0}, L""},
        {{'A', 0, 0, 0, 'B', 0, 0, 0}, L"A;"}, // up to the first zero
        {{'A', 0}, L"A;"},                     // without an end
        {{'A', 0, 'B'}, L"AB;"},
        {{'A'}, L"A;"},
    };
    for (const auto& [data, text] : values)
    {
        registry.SetValue(c_key, L"PATH", REG_SZ, data);
        std::wstring path = L"old";

        EXPECT_EQ(ReadMachinePath(path), S_OK);

        EXPECT_EQ(path, text);
        EXPECT_EQ(journal.Take(), c_read);
    }
}

TEST_F(EnvironmentTest, A_missing_value_is_reported_after_the_second_query_and_stays_missing)
{
    registry.AddKey(c_key);
    std::wstring path = L"old";

    EXPECT_EQ(ReadMachinePath(path), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));

    EXPECT_EQ(path, L"");
    EXPECT_EQ(journal.Take(), c_read);
    EXPECT_TRUE(Recorded(ERROR_FILE_NOT_FOUND));

    EXPECT_EQ(RemoveFromMachinePath(c_entry), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(journal.All(), c_read);
}

TEST_F(EnvironmentTest, ReadMachinePath_reports_a_value_that_has_grown_since_its_size_was_read)
{
    SetPath(L"C:\\A");
    std::vector<DWORD> sizes;
    Fake<&RegQueryValueExW> query = [&](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                        LPDWORD size) {
        sizes.push_back(*size);
        const LSTATUS status = query.Hidden(key, name, reserved, type, data, size);
        SetPath(L"C:\\A;C:\\B");
        return status;
    };
    std::wstring path;

    EXPECT_EQ(ReadMachinePath(path), HRESULT_FROM_WIN32(ERROR_MORE_DATA));

    EXPECT_EQ(path, L"");
    EXPECT_THAT(sizes, ElementsAre(0, 10));
    EXPECT_TRUE(Recorded(ERROR_MORE_DATA));
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_writes_the_rest_and_tells_running_programs)
{
    SetPath(L"C:\\A;"s + c_entry + L";C:\\B", REG_SZ);

    EXPECT_EQ(RemoveFromMachinePath(c_entry), S_OK);

    EXPECT_EQ(journal.All(), (c_read + Calls{c_openForWriting, c_set, c_close}));
    EXPECT_EQ(registry.FindString(c_key, L"PATH"), L"C:\\A;C:\\B;");
    EXPECT_EQ(registry.FindValue(c_key, L"PATH")->data.size(), sizeof(L"C:\\A;C:\\B;"));
    EXPECT_THAT(broadcasts, ElementsAre(Broadcast(HWND_BROADCAST, 0x1aU, 0U, L"Environment", 9U, 1000U, nullptr)));
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_takes_out_the_last_entry_that_equals)
{
    std::wstring thousand;
    for (int i = 0; i < 1000; ++i)
    {
        thousand += L"C:\\Tools\\" + std::to_wstring(i) + L";";
    }
    const std::wstring longest = std::wstring(32'767 - std::size(c_entry), L'x') + L";";
    const std::pair<std::wstring, std::wstring> paths[] = {
        {c_entry + L";C:\\B;"s, L"C:\\B;"},
        {L"C:\\B;"s + c_entry + L";", L"C:\\B;"},
        {L"C:\\A;%userprofile%\\appdata\\local\\VEL MORA\\LIB", L"C:\\A;"},
        {c_entry, L""},
        {L"C:\\A;"s + c_entry + L";C:\\B;" + c_entry + L";C:\\C", L"C:\\A;"s + c_entry + L";C:\\B;C:\\C;"},
        {L";;"s + c_entry + L";;", L";;;"}, // empty entries stay
        {c_entry + L";"s + thousand, thousand},
        {longest + c_entry, longest},
    };
    for (const auto& [before, after] : paths)
    {
        EXPECT_EQ(RemoveFrom(before), after);
    }
    EXPECT_EQ(RemoveFrom(L"C:\\A;C:\\B", L"C:\\B;"), L"C:\\A;"); // an entry that ends itself
    EXPECT_EQ(RemoveFrom(L";A;", L"A"), L";");
    EXPECT_EQ(RemoveFrom(L"C:\\\u00c4", L"C:\\\u00e4"), L"");
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_leaves_a_path_without_the_entry)
{
    for (const wchar_t* const path :
         {L"C:\\Users\\ann\\AppData\\Local\\Vel Mora\\lib;C:\\B", L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib\\",
          L" %USERPROFILE%\\AppData\\Local\\Vel Mora\\lib", L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib ;C:\\B",
          L"\"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib\"", L"X%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib",
          L"%USERPROFILE%\\AppData\\Local\\Vel Mora\\lib2", L"%USERPROFILE%/AppData/Local/Vel Mora/lib", L"", L";",
          L";;;"})
    {
        EXPECT_EQ(RemoveFrom(path), path);
        EXPECT_EQ(journal.Take(), c_read);
    }
    EXPECT_EQ(RemoveFrom(L"C:\\stra\u00dfe", L"C:\\strasse"), L"C:\\stra\u00dfe"); // compared ordinally
    EXPECT_THAT(broadcasts, IsEmpty());
}

TEST_F(EnvironmentTest, RemoveFromMachinePath_writes_nothing_after_a_failure)
{
    for (const std::string& failing : {c_openForReading, c_querySize, c_query, c_openForWriting, c_set})
    {
        SCOPED_TRACE(failing);
        SetPath(c_entry);
        journal.Fail(failing, ERROR_WRITE_PROTECT, 1);

        EXPECT_EQ(RemoveFromMachinePath(c_entry), HRESULT_FROM_WIN32(ERROR_WRITE_PROTECT));

        const Calls calls = journal.Take();
        EXPECT_EQ(calls.back() == c_close ? *(calls.end() - 2) : calls.back(), failing);
        EXPECT_EQ(registry.FindString(c_key, L"PATH"), c_entry);
        EXPECT_THAT(broadcasts, IsEmpty());
        EXPECT_TRUE(Recorded(ERROR_WRITE_PROTECT));
    }
}

// The fake registry needs memory too, so only what comes after it can run out of it.
TEST_F(EnvironmentTest, Nothing_is_thrown_or_written_when_memory_runs_out)
{
    SetPath(std::wstring(2000, L'x'));
    std::optional<OutOfMemory> outOfMemory;
    std::wstring path;
    {
        Fake<&RegQueryValueExW> query = [&](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                            LPDWORD size) {
            const LSTATUS status = query.Hidden(key, name, reserved, type, data, size);
            outOfMemory.emplace();
            return status;
        };
        Fake<&RegCloseKey> close = [&](HKEY key) {
            outOfMemory.reset();
            return close.Hidden(key);
        };
        EXPECT_EQ(ReadMachinePath(path), E_OUTOFMEMORY);
    }

    // The path is read whole, and memory runs out at the copy of the entry.
    const std::wstring entry(2000, L'x');
    Fake<&RegCloseKey> close = [&](HKEY key) {
        const LSTATUS status = close.Hidden(key);
        outOfMemory.emplace();
        return status;
    };
    const HRESULT result = RemoveFromMachinePath(entry);
    outOfMemory.reset();
    EXPECT_EQ(result, E_OUTOFMEMORY);
    EXPECT_THAT(broadcasts, IsEmpty());
}

} // namespace
