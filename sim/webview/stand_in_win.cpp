// The browser component's stand-in: the loader's entry point, the
// environment, controller, view and settings objects the pane brings up,
// and the page behind the view. Every completion and every event reaches
// the pane through the message loop of the thread that asked, never inside
// the call that caused it. The page records what the pane ran in it and
// posted to it, answers translate and terminology requests through the
// service on a thread of its own, and sends what a test tells it to.
#include <windows.h>

#include <objbase.h>

#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "foundation/com_win.h"
#include "foundation/wide_win.h"
#include "pane/webview2_win.h"
#include "run/json.h"
#include "run/service_client.h"
#include "shell/com_object_win.h"
#include "sim/panel/page_service.h"
#include "sim/webview/host_thread_win.h"
#include "sim/webview/stand_in_control.h"

namespace qb::com {

// The stand-in's objects alive now; the report's "objectsAlive".
std::atomic<long>& ModuleLocks() {
    static std::atomic<long> locks{0};
    return locks;
}

}  // namespace qb::com

namespace qb::sim::webview {
namespace {

namespace wv2 = qb::wv2;

// What a call on an object that was closed answers.
const HRESULT kClosed = HRESULT_FROM_WIN32(ERROR_INVALID_STATE);

struct PageEvent {
    std::u16string name;
    std::u16string json;
};

// What the stand-in saw since the last reset.
struct Seen {
    int failureStep = QbStandInFailNone;
    HRESULT failureHr = S_OK;
    std::u16string userDataFolder;
    int environments = 0;
    int controllers = 0;
    int controllersClosed = 0;
    bool visible = false;
    bool boundsSet = false;
    RECT lastBounds{};
    int devTools = -1;  // -1 never put
    int statusBar = -1;
    std::vector<std::u16string> navigations;
    int navigationsCompleted = 0;
    int navigationsFailed = 0;
    std::vector<PageEvent> events;
    std::map<std::u16string, int> eventCounts;
    int runsEnded = 0;
    std::vector<std::u16string> localAnswers;
    std::vector<std::u16string> previews;
    std::vector<std::u16string> otherScripts;
    std::vector<std::u16string> messages;
    int webMessagesDelivered = 0;
    int serviceCalls = 0;
    std::vector<std::u16string> serviceAnswers;
    // The sign-in the pages keep in the profile's storage, shared by every
    // page as the real pages share it.
    std::u16string token;
};

class View;

// One page: the view that shows it and the thread its events go to.
struct Page {
    View* view = nullptr;  // touched on the view's thread only
    HWND thread = nullptr;
    bool open = true;
};

struct StandIn {
    std::mutex lock;
    Seen seen;
    // What lives across a reset: pages of views still alive, service calls
    // still out, references held on the caller's handlers.
    std::map<int, Page> pages;
    int nextViewId = 1;
    int servicePending = 0;
    long handlersHeld = 0;
};

// Never destroyed: a service thread may finish after the module's statics
// would have gone.
StandIn& State() {
    static StandIn* state = new StandIn;
    return *state;
}

// Nothing may cross into the caller: every entry point runs through here.
template <class F>
HRESULT Guarded(F&& body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_UNEXPECTED;
    }
}

// A reference the stand-in holds on one of the caller's handlers, counted
// so that a test sees every one given back.
template <class I>
class Held {
  public:
    explicit Held(I* handler) : handler_(handler) { Count(+1); }
    Held(const Held& other) : handler_(other.handler_) { Count(+1); }
    Held& operator=(Held other) {
        handler_.Swap(other.handler_);
        return *this;
    }
    ~Held() { Count(-1); }
    I* operator->() const { return handler_.Get(); }

  private:
    void Count(long delta) {
        if (!handler_) return;
        std::lock_guard<std::mutex> hold(State().lock);
        State().handlersHeld += delta;
    }
    ComPtr<I> handler_;
};

// A new object with one reference, the caller's.
template <class T, class... A>
ComPtr<T> Make(A&&... args) {
    return ComPtr<T>(new com::ComObject<T>(std::forward<A>(args)...));
}

HRESULT CopyOut(const std::u16string& text, LPWSTR* out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    auto* copy = static_cast<wchar_t*>(::CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t)));
    if (!copy) return E_OUTOFMEMORY;
    std::memcpy(copy, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    *out = copy;
    return S_OK;
}

// Objects of one thread: the component answers calls only on the thread
// that made them.
class ThreadBound {
  protected:
    bool WrongThread() const { return ::GetCurrentThreadId() != thread_; }

  private:
    DWORD thread_ = ::GetCurrentThreadId();
};

