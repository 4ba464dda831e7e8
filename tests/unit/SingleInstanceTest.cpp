#include "Uninstaller/SingleInstance.h"

#include "support/unit/FailureLog.h"
#include "support/unit/Handles.h"

#include <windows.h>

#include <gmock/gmock.h>

namespace
{

using namespace Uninstaller;
using namespace Testing;

// The mutex of the product's installers.
class SingleInstanceTest : public testing::Test
{
protected:
    void ExpectRefused()
    {
        const auto ending = CheckSingleInstance(mutex);
        ASSERT_TRUE(ending);
        EXPECT_EQ(ending->outcome, Outcome::AlreadyRunning);
        EXPECT_EQ(ending->text, L"");
    }

    Journal journal;
    Handles handles{journal};
    DWORD error = ERROR_SUCCESS;
    bool isDenied = false;
    HANDLE made = nullptr;
    Fake<&CreateMutexExW> createMutex = [this](LPSECURITY_ATTRIBUTES security, LPCWSTR name, DWORD flags,
                                               DWORD access) -> HANDLE {
        EXPECT_EQ(security, nullptr);
        EXPECT_STREQ(name, L"Global\\Velmora_Installer_Mutex");
        EXPECT_EQ(flags, 1U);
        EXPECT_EQ(access, 0x1F0001U);
        made = isDenied ? nullptr : handles.Make("mutex");
        SetLastError(error);
        return made;
    };
    wil::unique_handle mutex;
};

TEST_F(SingleInstanceTest, Takes_the_mutex)
{
    EXPECT_FALSE(CheckSingleInstance(mutex));

    EXPECT_EQ(mutex.get(), made);
    EXPECT_TRUE(handles.IsOpen(made));

    ReleaseSingleInstance(mutex);
    EXPECT_FALSE(handles.IsOpen(made));
    EXPECT_FALSE(mutex);
}

TEST_F(SingleInstanceTest, Refuses_while_another_one_has_it_and_keeps_the_handle_until_it_is_released)
{
    error = ERROR_ALREADY_EXISTS;

    ExpectRefused();

    EXPECT_TRUE(handles.IsOpen(made));
    ReleaseSingleInstance(mutex);
    EXPECT_FALSE(handles.IsOpen(made));
}

TEST_F(SingleInstanceTest, Refuses_when_it_cannot_be_had)
{
    isDenied = true;
    error = ERROR_ACCESS_DENIED;

    ExpectRefused();

    EXPECT_FALSE(mutex);
    ReleaseSingleInstance(mutex); // has nothing to close
}

TEST_F(SingleInstanceTest, A_handle_that_cannot_be_closed_is_an_exception)
{
    EXPECT_FALSE(CheckSingleInstance(mutex));
    journal.Fail("CloseHandle", ERROR_INVALID_HANDLE);

    EXPECT_THAT([this] { ReleaseSingleInstance(mutex); }, ThrowsResult(HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE)));
    EXPECT_FALSE(mutex); // which is not closed again
}

} // namespace
