#include "support/AutomationElement.h"

#include <oleauto.h>
#include <uiautomation.h>

#include <cstdint>

namespace Testing
{
namespace
{
constexpr PROPERTYID c_boundingRectangle = 30001;
constexpr PROPERTYID c_controlType = 30003;
constexpr PROPERTYID c_name = 30005;
constexpr PROPERTYID c_automationId = 30011;

NavigateDirection ToUia(Direction direction)
{
    switch (direction)
    {
    case Direction::Parent:
        return NavigateDirection_Parent;
    case Direction::NextSibling:
        return NavigateDirection_NextSibling;
    case Direction::PreviousSibling:
        return NavigateDirection_PreviousSibling;
    case Direction::FirstChild:
        return NavigateDirection_FirstChild;
    case Direction::LastChild:
        break;
    }
    return NavigateDirection_LastChild;
}

// A property of an element.
class Value
{
public:
    Value(void* node, PROPERTYID id)
    {
        VariantInit(&m_value);
        UiaGetPropertyValue(static_cast<HUIANODE>(node), id, &m_value);
    }
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;
    ~Value() { VariantClear(&m_value); }

    std::wstring Text() const
    {
        return m_value.vt == VT_BSTR ? std::wstring(m_value.bstrVal, SysStringLen(m_value.bstrVal)) : std::wstring();
    }
    long Number() const { return m_value.vt == VT_I4 ? m_value.lVal : 0; }
    std::array<double, 4> Numbers() const
    {
        std::array<double, 4> numbers{};
        for (LONG index = 0; m_value.vt == (VT_ARRAY | VT_R8) && index < 4; ++index)
        {
            SafeArrayGetElement(m_value.parray, &index, &numbers.at(static_cast<std::size_t>(index)));
        }
        return numbers;
    }

private:
    VARIANT m_value{};
};
} // namespace

AutomationElement::AutomationElement(void* node)
    : m_node(node, [](void* last) { UiaNodeRelease(static_cast<HUIANODE>(last)); })
{}

std::optional<AutomationElement> AutomationElement::Of(HWND window)
{
    HUIANODE node = nullptr;
    if (FAILED(UiaNodeFromHandle(window, &node)))
    {
        return std::nullopt;
    }
    return AutomationElement(node);
}

std::optional<AutomationElement> AutomationElement::Go(Direction direction) const
{
    UiaCondition everything{.ConditionType = ConditionType_True};
    UiaCacheRequest request{.pViewCondition = &everything,
                            .Scope = TreeScope_Element,
                            .pProperties = nullptr,
                            .cProperties = 0,
                            .pPatterns = nullptr,
                            .cPatterns = 0,
                            .automationElementMode = AutomationElementMode_Full};
    SAFEARRAY* found = nullptr;
    BSTR structure = nullptr;
    const HRESULT result =
        UiaNavigate(static_cast<HUIANODE>(m_node.get()), ToUia(direction), &everything, &request, &found, &structure);
    SysFreeString(structure);
    if (FAILED(result) || found == nullptr)
    {
        return std::nullopt;
    }
    VARIANT value{};
    HUIANODE node = nullptr;
    std::array<LONG, 2> first{};
    if (SUCCEEDED(SafeArrayGetElement(found, first.data(), &value)))
    {
        UiaHUiaNodeFromVariant(&value, &node);
        VariantClear(&value);
    }
    SafeArrayDestroy(found);
    return node == nullptr ? std::nullopt : std::optional(AutomationElement(node));
}

std::wstring AutomationElement::Name() const
{
    return Value(m_node.get(), c_name).Text();
}

std::wstring AutomationElement::AutomationId() const
{
    return Value(m_node.get(), c_automationId).Text();
}

long AutomationElement::ControlType() const
{
    return Value(m_node.get(), c_controlType).Number();
}

std::array<double, 4> AutomationElement::Bounds() const
{
    return Value(m_node.get(), c_boundingRectangle).Numbers();
}
} // namespace Testing
