#pragma once

#include "support/ImportTableFake.h"

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>
#include <shlobj.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Testing
{

// The shell of the desktop, as the chain of objects that leads from its windows to its ShellExecute: each gives the
// next one and nothing else. Every step is listed with all that it was given and can be made to fail; references and
// texts are counted. A test fails when it asks for anything else, or uses an object that it holds no reference to.
class FakeDesktopShell
{
public:
    FakeDesktopShell();
    ~FakeDesktopShell();
    FakeDesktopShell(const FakeDesktopShell&) = delete;
    FakeDesktopShell& operator=(const FakeDesktopShell&) = delete;

    // The steps so far.
    const std::vector<std::string>& Steps() const { return m_steps; }

    // Lets a step, as it stands in Steps(), fail.
    void Fail(const std::string& step, HRESULT result) { m_failures[step] = result; }

    // Is told of every step, as it stands in Steps(), and decides whether it fails.
    std::function<HRESULT(const std::string& step)> onStep = [](const std::string&) { return S_OK; };

    // Lets the search for the desktop succeed without finding it.
    void HideDesktop() { m_hasDesktop = false; }

    // Lets no text be allocated after so many.
    void LimitTexts(unsigned count) { m_textsLeft = count; }

    // How many references to the shell's objects are held now, and how many texts there are.
    long References() const { return m_references; }
    std::size_t Texts() const { return m_texts.size(); }

private:
    struct Chain;

    // Notes a step. Returns what becomes of it.
    HRESULT Step(const std::string& step);

    // The text's description; it must be one that there is.
    std::string Describe(BSTR text) const;
    std::string Describe(const VARIANT& value) const;

    std::vector<std::string> m_steps;
    std::map<std::string, HRESULT> m_failures;
    bool m_hasDesktop = true;
    unsigned m_textsLeft = ~0U;
    long m_references = 0;
    std::set<BSTR> m_texts;
    std::unique_ptr<Chain> m_chain;

    Fake<&CoCreateInstance> m_create = [this](REFCLSID kind, IUnknown* outer, DWORD context, REFIID id, void** result) {
        return kind == CLSID_ShellWindows ? Create(outer, context, id, result)
                                          : m_create.Hidden(kind, outer, context, id, result);
    };
    Fake<&SysAllocString> m_allocate = [this](const wchar_t* text) -> BSTR {
        const BSTR copy = m_textsLeft == 0 ? nullptr : Fake<&SysAllocString>::Real(text);
        if (copy != nullptr)
        {
            --m_textsLeft;
            m_texts.insert(copy);
        }
        return copy;
    };
    Fake<&SysFreeString> m_free = [this](BSTR text) {
        m_texts.erase(text);
        Fake<&SysFreeString>::Real(text);
    };
    Fake<&VariantClear> m_clear = [this](VARIANT* value) {
        if (value->vt == VT_BSTR)
        {
            m_texts.erase(value->bstrVal);
        }
        return Fake<&VariantClear>::Real(value);
    };

    HRESULT Create(IUnknown* outer, DWORD context, REFIID id, void** result);
};

} // namespace Testing
