#include <windows.h>

#include <objidl.h>

#include <gtest/gtest.h>
#include <wil/com.h>

#include <utility>

// COM's interfaces have no virtual destructors; nobody deletes an object through one.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

namespace
{

// An object that counts its references.
class Counted final : public IPersist
{
public:
    HRESULT WINAPI QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG WINAPI AddRef() override { return static_cast<ULONG>(++references); }
    ULONG WINAPI Release() override { return static_cast<ULONG>(--references); }
    HRESULT WINAPI GetClassID(CLSID*) override { return S_FALSE; }

    long references = 0;
};

// The two kinds of owners: those that throw, and those that return codes.
template <class Owner>
class ComPtr : public testing::Test
{
protected:
    // An owner of one reference to the object.
    static Owner OwnerOf(Counted& counted)
    {
        Owner owner;
        *owner.put() = &counted;
        counted.AddRef();
        return owner;
    }

    Counted object;
    Counted other;

    void TearDown() override
    {
        EXPECT_EQ(object.references, 0);
        EXPECT_EQ(other.references, 0);
    }
};
using Owners = testing::Types<wil::com_ptr<IPersist>, wil::com_ptr_nothrow<IPersist>>;
TYPED_TEST_SUITE(ComPtr, Owners, );

} // namespace

TYPED_TEST(ComPtr, gives_its_object_if_it_has_one_and_releases_it_at_the_end)
{
    EXPECT_EQ(TypeParam().get(), nullptr);
    EXPECT_FALSE(TypeParam(nullptr));
    const TypeParam owner = TestFixture::OwnerOf(this->object);
    EXPECT_EQ(this->object.references, 1);
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.get(), &this->object);
    EXPECT_EQ(&*owner, &this->object);
    EXPECT_EQ(owner->GetClassID(nullptr), S_FALSE);
}

TYPED_TEST(ComPtr, gives_every_copy_a_reference_of_its_own)
{
    const TypeParam first = TestFixture::OwnerOf(this->object);
    TypeParam second(first);
    EXPECT_EQ(this->object.references, 2);
    TypeParam third = TestFixture::OwnerOf(this->other);
    third = first;
    EXPECT_EQ(this->object.references, 3);
    EXPECT_EQ(this->other.references, 0);
    EXPECT_EQ(third.get(), first.get());
    const TypeParam none;
    EXPECT_FALSE(TypeParam(none));
    TypeParam& same = third;
    third = same;
    EXPECT_EQ(this->object.references, 3);
    second = nullptr;
    EXPECT_EQ(this->object.references, 2);
}

TYPED_TEST(ComPtr, hands_its_reference_over_when_it_is_moved)
{
    TypeParam first = TestFixture::OwnerOf(this->object);
    TypeParam second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(this->object.references, 1);
    TypeParam third = TestFixture::OwnerOf(this->other);
    third = std::move(second);
    EXPECT_FALSE(second);
    EXPECT_EQ(this->other.references, 0);
    EXPECT_EQ(this->object.references, 1);
}

TYPED_TEST(ComPtr, releases_what_it_has_before_it_takes_another)
{
    TypeParam owner = TestFixture::OwnerOf(this->other);
    this->object.AddRef();
    owner.attach(&this->object); // takes the reference over
    EXPECT_EQ(owner.get(), &this->object);
    EXPECT_EQ(this->other.references, 0);
    EXPECT_EQ(this->object.references, 1);
    EXPECT_EQ(*owner.put(), nullptr);
    EXPECT_EQ(this->object.references, 0);
    owner = TestFixture::OwnerOf(this->other);
    owner.reset();
    EXPECT_FALSE(owner);
    EXPECT_EQ(this->other.references, 0);
}
