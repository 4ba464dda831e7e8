#include "support/unit/FakeDesktopShell.h"

#include <exdisp.h>
#include <servprov.h>
#include <shldisp.h>
#include <shlguid.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <utility>

// COM's interfaces have no virtual destructors; nobody deletes an object through one.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

namespace Testing
{

namespace
{

std::string NameOf(REFIID id)
{
    static const std::vector<std::pair<IID, std::string>> names = {
        {__uuidof(IDispatch), "IDispatch"},
        {__uuidof(IServiceProvider), "IServiceProvider"},
        {__uuidof(IShellBrowser), "IShellBrowser"},
        {__uuidof(IShellDispatch2), "IShellDispatch2"},
        {__uuidof(IShellFolderViewDual), "IShellFolderViewDual"},
        {__uuidof(IShellView), "IShellView"},
        {__uuidof(IShellWindows), "IShellWindows"},
    };
    for (const auto& [known, name] : names)
    {
        if (id == known)
        {
            return name;
        }
    }
    return "another interface";
}

HRESULT Unexpected()
{
    ADD_FAILURE() << "a function of the shell that nobody should call";
    return E_NOTIMPL;
}

} // namespace

struct FakeDesktopShell::Chain
{
    explicit Chain(FakeDesktopShell& shell) : owner(shell) {}

    // What every object has: the name of its interface, its references, and the next object, which it gives.
    class Link
    {
    public:
        Link(FakeDesktopShell& shell, std::string name, IUnknown* self, Link* next)
            : m_shell(shell),
              m_name(std::move(name)),
              m_self(self),
              m_next(next)
        {}
        Link(const Link&) = delete;
        Link& operator=(const Link&) = delete;

        ULONG Add()
        {
            ++m_shell.m_references;
            return static_cast<ULONG>(++m_references);
        }
        ULONG Remove()
        {
            EXPECT_GT(m_references, 0) << m_name << " has been released already";
            --m_shell.m_references;
            return static_cast<ULONG>(--m_references);
        }

    protected:
        // Notes a method that is called: only while somebody holds the object.
        template <class... Arguments>
        HRESULT Note(const char* method, const Arguments&... arguments) const
        {
            EXPECT_GT(m_references, 0) << m_name << " is not held";
            return static_cast<HRESULT>(m_shell.m_journal.Add(m_name + "::" + method, arguments...));
        }

        // Notes a method that gives a reference to the next object.
        template <class... Arguments>
        HRESULT Give(void** result, REFIID id, const char* method, const Arguments&... arguments) const
        {
            *result = nullptr;
            const HRESULT outcome = Note(method, arguments...);
            if (FAILED(outcome))
            {
                return outcome;
            }
            if (m_next == nullptr || NameOf(id) != m_next->m_name)
            {
                ADD_FAILURE() << m_name << " has nothing else to give";
                return E_NOINTERFACE;
            }
            m_next->Add();
            *result = m_next->m_self;
            return S_OK;
        }

        FakeDesktopShell& m_shell;
        const std::string m_name;

    private:
        IUnknown* m_self;
        Link* m_next;
        long m_references = 0;
    };

    template <class Interface>
    class Object : public Interface, public Link
    {
    public:
        explicit Object(FakeDesktopShell& shell, Link* next = nullptr)
            : Link(shell, NameOf(__uuidof(Interface)), this, next)
        {}

        HRESULT WINAPI QueryInterface(REFIID id, void** result) override
        {
            return Give(result, id, "QueryInterface", NameOf(id));
        }
        ULONG WINAPI AddRef() override { return Add(); }
        ULONG WINAPI Release() override { return Remove(); }

    protected:
        ~Object() = default;
    };

    template <class Interface>
    class Scriptable : public Object<Interface>
    {
    public:
        using Object<Interface>::Object;

        HRESULT WINAPI GetTypeInfoCount(UINT*) override { return Unexpected(); }
        HRESULT WINAPI GetTypeInfo(UINT, LCID, ITypeInfo**) override { return Unexpected(); }
        HRESULT WINAPI GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return Unexpected(); }
        HRESULT WINAPI Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
        {
            return Unexpected();
        }

