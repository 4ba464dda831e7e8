#include "Installer/Accessibility.h"

#include "support/ImportTableFake.h"
#include "support/OutOfMemory.h"

#include <windows.h>

#include <oleauto.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::ElementsAre;

constexpr UiaRect c_somewhere{.left = 10.5, .top = 262.5, .width = 748, .height = 75};

class AccessibilityTest : public testing::Test
{
protected:
    ~AccessibilityTest() override
    {
        if (root)
        {
            EXPECT_EQ(References(*root), 1U);
        }
    }

    // How many references there are, of all elements together.
    template <class Element>
    static ULONG References(Element& element)
    {
        element.AddRef();
        return element.Release();
    }

    // A property as text: "<empty>", "number <...>" or the text itself.
    static std::wstring Property(IRawElementProviderSimple& element, PROPERTYID id)
    {
        VARIANT value;
        VariantInit(&value);
        value.vt = VT_ERROR; // whatever was there
        EXPECT_EQ(element.GetPropertyValue(id, &value), S_OK);
        const std::wstring text = value.vt == VT_EMPTY  ? L"<empty>"
                                  : value.vt == VT_I4   ? L"number " + std::to_wstring(value.lVal)
                                  : value.vt == VT_BSTR ? std::wstring(value.bstrVal, SysStringLen(value.bstrVal))
                                                        : L"<something else>";
        VariantClear(&value);
        return text;
    }

    // Where a direction leads: "root", "headline", "status" or "nowhere".
    std::string Follow(IRawElementProviderFragment& element, NavigateDirection direction)
    {
        auto* found = reinterpret_cast<IRawElementProviderFragment*>(INT_PTR{8});
        EXPECT_EQ(element.Navigate(direction, &found), S_OK);
        if (found == nullptr)
        {
            return "nowhere";
        }
        EXPECT_EQ(References(*root), 2U);
        found->Release();
        return found == static_cast<IRawElementProviderFragment*>(root.get()) ? "root"
               : found == &root->Headline()                                   ? "headline"
               : found == &root->Status()                                     ? "status"
                                                                              : "somewhere";
    }

    std::vector<std::string> FollowAll(IRawElementProviderFragment& element)
    {
        return {Follow(element, NavigateDirection_Parent), Follow(element, NavigateDirection_NextSibling),
                Follow(element, NavigateDirection_PreviousSibling), Follow(element, NavigateDirection_FirstChild),
                Follow(element, NavigateDirection_LastChild)};
    }

    static std::vector<int> RuntimeId(IRawElementProviderFragment& element)
    {
        SAFEARRAY* array = nullptr;
        EXPECT_EQ(element.GetRuntimeId(&array), S_OK);
        std::vector<int> parts;
        if (array != nullptr)
        {
            LONG last = 0;
            SafeArrayGetUBound(array, 1, &last);
            for (LONG index = 0; index <= last; ++index)
            {
                int part = 0;
                SafeArrayGetElement(array, &index, &part);
                parts.push_back(part);
            }
            SafeArrayDestroy(array);
        }
        return parts;
    }

    // What an element gives for an interface: whether it is there. Counts one reference while it is held.
    template <class Interface>
    bool Has(IRawElementProviderSimple& element)
    {
        void* found = reinterpret_cast<void*>(INT_PTR{8});
        const HRESULT result = element.QueryInterface(__uuidof(Interface), &found);
        if (FAILED(result))
        {
            EXPECT_EQ(result, E_NOINTERFACE);
            EXPECT_EQ(found, nullptr);
            return false;
        }
        EXPECT_EQ(References(*root), 2U);
        static_cast<Interface*>(found)->Release();
        return true;
    }

