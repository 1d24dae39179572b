// The browser view's bring-up and its events, on the host's thread.
#include "pane/web_view_win.h"

#include <atomic>
#include <functional>
#include <utility>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "foundation/wide_win.h"
#include "pane/ppt_pane.h"

namespace qb {
namespace {

template <class I>
const IID& IidOf();
template <>
const IID& IidOf<wv2::ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler>() {
    return wv2::IID_EnvironmentCompletedHandler;
}
template <>
const IID& IidOf<wv2::ICoreWebView2CreateCoreWebView2ControllerCompletedHandler>() {
    return wv2::IID_ControllerCompletedHandler;
}
template <>
const IID& IidOf<wv2::ICoreWebView2WebMessageReceivedEventHandler>() {
    return wv2::IID_WebMessageReceivedEventHandler;
}
template <>
const IID& IidOf<wv2::ICoreWebView2NavigationStartingEventHandler>() {
    return wv2::IID_NavigationStartingEventHandler;
}
template <>
const IID& IidOf<wv2::ICoreWebView2NavigationCompletedEventHandler>() {
    return wv2::IID_NavigationCompletedEventHandler;
}

// One completion or event handler: its Invoke calls a function, which
// never lets an exception into the browser.
template <class I, class A, class B>
class Handler final : public I {
  public:
    explicit Handler(std::function<HRESULT(A, B)> call) : call_(std::move(call)) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        if (::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IidOf<I>())) {
            *out = static_cast<I*>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs_); }
    STDMETHODIMP_(ULONG) Release() override {
        const long left = --refs_;
        if (left == 0) delete this;
        return static_cast<ULONG>(left);
    }
    STDMETHODIMP Invoke(A a, B b) override {
        try {
            return call_(a, b);
        } catch (...) {
            return E_UNEXPECTED;
        }
    }

  private:
    std::function<HRESULT(A, B)> call_;
    std::atomic<long> refs_{0};
};

template <class I, class A, class B>
ComPtr<I> MakeHandler(std::function<HRESULT(A, B)> call) {
    ComPtr<I> handler(new Handler<I, A, B>(std::move(call)));
    return handler;
}

std::u16string TakeCoTaskText(LPWSTR text) {
    if (!text) return {};
    std::u16string copy = FromWide(text);
    ::CoTaskMemFree(text);
    return copy;
}

std::u16string HrText(HRESULT hr) {
    return HexText(static_cast<std::uint32_t>(hr));
}

std::u16string HwndText(HWND hwnd) {
    return PointerText(reinterpret_cast<std::intptr_t>(hwnd));
}

// The loader beside the add-in, by its full path: a loader found on the
// search path could be anybody's. Loaded once, kept: the browser runs code
// of it for as long as any view lives.
HRESULT LoaderEntry(wv2::CreateEnvironmentWithOptionsFn& entry) {
    static wv2::CreateEnvironmentWithOptionsFn cached = nullptr;
    if (cached) {
        entry = cached;
        return S_OK;
    }
    const std::u16string path = platform::GetKnownFolder(platform::KnownFolder::Module) + u"\\" +
                                FromWide(wv2::kLoaderFileName);
    HMODULE module = ::LoadLibraryExW(AsWide(path), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!module) return HRESULT_FROM_WIN32(::GetLastError());
    cached = reinterpret_cast<wv2::CreateEnvironmentWithOptionsFn>(
        reinterpret_cast<void*>(::GetProcAddress(module, wv2::kCreateEnvironmentExport)));
    if (!cached) {
        ::FreeLibrary(module);
        return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
    }
    entry = cached;
    return S_OK;
}

}  // namespace

std::u16string WebViewUserDataFolder() {
    const std::u16string local = platform::GetKnownFolder(platform::KnownFolder::LocalAppData);
    if (local.empty()) return {};
    const std::u16string product = local + u"\\Quillbrook";
    const std::u16string folder = product + u"\\WebView2";
    // Either may exist already; the browser says so if the folder is unusable.
    ::CreateDirectoryW(AsWide(product), nullptr);
    ::CreateDirectoryW(AsWide(folder), nullptr);
    return folder;
}

