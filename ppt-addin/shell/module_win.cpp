// The DLL server: its entry point, the four exports, the object map of the
// two classes, and registration for the current user only (nothing under
// HKEY_LOCAL_MACHINE, so no administrator rights are needed).
#include <windows.h>

#include <oleauto.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/text.h"
#include "foundation/trace.h"
#include "foundation/wide_win.h"
#include "shell/com_object_win.h"
#include "shell/connect_win.h"
#include "shell/office_win.h"
#include "shell/registry_script.h"

// In liboleaut32 but not declared by MinGW's headers.
extern "C" {
HRESULT WINAPI RegisterTypeLibForUser(ITypeLib* library, OLECHAR* fullPath, OLECHAR* helpDir);
HRESULT WINAPI UnRegisterTypeLibForUser(REFGUID libid, WORD major, WORD minor, LCID lcid,
                                        SYSKIND syskind);
}

namespace qb {

namespace com {
std::atomic<long>& ModuleLocks() {
    static std::atomic<long> locks{0};
    return locks;
}
}  // namespace com

namespace shell {

namespace {

HINSTANCE g_instance = nullptr;

constexpr char16_t kAddinsKey[] =
    u"SOFTWARE\\Microsoft\\Office\\PowerPoint\\Addins\\PptAddin.Connect";
constexpr char16_t kAddinsWlKey[] = u"SOFTWARE\\Kingsoft\\Office\\WPP\\AddinsWL";
constexpr char16_t kProgId[] = u"PptAddin.Connect";

#ifdef _WIN64
constexpr SYSKIND kSysKind = SYS_WIN64;
#else
constexpr SYSKIND kSysKind = SYS_WIN32;
#endif

struct ObjectMapEntry {
    const CLSID* clsid;
    IClassFactory* factory;
    int registryScript;
};

com::ClassFactory<&CreateConnect> g_connectFactory;
com::ClassFactory<&CreatePane> g_paneFactory;

const ObjectMapEntry kObjectMap[] = {
    {&office::CLSID_Connect, &g_connectFactory, 101},
    {&office::CLSID_Pane, &g_paneFactory, 102},
};

HRESULT FromWin32(LSTATUS status) {
    return status == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(static_cast<DWORD>(status));
}

// The registry walks' writer over HKEY_CURRENT_USER.
class UserRegistry final : public RegistryWriter {
  public:
    HRESULT CreateKey(const std::u16string& path) override {
        HKEY key = nullptr;
        const LSTATUS status = ::RegCreateKeyExW(HKEY_CURRENT_USER, AsWide(path), 0, nullptr, 0,
                                                 KEY_WRITE, nullptr, &key, nullptr);
        if (key) ::RegCloseKey(key);
        return FromWin32(status);
    }
    HRESULT SetValue(const std::u16string& path, const RegistryValue& value) override {
        HKEY key = nullptr;
        LSTATUS status = ::RegOpenKeyExW(HKEY_CURRENT_USER, AsWide(path), 0, KEY_SET_VALUE, &key);
        if (status != ERROR_SUCCESS) return FromWin32(status);
        const wchar_t* name = value.name.empty() ? nullptr : AsWide(value.name);
        if (value.dword) {
            const DWORD number = value.number;
            status = ::RegSetValueExW(key, name, 0, REG_DWORD,
                                      reinterpret_cast<const BYTE*>(&number), sizeof number);
        } else {
            status = ::RegSetValueExW(key, name, 0, REG_SZ,
                                      reinterpret_cast<const BYTE*>(AsWide(value.text)),
                                      static_cast<DWORD>((value.text.size() + 1) * 2));
        }
        ::RegCloseKey(key);
        return FromWin32(status);
    }
    HRESULT DeleteTree(const std::u16string& path) override {
        const LSTATUS status = ::RegDeleteTreeW(HKEY_CURRENT_USER, AsWide(path));
        if (status == ERROR_FILE_NOT_FOUND) return S_OK;
        if (status != ERROR_SUCCESS) return FromWin32(status);
        // RegDeleteTree empties the key; the key itself goes here.
        const LSTATUS gone = ::RegDeleteKeyW(HKEY_CURRENT_USER, AsWide(path));
        return gone == ERROR_FILE_NOT_FOUND ? S_OK : FromWin32(gone);
    }
    HRESULT DeleteValue(const std::u16string& path, const std::u16string& name) override {
        HKEY key = nullptr;
        LSTATUS status = ::RegOpenKeyExW(HKEY_CURRENT_USER, AsWide(path), 0, KEY_SET_VALUE, &key);
        if (status == ERROR_FILE_NOT_FOUND) return S_OK;
        if (status != ERROR_SUCCESS) return FromWin32(status);
        status = ::RegDeleteValueW(key, AsWide(name));
        ::RegCloseKey(key);
        return status == ERROR_FILE_NOT_FOUND ? S_OK : FromWin32(status);
    }
    bool IsEmptyKey(const std::u16string& path) override {
        HKEY key = nullptr;
        if (::RegOpenKeyExW(HKEY_CURRENT_USER, AsWide(path), 0, KEY_READ, &key) != ERROR_SUCCESS) {
            return false;
        }
        DWORD subkeys = 0, values = 0;
        const LSTATUS status =
            ::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values,
                               nullptr, nullptr, nullptr, nullptr);
        ::RegCloseKey(key);
        return status == ERROR_SUCCESS && subkeys == 0 && values == 0;
    }
};

HRESULT ScriptOf(int id, std::vector<RegistryKey>& roots) {
    const void* data = nullptr;
    DWORD size = 0;
    if (!LoadModuleResource(L"REGISTRY", id, data, size)) {
        return HRESULT_FROM_WIN32(ERROR_RESOURCE_DATA_NOT_FOUND);
    }
    std::u16string error;
    if (!ParseRegistryScript(Utf8ToUtf16(std::string_view(static_cast<const char*>(data), size)),
                             ModulePath(), roots, error)) {
        Trace(u"PPT registry script " + DecimalText(id) + u" unreadable: " + error + u"\r\n");
        return E_UNEXPECTED;
    }
    return S_OK;
}

// The scripts run with the system's default locale, as the keys hold
// numbers and identifiers only.
class SystemLocale {
  public:
    SystemLocale() : saved_(::GetThreadLocale()) { ::SetThreadLocale(LOCALE_SYSTEM_DEFAULT); }
    ~SystemLocale() { ::SetThreadLocale(saved_); }