    HWND window = reinterpret_cast<HWND>(INT_PTR{0x20a4});
    bool windowExists = true;
    bool clientsListen = true;
    std::vector<std::pair<IRawElementProviderSimple*, EVENTID>> events;
    Fake<&GetWindowRect> getWindowRect = [this](HWND asked, LPRECT area) -> BOOL {
        EXPECT_EQ(asked, window);
        *area = {700, -20, 1200, 320};
        return windowExists;
    };
    Fake<&UiaClientsAreListening> areListening = [this]() -> BOOL { return clientsListen; };
    Fake<&UiaRaiseAutomationEvent> raise = [this](IRawElementProviderSimple* provider, EVENTID id) -> HRESULT {
        events.emplace_back(provider, id);
        return S_OK;
    };
    wil::com_ptr_nothrow<AccessibleRoot> root = AccessibleRoot::Create(window);
};

TEST_F(AccessibilityTest, the_root_begins_with_one_reference)
{
    EXPECT_EQ(References(*root), 1U);
    EXPECT_EQ(root->AddRef(), 2U);
    EXPECT_EQ(root->Release(), 1U);
}

TEST_F(AccessibilityTest, there_is_no_root_without_memory)
{
    bool created = true;
    {
        const OutOfMemory outOfMemory;
        created = static_cast<bool>(AccessibleRoot::Create(window));
    }
    EXPECT_FALSE(created);
}

TEST_F(AccessibilityTest, the_root_is_a_window_with_the_installers_name)
{
    EXPECT_EQ(Property(*root, UIA_ControlTypePropertyId), L"number 50032");
    EXPECT_EQ(Property(*root, UIA_NamePropertyId), L"Velmora Installer");
    EXPECT_EQ(Property(*root, UIA_AutomationIdPropertyId), L"Velmora_Installer");
}

TEST_F(AccessibilityTest, a_line_is_a_text_and_named_for_what_it_says)
{
    root->Headline().Update(L"Uninstalling Velmora\nThis may take a few seconds.", c_somewhere);
    root->Status().Update(L"\u0416 \u65e5 \U0001f600", c_somewhere);

    EXPECT_EQ(Property(root->Headline(), UIA_ControlTypePropertyId), L"number 50020");
    EXPECT_EQ(Property(root->Headline(), UIA_NamePropertyId), L"Uninstalling Velmora\nThis may take a few seconds.");
    EXPECT_EQ(Property(root->Status(), UIA_ControlTypePropertyId), L"number 50020");
    EXPECT_EQ(Property(root->Status(), UIA_NamePropertyId), L"\u0416 \u65e5 \U0001f600");
}

TEST_F(AccessibilityTest, no_element_has_any_other_property)
{
    for (PROPERTYID id = 30000; id < 30200; ++id)
    {
        const bool known = id == UIA_ControlTypePropertyId || id == UIA_NamePropertyId;
        if (!known)
        {
            EXPECT_EQ(Property(root->Headline(), id), L"<empty>") << id;
            EXPECT_EQ(Property(root->Status(), id), L"<empty>") << id;
        }
        if (!known && id != UIA_AutomationIdPropertyId)
        {
            EXPECT_EQ(Property(*root, id), L"<empty>") << id;
        }
    }
}

TEST_F(AccessibilityTest, a_property_that_finds_no_memory_says_so)
{
    const Fake<&SysAllocStringLen> allocate = [](const OLECHAR*, UINT) -> BSTR { return nullptr; };
    VARIANT value{};
    EXPECT_EQ(root->GetPropertyValue(UIA_NamePropertyId, &value), E_OUTOFMEMORY);
    EXPECT_EQ(value.vt, VT_EMPTY);
    EXPECT_EQ(root->Headline().GetPropertyValue(UIA_NamePropertyId, &value), E_OUTOFMEMORY);
    EXPECT_EQ(value.vt, VT_EMPTY);
}

TEST_F(AccessibilityTest, the_headline_comes_first_and_the_status_second)
{
    EXPECT_THAT(FollowAll(*root), ElementsAre("nowhere", "nowhere", "nowhere", "headline", "status"));
    EXPECT_THAT(FollowAll(root->Headline()), ElementsAre("root", "status", "nowhere", "nowhere", "nowhere"));
    EXPECT_THAT(FollowAll(root->Status()), ElementsAre("root", "nowhere", "headline", "nowhere", "nowhere"));
}

