// The host's side of loading the add-in, played under Wine against the real
// DLL: register it, find it the way the host does (its Addins key or allow
// list, its ProgID), create it from the per-user classes the way Windows
// would (Wine's own activation doesn't read them), hand it the simulated
// application over IDispatch, load the ribbon and fire its callbacks, give
// it a task pane factory that creates the pane control by its ProgID, shut
// it down as the host does and remove the registration.
#include <windows.h>

#include <oaidl.h>
#include <ocidl.h>
#include <olectl.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "foundation/com_win.h"
#include "foundation/text.h"
#include "foundation/wide_win.h"
#include "shell/office_win.h"
#include "sim/dispatch/export_win.h"
#include "sim/host/deck_builder.h"
#include "sim/host/deck_file.h"
#include "sim/host/json_value.h"
#include "sim/host/sim_host.h"
#include "sim/webview/stand_in_control.h"
#include "slides/host_object.h"

namespace qb::sim {
namespace {

using host::HostRef;
using host::Variant;

// --- The registry as the driver sees it --------------------------------------

std::wstring ReadString(HKEY root, const std::wstring& path, const wchar_t* name) {
    wchar_t buffer[1024] = {};
    DWORD size = sizeof buffer - sizeof(wchar_t);
    DWORD type = 0;
    if (::RegGetValueW(root, path.c_str(), name, RRF_RT_REG_SZ, &type, buffer, &size) !=
        ERROR_SUCCESS) {
        return L"<missing>";
    }
    return buffer;
}

DWORD ReadDword(HKEY root, const std::wstring& path, const wchar_t* name) {
    DWORD value = 0xFFFFFFFF, size = sizeof value;
    (void)::RegGetValueW(root, path.c_str(), name, RRF_RT_REG_DWORD, nullptr, &value, &size);
    return value;
}

bool KeyExists(HKEY root, const std::wstring& path) {
    HKEY key = nullptr;
    if (::RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    ::RegCloseKey(key);
    return true;
}

// Every key and value below `path`, one line each, in a stable order.
void Dump(HKEY root, const std::wstring& path, std::vector<std::wstring>& lines) {
    HKEY key = nullptr;
    if (::RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return;
    lines.push_back(L"[" + path + L"]");
    for (DWORD i = 0;; ++i) {
        wchar_t name[512];
        BYTE data[4096];
        DWORD nameLength = 512, dataSize = sizeof data, type = 0;
        if (::RegEnumValueW(key, i, name, &nameLength, nullptr, &type, data, &dataSize) !=
            ERROR_SUCCESS) {
            break;
        }
        std::wstring line =
            L"  " + std::wstring(name, nameLength) + L" type " + std::to_wstring(type) + L" =";
        for (DWORD b = 0; b < dataSize; ++b)
            line += L" " + std::to_wstring(data[b]);
        lines.push_back(line);
    }
    std::vector<std::wstring> children;
    for (DWORD i = 0;; ++i) {
        wchar_t name[512];
        DWORD nameLength = 512;
        if (::RegEnumKeyExW(key, i, name, &nameLength, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            break;
        }
        children.emplace_back(name, nameLength);
    }
    ::RegCloseKey(key);
    std::sort(children.begin(), children.end());
    for (const std::wstring& child : children)
        Dump(root, path + L"\\" + child, lines);
}

std::vector<std::wstring> DumpUserSoftware() {
    std::vector<std::wstring> lines;
    Dump(HKEY_CURRENT_USER, L"Software", lines);
    return lines;
}

// --- The add-in's module ---------------------------------------------------------

using DllFunction = HRESULT(STDAPICALLTYPE*)();
using GetClassObjectFunction = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);

std::wstring AddinPath() {
    wchar_t buffer[MAX_PATH] = {};
    const DWORD n = ::GetEnvironmentVariableW(L"QB_ADDIN_DLL", buffer, MAX_PATH);
    if (n > 0 && n < MAX_PATH) return buffer;
    ::GetModuleFileNameW(nullptr, buffer, MAX_PATH);
    std::wstring path = buffer;
    return path.substr(0, path.find_last_of(L"\\/") + 1) + QB_ADDIN_FILE;
}

HRESULT CallExport(const std::wstring& dll, const char* name) {
    HMODULE module = ::LoadLibraryW(dll.c_str());
    if (!module) return HRESULT_FROM_WIN32(::GetLastError());
    auto function =
        reinterpret_cast<DllFunction>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
    const HRESULT hr = function ? function() : HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
    ::FreeLibrary(module);
    return hr;
}

// What Windows does for CoCreateInstance from the per-user classes: the
// ProgID's CLSID, the class's in-process server, its class factory.
HRESULT CreateFromUserClasses(const std::wstring& progId, REFIID iid, void** out,
                              std::wstring* serverSeen = nullptr) {
    *out = nullptr;
    std::wstring clsidText =
        ReadString(HKEY_CURRENT_USER, L"Software\\Classes\\" + progId, L"CurVer");
    const std::wstring versioned =
        clsidText == L"<missing>" ? progId : clsidText;  // CurVer names the versioned ProgID
    clsidText =
        ReadString(HKEY_CURRENT_USER, L"Software\\Classes\\" + versioned + L"\\CLSID", nullptr);
    CLSID clsid{};
    if (FAILED(::CLSIDFromString(clsidText.c_str(), &clsid))) return REGDB_E_CLASSNOTREG;
    const std::wstring server =
        ReadString(HKEY_CURRENT_USER,
                   L"Software\\Classes\\CLSID\\" + clsidText + L"\\InprocServer32", nullptr);
    if (serverSeen) *serverSeen = server;
    HMODULE module = ::LoadLibraryW(server.c_str());  // kept loaded, as COM keeps it
    if (!module) return CO_E_DLLNOTFOUND;
    auto getClassObject = reinterpret_cast<GetClassObjectFunction>(
        reinterpret_cast<void*>(::GetProcAddress(module, "DllGetClassObject")));
    if (!getClassObject) return CO_E_ERRORINDLL;
    ComPtr<IClassFactory> factory;
    HRESULT hr = getClassObject(clsid, IID_IClassFactory, &factory);
    if (SUCCEEDED(hr)) hr = factory->CreateInstance(nullptr, iid, out);
    return hr;
}

// --- Host objects of the driver's own ---------------------------------------------

// A host object with plain properties, counting calls by member: a ribbon
// control, the ribbon UI, a task pane.
class PropertyObject final : public host::HostObject {
  public:
    explicit PropertyObject(std::map<std::u16string, Variant> properties = {})
        : properties_(std::move(properties)) {}

    HRESULT Invoke(std::u16string_view member, host::InvokeKind kind, const Variant* args,
                   std::size_t count, Variant* result) override {
        const std::u16string name(member);
        ++calls_[name];
        if (kind == host::InvokeKind::Put) {
            if (count == 0) return E_INVALIDARG;
            properties_[name] = args[0];
            return S_OK;
        }
        const auto it = properties_.find(name);
        if (it == properties_.end()) return methods_.count(name) ? S_OK : DISP_E_UNKNOWNNAME;
        if (result) *result = it->second;
        return S_OK;
    }
    HRESULT InvokeDefault(const Variant*, std::size_t, Variant*) override {
        return DISP_E_MEMBERNOTFOUND;
    }
    const void* Identity() const override { return this; }
    bool Answers(host::HostInterface) const override { return false; }

    // A method with no result, such as Invalidate.
    void AddMethod(const std::u16string& name) { methods_.insert(name); }
    int Calls(const std::u16string& name) const {
        const auto it = calls_.find(name);
        return it == calls_.end() ? 0 : it->second;
    }
    Variant Property(const std::u16string& name) const {
        const auto it = properties_.find(name);
        return it == properties_.end() ? Variant() : it->second;
    }

  private:
    std::map<std::u16string, Variant> properties_;
    std::map<std::u16string, int> calls_;
    std::set<std::u16string> methods_;
};

ComPtr<IDispatch> Export(const HostRef& object) {
    ComPtr<IDispatch> dispatch;
    EXPECT_HRESULT_SUCCEEDED(ExportDispatch(object, &dispatch));
    return dispatch;
}

// The container side of a task pane: the window the host docks, and the
// client and in-place site the control is activated in.
class PaneSite final : public IOleClientSite, public IOleInPlaceSite {
  public:
    explicit PaneSite(HWND window) : window_(window) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (iid == IID_IUnknown || iid == IID_IOleClientSite) {
            *out = static_cast<IOleClientSite*>(this);
        } else if (iid == IID_IOleWindow || iid == IID_IOleInPlaceSite) {
            *out = static_cast<IOleInPlaceSite*>(this);
        } else {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs_); }
    STDMETHODIMP_(ULONG) Release() override {
        const long left = --refs_;
        if (left == 0) delete this;
        return static_cast<ULONG>(left);
    }
    // IOleClientSite
    STDMETHODIMP SaveObject() override { return S_OK; }
    STDMETHODIMP GetMoniker(DWORD, DWORD, IMoniker**) override { return E_NOTIMPL; }
    STDMETHODIMP GetContainer(IOleContainer** out) override {
        if (out) *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP ShowObject() override {
        ++shown;
        return S_OK;
    }
    STDMETHODIMP OnShowWindow(BOOL) override { return S_OK; }
    STDMETHODIMP RequestNewObjectLayout() override { return E_NOTIMPL; }
    // IOleWindow, IOleInPlaceSite
    STDMETHODIMP GetWindow(HWND* out) override {
        if (!out) return E_POINTER;
        *out = window_;
        return S_OK;
    }
    STDMETHODIMP ContextSensitiveHelp(BOOL) override { return E_NOTIMPL; }
    STDMETHODIMP CanInPlaceActivate() override { return S_OK; }
    STDMETHODIMP OnInPlaceActivate() override {
        ++activated;
        return S_OK;
    }
    STDMETHODIMP OnUIActivate() override { return S_OK; }
    STDMETHODIMP GetWindowContext(IOleInPlaceFrame** frame, IOleInPlaceUIWindow** document,
                                  LPRECT position, LPRECT clip, LPOLEINPLACEFRAMEINFO) override {
        if (frame) *frame = nullptr;
        if (document) *document = nullptr;
        RECT client{};
        ::GetClientRect(window_, &client);
        if (position) *position = client;
        if (clip) *clip = client;
        return S_OK;
    }
    STDMETHODIMP Scroll(SIZE) override { return E_NOTIMPL; }
    STDMETHODIMP OnUIDeactivate(BOOL) override { return S_OK; }
    STDMETHODIMP OnInPlaceDeactivate() override {
        ++deactivated;
        return S_OK;
    }
    STDMETHODIMP DiscardUndoState() override { return S_OK; }
    STDMETHODIMP DeactivateAndUndo() override { return S_OK; }
    STDMETHODIMP OnPosRectChange(LPCRECT) override { return S_OK; }

    int shown = 0, activated = 0, deactivated = 0;

  private:
    HWND window_;
    std::atomic<long> refs_{0};
};

// The window a task pane docks into: a plain top-level window here.
HWND MakePaneFrame() {
    static const wchar_t kClass[] = L"QbDriverTaskPane";
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = ::DefWindowProcW;
    windowClass.hInstance = ::GetModuleHandleW(nullptr);
    windowClass.lpszClassName = kClass;
    ::RegisterClassExW(&windowClass);  // a second registration fails harmlessly
    return ::CreateWindowExW(0, kClass, L"Task pane", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 520,
                             700, nullptr, nullptr, ::GetModuleHandleW(nullptr), nullptr);
}

// The host's task pane factory: creates the control by its ProgID from the
// per-user classes, and hands out a task pane object for it. An activating
// factory also docks the control in a window of its own and activates it in
// place there, as the host does when the pane is shown.
class TaskPaneFactory final : public office::ICTPFactory {
  public:
    struct Created {
        std::wstring progId;
        std::wstring title;
        ComPtr<IUnknown> control;
        std::shared_ptr<PropertyObject> pane;
        HWND frame = nullptr;
        ComPtr<PaneSite> site;
        HRESULT activation = S_OK;
    };

    explicit TaskPaneFactory(bool activate = false) : activate_(activate) {}
    ~TaskPaneFactory() { CloseAll(); }

    // What the host does with its panes at its end: each control closed and
    // let go, each window destroyed.
    void CloseAll() {
        for (Created& created : created_) {
            ComPtr<IOleObject> object;
            if (created.control &&
                SUCCEEDED(created.control->QueryInterface(
                    IID_IOleObject, reinterpret_cast<void**>(object.GetAddressOf())))) {
                object->Close(OLECLOSE_NOSAVE);
                object->SetClientSite(nullptr);
            }
            if (created.frame) ::DestroyWindow(created.frame);
            created.frame = nullptr;
        }
        created_.clear();
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        if (iid == IID_IUnknown || iid == IID_IDispatch || iid == office::IID_ICTPFactory) {
            *out = static_cast<office::ICTPFactory*>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs_; }  // owned by the test
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override {
        return E_NOTIMPL;
    }

    HRESULT STDMETHODCALLTYPE CreateCTP(BSTR progId, BSTR title, VARIANT window,
                                        office::_CustomTaskPane** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        Created created;
        created.progId = progId ? progId : L"";
        created.title = title ? title : L"";
        HRESULT hr = CreateFromUserClasses(
            created.progId, IID_IUnknown, reinterpret_cast<void**>(created.control.GetAddressOf()));
        if (FAILED(hr)) return hr;
        // The task pane answers Window with the window it was made for.
        Variant shown;
        if (window.vt != VT_DISPATCH || FAILED(host::FromVariant(window, shown, ExportBridge()))) {
            shown = Variant();
        }
        created.pane = std::make_shared<PropertyObject>(std::map<std::u16string, Variant>{
            {u"Visible", Variant::Bool(false)},
            {u"DockPosition", Variant::I4(0)},
            {u"Width", Variant::I4(200)},
            {u"Window", shown},
        });
        ComPtr<IDispatch> pane = Export(created.pane);
        if (activate_) {
            created.frame = MakePaneFrame();
            created.site = new PaneSite(created.frame);
            ComPtr<IOleObject> object;
            created.activation = created.control->QueryInterface(
                IID_IOleObject, reinterpret_cast<void**>(object.GetAddressOf()));
            if (SUCCEEDED(created.activation)) {
                RECT client{};
                ::GetClientRect(created.frame, &client);
                object->SetClientSite(created.site.Get());
                created.activation = object->DoVerb(OLEIVERB_INPLACEACTIVATE, nullptr,
                                                    created.site.Get(), 0, created.frame, &client);
            }
        }
        created_.push_back(std::move(created));
        *out = pane.Detach();
        return S_OK;
    }

    std::vector<Created>& All() { return created_; }

  private:
    ULONG refs_ = 1;
    bool activate_;
    std::vector<Created> created_;
};

// --- Calling the add-in as the host does ----------------------------------------

DISPID IdOf(IDispatch* dispatch, const std::wstring& name) {
    LPOLESTR names[] = {const_cast<LPOLESTR>(name.c_str())};
    DISPID id = DISPID_UNKNOWN;
    const HRESULT hr = dispatch->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
    return SUCCEEDED(hr) ? id : DISPID_UNKNOWN;
}

// A callback with the control as its one argument, as the host makes it.
HRESULT CallBack(IDispatch* connect, DISPID id, IDispatch* control, VARIANT* result = nullptr) {
    VARIANT arg;
    ::VariantInit(&arg);
    arg.vt = VT_DISPATCH;
    arg.pdispVal = control;
    DISPPARAMS params{&arg, nullptr, 1, 0};
    return connect->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result,
                           nullptr, nullptr);
}

// The callback names of a ribbon description, read by a small XML reader
// that also checks that every element is closed in order.
bool ReadCallbacks(const std::wstring& xml, std::set<std::wstring>& callbacks,
                   std::wstring& error) {
    static const std::set<std::wstring> kCallbackAttributes = {L"onLoad", L"onAction", L"getLabel",
                                                               L"getScreentip", L"getImage"};
    std::vector<std::wstring> open;
    std::size_t pos = 0;
    while ((pos = xml.find(L'<', pos)) != std::wstring::npos) {
        const std::size_t end = xml.find(L'>', pos);
        if (end == std::wstring::npos) {
            error = L"unclosed tag";
            return false;
        }
        std::wstring tag = xml.substr(pos + 1, end - pos - 1);
        pos = end + 1;
        if (tag.empty() || tag[0] == L'?' || tag[0] == L'!') continue;
        if (tag[0] == L'/') {
            if (open.empty() || open.back() != tag.substr(1)) {
                error = L"mismatched </" + tag.substr(1) + L">";
                return false;
            }
            open.pop_back();
            continue;
        }
        const bool selfClosing = tag.back() == L'/';
        if (selfClosing) tag.pop_back();
        const std::size_t nameEnd = tag.find_first_of(L" \t\r\n");
        const std::wstring name = tag.substr(0, nameEnd);
        std::size_t at = nameEnd;
        while (at != std::wstring::npos && at < tag.size()) {
            const std::size_t eq = tag.find(L'=', at);
            if (eq == std::wstring::npos) break;
            std::wstring attribute = tag.substr(at, eq - at);
            attribute.erase(0, attribute.find_first_not_of(L" \t\r\n"));
            const std::size_t q1 = tag.find(L'"', eq);
            const std::size_t q2 = q1 == std::wstring::npos ? q1 : tag.find(L'"', q1 + 1);
            if (q2 == std::wstring::npos) {
                error = L"unquoted attribute in <" + name + L">";
                return false;
            }
            if (kCallbackAttributes.count(attribute)) {
                callbacks.insert(tag.substr(q1 + 1, q2 - q1 - 1));
            }
            at = q2 + 1;
        }
        if (!selfClosing) open.push_back(name);
    }
    if (!open.empty()) {
        error = L"<" + open.back() + L"> not closed";
        return false;
    }
    return true;
}

std::string Narrow(const std::wstring& text) {
    return Utf16ToUtf8(FromWide(text.c_str(), text.size()));
}

std::wstring DriverFolder() {
    wchar_t buffer[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, buffer, MAX_PATH);
    const std::wstring path = buffer;
    return path.substr(0, path.find_last_of(L"\\/") + 1);
}

// Dispatches the thread's messages, as the host's loop does, until `done`
// holds; false when `limitMs` of real time pass first.
template <class Done>
bool PumpUntil(Done done, ULONGLONG limitMs) {
    const ULONGLONG end = ::GetTickCount64() + limitMs;
    while (!done()) {
        if (::GetTickCount64() > end) return false;
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
    }
    return true;
}

// The browser component's stand-in, beside the driver as beside the add-in:
// the add-in loads it by path and so finds the module the driver loaded.
class StandIn {
  public:
    bool Load() {
        module_ = ::LoadLibraryW((DriverFolder() + L"WebView2Loader.dll").c_str());
        if (!module_) return false;
        setFailure_ = Proc<webview::SetFailureFn>(webview::kSetFailureExport);
        setService_ = Proc<webview::SetServiceFn>(webview::kSetServiceExport);
        send_ = Proc<webview::SendFn>(webview::kSendExport);
        report_ = Proc<webview::ReportFn>(webview::kReportExport);
        reset_ = Proc<webview::ResetFn>(webview::kResetExport);
        return setFailure_ && setService_ && send_ && report_ && reset_;
    }
    void Reset() { reset_(); }
    HRESULT Fail(int step, HRESULT hr) { return setFailure_(step, hr); }
    HRESULT Service(const wchar_t* host, unsigned port) { return setService_(host, port); }
    HRESULT Send(const std::u16string& json) {
        return send_(reinterpret_cast<PCWSTR>(json.c_str()));
    }
    JsonValue Report() {
        const int needed = report_(nullptr, 0);
        std::wstring text(static_cast<std::size_t>(needed > 0 ? needed : 1), L'\0');
        report_(text.data(), needed);
        text.resize(text.find(L'\0'));
        std::optional<JsonValue> parsed = ParseJson(Narrow(text));
        return parsed ? *parsed : JsonValue();
    }
    std::int64_t Count(const char16_t* key) {
        const JsonValue report = Report();
        const JsonValue* value = report.Find(key);
        return value && value->IsInteger() ? value->IntegerValue() : -1;
    }
    std::int64_t Events(const char16_t* name) {
        const JsonValue report = Report();
        const JsonValue* counts = report.Find(u"eventCounts");
        const JsonValue* value = counts ? counts->Find(name) : nullptr;
        return value && value->IsInteger() ? value->IntegerValue() : 0;
    }

  private:
    template <class F>
    F Proc(const char* name) {
        return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(module_, name)));
    }
    HMODULE module_ = nullptr;
    webview::SetFailureFn setFailure_ = nullptr;
    webview::SetServiceFn setService_ = nullptr;
    webview::SendFn send_ = nullptr;
    webview::ReportFn report_ = nullptr;
    webview::ResetFn reset_ = nullptr;
};

// The add-in's log as it stands now.
std::string AddinLog() {
    wchar_t local[MAX_PATH] = {};
    ::GetEnvironmentVariableW(L"LOCALAPPDATA", local, MAX_PATH);
    const std::wstring path =
        std::wstring(local) + L"\\Quillbrook\\log\\QuillbrookPane_ppt_trace.log";
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return {};
    std::string bytes;
    char chunk[65536];
    DWORD read = 0;
    while (::ReadFile(file, chunk, sizeof chunk, &read, nullptr) && read > 0)
        bytes.append(chunk, read);
    ::CloseHandle(file);
    // The log is UTF-16 in the machine's byte order.
    std::u16string text(bytes.size() / 2, u'\0');
    std::memcpy(&text[0], bytes.data(), text.size() * 2);
    return Utf16ToUtf8(text);
}

std::size_t Occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// Answers every message box of this thread with OK as soon as it shows: a
// thread timer fires inside the box's own message loop.
class BoxAnswerer {
  public:
    BoxAnswerer() { timer_ = ::SetTimer(nullptr, 0, 100, &BoxAnswerer::Tick); }
    ~BoxAnswerer() { ::KillTimer(nullptr, timer_); }
    static int& Answered() {
        static int answered = 0;
        return answered;
    }

