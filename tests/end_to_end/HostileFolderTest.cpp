// What is exchanged for a link while it is deleted.
#include "EndToEndTest.h"
#include "support/common/DirectoryLink.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/SampleInstallation.h"
#include "support/end_to_end/Waiting.h"

#include <windows.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace Testing
{
namespace
{
class HostileFolderTest : public EndToEndTest
{
protected:
    HostileFolderTest()
    {
        LayDownSample();
        WriteTestFile(m_target + LR"(\letter.txt)", 100);
        WriteTestFile(m_target + LR"(\below\picture.png)", 1'000);
        MakeFolder(m_workshop);
    }

    ~HostileFolderTest() override
    {
        // Links first: what leads nowhere is hard to see.
        RemoveTree(InstallFolder());
        RemoveTree(Expand(LR"(<LocalAppData>\Vel Mora)"));
        RemoveTree(m_workshop);
        RemoveTree(m_target);
    }

    // Lets nobody delete a file.
    static UniqueHandle Hold(const std::wstring& file)
    {
        UniqueHandle held = OwnFile(CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_TRUE(held);
        return held;
    }

    // Where the state of the machine is not looked at.
    const std::wstring m_workshop = LR"(C:\windows\Temp\Velmora.Tests.Workshop)";
    // A user's folder that has nothing to do with the product.
    const std::wstring m_target = Expand(LR"(<Downloads>\somebody's)");
};

// Exchanges the folders in one for prepared ones of the same names, and back again, as fast as it can and as long as it
// lives, from its own thread. The names are numbers from 0 on.
class Exchanger
{
public:
    Exchanger(std::wstring folder, std::wstring prepared, std::wstring aside, int count)
        : m_folder(std::move(folder)),
          m_prepared(std::move(prepared)),
          m_aside(std::move(aside)),
          m_count(count)
    {}
    Exchanger(const Exchanger&) = delete;
    Exchanger& operator=(const Exchanger&) = delete;
    ~Exchanger()
    {
        m_isToEnd = true;
        m_thread.join();
        EXPECT_GT(m_done, 0);
    }

private:
    void Exchange()
    {
        for (int number = 0; !m_isToEnd; number = (number + 1) % m_count)
        {
            const std::wstring name = L"\\" + std::to_wstring(number);
            Move(m_folder + name, m_aside + name);
            m_done += Move(m_prepared + name, m_folder + name) ? 1 : 0;
            Move(m_folder + name, m_prepared + name);
            Move(m_aside + name, m_folder + name);
        }
    }

    // What is held, or is not there any more, stays.
    static bool Move(const std::wstring& from, const std::wstring& to)
    {
        return MoveFileW(from.c_str(), to.c_str()) != FALSE;
    }

    std::wstring m_folder;
    std::wstring m_prepared;
    std::wstring m_aside;
    int m_count;
    int m_done = 0;
    std::atomic<bool> m_isToEnd = false;
    std::thread m_thread{[this] { Exchange(); }};
};

TEST_F(HostileFolderTest, Links_that_are_put_into_the_installation_folder_while_it_is_deleted_are_not_followed)
{
    constexpr int c_count = 8;
    constexpr int c_attempts = 4;
    const std::wstring exchanged = InstallFolder() + L"\\exchanged";
    const std::wstring prepared = m_workshop + L"\\prepared";
    const std::wstring aside = m_workshop + L"\\aside";
    MakeFolder(aside);
    for (int number = 0; number < c_count; ++number)
    {
        const std::wstring name = L"\\" + std::to_wstring(number);
        WriteTestFile(exchanged + name + LR"(\inner\1)", 100);
        WriteTestFile(exchanged + name + LR"(\inner\2)", 100);
        WriteTestFile(prepared + name + L"\\beside", 100);
        ASSERT_TRUE(CreateDirectoryLink(prepared + name + L"\\inner", m_target));
    }
    ASSERT_TRUE(CreateDirectoryLink(exchanged + L"\\always", m_target));
    // An attempt fails as long as a file is in use, and has passed when another is gone.
    const std::wstring marker = InstallFolder() + L"\\marker";
    WriteTestFile(marker, 1);
    UniqueHandle held = Hold(InstallFolder() + LR"(\current\Velmora.exe)");
    std::optional<Exchanger> exchanger;
    int attempts = 0;
    Run(L"-s", {.whileRunning = [&](const std::string& log) {
            if (held && !exchanger && log.find(c_stopping) != std::string::npos)
            {
                exchanger.emplace(exchanged, prepared, aside, c_count);
            }
            if (held && GetFileAttributesW(marker.c_str()) == INVALID_FILE_ATTRIBUTES)
            {
                WriteTestFile(marker, 1);
                if (++attempts == c_attempts)
                {
                    exchanger.reset();
                    held.reset();
                }
            }
        }});
    EXPECT_FALSE(held);

    if (CanRemoveDirectoryLinks())
    {
        ExpectFullSuccess();
        return;
    }
    // Nobody can remove a link here: nothing stays but links, and they lead to a folder in which all is as it was.
    MachineState state = DeclaredState();
    for (const auto& [path, entry] : After().All())
    {
        if (entry.kind == StateEntry::Kind::Link && IsAtOrBelow(path, InstallFolder()))
        {
            CopyAfter(state, path);
        }
    }
    ExpectPartialUninstall(ExpectedLog().Fails(Step::InstallFolder, ERROR_REPARSE_POINT_ENCOUNTERED), state);
}

TEST_F(HostileFolderTest, A_users_folder_that_becomes_a_link_while_it_is_deleted_loses_nothing_of_its_target)
{
    constexpr int c_removeSettings = 1;
    const std::wstring folder = Expand(LR"(<LocalAppData>\Vel Mora)");
    UniqueHandle held = Hold(folder + LR"(\settings.json)");
    RunOptions options{.answers = {AnswerConfirmation(IDYES, c_removeSettings), FullSuccessMessage()}};
    options.whileRunning = [&](const std::string& log) {
        // With nothing but that file left, the first attempt is bound to fail.
        if (held && log.find("Attempting to delete") != std::string::npos && MeasureTree(folder).files == 1)
        {
            held.reset();
            // As soon as that attempt is over: until then it holds the folder.
            EXPECT_TRUE(BecomesTrue([&] { return MoveFileW(folder.c_str(), (m_workshop + L"\\moved").c_str()); }));
            EXPECT_TRUE(CreateDirectoryLink(folder, m_target));
        }
    };
    Run(L"-g", options);
    EXPECT_FALSE(held);
    MachineState state = DeclaredState(true);
    CopyAfter(state, folder);
    ASSERT_NE(After().Find(folder), nullptr);
    EXPECT_EQ(After().Find(folder)->kind, StateEntry::Kind::Link);
    ExpectFullSuccess(
        ExpectedLog().Runs("Gui").RemovesSettings().Fails(Step::VelmoraUserFolder, ERROR_REPARSE_POINT_ENCOUNTERED),
        state);
}
} // namespace
} // namespace Testing
