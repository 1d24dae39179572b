// Every text the pane exchanges with the panel, built or read without the
// view: page URLs and the page a URL shows, the messages and scripts to the
// page, the run events, and the bridge's request messages.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "run/run_types.h"
#include "slides/selection.h"

namespace qb {

inline constexpr char16_t kPageTranslate[] = u"translate";

struct PanelUrlParts {
    std::u16string host;
    std::uint16_t port = 443;
    bool secure = true;
    std::u16string page;  // empty or "translate": the translate page
    std::uint64_t tick = 0;
    bool wpsHost = false;
    std::int32_t paneNumber = 0;
    std::u16string mode;
    std::u16string uiLang;
};

// Scheme, host, port unless the scheme's default, and the path.
std::u16string BuildServiceUrl(std::u16string_view host, std::uint16_t port, bool secure,
                               std::u16string_view path);
// Scheme, host, port unless the scheme's default, page path, and the query
// keys _, host, pane, mode and uiLang, values as they are.
std::u16string BuildPanelUrl(const PanelUrlParts& parts);
// The page name of a path below the service host ("/panel/ppt/glossary.html").
std::u16string PageFromPath(std::u16string_view path);
// The page a view's URL shows; false when the URL holds no "/panel".
bool PageFromSource(std::u16string_view url, std::u16string& page);
bool EqualsIgnoringCase(std::u16string_view a, std::u16string_view b);

// Web messages to the page.
std::u16string SetModeMessage(std::u16string_view mode);
std::u16string AccessTokenMessage(std::u16string_view token);
std::u16string UiLangChangedMessage(std::u16string_view lang);
std::u16string FontListMessage(const std::vector<std::u16string>& fonts);
std::u16string TranslateAbortForRunMessage(std::uint64_t runId);
std::u16string TranslateBatchRequestMessage(std::u16string_view requestId,
                                            const TranslateBatchRequest& request);
std::u16string TerminologyResolveRequestMessage(std::u16string_view requestId,
                                                const std::vector<std::u16string>& glossaryIds,
                                                std::u16string_view instructionId,
                                                const std::vector<std::u16string>& corpusTexts);

// A call of a function the page may have put on window; a page without it
// makes the call a no-op.
std::u16string PanelCallScript(std::u16string_view name, std::u16string_view json);

// The objects of the run events, each beginning with the run id.
std::u16string RunIdEvent(std::uint64_t runId);  // onRunStarted, onCancelled
std::u16string ScanProgressEvent(std::uint64_t runId, std::int32_t current, std::int32_t total,
                                 std::u16string_view phase);
std::u16string ReadyEvent(std::uint64_t runId, std::int32_t total, std::int32_t translatable);
std::u16string ProgressEvent(std::uint64_t runId, std::int32_t wordIndex, std::int32_t total,
                             bool skipped, std::u16string_view original,
                             std::u16string_view translated);
std::u16string CompleteEvent(std::uint64_t runId, std::int64_t elapsed, std::int32_t total,
                             bool bilingualCopy);
std::u16string ErrorEvent(std::uint64_t runId, std::u16string_view code,
                          std::u16string_view message);

// The answer to a selection preview, and the one when reading it failed.
std::u16string SelectionPreviewScript(const SelectionPreview& preview);
std::u16string SelectionPreviewFailedScript();
// The answer to a local query; an empty data text answers null.
std::u16string LocalQueryScript(std::u16string_view requestId, std::u16string_view data);

// Failures of the terminology bridge after which a run goes on without
// terminology.
bool IsPassableTerminologyFailure(std::u16string_view code);

}  // namespace qb
