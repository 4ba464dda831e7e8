// Registry keys that refuse to be changed.
#include "EndToEndTest.h"
#include "support/end_to_end/Names.h"
#include "support/end_to_end/Owners.h"

#include <windows.h>

#include <sddl.h>

#include <ostream>
#include <string>
#include <vector>

namespace Testing
{
namespace
{
constexpr const wchar_t* c_readOnly = L"D:P(A;;KR;;;WD)";
constexpr const wchar_t* c_closed = L"D:P";
constexpr const wchar_t* c_open = L"D:(A;OICI;KA;;;WD)";

constexpr const wchar_t* c_run = LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Run)";
constexpr const wchar_t* c_approved = LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Explorer\StartupApproved\Run)";
constexpr const wchar_t* c_registered = LR"(SOFTWARE\RegisteredApplications)";
constexpr const wchar_t* c_environment = LR"(SYSTEM\CurrentControlSet\Control\Session Manager\Environment)";
constexpr const wchar_t* c_uninstallEntry = LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Velmora)";

// Protects a key while it lives.
class ProtectedKey
{
public:
    ProtectedKey(const wchar_t* key, const wchar_t* access) : m_key(key) { SetAccess(access); }
    ~ProtectedKey() { SetAccess(c_open); }
    ProtectedKey(const ProtectedKey&) = delete;
    ProtectedKey& operator=(const ProtectedKey&) = delete;

private:
    void SetAccess(const wchar_t* access) const
    {
        HKEY opened = nullptr;
        ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, m_key, 0, WRITE_DAC | READ_CONTROL, &opened), ERROR_SUCCESS);
        const UniqueKey key(opened);
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ASSERT_TRUE(
            ConvertStringSecurityDescriptorToSecurityDescriptorW(access, SDDL_REVISION_1, &descriptor, nullptr));
        const UniqueLocalMemory owned(descriptor);
        ASSERT_EQ(RegSetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, descriptor), ERROR_SUCCESS);
    }

    const wchar_t* m_key;
};

// A key that is protected, the step that fails for it, and what stays of the product because of it.
struct ProtectedKeyCase
{
    const wchar_t* key;
    const wchar_t* access;
    Step step;
    std::vector<std::wstring> kept;
};

void PrintTo(const ProtectedKeyCase& one, std::ostream* stream)
{
    *stream << ToUtf8(one.key);
}

class ProtectedKeyTest : public EndToEndTest, public ::testing::WithParamInterface<ProtectedKeyCase>
{
};

TEST_P(ProtectedKeyTest, Stays_and_makes_the_run_a_partial_one)
{
    const auto& [key, access, step, kept] = GetParam();
    LayDownSample();
    const ProtectedKey isProtected(key, access);
    Run();
    MachineState state = DeclaredState();
    for (const std::wstring& path : kept)
    {
        state.CopyTree(L"HKLM\\" + path, Before());
    }
    ExpectedLog log;
    log.Fails(step, static_cast<unsigned long>(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)));
    ExpectPartialUninstall(key == c_uninstallEntry ? log.FindsNoRecord() : log, state);
}

// Both keys of the startup entry are opened before either value is removed. A registration that cannot be removed stops
// only what follows in its own step.
INSTANTIATE_TEST_SUITE_P(
    Key, ProtectedKeyTest,
    ::testing::Values(ProtectedKeyCase{c_run, c_readOnly, Step::StartupEntry, {c_run, c_approved}},
                      ProtectedKeyCase{c_approved, c_readOnly, Step::StartupEntry, {c_run, c_approved}},
                      ProtectedKeyCase{c_registered,
                                       c_readOnly,
                                       Step::Registration,
                                       {c_registered, LR"(SOFTWARE\Velmora\Capabilities)",
                                        LR"(SOFTWARE\Classes\Velmora.Protocol)", LR"(SOFTWARE\Classes\velmora)"}},
                      ProtectedKeyCase{c_environment, c_readOnly, Step::MachinePath, {c_environment}},
                      ProtectedKeyCase{c_uninstallEntry, c_closed, Step::UninstallEntry, {c_uninstallEntry}}));
} // namespace
} // namespace Testing
