// What lies in the product's folders by accident or by malice, and what is done to them while they are deleted.
#include "EndToEndTest.h"
#include "support/DirectoryLink.h"
#include "support/Names.h"
#include "support/Owners.h"
#include "support/Waiting.h"

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
constexpr auto c_isLink = static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_REPARSE_POINT_ENCOUNTERED));

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
            L"three...",
            L"a blank at the end ",
            L" ",
            L"...",
            L". .",
            L"CON",
            L"nul.txt",
            L"COM1",
            L"aux",
            L"%TEMP%",
            L"a;b,c=d&e^f(g)h!i'j`k~l",
            L"Velmora.lnk",
            L"\U0001F469‍\U0001F4BB \U0001F600",
            L"מחיקת קיצור הדרך",
            L"حذف الاختصار",
            L"e\u0301\u0327\u0323 combining",
            L"\u202Egnp.exe",
            L"\u200B",
            L"序曲 전주곡 プレリュード",
            L"İıŞş ſß ǅ",
            std::wstring(240, L'x')};
}

// Adds a file to a folder if this system lets it, under a path that is taken as it is.
bool TryToAdd(const std::wstring& path)
{
    return OwnFile(CreateFileW((LR"(\\?\)" + path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr)) !=
           nullptr;
}

// Fills a folder with all that it should not have. Returns the length of the longest path in it.
std::size_t FillWithOddities(const std::wstring& folder, const std::wstring& bystander)
{
    for (const std::wstring& name : OddNames())
    {
        WriteTestFile(folder + L"\\files\\" + name, 10);
        WriteTestFile(folder + L"\\folders\\" + name + L"\\" + name, 10);
    }
    // Not every system below has these.
    for (const std::wstring& name : {std::wstring(L"lone \xD800 surrogate"), std::wstring(L"of a file:stream")})
    {
        if (!TryToAdd(folder + L"\\files\\" + name))
        {
            std::cout << "There can be no " << ((name.find(L':') != std::wstring::npos) ? "stream" : "lone surrogate")
                      << " here.\n";
        }
    }
    EXPECT_TRUE(CreateHardLinkW((folder + L"\\files\\linked").c_str(), bystander.c_str(), nullptr));
    // As deep as the system lets it.
    constexpr std::size_t c_longestPath = 32'700;
    std::wstring deep = folder + L"\\deep";
    std::wstring next = deep;
    while (next.size() < c_longestPath && CreateDirectoryW((LR"(\\?\)" + next).c_str(), nullptr))
    {
        deep = next;
        next += L"\\" + std::wstring(100, L'd');
    }
    while (!TryToAdd(deep + L"\\file"))
    {
        deep.erase(deep.rfind(L'\\'));
    }
    return deep.size() + 5;
}

TEST_F(HostileFolderTest, Odd_names_long_paths_and_second_names_go_and_the_first_name_keeps_its_file)
{
    LayDownSample();
    for (const std::wstring folder :
         {LR"(<ProgramFiles>\Velmora)", LR"(<ProgramData>\VelmoraUpdater)", LR"(<LocalAppData>\Vel Mora)"})
    {
        const std::size_t longest = FillWithOddities(Expand(folder), c_target + LR"(\letter.txt)");
        std::cout << "The longest path in " << ToUtf8(folder) << " has " << longest << " characters.\n";
        EXPECT_GT(longest, std::size_t{3'000});
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
    constexpr int c_exchangesInPauses = 3;
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
    // An attempt fails as long as a file is in use, and the next one has passed when a new file is gone again.
    const std::wstring heldPath = InstallFolder() + LR"(\current\Velmora.exe)";
    const std::wstring marker = InstallFolder() + L"\\marker";
    WriteTestFile(marker, 1);
    UniqueHandle held =
        OwnFile(CreateFileW(heldPath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    std::optional<Exchanger> exchanger;
    bool hasBegun = false;
    int inPauses = 0;
    RunOptions options;
    options.whileRunning = [&](const std::string& log) {
        if (log.find("Stopping Velmora...") == std::string::npos)
        {
            return;
        }
        if (!hasBegun)
        {
            hasBegun = true;
            exchanger.emplace(exchanged, Workshop(L"prepared"), Workshop(L"away"), c_count);
        }
        if (held && GetFileAttributesW(marker.c_str()) == INVALID_FILE_ATTRIBUTES)
        {
            exchanger.reset();
            if (inPauses == c_exchangesInPauses)
            {
                held.reset();
                return;
            }
            // Where a folder of the product's was until the last attempt.
            const std::wstring link = InstallFolder() + LR"(\current\plugins)" + std::to_wstring(inPauses);
            EXPECT_TRUE(CreateDirectoryLink(link, c_target));
            ++inPauses;
            WriteTestFile(marker, 1);
        }
    };
    Run(L"-s", options);
    EXPECT_EQ(inPauses, c_exchangesInPauses);

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
    ExpectPartialUninstall(ExpectedLog().Fails(Step::InstallFolder, c_isLink, InstallFolder() + L"\\"), state);
}

TEST_F(HostileFolderTest, A_users_folder_that_becomes_a_link_while_it_is_deleted_loses_nothing_of_its_target)
{
    LayDownSample();
    const std::wstring folder = Expand(LR"(<LocalAppData>\Vel Mora)");
    const std::wstring heldPath = folder + LR"(\settings.json)";
    UniqueHandle held =
        OwnFile(CreateFileW(heldPath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
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
    ExpectFullSuccess(ExpectedLog().Runs("Gui").RemovesSettings().KeepsUserFolder(L"Vel Mora", c_isLink), state);
}
} // namespace
} // namespace Testing