class Settings : public wv2::ICoreWebView2Settings {
  public:
    virtual ~Settings() = default;
    static const com::InterfaceEntry* Interfaces() {
        static const com::InterfaceEntry table[] = {
            com::Entry<Settings, wv2::ICoreWebView2Settings>(wv2::IID_ICoreWebView2Settings),
            {nullptr, nullptr}};
        return table;
    }

    STDMETHODIMP get_IsScriptEnabled(BOOL* value) override { return Get(script_, value); }
    STDMETHODIMP put_IsScriptEnabled(BOOL value) override { return Put(script_, value); }
    STDMETHODIMP get_IsWebMessageEnabled(BOOL* value) override { return Get(messages_, value); }
    STDMETHODIMP put_IsWebMessageEnabled(BOOL value) override { return Put(messages_, value); }
    STDMETHODIMP get_AreDefaultScriptDialogsEnabled(BOOL* value) override {
        return Get(dialogs_, value);
    }
    STDMETHODIMP put_AreDefaultScriptDialogsEnabled(BOOL value) override {
        return Put(dialogs_, value);
    }
    STDMETHODIMP get_IsStatusBarEnabled(BOOL* value) override { return Get(statusBar_, value); }
    STDMETHODIMP put_IsStatusBarEnabled(BOOL value) override {
        Record(&Seen::statusBar, value);
        return Put(statusBar_, value);
    }
    STDMETHODIMP get_AreDevToolsEnabled(BOOL* value) override { return Get(devTools_, value); }
    STDMETHODIMP put_AreDevToolsEnabled(BOOL value) override {
        Record(&Seen::devTools, value);
        return Put(devTools_, value);
    }

  private:
    static HRESULT Get(BOOL field, BOOL* value) {
        if (!value) return E_POINTER;
        *value = field;
        return S_OK;
    }
    static HRESULT Put(BOOL& field, BOOL value) {
        field = value ? TRUE : FALSE;
        return S_OK;
    }
    static void Record(int Seen::*flag, BOOL value) {
        std::lock_guard<std::mutex> hold(State().lock);
        State().seen.*flag = value ? 1 : 0;
    }

    // The component's own defaults: everything on.
    BOOL script_ = TRUE;
    BOOL messages_ = TRUE;
    BOOL dialogs_ = TRUE;
    BOOL statusBar_ = TRUE;
    BOOL devTools_ = TRUE;
};

class WebMessageArgs : public wv2::ICoreWebView2WebMessageReceivedEventArgs {
  public:
    WebMessageArgs(std::u16string source, std::u16string json)
        : source_(std::move(source)), json_(std::move(json)) {}
    virtual ~WebMessageArgs() = default;
    static const com::InterfaceEntry* Interfaces() {
        static const com::InterfaceEntry table[] = {
            com::Entry<WebMessageArgs, wv2::ICoreWebView2WebMessageReceivedEventArgs>(
                wv2::IID_WebMessageReceivedEventArgs),
            {nullptr, nullptr}};
        return table;
    }

    STDMETHODIMP get_Source(LPWSTR* source) override {
        return Guarded([&] { return CopyOut(source_, source); });
    }
    STDMETHODIMP get_WebMessageAsJson(LPWSTR* json) override {
        return Guarded([&] { return CopyOut(json_, json); });
    }

  private:
    std::u16string source_;
    std::u16string json_;
};

class StartingArgs : public wv2::ICoreWebView2NavigationStartingEventArgs {
  public:
    virtual ~StartingArgs() = default;
    static const com::InterfaceEntry* Interfaces() {
        static const com::InterfaceEntry table[] = {
            com::Entry<StartingArgs, wv2::ICoreWebView2NavigationStartingEventArgs>(
                wv2::IID_NavigationStartingEventArgs),
            {nullptr, nullptr}};
        return table;
    }
};

class CompletedArgs : public wv2::ICoreWebView2NavigationCompletedEventArgs {
  public:
    explicit CompletedArgs(bool success) : success_(success) {}
    virtual ~CompletedArgs() = default;
    static const com::InterfaceEntry* Interfaces() {
        static const com::InterfaceEntry table[] = {
            com::Entry<CompletedArgs, wv2::ICoreWebView2NavigationCompletedEventArgs>(
                wv2::IID_NavigationCompletedEventArgs),
            {nullptr, nullptr}};
        return table;
    }

    STDMETHODIMP get_IsSuccess(BOOL* success) override {
        if (!success) return E_POINTER;
        *success = success_ ? TRUE : FALSE;
        return S_OK;
    }

