// What assistive programs see of windows.
#pragma once

#include <windows.h>

#include <oleauto.h>
#include <uiautomation.h>

#include <array>
#include <memory>
#include <optional>
#include <string>

namespace Testing
{
// An element of a window of another program, asked for by UI Automation.
class AutomationElement
{
public:
    // That of the window itself; nothing when there is none.
    static std::optional<AutomationElement> Of(HWND window)
    {
        HUIANODE node = nullptr;
        return SUCCEEDED(UiaNodeFromHandle(window, &node)) ? std::optional(AutomationElement(node)) : std::nullopt;
    }

    // The neighbour in that direction; nothing when there is none.
    std::optional<AutomationElement> Go(NavigateDirection direction) const
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
        const HRESULT result = UiaNavigate(m_node.get(), direction, &everything, &request, &found, &structure);
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

    // Its properties; empty, 0 or all 0 when it does not have them.
    std::wstring Name() const { return Value(*this, 30005).Text(); }
    std::wstring AutomationId() const { return Value(*this, 30011).Text(); }
    long ControlType() const { return Value(*this, 30003).Number(); }
    std::array<double, 4> Bounds() const { return Value(*this, 30001).Numbers(); } // left, top, width, height

private:
    class Value
    {
    public:
        Value(const AutomationElement& element, PROPERTYID id)
        {
            UiaGetPropertyValue(element.m_node.get(), id, &m_value);
        }
        Value(const Value&) = delete;
        Value& operator=(const Value&) = delete;
        ~Value() { VariantClear(&m_value); }

        std::wstring Text() const
        {
            return m_value.vt == VT_BSTR ? std::wstring(m_value.bstrVal, SysStringLen(m_value.bstrVal)) : L"";
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

    explicit AutomationElement(HUIANODE node) : m_node(node, UiaNodeRelease) {}

    std::shared_ptr<HUIANODE__> m_node;
};
} // namespace Testing
