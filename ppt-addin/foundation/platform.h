// The platform services the portable core needs: time, threads, known
// folders, debugger output, files and the per-user registry value. Each has
// a Windows side (platform_win.cpp) and a Linux side (platform_posix.cpp).
// Paths are UTF-16; the Linux side converts them to UTF-8 at the call.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qb::platform {

struct LocalTime {
    std::uint16_t year = 0;
    std::uint16_t month = 0;
    std::uint16_t day = 0;
    std::uint16_t hour = 0;
    std::uint16_t minute = 0;
    std::uint16_t second = 0;
    std::uint16_t milliseconds = 0;
};

// Time as the core sees it. Tests install a clock they advance by hand, so
// that waits and intervals are tested without sleeping.
class Clock {
  public:
    virtual ~Clock() = default;
    // Monotonic milliseconds, as GetTickCount64.
    virtual std::uint64_t TickCount64() = 0;
    // Local wall time, as GetLocalTime.
    virtual LocalTime LocalNow() = 0;
    // Wall time in 100 ns units since 1601-01-01 UTC, as GetSystemTimeAsFileTime.
    virtual std::uint64_t SystemFileTime() = 0;
    virtual void Sleep(std::uint32_t milliseconds) = 0;
};

Clock& SystemClock();
// The clock in force: the system clock unless a test installed another.
Clock& CurrentClock();
// Installs `clock` for the whole process; null restores the system clock.
void SetClockForTesting(Clock* clock);

std::uint32_t CurrentThreadId();

enum class KnownFolder {
    LocalAppData,    // %LOCALAPPDATA%; Linux: $XDG_DATA_HOME or ~/.local/share
    RoamingAppData,  // %APPDATA%; Linux: $XDG_CONFIG_HOME or ~/.config
    Module,          // the folder of the add-in's own file (the executable's on Linux)
};

// Without a trailing separator; empty when the platform can't say.
std::u16string GetKnownFolder(KnownFolder folder);
// Points a known folder somewhere else for this process; empty text removes
// the override. Tests use it so that nothing touches the user's folders.
void SetKnownFolderForTesting(KnownFolder folder, std::u16string path);

// The full path of the process's main executable (not the add-in's file);
// empty when the platform can't say.
std::u16string MainModulePath();

// One piece of text to the debugger's output. Also handed to the listener.
void DebugOutput(std::u16string_view text);
using DebugListener = void (*)(void* context, std::u16string_view text);
// One listener for the process (tests, the command-line front end); null removes it.
void SetDebugListener(DebugListener listener, void* context);

// '\\' on Windows, '/' elsewhere.
extern const char16_t kPathSeparator;
std::u16string JoinPath(std::u16string_view directory, std::u16string_view name);

struct FileInfo {
    bool isDirectory = false;
    std::uint64_t size = 0;
    std::uint64_t lastWriteFileTime = 0;  // 100 ns units since 1601-01-01 UTC
};

struct DirectoryEntry {
    std::u16string name;
    FileInfo info;
};

// False when the path doesn't exist or can't be read.
[[nodiscard]] bool GetFileInfo(const std::u16string& path, FileInfo& info);
// Every entry of a folder but "." and "..", in no particular order.
std::vector<DirectoryEntry> ListDirectory(const std::u16string& directory);
// True when the folder exists afterwards.
bool MakeDirectory(const std::u16string& path);
// Creates (or truncates) an empty temporary file and closes it at once.
[[nodiscard]] bool CreateEmptyFile(const std::u16string& path);
// Opens for appending (created if missing, shared for reading and writing),
// writes all bytes, closes. Concurrent appends from many threads are safe.
bool AppendToFile(const std::u16string& path, const void* data, std::size_t size);
[[nodiscard]] bool ReadWholeFile(const std::u16string& path, std::string& bytes);
// Creates (or truncates) a file nobody else may open meanwhile, writes all
// bytes in pieces of at most 1 MiB, closes. A failure leaves no file behind.
[[nodiscard]] bool WriteNewFile(const std::u16string& path, const void* data, std::size_t size);
// The system's code for the last failure of this thread (GetLastError, errno).
std::uint32_t LastErrorCode();
bool RemoveFile(const std::u16string& path);
// Renames, replacing an existing target.
bool MoveFileReplacing(const std::u16string& from, const std::u16string& to);
bool SetFileLastWriteTime(const std::u16string& path, std::uint64_t fileTime);

// A string value under HKEY_CURRENT_USER\<subKey>. On Linux the same names
// live in files under the roaming folder's "registry" folder.
[[nodiscard]] bool ReadUserRegistryString(std::u16string_view subKey, std::u16string_view valueName,
                                          std::u16string& value);
bool WriteUserRegistryString(std::u16string_view subKey, std::u16string_view valueName,
                             std::u16string_view value);
bool DeleteUserRegistryValue(std::u16string_view subKey, std::u16string_view valueName);

// Whether the user is at work on the host right now: the left mouse button
// held, the mouse captured, or mouse input waiting in the thread's queue.
// Linux has no such user; tests say what it is.
bool IsUserActive();
using UserActivityProbe = bool (*)();
// Replaces the platform's answer for the process; null restores it.
void SetUserActivityForTesting(UserActivityProbe probe);

// The language of the system's user interface as a Windows language id
// (primary language in the low 10 bits, sublanguage above). Linux reads the
// locale variables LC_ALL, LC_MESSAGES and LANG; 0 when it can't tell.
std::uint16_t UserDefaultUiLanguage();
// Replaces the platform's answer for the process; a negative id restores it.
void SetUserDefaultUiLanguageForTesting(std::int32_t languageId);

// What each side provides; the portable layer above adds the overrides.
namespace native {
std::u16string GetKnownFolder(KnownFolder folder);
void DebugOutput(std::u16string_view text);
bool IsUserActive();
std::uint16_t UserDefaultUiLanguage();
}  // namespace native

}  // namespace qb::platform