  private:
    static void CALLBACK Tick(HWND, UINT, UINT_PTR, DWORD) {
        ::EnumThreadWindows(::GetCurrentThreadId(), &BoxAnswerer::Answer, 0);
    }
    static BOOL CALLBACK Answer(HWND window, LPARAM) {
        wchar_t name[16] = {};
        ::GetClassNameW(window, name, 16);
        if (std::wstring(name) == L"#32770" && ::IsWindowVisible(window)) {
            ::PostMessageW(window, WM_COMMAND, IDOK, 0);
            ++Answered();
        }
        return TRUE;
    }
    UINT_PTR timer_ = 0;
};

std::wstring ClipboardText() {
    std::wstring text;
    if (!::OpenClipboard(nullptr)) return text;
    if (HANDLE data = ::GetClipboardData(CF_UNICODETEXT)) {
        if (const auto* chars = static_cast<const wchar_t*>(::GlobalLock(data))) {
            text = chars;
            ::GlobalUnlock(data);
        }
    }
    ::CloseClipboard();
    return text;
}

// --- The suites ---------------------------------------------------------------------

class HostDriver : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_HRESULT_SUCCEEDED(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    }
    void TearDown() override { ::CoUninitialize(); }
    const std::wstring dll_ = AddinPath();
};

TEST_F(HostDriver, RegistrationWritesTheUserKeysAndItsRemovalLeavesNoTrace) {
    // A user's hive on Windows always has its classes key; a fresh Wine
    // prefix may not yet.
    HKEY classes = nullptr;
    ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Classes\\CLSID", 0, nullptr, 0,
                                KEY_READ, nullptr, &classes, nullptr),
              ERROR_SUCCESS);
    ::RegCloseKey(classes);
    const std::vector<std::wstring> before = DumpUserSoftware();

    ASSERT_HRESULT_SUCCEEDED(CallExport(dll_, "DllRegisterServer"));
    const std::wstring addins =
        L"Software\\Microsoft\\Office\\PowerPoint\\Addins\\PptAddin.Connect";
    EXPECT_EQ(ReadString(HKEY_CURRENT_USER, addins, L"FriendlyName"), L"Quillbrook PowerPoint");
    EXPECT_EQ(ReadString(HKEY_CURRENT_USER, addins, L"Description"),
              L"\u6574\u4EFD\u3001\u5F53\u524D\u9875\u6216\u9009\u533A\u7FFB\u8BD1\uFF0C\u4FDD"
              L"\u7559\u7248\u5F0F\u5199\u56DE\u5E7B\u706F\u7247\u3002");
    EXPECT_EQ(ReadDword(HKEY_CURRENT_USER, addins, L"LoadBehavior"), 3u);
    EXPECT_EQ(ReadDword(HKEY_CURRENT_USER, addins, L"CommandLineSafe"), 1u);
    EXPECT_EQ(ReadString(HKEY_CURRENT_USER, L"Software\\Kingsoft\\Office\\WPP\\AddinsWL",
                         L"PptAddin.Connect"),
              L"");
    const std::wstring connect =
        L"Software\\Classes\\CLSID\\{5B9C1E43-AF66-4F7D-BC38-94E7FA0512C3}";
    EXPECT_EQ(ReadString(HKEY_CURRENT_USER, connect + L"\\InprocServer32", nullptr), dll_);
    EXPECT_EQ(ReadString(HKEY_CURRENT_USER, connect + L"\\InprocServer32", L"ThreadingModel"),
              L"Apartment");
    EXPECT_EQ(ReadString(HKEY_CURRENT_USER, connect + L"\\ProgID", nullptr), L"PptAddin.Connect.1");
    const std::wstring pane = L"Software\\Classes\\CLSID\\{B0C1D2E3-4F5A-6B7C-8D9E-0F1A2B3C4D5E}";
    EXPECT_EQ(ReadString(HKEY_CURRENT_USER, pane + L"\\MiscStatus\\1", nullptr), L"131473");
    EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, pane + L"\\Control"));
    EXPECT_EQ(
        ReadString(HKEY_CURRENT_USER, L"Software\\Classes\\Quillbrook.PptPane\\CurVer", nullptr),
        L"Quillbrook.PptPane.1");
    // Nothing of the classes goes to the machine's hive.
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE,
                           L"Software\\Classes\\CLSID\\{5B9C1E43-AF66-4F7D-BC38-94E7FA0512C3}"));
    // The type library is registered (Wine writes it to the machine's hive).
    const std::wstring typeLib = L"\\TypeLib\\{3F7A9C21-8E44-4D5B-9A16-72C5D8E3F0A1}";
    EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, L"Software\\Classes" + typeLib) ||
                KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Classes" + typeLib));

    EXPECT_HRESULT_SUCCEEDED(CallExport(dll_, "DllRegisterServer")) << "registering twice";
    ASSERT_HRESULT_SUCCEEDED(CallExport(dll_, "DllUnregisterServer"));
    const std::vector<std::wstring> after = DumpUserSoftware();
    EXPECT_EQ(after, before);
    for (std::size_t i = 0; i < after.size() && i < before.size(); ++i) {
        if (after[i] != before[i]) {
            ADD_FAILURE() << "first difference: " << Narrow(after[i]) << " vs "
                          << Narrow(before[i]);
            break;
        }
    }
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, L"Software\\Classes" + typeLib));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Classes" + typeLib));
    EXPECT_HRESULT_SUCCEEDED(CallExport(dll_, "DllUnregisterServer")) << "nothing left to remove";
}