    protected:
        ~Scriptable() = default;
    };

    class Dispatch final : public Scriptable<IDispatch>
    {
    public:
        using Scriptable::Scriptable;
    };

    class Windows final : public Scriptable<IShellWindows>
    {
    public:
        using Scriptable::Scriptable;

        HRESULT WINAPI FindWindowSW(VARIANT* location, VARIANT* root, int kind, LONG* window, int options,
                                    IDispatch** result) override
        {
            *window = 0;
            const HRESULT outcome =
                Give(reinterpret_cast<void**>(result), __uuidof(IDispatch), "FindWindowSW", m_shell.Describe(*location),
                     m_shell.Describe(*root), Mask(static_cast<DWORD>(kind)), Mask(static_cast<DWORD>(options)));
            if (FAILED(outcome) || m_shell.hasDesktop)
            {
                return outcome;
            }
            std::exchange(*result, nullptr)->Release();
            return S_FALSE;
        }

        HRESULT WINAPI get_Count(LONG*) override { return Unexpected(); }
        HRESULT WINAPI Item(VARIANT, IDispatch**) override { return Unexpected(); }
        HRESULT WINAPI _NewEnum(IUnknown**) override { return Unexpected(); }
        HRESULT WINAPI Register(IDispatch*, LONG, int, LONG*) override { return Unexpected(); }
        HRESULT WINAPI RegisterPending(LONG, VARIANT*, VARIANT*, int, LONG*) override { return Unexpected(); }
        HRESULT WINAPI Revoke(LONG) override { return Unexpected(); }
        HRESULT WINAPI OnNavigate(LONG, VARIANT*) override { return Unexpected(); }
        HRESULT WINAPI OnActivated(LONG, VARIANT_BOOL) override { return Unexpected(); }
        HRESULT WINAPI OnCreated(LONG, IUnknown*) override { return Unexpected(); }
        HRESULT WINAPI ProcessAttachDetach(VARIANT_BOOL) override { return Unexpected(); }
    };

    class Services final : public Object<IServiceProvider>
    {
    public:
        using Object::Object;

        HRESULT WINAPI QueryService(REFGUID service, REFIID id, void** result) override
        {
            const char* const name = service == SID_STopLevelBrowser ? "STopLevelBrowser" : "another service";
            return Give(result, id, "QueryService", name, NameOf(id));
        }
    };

    class Browser final : public Object<IShellBrowser>
    {
    public:
        using Object::Object;

        HRESULT WINAPI QueryActiveShellView(IShellView** result) override
        {
            return Give(reinterpret_cast<void**>(result), __uuidof(IShellView), "QueryActiveShellView");
        }

        HRESULT WINAPI GetWindow(HWND*) override { return Unexpected(); }
        HRESULT WINAPI ContextSensitiveHelp(BOOL) override { return Unexpected(); }
        HRESULT WINAPI InsertMenusSB(HMENU, LPOLEMENUGROUPWIDTHS) override { return Unexpected(); }
        HRESULT WINAPI SetMenuSB(HMENU, HOLEMENU, HWND) override { return Unexpected(); }
        HRESULT WINAPI RemoveMenusSB(HMENU) override { return Unexpected(); }
        HRESULT WINAPI SetStatusTextSB(LPCWSTR) override { return Unexpected(); }
        HRESULT WINAPI EnableModelessSB(BOOL) override { return Unexpected(); }
        HRESULT WINAPI TranslateAcceleratorSB(MSG*, WORD) override { return Unexpected(); }
        HRESULT WINAPI BrowseObject(PCUIDLIST_RELATIVE, UINT) override { return Unexpected(); }
        HRESULT WINAPI GetViewStateStream(DWORD, IStream**) override { return Unexpected(); }
        HRESULT WINAPI GetControlWindow(UINT, HWND*) override { return Unexpected(); }
        HRESULT WINAPI SendControlMsg(UINT, UINT, WPARAM, LPARAM, LRESULT*) override { return Unexpected(); }
        HRESULT WINAPI OnViewWindowActive(IShellView*) override { return Unexpected(); }
        HRESULT WINAPI SetToolbarItems(LPTBBUTTONSB, UINT, UINT) override { return Unexpected(); }
    };