TEST_F(AccessibilityTest, the_root_is_where_its_window_is)
{
    UiaRect bounds{};
    EXPECT_EQ(root->get_BoundingRectangle(&bounds), S_OK);
    EXPECT_EQ((std::vector{bounds.left, bounds.top, bounds.width, bounds.height}),
              (std::vector{700.0, -20.0, 500.0, 340.0}));
}

TEST_F(AccessibilityTest, a_line_moves_with_its_window)
{
    UiaRect bounds{.left = 1, .top = 2, .width = 3, .height = 4};
    EXPECT_EQ(root->Status().get_BoundingRectangle(&bounds), S_OK);
    EXPECT_EQ((std::vector{bounds.left, bounds.top, bounds.width, bounds.height}),
              (std::vector{700.0, -20.0, 0.0, 0.0})); // not painted yet

    root->Status().Update(L"text", c_somewhere);

    EXPECT_EQ(root->Status().get_BoundingRectangle(&bounds), S_OK);
    EXPECT_EQ((std::vector{bounds.left, bounds.top, bounds.width, bounds.height}),
              (std::vector{710.5, 242.5, 748.0, 75.0}));
}

TEST_F(AccessibilityTest, nothing_is_anywhere_when_the_window_is_gone)
{
    windowExists = false;
    UiaRect bounds{.left = 1, .top = 2, .width = 3, .height = 4};
    EXPECT_EQ(root->get_BoundingRectangle(&bounds), static_cast<HRESULT>(0x80040201));
    EXPECT_EQ(bounds.width, 0);
    EXPECT_EQ(root->Headline().get_BoundingRectangle(&bounds), static_cast<HRESULT>(0x80040201));
}

TEST_F(AccessibilityTest, the_roots_host_is_its_window)
{
    auto* const host = reinterpret_cast<IRawElementProviderSimple*>(INT_PTR{16});
    const Fake<&UiaHostProviderFromHwnd> fromWindow = [&](HWND asked, IRawElementProviderSimple** provider) -> HRESULT {
        EXPECT_EQ(asked, window);
        *provider = host;
        return S_FALSE;
    };
    IRawElementProviderSimple* found = nullptr;
    EXPECT_EQ(root->get_HostRawElementProvider(&found), S_FALSE);
    EXPECT_EQ(found, host);
    EXPECT_EQ(root->Headline().get_HostRawElementProvider(&found), S_OK);
    EXPECT_EQ(found, nullptr);
}

TEST_F(AccessibilityTest, elements_are_what_UI_Automation_asks_for)
{
    EXPECT_TRUE(Has<IUnknown>(*root));
    EXPECT_TRUE(Has<IRawElementProviderSimple>(*root));
    EXPECT_TRUE(Has<IRawElementProviderFragment>(*root));
    EXPECT_TRUE(Has<IRawElementProviderFragmentRoot>(*root));
    EXPECT_FALSE(Has<IDispatch>(*root));
    EXPECT_TRUE(Has<IUnknown>(root->Status()));
    EXPECT_TRUE(Has<IRawElementProviderSimple>(root->Status()));
    EXPECT_TRUE(Has<IRawElementProviderFragment>(root->Status()));
    EXPECT_FALSE(Has<IRawElementProviderFragmentRoot>(root->Status()));
}

TEST_F(AccessibilityTest, each_element_is_one_object)
{
    const auto identity = [](IRawElementProviderFragment& element) {
        void* unknown = nullptr;
        EXPECT_EQ(element.QueryInterface(__uuidof(IUnknown), &unknown), S_OK);
        static_cast<IUnknown*>(unknown)->Release();
        return unknown;
    };
    void* fragmentRoot = nullptr;
    EXPECT_EQ(root->QueryInterface(__uuidof(IRawElementProviderFragmentRoot), &fragmentRoot), S_OK);
    auto* const same = static_cast<IRawElementProviderFragmentRoot*>(fragmentRoot);
    void* unknown = nullptr;
    EXPECT_EQ(same->QueryInterface(__uuidof(IUnknown), &unknown), S_OK);
    EXPECT_EQ(unknown, identity(*root));
    root->Release();
    root->Release();
    EXPECT_NE(identity(*root), identity(root->Headline()));
    EXPECT_NE(identity(root->Headline()), identity(root->Status()));
}

