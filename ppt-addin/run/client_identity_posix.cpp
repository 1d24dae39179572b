// Client identity, Linux side: a random version-4 GUID and the kernel's
// name and release in the Windows string's shape.
#include <sys/utsname.h>

#include <random>

#include "foundation/text.h"
#include "run/client_identity.h"

namespace qb::detail {

bool NewGuidText(std::u16string& text) {
    try {
        std::random_device device;
        const unsigned long data1 = (static_cast<unsigned long>(device()) & 0xFFFFFFFFul);
        const auto data2 = static_cast<unsigned short>(device() & 0xFFFF);
        const auto data3 = static_cast<unsigned short>((device() & 0x0FFF) | 0x4000);
        unsigned char data4[8];
        for (unsigned char& byte : data4)
            byte = static_cast<unsigned char>(device() & 0xFF);
        data4[0] = static_cast<unsigned char>((data4[0] & 0x3F) | 0x80);
        text = FormatGuid(data1, data2, data3, data4);
        return true;
    } catch (...) {
        return false;
    }
}

std::u16string NativeOsString() {
    utsname name{};
    if (::uname(&name) != 0) return u"Linux";
    std::string arch = name.machine;
    if (arch == "x86_64") arch = "x64";
    if (arch == "aarch64") arch = "arm64";
    if (arch.size() == 4 && arch[0] == 'i' && arch.substr(2) == "86") arch = "x86";
    return Utf8ToUtf16(std::string(name.sysname) + " " + arch + " " + name.release);
}

}  // namespace qb::detail
