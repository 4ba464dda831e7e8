#include "Installer/Accessibility.h"

#include "support/common/ImportTableFake.h"
#include "support/unit/Journal.h"
#include "support/unit/OutOfMemory.h"

#include <windows.h>

#include <oleauto.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr UiaRect c_somewhere{.left = 10.5, .top = 262.5, .width = 748, .height = 75};

class AccessibilityTest : public testing::Test
{
protected:
    AccessibilityTest()
    {
        journal.Name(static_cast<IRawElementProviderFragment*>(root.get()), "root");
        journal.Name(static_cast<IRawElementProviderFragment*>(&root->Headline()), "headline");
        journal.Name(static_cast<IRawElementProviderFragment*>(&root->Status()), "status");
    }
    ~AccessibilityTest() override
    {
        if (root)
        {
            EXPECT_EQ(References(*root), 1U);
        }
    }

    // How many references there are, of all elements together.
    static ULONG References(AccessibleRoot& element)
    {
        element.AddRef();
        return element.Release();
    }

    std::vector<AccessibleElement*> Elements() const { return {root.get(), &root->Headline(), &root->Status()}; }

    // A property as text: "number <...>", the text itself, or nothing.
    static std::optional<std::wstring> Property(IRawElementProviderSimple& element, PROPERTYID id)
    {
        VARIANT value;
        value.vt = VT_ERROR; // whatever was there
        EXPECT_EQ(element.GetPropertyValue(id, &value), S_OK);
        if (value.vt == VT_EMPTY)
        {
            return std::nullopt;
        }
        const std::wstring text = value.vt == VT_I4     ? L"number " + std::to_wstring(value.lVal)
                                  : value.vt == VT_BSTR ? std::wstring(value.bstrVal, SysStringLen(value.bstrVal))
                                                        : L"<something else>";
        VariantClear(&value);
        return text;
    }

    using PropertyMap = std::map<PROPERTYID, std::wstring>;
    static PropertyMap Properties(IRawElementProviderSimple& element)
    {
        PropertyMap properties;
        for (PROPERTYID id = 30000; id < 30200; ++id)
        {
            if (const auto text = Property(element, id))
            {
                properties[id] = *text;
            }
        }
        return properties;
    }

    // Where it leads to the parent, the next sibling, the one before, the first and the last child.
    std::vector<std::string> Follow(IRawElementProviderFragment& element) const
    {
        std::vector<std::string> ways;
        for (const auto direction :
             {NavigateDirection_Parent, NavigateDirection_NextSibling, NavigateDirection_PreviousSibling,
              NavigateDirection_FirstChild, NavigateDirection_LastChild})
        {
            auto* found = reinterpret_cast<IRawElementProviderFragment*>(INT_PTR{8});
            EXPECT_EQ(element.Navigate(direction, &found), S_OK);
            ways.push_back(journal.NameOf(found));
            if (found != nullptr)
            {
                EXPECT_EQ(References(*root), 2U);
                found->Release();
            }
        }
        return ways;
    }

    static std::vector<int> RuntimeId(IRawElementProviderFragment& element)
    {
        SAFEARRAY* array = nullptr;
        EXPECT_EQ(element.GetRuntimeId(&array), S_OK);
        if (array == nullptr)
        {
            return {};
        }
        const auto* const first = static_cast<const int*>(array->pvData);
        std::vector<int> parts(first, first + array->rgsabound[0].cElements);
        SafeArrayDestroy(array);
        return parts;
    }

    std::vector<std::string> Interfaces(IRawElementProviderSimple& element) const
    {
        std::vector<std::string> names;
        for (const auto& [name, id] : {std::pair{"IUnknown", __uuidof(IUnknown)},
                                       {"Simple", __uuidof(IRawElementProviderSimple)},
                                       {"Fragment", __uuidof(IRawElementProviderFragment)},
                                       {"FragmentRoot", __uuidof(IRawElementProviderFragmentRoot)},
                                       {"IDispatch", __uuidof(IDispatch)}})
        {
            void* found = reinterpret_cast<void*>(INT_PTR{8});
            const HRESULT result = element.QueryInterface(id, &found);
            EXPECT_EQ(result, found == nullptr ? E_NOINTERFACE : S_OK);
            if (found != nullptr)
            {
                EXPECT_EQ(References(*root), 2U);
                // Each element is one object.
                EXPECT_TRUE(id != __uuidof(IUnknown) || found == &element);
                static_cast<IUnknown*>(found)->Release();
                names.emplace_back(name);
            }
        }
        return names;
    }

