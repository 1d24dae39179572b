// Stand-ins for what the shell meets besides the simulated host: a host
// object that is only a bag of properties (task panes, ribbon controls, the
// ribbon UI), and a display language fixed for one test.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/ui_strings.h"
#include "slides/host_object.h"
#include "support/temp_dir.h"

namespace qb::test {

inline std::string U8(std::u16string_view text) {
    return Utf16ToUtf8(text);
}

// Properties read and written by name; methods named in `methods` succeed.
// Every call is recorded as "Name", "Name=" for puts.
class PropertyObject : public host::HostObject {
  public:
    std::map<std::u16string, host::Variant> props;
    std::set<std::u16string> methods;
    bool refuseHide = false;  // Visible=false fails with E_FAIL
    std::vector<std::u16string> calls;
    std::vector<bool> visiblePuts;  // every Visible put, refused ones too

    HRESULT Invoke(std::u16string_view member, host::InvokeKind kind, const host::Variant* args,
                   std::size_t count, host::Variant* result) override {
        const std::u16string name(member);
        if (kind == host::InvokeKind::Put) {
            calls.push_back(name + u"=");
            if (count < 1) return E_INVALIDARG;
            if (name == u"Visible") {
                const bool visible = args[0].BoolValue() != 0;
                visiblePuts.push_back(visible);
                if (refuseHide && !visible) return E_FAIL;
            }
            props[name] = args[0];
            return S_OK;
        }
        calls.push_back(name);
        if (methods.count(name)) return S_OK;
        const auto it = props.find(name);
        if (it == props.end()) return DISP_E_UNKNOWNNAME;
        if (result) *result = it->second;
        return S_OK;
    }
    HRESULT InvokeDefault(const host::Variant*, std::size_t, host::Variant*) override {
        return DISP_E_MEMBERNOTFOUND;
    }
    const void* Identity() const override { return this; }
    bool Answers(host::HostInterface) const override { return false; }
    std::size_t CallCount(std::u16string_view name) const {
        std::size_t n = 0;
        for (const std::u16string& call : calls)
            n += call == name;
        return n;
    }
};

// A configuration folder of the test's own (no saved choice) and a system
// in the given display language, with the process's language choice undone.
class ScopedUiLanguage {
  public:
    explicit ScopedUiLanguage(std::int32_t systemLanguageId = 0x0409)
        : saved_(platform::GetKnownFolder(platform::KnownFolder::LocalAppData)) {
        platform::SetKnownFolderForTesting(platform::KnownFolder::LocalAppData, dir_.Path());
        Use(systemLanguageId);
    }
    ~ScopedUiLanguage() {
        ResetUiLanguageForTesting();
        platform::SetUserDefaultUiLanguageForTesting(-1);
        platform::SetKnownFolderForTesting(platform::KnownFolder::LocalAppData, saved_);
    }
    ScopedUiLanguage(const ScopedUiLanguage&) = delete;
    ScopedUiLanguage& operator=(const ScopedUiLanguage&) = delete;

    // The next lookup chooses again, from this system language.
    static void Use(std::int32_t systemLanguageId) {
        platform::SetUserDefaultUiLanguageForTesting(systemLanguageId);
        ResetUiLanguageForTesting();
    }

  private:
    TempDir dir_;
    std::u16string saved_;
};

}  // namespace qb::test
