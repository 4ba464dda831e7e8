#include "support/common/ImportTableFake.h"
#include "support/unit/RecordedFailures.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/filesystem.h>
#include <wil/resource.h>

#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

using namespace Testing;

// The library stops the compilation, too, but in the constructor's body.
static_assert(!std::is_constructible_v<wil::unique_hfile, std::nullptr_t>);
static_assert(std::is_constructible_v<wil::unique_handle, std::nullptr_t>);

TEST(CreateDirectoryDeepAnywhereTest, Goes_up_to_the_drive_the_volume_or_the_share_and_does_not_create_it)
{
    std::vector<std::wstring> tried;
    const Fake<&CreateDirectoryW> create = [&](const wchar_t* path, SECURITY_ATTRIBUTES*) {
        tried.emplace_back(path);
        SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    };
    for (const wchar_t* const root : {L"X:\\", L"X:/", L"X:", L"\\\\?\\X:\\", L"//?/X:/", L"\\\\?/X:/", L"\\\\.\\X:\\",
                                      L"\\\\?\\Volume{11111111-2222-3333-4444-555555555555}\\",
                                      L"//?/Volume{11111111-2222-3333-4444-555555555555}/",
                                      L"\\\\.\\Volume{11111111-2222-3333-4444-555555555555}\\", L"\\\\server\\share\\",
                                      L"//server/share/", L"\\\\?\\UNC\\server\\share\\", L"//?/UNC/server/share/",
                                      L"\\\\?\\unc\\server\\share\\", L"\\\\.\\UNC\\server\\share\\"})
    {
        tried.clear();
        const std::wstring path = root;
        EXPECT_EQ(wil::CreateDirectoryDeepNoThrow((path + L"a\\b").c_str()), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
        EXPECT_THAT(tried, testing::ElementsAre(path + L"a\\b", path + L"a"));
    }
}

TEST(LastErrorTest, Stays_as_it_was_when_a_failure_is_recorded)
{
    const RecordedFailures failures;
    SetLastError(ERROR_ACCESS_DENIED);
    static_cast<void>([]() -> HRESULT {
        RETURN_IF_FAILED(E_FAIL);
        return S_OK;
    }());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(failures.Count(), 1U);
}
