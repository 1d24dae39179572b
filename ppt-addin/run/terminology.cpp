#include "run/terminology.h"

#include "foundation/text.h"
#include "run/json.h"

namespace qb {

std::u16string BuildTerminologyBody(const std::vector<std::u16string>& glossaryIds,
                                    const std::u16string& instructionId,
                                    const std::vector<std::u16string>& corpusTexts) {
    return JsonObjectWriter()
        .Raw(u"glossaryIds", JsonStringArray(glossaryIds))
        .String(u"instructionId", instructionId)
        .Raw(u"corpusTexts", JsonStringArray(corpusTexts))
        .Raw(u"maxEntries", u"200")
        .Finish();
}

TerminologyResult ResolveTerminologyNative(const HttpEndpoint& endpoint,
                                           const std::u16string& token,
                                           const std::vector<std::u16string>& glossaryIds,
                                           const std::u16string& instructionId,
                                           const std::vector<std::u16string>& corpusTexts) {
    if (token.empty()) return {};
    const std::string body =
        Utf16ToUtf8(BuildTerminologyBody(glossaryIds, instructionId, corpusTexts));
    // No cancel flag: a run's cancel is seen at its first batch.
    const std::u16string reply = HttpPostJson(endpoint, kTerminologyPath, body, nullptr, &token);
    if (reply.empty()) return {};
    return ParseTerminologyReply(reply);
}

TerminologyResult ParseTerminologyReply(std::u16string_view replyText) {
    TerminologyResult result;
    result.instruction = ReadJsonString(replyText, u"instruction");
    result.entries = ScanGlossaryEntries(replyText);
    return result;
}

void ApplyTerminology(const TerminologyResult& result, std::u16string& outInstruction,
                      std::vector<TranslationGlossaryItem>& outGlossary) {
    outInstruction = result.instruction;
    for (const GlossaryEntry& entry : result.entries) {
        if (!entry.enabled) continue;
        outGlossary.push_back({entry.source, entry.target, entry.note});
    }
}

std::u16string ExportLocalSnapshot() {
    std::vector<std::u16string> glossaries;
    for (const GlossaryRecord& listed : ListGlossaries()) {
        GlossaryRecord record;
        if (!LoadGlossary(listed.id, record)) continue;
        std::vector<std::u16string> entries;
        for (const GlossaryEntry& entry : record.entries) {
            entries.push_back(JsonObjectWriter()
                                  .String(u"source", entry.source)
                                  .String(u"target", entry.target)
                                  .String(u"note", entry.note)
                                  .Bool(u"enabled", entry.enabled)
                                  .Finish());
        }
        glossaries.push_back(JsonObjectWriter()
                                 .String(u"id", record.id)
                                 .String(u"name", record.name)
                                 .String(u"updatedAt", record.updatedAt)
                                 .Raw(u"entries", JsonRawArray(entries))
                                 .Finish());
    }
    std::vector<std::u16string> instructions;
    for (const InstructionRecord& record : ListInstructions()) {
        instructions.push_back(JsonObjectWriter()
                                   .String(u"id", record.id)
                                   .String(u"name", record.name)
                                   .String(u"content", record.content)
                                   .String(u"updatedAt", record.updatedAt)
                                   .Finish());
    }
    return JsonObjectWriter()
        .Raw(u"glossaries", JsonRawArray(glossaries))
        .Raw(u"instructions", JsonRawArray(instructions))
        .Finish();
}

}  // namespace qb
