#pragma once

#include "support/ImportTableFake.h"
#include "support/Text.h"
#include "support/firewall/FirewallObjects.h"

#include <windows.h>

#include <oleauto.h>

#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace Testing
{

// The Windows firewall, with a list of all calls. What it returns next stands in its members:
//     firewall.removeResult = E_ACCESSDENIED;
class FakeFirewall
{
public:
    ~FakeFirewall()
    {
        EXPECT_EQ(m_objects, 0) << "firewall objects were not released";
        EXPECT_EQ(m_texts, 0) << "texts were not freed";
    }

    HRESULT createResult = S_OK;
    bool givesPolicy = true; // whether the creation brings an object, whatever it returns
    HRESULT rulesResult = S_OK;
    bool hasMemoryForText = true;
    HRESULT removeResult = S_OK;

    // Is told of every call of an object's method, as it stands in Calls(), and decides whether it fails.
    std::function<HRESULT(const std::string& call)> onMethod = [](const std::string&) { return S_OK; };

    // Every call so far: "create <class> <outer object> <context> <interface>", "rules", "text <text>", "remove
    // <text>", "free text", "release rules", "release policy" (when the last reference goes).
    const std::vector<std::string>& Calls() const { return m_calls; }

private:
    // An object that is known to live until its last reference goes.
    template <class Object>
    class Counted : public Object
    {
    public:
        Counted(FakeFirewall& firewall, const char* name) : m_firewall(firewall), m_name(name)
        {
            ++m_firewall.m_objects;
        }
        ~Counted() override
        {
            m_firewall.Note("release " + m_name);
            --m_firewall.m_objects;
        }

    protected:
        HRESULT Unsupported(const char* method) override
        {
            ADD_FAILURE() << "nobody should call " << method;
            return E_NOTIMPL;
        }

        FakeFirewall& m_firewall;

    private:
        std::string m_name;
    };

    class Rules final : public Counted<FirewallRulesObject>
    {
    public:
        explicit Rules(FakeFirewall& firewall) : Counted(firewall, "rules") {}

        HRESULT WINAPI Remove(BSTR name) override
        {
            const HRESULT failure = m_firewall.NoteMethod("remove " + Narrow({name, SysStringLen(name)}));
            return FAILED(failure) ? failure : m_firewall.removeResult;
        }
    };

    class Policy final : public Counted<FirewallPolicyObject>
    {
    public:
        explicit Policy(FakeFirewall& firewall) : Counted(firewall, "policy") {}

        HRESULT WINAPI get_Rules(INetFwRules** rules) override
        {
            const HRESULT failure = m_firewall.NoteMethod("rules");
            const HRESULT result = FAILED(failure) ? failure : m_firewall.rulesResult;
            *rules = SUCCEEDED(result) ? new Rules(m_firewall) : nullptr;
            return result;
        }
    };

    void Note(const std::string& call) { m_calls.push_back(call); }
    HRESULT NoteMethod(const std::string& call)
    {
        m_calls.push_back(call);
        return onMethod(call);
    }

    static std::string ToText(REFGUID id)
    {
        wchar_t text[39]{};
        StringFromGUID2(id, text, static_cast<int>(std::size(text)));
        return Narrow(text);
    }

    int m_objects = 0;
    int m_texts = 0;
    std::vector<std::string> m_calls;

    Fake<&CoCreateInstance> m_create = [this](REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID interfaceId,
                                              LPVOID* object) {
        if (classId != __uuidof(NetFwPolicy2))
        {
            return m_create.Hidden(classId, outer, context, interfaceId, object);
        }
        Note("create " + ToText(classId) + (outer == nullptr ? " none " : " outer ") + Hex(context) + " " +
             ToText(interfaceId));
        *object = givesPolicy ? static_cast<INetFwPolicy2*>(new Policy(*this)) : nullptr;
        return createResult;
    };
    Fake<&SysAllocString> m_allocate = [this](const OLECHAR* text) -> BSTR {
        Note("text " + Narrow(text));
        if (!hasMemoryForText)
        {
            return nullptr;
        }
        ++m_texts;
        return Fake<&SysAllocString>::Real(text);
    };
    Fake<&SysFreeString> m_free = [this](BSTR text) {
        Note("free text");
        --m_texts;
        Fake<&SysFreeString>::Real(text);
    };
};

} // namespace Testing
