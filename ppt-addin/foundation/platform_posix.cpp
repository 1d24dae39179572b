// Linux side of the platform services: POSIX calls, XDG folders, and a small
// file-backed stand-in for the per-user registry.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>

#include "foundation/char_class.h"
#include "foundation/platform.h"
#include "foundation/text.h"

namespace qb::platform {

const char16_t kPathSeparator = u'/';

namespace {

// Seconds between 1601-01-01 and 1970-01-01.
constexpr std::uint64_t kFileTimeEpochSeconds = 11644473600ull;

std::uint64_t ToFileTime(const timespec& ts) {
    return (static_cast<std::uint64_t>(ts.tv_sec) + kFileTimeEpochSeconds) * 10000000ull +
           static_cast<std::uint64_t>(ts.tv_nsec) / 100;
}

std::string Native(const std::u16string& path) {
    return Utf16ToUtf8(path);
}

class PosixClock final : public Clock {
  public:
    std::uint64_t TickCount64() override {
        timespec ts{};
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<std::uint64_t>(ts.tv_sec) * 1000ull +
               static_cast<std::uint64_t>(ts.tv_nsec) / 1000000ull;
    }

    LocalTime LocalNow() override {
        timespec ts{};
        clock_gettime(CLOCK_REALTIME, &ts);
        tm parts{};
        localtime_r(&ts.tv_sec, &parts);
        LocalTime t;
        t.year = static_cast<std::uint16_t>(parts.tm_year + 1900);
        t.month = static_cast<std::uint16_t>(parts.tm_mon + 1);
        t.day = static_cast<std::uint16_t>(parts.tm_mday);
        t.hour = static_cast<std::uint16_t>(parts.tm_hour);
        t.minute = static_cast<std::uint16_t>(parts.tm_min);
        t.second = static_cast<std::uint16_t>(parts.tm_sec);
        t.milliseconds = static_cast<std::uint16_t>(ts.tv_nsec / 1000000);
        return t;
    }

    std::uint64_t SystemFileTime() override {
        timespec ts{};
        clock_gettime(CLOCK_REALTIME, &ts);
        return ToFileTime(ts);
    }

