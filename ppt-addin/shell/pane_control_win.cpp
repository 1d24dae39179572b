// The pane control as the task pane factory creates it by its ProgID and
// the host activates it in place. On creation it takes what EnsureTaskPane
// left in the pane context (the host's application, the window, the pane
// number, page and mode), exactly once, so that the next pane doesn't
// inherit this one's page. Its window and the browser view come up when
// the host activates it; a host that only hands a parent window to DoVerb
// gets the window all the same.
//
// The control interfaces are the small set a container needs to activate a
// windowed control; anything a task pane never asks for answers E_NOTIMPL.
#include <windows.h>

#include <ocidl.h>
#include <olectl.h>

#include <memory>

#include "foundation/com_win.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "pane/ppt_pane.h"
#include "pane/web_view_win.h"
#include "shell/com_object_win.h"
#include "shell/connect.h"
#include "shell/connect_win.h"
#include "shell/host_detect.h"
#include "shell/office_win.h"

namespace qb::shell {

namespace {

// A new control's extent, in HIMETRIC: about two inches either way.
constexpr LONG kStartExtent = 5080;

std::u16string HwndText(HWND hwnd) {
    return PointerText(reinterpret_cast<std::intptr_t>(hwnd));
}

class CPptPane : public office::IQuillbrookPptPane,
                 public IOleObject,
                 public IOleInPlaceObjectWindowless,
                 public IOleInPlaceActiveObject,
                 public IOleControl,
                 public IViewObjectEx,
                 public IDataObject,
                 public IPersistStreamInit {
  public:
    virtual ~CPptPane() {
        if (pane_) pane_->FinalRelease();
        // The window's end shuts the pane down; the pane goes after it.
        if (view_ && view_->Window().IsValid()) ::DestroyWindow(view_->Window().Handle());
        pane_.reset();
        view_.reset();
    }

    static const com::InterfaceEntry* Interfaces() {
        using com::Entry;
        static const com::InterfaceEntry table[] = {
            Entry<CPptPane, office::IQuillbrookPptPane>(office::IID_IQuillbrookPptPane),
            Entry<CPptPane, office::IQuillbrookPptPane>(IID_IDispatch),
            Entry<CPptPane, IOleObject>(IID_IOleObject),
            Entry<CPptPane, IOleInPlaceObjectWindowless>(IID_IOleWindow),
            Entry<CPptPane, IOleInPlaceObjectWindowless>(IID_IOleInPlaceObject),
            Entry<CPptPane, IOleInPlaceObjectWindowless>(IID_IOleInPlaceObjectWindowless),
            Entry<CPptPane, IOleInPlaceActiveObject>(IID_IOleInPlaceActiveObject),
            Entry<CPptPane, IOleControl>(IID_IOleControl),
            Entry<CPptPane, IViewObjectEx>(IID_IViewObject),
            Entry<CPptPane, IViewObjectEx>(IID_IViewObject2),
            Entry<CPptPane, IViewObjectEx>(IID_IViewObjectEx),
            Entry<CPptPane, IDataObject>(IID_IDataObject),
            Entry<CPptPane, IPersistStreamInit>(IID_IPersist),
            Entry<CPptPane, IPersistStreamInit>(IID_IPersistStreamInit),
            {nullptr, nullptr},
        };
        return table;
    }

    HRESULT FinalConstruct() {
        try {
            PaneSetup setup;
            TakePaneContext(setup);
            Trace(u"CPptPane FinalConstruct pane=" + DecimalText(setup.paneNumber) + u" page=" +
                  setup.page + u" mode=" + setup.mode + u"\r\n");
            setup.wpsHost = IsWpsHost();
            setup.services.tickPaneWidths = [] { TickActivePaneWidths(); };
            // A run holds the control: a worker that won't stop keeps it alive.
            setup.services.addRef = [this] { static_cast<IOleObject*>(this)->AddRef(); };
            setup.services.release = [this] { static_cast<IOleObject*>(this)->Release(); };
            view_ = std::make_unique<WinPaneView>();
            pane_ = std::make_unique<PptPane>(*view_, std::move(setup));
            view_->Attach(pane_.get());
            return S_OK;
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }

    // --- IQuillbrookPptPane: no members; its dispatch face describes nothing.
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

    // --- IOleObject ---------------------------------------------------------
    STDMETHODIMP SetClientSite(IOleClientSite* site) override {
        site_ = site;
        if (!site) inPlaceSite_.Reset();
        return S_OK;
    }
    STDMETHODIMP GetClientSite(IOleClientSite** site) override {
        if (!site) return E_POINTER;
        *site = site_.Get();
        if (*site) (*site)->AddRef();
        return S_OK;
    }
    STDMETHODIMP SetHostNames(LPCOLESTR, LPCOLESTR) override { return S_OK; }
    STDMETHODIMP Close(DWORD) override {
        try {
            (void)InPlaceDeactivate();
            if (adviseHolder_) adviseHolder_->SendOnClose();
            return S_OK;
        } catch (...) {
            return E_UNEXPECTED;
        }
    }
    STDMETHODIMP SetMoniker(DWORD, IMoniker*) override { return E_NOTIMPL; }
    STDMETHODIMP GetMoniker(DWORD, DWORD, IMoniker**) override { return E_NOTIMPL; }
    STDMETHODIMP InitFromData(IDataObject*, BOOL, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP GetClipboardData(DWORD, IDataObject**) override { return E_NOTIMPL; }
    STDMETHODIMP DoVerb(LONG verb, LPMSG, IOleClientSite*, LONG, HWND parent, LPCRECT) override {
        try {
            Trace(u"CPptPane DoVerb verb=" + DecimalText(verb) + u" parent=0x" + HwndText(parent) +
                  u" hwnd=0x" + HwndText(Hwnd()) + u"\r\n");
            if (parent) parent_ = parent;
            HRESULT hr = E_NOTIMPL;
            switch (verb) {
                case OLEIVERB_PRIMARY:
                case OLEIVERB_SHOW:
                case OLEIVERB_INPLACEACTIVATE:
                case OLEIVERB_UIACTIVATE:
                    hr = InPlaceActivate();
                    break;
                case OLEIVERB_HIDE:
                    if (Hwnd()) ::ShowWindow(Hwnd(), SW_HIDE);
                    hr = S_OK;
                    break;
                default:
                    break;
            }
            FallbackWindow();
            Trace(u"CPptPane DoVerb done hr=0x" + HexText(static_cast<std::uint32_t>(hr)) +
                  u" hwnd=0x" + HwndText(Hwnd()) + u"\r\n");
            return hr;
        } catch (...) {
            return E_UNEXPECTED;
        }
    }
    STDMETHODIMP EnumVerbs(IEnumOLEVERB**) override { return OLE_S_USEREG; }
    STDMETHODIMP Update() override { return S_OK; }
    STDMETHODIMP IsUpToDate() override { return S_OK; }
    STDMETHODIMP GetUserClassID(CLSID* clsid) override {
        if (!clsid) return E_POINTER;
        *clsid = office::CLSID_Pane;
        return S_OK;
    }
    STDMETHODIMP GetUserType(DWORD, LPOLESTR*) override { return OLE_S_USEREG; }
    STDMETHODIMP SetExtent(DWORD aspect, SIZEL* size) override {
        if (!size) return E_POINTER;
        if (aspect != DVASPECT_CONTENT) return DV_E_DVASPECT;
        extent_ = *size;
        return S_OK;
    }
    STDMETHODIMP GetExtent(DWORD aspect, SIZEL* size) override {
        if (!size) return E_POINTER;
        if (aspect != DVASPECT_CONTENT) return DV_E_DVASPECT;
        *size = extent_;
        return S_OK;
    }
    STDMETHODIMP Advise(IAdviseSink* sink, DWORD* connection) override {
        if (!adviseHolder_ && FAILED(::CreateOleAdviseHolder(adviseHolder_.GetAddressOf()))) {
            return E_OUTOFMEMORY;
        }
        return adviseHolder_->Advise(sink, connection);
    }
    STDMETHODIMP Unadvise(DWORD connection) override {
        return adviseHolder_ ? adviseHolder_->Unadvise(connection) : OLE_E_NOCONNECTION;
    }
    STDMETHODIMP EnumAdvise(IEnumSTATDATA** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        return adviseHolder_ ? adviseHolder_->EnumAdvise(out) : E_FAIL;
    }
    STDMETHODIMP GetMiscStatus(DWORD, DWORD* status) override {
        if (!status) return E_POINTER;
        *status = OLEMISC_RECOMPOSEONRESIZE | OLEMISC_CANTLINKINSIDE | OLEMISC_INSIDEOUT |
                  OLEMISC_ACTIVATEWHENVISIBLE | OLEMISC_SETCLIENTSITEFIRST;
        return S_OK;
    }
    STDMETHODIMP SetColorScheme(LOGPALETTE*) override { return E_NOTIMPL; }

    // --- IOleWindow, IOleInPlaceObject(Windowless) --------------------------
    STDMETHODIMP GetWindow(HWND* hwnd) override {
        if (!hwnd) return E_POINTER;
        *hwnd = Hwnd();
        return *hwnd ? S_OK : E_FAIL;
    }
    STDMETHODIMP ContextSensitiveHelp(BOOL) override { return E_NOTIMPL; }
    STDMETHODIMP InPlaceDeactivate() override {
        if (!inPlaceActive_) return S_OK;
        inPlaceActive_ = false;
        // Deactivated in place is closed: the window goes, and the pane
        // with it.
        if (Hwnd()) ::DestroyWindow(Hwnd());
        if (inPlaceSite_) (void)inPlaceSite_->OnInPlaceDeactivate();
        return S_OK;
    }
    STDMETHODIMP UIDeactivate() override { return S_OK; }
    STDMETHODIMP SetObjectRects(LPCRECT position, LPCRECT clip) override {
        try {
            FallbackWindow();
            if (!position) return E_POINTER;
            const HWND hwnd = Hwnd();
            if (hwnd) {
                RECT visible = *position;
                if (clip && ::IntersectRect(&visible, position, clip) &&
                    !::EqualRect(&visible, position)) {
                    ::OffsetRect(&visible, -position->left, -position->top);
                    ::SetWindowRgn(hwnd, ::CreateRectRgnIndirect(&visible), TRUE);
                } else {
                    ::SetWindowRgn(hwnd, nullptr, TRUE);
                }
                ::SetWindowPos(hwnd, nullptr, position->left, position->top,
                               position->right - position->left, position->bottom - position->top,
                               SWP_NOZORDER | SWP_NOACTIVATE);
            }
            view_->FitToWindow();
            return S_OK;
        } catch (...) {
            return E_UNEXPECTED;
        }
    }
    STDMETHODIMP ReactivateAndUndo() override { return E_NOTIMPL; }
    STDMETHODIMP OnWindowMessage(UINT, WPARAM, LPARAM, LRESULT*) override { return S_FALSE; }
    STDMETHODIMP GetDropTarget(IDropTarget**) override { return E_NOTIMPL; }

    // --- IOleInPlaceActiveObject ------------------------------------------
    STDMETHODIMP TranslateAccelerator(LPMSG) override { return S_FALSE; }
    STDMETHODIMP OnFrameWindowActivate(BOOL) override { return S_OK; }
    STDMETHODIMP OnDocWindowActivate(BOOL) override { return S_OK; }
    STDMETHODIMP ResizeBorder(LPCRECT, IOleInPlaceUIWindow*, BOOL) override { return S_OK; }
    STDMETHODIMP EnableModeless(BOOL) override { return S_OK; }

    // --- IOleControl ------------------------------------------------------
    STDMETHODIMP GetControlInfo(CONTROLINFO*) override { return E_NOTIMPL; }
    STDMETHODIMP OnMnemonic(MSG*) override { return E_NOTIMPL; }
    STDMETHODIMP OnAmbientPropertyChange(DISPID) override { return S_OK; }
    STDMETHODIMP FreezeEvents(BOOL) override { return S_OK; }

    // --- IViewObject, IViewObject2, IViewObjectEx ---------------------------
    // Drawn only while inactive: the window's own background.
    STDMETHODIMP Draw(DWORD, LONG, void*, DVTARGETDEVICE*, HDC, HDC dc, LPCRECTL bounds, LPCRECTL,
                      BOOL(STDMETHODCALLTYPE*)(ULONG_PTR), ULONG_PTR) override {
        if (!dc || !bounds) return E_INVALIDARG;
        const RECT area{bounds->left, bounds->top, bounds->right, bounds->bottom};
        ::FillRect(dc, &area, ::GetSysColorBrush(COLOR_WINDOW));
        return S_OK;
    }
    STDMETHODIMP GetColorSet(DWORD, LONG, void*, DVTARGETDEVICE*, HDC, LOGPALETTE**) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Freeze(DWORD, LONG, void*, DWORD*) override { return E_NOTIMPL; }
    STDMETHODIMP Unfreeze(DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP SetAdvise(DWORD aspects, DWORD flags, IAdviseSink* sink) override {
        viewSink_ = sink;
        viewAspects_ = aspects;
        viewFlags_ = flags;
        return S_OK;
    }
    STDMETHODIMP GetAdvise(DWORD* aspects, DWORD* flags, IAdviseSink** sink) override {
        if (aspects) *aspects = viewAspects_;
        if (flags) *flags = viewFlags_;
        if (sink) {
            *sink = viewSink_.Get();
            if (*sink) (*sink)->AddRef();
        }
        return S_OK;
    }
    STDMETHODIMP GetExtent(DWORD aspect, LONG, DVTARGETDEVICE*, LPSIZEL size) override {
        return GetExtent(aspect, size);
    }
    STDMETHODIMP GetRect(DWORD, LPRECTL) override { return E_NOTIMPL; }
    STDMETHODIMP GetViewStatus(DWORD* status) override {
        if (!status) return E_POINTER;
        *status = VIEWSTATUS_OPAQUE | VIEWSTATUS_SOLIDBKGND;
        return S_OK;
    }
    STDMETHODIMP QueryHitPoint(DWORD, LPCRECT bounds, POINT point, LONG, DWORD* hit) override {
        if (!bounds || !hit) return E_POINTER;
        *hit = ::PtInRect(bounds, point) ? HITRESULT_HIT : HITRESULT_OUTSIDE;
        return S_OK;
    }
    STDMETHODIMP QueryHitRect(DWORD, LPCRECT bounds, LPCRECT area, LONG, DWORD* hit) override {
        if (!bounds || !area || !hit) return E_POINTER;
        RECT common;
        *hit = ::IntersectRect(&common, bounds, area) ? HITRESULT_HIT : HITRESULT_OUTSIDE;
        return S_OK;
    }
    STDMETHODIMP GetNaturalExtent(DWORD, LONG, DVTARGETDEVICE*, HDC, DVEXTENTINFO*,
                                  LPSIZEL) override {
        return E_NOTIMPL;
    }

    // --- IDataObject: nothing to offer ------------------------------------
    STDMETHODIMP GetData(FORMATETC*, STGMEDIUM*) override { return E_NOTIMPL; }
    STDMETHODIMP GetDataHere(FORMATETC*, STGMEDIUM*) override { return E_NOTIMPL; }
    STDMETHODIMP QueryGetData(FORMATETC*) override { return E_NOTIMPL; }
    STDMETHODIMP GetCanonicalFormatEtc(FORMATETC*, FORMATETC*) override { return E_NOTIMPL; }
    STDMETHODIMP SetData(FORMATETC*, STGMEDIUM*, BOOL) override { return E_NOTIMPL; }
    STDMETHODIMP EnumFormatEtc(DWORD, IEnumFORMATETC**) override { return E_NOTIMPL; }
    STDMETHODIMP DAdvise(FORMATETC*, DWORD, IAdviseSink*, DWORD*) override {
        return OLE_E_ADVISENOTSUPPORTED;
    }
    STDMETHODIMP DUnadvise(DWORD) override { return OLE_E_ADVISENOTSUPPORTED; }
    STDMETHODIMP EnumDAdvise(IEnumSTATDATA**) override { return OLE_E_ADVISENOTSUPPORTED; }

    // --- IPersistStreamInit: the control keeps no state in its container --
    STDMETHODIMP GetClassID(CLSID* clsid) override {
        if (!clsid) return E_POINTER;
        *clsid = office::CLSID_Pane;
        return S_OK;
    }
    STDMETHODIMP IsDirty() override { return S_FALSE; }
    STDMETHODIMP Load(LPSTREAM) override { return S_OK; }
    STDMETHODIMP Save(LPSTREAM, BOOL) override { return S_OK; }
    STDMETHODIMP GetSizeMax(ULARGE_INTEGER* size) override {
        if (!size) return E_POINTER;
        size->QuadPart = 0;
        return S_OK;
    }
    STDMETHODIMP InitNew() override { return S_OK; }

  private:
    HWND Hwnd() const {
        return view_ && view_->Window().IsValid() ? view_->Window().Handle() : nullptr;
    }

    // Activation in the client site's window, at the place the site gives.
    HRESULT InPlaceActivate() {
        if (!site_) return S_OK;
        if (!inPlaceSite_ &&
            FAILED(site_->QueryInterface(IID_IOleInPlaceSite,
                                         reinterpret_cast<void**>(inPlaceSite_.GetAddressOf())))) {
            return E_FAIL;
        }
        if (!inPlaceActive_) {
            if (inPlaceSite_->CanInPlaceActivate() != S_OK) return E_FAIL;
            (void)inPlaceSite_->OnInPlaceActivate();
            inPlaceActive_ = true;
        }
        HWND siteWindow = nullptr;
        HRESULT hr = inPlaceSite_->GetWindow(&siteWindow);
        if (FAILED(hr)) return hr;
        ComPtr<IOleInPlaceFrame> frame;
        ComPtr<IOleInPlaceUIWindow> document;
        RECT position{}, clip{};
        OLEINPLACEFRAMEINFO frameInfo{};
        frameInfo.cb = sizeof frameInfo;
        hr = inPlaceSite_->GetWindowContext(frame.GetAddressOf(), document.GetAddressOf(),
                                            &position, &clip, &frameInfo);
        if (FAILED(hr)) return hr;
        if (pane_->ShuttingDown()) return E_UNEXPECTED;
        if (!Hwnd()) {
            if (!view_->Window().Create(siteWindow, position)) return E_FAIL;
        } else {
            ::SetParent(Hwnd(), siteWindow);
            (void)SetObjectRects(&position, &clip);
        }
        ::ShowWindow(Hwnd(), SW_SHOW);
        (void)site_->ShowObject();
        return S_OK;
    }

    // For a host that hands DoVerb a parent window but never activates the
    // control in a site of its own.
    void FallbackWindow() {
        if (!Hwnd() && parent_ && ::IsWindow(parent_) && !pane_->ShuttingDown()) {
            Trace(u"CPptPane fallback create window\r\n");
            RECT area{};
            ::GetClientRect(parent_, &area);
            if (view_->Window().Create(parent_, area)) {
                Trace(u"CPptPane fallback create OK hwnd=0x" + HwndText(Hwnd()) + u"\r\n");
                ::ShowWindow(Hwnd(), SW_SHOW);
            }
        }
        if (Hwnd()) view_->InitWebView();
    }

    std::unique_ptr<WinPaneView> view_;
    std::unique_ptr<PptPane> pane_;
    ComPtr<IOleClientSite> site_;
    ComPtr<IOleInPlaceSite> inPlaceSite_;
    ComPtr<IOleAdviseHolder> adviseHolder_;
    ComPtr<IAdviseSink> viewSink_;
    DWORD viewAspects_ = 0, viewFlags_ = 0;
    SIZEL extent_{kStartExtent, kStartExtent};
    HWND parent_ = nullptr;
    bool inPlaceActive_ = false;
};

}  // namespace

HRESULT CreatePane(REFIID iid, void** out) {
    return com::ComObject<CPptPane>::Create(iid, out);
}

}  // namespace qb::shell
