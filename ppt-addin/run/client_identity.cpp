// Client identity: the portable part. Nothing here keeps state of its own
// but the host identity; every call reads the registry and the file again.
#include "run/client_identity.h"

#include <cstdio>
#include <mutex>

#include "foundation/char_class.h"
#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "run/json.h"

namespace qb {
namespace {

struct HostIdentityStore {
    std::mutex lock;
    HostIdentity identity;
};

HostIdentityStore& HostStore() {
    static HostIdentityStore store;
    return store;
}

// The registry read takes at most 1024 bytes; a longer value doesn't count.
constexpr std::size_t kMaxInstallIdUnits = 511;

}  // namespace

namespace detail {

std::u16string FormatGuid(unsigned long data1, unsigned short data2, unsigned short data3,
                          const unsigned char data4[8]) {
    char text[40];
    std::snprintf(text, sizeof text, "%08lx-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", data1,
                  unsigned{data2}, unsigned{data3}, unsigned{data4[0]}, unsigned{data4[1]},
                  unsigned{data4[2]}, unsigned{data4[3]}, unsigned{data4[4]}, unsigned{data4[5]},
                  unsigned{data4[6]}, unsigned{data4[7]});
    return AsciiToUtf16(text);
}

bool IsUsableInstallId(std::u16string_view value) {
    if (value.empty() || value.size() > kMaxInstallIdUnits) return false;
    // Control units or replacement characters come only from damaged bytes.
    for (char16_t unit : value) {
        if (unit < 0x20 || unit == 0x7F || unit == kReplacementChar) return false;
    }
    return true;
}

}  // namespace detail

std::u16string GetInstallId() {
    std::u16string stored;
    if (platform::ReadUserRegistryString(kInstallIdKey, kInstallIdValue, stored) &&
        detail::IsUsableInstallId(stored)) {
        return stored;
    }
    std::u16string id;
    if (!detail::NewGuidText(id) || id.empty()) {
        id = u"local-" + AsciiToUtf16(std::to_string(platform::CurrentClock().TickCount64()));
    }
    // A failure to store is ignored; the next call makes another id.
    if (!platform::WriteUserRegistryString(kInstallIdKey, kInstallIdValue, id)) {
        Trace(u"PPT install id not stored");
    }
    return id;
}

std::u16string GetOsString() {
    return detail::NativeOsString();
}

std::u16string ReadVersionFile() {
    const std::u16string directory = GetModuleDirectory();
    if (directory.empty()) return {};
    std::u16string text = ReadTextFile(platform::JoinPath(directory, u"version.json"));
    if (!text.empty()) return text;
    // The x86 build may sit in a folder of its own below the shared file.
    const std::size_t cut = directory.find_last_of(u"\\/");
    if (cut == std::u16string::npos) return {};
    if (!EqualsIgnoreCase(std::u16string_view(directory).substr(cut + 1), u"x86")) return {};
    return ReadTextFile(platform::JoinPath(directory.substr(0, cut), u"version.json"));
}

BuildIdentity ReadBuildIdentity() {
    BuildIdentity build;
    const std::u16string text = ReadVersionFile();
    if (text.empty()) return build;
    const auto take = [&](std::u16string_view key, std::u16string& field) {
        std::u16string value = ReadStoreString(text, key);
        if (!value.empty()) field = std::move(value);
    };
    take(u"productId", build.productId);
    take(u"platform", build.platform);
    take(u"version", build.version);
    build.commit = ReadStoreString(text, u"commit");
    build.buildDate = ReadStoreString(text, u"buildDate");
    return build;
}

std::u16string GetClientVersion() {
    return ReadBuildIdentity().version;
}

void SetHostIdentity(HostIdentity identity) {
    HostIdentityStore& store = HostStore();
    std::lock_guard<std::mutex> hold(store.lock);
    store.identity = std::move(identity);
}

HostIdentity GetHostIdentity() {
    HostIdentityStore& store = HostStore();
    std::lock_guard<std::mutex> hold(store.lock);
    return store.identity;
}

std::u16string BuildClientContext() {
    const HostIdentity host = GetHostIdentity();
    const bool sheetHost = host.hostApp == u"excel" || host.hostApp == u"wps-excel";
    JsonObjectWriter writer;
    writer.String(u"installId", GetInstallId())
        .String(u"channel", sheetHost ? u"excel" : u"word")
        .String(u"os", GetOsString())
        .String(u"hostApp", host.hostApp)
        .String(u"hostVersion", host.hostVersion)
        .String(u"clientVersion", GetClientVersion());
    return writer.Finish();
}

std::u16string BuildClientInfo() {
    const BuildIdentity build = ReadBuildIdentity();
    const HostIdentity host = GetHostIdentity();
    JsonObjectWriter writer;
    writer.String(u"productId", build.productId)
        .String(u"platform", build.platform)
        .String(u"version", build.version)
        .String(u"commit", build.commit)
        .String(u"buildDate", build.buildDate)
        .String(u"os", GetOsString())
        .String(u"installId", GetInstallId())
        .String(u"hostApp", host.hostApp)
        .String(u"hostAppVersion", host.hostVersion)
        .String(u"hostAppName", host.hostAppName)
        .Raw(u"capabilities", u"{\"pptBilingualSlides\":true,\"targetFontBold\":false}");
    return writer.Finish();
}

}  // namespace qb
