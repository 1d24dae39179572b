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
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "foundation/com_win.h"
#include "foundation/text.h"
#include "foundation/wide_win.h"
#include "shell/office_win.h"
#include "sim/dispatch/export_win.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_host.h"
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

// The host's task pane factory: creates the control by its ProgID from the
// per-user classes, and hands out a task pane object for it.
class TaskPaneFactory final : public office::ICTPFactory {
  public:
    struct Created {
        std::wstring progId;
        std::wstring title;
        ComPtr<IUnknown> control;
        std::shared_ptr<PropertyObject> pane;
    };

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
        Created created{progId ? progId : L"", title ? title : L"", nullptr, nullptr};
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
        created_.push_back(std::move(created));
        *out = pane.Detach();
        return S_OK;
    }

    std::vector<Created>& All() { return created_; }

  private:
    ULONG refs_ = 1;
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
    HMODULE module = ::GetModuleHandleW(dll_.c_str());
    ASSERT_NE(module, nullptr);
    auto canUnload = reinterpret_cast<DllFunction>(
        reinterpret_cast<void*>(::GetProcAddress(module, "DllCanUnloadNow")));
    ASSERT_NE(canUnload, nullptr);
    EXPECT_EQ(canUnload(), S_OK) << "every object of the add-in released";

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

INSTANTIATE_TEST_SUITE_P(Hosts, HostSequence,
                         ::testing::Values(HostCase{"PowerPoint", HostKind::PowerPoint},
                                           HostCase{"WpsPresentation", HostKind::Wps}),
                         [](const ::testing::TestParamInfo<HostCase>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
}  // namespace qb::sim