    // Left, top, width and height; nothing for an element that is not available any more.
    static std::vector<double> Bounds(IRawElementProviderFragment& element)
    {
        UiaRect bounds{.left = 1, .top = 2, .width = 3, .height = 4};
        const HRESULT result = element.get_BoundingRectangle(&bounds);
        if (result != S_OK)
        {
            EXPECT_EQ(result, static_cast<HRESULT>(0x80040201));
            EXPECT_EQ(bounds.width, 0);
            return {};
        }
        return {bounds.left, bounds.top, bounds.width, bounds.height};
    }

    Journal journal;
    HWND window = reinterpret_cast<HWND>(INT_PTR{0x20a4});
    bool windowExists = true;
    bool clientsListen = true;
    std::vector<IRawElementProviderSimple*> events; // those that raised them
    Fake<&GetWindowRect> getWindowRect = [this](HWND asked, LPRECT area) -> BOOL {
        EXPECT_EQ(asked, window);
        *area = {700, -20, 1200, 320};
        return windowExists;
    };
    Fake<&UiaClientsAreListening> areListening = [this]() -> BOOL { return clientsListen; };
    Fake<&UiaRaiseAutomationEvent> raise = [this](IRawElementProviderSimple* provider, EVENTID id) -> HRESULT {
        EXPECT_EQ(id, 20024);
        events.push_back(provider);
        return S_OK;
    };
    wil::com_ptr_nothrow<AccessibleRoot> root = AccessibleRoot::Create(window);
};

TEST_F(AccessibilityTest, The_root_is_a_window_with_the_installers_name_and_a_line_a_text_named_for_what_it_says)
{
    root->Headline().Update(L"Uninstalling Velmora\nThis may take a few seconds.", c_somewhere);
    root->Status().Update(L"\u0416 \u65e5 \U0001f600", c_somewhere);

    EXPECT_EQ(Properties(*root),
              (PropertyMap{{30003, L"number 50032"}, {30005, L"Velmora Installer"}, {30011, L"Velmora_Installer"}}));
    EXPECT_EQ(Properties(root->Headline()),
              (PropertyMap{{30003, L"number 50020"}, {30005, L"Uninstalling Velmora\nThis may take a few seconds."}}));
    EXPECT_EQ(Properties(root->Status()),
              (PropertyMap{{30003, L"number 50020"}, {30005, L"\u0416 \u65e5 \U0001f600"}}));
}

TEST_F(AccessibilityTest, A_property_that_finds_no_memory_says_so)
{
    const Fake<&SysAllocStringLen> allocate = [](const OLECHAR*, UINT) -> BSTR { return nullptr; };
    for (AccessibleElement* const element : Elements())
    {
        VARIANT value{};
        EXPECT_EQ(element->GetPropertyValue(UIA_NamePropertyId, &value), E_OUTOFMEMORY);
        EXPECT_EQ(value.vt, VT_EMPTY);
    }
}

TEST_F(AccessibilityTest, The_headline_comes_first_and_the_status_second)
{
    EXPECT_THAT(Follow(*root), ElementsAre("null", "null", "null", "headline", "status"));
    EXPECT_THAT(Follow(root->Headline()), ElementsAre("root", "status", "null", "null", "null"));
    EXPECT_THAT(Follow(root->Status()), ElementsAre("root", "null", "headline", "null", "null"));
}

TEST_F(AccessibilityTest, The_root_is_where_its_window_is_and_a_line_moves_with_it)
{
    EXPECT_THAT(Bounds(*root), ElementsAre(700, -20, 500, 340));
    EXPECT_THAT(Bounds(root->Status()), ElementsAre(700, -20, 0, 0)); // not painted yet

    root->Status().Update(L"text", c_somewhere);
    EXPECT_THAT(Bounds(root->Status()), ElementsAre(710.5, 242.5, 748, 75));
    root->Status().Update(L"text", {.left = 1, .top = 2, .width = 3, .height = 4});
    EXPECT_THAT(Bounds(root->Status()), ElementsAre(701, -18, 3, 4));

    windowExists = false;
    EXPECT_THAT(Bounds(*root), IsEmpty());
    EXPECT_THAT(Bounds(root->Status()), IsEmpty());
}

TEST_F(AccessibilityTest, The_roots_host_is_its_window)
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

TEST_F(AccessibilityTest, Elements_are_what_UI_Automation_asks_for)
{
    EXPECT_THAT(Interfaces(*root), ElementsAre("IUnknown", "Simple", "Fragment", "FragmentRoot"));
    EXPECT_THAT(Interfaces(root->Status()), ElementsAre("IUnknown", "Simple", "Fragment"));
}

TEST_F(AccessibilityTest, Elements_are_told_apart_by_their_numbers)
{
    EXPECT_THAT(RuntimeId(*root), ElementsAre()); // the window's own
    EXPECT_THAT(RuntimeId(root->Headline()), ElementsAre(3, 1));
    EXPECT_THAT(RuntimeId(root->Status()), ElementsAre(3, 2));
}

