// Trace lines, log folder choice, rotation and pruning.
#include "foundation/trace.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "foundation/char_class.h"
#include "foundation/text.h"

namespace qb {
namespace {

constexpr std::uint64_t kNever = ~0ull;
constexpr char16_t kCrLf[] = u"\r\n";

// The trace file holds UTF-16 little-endian whatever the machine's order.
std::string ToUtf16LeBytes(std::u16string_view text) {
    std::string bytes;
    bytes.reserve(text.size() * 2);
    for (char16_t unit : text) {
        bytes.push_back(static_cast<char>(unit & 0xFF));
        bytes.push_back(static_cast<char>(unit >> 8));
    }
    return bytes;
}

void AppendPiece(const std::u16string& path, std::u16string_view piece) {
    if (piece.empty()) return;
    const std::string bytes = ToUtf16LeBytes(piece);
    platform::AppendToFile(path, bytes.data(), bytes.size());
}

bool IsWritableDirectory(const std::u16string& directory) {
    if (directory.empty()) return false;
    platform::MakeDirectory(directory);
    const std::u16string probe = platform::JoinPath(directory, u".qb-write-probe");
    if (!platform::CreateEmptyFile(probe)) return false;
    platform::RemoveFile(probe);
    return true;
}

struct LogFile {
    std::u16string path;
    platform::FileInfo info;
};

std::vector<LogFile> ListLogFiles(const std::u16string& directory) {
    std::vector<LogFile> files;
    for (platform::DirectoryEntry& entry : platform::ListDirectory(directory)) {
        if (entry.info.isDirectory || !IsLogFileName(entry.name)) continue;
        files.push_back(LogFile{platform::JoinPath(directory, entry.name), entry.info});
    }
    return files;
}

}  // namespace

bool IsLogFileName(std::u16string_view name) {
    return StartsWithIgnoreCase(name, u"Quillbrook") && ContainsIgnoreCase(name, u".log");
}

TraceLog::TraceLog(platform::Clock* clock, Folders folders)
    : clock_(clock), folders_(std::move(folders)), lastMaintenance_(kNever) {}

platform::Clock& TraceLog::Clock() const {
    return clock_ ? *clock_ : platform::CurrentClock();
}

const std::u16string& TraceLog::LogDirectory() {
    std::call_once(chosen_, [this] { directory_ = ChooseDirectory(); });
    return directory_;
}

std::u16string TraceLog::ChooseDirectory() {
    using platform::DebugOutput;
    using platform::JoinPath;
    std::u16string local;
    if (!folders_.localAppData.empty()) {
        const std::u16string base = JoinPath(folders_.localAppData, u"Quillbrook");
        platform::MakeDirectory(base);
        local = JoinPath(base, u"log");
        platform::MakeDirectory(local);
        if (IsWritableDirectory(local)) {
            DebugOutput(u"[Quillbrook] log dir: " + local + kCrLf);
            if (!folders_.moduleDirectory.empty()) {
                // Logs left beside the add-in by an earlier fallback go away.
                const std::u16string old = JoinPath(folders_.moduleDirectory, u"log");
                if (!EqualsIgnoreCase(old, local)) {
                    PruneLogsByAge(old, Clock().SystemFileTime());
                    PruneLogsBySize(old);
                }
            }
            return local;
        }
        DebugOutput(u"[Quillbrook] log dir: LOCALAPPDATA not writable, trying install dir\r\n");
    } else {
        DebugOutput(u"[Quillbrook] log dir: SHGetFolderPath LOCALAPPDATA failed\r\n");
    }
    if (!folders_.moduleDirectory.empty()) {
        const std::u16string fallback = JoinPath(folders_.moduleDirectory, u"log");
        platform::MakeDirectory(fallback);
        if (IsWritableDirectory(fallback)) {
            DebugOutput(u"[Quillbrook] log dir fallback install: " + fallback + kCrLf);
            return fallback;
        }
    }
    DebugOutput(u"[Quillbrook] log dir: no writable directory\r\n");
    return {};
}

void TraceLog::Trace(const char16_t* text) {
    const std::u16string_view line = text ? std::u16string_view(text) : u"(null)";
    platform::DebugOutput(line);
    platform::DebugOutput(kCrLf);

    const std::u16string& directory = LogDirectory();
    if (directory.empty()) return;
    const std::u16string path = platform::JoinPath(directory, kTraceFileName);

    const platform::LocalTime t = Clock().LocalNow();
    char prefix[96];
    const int n =
        std::snprintf(prefix, sizeof prefix, "[%04u-%02u-%02u %02u:%02u:%02u.%03u tid=%lu] ",
                      unsigned{t.year}, unsigned{t.month}, unsigned{t.day}, unsigned{t.hour},
                      unsigned{t.minute}, unsigned{t.second}, unsigned{t.milliseconds},
                      static_cast<unsigned long>(platform::CurrentThreadId()));

    Maintain(directory, path);

    // Three appends, each opening and closing the file: lines of two threads
    // may interleave by the piece, and no lock is needed.
    if (n > 0)
        AppendPiece(path, AsciiToUtf16(std::string_view(prefix, static_cast<std::size_t>(n))));
    AppendPiece(path, line);
    AppendPiece(path, kCrLf);
}

void TraceLog::HttpTrace(const char* message) {
    const platform::LocalTime t = Clock().LocalNow();
    char head[64];
    const int headLength =
        std::snprintf(head, sizeof head, "[%04u-%02u-%02uT%02u:%02u:%02u.%03u] cpp.http.translate ",
                      unsigned{t.year}, unsigned{t.month}, unsigned{t.day}, unsigned{t.hour},
                      unsigned{t.minute}, unsigned{t.second}, unsigned{t.milliseconds});
    if (headLength <= 0 || static_cast<std::size_t>(headLength) >= sizeof head) return;

    std::string line(head, static_cast<std::size_t>(headLength));
    std::string_view body = message ? std::string_view(message) : std::string_view();
    // The whole line, line feed included, stays within its limit; a cut never
    // splits a UTF-8 sequence.
    const std::size_t room = kHttpTraceLineBytes - line.size() - 1;
    if (body.size() > room) {
        std::size_t cut = room;
        while (cut > 0 && (static_cast<unsigned char>(body[cut]) & 0xC0) == 0x80)
            --cut;
        body = body.substr(0, cut);
    }
    line.append(body);
    line.push_back('\n');

    const std::u16string& directory = LogDirectory();
    if (directory.empty()) return;
    const std::u16string path = platform::JoinPath(directory, kHttpTraceFileName);
    Maintain(directory, path);
    platform::AppendToFile(path, line.data(), line.size());
}

void TraceLog::Maintain(const std::u16string& directory, const std::u16string& path) {
    if (directory.empty()) return;
    const std::uint64_t now = Clock().TickCount64();
    std::uint64_t last = lastMaintenance_.load(std::memory_order_relaxed);
    // A tick older than the stored one (read before another thread stored
    // its own) is never due: only one thread maintains per interval.
    if (last != kNever && (now < last || now - last < kLogMaintenanceIntervalMs)) return;
    // The thread that wins the swap maintains; the others append and go on.
    if (!lastMaintenance_.compare_exchange_strong(last, now, std::memory_order_relaxed)) return;
    platform::Clock& clock = Clock();
    RotateLog(path, clock.LocalNow());
    PruneLogsByAge(directory, clock.SystemFileTime());
    PruneLogsBySize(directory);
}

void RotateLog(const std::u16string& path, const platform::LocalTime& t) {
    platform::FileInfo info;
    if (!platform::GetFileInfo(path, info) || info.size <= kMaxLogBytes) return;
    const std::size_t dot = path.find_last_of(u'.');
    if (dot == std::u16string::npos) return;
    char stamp[32];
    const int n = std::snprintf(stamp, sizeof stamp, "%04u%02u%02u-%02u%02u%02u", unsigned{t.year},
                                unsigned{t.month}, unsigned{t.day}, unsigned{t.hour},
                                unsigned{t.minute}, unsigned{t.second});
    if (n <= 0) return;
    const std::u16string target =
        path.substr(0, dot) + u"." +
        AsciiToUtf16(std::string_view(stamp, static_cast<std::size_t>(n))) + u".log";
    platform::MoveFileReplacing(path, target);  // a failure is tried again next time
}

void PruneLogsByAge(const std::u16string& directory, std::uint64_t now) {
    for (const LogFile& file : ListLogFiles(directory)) {
        const std::uint64_t written = file.info.lastWriteFileTime;
        if (written < now && now - written > kMaxLogAgeFileTime) platform::RemoveFile(file.path);
    }
}

void PruneLogsBySize(const std::u16string& directory) {
    std::vector<LogFile> files = ListLogFiles(directory);
    std::uint64_t total = 0;
    for (const LogFile& file : files)
        total += file.info.size;
    if (total <= kMaxLogBytes) return;
    std::sort(files.begin(), files.end(), [](const LogFile& a, const LogFile& b) {
        return a.info.lastWriteFileTime < b.info.lastWriteFileTime;
    });
    for (const LogFile& file : files) {
        if (total <= kMaxLogBytes) break;
        if (platform::RemoveFile(file.path)) total -= file.info.size;
    }
}

TraceLog& ProcessTraceLog() {
    // Never destroyed: threads that outlive static destruction at unload
    // (a worker that didn't stop, a beacon) may still trace.
    static TraceLog* log = new TraceLog(
        nullptr, TraceLog::Folders{platform::GetKnownFolder(platform::KnownFolder::LocalAppData),
                                   platform::GetKnownFolder(platform::KnownFolder::Module)});
    return *log;
}

// The trace is called from COM methods, callbacks and the worker: even an
// allocation failure stays in here.
void Trace(const char16_t* text) {
    try {
        ProcessTraceLog().Trace(text);
    } catch (...) {
    }
}

void Trace(const std::u16string& text) {
    Trace(text.c_str());
}

void HttpTrace(const char* message) {
    try {
        ProcessTraceLog().HttpTrace(message);
    } catch (...) {
    }
}

std::u16string GetLogDirectory() {
    try {
        return ProcessTraceLog().LogDirectory();
    } catch (...) {
        return {};
    }
}
std::u16string GetModuleDirectory() {
    return platform::GetKnownFolder(platform::KnownFolder::Module);
}

}  // namespace qb
