// What lies in the product's folders by accident or by malice, and what is done to them while they are deleted.
#include "EndToEndTest.h"
#include "support/common/DirectoryLink.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Owners.h"
#include "support/end_to_end/Waiting.h"

#include <windows.h>

#include <atomic>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Testing
{
namespace
{
constexpr int c_removeSettings = 1;

// Where the state of the machine is not looked at.
constexpr std::wstring_view c_workshop = LR"(C:\windows\Temp\Velmora.Tests.Workshop)";

class HostileFolderTest : public EndToEndTest
{
protected:
    HostileFolderTest()
    {
        RemoveTree(std::wstring(c_workshop));
        WriteTestFile(Workshop(LR"(away\none)"), 0);
        WriteTestFile(c_target + LR"(\letter.txt)", 100);
        WriteTestFile(c_target + LR"(\below\picture.png)", 1'000);
    }

    ~HostileFolderTest() override
    {
        // Links first: what leads nowhere is hard to see.
        RemoveTree(InstallFolder());
        RemoveTree(Expand(LR"(<LocalAppData>\Vel Mora)"));
        RemoveTree(std::wstring(c_workshop));
        RemoveTree(c_target);
    }

    static std::wstring Workshop(const std::wstring& name) { return std::wstring(c_workshop) + L"\\" + name; }

    // A user's folder that has nothing to do with the product.
    const std::wstring c_target = Expand(LR"(<Downloads>\somebody's)");
};

// Names that people and programs do not expect; each is one, beyond the usual rules.
std::vector<std::wstring> OddNames()
{
    return {L"a full stop at the end.",
            L"a blank at the end ",
            L" ",
            L"...",
            L"CON",
            L"COM1",
            L"%TEMP%",
            L"a;b,c=d&e^f(g)h!i'j`k~l",
            L"Velmora.lnk",
            L"\U0001F469‍\U0001F4BB \U0001F600",
            L"מחיקת קיצור הדרך",
            L"e\u0301\u0327\u0323 combining",
            L"\u202Egnp.exe",
            L"\u200B",
            L"序曲 전주곡 プレリュード",
            L"İıŞş ſß ǅ",
            std::wstring(240, L'x')};
}

TEST_F(HostileFolderTest, Odd_names_long_paths_and_second_names_go_and_the_first_name_keeps_its_file)
{
    // As long as every file system below lets it.
    std::wstring deep = L"\\deep";
    while (deep.size() < 3'500)
    {
        deep += L"\\" + std::wstring(100, L'd');
    }
    LayDownSample();
    for (const Step step : {Step::InstallFolder, Step::UpdaterFolder, Step::VelmoraUserFolder})
    {
        const std::wstring folder = PathOf(RowOf(step).parts.front());
        for (const std::wstring& name : OddNames())
        {
            WriteTestFile(folder + L"\\files\\" + name, 10);
            WriteTestFile(folder + L"\\folders\\" + name + L"\\" + name, 10);
        }
        WriteTestFile(folder + L"\\files\\of a file:stream", 10);
        WriteTestFile(folder + deep + L"\\file", 10);
        ASSERT_TRUE(CreateHardLinkW((folder + L"\\linked").c_str(), (c_target + LR"(\letter.txt)").c_str(), nullptr));
    }
    Run(L"-g", {.answers = {AnswerConfirmation(IDYES, c_removeSettings), FullSuccessMessage()}});
    ExpectFullSuccess(ExpectedLog().Runs("Gui").RemovesSettings(), DeclaredState(true));
}

// Exchanges folders for others of the same names, which have a link in them, and back again, as fast as it can and as
// long as it lives, from its own thread.
class Exchanger
{
public:
    // Each folder and the one that it is exchanged for have numbers as their names, from 0 on.
    Exchanger(std::wstring folder, const std::wstring& others, const std::wstring& aside, int count)
        : m_folder(std::move(folder)),
          m_count(count),
          m_outside(static_cast<std::size_t>(count), others),
          m_free(static_cast<std::size_t>(count), aside),
          m_thread([this] { Exchange(); })
    {}

    ~Exchanger()
    {
        m_isToEnd = true;
        m_thread.join();
        std::cout << m_done << " times a folder was exchanged.\n";
    }
    Exchanger(const Exchanger&) = delete;
    Exchanger& operator=(const Exchanger&) = delete;

private:
    void Exchange()
    {
        for (int number = 0; !m_isToEnd; number = (number + 1) % m_count)
        {
            const std::wstring name = L"\\" + std::to_wstring(number);
            std::wstring& outside = m_outside[static_cast<std::size_t>(number)];
            std::wstring& free = m_free[static_cast<std::size_t>(number)];
            MoveFileW((m_folder + name).c_str(), (free + name).c_str());
            if (MoveFileW((outside + name).c_str(), (m_folder + name).c_str()))
            {
                std::swap(outside, free);
                ++m_done;
            }
        }
    }

    std::wstring m_folder;
    int m_count;
    // For each number the place of the folder that is not in its place, and where that one can go.
    std::vector<std::wstring> m_outside;
    std::vector<std::wstring> m_free;
    int m_done = 0;
    std::atomic<bool> m_isToEnd = false;
    std::thread m_thread;
};

TEST_F(HostileFolderTest, Links_that_are_put_into_the_installation_folder_while_it_is_deleted_are_not_followed)
{
    constexpr int c_count = 8;
    constexpr int c_attempts = 4;
    LayDownSample();
    const std::wstring exchanged = InstallFolder() + L"\\exchanged";
    for (int number = 0; number < c_count; ++number)
    {
        const std::wstring name = L"\\" + std::to_wstring(number);
        for (const wchar_t* const file : {L"1", L"2", L"3"})
        {
            WriteTestFile(exchanged + name + L"\\inner\\" + file, 100);
        }
        WriteTestFile(Workshop(L"prepared") + name + L"\\beside", 100);
        ASSERT_TRUE(CreateDirectoryLink(Workshop(L"prepared") + name + L"\\inner", c_target));
    }
    ASSERT_TRUE(CreateDirectoryLink(exchanged + L"\\always", c_target));
    // An attempt fails as long as a file is in use, and has passed when another is gone.
    const std::wstring marker = InstallFolder() + L"\\marker";
    WriteTestFile(marker, 1);
    UniqueHandle held = Hold(InstallFolder() + LR"(\current\Velmora.exe)");
    std::optional<Exchanger> exchanger;
    int attempts = 0;
    Run(L"-s", {.whileRunning = [&](const std::string& log) {
            if (held && !exchanger && log.find(c_stopping) != std::string::npos)
            {
                exchanger.emplace(exchanged, Workshop(L"prepared"), Workshop(L"away"), c_count);
            }
            if (held && GetFileAttributesW(marker.c_str()) == INVALID_FILE_ATTRIBUTES)
            {
                if (++attempts == c_attempts)
                {
                    exchanger.reset();
                    held.reset();
                }
                else
                {
                    WriteTestFile(marker, 1);
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
    LayDownSample();
    const std::wstring folder = Expand(LR"(<LocalAppData>\Vel Mora)");
    UniqueHandle held = Hold(folder + LR"(\settings.json)");
    RunOptions options{.answers = {AnswerConfirmation(IDYES, c_removeSettings), FullSuccessMessage()}};
    options.whileRunning = [&](const std::string& log) {
        // With nothing but that file left, the first attempt is bound to fail.
        if (held && log.find("Attempting to delete") != std::string::npos && MeasureTree(folder).files == 1)
        {
            held.reset();
            // As soon as that attempt is over: until then it holds the folder.
            EXPECT_TRUE(BecomesTrue([&] { return MoveFileW(folder.c_str(), Workshop(L"away\\Vel Mora").c_str()); }));
            EXPECT_TRUE(CreateDirectoryLink(folder, c_target));
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
// Somebody was in the temporary folder before the program.
class PlantedTest : public HostileFolderTest
{
protected:
    ~PlantedTest() override { RemoveTree(TemporaryFolder() + L"Velmora"); }

    void ExpectTargetUntouched() const
    {
        const auto isIn = [this](const std::wstring& path) { return IsAtOrBelow(path, c_target); };
        for (const auto& [path, entry] : After().All())
        {
            const StateEntry* const before = Before().Find(path);
            EXPECT_TRUE(!isIn(path) || (before != nullptr && *before == entry))
                << ToUtf8(path) << ": " << Describe(entry);
        }
        for (const auto& [path, entry] : Before().All())
        {
            EXPECT_TRUE(!isIn(path) || After().Find(path) != nullptr) << ToUtf8(path);
        }
    }
};

class PlantedLinkTest : public PlantedTest, public ::testing::WithParamInterface<const wchar_t*>
{
};

TEST_P(PlantedLinkTest, In_place_of_a_folder_that_is_written_to_is_not_followed)
{
    LayDownSample();
    const std::wstring link = TemporaryFolder() + GetParam();
    WriteTestFile(link + L".planted", 1); // for the folders above it
    ASSERT_TRUE(CreateDirectoryLink(link, c_target));
    RunInstalled();
    // A link in the place of the reports costs them alone.
    const bool isInTheWay = !CanRemoveDirectoryLinks() && !link.ends_with(L"Sentry");
    EXPECT_EQ(Result().exitCode, isInTheWay ? c_copyFailed : c_fullSuccess);
    ExpectTargetUntouched();
}

INSTANTIATE_TEST_SUITE_P(Place, PlantedLinkTest,
                         ::testing::Values(L"Velmora", LR"(Velmora\Uninstaller)", LR"(Velmora\Uninstaller\Sentry)"));

TEST_F(PlantedTest, Name_of_another_file_in_the_place_of_the_copy_does_not_change_that_file)
{
    LayDownSample();
    WriteTestFile(RelocatedCopy() + L".planted", 1); // for the folders above it
    ASSERT_TRUE(CreateHardLinkW(RelocatedCopy().c_str(), (c_target + LR"(\letter.txt)").c_str(), nullptr));
    RunInstalled();
    EXPECT_EQ(Result().exitCode, c_fullSuccess);
    ExpectTargetUntouched();
}
} // namespace
} // namespace Testing
