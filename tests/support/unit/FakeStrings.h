#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <oleauto.h>

#include <gtest/gtest.h>

#include <set>

namespace Testing
{

// COM's strings (BSTR), counted. SysAllocString gives none when it is to fail.
class FakeStrings
{
public:
    explicit FakeStrings(Journal& journal) : m_journal(journal) {}
    FakeStrings(const FakeStrings&) = delete;
    FakeStrings& operator=(const FakeStrings&) = delete;
    ~FakeStrings() { EXPECT_TRUE(m_strings.empty()) << "strings were not freed"; }

    bool Has(BSTR text) const { return m_strings.contains(text); }
    std::size_t Count() const { return m_strings.size(); }

private:
    Journal& m_journal;
    std::set<BSTR> m_strings;

    Fake<&SysAllocString> m_allocate = [this](const wchar_t* text) -> BSTR {
        if (m_journal.Add("SysAllocString", text) != ERROR_SUCCESS)
        {
            return nullptr;
        }
        return *m_strings.insert(Fake<&SysAllocString>::Real(text)).first;
    };
    Fake<&SysFreeString> m_free = [this](BSTR text) {
        m_strings.erase(text);
        Fake<&SysFreeString>::Real(text);
    };
    Fake<&VariantClear> m_clear = [this](VARIANT* value) {
        if (value->vt == VT_BSTR)
        {
            m_strings.erase(value->bstrVal);
        }
        return Fake<&VariantClear>::Real(value);
    };
};

} // namespace Testing