    class View final : public Object<IShellView>
    {
    public:
        using Object::Object;

        HRESULT WINAPI GetItemObject(UINT item, REFIID id, void** result) override
        {
            return Give(result, id, "GetItemObject", item, NameOf(id));
        }

        HRESULT WINAPI GetWindow(HWND*) override { return Unexpected(); }
        HRESULT WINAPI ContextSensitiveHelp(BOOL) override { return Unexpected(); }
        HRESULT WINAPI TranslateAccelerator(MSG*) override { return Unexpected(); }
        HRESULT WINAPI EnableModeless(BOOL) override { return Unexpected(); }
        HRESULT WINAPI UIActivate(UINT) override { return Unexpected(); }
        HRESULT WINAPI Refresh() override { return Unexpected(); }
        HRESULT WINAPI CreateViewWindow(IShellView*, LPCFOLDERSETTINGS, IShellBrowser*, RECT*, HWND*) override
        {
            return Unexpected();
        }
        HRESULT WINAPI DestroyViewWindow() override { return Unexpected(); }
        HRESULT WINAPI GetCurrentInfo(LPFOLDERSETTINGS) override { return Unexpected(); }
        HRESULT WINAPI AddPropertySheetPages(DWORD, LPFNSVADDPROPSHEETPAGE, LPARAM) override { return Unexpected(); }
        HRESULT WINAPI SaveViewState() override { return Unexpected(); }
        HRESULT WINAPI SelectItem(PCUITEMID_CHILD, SVSIF) override { return Unexpected(); }
    };

    class FolderView final : public Scriptable<IShellFolderViewDual>
    {
    public:
        using Scriptable::Scriptable;

        HRESULT WINAPI get_Application(IDispatch** result) override
        {
            return Give(reinterpret_cast<void**>(result), __uuidof(IDispatch), "get_Application");
        }

        HRESULT WINAPI get_Parent(IDispatch**) override { return Unexpected(); }
        HRESULT WINAPI get_Folder(Folder**) override { return Unexpected(); }
        HRESULT WINAPI SelectedItems(FolderItems**) override { return Unexpected(); }
        HRESULT WINAPI get_FocusedItem(FolderItem**) override { return Unexpected(); }
        HRESULT WINAPI SelectItem(VARIANT*, int) override { return Unexpected(); }
        HRESULT WINAPI PopupItemMenu(FolderItem*, VARIANT, VARIANT, BSTR*) override { return Unexpected(); }
        HRESULT WINAPI get_Script(IDispatch**) override { return Unexpected(); }
        HRESULT WINAPI get_ViewOptions(LONG*) override { return Unexpected(); }
    };

    class Shell final : public Scriptable<IShellDispatch2>
    {
    public:
        using Scriptable::Scriptable;

        HRESULT WINAPI ShellExecute(BSTR file, VARIANT arguments, VARIANT directory, VARIANT operation,
                                    VARIANT show) override
        {
            return Note("ShellExecute", m_shell.Describe(file), m_shell.Describe(arguments),
                        m_shell.Describe(directory), m_shell.Describe(operation), m_shell.Describe(show));
        }

