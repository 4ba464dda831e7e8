// The machine's PATH in every shape in which it can be found.
#include "EndToEndTest.h"
#include "support/Names.h"

#include <cstring>

namespace Testing
{
namespace
{
const std::wstring c_entry(c_pathEntry);

class MachinePathTest : public EndToEndTest
{
protected:
    // Lays the sample down, with exactly this PATH.
    static void LayDownWithPath(DWORD type, const std::wstring& text)
    {
        LayDownSample();
        WriteMachinePath({type, TextValue(type, text).data});
    }

    // Runs, and expects everything declared to happen and the PATH to hold this text.
    void ExpectPathAfterRun(DWORD type, const std::wstring& text)
    {
        Run();
        MachineState state = DeclaredState();
        state.Set(c_machinePathValue, TextValue(type, text));
        ExpectFullSuccess({}, state);
    }
};

TEST_F(MachinePathTest, Our_entry_is_taken_out_from_between_others)
{
    LayDownWithPath(REG_EXPAND_SZ, LR"(C:\A;)" + c_entry + LR"(;C:\B)");
    ExpectPathAfterRun(REG_EXPAND_SZ, LR"(C:\A;C:\B;)");
}

TEST_F(MachinePathTest, Letter_case_does_not_matter)
{
    LayDownWithPath(REG_EXPAND_SZ, LR"(C:\A;%userprofile%\appdata\local\VEL MORA\LIB)");
    ExpectPathAfterRun(REG_EXPAND_SZ, LR"(C:\A;)");
}

TEST_F(MachinePathTest, Our_entry_alone_leaves_an_empty_path)
{
    LayDownWithPath(REG_EXPAND_SZ, c_entry);
    ExpectPathAfterRun(REG_EXPAND_SZ, L"");
}

TEST_F(MachinePathTest, Of_a_doubled_entry_only_the_last_goes)
{
    LayDownWithPath(REG_EXPAND_SZ, c_entry + LR"(;C:\A;)" + c_entry + LR"(;C:\B;)");
    ExpectPathAfterRun(REG_EXPAND_SZ, c_entry + LR"(;C:\A;C:\B;)");
}

TEST_F(MachinePathTest, Without_our_entry_nothing_is_written)
{
    LayDownWithPath(REG_SZ, LR"(C:\A;C:\B)");
    ExpectPathAfterRun(REG_SZ, LR"(C:\A;C:\B)");
}

TEST_F(MachinePathTest, Entries_that_only_look_like_ours_stay)
{
    const std::wstring text = c_entry + LR"(\; )" + c_entry + L";" + c_entry + LR"( ;")" + c_entry + LR"(";X)" +
                              c_entry + L";" + c_entry + LR"(2;C:\users\somebody\AppData\Local\Vel Mora\lib)";
    LayDownWithPath(REG_EXPAND_SZ, text);
    ExpectPathAfterRun(REG_EXPAND_SZ, text);
}

TEST_F(MachinePathTest, A_plain_text_becomes_an_expandable_one_when_our_entry_goes)
{
    LayDownWithPath(REG_SZ, c_entry + LR"(;C:\A)");
    ExpectPathAfterRun(REG_EXPAND_SZ, LR"(C:\A;)");
}

TEST_F(MachinePathTest, A_path_of_one_semicolon_stays)
{
    LayDownWithPath(REG_EXPAND_SZ, L";");
    ExpectPathAfterRun(REG_EXPAND_SZ, L";");
}

TEST_F(MachinePathTest, An_empty_path_stays)
{
    LayDownWithPath(REG_EXPAND_SZ, L"");
    ExpectPathAfterRun(REG_EXPAND_SZ, L"");
}

TEST_F(MachinePathTest, Empty_entries_between_others_stay)
{
    LayDownWithPath(REG_EXPAND_SZ, LR"(;;C:\A;;)" + c_entry + LR"(;;C:\B;)");
    ExpectPathAfterRun(REG_EXPAND_SZ, LR"(;;C:\A;;;C:\B;)");
}

TEST_F(MachinePathTest, The_longest_path_is_kept_whole)
{
    constexpr std::size_t c_longest = 32'767;
    const std::wstring end = L";" + c_entry;
    const std::wstring others = LR"(C:\)" + std::wstring(c_longest - 3 - end.size(), L'x');
    LayDownWithPath(REG_EXPAND_SZ, others + end);
    ExpectPathAfterRun(REG_EXPAND_SZ, others + L";");
}

TEST_F(MachinePathTest, A_thousand_entries_keep_their_order)
{
    constexpr int c_count = 1'000;
    std::wstring before;
    std::wstring after;
    for (int number = 1; number <= c_count; ++number)
    {
        const std::wstring entry = LR"(C:\Tools\)" + std::to_wstring(number) + L";";
        before += entry + (number == c_count / 2 ? c_entry + L";" : L"");
        after += entry;
    }
    LayDownWithPath(REG_EXPAND_SZ, before);
    ExpectPathAfterRun(REG_EXPAND_SZ, after);
}

TEST_F(MachinePathTest, A_path_ends_at_its_first_zero)
{
    LayDownWithPath(REG_EXPAND_SZ, c_entry + LR"(;C:\A)" + L'\0' + LR"(C:\B)");
    ExpectPathAfterRun(REG_EXPAND_SZ, LR"(C:\A;)");
}

TEST_F(MachinePathTest, Our_entry_behind_a_zero_is_not_seen)
{
    const std::wstring text = LR"(C:\A)" + (L'\0' + c_entry);
    LayDownWithPath(REG_EXPAND_SZ, text);
    ExpectPathAfterRun(REG_EXPAND_SZ, text);
}

TEST_F(MachinePathTest, A_path_without_a_zero_at_its_end_is_read_to_its_end)
{
    LayDownSample();
    StateEntry value = TextValue(REG_EXPAND_SZ, c_entry + LR"(;C:\A)");
    value.data.resize(value.data.size() - sizeof(wchar_t));
    WriteMachinePath({REG_EXPAND_SZ, value.data});
    ExpectPathAfterRun(REG_EXPAND_SZ, LR"(C:\A;)");
}

TEST_F(MachinePathTest, Bytes_of_any_type_and_size_are_read_as_a_text_and_only_our_entry_goes)
{
    const std::wstring text = LR"(C:\A;)" + c_entry;
    const std::wstring longText = LR"(C:\)" + std::wstring(100'000, L'x') + L";";
    std::vector<std::byte> odd = TextValue(REG_SZ, text + L";").data;
    odd.resize(odd.size() - 1);
    for (const DWORD type : {DWORD{REG_BINARY}, DWORD{REG_MULTI_SZ}})
    {
        SCOPED_TRACE(type);
        LayDownWithPath(type, text);
        ExpectPathAfterRun(REG_EXPAND_SZ, LR"(C:\A;)");
    }
    LayDownWithPath(REG_EXPAND_SZ, longText + c_entry);
    ExpectPathAfterRun(REG_EXPAND_SZ, longText);
    LayDownSample();
    WriteMachinePath({REG_EXPAND_SZ, odd});
    ExpectPathAfterRun(REG_EXPAND_SZ, LR"(C:\A;)");
    // What is no text of ours stays as it is.
    const std::vector<std::byte> number(sizeof(DWORD), std::byte{0xFF});
    LayDownSample();
    WriteMachinePath({REG_DWORD, number});
    Run();
    MachineState state = DeclaredState();
    state.Set(c_machinePathValue, {.kind = StateEntry::Kind::Value, .detail = REG_DWORD, .data = number});
    ExpectFullSuccess({}, state);
}

TEST_F(MachinePathTest, A_missing_path_makes_the_run_a_partial_one)
{
    LayDownSample();
    WriteMachinePath({});
    Run();
    ExpectPartialUninstall(
        ExpectedLog().Fails(Step::MachinePath, static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND))),
        DeclaredState());
}
} // namespace
} // namespace Testing
