// The program lies in folders that any user can write to, and so does its copy: nothing that lies beside it is loaded.
#include "EndToEndTest.h"
#include "support/end_to_end/BuiltFiles.h"

#include <windows.h>

#include <span>
#include <string>

namespace Testing
{
namespace
{
// The program's delay-loaded imports.
constexpr const wchar_t* c_delayLoaded[] = {L"api-ms-win-core-winrt-l1-1-0.dll",
                                            L"comctl32.dll",
                                            L"dwmapi.dll",
                                            L"gdi32.dll",
                                            L"gdiplus.dll",
                                            L"ole32.dll",
                                            L"oleaut32.dll",
                                            L"shell32.dll",
                                            L"uiautomationcore.dll",
                                            L"user32.dll",
                                            L"uxtheme.dll"};

// What else the program, or Windows on its behalf, loads while it runs, and what is planted most often.
constexpr const wchar_t* c_loadedLater[] = {
    L"apphelp.dll", L"bcrypt.dll",   L"clbcatq.dll",       L"cryptbase.dll",   L"cryptsp.dll",  L"dbghelp.dll",
    L"dwrite.dll",  L"edputil.dll",  L"explorerframe.dll", L"firewallapi.dll", L"iertutil.dll", L"imm32.dll",
    L"msctf.dll",   L"netapi32.dll", L"ntmarta.dll",       L"profapi.dll",     L"propsys.dll",  L"rsaenh.dll",
    L"secur32.dll", L"setupapi.dll", L"sspicli.dll",       L"textshaping.dll", L"urlmon.dll",   L"userenv.dll",
    L"usp10.dll",   L"version.dll",  L"windowscodecs.dll", L"winhttp.dll",     L"wininet.dll",  L"winmm.dll",
    L"winsta.dll",  L"wintypes.dll", L"wldp.dll",          L"wtsapi32.dll"};

class HardeningTest : public EndToEndTest
{
protected:
    // Each file becomes a part of the state before the run; one that is loaded leaves another.
    static void Plant(std::span<const wchar_t* const> names)
    {
        for (const std::wstring name : names)
        {
            const std::wstring path = Expand(L"<Downloads>\\") + name;
            ASSERT_TRUE(CopyFileW(BuiltFile(L"Velmora.Sample.Planted.dll").c_str(), path.c_str(), FALSE));
        }
    }
};

// The other imports are not among them: Wine does not know that they are to come from System32.
TEST_F(HardeningTest, No_library_beside_the_program_or_in_the_current_folder_is_loaded)
{
    LayDownSample();
    Plant(c_delayLoaded);
    Plant(c_loadedLater);
    Run();
    ExpectFullSuccess();
}

// Without those of others: Wine's GDI+ itself looks beside the program for libraries.
TEST_F(HardeningTest, No_library_of_the_window_beside_the_program_is_loaded)
{
    LayDownSample();
    Plant(c_delayLoaded);
    Run(L"--gui", {.answers = {AnswerConfirmation(IDYES), FullSuccessMessage()}});
    ExpectFullSuccess(ExpectedLog().Runs("Gui"));
}
} // namespace
} // namespace Testing
