#include "shell/connect_win.h"

#include <windows.h>

#include <oleauto.h>
#include <shellapi.h>

#include <memory>

#include "foundation/com_win.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "foundation/wide_win.h"
#include "foundation/window_win.h"
#include "pane/panel_text.h"
#include "shell/com_object_win.h"
#include "shell/connect.h"
#include "shell/host_detect.h"
#include "shell/office_win.h"
#include "shell/ribbon.h"
#include "shell/ui_lang_dialog_win.h"
#include "slides/automation.h"
#include "slides/dispatch_win.h"

namespace qb::shell {

namespace {

using host::DispatchObject;
using host::HostRef;

constexpr int kRibbonXmlId = 201;

// No exception may leave a call from the host: on i686 it would end the
// host's process.
template <class F>
HRESULT Guarded(const char16_t* where, F&& body) noexcept {
    try {
        return body();
    } catch (...) {
        Trace(std::u16string(u"PPT exception in ") + where + u"\r\n");
        return E_UNEXPECTED;
    }
}

class WinShellPlatform final : public ShellPlatform {
  public:
    void MessageBox(const std::u16string& text, const std::u16string& title,
                    std::uint32_t flags) override {
        ::MessageBoxW(nullptr, AsWide(text), AsWide(title), flags);
    }
    std::intptr_t OpenUrl(const std::u16string& url) override {
        return reinterpret_cast<std::intptr_t>(
            ::ShellExecuteW(nullptr, L"open", AsWide(url), nullptr, nullptr, SW_SHOWNORMAL));
    }
    bool ShowUiLangDialog(std::intptr_t owner, std::u16string& language) override {
        return ShowUiLangDialogWindow(reinterpret_cast<HWND>(owner), language);
    }
    std::intptr_t RootWindow(std::intptr_t hwnd) override {
        return reinterpret_cast<std::intptr_t>(
            ::GetAncestor(reinterpret_cast<HWND>(hwnd), GA_ROOT));
    }
};

class WinTaskPaneFactory final : public TaskPaneFactory {
  public:
    explicit WinTaskPaneFactory(office::ICTPFactory* factory) : factory_(factory) {}
    HRESULT CreateCtp(const std::u16string& progId, const std::u16string& title,
                      const HostRef& window, HostRef& pane) override {
        ScopedBstr id(progId), caption(title);
        VARIANT parent;
        ::VariantInit(&parent);
        if (auto* object = dynamic_cast<DispatchObject*>(window.get())) {
            parent.vt = VT_DISPATCH;
            parent.pdispVal = object->Dispatch();
        }
        IDispatch* created = nullptr;
        const HRESULT hr = factory_->CreateCTP(id.Get(), caption.Get(), parent, &created);
        if (SUCCEEDED(hr) && created) {
            pane = DispatchObject::Wrap(created);
            created->Release();
        } else if (created) {
            created->Release();
        }
        return hr;
    }

  private:
    ComPtr<office::ICTPFactory> factory_;
};

// The IDispatch face of the task pane consumer is a stub, as the host only
// calls its one method through the vtable.
class CTPConsumerBase : public office::ICustomTaskPaneConsumer {
  public:
    STDMETHODIMP GetTypeInfoCount(UINT* count) final {
        if (count) *count = 0;
        return E_NOTIMPL;
    }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) final { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) final { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                        UINT*) final {
        return E_NOTIMPL;
    }
};

// The three dual faces share one GetIDsOfNames and one Invoke.
class RibbonDispatch : public office::_IDTExtensibility2,
                       public office::IRibbonExtensibility,
                       public office::IRibbonCallback {
  public:
    STDMETHODIMP GetTypeInfoCount(UINT* count) final {
        if (!count) return E_POINTER;
        *count = TypeInfo() ? 1 : 0;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo** info) final {
        if (!info) return E_POINTER;
        *info = nullptr;
        if (index != 0) return DISP_E_BADINDEX;
        ITypeInfo* type = TypeInfo();
        if (!type) return E_NOTIMPL;
        type->AddRef();
        *info = type;
        return S_OK;
    }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) final {
        return Guarded(u"GetIDsOfNames", [&] { return IdsOfNames(names, count, ids); });
    }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                        EXCEPINFO* exception, UINT* argError) final {
        return Guarded(u"Invoke",
                       [&] { return DoInvoke(id, flags, params, result, exception, argError); });
    }

  protected:
    virtual HRESULT IdsOfNames(LPOLESTR* names, UINT count, DISPID* ids) = 0;
    virtual HRESULT DoInvoke(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result,
                             EXCEPINFO* exception, UINT* argError) = 0;

    // The callback interface's description from the module's type library,
    // loaded once; null when the library can't be read.
    static ITypeInfo* TypeInfo() {
        static ITypeInfo* const info = [] {
            ITypeLib* library = nullptr;
            ITypeInfo* found = nullptr;
            if (SUCCEEDED(::LoadTypeLib(AsWide(ModulePath()), &library))) {
                (void)library->GetTypeInfoOfGuid(office::IID_IRibbonCallback, &found);
                library->Release();
            }
            return found;
        }();
        return info;
    }
};

