// The worker thread's loop over slides and batches.
#include "run/batch_loop.h"

#include <algorithm>
#include <cstdio>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/trace.h"
#include "run/placeholders.h"

namespace qb {
namespace {

// Nothing is gained by sending a text again after one of these.
bool IsFinalCode(const std::u16string& code) {
    return code == u"insufficient_credits" || code == u"unauthorized" || code == u"cancelled";
}

void SetCancelled(std::u16string& message, std::u16string& code) {
    message = u"Cancelled";
    code = u"cancelled";
}

void TraceExchange(const TranslateClientConfig& config, std::size_t segs, std::size_t chars,
                   std::int64_t httpMs, const TranslateBatchResult& result) {
    char line[512];  // the line is cut at 511 characters
    std::snprintf(line, sizeof line,
                  "clientTraceId=%s runId=%llu batchSeq=%u segs=%zu chars=%zu httpMs=%lld ok=%d "
                  "code=%s",
                  Utf16ToUtf8(config.clientTraceId).c_str(),
                  static_cast<unsigned long long>(config.runId), unsigned{config.batchSeq}, segs,
                  chars, static_cast<long long>(httpMs), result.ok ? 1 : 0,
                  Utf16ToUtf8(result.code).c_str());
    HttpTrace(line);
}

}  // namespace

void WaitWhilePaused(const TranslateClientConfig& config) {
    while (config.IsPaused() && !config.IsCancelled()) {
        platform::CurrentClock().Sleep(kPauseStepMs);
    }
}

TranslateBatchRequest BuildBatchRequest(const TranslateClientConfig& config,
                                        const std::vector<std::u16string>& texts,
                                        const std::vector<std::u16string>* unitIds) {
    TranslateBatchRequest request;
    request.texts = texts;
    if (unitIds && unitIds->size() == texts.size()) request.unitIds = *unitIds;
    request.sourceLang = config.sourceLang;
    request.targetLang = config.targetLang;
    request.usageKind = config.usageKind;
    request.clientProduct = config.clientProduct;
    request.instruction = config.instruction;
    request.clientTraceId = config.clientTraceId;
    request.runId = config.runId;
    request.batchSeq = config.batchSeq;
    // Only the entries that concern this batch travel with it.
    for (const TranslationGlossaryItem& item : config.glossary) {
        if (item.source.empty()) continue;
        const bool used = std::any_of(texts.begin(), texts.end(), [&](const std::u16string& t) {
            return t.find(item.source) != std::u16string::npos;
        });
        if (used) request.glossary.push_back(item);
    }
    return request;
}

bool SendBatch(TranslateClientConfig& config, const std::vector<std::u16string>& texts,
               std::vector<std::u16string>& outTranslations, std::u16string& outMessage,
               std::u16string& outCode, const std::vector<std::u16string>* unitIds) {
    outTranslations.clear();
    outMessage.clear();
    outCode.clear();
    if (texts.empty()) return true;
    if (config.IsCancelled()) {
        SetCancelled(outMessage, outCode);
        return false;
    }
    const TranslateBatchRequest request = BuildBatchRequest(config, texts, unitIds);
    WaitWhilePaused(config);
    if (config.IsCancelled()) {
        SetCancelled(outMessage, outCode);
        return false;
    }
    std::size_t chars = 0;
    for (const auto& text : texts)
        chars += text.size();
    platform::Clock& clock = platform::CurrentClock();
    const std::uint64_t before = clock.TickCount64();
    TranslateBatchResult result;
    const BatchTransport& road =
        config.translateOverride ? config.translateOverride : config.nativeRoad;
    if (road) {
        try {
            result = road(request);
        } catch (...) {
            // A transport never throws into the loop; one that does failed.
            result = TranslateBatchResult();
        }
    } else {
        result.message = u"HTTP request failed";
        result.code = u"network_error";
    }
    const std::uint64_t after = clock.TickCount64();
    TraceExchange(config, texts.size(), chars, static_cast<std::int64_t>(after - before), result);
    if (result.ok && result.translations.size() == texts.size()) {
        outTranslations = std::move(result.translations);
        return true;
    }
    if (result.ok) {
        outMessage = u"Translation count mismatch";
        outCode.clear();
        return false;
    }
    outMessage = result.message;
    outCode = result.code;
    return false;
}

bool TranslateWithSplit(TranslateClientConfig& config, const std::vector<std::u16string>& texts,
                        std::vector<std::u16string>& outTranslations, std::u16string& outMessage,
                        std::u16string& outCode, const std::vector<std::u16string>* unitIds) {
    outTranslations.clear();
    outMessage.clear();
    outCode.clear();
    if (texts.empty()) return true;
    WaitWhilePaused(config);
    if (config.IsCancelled()) {
        SetCancelled(outMessage, outCode);
        return false;
    }
    if (SendBatch(config, texts, outTranslations, outMessage, outCode, unitIds)) {
        return CheckLockedTokens(config, texts, outTranslations, outMessage, outCode);
    }
    if (IsFinalCode(outCode)) return false;
    const std::u16string firstMessage = outMessage, firstCode = outCode;
    outTranslations.clear();
    outMessage.clear();
    outCode.clear();
    if (SendBatch(config, texts, outTranslations, outMessage, outCode, unitIds)) {
        return CheckLockedTokens(config, texts, outTranslations, outMessage, outCode);
    }
    if (IsFinalCode(outCode)) return false;
    if (texts.size() > 1) {
        const std::size_t half = texts.size() / 2;
        const std::vector<std::u16string> firstTexts(texts.begin(), texts.begin() + half);
        const std::vector<std::u16string> secondTexts(texts.begin() + half, texts.end());
        std::vector<std::u16string> firstIds, secondIds;
        const bool splitIds = unitIds && unitIds->size() == texts.size();
        if (splitIds) {
            firstIds.assign(unitIds->begin(), unitIds->begin() + half);
            secondIds.assign(unitIds->begin() + half, unitIds->end());
        }
        std::vector<std::u16string> first, second;
        if (!TranslateWithSplit(config, firstTexts, first, outMessage, outCode,
                                splitIds ? &firstIds : nullptr)) {
            outTranslations.clear();
            return false;
        }
        if (!TranslateWithSplit(config, secondTexts, second, outMessage, outCode,
                                splitIds ? &secondIds : nullptr)) {
            outTranslations.clear();
            return false;
        }
        outTranslations = std::move(first);
        outTranslations.insert(outTranslations.end(), second.begin(), second.end());
        if (outTranslations.size() != texts.size()) {
            outTranslations.clear();
            outMessage = u"Internal batch merge error";
            outCode.clear();
            return false;
        }
        return CheckLockedTokens(config, texts, outTranslations, outMessage, outCode);
    }
    if (outMessage.empty()) {
        outMessage = firstMessage;
        outCode = firstCode;
    }
    return false;
}

bool TranslateText(TranslateClientConfig& config, const std::u16string& text,
                   std::u16string& outTranslation, std::u16string& outMessage,
                   std::u16string& outCode) {
    std::vector<std::u16string> translations;
    if (!TranslateWithSplit(config, {text}, translations, outMessage, outCode, nullptr)) {
        return false;
    }
    if (translations.size() != 1) {
        outMessage = u"Internal translation error";
        outCode.clear();
        return false;
    }
    outTranslation = std::move(translations[0]);
    return true;
}

std::uint32_t WorkerMain(WorkerArgs& args) {
    // Nothing may leave the thread: an exception here is a failed run.
    try {
        TranslateClientConfig& config = *args.config;
        const std::vector<std::u16string>& texts = *args.texts;
        const auto total = static_cast<std::int32_t>(texts.size());
        args.translations->assign(texts.size(), std::u16string());

        // Spans that don't lie inside the texts, in order, are a fault of the
        // caller: the run fails before anything is read out of bounds.
        std::int32_t previousEnd = 0;
        for (const SlideSpan& span : *args.spans) {
            if (span.first < previousEnd || span.end < span.first || span.end > total) {
                *args.errorMessage = u"Internal translation error";
                *args.errorCode = u"translate_failed";
                args.workerResult->store(kWorkerFailed);
                return 0;
            }
            previousEnd = span.end;
        }
        // Without any road to the service every batch would fail twice and
        // split down to single texts; the run fails once instead.
        if (total > 0 && !config.translateOverride && !config.nativeRoad) {
            *args.errorMessage = u"HTTP request failed";
            *args.errorCode = u"translate_failed";
            args.workerResult->store(kWorkerFailed);
            return 0;
        }

        if (args.terminologyResolver && total > 0) {
            const std::size_t corpusSize = std::min(texts.size(), kTerminologyCorpusTexts);
            const std::vector<std::u16string> corpus(texts.begin(), texts.begin() + corpusSize);
            std::u16string instruction, code, message;
            std::vector<TranslationGlossaryItem> glossary;
            if (!args.terminologyResolver(corpus, instruction, glossary, code, message)) {
                *args.errorMessage = message.empty() ? u"terminology resolve failed" : message;
                *args.errorCode = code.empty() ? u"terminology_resolve_failed" : code;
                args.workerResult->store(code == u"cancelled" ? kWorkerCancelled : kWorkerFailed);
                return 0;
            }
            if (!instruction.empty() || !glossary.empty()) {
                config.instruction = std::move(instruction);
                config.glossary = std::move(glossary);
            }
        }

        for (const SlideSpan& span : *args.spans) {
            for (std::int32_t b = span.first; b < span.end;
                 b += static_cast<std::int32_t>(kMaxBatchUnits)) {
                if (config.IsCancelled()) {
                    args.workerResult->store(kWorkerCancelled);
                    return 0;
                }
                const std::int32_t e =
                    std::min(b + static_cast<std::int32_t>(kMaxBatchUnits), span.end);
                const std::vector<std::u16string> batch(texts.begin() + b, texts.begin() + e);
                std::vector<std::u16string> translations;
                std::u16string message, code;
                if (!TranslateWithSplit(config, batch, translations, message, code, nullptr)) {
                    *args.errorMessage = message.empty() ? u"HTTP request failed" : message;
                    *args.errorCode = code.empty() ? u"translate_failed" : code;
                    const bool cancelled = code == u"cancelled" || config.IsCancelled();
                    args.workerResult->store(cancelled ? kWorkerCancelled : kWorkerFailed);
                    return 0;
                }
                if (translations.size() != batch.size()) {
                    *args.errorMessage = u"batch size mismatch";
                    *args.errorCode = u"batch_size_mismatch";
                    args.workerResult->store(kWorkerFailed);
                    return 0;
                }
                for (std::int32_t i = b; i < e; ++i) {
                    (*args.translations)[static_cast<std::size_t>(i)] =
                        translations[static_cast<std::size_t>(i - b)];
                }
                if (args.onProgress) {
                    for (std::int32_t i = b; i < e; ++i) {
                        const std::u16string& source = texts[static_cast<std::size_t>(i)];
                        const std::u16string& translation =
                            (*args.translations)[static_cast<std::size_t>(i)];
                        const bool skipped = translation.empty() || translation == source;
                        args.onProgress(i + 1, total, skipped, source, translation);
                    }
                }
            }
            // The only signal to the host's thread: this slide is complete.
            args.readySpans->fetch_add(1, std::memory_order_acq_rel);
        }
        args.workerResult->store(S_OK);
    } catch (...) {
        if (args.errorMessage) *args.errorMessage = u"Internal translation error";
        if (args.errorCode) *args.errorCode = u"translate_failed";
        if (args.workerResult) args.workerResult->store(kWorkerFailed);
    }
    return 0;
}

}  // namespace qb
