#pragma once

#include "support/Journal.h"

#include <windows.h>

#include <shobjidl.h>

namespace Testing
{

// The taskbar. Its calls go to the journal; all but that for the progress are calls that nobody should make.
class FakeTaskbarList final : public ITaskbarList3
{
public:
    explicit FakeTaskbarList(Journal& journal) : m_journal(journal) {}

    ULONG References() const { return m_references; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        m_journal.Add("ITaskbarList3::Release");
        return --m_references;
    }

    HRESULT STDMETHODCALLTYPE SetProgressValue(HWND window, ULONGLONG completed, ULONGLONG total) override
    {
        m_journal.Add("ITaskbarList3::SetProgressValue", window, completed, total);
        return E_FAIL; // which does not matter
    }

    HRESULT STDMETHODCALLTYPE HrInit() override { return Unexpected("HrInit"); }
    HRESULT STDMETHODCALLTYPE AddTab(HWND) override { return Unexpected("AddTab"); }
    HRESULT STDMETHODCALLTYPE DeleteTab(HWND) override { return Unexpected("DeleteTab"); }
    HRESULT STDMETHODCALLTYPE ActivateTab(HWND) override { return Unexpected("ActivateTab"); }
    HRESULT STDMETHODCALLTYPE SetActiveAlt(HWND) override { return Unexpected("SetActiveAlt"); }
    HRESULT STDMETHODCALLTYPE MarkFullscreenWindow(HWND, BOOL) override { return Unexpected("MarkFullscreenWindow"); }
    HRESULT STDMETHODCALLTYPE SetProgressState(HWND, TBPFLAG) override { return Unexpected("SetProgressState"); }
    HRESULT STDMETHODCALLTYPE RegisterTab(HWND, HWND) override { return Unexpected("RegisterTab"); }
    HRESULT STDMETHODCALLTYPE UnregisterTab(HWND) override { return Unexpected("UnregisterTab"); }
    HRESULT STDMETHODCALLTYPE SetTabOrder(HWND, HWND) override { return Unexpected("SetTabOrder"); }
    HRESULT STDMETHODCALLTYPE SetTabActive(HWND, HWND, DWORD) override { return Unexpected("SetTabActive"); }
    HRESULT STDMETHODCALLTYPE ThumbBarAddButtons(HWND, UINT, LPTHUMBBUTTON) override
    {
        return Unexpected("ThumbBarAddButtons");
    }
    HRESULT STDMETHODCALLTYPE ThumbBarUpdateButtons(HWND, UINT, LPTHUMBBUTTON) override
    {
        return Unexpected("ThumbBarUpdateButtons");
    }
    HRESULT STDMETHODCALLTYPE ThumbBarSetImageList(HWND, HIMAGELIST) override
    {
        return Unexpected("ThumbBarSetImageList");
    }
    HRESULT STDMETHODCALLTYPE SetOverlayIcon(HWND, HICON, LPCWSTR) override { return Unexpected("SetOverlayIcon"); }
    HRESULT STDMETHODCALLTYPE SetThumbnailTooltip(HWND, LPCWSTR) override { return Unexpected("SetThumbnailTooltip"); }
    HRESULT STDMETHODCALLTYPE SetThumbnailClip(HWND, RECT*) override { return Unexpected("SetThumbnailClip"); }

private:
    HRESULT Unexpected(const std::string& method)
    {
        m_journal.Add("ITaskbarList3::" + method);
        return E_NOTIMPL;
    }

    Journal& m_journal;
    ULONG m_references = 0;
};

} // namespace Testing
