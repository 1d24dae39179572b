// The add-in's two registration scripts as shipped, registered into and
// removed from a registry held in a map, and the script reader's errors.
#include <gtest/gtest.h>

#include <map>

#include "foundation/text.h"
#include "shell/registry_script.h"
#include "shell/shell_support.h"

namespace qb {
namespace {

using test::U8;

constexpr char16_t kModule[] = u"C:\\Program Files (x86)\\Quill Brook\\ppt addin.dll";

// HKCU as a map of key paths to their values; a key's parents exist as keys.
class MapRegistry : public RegistryWriter {
  public:
    using Values = std::map<std::u16string, RegistryValue>;
    std::map<std::u16string, Values> keys;
    const char16_t* failSetValue = nullptr;  // a value name whose SetValue is refused

    HRESULT CreateKey(const std::u16string& path) override {
        for (std::size_t at = path.find(u'\\'); at != std::u16string::npos;
             at = path.find(u'\\', at + 1)) {
            keys[path.substr(0, at)];
        }
        keys[path];
        return S_OK;
    }
    HRESULT SetValue(const std::u16string& path, const RegistryValue& value) override {
        if (failSetValue && value.name == failSetValue) return E_ACCESSDENIED;
        if (!keys.count(path)) return E_FAIL;  // values go only into keys made first
        keys[path][value.name] = value;
        return S_OK;
    }
    HRESULT DeleteTree(const std::u16string& path) override {
        const std::u16string below = path + u"\\";
        for (auto it = keys.begin(); it != keys.end();) {
            it = it->first == path || it->first.rfind(below, 0) == 0 ? keys.erase(it) : ++it;
        }
        return S_OK;
    }
    HRESULT DeleteValue(const std::u16string& path, const std::u16string& name) override {
        const auto it = keys.find(path);
        if (it != keys.end()) it->second.erase(name);
        return S_OK;
    }
    bool IsEmptyKey(const std::u16string& path) override {
        const auto it = keys.find(path);
        if (it == keys.end() || !it->second.empty()) return false;
        const std::u16string below = path + u"\\";
        const auto sub = keys.lower_bound(below);
        return sub == keys.end() || sub->first.rfind(below, 0) != 0;
    }

