// Telemetry beacons: bodies, latches and the detached sender.
#include "run/beacons.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>

#include "foundation/char_class.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "run/client_identity.h"
#include "run/service_client.h"

namespace qb {
namespace {

std::atomic<bool> g_loadedSent{false};
std::atomic<bool> g_pluginErrorSent{false};

// Beacon threads in flight, so that tests can wait for them to end.
struct InFlight {
    std::mutex lock;
    std::condition_variable ended;
    int count = 0;
};

InFlight& Beacons() {
    static InFlight* inFlight = new InFlight;  // outlives threads at exit
    return *inFlight;
}

struct BeaconRecord {
    HttpEndpoint endpoint;
    std::string body;
    std::u16string eventName;
};

void RunBeacon(std::unique_ptr<BeaconRecord> record) {
    try {
        std::u16string error;
        const std::u16string reply =
            HttpPostJson(record->endpoint, kAnalyticsPath, record->body, &error);
        if (reply.empty()) {
            Trace(record->eventName + u" beacon failed: " +
                  (error.empty() ? std::u16string(u"(no detail)") : error));
        }
    } catch (...) {
        // A beacon never takes anything down with it.
    }
    InFlight& inFlight = Beacons();
    std::lock_guard<std::mutex> hold(inFlight.lock);
    --inFlight.count;
    inFlight.ended.notify_all();
}

}  // namespace

std::u16string StageOfStep(std::u16string_view stepText) {
    if (ContainsIgnoreCase(stepText, u"Controller")) return u"controller";
    if (ContainsIgnoreCase(stepText, u"Environment")) return u"environment";
    if (ContainsIgnoreCase(stepText, u"UserData")) return u"user_data_dir";
    return u"init";
}

std::u16string BuildEventBody(std::u16string_view eventName, std::u16string_view source) {
    std::u16string body = u"{\"events\":[{\"event\":\"";
    body += eventName;
    body += u"\",\"context\":" + BuildClientContext();
    body += u",\"outcome\":\"ok\",\"props\":{\"source\":\"";
    body += source.empty() ? std::u16string_view(u"unknown") : source;
    body += u"\"}}]}";
    return body;
}

std::u16string BuildPluginErrorBody(std::u16string_view stepText, std::int32_t hresult) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hresult));
    std::u16string body = u"{\"events\":[{\"event\":\"";
    body += kPluginErrorEvent;
    body += u"\",\"context\":" + BuildClientContext();
    body += u",\"outcome\":\"error\",\"errorCode\":\"webview2_init\"";
    body += u",\"props\":{\"feature\":\"pane\",\"stage\":\"" + StageOfStep(stepText);
    body += u"\",\"rawErrorCode\":\"" + AsciiToUtf16(code) + u"\"}}]}";
    return body;
}

bool PostBeacon(std::u16string_view eventName, const std::u16string& body) {
    try {
        detail::PinModuleForBeacons();
        auto record = std::make_unique<BeaconRecord>();
        record->body = Utf16ToUtf8(body);
        record->eventName = std::u16string(eventName);
        InFlight& inFlight = Beacons();
        {
            std::lock_guard<std::mutex> hold(inFlight.lock);
            ++inFlight.count;
        }
        try {
            std::thread(RunBeacon, std::move(record)).detach();
        } catch (...) {
            std::lock_guard<std::mutex> hold(inFlight.lock);
            --inFlight.count;
            inFlight.ended.notify_all();
            throw;
        }
        return true;
    } catch (...) {
        Trace(std::u16string(eventName) + u" beacon dropped: no thread");
        return false;
    }
}

void SendEvent(std::u16string_view eventName, std::u16string_view source) {
    try {
        if (eventName == kLoadedEvent && g_loadedSent.exchange(true)) return;
        PostBeacon(eventName, BuildEventBody(eventName, source));
    } catch (...) {
        // The add-in's work never depends on a beacon.
    }
}

void SendPluginError(std::u16string_view stepText, std::int32_t hresult) {
    try {
        if (g_pluginErrorSent.exchange(true)) return;
        PostBeacon(kPluginErrorEvent, BuildPluginErrorBody(stepText, hresult));
    } catch (...) {
    }
}

bool LoadedEventSent() {
    return g_loadedSent.load();
}

bool PluginErrorSent() {
    return g_pluginErrorSent.load();
}

void ResetBeaconLatchesForTesting() {
    g_loadedSent = false;
    g_pluginErrorSent = false;
}

bool WaitForBeaconsForTesting(std::uint32_t timeoutMs) {
    InFlight& inFlight = Beacons();
    std::unique_lock<std::mutex> hold(inFlight.lock);
    return inFlight.ended.wait_for(hold, std::chrono::milliseconds(timeoutMs),
                                   [&] { return inFlight.count == 0; });
}

}  // namespace qb