TEST_F(HostDriver, KeepsOtherAddinsOnTheAllowList) {
    HKEY key = nullptr;
    ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Kingsoft\\Office\\WPP\\AddinsWL", 0,
                                nullptr, 0, KEY_WRITE, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    ::RegSetValueExW(key, L"Other.Addin", 0, REG_SZ, reinterpret_cast<const BYTE*>(L""), 2);
    ::RegCloseKey(key);

    ASSERT_HRESULT_SUCCEEDED(CallExport(dll_, "DllRegisterServer"));
    ASSERT_HRESULT_SUCCEEDED(CallExport(dll_, "DllUnregisterServer"));
    EXPECT_EQ(
        ReadString(HKEY_CURRENT_USER, L"Software\\Kingsoft\\Office\\WPP\\AddinsWL", L"Other.Addin"),
        L"");
    EXPECT_EQ(ReadString(HKEY_CURRENT_USER, L"Software\\Kingsoft\\Office\\WPP\\AddinsWL",
                         L"PptAddin.Connect"),
              L"<missing>");
    ::RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\Kingsoft");
    ::RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\Kingsoft");
}

struct HostCase {
    const char* name;
    HostKind kind;
};

class HostSequence : public HostDriver, public ::testing::WithParamInterface<HostCase> {};

// The first subkey (or value) name of a key; empty when there is none.
std::wstring FirstName(const wchar_t* path, bool values) {
    HKEY key = nullptr;
    std::wstring found;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return found;
    wchar_t name[256];
    DWORD length = 256;
    const LSTATUS status =
        values ? ::RegEnumValueW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr)
               : ::RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_SUCCESS) found.assign(name, length);
    ::RegCloseKey(key);
    return found;
}