    // "name=s:text" or "name=d:n" per value, for comparisons.
    std::map<std::u16string, std::u16string> Flat() const {
        std::map<std::u16string, std::u16string> flat;
        for (const auto& [path, values] : keys) {
            flat[path] = u"(key)";
            for (const auto& [name, v] : values) {
                flat[path + u"|" + name] =
                    v.dword ? u"d:" + DecimalText(static_cast<long long>(v.number))
                            : u"s:" + v.text;
            }
        }
        return flat;
    }
};

std::u16string ResourcePath(const char* file) {
#if defined(_WIN32)
    const std::string root = std::string("Z:") + QB_SOURCE_DIR;  // Wine's view of the tree
#else
    const std::string root = QB_SOURCE_DIR;
#endif
    return Utf8ToUtf16(root + "/ppt-addin/resources/" + file);
}

std::vector<RegistryKey> Script(const char* file, std::u16string_view module = kModule) {
    const std::string bytes = test::ReadFileBytes(ResourcePath(file));
    std::vector<RegistryKey> roots;
    std::u16string error;
    EXPECT_TRUE(ParseRegistryScript(Utf8ToUtf16(bytes), module, roots, error))
        << file << ": " << U8(error);
    EXPECT_FALSE(roots.empty()) << file;
    return roots;
}

// What a user's HKCU holds before any add-in: the keys the scripts never remove.
MapRegistry FreshRegistry() {
    MapRegistry registry;
    for (const char16_t* key : {u"Software\\Classes\\CLSID", u"Software\\Microsoft"})
        registry.CreateKey(key);
    return registry;
}

const char16_t kConnectClsid[] =
    u"Software\\Classes\\CLSID\\{5B9C1E43-AF66-4F7D-BC38-94E7FA0512C3}";
const char16_t kPaneClsid[] = u"Software\\Classes\\CLSID\\{B0C1D2E3-4F5A-6B7C-8D9E-0F1A2B3C4D5E}";
const char16_t kAddins[] = u"Software\\Microsoft\\Office\\PowerPoint\\Addins";
const char16_t kWhiteList[] = u"Software\\Kingsoft\\Office\\WPP\\AddinsWL";

TEST(RegistryScript, BothScriptsRegisterEveryKeyAndValue) {
    const std::u16string module(kModule);
    const std::u16string connect(kConnectClsid), pane(kPaneClsid), addins(kAddins);
    const struct {
        std::u16string key, value, data;  // data "" with value "(key)": the key only
    } expected[] = {
        {u"Software\\Classes\\PptAddin.Connect.1", u"", u"s:Connect Class"},
        {u"Software\\Classes\\PptAddin.Connect.1\\CLSID", u"",
         u"s:{5B9C1E43-AF66-4F7D-BC38-94E7FA0512C3}"},
        {u"Software\\Classes\\PptAddin.Connect\\CurVer", u"", u"s:PptAddin.Connect.1"},
        {connect, u"", u"s:Connect Class"},
        {connect + u"\\ProgID", u"", u"s:PptAddin.Connect.1"},
        {connect + u"\\Programmable", u"(key)", u""},
        {connect + u"\\InprocServer32", u"", u"s:" + module},
        {connect + u"\\InprocServer32", u"ThreadingModel", u"s:Apartment"},
        {addins + u"\\PptAddin.Connect", u"LoadBehavior", u"d:3"},
        {addins + u"\\PptAddin.Connect", u"FriendlyName", u"s:Quillbrook PowerPoint"},
        {addins + u"\\PptAddin.Connect", u"Description",
         u"s:Quillbrook PowerPoint AI assistant add-in"},
        {kWhiteList, u"PptAddin.Connect", u"s:"},
        {u"Software\\Classes\\Quillbrook.PptPane\\CLSID", u"",
         u"s:{B0C1D2E3-4F5A-6B7C-8D9E-0F1A2B3C4D5E}"},
        {u"Software\\Classes\\Quillbrook.PptPane.1", u"", u"s:Quillbrook PowerPoint Pane"},
        {pane + u"\\InprocServer32", u"", u"s:" + module},
        {pane + u"\\InprocServer32", u"ThreadingModel", u"s:Apartment"},
        {pane + u"\\Control", u"(key)", u""},
        {pane + u"\\Insertable", u"(key)", u""},
        {pane + u"\\MiscStatus", u"", u"s:0"},
        {pane + u"\\MiscStatus\\1", u"", u"s:131473"},
    };
    MapRegistry registry = FreshRegistry();
    for (const char* file : {"connect.rgs", "pane.rgs"})
        ASSERT_EQ(RegisterScript(Script(file), registry), S_OK) << file;
    const auto flat = registry.Flat();
    for (const auto& e : expected) {
        const std::u16string at = e.value == u"(key)" ? e.key : e.key + u"|" + e.value;
        const auto it = flat.find(at);
        ASSERT_NE(it, flat.end()) << U8(at);
        if (e.value != u"(key)") {
            EXPECT_EQ(U8(it->second), U8(e.data)) << U8(at);
        }
    }
    // A second registration changes nothing.
    for (const char* file : {"connect.rgs", "pane.rgs"})
        ASSERT_EQ(RegisterScript(Script(file), registry), S_OK) << file;
    EXPECT_EQ(registry.Flat(), flat);
}

TEST(RegistryScript, RemovalLeavesTheRegistryAsItWas) {
    MapRegistry untouched = FreshRegistry();
    MapRegistry crowded = FreshRegistry();
    crowded.CreateKey(std::u16string(kAddins) + u"\\Other.Connect");
    crowded.SetValue(std::u16string(kAddins) + u"\\Other.Connect",
                     RegistryValue{u"LoadBehavior", true, u"", 3});
    crowded.CreateKey(kWhiteList);
    crowded.SetValue(kWhiteList, RegistryValue{u"Other.Connect", false, u"", 0});
    crowded.CreateKey(u"Software\\Classes\\CLSID\\{00000000-1111-2222-3333-444444444444}");
    for (MapRegistry* registry : {&untouched, &crowded}) {
        const auto before = registry->Flat();
        for (const char* file : {"connect.rgs", "pane.rgs"}) {
            const std::vector<RegistryKey> roots = Script(file);
            ASSERT_EQ(RegisterScript(roots, *registry), S_OK) << file;
            EXPECT_NE(registry->Flat(), before) << file;
            EXPECT_EQ(UnregisterScript(roots, *registry), S_OK) << file;
        }
        EXPECT_EQ(registry->Flat(), before);
    }
    // Nothing registered: removal still succeeds and removes nothing.
    MapRegistry empty;
    for (const char* file : {"connect.rgs", "pane.rgs"})
        EXPECT_EQ(UnregisterScript(Script(file), empty), S_OK) << file;
    EXPECT_TRUE(empty.keys.empty());
}

TEST(RegistryScript, AnApostropheInTheModulePathIsKeptAsItIs) {
    // Per-user installs live under the profile, whose name may hold a quote.
    const std::u16string module = u"C:\\Users\\O'Brien\\AppData\\Local\\Quillbrook\\addin.dll";
    MapRegistry registry = FreshRegistry();
    ASSERT_EQ(RegisterScript(Script("connect.rgs", module), registry), S_OK);
    EXPECT_EQ(U8(registry.Flat()[std::u16string(kConnectClsid) + u"\\InprocServer32|"]),
              U8(u"s:" + module));
}

TEST(RegistryScript, AKeyWithItsOwnDefaultValueGoesWhenNothingElseIsLeft) {
    std::vector<RegistryKey> roots;
    std::u16string error;
    ASSERT_TRUE(ParseRegistryScript(
        u"HKCU { NoRemove Software { Quill = s 'Quill add-in' { val Mode = d '1' } } }", kModule,
        roots, error))
        << U8(error);
    MapRegistry registry = FreshRegistry();
    const auto before = registry.Flat();
    ASSERT_EQ(RegisterScript(roots, registry), S_OK);
    ASSERT_EQ(U8(registry.Flat()[u"Software\\Quill|"]), "s:Quill add-in");
    EXPECT_EQ(UnregisterScript(roots, registry), S_OK);
    EXPECT_EQ(registry.Flat(), before);
}

TEST(RegistryScript, AFailingWriteIsTheResult) {
    for (const char16_t* value : {u"LoadBehavior", u"ThreadingModel", u""}) {
        MapRegistry registry = FreshRegistry();
        registry.failSetValue = value;
        EXPECT_EQ(RegisterScript(Script("connect.rgs"), registry), E_ACCESSDENIED) << U8(value);
        EXPECT_EQ(registry.keys.count(kWhiteList), 0u) << "the walk went on";
    }
}

TEST(RegistryScript, SyntaxErrorsNameTheirLine) {
    const struct {
        const char16_t* text;
        const char* line;
    } cases[] = {
        {u"HKCU\n{\n  NoRemove Software\n  {\n    Sub = s 'x'\n  }", "line 6:"},
        {u"HKCU {\n  Software {\n    val Count = d 'x'\n  }\n}", "line 3:"},
        {u"HKCU {\n  Software {\n    val Count = d '4294967296'\n  }\n}", "line 3:"},
        {u"HKCU {\n  val Stray = s 'y'\n}", "line 2:"},
        {u"HKLM {\n}", "line 1:"},
        {u"HKCU {\n  Key = q 'x'\n}", "line 2:"},
    };
    for (const auto& c : cases) {
        std::vector<RegistryKey> roots;
        std::u16string error;
        EXPECT_FALSE(ParseRegistryScript(c.text, kModule, roots, error)) << U8(c.text);
        EXPECT_EQ(U8(error).rfind(c.line, 0), 0u) << U8(c.text) << " gave " << U8(error);
    }
}

}  // namespace
}  // namespace qb