WinPaneView::WinPaneView()
    : window_(PaneWindow::Events{
          [this] {
              if (pane_) pane_->OnWindowCreated();
              InitWebView();
          },
          [this](PaneTimer timer) {
              if (pane_) pane_->OnTimer(timer);
          },
          [this](int, int) { FitToWindow(); },
          [this] { OnWindowDestroyed(); },
      }),
      self_(std::make_shared<WinPaneView*>(this)) {}

WinPaneView::~WinPaneView() {
    self_.reset();
    view_.Reset();
    controller_.Reset();
    environment_.Reset();
}

bool WinPaneView::ShuttingDown() const {
    return !pane_ || pane_->ShuttingDown();
}

void WinPaneView::InitWebView() {
    if (viewStartBegun_ || !pane_) return;
    viewStartBegun_ = true;
    const HWND hwnd = window_.Handle();
    Trace(u"CPptPane InitWebView begin hwnd=0x" + HwndText(hwnd) + u"\r\n");
    const std::u16string folder = WebViewUserDataFolder();
    if (folder.empty()) {
        pane_->ReportWebViewFailure(u"userdata", E_FAIL);
        return;
    }
    std::weak_ptr<WinPaneView*> life = self_;
    auto handler = MakeHandler<wv2::ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
                               HRESULT, wv2::ICoreWebView2Environment*>(
        [life, hwnd](HRESULT hr, wv2::ICoreWebView2Environment* environment) {
            const auto self = life.lock();
            return self ? (*self)->OnEnvironment(hr, environment, hwnd) : S_OK;
        });
    wv2::CreateEnvironmentWithOptionsFn create = nullptr;
    HRESULT hr = LoaderEntry(create);
    if (SUCCEEDED(hr)) hr = create(nullptr, AsWide(folder), nullptr, handler.Get());
    if (FAILED(hr)) pane_->ReportWebViewFailure(u"create", hr);
}

HRESULT WinPaneView::OnEnvironment(HRESULT hr, wv2::ICoreWebView2Environment* environment,
                                   HWND window) {
    Trace(u"CPptPane env callback hr=0x" + HrText(hr) + u"\r\n");
    if (ShuttingDown()) return S_OK;
    if (FAILED(hr) || !environment) {
        pane_->ReportWebViewFailure(u"environment", hr);
        return S_OK;
    }
    environment_ = environment;
    std::weak_ptr<WinPaneView*> life = self_;
    auto handler = MakeHandler<wv2::ICoreWebView2CreateCoreWebView2ControllerCompletedHandler,
                               HRESULT, wv2::ICoreWebView2Controller*>(
        [life](HRESULT result, wv2::ICoreWebView2Controller* controller) {
            const auto self = life.lock();
            return self ? (*self)->OnController(result, controller) : S_OK;
        });
    // A failure here shows as the controller callback's own result.
    (void)environment_->CreateCoreWebView2Controller(window, handler.Get());
    return S_OK;
}

HRESULT WinPaneView::OnController(HRESULT hr, wv2::ICoreWebView2Controller* controller) {
    Trace(u"CPptPane controller callback hr=0x" + HrText(hr) + u"\r\n");
    if (FAILED(hr) || !controller) {
        if (pane_) pane_->ReportWebViewFailure(u"controller", hr);
        return S_OK;
    }
    if (ShuttingDown()) {
        // Too late to show anything: closed at once, never kept.
        (void)controller->Close();
        environment_.Reset();
        return S_OK;
    }
    controller_ = controller;
    (void)controller_->put_IsVisible(TRUE);
    ComPtr<wv2::ICoreWebView2> view;
    (void)controller_->get_CoreWebView2(view.GetAddressOf());
    if (ShuttingDown() || !controller_) {
        TraceWebViewClose(CloseView());
        return S_OK;
    }
    if (!view) {
        TraceWebViewClose(CloseView());
        pane_->ReportWebViewFailure(u"core", E_FAIL);
        return S_OK;
    }
    view_ = view;
    ComPtr<wv2::ICoreWebView2Settings> settings;
    if (SUCCEEDED(view_->get_Settings(settings.GetAddressOf())) && settings) {
        (void)settings->put_AreDevToolsEnabled(FALSE);
        (void)settings->put_IsStatusBarEnabled(FALSE);
    }
    Subscribe();
    FitToWindow();
    pane_->OnViewReady();
    return S_OK;
}