    void Sleep(std::uint32_t milliseconds) override {
        timespec ts{static_cast<time_t>(milliseconds / 1000),
                    static_cast<long>(milliseconds % 1000) * 1000000L};
        while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
        }
    }
};

std::u16string XdgFolder(const char* variable, const char* fallbackUnderHome) {
    const char* value = std::getenv(variable);
    if (value && value[0] == '/') return Utf8ToUtf16(value);  // relative values are invalid
    const char* home = std::getenv("HOME");
    if (!home || home[0] != '/') return {};
    return Utf8ToUtf16(std::string(home) + "/" + fallbackUnderHome);
}

std::u16string ModuleFolder() {
    Dl_info info{};
    std::string file;
    if (dladdr(reinterpret_cast<void*>(&ModuleFolder), &info) && info.dli_fname &&
        std::string(info.dli_fname).find('/') != std::string::npos) {
        file = info.dli_fname;
    } else {
        char buffer[PATH_MAX];
        const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
        if (n <= 0) return {};
        file.assign(buffer, static_cast<std::size_t>(n));
    }
    char resolved[PATH_MAX];
    if (realpath(file.c_str(), resolved)) file = resolved;
    const std::size_t cut = file.find_last_of('/');
    if (cut == std::string::npos) return {};
    return Utf8ToUtf16(file.substr(0, cut == 0 ? 1 : cut));
}

bool FillInfo(const struct stat& st, FileInfo& info) {
    info.isDirectory = S_ISDIR(st.st_mode);
    info.size = static_cast<std::uint64_t>(st.st_size);
    info.lastWriteFileTime = ToFileTime(st.st_mtim);
    return true;
}

bool WriteAll(int fd, const void* data, std::size_t size) {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = ::write(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

// The registry stand-in: one file a value, under a folder a key, names
// lower-cased because registry names ignore case.
std::u16string RegistryValuePath(std::u16string_view subKey, std::u16string_view valueName,
                                 bool create) {
    std::u16string path = GetKnownFolder(KnownFolder::RoamingAppData);
    if (path.empty()) return {};
    path = JoinPath(path, u"registry");
    if (create) MakeDirectory(path);
    path = JoinPath(path, u"hkey_current_user");
    if (create) MakeDirectory(path);
    std::u16string part;
    const auto flush = [&] {
        if (part.empty() || part == u"." || part == u"..") {
            part.clear();
            return;
        }
        path = JoinPath(path, ToLower(part));
        if (create) MakeDirectory(path);
        part.clear();
    };
    for (char16_t c : subKey) {
        if (c == u'\\' || c == u'/') {
            flush();
        } else {
            part += c;
        }
    }
    flush();
    std::u16string name = ToLower(valueName);
    for (char16_t& c : name) {
        if (c == u'/') c = u'_';
    }
    return JoinPath(path, name.empty() ? u"@default" : name + u".value");
}

}  // namespace

std::u16string MainModulePath() {
    char buffer[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return {};
    return Utf8ToUtf16(std::string(buffer, static_cast<std::size_t>(n)));
}

Clock& SystemClock() {
    static PosixClock clock;
    return clock;
}

std::uint32_t CurrentThreadId() {
    return static_cast<std::uint32_t>(::syscall(SYS_gettid));
}

std::u16string native::GetKnownFolder(KnownFolder folder) {
    switch (folder) {
        case KnownFolder::LocalAppData:
            return XdgFolder("XDG_DATA_HOME", ".local/share");
        case KnownFolder::RoamingAppData:
            return XdgFolder("XDG_CONFIG_HOME", ".config");
        case KnownFolder::Module:
            return ModuleFolder();
    }
    return {};
}

bool native::IsUserActive() {
    return false;
}

namespace {

// A locale name ("de_DE.UTF-8", "zh_TW", "pt_BR@euro") as a Windows language
// id: the language's primary id with its default sublanguage, and the
// Chinese regions told apart, since they decide the script.
std::uint16_t LanguageIdOfLocale(std::string_view locale) {
    if (locale.empty() || locale == "C" || locale == "POSIX" || locale.rfind("C.", 0) == 0) {
        return 0x0409;  // the untranslated locale is US English
    }
    const std::size_t languageEnd = locale.find_first_of("_.@");
    const std::string_view language = locale.substr(0, languageEnd);
    std::string_view region;
    if (languageEnd != std::string_view::npos && locale[languageEnd] == '_') {
        region = locale.substr(languageEnd + 1);
        region = region.substr(0, region.find_first_of(".@"));
    }
    if (language == "zh") {
        if (region == "TW") return 0x0404;
        if (region == "HK") return 0x0C04;
        if (region == "SG") return 0x1004;
        if (region == "MO") return 0x1404;
        return 0x0804;
    }
    static constexpr struct {
        const char* code;
        std::uint16_t primary;
    } kPrimary[] = {
        {"ar", 0x01}, {"de", 0x07}, {"en", 0x09}, {"es", 0x0A}, {"fr", 0x0C}, {"it", 0x10},
        {"ja", 0x11}, {"ko", 0x12}, {"nl", 0x13}, {"pl", 0x15}, {"pt", 0x16}, {"ru", 0x19},
        {"th", 0x1E}, {"tr", 0x1F}, {"id", 0x21}, {"vi", 0x2A}, {"ms", 0x3E},
    };
    for (const auto& entry : kPrimary) {
        if (language == entry.code) return static_cast<std::uint16_t>(0x0400 | entry.primary);
    }
    return 0;
}

}  // namespace

std::uint16_t native::UserDefaultUiLanguage() {
    // The order in which POSIX decides the language of messages.
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value && value[0] != '\0') return LanguageIdOfLocale(value);
    }
    return LanguageIdOfLocale("C");
}

// Linux has no debugger output stream; a listener (tests, the front end's
// verbose mode) is where these lines go.
void native::DebugOutput(std::u16string_view) {}

bool GetFileInfo(const std::u16string& path, FileInfo& info) {
    struct stat st {};
    if (path.empty() || ::stat(Native(path).c_str(), &st) != 0) return false;
    return FillInfo(st, info);
}

std::vector<DirectoryEntry> ListDirectory(const std::u16string& directory) {
    std::vector<DirectoryEntry> entries;
    const std::string dirPath = Native(directory);
    DIR* dir = ::opendir(dirPath.c_str());
    if (!dir) return entries;
    while (const dirent* e = ::readdir(dir)) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        struct stat st {};
        if (::stat((dirPath + "/" + name).c_str(), &st) != 0) continue;
        DirectoryEntry entry;
        entry.name = Utf8ToUtf16(name);
        FillInfo(st, entry.info);
        entries.push_back(std::move(entry));
    }
    ::closedir(dir);
    return entries;
}

