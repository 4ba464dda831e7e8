// Registry keys that refuse to be changed.
#include "EndToEndTest.h"
#include "support/Names.h"
#include "support/Owners.h"

#include <windows.h>

#include <sddl.h>

namespace Testing
{
namespace
{
constexpr const wchar_t* c_readOnly = L"D:P(A;;KR;;;WD)";
constexpr const wchar_t* c_closed = L"D:P";
constexpr const wchar_t* c_open = L"D:(A;OICI;KA;;;WD)";

void SetAccess(const wchar_t* keyName, const wchar_t* access)
{
    HKEY opened = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyName, 0, WRITE_DAC | READ_CONTROL, &opened), ERROR_SUCCESS);
    const UniqueKey key(opened);
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(access, SDDL_REVISION_1, &descriptor, nullptr));
    const UniqueLocalMemory owned(descriptor);
    ASSERT_EQ(RegSetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, descriptor), ERROR_SUCCESS);
}

// Protects a key while it lives.
class ProtectedKey
{
public:
    ProtectedKey(const wchar_t* key, const wchar_t* access) : m_key(key) { SetAccess(m_key, access); }
    ~ProtectedKey() { SetAccess(m_key, c_open); }
    ProtectedKey(const ProtectedKey&) = delete;
    ProtectedKey& operator=(const ProtectedKey&) = delete;

private:
    const wchar_t* m_key;
};

class ProtectedKeyTest : public EndToEndTest
{
protected:
    // The declared state, but with everything at or below these paths as it was.
    MachineState DeclaredStateWith(const std::vector<std::wstring>& kept) const
    {
        MachineState state = DeclaredState();
        for (const auto& [path, entry] : Before().All())
        {
            for (const std::wstring& top : kept)
            {
                if (IsAtOrBelow(path, top))
                {
                    state.Set(path, entry);
                }
            }
        }
        return state;
    }

    static ExpectedLog Denied(Step step)
    {
        return ExpectedLog().Fails(step, static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)));
    }
};

TEST_F(ProtectedKeyTest, A_startup_entry_that_cannot_be_removed_makes_the_run_a_partial_one)
{
    LayDownSample();
    const ProtectedKey key(LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Run)", c_readOnly);
    Run();
    // The approval is not looked at in an attempt in which the entry itself could not be removed.
    ExpectPartialUninstall(
        Denied(Step::StartupEntry),
        DeclaredStateWith({LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Run)",
                           LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Explorer\StartupApproved\Run)"}));
    EXPECT_GE(Result().duration, std::chrono::seconds(9));
}

TEST_F(ProtectedKeyTest, A_startup_approval_that_cannot_be_removed_makes_the_run_a_partial_one)
{
    LayDownSample();
    const ProtectedKey key(LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Explorer\StartupApproved\Run)", c_readOnly);
    Run();
    // Both keys are opened before either value is removed.
    ExpectPartialUninstall(
        Denied(Step::StartupEntry),
        DeclaredStateWith({LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Run)",
                           LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Explorer\StartupApproved\Run)"}));
}

TEST_F(ProtectedKeyTest, A_registration_that_cannot_be_removed_stops_only_what_follows_in_its_own_step)
{
    LayDownSample();
    const ProtectedKey key(LR"(SOFTWARE\RegisteredApplications)", c_readOnly);
    Run();
    ExpectPartialUninstall(
        Denied(Step::Registration),
        DeclaredStateWith({LR"(HKLM\SOFTWARE\RegisteredApplications)", LR"(HKLM\SOFTWARE\Velmora\Capabilities)",
                           LR"(HKLM\SOFTWARE\Classes\Velmora.Protocol)", LR"(HKLM\SOFTWARE\Classes\velmora)"}));
}

TEST_F(ProtectedKeyTest, A_machine_path_that_cannot_be_written_stays_whole)
{
    LayDownSample();
    const ProtectedKey key(LR"(SYSTEM\CurrentControlSet\Control\Session Manager\Environment)", c_readOnly);
    Run();
    ExpectPartialUninstall(Denied(Step::MachinePath), DeclaredStateWith({std::wstring(c_machinePathValue)}));
}

TEST_F(ProtectedKeyTest, An_uninstall_entry_that_cannot_be_opened_does_not_stop_the_run)
{
    LayDownSample();
    const ProtectedKey key(LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)", c_closed);
    Run();
    ExpectPartialUninstall(Denied(Step::UninstallEntry).FindsNoRecord(),
                           DeclaredStateWith({LR"(HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)"}));
}
} // namespace
} // namespace Testing