// How the host finds the add-in: PowerPoint by its Addins key, WPS by its
// allow list; both then by the ProgID.
std::wstring FindAddinProgId(HostKind kind) {
    if (kind == HostKind::Wps) return FirstName(L"Software\\Kingsoft\\Office\\WPP\\AddinsWL", true);
    const wchar_t* addins = L"Software\\Microsoft\\Office\\PowerPoint\\Addins";
    const std::wstring found = FirstName(addins, false);
    return ReadDword(HKEY_CURRENT_USER, std::wstring(addins) + L"\\" + found, L"LoadBehavior") == 3
               ? found
               : L"";
}

TEST_P(HostSequence, LoadsRibbonCallbacksTaskPanesAndShutsDown) {
    const HostKind kind = GetParam().kind;
    ASSERT_HRESULT_SUCCEEDED(CallExport(dll_, "DllRegisterServer"));

    const std::wstring progId = FindAddinProgId(kind);
    ASSERT_EQ(progId, L"PptAddin.Connect");
    std::wstring server;
    ComPtr<IUnknown> unknown;
    ASSERT_HRESULT_SUCCEEDED(CreateFromUserClasses(
        progId, IID_IUnknown, reinterpret_cast<void**>(unknown.GetAddressOf()), &server));
    EXPECT_EQ(server, dll_);
    ComPtr<office::_IDTExtensibility2> extensibility;
    ComPtr<office::IRibbonExtensibility> ribbon;
    ComPtr<office::ICustomTaskPaneConsumer> consumer;
    ComPtr<IDispatch> dispatch;
    ASSERT_HRESULT_SUCCEEDED(unknown->QueryInterface(
        office::IID_IDTExtensibility2, reinterpret_cast<void**>(extensibility.GetAddressOf())));
    ASSERT_HRESULT_SUCCEEDED(unknown->QueryInterface(
        office::IID_IRibbonExtensibility, reinterpret_cast<void**>(ribbon.GetAddressOf())));
    ASSERT_HRESULT_SUCCEEDED(unknown->QueryInterface(
        office::IID_ICustomTaskPaneConsumer, reinterpret_cast<void**>(consumer.GetAddressOf())));
    ASSERT_HRESULT_SUCCEEDED(
        unknown->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(dispatch.GetAddressOf())));

    // The application: two presentations, each in a window of its own.
    SimHost host(kind);
    host.AddPresentation(DeckBuilder().Slide().Text(u"Title", u"Hello").Build());
    host.AddPresentation(DeckBuilder().Slide().Text(u"Title", u"World").Build());
    ComPtr<IDispatch> application = Export(host.Application());
    SAFEARRAY* custom = nullptr;
    EXPECT_EQ(
        extensibility->OnConnection(application.Get(), office::ext_cm_Startup, nullptr, &custom),
        S_OK);

    // The ribbon: its description parses and every callback it names resolves.
    ScopedBstr xml;
    ASSERT_HRESULT_SUCCEEDED(
        ribbon->GetCustomUI(ScopedBstr(u"Microsoft.PowerPoint.Presentation").Get(), xml.Receive()));
    const std::wstring text(reinterpret_cast<const wchar_t*>(xml.Get()), xml.Length());
    std::set<std::wstring> callbacks;
    std::wstring error;
    ASSERT_TRUE(ReadCallbacks(text, callbacks, error)) << Narrow(error);
    EXPECT_EQ(text.find(L"imageMso"), std::wstring::npos);
    EXPECT_EQ(callbacks.size(), 13u) << "onLoad, three getters, nine actions";
    for (const std::wstring& name : callbacks)
        EXPECT_NE(IdOf(dispatch.Get(), name), DISPID_UNKNOWN) << Narrow(name);
    EXPECT_EQ(IdOf(dispatch.Get(), L"NoSuchCallback"), DISPID_UNKNOWN);

    auto ribbonUi = std::make_shared<PropertyObject>();
    ribbonUi->AddMethod(u"Invalidate");
    EXPECT_HRESULT_SUCCEEDED(
        CallBack(dispatch.Get(), IdOf(dispatch.Get(), L"OnRibbonLoad"), Export(ribbonUi).Get()));
    TaskPaneFactory factory;
    EXPECT_HRESULT_SUCCEEDED(consumer->CTPFactoryAvailable(&factory));

    // Labels and pictures of every button.
    struct Button {
        const char16_t* id;
        const char16_t* tag;
        const wchar_t* label;
    };
    const Button buttons[] = {
        {u"btnTranslateFullDoc", u"translate_full", L"All slides"},
        {u"btnTranslateCurrentSlide", u"translate_slide", L"This slide"},
        {u"btnTranslateSelection", u"translate_selection", L"Selection"},
        {u"btnPdfTranslate", u"pdf_translate", L"PDF Translate"},
        {u"btnGlossary", u"glossary", L"Glossary"},
        {u"btnInstruction", u"instruction", L"Custom prompt"},
        {u"btnAccount", u"account", L"Account"},
        {u"btnSupport", u"support", L"Support"},
        {u"btnSettings", u"settings", L"Settings"},
    };
    for (const Button& button : buttons) {
        auto control = std::make_shared<PropertyObject>(std::map<std::u16string, Variant>{
            {u"Id", Variant::String(button.id)}, {u"Tag", Variant::String(button.tag)}});
        ComPtr<IDispatch> exported = Export(control);
        ScopedVariant label;
        ASSERT_HRESULT_SUCCEEDED(CallBack(dispatch.Get(), IdOf(dispatch.Get(), L"GetLabel"),
                                          exported.Get(), label.Get()));
        ASSERT_EQ(label.Value().vt, VT_BSTR);
        EXPECT_STREQ(label.Value().bstrVal, button.label);
        ScopedVariant picture;
        ASSERT_HRESULT_SUCCEEDED(CallBack(dispatch.Get(), IdOf(dispatch.Get(), L"GetImage"),
                                          exported.Get(), picture.Get()));
        ASSERT_EQ(picture.Value().vt, VT_DISPATCH) << Narrow(std::wstring(button.label));
        ComPtr<IPicture> bitmap;
        ASSERT_HRESULT_SUCCEEDED(picture.Value().pdispVal->QueryInterface(
            IID_IPicture, reinterpret_cast<void**>(bitmap.GetAddressOf())));
        SHORT type = 0;
        EXPECT_HRESULT_SUCCEEDED(bitmap->get_Type(&type));
        EXPECT_EQ(type, PICTYPE_BITMAP);
        OLE_XSIZE_HIMETRIC width = 0;
        EXPECT_HRESULT_SUCCEEDED(bitmap->get_Width(&width));
        EXPECT_GT(width, 0);
    }
    // An unknown control gets no picture, and the ribbon goes on.
    {
        auto control = std::make_shared<PropertyObject>(std::map<std::u16string, Variant>{
            {u"Id", Variant::String(u"btnNone")}, {u"Tag", Variant::String(u"")}});
        ScopedVariant picture;
        EXPECT_EQ(CallBack(dispatch.Get(), IdOf(dispatch.Get(), L"GetImage"), Export(control).Get(),
                           picture.Get()),
                  S_OK);
        EXPECT_EQ(picture.Value().vt, VT_EMPTY);
    }

    // A click in the first window creates its pane by the control's ProgID.
    auto Click = [&](const wchar_t* callback, const HostRef& context) {
        auto control = std::make_shared<PropertyObject>(std::map<std::u16string, Variant>{
            {u"Id", Variant::String(u"btn")}, {u"Context", Variant::Object(context)}});
        return CallBack(dispatch.Get(), IdOf(dispatch.Get(), callback), Export(control).Get());
    };
    host::HostRef windows, first, second;
    {
        Variant value;
        ASSERT_HRESULT_SUCCEEDED(
            host.Application()->Invoke(u"Windows", host::InvokeKind::Get, nullptr, 0, &value));
        windows = value.ObjectValue();
        Variant index = Variant::I4(1);
        ASSERT_HRESULT_SUCCEEDED(windows->InvokeDefault(&index, 1, &value));
        first = value.ObjectValue();
        index = Variant::I4(2);
        ASSERT_HRESULT_SUCCEEDED(windows->InvokeDefault(&index, 1, &value));
        second = value.ObjectValue();
    }
    EXPECT_HRESULT_SUCCEEDED(Click(L"TranslateFullDocClicked", first));
    ASSERT_EQ(factory.All().size(), 1u);
    EXPECT_EQ(factory.All()[0].progId, L"Quillbrook.PptPane");
    ASSERT_TRUE(factory.All()[0].control);
    ComPtr<IDispatch> paneFace;
    EXPECT_HRESULT_SUCCEEDED(factory.All()[0].control->QueryInterface(
        office::IID_IQuillbrookPptPane, reinterpret_cast<void**>(paneFace.GetAddressOf())));
    const auto& firstPane = *factory.All()[0].pane;
    EXPECT_EQ(firstPane.Property(u"Visible"), Variant::Bool(true));
    EXPECT_EQ(firstPane.Property(u"DockPosition"), Variant::I4(2));

    // Again in the same window: the same pane. In the second: its own.
    EXPECT_HRESULT_SUCCEEDED(Click(L"GlossaryClicked", first));
    EXPECT_EQ(factory.All().size(), 1u);
    EXPECT_HRESULT_SUCCEEDED(Click(L"TranslateCurrentSlideClicked", second));
    EXPECT_EQ(factory.All().size(), 2u);
    // The other buttons that open a page, by name and through the bound
    // callback interface: no new pane in either window.
    for (const wchar_t* callback : {L"TranslateSelectionClicked", L"InstructionClicked",
                                    L"AccountClicked", L"SupportClicked", L"ShowPaneClicked"}) {
        EXPECT_HRESULT_SUCCEEDED(Click(callback, second)) << Narrow(callback);
    }
    ComPtr<office::IRibbonCallback> bound;
    ASSERT_HRESULT_SUCCEEDED(unknown->QueryInterface(
        office::IID_IRibbonCallback, reinterpret_cast<void**>(bound.GetAddressOf())));
    auto inFirst = std::make_shared<PropertyObject>(
        std::map<std::u16string, Variant>{{u"Context", Variant::Object(first)}});
    EXPECT_HRESULT_SUCCEEDED(bound->ShowPaneClicked(Export(inFirst).Get()));
    EXPECT_HRESULT_SUCCEEDED(bound->AccountClicked(Export(inFirst).Get()));
    ScopedVariant boundPicture;
    auto glossary = std::make_shared<PropertyObject>(
        std::map<std::u16string, Variant>{{u"Tag", Variant::String(u"glossary")}});
    EXPECT_HRESULT_SUCCEEDED(bound->GetImage(Export(glossary).Get(), boundPicture.Get()));
    EXPECT_EQ(boundPicture.Value().vt, VT_DISPATCH);
    bound.Reset();
    EXPECT_EQ(factory.All().size(), 2u);
    {
        auto control = std::make_shared<PropertyObject>(
            std::map<std::u16string, Variant>{{u"Id", Variant::String(u"btnSupport")}});
        ScopedVariant tip;
        ASSERT_HRESULT_SUCCEEDED(CallBack(dispatch.Get(), IdOf(dispatch.Get(), L"GetScreentip"),
                                          Export(control).Get(), tip.Get()));
        ASSERT_EQ(tip.Value().vt, VT_BSTR);
        EXPECT_GT(::SysStringLen(tip.Value().bstrVal), 0u);
    }

    // The host's way out: begin shutdown, disconnect; the panes are hidden.
    EXPECT_EQ(extensibility->OnBeginShutdown(&custom), S_OK);
    EXPECT_EQ(extensibility->OnDisconnection(office::ext_dm_HostShutdown, &custom), S_OK);
    for (auto& created : factory.All())
        EXPECT_EQ(created.pane->Property(u"Visible"), Variant::Bool(false));
    EXPECT_EQ(ribbonUi->Calls(u"Invalidate"), 0);

    extensibility.Reset();
    ribbon.Reset();
    consumer.Reset();
    dispatch.Reset();
    unknown.Reset();
    paneFace.Reset();
    factory.All().clear();
    EXPECT_EQ(CallExport(dll_, "DllCanUnloadNow"), S_OK) << "every object of the add-in released";

    EXPECT_HRESULT_SUCCEEDED(CallExport(dll_, "DllUnregisterServer"));
}

