#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/FakeStrings.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>
#include <shlobj.h>

#include <memory>
#include <string>

namespace Testing
{

// The shell of the desktop, as the chain of objects that leads from its windows to its ShellExecute: each gives the
// next one and nothing else. The journal has every method with all that it was given; references are counted.
// A test fails when it asks for anything else, or uses an object that it holds no reference to.
class FakeDesktopShell
{
public:
    FakeDesktopShell(Journal& journal, const FakeStrings& strings);
    ~FakeDesktopShell();
    FakeDesktopShell(const FakeDesktopShell&) = delete;
    FakeDesktopShell& operator=(const FakeDesktopShell&) = delete;

    // Lets the search for the desktop succeed without finding it.
    bool hasDesktop = true;

    // How many references to the shell's objects are held now.
    long References() const { return m_references; }

private:
    struct Chain;

    // The text's description; it must be one that there is.
    std::string Describe(BSTR text) const;
    std::string Describe(const VARIANT& value) const;

    Journal& m_journal;
    long m_references = 0;
    const FakeStrings& m_strings;
    std::unique_ptr<Chain> m_chain;

    Fake<&CoCreateInstance> m_create = [this](REFCLSID kind, IUnknown* outer, DWORD context, REFIID id, void** result) {
        return kind == CLSID_ShellWindows ? Create(outer, context, id, result)
                                          : m_create.Hidden(kind, outer, context, id, result);
    };

    HRESULT Create(IUnknown* outer, DWORD context, REFIID id, void** result);
};

} // namespace Testing