  private:
    LCID saved_;
};

// The add-in keys written again after the scripts, with the values only
// this step writes (the Chinese Description, CommandLineSafe).
HRESULT WriteAddinKeys(RegistryWriter& registry) {
    const RegistryValue values[] = {
        {u"FriendlyName", false, u"Quillbrook PowerPoint", 0},
        {u"Description", false,
         u"\u6574\u4EFD\u3001\u5F53\u524D\u9875\u6216\u9009\u533A\u7FFB\u8BD1"
         u"\uFF0C\u4FDD\u7559\u7248\u5F0F\u5199\u56DE\u5E7B\u706F\u7247\u3002",
         0},
        {u"LoadBehavior", true, u"", 3},
        {u"CommandLineSafe", true, u"", 1},
    };
    HRESULT hr = registry.CreateKey(kAddinsKey);
    for (const RegistryValue& value : values) {
        if (FAILED(hr)) return hr;
        hr = registry.SetValue(kAddinsKey, value);
    }
    if (FAILED(hr)) return hr;
    // A machine without WPS registers all the same.
    if (SUCCEEDED(registry.CreateKey(kAddinsWlKey))) {
        (void)registry.SetValue(kAddinsWlKey, RegistryValue{kProgId, false, u"", 0});
    }
    return S_OK;
}

}  // namespace

HINSTANCE ModuleInstance() {
    return g_instance;
}

void SetModuleInstance(HINSTANCE instance) {
    g_instance = instance;
}

std::u16string ModulePath() {
    wchar_t buffer[MAX_PATH] = {};
    const DWORD n = ::GetModuleFileNameW(g_instance, buffer, MAX_PATH);
    return n == 0 || n >= MAX_PATH ? std::u16string() : FromWide(buffer, n);
}

bool LoadModuleResource(const wchar_t* type, int id, const void*& data, DWORD& size) {
    HRSRC found = ::FindResourceW(g_instance, MAKEINTRESOURCEW(id), type);
    if (!found) return false;
    HGLOBAL loaded = ::LoadResource(g_instance, found);
    data = loaded ? ::LockResource(loaded) : nullptr;
    size = ::SizeofResource(g_instance, found);
    return data != nullptr;
}

HRESULT RegisterServer() {
    UserRegistry registry;
    {
        SystemLocale locale;
        for (const ObjectMapEntry& entry : kObjectMap) {
            std::vector<RegistryKey> roots;
            HRESULT hr = ScriptOf(entry.registryScript, roots);
            if (SUCCEEDED(hr)) hr = RegisterScript(roots, registry);
            if (FAILED(hr)) return hr;
        }
    }
    ITypeLib* library = nullptr;
    std::u16string path = ModulePath();
    HRESULT hr = ::LoadTypeLib(AsWide(path), &library);
    if (FAILED(hr)) return hr;
    hr = ::RegisterTypeLibForUser(library, const_cast<OLECHAR*>(AsWide(path)), nullptr);
    library->Release();
    if (FAILED(hr)) return hr;
    return WriteAddinKeys(registry);
}

HRESULT UnregisterServer() {
    UserRegistry registry;
    HRESULT result = S_OK;
    for (const ObjectMapEntry& entry : kObjectMap) {
        std::vector<RegistryKey> roots;
        HRESULT hr = ScriptOf(entry.registryScript, roots);
        if (SUCCEEDED(hr)) hr = UnregisterScript(roots, registry);
        if (SUCCEEDED(result) && FAILED(hr)) result = hr;
    }
    (void)::UnRegisterTypeLibForUser(office::LIBID_PptAddinLib, 1, 0, 0, kSysKind);
    (void)::RegDeleteKeyW(HKEY_CURRENT_USER, AsWide(kAddinsKey));
    HKEY allowList = nullptr;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, AsWide(kAddinsWlKey), 0, KEY_SET_VALUE, &allowList) ==
        ERROR_SUCCESS) {
        (void)::RegDeleteValueW(allowList, AsWide(kProgId));
        ::RegCloseKey(allowList);
    }
    return result;
}

HRESULT GetClassObject(REFCLSID clsid, REFIID iid, void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!g_instance) return E_UNEXPECTED;
    for (const ObjectMapEntry& entry : kObjectMap) {
        if (::IsEqualCLSID(clsid, *entry.clsid)) return entry.factory->QueryInterface(iid, out);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

}  // namespace shell
}  // namespace qb

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        qb::shell::SetModuleInstance(instance);
        ::DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

HRESULT STDAPICALLTYPE DllCanUnloadNow() {
    return qb::com::ModuleLocks().load() == 0 ? S_OK : S_FALSE;
}

HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
    try {
        return qb::shell::GetClassObject(clsid, iid, out);
    } catch (...) {
        return E_UNEXPECTED;
    }
}

HRESULT STDAPICALLTYPE DllRegisterServer() {
    try {
        return qb::shell::RegisterServer();
    } catch (...) {
        return E_UNEXPECTED;
    }
}

HRESULT STDAPICALLTYPE DllUnregisterServer() {
    try {
        return qb::shell::UnregisterServer();
    } catch (...) {
        return E_UNEXPECTED;
    }
}

}  // extern "C"