// A load that goes wrong on the host's side still answers S_OK.
TEST_P(HostSequence, AConnectionWithoutAnApplicationItsNameOrAReadableConfigurationStillLoads) {
    ASSERT_HRESULT_SUCCEEDED(CallExport(dll_, "DllRegisterServer"));
    ComPtr<office::_IDTExtensibility2> extensibility;
    ASSERT_HRESULT_SUCCEEDED(
        CreateFromUserClasses(L"PptAddin.Connect", office::IID_IDTExtensibility2,
                              reinterpret_cast<void**>(extensibility.GetAddressOf())));
    SAFEARRAY* custom = nullptr;
    EXPECT_EQ(extensibility->OnConnection(nullptr, office::ext_cm_Startup, nullptr, &custom), S_OK);

    SimHost host(GetParam().kind);
    host.AddPresentation(DeckBuilder().Slide().Text(u"Title", u"Hello").Build());
    FaultRule name;
    name.objectType = u"Application";
    name.member = u"Name";
    host.AddFault(name);
    name.member = u"Version";
    host.AddFault(name);
    // A configuration file that is no JSON and no UTF-8.
    wchar_t local[MAX_PATH] = {};
    ASSERT_GT(::GetEnvironmentVariableW(L"LOCALAPPDATA", local, MAX_PATH), 0u);
    const std::wstring folder = std::wstring(local) + L"\\Quillbrook";
    const std::wstring config = folder + L"\\config.json";
    ::CreateDirectoryW(folder.c_str(), nullptr);
    {
        HANDLE file = ::CreateFileW(config.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
        const char broken[] = "{\"paneWidthPt\": 9x, \"uiLang\": \"\xff\xfe";
        DWORD written = 0;
        ::WriteFile(file, broken, sizeof broken - 1, &written, nullptr);
        ::CloseHandle(file);
    }

    EXPECT_EQ(extensibility->OnConnection(Export(host.Application()).Get(), office::ext_cm_Startup,
                                          nullptr, &custom),
              S_OK);
    ComPtr<office::IRibbonExtensibility> ribbon;
    ComPtr<office::ICustomTaskPaneConsumer> consumer;
    ComPtr<IDispatch> dispatch;
    ASSERT_HRESULT_SUCCEEDED(extensibility->QueryInterface(
        office::IID_IRibbonExtensibility, reinterpret_cast<void**>(ribbon.GetAddressOf())));
    ASSERT_HRESULT_SUCCEEDED(extensibility->QueryInterface(
        office::IID_ICustomTaskPaneConsumer, reinterpret_cast<void**>(consumer.GetAddressOf())));
    ASSERT_HRESULT_SUCCEEDED(extensibility->QueryInterface(
        IID_IDispatch, reinterpret_cast<void**>(dispatch.GetAddressOf())));
    EXPECT_HRESULT_FAILED(ribbon->GetCustomUI(nullptr, nullptr)) << "a null out-pointer";

    // The ribbon and a pane work all the same: English labels from the
    // host's language, the default width.
    TaskPaneFactory factory;
    EXPECT_HRESULT_SUCCEEDED(consumer->CTPFactoryAvailable(&factory));
    auto control = std::make_shared<PropertyObject>(
        std::map<std::u16string, Variant>{{u"Id", Variant::String(u"btnGlossary")}});
    ScopedVariant label;
    ASSERT_HRESULT_SUCCEEDED(CallBack(dispatch.Get(), IdOf(dispatch.Get(), L"GetLabel"),
                                      Export(control).Get(), label.Get()));
    ASSERT_EQ(label.Value().vt, VT_BSTR);
    EXPECT_STREQ(label.Value().bstrVal, L"Glossary");
    EXPECT_HRESULT_SUCCEEDED(
        CallBack(dispatch.Get(), IdOf(dispatch.Get(), L"GlossaryClicked"), Export(control).Get()));
    ASSERT_EQ(factory.All().size(), 1u);
    EXPECT_EQ(factory.All()[0].pane->Property(u"Width"), Variant::I4(520));

    EXPECT_EQ(extensibility->OnBeginShutdown(&custom), S_OK);
    EXPECT_EQ(extensibility->OnDisconnection(office::ext_dm_UserClosed, &custom), S_OK);
    extensibility.Reset();
    ribbon.Reset();
    consumer.Reset();
    dispatch.Reset();
    factory.All().clear();
    ::DeleteFileW(config.c_str());
    EXPECT_HRESULT_SUCCEEDED(CallExport(dll_, "DllUnregisterServer"));
}

// --- The pane in the host: activation, the browser view, whole runs ---------------

std::wstring Env(const wchar_t* name) {
    wchar_t buffer[1024] = {};
    const DWORD n = ::GetEnvironmentVariableW(name, buffer, 1024);
    return n > 0 && n < 1024 ? std::wstring(buffer) : std::wstring();
}

HostRef WindowAt(SimHost& host, std::int32_t index) {
    Variant windows, window;
    Variant at = Variant::I4(index);
    if (FAILED(
            host.Application()->Invoke(u"Windows", host::InvokeKind::Get, nullptr, 0, &windows)) ||
        FAILED(windows.ObjectValue()->InvokeDefault(&at, 1, &window))) {
        return nullptr;
    }
    return window.ObjectValue();
}

// The add-in connected to a simulated host whose task pane factory docks
// and activates each pane, as the host does when a pane is shown.
class PaneDriver : public HostDriver {
  protected:
    void Connect(SimHost& host) {
        ASSERT_HRESULT_SUCCEEDED(CallExport(dll_, "DllRegisterServer"));
        ASSERT_HRESULT_SUCCEEDED(
            CreateFromUserClasses(L"PptAddin.Connect", office::IID_IDTExtensibility2,
                                  reinterpret_cast<void**>(extensibility_.GetAddressOf())));
        ASSERT_HRESULT_SUCCEEDED(extensibility_->QueryInterface(
            IID_IDispatch, reinterpret_cast<void**>(dispatch_.GetAddressOf())));
        ComPtr<office::ICustomTaskPaneConsumer> consumer;
        ASSERT_HRESULT_SUCCEEDED(
            extensibility_->QueryInterface(office::IID_ICustomTaskPaneConsumer,
                                           reinterpret_cast<void**>(consumer.GetAddressOf())));
        SAFEARRAY* custom = nullptr;
        ASSERT_EQ(extensibility_->OnConnection(Export(host.Application()).Get(),
                                               office::ext_cm_Startup, nullptr, &custom),
                  S_OK);
        ASSERT_HRESULT_SUCCEEDED(consumer->CTPFactoryAvailable(&factory_));
    }

    HRESULT Click(const wchar_t* callback, const HostRef& window) {
        auto control = std::make_shared<PropertyObject>(std::map<std::u16string, Variant>{
            {u"Id", Variant::String(u"btn")}, {u"Context", Variant::Object(window)}});
        return CallBack(dispatch_.Get(), IdOf(dispatch_.Get(), callback), Export(control).Get());
    }

    void BeginShutdown() {
        SAFEARRAY* custom = nullptr;
        EXPECT_EQ(extensibility_->OnBeginShutdown(&custom), S_OK);
    }

    // The host's way out, then every object of the add-in must be gone.
    void Disconnect() {
        SAFEARRAY* custom = nullptr;
        EXPECT_EQ(extensibility_->OnDisconnection(office::ext_dm_HostShutdown, &custom), S_OK);
        extensibility_.Reset();
        dispatch_.Reset();
        factory_.CloseAll();
        // Completions the view posted before it closed still arrive.
        PumpUntil([] { return false; }, 300);
        EXPECT_EQ(CallExport(dll_, "DllCanUnloadNow"), S_OK)
            << "every object of the add-in released";
        EXPECT_HRESULT_SUCCEEDED(CallExport(dll_, "DllUnregisterServer"));
    }

    // The browser stand-in, fresh, its page calling the stand-in service.
    static void UseStandIn(StandIn& standIn, const std::wstring& port) {
        ASSERT_TRUE(standIn.Load());
        standIn.Reset();
        ASSERT_HRESULT_SUCCEEDED(
            standIn.Service(L"127.0.0.1", static_cast<unsigned>(std::stoul(port))));
    }

    ComPtr<office::_IDTExtensibility2> extensibility_;
    ComPtr<IDispatch> dispatch_;
    TaskPaneFactory factory_{true};
};

// Runs first of the pane suites: the loader must not be loaded yet when it
// is taken away.
TEST_F(PaneDriver, BringUpFailuresAreLoggedShownOnceAndLeaveThePaneClosable) {
    SimHost host(HostKind::PowerPoint);
    for (int i = 0; i < 5; ++i)
        host.AddPresentation(DeckBuilder().Slide().Text(u"Title", u"Hello").Build());
    Connect(host);
    BoxAnswerer answerer;
    const int answeredBefore = BoxAnswerer::Answered();

    // No loader beside the add-in.
    const std::wstring loader = DriverFolder() + L"WebView2Loader.dll";
    const std::wstring away = loader + L".away";
    ASSERT_TRUE(::MoveFileExW(loader.c_str(), away.c_str(), MOVEFILE_REPLACE_EXISTING));
    std::string before = AddinLog();
    EXPECT_HRESULT_SUCCEEDED(Click(L"TranslateFullDocClicked", WindowAt(host, 1)));
    ASSERT_TRUE(::MoveFileExW(away.c_str(), loader.c_str(), MOVEFILE_REPLACE_EXISTING));
    const std::string missing = "PptPane WebView2 create failed hr=0x8007007E";
    EXPECT_EQ(Occurrences(AddinLog(), missing), Occurrences(before, missing) + 1);
    EXPECT_EQ(BoxAnswerer::Answered(), answeredBefore + 1) << "the failure dialog";
    EXPECT_EQ(ClipboardText(), L"Quillbrook-1") << "the support id, copied after the dialog";

    StandIn standIn;
    ASSERT_TRUE(standIn.Load());
    struct Case {
        int step;
        HRESULT hr;
        const char* line;
    };
    const Case cases[] = {
        {QbStandInFailCreate, E_ACCESSDENIED, "PptPane WebView2 create failed hr=0x80070005"},
        {QbStandInFailEnvironment, E_ABORT, "PptPane WebView2 environment failed hr=0x80004004"},
        {QbStandInFailController, E_OUTOFMEMORY,
         "PptPane WebView2 controller failed hr=0x8007000E"},
        {QbStandInFailCoreView, S_OK, "PptPane WebView2 core failed hr=0x80004005"},
    };
    std::int32_t window = 2;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        standIn.Reset();
        ASSERT_HRESULT_SUCCEEDED(standIn.Fail(c.step, c.hr));
        before = AddinLog();
        EXPECT_HRESULT_SUCCEEDED(Click(L"TranslateFullDocClicked", WindowAt(host, window++)));
        EXPECT_TRUE(PumpUntil(
            [&] { return Occurrences(AddinLog(), c.line) > Occurrences(before, c.line); }, 20000));
        const JsonValue report = standIn.Report();
        const JsonValue* navigations = report.Find(u"navigations");
        ASSERT_TRUE(navigations && navigations->IsArray());
        EXPECT_TRUE(navigations->Items().empty()) << "a failed bring-up shows no page";
        if (c.step == QbStandInFailCoreView) {
            EXPECT_EQ(standIn.Count(u"controllersClosed"), 1) << "the controller without a view";
        }
    }
    EXPECT_EQ(BoxAnswerer::Answered(), answeredBefore + 1) << "one dialog in a process";
    ASSERT_EQ(factory_.All().size(), 5u);
    for (const auto& created : factory_.All())
        EXPECT_HRESULT_SUCCEEDED(created.activation);

    before = AddinLog();
    BeginShutdown();
    EXPECT_EQ(Occurrences(AddinLog(), "PptPane BeginShutdownEarly"),
              Occurrences(before, "PptPane BeginShutdownEarly") + 5);
    Disconnect();
}

