#include "shell/host_detect.h"

#include "foundation/platform.h"
#include "pane/panel_text.h"
#include "run/client_identity.h"
#include "slides/automation.h"

namespace qb {

namespace {

std::u16string& FileNameOverride() {
    static std::u16string name;
    return name;
}

bool IsWpsExecutable() {
    const std::u16string& name = MainModuleFileName();
    return EqualsIgnoringCase(name, u"wps.exe") || EqualsIgnoringCase(name, u"wpp.exe") ||
           EqualsIgnoringCase(name, u"et.exe");
}

}  // namespace

const std::u16string& MainModuleFileName() {
    if (!FileNameOverride().empty()) return FileNameOverride();
    static const std::u16string name = [] {
        const std::u16string path = platform::MainModulePath();
        const std::size_t cut = path.find_last_of(u"\\/");
        return cut == std::u16string::npos ? path : path.substr(cut + 1);
    }();
    return name;
}

void SetMainModuleFileNameForTesting(std::u16string name) {
    FileNameOverride() = std::move(name);
}

std::u16string ReadHostText(const host::HostRef& object, std::u16string_view member) {
    host::Variant value;
    if (FAILED(host::DispGet(object, member, &value)) || value.Type() != host::VarType::String) {
        return {};
    }
    return value.StringValue();
}

void DetectHost(const host::HostRef& application) {
    const std::u16string name = ReadHostText(application, u"Name");
    const std::u16string version = ReadHostText(application, u"Version");
    bool wps = false;
    if (!name.empty()) {
        for (const char16_t* token : {u"WPS", u"Kingsoft", u"\u91D1\u5C71", u"ET"}) {
            if (name.find(token) != std::u16string::npos) {
                wps = true;
                break;
            }
        }
    }
    if (!wps) wps = IsWpsExecutable();
    HostIdentity identity;
    identity.hostApp = wps ? u"wps" : u"ppt";
    identity.hostVersion = version;
    identity.hostAppName = name;
    SetHostIdentity(std::move(identity));
}

bool IsWpsHost() {
    return GetHostIdentity().hostApp == u"wps" || IsWpsExecutable();
}

}  // namespace qb