// Never unsubscribed: each handler checks the pane's state instead.
void WinPaneView::Subscribe() {
    std::weak_ptr<WinPaneView*> life = self_;
    auto pane = [life]() -> PptPane* {
        const auto self = life.lock();
        return self && !(*self)->ShuttingDown() ? (*self)->pane_ : nullptr;
    };
    wv2::EventRegistrationToken token{};
    (void)view_->add_WebMessageReceived(
        MakeHandler<wv2::ICoreWebView2WebMessageReceivedEventHandler, wv2::ICoreWebView2*,
                    wv2::ICoreWebView2WebMessageReceivedEventArgs*>(
            [pane](wv2::ICoreWebView2*, wv2::ICoreWebView2WebMessageReceivedEventArgs* args) {
                PptPane* target = pane();
                if (!target || !args) return S_OK;
                LPWSTR json = nullptr;
                if (SUCCEEDED(args->get_WebMessageAsJson(&json)) && json) {
                    target->HandleWebMessage(TakeCoTaskText(json));
                }
                return S_OK;
            })
            .Get(),
        &token);
    (void)view_->add_NavigationStarting(
        MakeHandler<wv2::ICoreWebView2NavigationStartingEventHandler, wv2::ICoreWebView2*,
                    wv2::ICoreWebView2NavigationStartingEventArgs*>(
            [pane](wv2::ICoreWebView2*, wv2::ICoreWebView2NavigationStartingEventArgs*) {
                if (PptPane* target = pane()) target->OnNavigationStarting();
                return S_OK;
            })
            .Get(),
        &token);
    (void)view_->add_NavigationCompleted(
        MakeHandler<wv2::ICoreWebView2NavigationCompletedEventHandler, wv2::ICoreWebView2*,
                    wv2::ICoreWebView2NavigationCompletedEventArgs*>(
            [pane](wv2::ICoreWebView2*, wv2::ICoreWebView2NavigationCompletedEventArgs* args) {
                PptPane* target = pane();
                if (!target) return S_OK;
                BOOL success = FALSE;
                if (args) (void)args->get_IsSuccess(&success);
                target->OnNavigationCompleted(success != FALSE);
                return S_OK;
            })
            .Get(),
        &token);
}

void WinPaneView::FitToWindow() {
    if (!controller_ || !window_.IsValid()) return;
    RECT client{};
    ::GetClientRect(window_.Handle(), &client);
    (void)controller_->put_Bounds(client);
}

void WinPaneView::OnWindowDestroyed() {
    if (pane_) pane_->OnWindowDestroyed();
    if (controller_) TraceWebViewClose(CloseView());
    environment_.Reset();
}

void WinPaneView::Navigate(const std::u16string& url) {
    if (view_) (void)view_->Navigate(AsWide(url));
}

void WinPaneView::ExecuteScript(const std::u16string& script) {
    if (view_) (void)view_->ExecuteScript(AsWide(script), nullptr);
}

void WinPaneView::PostWebMessageAsJson(const std::u16string& json) {
    if (view_) (void)view_->PostWebMessageAsJson(AsWide(json));
}

bool WinPaneView::ReadSource(std::u16string& url) {
    LPWSTR source = nullptr;
    if (!view_ || FAILED(view_->get_Source(&source)) || !source) return false;
    url = TakeCoTaskText(source);
    return true;
}

HRESULT WinPaneView::CloseView() {
    if (!controller_) return S_FALSE;
    const HRESULT hr = controller_->Close();
    // Each slot is empty before its object goes, so a call that comes back
    // in through the browser finds nothing half released.
    ComPtr<wv2::ICoreWebView2Controller> controller = std::move(controller_);
    ComPtr<wv2::ICoreWebView2> view = std::move(view_);
    controller.Reset();
    view.Reset();
    return hr;
}

}  // namespace qb
