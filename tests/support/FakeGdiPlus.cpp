#include "support/FakeGdiPlus.h"

#include <gtest/gtest.h>

namespace Testing
{

std::vector<std::string> FakeGdiPlus::Living() const
{
    std::vector<std::string> names;
    for (const auto& [object, name] : m_living)
    {
        names.push_back(name);
    }
    return names;
}

FakeGdiPlus::Status FakeGdiPlus::CreateNamed(const std::string& function, const std::string& name, void*& created)
{
    m_journal.Add(function, name);
    if (m_journal.Fails(function))
    {
        return Gdiplus::GenericError;
    }
    // Never seen again, so that the use of a deleted object is noticed.
    created = reinterpret_cast<void*>(0x600000 + 16 * ++m_created);
    m_living[created] = name;
    m_journal.Name(created, name);
    return Gdiplus::Ok;
}

FakeGdiPlus::Status FakeGdiPlus::Delete(const std::string& function, const void* object)
{
    // GDI+'s own classes delete what they could not create, too.
    if (object != nullptr)
    {
        EXPECT_EQ(m_living.erase(object), 1U) << function << " of " << m_journal.NameOf(object);
        m_journal.Add(function, object);
        m_journal.Name(object, "deleted " + m_journal.NameOf(object));
    }
    return Gdiplus::Ok;
}

std::string FakeGdiPlus::ReadAll(IStream& stream)
{
    char bytes[100];
    ULONG length = 0;
    EXPECT_EQ(stream.Read(bytes, sizeof(bytes), &length), S_OK);
    return {bytes, length};
}

} // namespace Testing
