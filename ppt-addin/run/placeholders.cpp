// Counting and repairing locked placeholder tokens.
#include "run/placeholders.h"

#include "foundation/char_class.h"
#include "run/batch_loop.h"

namespace qb {

std::uint32_t CountLockedTokens(std::u16string_view text) {
    const std::size_t n = text.size();
    std::uint32_t count = 0;
    std::size_t i = 0;
    // The shortest token has nine units; the scan looks while seven are left.
    while (n >= 7 && i + 7 <= n) {
        if (text[i] != u'[' || text[i + 1] != u'[') {
            ++i;
            continue;
        }
        if (i + 4 < n && (text[i + 2] | 0x20) == u'q' && (text[i + 3] | 0x20) == u'b' &&
            text[i + 4] == u'_') {
            std::size_t j = i + 5;
            while (j < n && IsLetterOrDigit(text[j]))
                ++j;
            if (j < n && text[j] == u'_' && j + 1 < n) {
                std::size_t k = j + 1;
                while (k < n && text[k] >= u'0' && text[k] <= u'9')
                    ++k;
                if (k > j + 1 && k + 1 < n && text[k] == u']' && text[k + 1] == u']') {
                    ++count;
                    i = k + 2;
                    continue;
                }
            }
        }
        ++i;
    }
    return count;
}

bool CheckLockedTokens(TranslateClientConfig& config, const std::vector<std::u16string>& texts,
                       std::vector<std::u16string>& translations, std::u16string& outMessage,
                       std::u16string& outCode) {
    for (std::size_t i = 0; i < texts.size() && i < translations.size(); ++i) {
        WaitWhilePaused(config);
        if (config.IsCancelled()) {
            outMessage = u"Cancelled";
            outCode = u"cancelled";
            return false;
        }
        const std::uint32_t expected = CountLockedTokens(texts[i]);
        if (expected == 0 || CountLockedTokens(translations[i]) == expected) continue;
        // One exchange for this text alone: no retry, no split.
        std::vector<std::u16string> repaired;
        const bool sent = SendBatch(config, {texts[i]}, repaired, outMessage, outCode, nullptr);
        if (!sent || repaired.size() != 1) {
            if (outMessage.empty()) outMessage = u"Placeholder repair failed";
            return false;
        }
        if (CountLockedTokens(repaired[0]) != expected) {
            outMessage = u"Translation altered locked placeholders (cross-ref/formula)";
            outCode.clear();
            return false;
        }
        translations[i] = std::move(repaired[0]);
    }
    return true;
}

}  // namespace qb
