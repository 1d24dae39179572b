// The trace: one line per step worth knowing about, to the debugger's output
// and to a per-user log file that rotates and prunes itself. A second, narrow
// log keeps one line per exchange with the translation service. Nothing here
// ever fails a caller, and nothing here takes a lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "foundation/platform.h"

namespace qb {

// Any thread. A null text writes "(null)".
void Trace(const char16_t* text);
void Trace(const std::u16string& text);
// Any thread. A null message is taken as empty. Not sent to the debugger.
void HttpTrace(const char* message);
// The log folder chosen for this process, or empty when none is writable.
std::u16string GetLogDirectory();
// The folder of the add-in's own file, without a trailing separator, or empty.
std::u16string GetModuleDirectory();

inline constexpr std::uint64_t kMaxLogBytes = 52428800;                // 50 MiB
inline constexpr std::uint64_t kMaxLogAgeFileTime = 2592000000000ull;  // 3 days in 100 ns
inline constexpr std::uint64_t kLogMaintenanceIntervalMs = 300000;
inline constexpr std::size_t kHttpTraceLineBytes = 1536;
inline constexpr char16_t kTraceFileName[] = u"QuillbrookPane_ppt_trace.log";
inline constexpr char16_t kHttpTraceFileName[] = u"Quillbrook_translate_trace.log";

// A log file is a non-folder entry whose name starts with "Quillbrook" (any
// case) and contains ".log": live and rotated logs of both kinds.
bool IsLogFileName(std::u16string_view name);

// The three steps of log maintenance, in the order they run. Failures are
// ignored: a later maintenance tries again.
// A log above kMaxLogBytes becomes <base>.<YYYYMMDD-HHMMSS>.log.
void RotateLog(const std::u16string& path, const platform::LocalTime& now);
// Deletes logs last written more than three days before `nowFileTime`.
void PruneLogsByAge(const std::u16string& directory, std::uint64_t nowFileTime);
// Deletes the oldest logs until all logs together are within kMaxLogBytes.
void PruneLogsBySize(const std::u16string& directory);

// The machinery behind Trace and HttpTrace. The process has one, built on
// first use from the known folders; tests build their own over temporary
// folders and a hand-advanced clock.
class TraceLog {
  public:
    struct Folders {
        std::u16string localAppData;     // empty: the platform couldn't say
        std::u16string moduleDirectory;  // empty: no fallback
    };

    // A null clock means the process's clock in force at each call.
    TraceLog(platform::Clock* clock, Folders folders);

    void Trace(const char16_t* text);
    void HttpTrace(const char* message);
    // Chosen on the first call, once, and kept.
    const std::u16string& LogDirectory();

  private:
    platform::Clock& Clock() const;
    void Maintain(const std::u16string& directory, const std::u16string& path);
    std::u16string ChooseDirectory();

    platform::Clock* clock_;
    const Folders folders_;
    std::once_flag chosen_;
    std::u16string directory_;
    // Shared by both logs; a compare-and-swap makes one thread the maintainer.
    std::atomic<std::uint64_t> lastMaintenance_;
};

TraceLog& ProcessTraceLog();

}  // namespace qb
