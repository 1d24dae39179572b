// Who is calling the service: the install id kept in the per-user registry,
// the build named by version.json beside the library, the operating system
// and the host, and the two JSON objects made from them.
#pragma once

#include <string>
#include <string_view>

namespace qb {

inline constexpr char16_t kInstallIdKey[] = u"Software\\Quillbrook";
inline constexpr char16_t kInstallIdValue[] = u"InstallId";

// Read from the registry on every call; made and stored once when there is
// none. Never empty: when the id can't be stored it is returned all the same.
std::u16string GetInstallId();

// "Windows_NT x64 10.0.22631" on Windows.
std::u16string GetOsString();

// The text of version.json beside the module (or one level up from an "x86"
// folder); empty when there is none.
std::u16string ReadVersionFile();

struct BuildIdentity {
    std::u16string productId = u"quillbrook-office-ai";
    std::u16string platform = u"windows";
    std::u16string version = u"0.0.0";
    std::u16string commit;
    std::u16string buildDate;
};

BuildIdentity ReadBuildIdentity();
std::u16string GetClientVersion();

// Set once when the host connects; empty until then.
struct HostIdentity {
    std::u16string hostApp;  // "ppt" or "wps"
    std::u16string hostVersion;
    std::u16string hostAppName;
};
void SetHostIdentity(HostIdentity identity);
HostIdentity GetHostIdentity();

// The object that goes with every translation request and every event.
std::u16string BuildClientContext();
// The answer to the panel's client info query.
std::u16string BuildClientInfo();

namespace detail {
// Platform sides (client_identity_win.cpp, client_identity_posix.cpp).
// A lower-case GUID without braces; false when none can be made.
bool NewGuidText(std::u16string& text);
std::u16string NativeOsString();
// The install id format of a GUID's fields.
std::u16string FormatGuid(unsigned long data1, unsigned short data2, unsigned short data3,
                          const unsigned char data4[8]);
// Whether a stored value counts as an install id.
bool IsUsableInstallId(std::u16string_view value);
}  // namespace detail

}  // namespace qb
