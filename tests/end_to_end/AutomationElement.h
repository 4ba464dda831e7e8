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

    // Empty when it has none.
    std::wstring Name() const
    {
        constexpr PROPERTYID c_name = 30005;
        VARIANT value{};
        UiaGetPropertyValue(m_node.get(), c_name, &value);
        std::wstring name = value.vt == VT_BSTR ? std::wstring(value.bstrVal, SysStringLen(value.bstrVal)) : L"";
        VariantClear(&value);
        return name;
    }

private:
    explicit AutomationElement(HUIANODE node) : m_node(node, UiaNodeRelease) {}

    std::shared_ptr<HUIANODE__> m_node;
};
} // namespace Testing
