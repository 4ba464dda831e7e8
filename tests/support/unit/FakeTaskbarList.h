#pragma once

#include "support/unit/Journal.h"

#include <windows.h>

#include <shobjidl.h>

#include <gtest/gtest.h>

namespace Testing
{

// The taskbar, which shows a progress and nothing else.
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

    HRESULT STDMETHODCALLTYPE HrInit() override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE AddTab(HWND) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE DeleteTab(HWND) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE ActivateTab(HWND) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE SetActiveAlt(HWND) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE MarkFullscreenWindow(HWND, BOOL) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE SetProgressState(HWND, TBPFLAG) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE RegisterTab(HWND, HWND) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE UnregisterTab(HWND) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE SetTabOrder(HWND, HWND) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE SetTabActive(HWND, HWND, DWORD) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE ThumbBarAddButtons(HWND, UINT, LPTHUMBBUTTON) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE ThumbBarUpdateButtons(HWND, UINT, LPTHUMBBUTTON) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE ThumbBarSetImageList(HWND, HIMAGELIST) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE SetOverlayIcon(HWND, HICON, LPCWSTR) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE SetThumbnailTooltip(HWND, LPCWSTR) override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE SetThumbnailClip(HWND, RECT*) override { return Unexpected(); }

private:
    static HRESULT Unexpected()
    {
        ADD_FAILURE() << "the taskbar is asked for more than the progress";
        return E_NOTIMPL;
    }

    Journal& m_journal;
    ULONG m_references = 0;
};

} // namespace Testing