  private:
    bool success_;
};

// Handlers of one event with the tokens handed out for them.
template <class H>
struct Subscription {
    std::int64_t token;
    Held<H> handler;
};

class View : public wv2::ICoreWebView2, private ThreadBound {
  public:
    View(int id, HWND thread) : id_(id), thread_(thread) {}
    virtual ~View() {
        std::lock_guard<std::mutex> hold(State().lock);
        State().pages.erase(id_);
    }
    static const com::InterfaceEntry* Interfaces() {
        static const com::InterfaceEntry table[] = {
            com::Entry<View, wv2::ICoreWebView2>(wv2::IID_ICoreWebView2), {nullptr, nullptr}};
        return table;
    }

    // A new view with its page, on the calling thread.
    static ComPtr<View> Open(HWND thread) {
        int id = 0;
        {
            std::lock_guard<std::mutex> hold(State().lock);
            id = State().nextViewId++;
        }
        ComPtr<View> view = Make<View>(id, thread);
        std::lock_guard<std::mutex> hold(State().lock);
        State().pages[id] = Page{view.Get(), thread, true};
        return view;
    }

    // The view of a page, on that view's thread; null once it is gone.
    static ComPtr<View> Find(int id) {
        std::lock_guard<std::mutex> hold(State().lock);
        const auto found = State().pages.find(id);
        return found == State().pages.end() ? ComPtr<View>() : ComPtr<View>(found->second.view);
    }

    // The controller closed: no event reaches the pane any more, and the
    // pane's handlers are given back.
    void CloseByController() {
        if (closed_) return;
        closed_ = true;
        {
            std::lock_guard<std::mutex> hold(State().lock);
            const auto found = State().pages.find(id_);
            if (found != State().pages.end()) found->second.open = false;
        }
        // Released outside the loops that might still walk them; the
        // handlers' ends may call back into this view.
        ComPtr<View> self(this);
        auto messages = std::move(messageHandlers_);
        auto starting = std::move(startingHandlers_);
        auto completed = std::move(completedHandlers_);
        messageHandlers_.clear();
        startingHandlers_.clear();
        completedHandlers_.clear();
    }

    void RaiseWebMessage(const std::u16string& json) {
        if (closed_) return;
        {
            std::lock_guard<std::mutex> hold(State().lock);
            ++State().seen.webMessagesDelivered;
        }
        ComPtr<View> self(this);
        const auto handlers = messageHandlers_;
        ComPtr<WebMessageArgs> args = Make<WebMessageArgs>(source_, json);
        for (const auto& subscription : handlers) {
            if (closed_) return;
            subscription.handler->Invoke(this, args.Get());
        }
    }

    void RaiseNavigationStarting() {
        if (closed_) return;
        ComPtr<View> self(this);
        const auto handlers = startingHandlers_;
        ComPtr<StartingArgs> args = Make<StartingArgs>();
        for (const auto& subscription : handlers) {
            if (closed_) return;
            subscription.handler->Invoke(this, args.Get());
        }
    }

    void RaiseNavigationCompleted(bool success) {
        if (closed_) return;
        {
            std::lock_guard<std::mutex> hold(State().lock);
            ++State().seen.navigationsCompleted;
            if (!success) ++State().seen.navigationsFailed;
        }
        ComPtr<View> self(this);
        const auto handlers = completedHandlers_;
        ComPtr<CompletedArgs> args = Make<CompletedArgs>(success);
        for (const auto& subscription : handlers) {
            if (closed_) return;
            subscription.handler->Invoke(this, args.Get());
        }
    }

