// The run's worker: terminology once, then the slides in order, each in
// batches of at most 20 units that never cross a slide. A failing batch is
// tried twice, then cut in halves down to one text. A slide's translations
// reach the host's thread only when the whole slide is done.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "run/run_types.h"

namespace qb {

inline constexpr std::size_t kMaxBatchUnits = 20;
inline constexpr std::size_t kTerminologyCorpusTexts = 200;
inline constexpr std::uint32_t kPauseStepMs = 50;

// What the worker reads and writes; every pointer outlives the thread.
struct WorkerArgs {
    TranslateClientConfig* config = nullptr;
    const std::vector<std::u16string>* texts = nullptr;
    std::vector<std::u16string>* translations = nullptr;
    std::u16string* errorMessage = nullptr;
    std::u16string* errorCode = nullptr;
    std::atomic<HRESULT>* workerResult = nullptr;
    ProgressCallback onProgress;
    TerminologyResolver terminologyResolver;
    const std::vector<SlideSpan>* spans = nullptr;
    std::atomic<std::int32_t>* readySpans = nullptr;
};

// The thread's body. Always returns 0; the outcome is in workerResult,
// errorMessage and errorCode.
std::uint32_t WorkerMain(WorkerArgs& args);

// Returns when paused is clear or cancelled is set, looking every 50 ms.
void WaitWhilePaused(const TranslateClientConfig& config);

TranslateBatchRequest BuildBatchRequest(const TranslateClientConfig& config,
                                        const std::vector<std::u16string>& texts,
                                        const std::vector<std::u16string>* unitIds);

// One exchange, no retry.
bool SendBatch(TranslateClientConfig& config, const std::vector<std::u16string>& texts,
               std::vector<std::u16string>& outTranslations, std::u16string& outMessage,
               std::u16string& outCode, const std::vector<std::u16string>* unitIds);

// Two attempts, then halves, down to one text; then the placeholder check.
bool TranslateWithSplit(TranslateClientConfig& config, const std::vector<std::u16string>& texts,
                        std::vector<std::u16string>& outTranslations, std::u16string& outMessage,
                        std::u16string& outCode, const std::vector<std::u16string>* unitIds);

// One text through TranslateWithSplit (the broken phrase pass's entry).
bool TranslateText(TranslateClientConfig& config, const std::u16string& text,
                   std::u16string& outTranslation, std::u16string& outMessage,
                   std::u16string& outCode);

}  // namespace qb
