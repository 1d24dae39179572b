// The pane control as the task pane factory creates it by its ProgID. On
// creation it takes what EnsureTaskPane left in the pane context (the host's
// application, the window, the pane number, page and mode), exactly once,
// so that the next pane doesn't inherit this one's page. Its window and the
// web view come up when the host activates it in place.
#include <windows.h>

#include "foundation/text.h"
#include "foundation/trace.h"
#include "pane/ppt_pane.h"
#include "shell/com_object_win.h"
#include "shell/connect_win.h"
#include "shell/office_win.h"

namespace qb::shell {

namespace {

class CPptPane : public office::IQuillbrookPptPane {
  public:
    virtual ~CPptPane() = default;

    static const com::InterfaceEntry* Interfaces() {
        static const com::InterfaceEntry table[] = {
            com::Entry<CPptPane, office::IQuillbrookPptPane>(office::IID_IQuillbrookPptPane),
            com::Entry<CPptPane, office::IQuillbrookPptPane>(IID_IDispatch),
            {nullptr, nullptr},
        };
        return table;
    }

    HRESULT FinalConstruct() {
        try {
            TakePaneContext(setup_);
            Trace(u"CPptPane FinalConstruct pane=" + DecimalText(setup_.paneNumber) + u" page=" +
                  setup_.page + u" mode=" + setup_.mode + u"\r\n");
            return S_OK;
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }

    // The interface has no members; its dispatch face describes nothing.
    STDMETHODIMP GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 0;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return DISP_E_UNKNOWNNAME;
    }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                        UINT*) override {
        return DISP_E_MEMBERNOTFOUND;
    }

  private:
    PaneSetup setup_;
};

}  // namespace

HRESULT CreatePane(REFIID iid, void** out) {
    return com::ComObject<CPptPane>::Create(iid, out);
}

}  // namespace qb::shell
