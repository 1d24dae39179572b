// Terminology of a run: the service resolves the run's glossary ids and
// instruction id against a sample of its text, once, before the first batch;
// the answer travels in every batch. Also the local snapshot for the panel.
#pragma once

#include <string>
#include <vector>

#include "run/local_stores.h"
#include "run/run_types.h"
#include "run/service_client.h"

namespace qb {

struct TerminologyResult {
    std::vector<GlossaryEntry> entries;
    std::u16string instruction;
};

// The resolve request's body, keys in their fixed order.
std::u16string BuildTerminologyBody(const std::vector<std::u16string>& glossaryIds,
                                    const std::u16string& instructionId,
                                    const std::vector<std::u16string>& corpusTexts);

// Never fails: no token (no request then), no network or a reply that scans
// to nothing give an empty result, and the run goes on without terminology.
TerminologyResult ResolveTerminologyNative(const HttpEndpoint& endpoint,
                                           const std::u16string& token,
                                           const std::vector<std::u16string>& glossaryIds,
                                           const std::u16string& instructionId,
                                           const std::vector<std::u16string>& corpusTexts);

TerminologyResult ParseTerminologyReply(std::u16string_view replyText);

// The instruction, and the enabled entries in order; disabled ones dropped.
void ApplyTerminology(const TerminologyResult& result, std::u16string& outInstruction,
                      std::vector<TranslationGlossaryItem>& outGlossary);

// The stored glossaries and instructions as one JSON object for the panel.
std::u16string ExportLocalSnapshot();

}  // namespace qb