class CConnect : public RibbonDispatch, public CTPConsumerBase, public Connect {
  public:
    CConnect() : Connect(platform_) {}
    virtual ~CConnect() = default;

    static const com::InterfaceEntry* Interfaces() {
        static const com::InterfaceEntry table[] = {
            com::Entry<CConnect, office::IRibbonCallback>(IID_IDispatch),
            com::Entry<CConnect, office::_IDTExtensibility2>(office::IID_IDTExtensibility2),
            com::Entry<CConnect, office::IRibbonExtensibility>(office::IID_IRibbonExtensibility),
            com::Entry<CConnect, office::IRibbonCallback>(office::IID_IRibbonCallback),
            com::Entry<CConnect, CTPConsumerBase>(office::IID_ICustomTaskPaneConsumer),
            {nullptr, nullptr},
        };
        return table;
    }
    HRESULT FinalConstruct() { return S_OK; }

    // --- _IDTExtensibility2 ---------------------------------------------------
    STDMETHODIMP OnConnection(IDispatch* application, office::ext_ConnectMode, IDispatch*,
                              SAFEARRAY**) override {
        (void)Guarded(u"OnConnection", [&] {
            Connect::OnConnection(DispatchObject::Wrap(application));
            return S_OK;
        });
        return S_OK;
    }
    STDMETHODIMP OnDisconnection(office::ext_DisconnectMode, SAFEARRAY**) override {
        (void)Guarded(u"OnDisconnection", [&] {
            Connect::OnDisconnection();
            return S_OK;
        });
        return S_OK;
    }
    STDMETHODIMP OnAddInsUpdate(SAFEARRAY**) override { return S_OK; }
    STDMETHODIMP OnStartupComplete(SAFEARRAY**) override { return S_OK; }
    STDMETHODIMP OnBeginShutdown(SAFEARRAY**) override {
        (void)Guarded(u"OnBeginShutdown", [&] {
            Connect::OnBeginShutdown();
            return S_OK;
        });
        return S_OK;
    }