bool MakeDirectory(const std::u16string& path) {
    if (path.empty()) return false;
    const std::string p = Native(path);
    if (::mkdir(p.c_str(), 0755) == 0) return true;
    struct stat st {};
    return errno == EEXIST && ::stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool CreateEmptyFile(const std::u16string& path) {
    if (path.empty()) return false;
    const int fd = ::open(Native(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    ::close(fd);
    return true;
}

bool AppendToFile(const std::u16string& path, const void* data, std::size_t size) {
    if (path.empty()) return false;
    const int fd = ::open(Native(path).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    const bool ok = WriteAll(fd, data, size);
    ::close(fd);
    return ok;
}

bool ReadWholeFile(const std::u16string& path, std::string& bytes) {
    bytes.clear();
    if (path.empty()) return false;
    const int fd = ::open(Native(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat st {};
    if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
        ::close(fd);
        return false;
    }
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            ::close(fd);
            bytes.clear();
            return false;
        }
        if (n == 0) break;
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return true;
}

bool WriteNewFile(const std::u16string& path, const void* data, std::size_t size) {
    if (path.empty()) return false;
    const std::string p = Native(path);
    const int fd = ::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    const char* bytes = static_cast<const char*>(data);
    bool ok = true;
    for (std::size_t done = 0; ok && done < size;) {
        const std::size_t piece = std::min<std::size_t>(size - done, 1u << 20);
        ok = WriteAll(fd, bytes + done, piece);
        done += piece;
    }
    if (::close(fd) != 0) ok = false;
    if (!ok) {
        const int saved = errno;
        ::unlink(p.c_str());
        errno = saved;
    }
    return ok;
}

std::uint32_t LastErrorCode() {
    return static_cast<std::uint32_t>(errno);
}

bool RemoveFile(const std::u16string& path) {
    return !path.empty() && ::unlink(Native(path).c_str()) == 0;
}

bool MoveFileReplacing(const std::u16string& from, const std::u16string& to) {
    return !from.empty() && !to.empty() && ::rename(Native(from).c_str(), Native(to).c_str()) == 0;
}

bool SetFileLastWriteTime(const std::u16string& path, std::uint64_t fileTime) {
    if (path.empty() || fileTime < kFileTimeEpochSeconds * 10000000ull) return false;
    const std::uint64_t sinceUnix = fileTime - kFileTimeEpochSeconds * 10000000ull;
    timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = static_cast<time_t>(sinceUnix / 10000000ull);
    times[1].tv_nsec = static_cast<long>(sinceUnix % 10000000ull) * 100;
    return ::utimensat(AT_FDCWD, Native(path).c_str(), times, 0) == 0;
}

bool ReadUserRegistryString(std::u16string_view subKey, std::u16string_view valueName,
                            std::u16string& value) {
    value.clear();
    const std::u16string path = RegistryValuePath(subKey, valueName, false);
    std::string bytes;
    if (path.empty() || !ReadWholeFile(path, bytes)) return false;
    value = Utf8ToUtf16(bytes);
    return true;
}

bool WriteUserRegistryString(std::u16string_view subKey, std::u16string_view valueName,
                             std::u16string_view value) {
    const std::u16string path = RegistryValuePath(subKey, valueName, true);
    if (path.empty()) return false;
    // Written beside and renamed over, so a reader never sees half a value.
    const std::u16string temp = path + u".tmp";
    const std::string bytes = Utf16ToUtf8(value);
    RemoveFile(temp);
    if (!AppendToFile(temp, bytes.data(), bytes.size())) {
        RemoveFile(temp);
        return false;
    }
    if (!MoveFileReplacing(temp, path)) {
        RemoveFile(temp);
        return false;
    }
    return true;
}

bool DeleteUserRegistryValue(std::u16string_view subKey, std::u16string_view valueName) {
    const std::u16string path = RegistryValuePath(subKey, valueName, false);
    return !path.empty() && RemoveFile(path);
}

}  // namespace qb::platform
