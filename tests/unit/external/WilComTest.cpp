#include <windows.h>

#include <objidl.h>

#include <gtest/gtest.h>
#include <wil/com.h>
#include <wil/result.h>

#include <utility>

// COM's interfaces have no virtual destructors; nobody deletes an object through one.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

namespace
{

// An object that counts its references. It can be asked for IPersist.
class Counted final : public IPersist
{
public:
    HRESULT WINAPI QueryInterface(REFIID id, void** result) override
    {
        if (id != __uuidof(IPersist))
        {
            *result = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        *result = static_cast<IPersist*>(this);
        return S_OK;
    }
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

TYPED_TEST(ComPtr, holds_nothing_at_first)
{
    const TypeParam none;
    const TypeParam null(nullptr);
    EXPECT_FALSE(none);
    EXPECT_EQ(none.get(), nullptr);
    EXPECT_TRUE(null == nullptr);
    EXPECT_TRUE(none == null);
}

TYPED_TEST(ComPtr, adds_a_reference_and_releases_it_at_the_end)
{
    const TypeParam owner(&this->object);
    EXPECT_EQ(this->object.references, 1);
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.get(), &this->object);
    EXPECT_EQ(&*owner, &this->object);
    EXPECT_EQ(owner->GetClassID(nullptr), S_FALSE);
    EXPECT_FALSE(owner == nullptr);
}

TYPED_TEST(ComPtr, gives_every_copy_a_reference_of_its_own)
{
    const TypeParam first(&this->object);
    TypeParam second(first);
    EXPECT_EQ(this->object.references, 2);
    TypeParam third(&this->other);
    third = first;
    EXPECT_EQ(this->object.references, 3);
    EXPECT_EQ(this->other.references, 0);
    EXPECT_TRUE(first == third);
    const wil::com_ptr<IUnknown> converted(second);
    EXPECT_EQ(this->object.references, 4);
    EXPECT_EQ(converted.get(), &this->object);
    TypeParam& same = third;
    third = same;
    EXPECT_EQ(this->object.references, 4);
    second = nullptr;
    EXPECT_EQ(this->object.references, 3);
}

TYPED_TEST(ComPtr, hands_its_reference_over_when_it_is_moved)
{
    TypeParam first(&this->object);
    TypeParam second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(this->object.references, 1);
    TypeParam third(&this->other);
    third = std::move(second);
    EXPECT_FALSE(second);
    EXPECT_EQ(this->other.references, 0);
    EXPECT_EQ(this->object.references, 1);
    const wil::com_ptr<IUnknown> converted(std::move(third));
    EXPECT_FALSE(third);
    EXPECT_EQ(converted.get(), &this->object);
    EXPECT_EQ(this->object.references, 1);
}

TYPED_TEST(ComPtr, attach_and_detach_move_a_reference_without_counting)
{
    TypeParam owner(&this->other);
    this->object.AddRef();
    owner.attach(&this->object);
    EXPECT_EQ(this->other.references, 0);
    EXPECT_EQ(this->object.references, 1);
    EXPECT_EQ(owner.detach(), &this->object);
    EXPECT_FALSE(owner);
    EXPECT_EQ(this->object.references, 1);
    this->object.Release();
}

TYPED_TEST(ComPtr, put_and_its_address_release_first_and_addressof_does_not)
{
    TypeParam owner(&this->object);
    EXPECT_EQ(*owner.addressof(), &this->object);
    EXPECT_EQ(this->object.references, 1);
    EXPECT_EQ(*owner.put(), nullptr);
    EXPECT_EQ(this->object.references, 0);
    this->other.AddRef();
    *owner.put_void() = static_cast<IPersist*>(&this->other);
    EXPECT_EQ(owner.get(), &this->other);
    EXPECT_EQ(*&owner, nullptr);
    EXPECT_EQ(this->other.references, 0);
}

TYPED_TEST(ComPtr, swaps_and_resets)
{
    TypeParam first(&this->object);
    TypeParam second(&this->other);
    first.swap(second);
    swap(first, second);
    first.swap(second);
    EXPECT_EQ(first.get(), &this->other);
    EXPECT_EQ(second.get(), &this->object);
    EXPECT_EQ(this->object.references, 1);
    first.reset();
    EXPECT_FALSE(first);
    EXPECT_EQ(this->other.references, 0);
}

TYPED_TEST(ComPtr, asks_its_object_for_another_interface)
{
    TypeParam source(&this->object);
    TypeParam found;
    source.query_to(&found);
    EXPECT_EQ(found.get(), &this->object);
    EXPECT_EQ(this->object.references, 2);
    EXPECT_TRUE(source.template try_query<IPersist>());
    EXPECT_EQ(this->object.references, 2);
    EXPECT_FALSE(source.template try_query<IStream>());
}

TEST(ComPtrThatThrows, throws_when_its_object_has_no_such_interface)
{
    Counted object;
    const wil::com_ptr<IPersist> owner(&object);
    EXPECT_EQ(owner.query<IPersist>().get(), &object);
    try
    {
        static_cast<void>(owner.query<IStream>());
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const wil::ResultException& exception)
    {
        EXPECT_EQ(exception.GetErrorCode(), E_NOINTERFACE);
    }
    EXPECT_EQ(object.references, 1);
}

TEST(ComPtrThatReturnsCodes, returns_what_its_object_says_to_a_query)
{
    Counted object;
    const wil::com_ptr_nothrow<IPersist> owner(&object);
    wil::com_ptr_nothrow<IStream> stream;
    EXPECT_EQ(owner.query_to(&stream), E_NOINTERFACE);
    EXPECT_FALSE(stream);
    wil::com_ptr_nothrow<IPersist> found;
    EXPECT_EQ(owner.query_to(&found), S_OK);
    EXPECT_EQ(object.references, 2);
}