    // --- IRibbonExtensibility ---------------------------------------------------
    STDMETHODIMP GetCustomUI(BSTR, BSTR* xml) override {
        return Guarded(u"GetCustomUI", [&]() -> HRESULT {
            if (!xml) return E_POINTER;
            *xml = nullptr;
            const void* data = nullptr;
            DWORD size = 0;
            if (!LoadModuleResource(L"XML", kRibbonXmlId, data, size)) return E_FAIL;
            const std::u16string text = ReplaceImageMso(
                Utf8ToUtf16(std::string_view(static_cast<const char*>(data), size)));
            const auto chars = static_cast<unsigned>(text.size());
            *xml = ::SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text.data()), chars);
            if (!*xml) {
                Trace(u"PPT GetCustomUI failed (SysAllocString) chars=" + DecimalText(chars) +
                      u"\r\n");
                return E_OUTOFMEMORY;
            }
            const bool wpp = EqualsIgnoringCase(MainModuleFileName(), u"wpp.exe");
            Trace(u"PPT GetCustomUI OK chars=" + DecimalText(chars) + u" ptr=" +
                  DecimalText(sizeof(void*)) + u" wpp=" + (wpp ? u"1" : u"0") + u"\r\n");
            return S_OK;
        });
    }

    // --- ICustomTaskPaneConsumer ------------------------------------------------
    STDMETHODIMP CTPFactoryAvailable(office::ICTPFactory* factory) override {
        return Guarded(u"CTPFactoryAvailable", [&] {
            Connect::CTPFactoryAvailable(factory ? std::make_shared<WinTaskPaneFactory>(factory)
                                                 : nullptr);
            return S_OK;
        });
    }

    // --- IRibbonCallback, for callers that bind to the interface -----------------
    STDMETHODIMP TranslateFullDocClicked(IDispatch* control) override {
        return Command(kDispTranslateFullDoc, control);
    }
    STDMETHODIMP TranslateCurrentSlideClicked(IDispatch* control) override {
        return Command(kDispTranslateCurrentSlide, control);
    }
    STDMETHODIMP ShowPaneClicked(IDispatch* control) override {
        return Command(kDispShowPane, control);
    }
    STDMETHODIMP GlossaryClicked(IDispatch* control) override {
        return Command(kDispGlossary, control);
    }
    STDMETHODIMP InstructionClicked(IDispatch* control) override {
        return Command(kDispInstruction, control);
    }
    STDMETHODIMP AccountClicked(IDispatch* control) override {
        return Command(kDispAccount, control);
    }
    STDMETHODIMP SupportClicked(IDispatch* control) override {
        return Command(kDispSupport, control);
    }
    STDMETHODIMP GetImage(IDispatch* control, VARIANT* image) override {
        return Guarded(u"GetImage", [&] { return GetImageInto(control, image); });
    }
    STDMETHODIMP TranslateSelectionClicked(IDispatch* control) override {
        return Command(kDispTranslateSelection, control);
    }

  protected:
    HRESULT IdsOfNames(LPOLESTR* names, UINT count, DISPID* ids) override {
        if (!names || !ids) return E_INVALIDARG;
        bool unknown = false;
        for (UINT i = 0; i < count; ++i) {
            const std::u16string name = FromWide(names[i]);
            const std::int32_t id = RibbonDispidOfName(name);
            if (id != 0) {
                ids[i] = id;
                Trace(u"PPT GetIDsOfNames " + name + u" -> " + DecimalText(id) + u"\r\n");
                continue;
            }
            ids[i] = DISPID_UNKNOWN;
            ITypeInfo* type = TypeInfo();
            if (!type || FAILED(type->GetIDsOfNames(&names[i], 1, &ids[i]))) unknown = true;
        }
        return unknown ? DISP_E_UNKNOWNNAME : S_OK;
    }

    HRESULT DoInvoke(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result,
                     EXCEPINFO* exception, UINT* argError) override {
        if (id == kDispGetImage) return InvokeGetImage(params, result);
        if (id >= kDispTranslateFullDoc && id <= kDispPdfTranslate) {
            Trace(u"PPT Invoke ribbon dispid=" + DecimalText(id) + u"\r\n");
            (void)Connect::OnRibbonCommand(id, ControlArgument(params, false));
            return S_OK;
        }
        if (id >= kDispOnRibbonLoad && id <= kDispSettings) {
            const HostRef control = ControlArgument(params, true);
            switch (id) {
                case kDispOnRibbonLoad:
                    Connect::OnRibbonLoad(control);
                    return S_OK;
                case kDispGetLabel:
                case kDispGetScreentip: {
                    const std::u16string text =
                        id == kDispGetLabel ? GetLabel(control) : GetScreentip(control);
                    if (result) {
                        ::VariantInit(result);
                        result->vt = VT_BSTR;
                        result->bstrVal = ScopedBstr(text).Release();
                    }
                    return S_OK;
                }
                default:
                    (void)Connect::OnRibbonCommand(id, control);
                    return S_OK;
            }
        }
        ITypeInfo* type = TypeInfo();
        if (!type) return DISP_E_MEMBERNOTFOUND;
        return type->Invoke(static_cast<office::IRibbonCallback*>(this), id, flags, params, result,
                            exception, argError);
    }

  private:
    HRESULT Command(std::int32_t dispid, IDispatch* control) {
        return Guarded(u"ribbon command", [&] {
            (void)Connect::OnRibbonCommand(dispid, DispatchObject::Wrap(control));
            return S_OK;
        });
    }

    // The first dispatch among at most four arguments; by reference too
    // when `byRef`.
    static HostRef ControlArgument(const DISPPARAMS* params, bool byRef) {
        IDispatch* found = FirstDispatch(params, byRef);
        return found ? DispatchObject::Wrap(found) : nullptr;
    }
    static IDispatch* FirstDispatch(const DISPPARAMS* params, bool byRef) {
        if (!params || !params->rgvarg) return nullptr;
        const UINT n = params->cArgs < 4 ? params->cArgs : 4;
        for (UINT i = 0; i < n; ++i) {
            const VARIANT& arg = params->rgvarg[i];
            if (arg.vt == VT_DISPATCH) return arg.pdispVal;
            if (byRef && arg.vt == (VT_BYREF | VT_DISPATCH) && arg.ppdispVal) {
                return *arg.ppdispVal;
            }
        }
        return nullptr;
    }

    HRESULT InvokeGetImage(DISPPARAMS* params, VARIANT* result) {
        std::u16string line =
            u"PPT Invoke GetImage cArgs=" + DecimalText(params ? params->cArgs : 0);
        const UINT n = params && params->rgvarg ? (params->cArgs < 4 ? params->cArgs : 4) : 0;
        for (UINT i = 0; i < n; ++i) {
            line += u" vt" + DecimalText(i) + u"=" + DecimalText(params->rgvarg[i].vt);
        }
        Trace(line + u"\r\n");
        ScopedVariant image;
        const HRESULT hr = GetImageInto(FirstDispatch(params, false), image.Get());
        if (FAILED(hr)) return hr;
        bool delivered = false;
        if (result) {
            ::VariantInit(result);
            (void)::VariantCopy(result, image.Get());
            delivered = true;
        }
        for (UINT i = 0; i < n; ++i) {
            VARIANT& arg = params->rgvarg[i];
            if (arg.vt == (VT_BYREF | VT_VARIANT) && arg.pvarVal) {
                (void)::VariantClear(arg.pvarVal);
                (void)::VariantCopy(arg.pvarVal, image.Get());
                delivered = true;
            } else if (arg.vt == (VT_BYREF | VT_DISPATCH) && arg.ppdispVal) {
                if (image.Get()->vt == VT_DISPATCH) {
                    if (*arg.ppdispVal) (*arg.ppdispVal)->Release();
                    *arg.ppdispVal = image.Get()->pdispVal;
                    if (*arg.ppdispVal) (*arg.ppdispVal)->AddRef();
                }
                delivered = true;
            }
        }
        if (!delivered) Trace(u"PPT GetImage result slot empty\r\n");
        return S_OK;
    }

    HRESULT GetImageInto(IDispatch* controlDispatch, VARIANT* image) {
        if (!image) return E_POINTER;
        ::VariantInit(image);
        const HostRef control = DispatchObject::Wrap(controlDispatch);
        std::int32_t icon = RibbonIconId(ReadHostText(control, u"Tag"), u"");
        if (icon == 0) icon = RibbonIconId(u"", ReadHostText(control, u"Id"));
        if (icon == 0) return S_OK;

        const bool wps = IsWpsHost();
        const int dpi = CurrentDpi();
        const RibbonPictureSize size = RibbonPictureSizeFor(dpi, wps);
        Trace(u"PPT GetImage dpi=" + DecimalText(dpi) + u" px=" + DecimalText(size.px) + u" wps=" +
              (wps ? u"1" : u"0") + u" ptr=" + DecimalText(sizeof(void*)) + u" icon=" +
              DecimalText(icon) + u" host=" + (wps ? u"wps" : u"ppt") + u"\r\n");
        IDispatch* picture = nullptr;
        if (!wps) picture = LoadPngPicture(RibbonPngId(icon, size.bucket));
        if (!picture) picture = LoadIconPicture(icon, size.bucket);
        if (!picture) {
            Trace(u"PPT GetImage iconId=" + DecimalText(icon) + u" px=" + DecimalText(size.bucket) +
                  u" hr=0x" + HexText(E_FAIL) + u" (ribbon continues)\r\n");
            return S_OK;
        }
        image->vt = VT_DISPATCH;
        image->pdispVal = picture;
        return S_OK;
    }

    // Application.Hwnd's DPI, else the active or foreground window's.
    int CurrentDpi() {
        // Without the application, the window the user is working in.
        if (!Application()) {
            HWND window = ::GetActiveWindow();
            return WindowDpi(window ? window : ::GetForegroundWindow());
        }
        HWND window = nullptr;
        host::Variant hwnd;
        std::int32_t value = 0;
        if (SUCCEEDED(host::DispGet(Application(), u"Hwnd", &hwnd)) && hwnd.ToInt32(value)) {
            window = reinterpret_cast<HWND>(static_cast<std::intptr_t>(value));
        }
        return WindowDpi(window);
    }

    WinShellPlatform platform_;
};

}  // namespace

HRESULT CreateConnect(REFIID iid, void** out) {
    return com::ComObject<CConnect>::Create(iid, out);
}

}  // namespace qb::shell
