#include "RecordedFailures.h"
#include "support/ImportTableFake.h"
#include "support/TestFolder.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <wil/filesystem.h>
#include <wil/registry.h>

#include <cstring>
#include <string>

using namespace Testing;

TEST(LinkOfAnUnknownKind, is_a_link_whatever_else_its_tag_tells)
{
    const TestFolder folder;
    const Fake<&GetFileInformationByHandleEx> inform = [](HANDLE, FILE_INFO_BY_HANDLE_CLASS, void* answer, DWORD) {
        // A name surrogate that claims to be a directory with contents of its own.
        *static_cast<FILE_ATTRIBUTE_TAG_INFO*>(answer) = {FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT,
                                                          0xB0000003};
        return TRUE;
    };
    EXPECT_FALSE(wil::TryCreateFileCanRecurseIntoDirectory(folder.Path().c_str(), nullptr));
}

TEST(LastError, stays_as_it_was_when_a_failure_is_recorded)
{
    const RecordedFailures failures;
    SetLastError(ERROR_ACCESS_DENIED);
    LOG_HR(E_FAIL);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(failures.Count(), 1U);
}

TEST(GetValueStringOfAnyProvider, grows_its_buffer_even_when_no_size_is_told)
{
    const std::wstring text(2000, L'x');
    int calls = 0;
    const Fake<&RegGetValueW> get = [&](HKEY, PCWSTR, PCWSTR, DWORD, DWORD*, void* data, DWORD* bytes) -> LSTATUS {
        const auto needed = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
        if (++calls > 20)
        {
            return ERROR_TIMEOUT;
        }
        if (*bytes < needed)
        {
            *bytes = 0;
            return ERROR_MORE_DATA;
        }
        *bytes = needed;
        std::memcpy(data, text.c_str(), needed);
        return ERROR_SUCCESS;
    };
    EXPECT_EQ(wil::reg::get_value_string(HKEY_CURRENT_USER, L"value"), text);
}
