// The records of a run that the worker and the service exchange share: the
// batch request and result, the glossary item, the client configuration with
// its cancel and pause flags, and the slide spans.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "foundation/hresult.h"

// The service's endpoint is a constant of the build (CMake QB_SERVICE_HOST).
#ifndef QB_SERVICE_HOST
#define QB_SERVICE_HOST u"service.quillbrook.example"
#endif

namespace qb {

inline constexpr char16_t kServiceHost[] = QB_SERVICE_HOST;
inline constexpr std::uint16_t kServicePort = 443;

struct TranslationGlossaryItem {
    std::u16string source;
    std::u16string target;
    std::u16string note;
};

struct TranslateBatchRequest {
    std::vector<std::u16string> texts;
    std::vector<std::u16string> unitIds;  // empty, or as many as texts
    std::u16string sourceLang;
    std::u16string targetLang;
    std::u16string usageKind;
    std::u16string clientProduct;
    std::u16string instruction;
    std::vector<TranslationGlossaryItem> glossary;
    std::u16string clientTraceId;
    std::uint64_t runId = 0;
    std::uint32_t batchSeq = 0;
};

struct TranslateBatchResult {
    bool ok = false;
    std::vector<std::u16string> translations;
    std::vector<std::u16string> unitIds;
    std::u16string code;     // machine word of a failure
    std::u16string message;  // text of a failure
};

// One road for a batch: the panel's bridge or the service exchange.
using BatchTransport = std::function<TranslateBatchResult(const TranslateBatchRequest&)>;

struct TranslateClientConfig {
    std::u16string host = kServiceHost;
    std::uint16_t port = kServicePort;
    bool secure = true;
    std::u16string targetLang = u"zh-CN";
    std::u16string sourceLang = u"auto";
    std::u16string accessToken;
    std::u16string usageKind = u"translate_full";
    std::u16string clientProduct = u"ppt";
    BatchTransport translateOverride;  // the panel road, when set
    // The service exchange, set by the controller; the road taken when no
    // override is set.
    BatchTransport nativeRoad;
    // Set by the pane's thread, polled by the worker: order doesn't matter,
    // only that each read sees a whole value.
    std::atomic<std::uint8_t> cancelled{0};
    std::atomic<std::uint8_t> paused{0};
    std::u16string clientTraceId;
    std::uint64_t runId = 0;
    std::uint32_t batchSeq = 0;
    std::u16string instruction;
    std::vector<TranslationGlossaryItem> glossary;

    bool IsCancelled() const { return cancelled.load(std::memory_order_relaxed) != 0; }
    bool IsPaused() const { return paused.load(std::memory_order_relaxed) != 0; }
};

// First and one past the last unit index of one slide's units.
struct SlideSpan {
    std::int32_t first = 0;
    std::int32_t end = 0;
};

// What the worker leaves for the host's thread to read after it has ended.
inline constexpr HRESULT kWorkerCancelled = static_cast<HRESULT>(0x800704C7u);
inline constexpr HRESULT kWorkerFailed = static_cast<HRESULT>(0x80004005u);

// Called on the worker thread for each translated unit: its 1-based number
// in the run, the total, whether it came back empty or unchanged, the
// source and the translation.
using ProgressCallback = std::function<void(std::int32_t, std::int32_t, bool, const std::u16string&,
                                            const std::u16string&)>;

// Resolves the run's glossary and instruction once (on the worker thread).
using TerminologyResolver = std::function<bool(
    const std::vector<std::u16string>& corpusTexts, std::u16string& instruction,
    std::vector<TranslationGlossaryItem>& glossary, std::u16string& code, std::u16string& message)>;

}  // namespace qb
