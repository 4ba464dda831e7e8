// The machine's PATH as Windows' registry can hold it. What is made of its text, the unit tests show.
#include "EndToEndTest.h"
#include "support/end_to_end/Names.h"

namespace Testing
{
namespace
{
class MachinePathTest : public EndToEndTest
{
};

StateEntry Bytes(DWORD type, const std::wstring& text, std::size_t cutOff)
{
    StateEntry value = TextValue(type, text);
    value.data.resize(value.data.size() - cutOff);
    return value;
}

TEST_F(MachinePathTest, Values_of_any_type_and_size_are_read_as_a_text_of_which_only_our_entry_goes)
{
    const std::wstring entry(c_pathEntry);
    const std::wstring ours = LR"(C:\A;)" + entry;
    const std::wstring longText = LR"(C:\)" + std::wstring(100'000, L'x') + L";";
    const std::wstring behindZero = LR"(C:\A)" + (L'\0' + entry);
    const StateEntry number{.kind = StateEntry::Kind::Value, .detail = REG_DWORD, .data{4, std::byte{0xFF}}};
    const StateEntry left = TextValue(REG_EXPAND_SZ, LR"(C:\A;)");
    struct Case
    {
        std::string name;
        StateEntry before;
        StateEntry after;
    };
    const std::vector<Case> cases{
        {"bytes", TextValue(REG_BINARY, ours), left},
        {"a list", TextValue(REG_MULTI_SZ, ours), left},
        {"no zero at the end", Bytes(REG_EXPAND_SZ, ours, sizeof(wchar_t)), left},
        {"an odd number of bytes", Bytes(REG_EXPAND_SZ, ours + L";", 1), left},
        {"a zero behind it", TextValue(REG_EXPAND_SZ, ours + L'\0' + LR"(C:\B)"), left},
        {"a zero in front of it", TextValue(REG_EXPAND_SZ, behindZero), TextValue(REG_EXPAND_SZ, behindZero)},
        {"long", TextValue(REG_EXPAND_SZ, longText + entry), TextValue(REG_EXPAND_SZ, longText)},
        {"a number", number, number},
    };
    for (const Case& one : cases)
    {
        SCOPED_TRACE(one.name);
        WriteMachinePath(one.before);
        Run();
        MachineState state = DeclaredState();
        state.Set(c_machinePathValue, one.after);
        ExpectFullSuccess(ExpectedLog().FindsNoRecord().FindsNoPackage().LeavesOut(Step::InstallFolder), state);
    }
}

TEST_F(MachinePathTest, A_missing_path_makes_the_run_a_partial_one)
{
    LayDownSample();
    WriteMachinePath({});
    Run();
    ExpectPartialUninstall(ExpectedLog().Fails(Step::MachinePath, ERROR_FILE_NOT_FOUND), DeclaredState());
}
} // namespace
} // namespace Testing