    // --- ICoreWebView2 -----------------------------------------------------
    STDMETHODIMP get_Settings(wv2::ICoreWebView2Settings** settings) override {
        return Guarded([&]() -> HRESULT {
            if (!settings) return E_POINTER;
            *settings = nullptr;
            if (WrongThread()) return RPC_E_WRONG_THREAD;
            if (closed_) return kClosed;
            if (!settings_) settings_ = Make<Settings>();
            *settings = settings_.Get();
            (*settings)->AddRef();
            return S_OK;
        });
    }
    STDMETHODIMP get_Source(LPWSTR* uri) override {
        return Guarded([&]() -> HRESULT {
            if (WrongThread()) return RPC_E_WRONG_THREAD;
            return CopyOut(source_, uri);
        });
    }
    STDMETHODIMP Navigate(LPCWSTR uri) override {
        return Guarded([&]() -> HRESULT {
            if (!uri) return E_INVALIDARG;
            if (WrongThread()) return RPC_E_WRONG_THREAD;
            if (closed_) return kClosed;
            source_ = FromWide(uri);
            bool success = true;
            {
                std::lock_guard<std::mutex> hold(State().lock);
                State().seen.navigations.push_back(source_);
                success = State().seen.failureStep != QbStandInFailNavigation;
            }
            const int id = id_;
            const bool posted = PostToHostThread(thread_,
                                                 [id] {
                                                     if (ComPtr<View> view = Find(id)) {
                                                         view->RaiseNavigationStarting();
                                                     }
                                                 }) &&
                                PostToHostThread(thread_, [id, success] {
                                    if (ComPtr<View> view = Find(id)) {
                                        view->RaiseNavigationCompleted(success);
                                    }
                                });
            return posted ? S_OK : E_FAIL;
        });
    }
    STDMETHODIMP NavigateToString(LPCWSTR) override { return E_NOTIMPL; }
    STDMETHODIMP add_NavigationStarting(wv2::ICoreWebView2NavigationStartingEventHandler* handler,
                                        wv2::EventRegistrationToken* token) override {
        return Guarded([&] { return Subscribe(startingHandlers_, handler, token); });
    }
    STDMETHODIMP remove_NavigationStarting(wv2::EventRegistrationToken token) override {
        return Guarded([&] { return Unsubscribe(startingHandlers_, token); });
    }
    STDMETHODIMP add_ContentLoading(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_ContentLoading(wv2::EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_SourceChanged(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_SourceChanged(wv2::EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_HistoryChanged(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_HistoryChanged(wv2::EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_NavigationCompleted(wv2::ICoreWebView2NavigationCompletedEventHandler* handler,
                                         wv2::EventRegistrationToken* token) override {
        return Guarded([&] { return Subscribe(completedHandlers_, handler, token); });
    }
    STDMETHODIMP remove_NavigationCompleted(wv2::EventRegistrationToken token) override {
        return Guarded([&] { return Unsubscribe(completedHandlers_, token); });
    }
    STDMETHODIMP add_FrameNavigationStarting(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_FrameNavigationStarting(wv2::EventRegistrationToken) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP add_FrameNavigationCompleted(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_FrameNavigationCompleted(wv2::EventRegistrationToken) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP add_ScriptDialogOpening(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_ScriptDialogOpening(wv2::EventRegistrationToken) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP add_PermissionRequested(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_PermissionRequested(wv2::EventRegistrationToken) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP add_ProcessFailed(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_ProcessFailed(wv2::EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP AddScriptToExecuteOnDocumentCreated(LPCWSTR, void*) override { return E_NOTIMPL; }
    STDMETHODIMP RemoveScriptToExecuteOnDocumentCreated(LPCWSTR) override { return E_NOTIMPL; }
    STDMETHODIMP ExecuteScript(LPCWSTR script, void* handler) override {
        return Guarded([&]() -> HRESULT {
            if (!script) return E_INVALIDARG;
            // The page hands no result back: a caller that wants one is
            // asking for what this stand-in doesn't do.
            if (handler) return E_NOTIMPL;
            if (WrongThread()) return RPC_E_WRONG_THREAD;
            if (closed_) return kClosed;
            RunScript(FromWide(script));
            return S_OK;
        });
    }
    STDMETHODIMP CapturePreview(int, void*, void*) override { return E_NOTIMPL; }
    STDMETHODIMP Reload() override { return E_NOTIMPL; }
    STDMETHODIMP PostWebMessageAsJson(LPCWSTR json) override {
        return Guarded([&]() -> HRESULT {
            if (!json) return E_INVALIDARG;
            if (WrongThread()) return RPC_E_WRONG_THREAD;
            if (closed_) return kClosed;
            return ReceiveMessage(FromWide(json));
        });
    }
    STDMETHODIMP PostWebMessageAsString(LPCWSTR) override { return E_NOTIMPL; }
    STDMETHODIMP add_WebMessageReceived(wv2::ICoreWebView2WebMessageReceivedEventHandler* handler,
                                        wv2::EventRegistrationToken* token) override {
        return Guarded([&] { return Subscribe(messageHandlers_, handler, token); });
    }

  private:
    template <class H>
    HRESULT Subscribe(std::vector<Subscription<H>>& list, H* handler,
                      wv2::EventRegistrationToken* token) {
        if (!handler || !token) return E_POINTER;
        if (WrongThread()) return RPC_E_WRONG_THREAD;
        if (closed_) return kClosed;
        list.push_back(Subscription<H>{nextToken_, Held<H>(handler)});
        token->value = nextToken_++;
        return S_OK;
    }
    template <class H>
    HRESULT Unsubscribe(std::vector<Subscription<H>>& list, wv2::EventRegistrationToken token) {
        if (WrongThread()) return RPC_E_WRONG_THREAD;
        for (auto it = list.begin(); it != list.end(); ++it) {
            if (it->token == token.value) {
                const Subscription<H> removed = *it;  // released after the list is whole
                list.erase(it);
                return S_OK;
            }
        }
        return S_OK;
    }

    // The page runs what the pane gives it: a call of one of its window
    // functions, the answer of a local query, a selection preview.
    void RunScript(const std::u16string& script) {
        PageScript read = ReadPageScript(script);
        std::lock_guard<std::mutex> hold(State().lock);
        Seen& seen = State().seen;
        switch (read.kind) {
            case PageScript::Kind::Call:
                ++seen.eventCounts[read.name];
                if (read.name == u"onComplete" || read.name == u"onError" ||
                    read.name == u"onCancelled") {
                    ++seen.runsEnded;
                }
                seen.events.push_back({std::move(read.name), std::move(read.args)});
                break;
            case PageScript::Kind::LocalAnswer:
                seen.localAnswers.push_back(std::move(read.args));
                break;
            case PageScript::Kind::Preview:
                seen.previews.push_back(std::move(read.args));
                break;
            case PageScript::Kind::Other:
                seen.otherScripts.push_back(script);
                break;
        }
    }

    HRESULT ReceiveMessage(const std::u16string& json) {
        const std::u16string action = ReadJsonString(json, u"action");
        const bool batch = action == u"translateBatchRequest";
        const bool terminology = action == u"terminologyResolveRequest";
        std::u16string token;
        {
            std::lock_guard<std::mutex> hold(State().lock);
            State().seen.messages.push_back(json);
            if (action == u"accessToken") {
                State().seen.token = ReadJsonString(json, u"accessToken");
            }
            if (!batch && !terminology) return S_OK;
            token = State().seen.token;
            ++State().seen.serviceCalls;
            ++State().servicePending;
        }
        return AskService(json, terminology, token);
    }

    // The service call runs off the host's thread, as the page's fetch
    // does; its answer comes back as a web message on the host's thread.
    HRESULT AskService(const std::u16string& json, bool terminology, const std::u16string& token) {
        // Counts the call as out until its answer has reached the pane or
        // has been dropped.
        auto pending = std::shared_ptr<void>(nullptr, [](void*) {
            std::lock_guard<std::mutex> hold(State().lock);
            --State().servicePending;
        });
        const int id = id_;
        const HWND thread = thread_;
        try {
            // The thread hands its count to the answer's job, so that the
            // call stops counting as out the moment the answer is through.
            std::thread([json, terminology, token, id, thread, pending]() mutable {
                try {
                    std::u16string answer = PageServiceAnswer(json, terminology, token);
                    (void)PostToHostThread(
                        thread, [id, answer = std::move(answer), pending = std::move(pending)] {
                            const ComPtr<View> view = Find(id);
                            if (!view || view->closed_) return;
                            {
                                std::lock_guard<std::mutex> hold(State().lock);
                                State().seen.serviceAnswers.push_back(answer);
                            }
                            view->RaiseWebMessage(answer);
                        });
                } catch (...) {
                    // The page never answers; the pane's own time-out ends the wait.
                }
            }).detach();
        } catch (...) {
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }

    const int id_;
    const HWND thread_;
    bool closed_ = false;
    std::u16string source_;
    ComPtr<Settings> settings_;
    std::int64_t nextToken_ = 1;
    std::vector<Subscription<wv2::ICoreWebView2WebMessageReceivedEventHandler>> messageHandlers_;
    std::vector<Subscription<wv2::ICoreWebView2NavigationStartingEventHandler>> startingHandlers_;
    std::vector<Subscription<wv2::ICoreWebView2NavigationCompletedEventHandler>> completedHandlers_;
};

class Controller : public wv2::ICoreWebView2Controller, private ThreadBound {
  public:
    Controller(ComPtr<View> view, HWND parent) : view_(std::move(view)), parent_(parent) {}
    // The browser ends with its last controller reference: a view the pane
    // still holds shows nothing more.
    virtual ~Controller() {
        if (view_) view_->CloseByController();
    }
    static const com::InterfaceEntry* Interfaces() {
        static const com::InterfaceEntry table[] = {
            com::Entry<Controller, wv2::ICoreWebView2Controller>(wv2::IID_ICoreWebView2Controller),
            {nullptr, nullptr}};
        return table;
    }

    STDMETHODIMP get_IsVisible(BOOL* visible) override {
        if (!visible) return E_POINTER;
        *visible = visible_;
        return S_OK;
    }
    STDMETHODIMP put_IsVisible(BOOL visible) override {
        if (WrongThread()) return RPC_E_WRONG_THREAD;
        if (closed_) return kClosed;
        visible_ = visible ? TRUE : FALSE;
        std::lock_guard<std::mutex> hold(State().lock);
        State().seen.visible = visible_ != FALSE;
        return S_OK;
    }
    STDMETHODIMP get_Bounds(RECT* bounds) override {
        if (!bounds) return E_POINTER;
        *bounds = bounds_;
        return S_OK;
    }
    STDMETHODIMP put_Bounds(RECT bounds) override {
        if (WrongThread()) return RPC_E_WRONG_THREAD;
        if (closed_) return kClosed;
        bounds_ = bounds;
        std::lock_guard<std::mutex> hold(State().lock);
        State().seen.lastBounds = bounds;
        State().seen.boundsSet = true;
        return S_OK;
    }
    STDMETHODIMP get_ZoomFactor(double* factor) override {
        if (!factor) return E_POINTER;
        *factor = zoom_;
        return S_OK;
    }
    STDMETHODIMP put_ZoomFactor(double factor) override {
        if (WrongThread()) return RPC_E_WRONG_THREAD;
        if (closed_) return kClosed;
        if (!(factor > 0)) return E_INVALIDARG;
        zoom_ = factor;
        return S_OK;
    }
    STDMETHODIMP add_ZoomFactorChanged(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_ZoomFactorChanged(wv2::EventRegistrationToken) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP SetBoundsAndZoomFactor(RECT bounds, double factor) override {
        if (!(factor > 0)) return E_INVALIDARG;
        const HRESULT hr = put_Bounds(bounds);
        return FAILED(hr) ? hr : put_ZoomFactor(factor);
    }
    STDMETHODIMP MoveFocus(int) override { return E_NOTIMPL; }
    STDMETHODIMP add_MoveFocusRequested(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_MoveFocusRequested(wv2::EventRegistrationToken) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP add_GotFocus(void*, wv2::EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_GotFocus(wv2::EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_LostFocus(void*, wv2::EventRegistrationToken*) override { return E_NOTIMPL; }
    STDMETHODIMP remove_LostFocus(wv2::EventRegistrationToken) override { return E_NOTIMPL; }
    STDMETHODIMP add_AcceleratorKeyPressed(void*, wv2::EventRegistrationToken*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP remove_AcceleratorKeyPressed(wv2::EventRegistrationToken) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP get_ParentWindow(HWND* parent) override {
        if (!parent) return E_POINTER;
        *parent = parent_;
        return S_OK;
    }
    STDMETHODIMP put_ParentWindow(HWND parent) override {
        if (WrongThread()) return RPC_E_WRONG_THREAD;
        if (closed_) return kClosed;
        if (!::IsWindow(parent)) return E_INVALIDARG;
        parent_ = parent;
        return S_OK;
    }
    STDMETHODIMP NotifyParentWindowPositionChanged() override { return closed_ ? kClosed : S_OK; }
    STDMETHODIMP Close() override {
        return Guarded([&]() -> HRESULT {
            if (WrongThread()) return RPC_E_WRONG_THREAD;
            if (closed_) return S_OK;
            closed_ = true;
            {
                std::lock_guard<std::mutex> hold(State().lock);
                ++State().seen.controllersClosed;
            }
            // The controller's reference goes with the browser; the pane's
            // own, if it still holds one, keeps a view that shows nothing.
            const ComPtr<View> view = std::move(view_);
            if (view) view->CloseByController();
            return S_OK;
        });
    }
    STDMETHODIMP get_CoreWebView2(wv2::ICoreWebView2** view) override {
        if (!view) return E_POINTER;
        *view = nullptr;
        if (WrongThread()) return RPC_E_WRONG_THREAD;
        if (closed_) return kClosed;
        // Null when the view failed on purpose: the answer is S_OK all the same.
        if (view_) {
            *view = view_.Get();
            (*view)->AddRef();
        }
        return S_OK;
    }

  private:
    ComPtr<View> view_;
    HWND parent_;
    BOOL visible_ = FALSE;
    RECT bounds_{};
    double zoom_ = 1.0;
    bool closed_ = false;
};

class Environment : public wv2::ICoreWebView2Environment, private ThreadBound {
  public:
    explicit Environment(HWND thread) : thread_(thread) {}
    virtual ~Environment() = default;
    static const com::InterfaceEntry* Interfaces() {
        static const com::InterfaceEntry table[] = {
            com::Entry<Environment, wv2::ICoreWebView2Environment>(
                wv2::IID_ICoreWebView2Environment),
            {nullptr, nullptr}};
        return table;
    }

    STDMETHODIMP CreateCoreWebView2Controller(
        HWND parentWindow,
        wv2::ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) override {
        return Guarded([&]() -> HRESULT {
            if (!handler) return E_POINTER;
            if (WrongThread()) return RPC_E_WRONG_THREAD;
            if (!::IsWindow(parentWindow)) return E_INVALIDARG;
            int step = QbStandInFailNone;
            HRESULT failure = S_OK;
            {
                std::lock_guard<std::mutex> hold(State().lock);
                step = State().seen.failureStep;
                failure = State().seen.failureHr;
            }
            const ComPtr<Environment> self(this);
            const Held<wv2::ICoreWebView2CreateCoreWebView2ControllerCompletedHandler> held(
                handler);
            const HWND thread = thread_;
            const bool posted =
                PostToHostThread(thread_, [self, held, parentWindow, step, failure, thread] {
                    if (step == QbStandInFailController) {
                        held->Invoke(failure, nullptr);
                        return;
                    }
                    ComPtr<View> view;
                    if (step != QbStandInFailCoreView) view = View::Open(thread);
                    const ComPtr<Controller> controller = Make<Controller>(view, parentWindow);
                    {
                        std::lock_guard<std::mutex> hold(State().lock);
                        ++State().seen.controllers;
                    }
                    held->Invoke(S_OK, controller.Get());
                });
            return posted ? S_OK : E_FAIL;
        });
    }

  private:
    HWND thread_;
};

std::u16string ReportText() {
    std::lock_guard<std::mutex> hold(State().lock);
    const Seen& seen = State().seen;
    const auto strings = [](const std::vector<std::u16string>& items) {
        return JsonStringArray(items);
    };
    std::vector<std::u16string> events;
    for (const PageEvent& event : seen.events) {
        events.push_back(
            JsonObjectWriter().String(u"name", event.name).String(u"json", event.json).Finish());
    }
    JsonObjectWriter counts;
    for (const auto& [name, count] : seen.eventCounts)
        counts.Integer(name, count);
    const auto flag = [](int value) -> std::u16string {
        return value < 0 ? u"null" : value ? u"true" : u"false";
    };
    const std::u16string bounds = !seen.boundsSet ? std::u16string(u"null")
                                                  : JsonObjectWriter()
                                                        .Integer(u"left", seen.lastBounds.left)
                                                        .Integer(u"top", seen.lastBounds.top)
                                                        .Integer(u"right", seen.lastBounds.right)
                                                        .Integer(u"bottom", seen.lastBounds.bottom)
                                                        .Finish();
    return JsonObjectWriter()
        .String(u"userDataFolder", seen.userDataFolder)
        .Integer(u"failureStep", seen.failureStep)
        .Integer(u"environments", seen.environments)
        .Integer(u"controllers", seen.controllers)
        .Integer(u"controllersClosed", seen.controllersClosed)
        .Integer(u"viewsAlive", static_cast<std::int64_t>(State().pages.size()))
        .Integer(u"objectsAlive", com::ModuleLocks().load())
        .Integer(u"handlersHeld", State().handlersHeld)
        .Bool(u"visible", seen.visible)
        .Raw(u"lastBounds", bounds)
        .Raw(u"devTools", flag(seen.devTools))
        .Raw(u"statusBar", flag(seen.statusBar))
        .Raw(u"navigations", strings(seen.navigations))
        .Integer(u"navigationsCompleted", seen.navigationsCompleted)
        .Integer(u"navigationsFailed", seen.navigationsFailed)
        .Raw(u"events", JsonRawArray(events))
        .Raw(u"eventCounts", counts.Finish())
        .Integer(u"runsEnded", seen.runsEnded)
        .Raw(u"localAnswers", strings(seen.localAnswers))
        .Raw(u"previews", strings(seen.previews))
        .Raw(u"otherScripts", strings(seen.otherScripts))
        .Raw(u"messages", strings(seen.messages))
        .Integer(u"webMessagesDelivered", seen.webMessagesDelivered)
        .Integer(u"serviceCalls", seen.serviceCalls)
        .Integer(u"servicePending", State().servicePending)
        .Raw(u"serviceAnswers", strings(seen.serviceAnswers))
        .String(u"token", seen.token)
        .Finish();
}

}  // namespace
}  // namespace qb::sim::webview

using qb::sim::webview::Environment;
using qb::sim::webview::Guarded;
using qb::sim::webview::State;

extern "C" HRESULT STDAPICALLTYPE CreateCoreWebView2EnvironmentWithOptions(
    PCWSTR browserExecutableFolder, PCWSTR userDataFolder, IUnknown* environmentOptions,
    qb::wv2::ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
    (void)browserExecutableFolder;
    (void)environmentOptions;
    return Guarded([&]() -> HRESULT {
        if (!handler) return E_POINTER;
        int step = QbStandInFailNone;
        HRESULT failure = S_OK;
        {
            std::lock_guard<std::mutex> hold(State().lock);
            State().seen.userDataFolder = qb::FromWide(userDataFolder);
            step = State().seen.failureStep;
            failure = State().seen.failureHr;
        }
        if (step == QbStandInFailCreate) return failure;
        const HWND thread = qb::sim::webview::HostThreadWindow();
        if (!thread) return HRESULT_FROM_WIN32(::GetLastError());
        const qb::sim::webview::Held<
            qb::wv2::ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler>
            held(handler);
        const bool posted =
            qb::sim::webview::PostToHostThread(thread, [held, step, failure, thread] {
                if (step == QbStandInFailEnvironment) {
                    held->Invoke(failure, nullptr);
                    return;
                }
                const auto environment = qb::sim::webview::Make<Environment>(thread);
                {
                    std::lock_guard<std::mutex> hold(State().lock);
                    ++State().seen.environments;
                }
                held->Invoke(S_OK, environment.Get());
            });
        return posted ? S_OK : E_FAIL;
    });
}

static_assert(std::is_same_v<decltype(&CreateCoreWebView2EnvironmentWithOptions),
                             qb::wv2::CreateEnvironmentWithOptionsFn>,
              "the entry point has the type the add-in looks it up as");

extern "C" HRESULT STDAPICALLTYPE QbStandInSetFailure(int step, HRESULT hr) {
    if (step < QbStandInFailNone || step > QbStandInFailNavigation) return E_INVALIDARG;
    std::lock_guard<std::mutex> hold(State().lock);
    State().seen.failureStep = step;
    State().seen.failureHr = hr;
    return S_OK;
}

extern "C" HRESULT STDAPICALLTYPE QbStandInSetService(PCWSTR host, unsigned port) {
    if (port > 65535) return E_INVALIDARG;
    return Guarded([&]() -> HRESULT {
        qb::SetHttpEndpointForTesting(qb::FromWide(host), static_cast<std::uint16_t>(port));
        return S_OK;
    });
}

extern "C" HRESULT STDAPICALLTYPE QbStandInSend(PCWSTR json) {
    if (!json) return E_POINTER;
    return Guarded([&]() -> HRESULT {
        const std::u16string text = qb::FromWide(json);
        const std::u16string action = qb::ReadJsonString(text, u"action");
        int id = 0;
        HWND thread = nullptr;
        {
            std::lock_guard<std::mutex> hold(State().lock);
            for (const auto& [pageId, page] : State().pages) {
                if (page.open) {
                    id = pageId;
                    thread = page.thread;
                }
            }
            if (id == 0) return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
            if (action == u"setAccessToken") {
                State().seen.token = qb::ReadJsonString(text, u"accessToken");
            } else if (action == u"clearAccessToken") {
                State().seen.token.clear();
            }
        }
        const bool posted = qb::sim::webview::PostToHostThread(thread, [id, text] {
            if (const auto view = qb::sim::webview::View::Find(id)) view->RaiseWebMessage(text);
        });
        return posted ? S_OK : HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    });
}

extern "C" int STDAPICALLTYPE QbStandInReport(PWSTR buffer, int size) {
    try {
        const std::u16string report = qb::sim::webview::ReportText();
        const int needed = static_cast<int>(report.size()) + 1;
        if (buffer && size > 0) {
            if (size >= needed) {
                std::memcpy(buffer, report.c_str(), static_cast<std::size_t>(needed) * 2);
            } else {
                buffer[0] = L'\0';
            }
        }
        return needed;
    } catch (...) {
        if (buffer && size > 0) buffer[0] = L'\0';
        return 0;
    }
}

extern "C" void STDAPICALLTYPE QbStandInReset() {
    try {
        {
            std::lock_guard<std::mutex> hold(State().lock);
            State().seen = qb::sim::webview::Seen{};
        }
        qb::SetHttpEndpointForTesting(std::u16string(), 0);
    } catch (...) {
        // Nothing more to forget.
    }
}
