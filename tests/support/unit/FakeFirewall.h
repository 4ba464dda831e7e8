#pragma once

#include "support/common/FirewallObjects.h"
#include "support/common/ImportTableFake.h"
#include "support/unit/FakeStrings.h"
#include "support/unit/Journal.h"

#include <windows.h>

#include <objbase.h>

#include <gtest/gtest.h>

#include <string>

namespace Testing
{

// The Windows firewall. In the journal come CoCreateInstance with the class and the interface, SysAllocString,
// INetFwPolicy2::get_Rules(), INetFwRules::Remove("Rule"), and Release when the last reference to an object goes.
class FakeFirewall
{
public:
    FakeFirewall(Journal& journal, const FakeStrings& strings) : m_journal(journal), m_strings(strings) {}
    FakeFirewall(const FakeFirewall&) = delete;
    FakeFirewall& operator=(const FakeFirewall&) = delete;
    ~FakeFirewall() { EXPECT_EQ(m_objects, 0) << "firewall objects were not released"; }

private:
    // An object that is known to live until its last reference goes.
    template <class Object>
    class Counted : public Object
    {
    public:
        Counted(FakeFirewall& firewall, std::string name) : m_firewall(firewall), m_name(std::move(name))
        {
            ++m_firewall.m_objects;
        }
        ~Counted() override
        {
            m_firewall.m_journal.Add(m_name + "::Release");
            --m_firewall.m_objects;
        }

    protected:
        HRESULT Refuse(const char* method) override
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
        explicit Rules(FakeFirewall& firewall) : Counted(firewall, "INetFwRules") {}

        HRESULT WINAPI Remove(BSTR name) override
        {
            EXPECT_TRUE(m_firewall.m_strings.Has(name)) << "a text that was not made for COM";
            return static_cast<HRESULT>(m_firewall.m_journal.Add("INetFwRules::Remove", name));
        }
    };

    class Policy final : public Counted<FirewallPolicyObject>
    {
    public:
        explicit Policy(FakeFirewall& firewall) : Counted(firewall, "INetFwPolicy2") {}

        HRESULT WINAPI get_Rules(INetFwRules** rules) override
        {
            const auto result = static_cast<HRESULT>(m_firewall.m_journal.Add("INetFwPolicy2::get_Rules"));
            *rules = SUCCEEDED(result) ? new Rules(m_firewall) : nullptr;
            return result;
        }
    };

    int m_objects = 0;
    Journal& m_journal;
    const FakeStrings& m_strings;

    Fake<&CoCreateInstance> m_create = [this](REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID interfaceId,
                                              LPVOID* object) {
        if (classId != __uuidof(NetFwPolicy2))
        {
            return m_create.Hidden(classId, outer, context, interfaceId, object);
        }
        const auto result =
            static_cast<HRESULT>(m_journal.Add("CoCreateInstance", classId, outer, Mask(context), interfaceId));
        *object = SUCCEEDED(result) ? static_cast<INetFwPolicy2*>(new Policy(*this)) : nullptr;
        return result;
    };
};

} // namespace Testing
