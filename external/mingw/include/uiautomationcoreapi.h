// mingw-w64's header, which has a parameter named "new", with missing declarations.
#pragma once

#pragma push_macro("new")
#define new new_
#include_next <uiautomationcoreapi.h>
#pragma pop_macro("new")

#if defined(__cplusplus) && __MINGW64_VERSION_MAJOR < 12
extern "C" {

WINBOOL WINAPI UiaClientsAreListening(void);

// The client's functions, for the tests.
enum ConditionType
{
    ConditionType_True = 0,
    ConditionType_False = 1,
    ConditionType_Property = 2,
    ConditionType_And = 3,
    ConditionType_Or = 4,
    ConditionType_Not = 5
};

struct UiaCondition
{
    enum ConditionType ConditionType;
};

enum TreeScope
{
    TreeScope_Element = 1,
    TreeScope_Children = 2,
    TreeScope_Descendants = 4,
    TreeScope_Subtree = 7
};

enum AutomationElementMode
{
    AutomationElementMode_None = 0,
    AutomationElementMode_Full = 1
};

struct UiaCacheRequest
{
    struct UiaCondition* pViewCondition;
    enum TreeScope Scope;
    PROPERTYID* pProperties;
    int cProperties;
    PATTERNID* pPatterns;
    int cPatterns;
    enum AutomationElementMode automationElementMode;
};

HRESULT WINAPI UiaNodeFromHandle(HWND hwnd, HUIANODE* node);
WINBOOL WINAPI UiaNodeRelease(HUIANODE node);
HRESULT WINAPI UiaHUiaNodeFromVariant(VARIANT* value, HUIANODE* node);
HRESULT WINAPI UiaGetPropertyValue(HUIANODE node, PROPERTYID id, VARIANT* value);
HRESULT WINAPI UiaNavigate(HUIANODE node, enum NavigateDirection direction, struct UiaCondition* condition,
                           struct UiaCacheRequest* request, SAFEARRAY** data, BSTR* treeStructure);
}
#endif