TEST_F(PaneDriver, TranslatesADeckThroughThePaneAndItsViewAsTheFrontEndDoes) {
    const std::wstring deckPath = Env(L"QB_SAMPLE_DECK");
    const std::wstring expectedPath = Env(L"QB_EXPECTED_DECK");
    const std::wstring port = Env(L"QB_STAND_IN_PORT");
    if (deckPath.empty() || expectedPath.empty() || port.empty()) {
        GTEST_SKIP() << "needs QB_SAMPLE_DECK, QB_EXPECTED_DECK and QB_STAND_IN_PORT, which the "
                        "test command sets";
    }
    DeckLoadResult loaded = LoadDeckFile(FromWide(deckPath.c_str()));
    ASSERT_TRUE(loaded.error.empty()) << loaded.error;
    DeckLoadResult expected = LoadDeckFile(FromWide(expectedPath.c_str()));
    ASSERT_TRUE(expected.error.empty()) << expected.error;
    ASSERT_NE(WriteDeck(expected), WriteDeck(loaded)) << "the front end translated the deck";
    SimHost host(loaded.kind);
    const auto deck = OpenDeck(host, loaded);

    StandIn standIn;
    ASSERT_NO_FATAL_FAILURE(UseStandIn(standIn, port));
    Connect(host);

    EXPECT_HRESULT_SUCCEEDED(Click(L"TranslateFullDocClicked", WindowAt(host, 1)));
    ASSERT_EQ(factory_.All().size(), 1u);
    const auto& created = factory_.All()[0];
    EXPECT_HRESULT_SUCCEEDED(created.activation);
    EXPECT_EQ(created.site->activated, 1);
    EXPECT_EQ(created.site->shown, 1);
    ASSERT_TRUE(PumpUntil([&] { return standIn.Count(u"navigationsCompleted") >= 1; }, 30000))
        << "the view came up and showed its first page";
    {
        const JsonValue report = standIn.Report();
        const JsonValue* folder = report.Find(u"userDataFolder");
        ASSERT_TRUE(folder && folder->IsString());
        const std::u16string suffix = u"\\Quillbrook\\WebView2";
        EXPECT_EQ(folder->StringValue().substr(folder->StringValue().size() - suffix.size()),
                  suffix);
        EXPECT_TRUE(report.Find(u"visible")->BoolValue());
        EXPECT_FALSE(report.Find(u"devTools")->BoolValue());
        EXPECT_FALSE(report.Find(u"statusBar")->BoolValue());
        const JsonValue* bounds = report.Find(u"lastBounds");
        RECT client{};
        ::GetClientRect(created.frame, &client);
        ASSERT_TRUE(bounds && bounds->IsObject());
        EXPECT_EQ(bounds->Find(u"right")->IntegerValue() - bounds->Find(u"left")->IntegerValue(),
                  client.right - client.left)
            << "the view fills the pane";
        const JsonValue* navigations = report.Find(u"navigations");
        ASSERT_TRUE(navigations && navigations->IsArray() && !navigations->Items().empty());
        const std::u16string first = navigations->Items()[0].StringValue();
        // The translate page, in the mode of the button clicked.
        EXPECT_NE(first.find(u"/panel/ppt/?"), std::u16string::npos) << Utf16ToUtf8(first);
        EXPECT_NE(first.find(u"&mode=full"), std::u16string::npos) << Utf16ToUtf8(first);
    }

    ASSERT_HRESULT_SUCCEEDED(
        standIn.Send(u"{\"action\":\"setAccessToken\",\"accessToken\":\"stand-in-token\"}"));
    ASSERT_HRESULT_SUCCEEDED(
        standIn.Send(u"{\"action\":\"start\",\"panelMode\":\"full\",\"sourceLang\":\"auto\","
                     u"\"targetLang\":\"de\"}"));
    ASSERT_TRUE(PumpUntil(
        [&] {
            return standIn.Events(u"onComplete") + standIn.Events(u"onError") +
                       standIn.Events(u"onCancelled") >
                   0;
        },
        900000));
    EXPECT_EQ(standIn.Events(u"onComplete"), 1);
    EXPECT_EQ(standIn.Events(u"onError"), 0);
    EXPECT_GT(standIn.Count(u"serviceCalls"), 0) << "batches went through the page";
    EXPECT_EQ(standIn.Count(u"servicePending"), 0);

    // The deck as the front end left it from the same file.
    EXPECT_EQ(WriteDeck(CaptureDeck(host, deck)), WriteDeck(expected));

    BeginShutdown();
    EXPECT_EQ(standIn.Count(u"controllersClosed"), 1);
    Disconnect();
}