TEST_F(AccessibilityTest, elements_are_told_apart_by_their_numbers)
{
    EXPECT_THAT(RuntimeId(*root), ElementsAre()); // the window's own
    EXPECT_THAT(RuntimeId(root->Headline()), ElementsAre(3, 1));
    EXPECT_THAT(RuntimeId(root->Status()), ElementsAre(3, 2));
}

TEST_F(AccessibilityTest, elements_know_their_root)
{
    for (IRawElementProviderFragment* const element : {static_cast<IRawElementProviderFragment*>(root.get()),
                                                       static_cast<IRawElementProviderFragment*>(&root->Headline()),
                                                       static_cast<IRawElementProviderFragment*>(&root->Status())})
    {
        IRawElementProviderFragmentRoot* found = nullptr;
        EXPECT_EQ(element->get_FragmentRoot(&found), S_OK);
        EXPECT_EQ(found, root.get());
        EXPECT_EQ(References(*root), 2U);
        found->Release();
    }
}

TEST_F(AccessibilityTest, elements_have_nothing_else)
{
    for (AccessibleElement* const element :
         {static_cast<AccessibleElement*>(root.get()), static_cast<AccessibleElement*>(&root->Headline())})
    {
        ProviderOptions options{};
        EXPECT_EQ(element->get_ProviderOptions(&options), S_OK);
        EXPECT_EQ(options, ProviderOptions_ServerSideProvider);
        auto* pattern = reinterpret_cast<IUnknown*>(INT_PTR{8});
        EXPECT_EQ(element->GetPatternProvider(10000, &pattern), S_OK);
        EXPECT_EQ(pattern, nullptr);
        auto* roots = reinterpret_cast<SAFEARRAY*>(INT_PTR{8});
        EXPECT_EQ(element->GetEmbeddedFragmentRoots(&roots), S_OK);
        EXPECT_EQ(roots, nullptr);
        EXPECT_EQ(element->SetFocus(), S_OK);
    }
    auto* found = reinterpret_cast<IRawElementProviderFragment*>(INT_PTR{8});
    EXPECT_EQ(root->ElementProviderFromPoint(1, 2, &found), S_OK);
    EXPECT_EQ(found, nullptr);
    found = reinterpret_cast<IRawElementProviderFragment*>(INT_PTR{8});
    EXPECT_EQ(root->GetFocus(&found), S_OK);
    EXPECT_EQ(found, nullptr);
}

TEST_F(AccessibilityTest, a_new_text_raises_one_event_for_its_line)
{
    root->Status().Update(L"one", c_somewhere);
    EXPECT_THAT(events, ElementsAre(std::pair(&root->Status(), UIA_LiveRegionChangedEventId)));
    EXPECT_EQ(events.front().second, 20024);
    root->Headline().Update(L"one", c_somewhere);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[1].first, &root->Headline());
}

TEST_F(AccessibilityTest, a_text_is_new_when_its_length_or_any_character_is)
{
    root->Status().Update(L"one", c_somewhere);
    events.clear();

    root->Status().Update(L"one", {.left = 1, .top = 2, .width = 3, .height = 4});
    EXPECT_EQ(events.size(), 0U);
    root->Status().Update(L"onE", c_somewhere);
    EXPECT_EQ(events.size(), 1U);
    root->Status().Update(L"onE ", c_somewhere);
    EXPECT_EQ(events.size(), 2U);
    root->Status().Update(L"", c_somewhere);
    EXPECT_EQ(events.size(), 3U);
    root->Status().Update(L"", c_somewhere);
    EXPECT_EQ(events.size(), 3U);
}

TEST_F(AccessibilityTest, the_place_is_taken_over_with_the_same_text_too)
{
    root->Status().Update(L"one", c_somewhere);
    root->Status().Update(L"one", {.left = 1, .top = 2, .width = 3, .height = 4});

    UiaRect bounds{};
    EXPECT_EQ(root->Status().get_BoundingRectangle(&bounds), S_OK);
    EXPECT_EQ((std::vector{bounds.left, bounds.top, bounds.width, bounds.height}),
              (std::vector{701.0, -18.0, 3.0, 4.0}));
}