TEST_F(AccessibilityTest, Elements_know_their_root_and_have_nothing_else)
{
    for (AccessibleElement* const element : Elements())
    {
        wil::com_ptr_nothrow<IRawElementProviderFragmentRoot> found;
        EXPECT_EQ(element->get_FragmentRoot(found.put()), S_OK);
        EXPECT_EQ(found.get(), root.get());
        EXPECT_EQ(References(*root), 2U);
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

TEST_F(AccessibilityTest, A_new_text_raises_one_event_for_its_line)
{
    const auto raised = [this](AccessibleRoot::Line& line, const wchar_t* text) {
        line.Update(text, c_somewhere);
        return std::exchange(events, {});
    };
    EXPECT_THAT(raised(root->Status(), L"one"), ElementsAre(&root->Status()));
    EXPECT_THAT(raised(root->Headline(), L"one"), ElementsAre(&root->Headline()));
    // It is new when its length or any character is.
    EXPECT_THAT(raised(root->Status(), L"one"), IsEmpty());
    EXPECT_THAT(raised(root->Status(), L"onE"), ElementsAre(&root->Status()));
    EXPECT_THAT(raised(root->Status(), L"onE "), ElementsAre(&root->Status()));
    EXPECT_THAT(raised(root->Status(), L""), ElementsAre(&root->Status()));
    EXPECT_THAT(raised(root->Status(), L""), IsEmpty());
    // While nobody listens none is raised, and none is made up for.
    clientsListen = false;
    EXPECT_THAT(raised(root->Status(), L"two"), IsEmpty());
    clientsListen = true;
    EXPECT_THAT(raised(root->Status(), L"two"), IsEmpty());
    EXPECT_EQ(Property(root->Status(), UIA_NamePropertyId), L"two");
}

TEST_F(AccessibilityTest, A_line_is_locked_while_it_is_written_or_read_and_not_while_an_event_is_raised)
{
    std::vector<std::string> order;
    Fake<&AcquireSRWLockExclusive> lock = [&](PSRWLOCK) { order.emplace_back("lock"); };
    Fake<&ReleaseSRWLockExclusive> unlock = [&](PSRWLOCK) { order.emplace_back("unlock"); };
    Fake<&AcquireSRWLockShared> lockShared = [&](PSRWLOCK) { order.emplace_back("lock shared"); };
    Fake<&ReleaseSRWLockShared> unlockShared = [&](PSRWLOCK) { order.emplace_back("unlock shared"); };
    Fake<&UiaRaiseAutomationEvent> raiseEvent = [&](IRawElementProviderSimple* provider, EVENTID) -> HRESULT {
        order.emplace_back("event");
        EXPECT_EQ(Property(*provider, UIA_NamePropertyId), L"one"); // whoever hears of it can ask for it at once
        return S_OK;
    };

    root->Status().Update(L"one", c_somewhere);
    EXPECT_THAT(std::exchange(order, {}), ElementsAre("lock", "unlock", "event", "lock shared", "unlock shared"));
    Bounds(root->Status());
    EXPECT_THAT(order, ElementsAre("lock shared", "unlock shared"));
}

TEST_F(AccessibilityTest, A_text_that_finds_no_memory_is_left_out)
{
    root->Status().Update(L"one", c_somewhere);
    events.clear();
    const std::wstring text(1000, L'x');
    {
        const OutOfMemory outOfMemory;
        root->Status().Update(text, c_somewhere);
    }

    EXPECT_EQ(Property(root->Status(), UIA_NamePropertyId), L"one");
    EXPECT_TRUE(events.empty());
}

TEST_F(AccessibilityTest, A_line_that_is_still_held_keeps_everything_and_the_last_reference_frees_it)
{
    AccessibleRoot* const object = root.get();
    int freed = 0;
    Fake<&std::free> watch = [&](void* memory) {
        freed += memory == object ? 1 : 0;
        decltype(watch)::Real(memory);
    };
    AccessibleRoot::Line& status = root->Status();
    status.Update(L"one", c_somewhere);
    status.AddRef();
    root.reset();

    EXPECT_EQ(Property(status, UIA_NamePropertyId), L"one");
    IRawElementProviderFragment* parent = nullptr;
    EXPECT_EQ(status.Navigate(NavigateDirection_Parent, &parent), S_OK);
    EXPECT_EQ(status.Release(), 1U);
    windowExists = false;
    EXPECT_THAT(Bounds(*parent), IsEmpty());
    EXPECT_EQ(freed, 0);
    EXPECT_EQ(parent->Release(), 0U);
    EXPECT_EQ(freed, 1);
}

} // namespace
