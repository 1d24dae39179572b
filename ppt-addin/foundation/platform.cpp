// The portable half of the platform services: the clock in force, test
// overrides of known folders and the debugger-output listener.
#include "foundation/platform.h"

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace qb::platform {
namespace {

std::atomic<Clock*> g_clock{nullptr};

struct FolderOverrides {
    std::mutex lock;
    std::array<std::u16string, 3> paths;
};

FolderOverrides& Overrides() {
    static FolderOverrides overrides;
    return overrides;
}

// Read on every trace line from any thread, so no lock on that road: one
// atomic pointer to an immutable pair. Replaced pairs are kept, never freed,
// since a trace on another thread may still be calling one.
struct Listener {
    DebugListener function;
    void* context;
};
std::atomic<const Listener*> g_listener{nullptr};
std::mutex g_retiredLock;

}  // namespace

Clock& CurrentClock() {
    Clock* clock = g_clock.load(std::memory_order_acquire);
    return clock ? *clock : SystemClock();
}

void SetClockForTesting(Clock* clock) {
    g_clock.store(clock, std::memory_order_release);
}

std::u16string GetKnownFolder(KnownFolder folder) {
    {
        FolderOverrides& o = Overrides();
        std::lock_guard<std::mutex> hold(o.lock);
        const std::u16string& path = o.paths[static_cast<std::size_t>(folder)];
        if (!path.empty()) return path;
    }
    return native::GetKnownFolder(folder);
}

void SetKnownFolderForTesting(KnownFolder folder, std::u16string path) {
    FolderOverrides& o = Overrides();
    std::lock_guard<std::mutex> hold(o.lock);
    o.paths[static_cast<std::size_t>(folder)] = std::move(path);
}

void DebugOutput(std::u16string_view text) {
    const Listener* listener = g_listener.load(std::memory_order_acquire);
    if (listener && listener->function) listener->function(listener->context, text);
    native::DebugOutput(text);
}

void SetDebugListener(DebugListener listener, void* context) {
    static std::vector<std::unique_ptr<Listener>> retired;
    auto pair = std::make_unique<Listener>(Listener{listener, context});
    std::lock_guard<std::mutex> hold(g_retiredLock);
    g_listener.store(pair.get(), std::memory_order_release);
    retired.push_back(std::move(pair));
}

namespace {
std::atomic<UserActivityProbe> g_userActivity{nullptr};
}  // namespace

bool IsUserActive() {
    const UserActivityProbe probe = g_userActivity.load(std::memory_order_acquire);
    return probe ? probe() : native::IsUserActive();
}

void SetUserActivityForTesting(UserActivityProbe probe) {
    g_userActivity.store(probe, std::memory_order_release);
}

namespace {
std::atomic<std::int32_t> g_uiLanguageOverride{-1};
}  // namespace

std::uint16_t UserDefaultUiLanguage() {
    const std::int32_t id = g_uiLanguageOverride.load(std::memory_order_acquire);
    return id >= 0 ? static_cast<std::uint16_t>(id) : native::UserDefaultUiLanguage();
}

void SetUserDefaultUiLanguageForTesting(std::int32_t languageId) {
    g_uiLanguageOverride.store(languageId, std::memory_order_release);
}

std::u16string JoinPath(std::u16string_view directory, std::u16string_view name) {
    std::u16string path(directory);
    if (!path.empty() && path.back() != u'\\' && path.back() != u'/') path += kPathSeparator;
    path += name;
    return path;
}

}  // namespace qb::platform