        HRESULT WINAPI get_Application(IDispatch**) override { return Unexpected(); }
        HRESULT WINAPI get_Parent(IDispatch**) override { return Unexpected(); }
        HRESULT WINAPI NameSpace(VARIANT, Folder**) override { return Unexpected(); }
        HRESULT WINAPI BrowseForFolder(LONG, BSTR, LONG, VARIANT, Folder**) override { return Unexpected(); }
        HRESULT WINAPI Windows(IDispatch**) override { return Unexpected(); }
        HRESULT WINAPI Open(VARIANT) override { return Unexpected(); }
        HRESULT WINAPI Explore(VARIANT) override { return Unexpected(); }
        HRESULT WINAPI MinimizeAll() override { return Unexpected(); }
        HRESULT WINAPI UndoMinimizeALL() override { return Unexpected(); }
        HRESULT WINAPI FileRun() override { return Unexpected(); }
        HRESULT WINAPI CascadeWindows() override { return Unexpected(); }
        HRESULT WINAPI TileVertically() override { return Unexpected(); }
        HRESULT WINAPI TileHorizontally() override { return Unexpected(); }
        HRESULT WINAPI ShutdownWindows() override { return Unexpected(); }
        HRESULT WINAPI Suspend() override { return Unexpected(); }
        HRESULT WINAPI EjectPC() override { return Unexpected(); }
        HRESULT WINAPI SetTime() override { return Unexpected(); }
        HRESULT WINAPI TrayProperties() override { return Unexpected(); }
        HRESULT WINAPI Help() override { return Unexpected(); }
        HRESULT WINAPI FindFiles() override { return Unexpected(); }
        HRESULT WINAPI FindComputer() override { return Unexpected(); }
        HRESULT WINAPI RefreshMenu() override { return Unexpected(); }
        HRESULT WINAPI ControlPanelItem(BSTR) override { return Unexpected(); }
        HRESULT WINAPI IsRestricted(BSTR, BSTR, LONG*) override { return Unexpected(); }
        HRESULT WINAPI FindPrinter(BSTR, BSTR, BSTR) override { return Unexpected(); }
        HRESULT WINAPI GetSystemInformation(BSTR, VARIANT*) override { return Unexpected(); }
        HRESULT WINAPI ServiceStart(BSTR, VARIANT, VARIANT*) override { return Unexpected(); }
        HRESULT WINAPI ServiceStop(BSTR, VARIANT, VARIANT*) override { return Unexpected(); }
        HRESULT WINAPI IsServiceRunning(BSTR, VARIANT*) override { return Unexpected(); }
        HRESULT WINAPI CanStartStopService(BSTR, VARIANT*) override { return Unexpected(); }
        HRESULT WINAPI ShowBrowserBar(BSTR, VARIANT, VARIANT*) override { return Unexpected(); }
    };

    FakeDesktopShell& owner;
    Shell dispatch{owner};
    Dispatch application{owner, &dispatch};
    FolderView folderView{owner, &application};
    Dispatch background{owner, &folderView};
    View view{owner, &background};
    View activeView{owner, &view};
    Browser browser{owner, &activeView};
    Services services{owner, &browser};
    Dispatch desktop{owner, &services};
    Windows windows{owner, &desktop};
};

FakeDesktopShell::FakeDesktopShell(Journal& journal, const FakeStrings& strings)
    : m_journal(journal),
      m_strings(strings),
      m_chain(std::make_unique<Chain>(*this))
{}

FakeDesktopShell::~FakeDesktopShell() = default;

std::string FakeDesktopShell::Describe(BSTR text) const
{
    EXPECT_TRUE(m_strings.Has(text)) << "a text that was not made for COM";
    return m_journal.Describe(text);
}

std::string FakeDesktopShell::Describe(const VARIANT& value) const
{
    switch (value.vt)
    {
    case VT_EMPTY:
        return "empty";
    case VT_INT:
        return "int " + std::to_string(value.intVal);
    case VT_BSTR:
        return Describe(value.bstrVal);
    default:
        return "a value of type " + std::to_string(value.vt);
    }
}

HRESULT FakeDesktopShell::Create(IUnknown* outer, DWORD context, REFIID id, void** result)
{
    *result = nullptr;
    const auto outcome =
        static_cast<HRESULT>(m_journal.Add("CoCreateInstance", "ShellWindows", outer, Mask(context), NameOf(id)));
    if (SUCCEEDED(outcome))
    {
        m_chain->windows.AddRef();
        *result = static_cast<IShellWindows*>(&m_chain->windows);
    }
    return outcome;
}

} // namespace Testing