// A host that never activates the control in a site of its own but hands
// DoVerb a parent window: the control makes its window there, and the
// container's rectangles move it.
TEST_F(PaneDriver, AControlWithoutASiteMakesItsWindowInTheParentDoVerbGives) {
    ASSERT_HRESULT_SUCCEEDED(CallExport(dll_, "DllRegisterServer"));
    StandIn standIn;
    ASSERT_TRUE(standIn.Load());
    standIn.Reset();
    {
        ComPtr<IOleObject> object;
        ASSERT_HRESULT_SUCCEEDED(
            CreateFromUserClasses(L"Quillbrook.PptPane", IID_IOleObject,
                                  reinterpret_cast<void**>(object.GetAddressOf())));
        ComPtr<IOleWindow> window;
        ASSERT_HRESULT_SUCCEEDED(object.As(&window));
        SIZEL extent{};
        EXPECT_HRESULT_SUCCEEDED(object->GetExtent(DVASPECT_CONTENT, &extent));
        EXPECT_EQ(extent.cx, 5080);
        EXPECT_EQ(extent.cy, 5080);
        DWORD misc = 0;
        EXPECT_HRESULT_SUCCEEDED(object->GetMiscStatus(DVASPECT_CONTENT, &misc));
        EXPECT_EQ(misc, 131473u) << "as the class's registration says";

        // No site and no parent: nothing to make a window in.
        std::string before = AddinLog();
        EXPECT_EQ(object->DoVerb(OLEIVERB_INPLACEACTIVATE, nullptr, nullptr, 0, nullptr, nullptr),
                  S_OK);
        HWND hwnd = nullptr;
        EXPECT_EQ(window->GetWindow(&hwnd), E_FAIL);
        EXPECT_EQ(Occurrences(AddinLog(), "CPptPane fallback create"),
                  Occurrences(before, "CPptPane fallback create"));

        // A parent: the window is made in it, and the view comes up once.
        const HWND parent = MakePaneFrame();
        ASSERT_NE(parent, nullptr);
        EXPECT_EQ(object->DoVerb(OLEIVERB_SHOW, nullptr, nullptr, 0, parent, nullptr), S_OK);
        ASSERT_HRESULT_SUCCEEDED(window->GetWindow(&hwnd));
        EXPECT_EQ(::GetParent(hwnd), parent);
        EXPECT_EQ(static_cast<DWORD>(::GetWindowLongW(hwnd, GWL_STYLE)) & 0x56000000u, 0x56000000u);
        EXPECT_EQ(Occurrences(AddinLog(), "CPptPane fallback create OK"),
                  Occurrences(before, "CPptPane fallback create OK") + 1);
        ASSERT_TRUE(PumpUntil([&] { return standIn.Count(u"navigationsCompleted") >= 1; }, 30000));
        EXPECT_EQ(object->DoVerb(OLEIVERB_SHOW, nullptr, nullptr, 0, parent, nullptr), S_OK);
        PumpUntil([] { return false; }, 200);
        EXPECT_EQ(Occurrences(AddinLog(), "CPptPane InitWebView begin"),
                  Occurrences(before, "CPptPane InitWebView begin") + 1)
            << "the view comes up once in a pane's life";
        EXPECT_EQ(standIn.Count(u"environments"), 1);

        // The container's rectangles: the window moves, the view follows.
        ComPtr<IOleInPlaceObject> inPlace;
        ASSERT_HRESULT_SUCCEEDED(object.As(&inPlace));
        const RECT position{10, 20, 310, 420};
        EXPECT_HRESULT_SUCCEEDED(inPlace->SetObjectRects(&position, &position));
        RECT placed{};
        ::GetWindowRect(hwnd, &placed);
        ::MapWindowPoints(nullptr, parent, reinterpret_cast<POINT*>(&placed), 2);
        EXPECT_EQ(placed.left, 10);
        EXPECT_EQ(placed.top, 20);
        EXPECT_EQ(placed.right - placed.left, 300);
        EXPECT_EQ(placed.bottom - placed.top, 400);
        const JsonValue report = standIn.Report();
        const JsonValue* bounds = report.Find(u"lastBounds");
        ASSERT_TRUE(bounds && bounds->IsObject());
        EXPECT_EQ(bounds->Find(u"right")->IntegerValue(), 300);
        EXPECT_EQ(bounds->Find(u"bottom")->IntegerValue(), 400);

        // Its window's end closes the pane and its view.
        before = AddinLog();
        ::DestroyWindow(parent);
        EXPECT_FALSE(::IsWindow(hwnd));
        EXPECT_EQ(Occurrences(AddinLog(), "PptPane BeginShutdownEarly"),
                  Occurrences(before, "PptPane BeginShutdownEarly") + 1);
        EXPECT_EQ(standIn.Count(u"controllersClosed"), 1);
    }
    EXPECT_EQ(CallExport(dll_, "DllCanUnloadNow"), S_OK) << "every object of the add-in released";
    EXPECT_HRESULT_SUCCEEDED(CallExport(dll_, "DllUnregisterServer"));
}