TEST_F(AccessibilityTest, no_event_is_raised_when_nobody_listens_and_none_is_made_up_for)
{
    clientsListen = false;
    root->Status().Update(L"one", c_somewhere);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(Property(root->Status(), UIA_NamePropertyId), L"one");

    clientsListen = true;
    root->Status().Update(L"one", c_somewhere);
    EXPECT_TRUE(events.empty());
}

TEST_F(AccessibilityTest, whoever_hears_of_a_text_can_ask_for_it_at_once)
{
    std::wstring heard;
    const Fake<&UiaRaiseAutomationEvent> listen = [&](IRawElementProviderSimple* provider, EVENTID) -> HRESULT {
        heard = Property(*provider, UIA_NamePropertyId);
        return S_OK;
    };

    root->Status().Update(L"one", c_somewhere);

    EXPECT_EQ(heard, L"one");
}

TEST_F(AccessibilityTest, a_line_is_locked_while_it_is_written_or_read_and_not_while_an_event_is_raised)
{
    std::vector<std::string> order;
    const auto add = [&](const char* what) { order.emplace_back(what); };
    Fake<&AcquireSRWLockExclusive> lock = [&](PSRWLOCK) { add("lock"); };
    Fake<&ReleaseSRWLockExclusive> unlock = [&](PSRWLOCK) { add("unlock"); };
    Fake<&AcquireSRWLockShared> lockShared = [&](PSRWLOCK) { add("lock shared"); };
    Fake<&ReleaseSRWLockShared> unlockShared = [&](PSRWLOCK) { add("unlock shared"); };
    Fake<&UiaRaiseAutomationEvent> raiseEvent = [&](IRawElementProviderSimple*, EVENTID) -> HRESULT {
        add("event");
        return S_OK;
    };

    root->Status().Update(L"one", c_somewhere);
    EXPECT_THAT(std::exchange(order, {}), ElementsAre("lock", "unlock", "event"));
    Property(root->Status(), UIA_NamePropertyId);
    EXPECT_THAT(std::exchange(order, {}), ElementsAre("lock shared", "unlock shared"));
    UiaRect bounds{};
    root->Status().get_BoundingRectangle(&bounds);
    EXPECT_THAT(order, ElementsAre("lock shared", "unlock shared"));
}

TEST_F(AccessibilityTest, the_last_reference_frees_everything)
{
    AccessibleRoot* const object = root.get();
    int freed = 0;
    Fake<&std::free> watch = [&](void* memory) {
        freed += memory == object ? 1 : 0;
        decltype(watch)::Real(memory);
    };

    object->Status().AddRef();
    root.reset();
    EXPECT_EQ(freed, 0);
    object->Status().Release();
    EXPECT_EQ(freed, 1);
}

TEST_F(AccessibilityTest, a_text_that_finds_no_memory_is_left_out)
{
    root->Status().Update(L"one", c_somewhere);
    events.clear();
    const std::wstring text(1000, L'x');
    std::optional<OutOfMemory> outOfMemory(std::in_place);
    root->Status().Update(text, c_somewhere);
    outOfMemory.reset();

    EXPECT_EQ(Property(root->Status(), UIA_NamePropertyId), L"one");
    EXPECT_TRUE(events.empty());
}

TEST_F(AccessibilityTest, a_line_that_is_still_held_keeps_everything)
{
    root->Status().Update(L"one", c_somewhere);
    AccessibleRoot::Line& status = root->Status();
    status.AddRef();
    root.reset();

    EXPECT_EQ(Property(status, UIA_NamePropertyId), L"one");
    IRawElementProviderFragment* parent = nullptr;
    EXPECT_EQ(status.Navigate(NavigateDirection_Parent, &parent), S_OK);
    EXPECT_EQ(status.Release(), 1U);
    windowExists = false;
    UiaRect bounds{};
    EXPECT_NE(parent->get_BoundingRectangle(&bounds), S_OK);
    EXPECT_EQ(parent->Release(), 0U);
}

} // namespace