TEST_F(PaneDriver, HostShutdownDuringARunCancelsItAndClosesTheView) {
    const std::wstring port = Env(L"QB_STAND_IN_PORT");
    if (port.empty()) GTEST_SKIP() << "needs QB_STAND_IN_PORT, which the test command sets";
    SimHost host(HostKind::PowerPoint);
    DeckBuilder builder;
    for (int i = 1; i <= 8; ++i)
        builder.Slide().Text(u"Body", u"Slide number " + DecimalText(i) + u" says hello.");
    host.AddPresentation(builder.Build());
    StandIn standIn;
    ASSERT_NO_FATAL_FAILURE(UseStandIn(standIn, port));
    Connect(host);
    EXPECT_HRESULT_SUCCEEDED(Click(L"TranslateFullDocClicked", WindowAt(host, 1)));
    ASSERT_TRUE(PumpUntil([&] { return standIn.Count(u"navigationsCompleted") >= 1; }, 30000));
    ASSERT_HRESULT_SUCCEEDED(standIn.Send(
        u"{\"action\":\"start\",\"accessToken\":\"stand-in-token\",\"targetLang\":\"de\"}"));
    ASSERT_TRUE(PumpUntil([&] { return standIn.Events(u"onProgress") > 0; }, 60000));

    const std::string before = AddinLog();
    BeginShutdown();
    const std::string after = AddinLog();
    EXPECT_EQ(Occurrences(after, "PptPane BeginShutdownEarly"),
              Occurrences(before, "PptPane BeginShutdownEarly") + 1);
    EXPECT_EQ(Occurrences(after, "run worker busy"), Occurrences(before, "run worker busy"));
    EXPECT_EQ(standIn.Count(u"controllersClosed"), 1);
    const std::int64_t eventsAtShutdown = standIn.Events(u"onProgress");
    PumpUntil([] { return false; }, 500);
    EXPECT_EQ(standIn.Events(u"onComplete"), 0);
    EXPECT_EQ(standIn.Events(u"onProgress"), eventsAtShutdown) << "nothing reaches a closed page";
    Disconnect();
}

INSTANTIATE_TEST_SUITE_P(Hosts, HostSequence,
                         ::testing::Values(HostCase{"PowerPoint", HostKind::PowerPoint},
                                           HostCase{"WpsPresentation", HostKind::Wps}),
                         [](const ::testing::TestParamInfo<HostCase>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
}  // namespace qb::sim
