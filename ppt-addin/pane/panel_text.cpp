// The panel's texts.
#include "pane/panel_text.h"

#include <string>

#include "foundation/text.h"
#include "run/json.h"

namespace qb {
namespace {

std::u16string Unsigned(std::uint64_t value) {
    return AsciiToUtf16(std::to_string(value));
}

char16_t Lower(char16_t c) {
    return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
}

bool EndsWithIgnoringCase(std::u16string_view text, std::u16string_view tail) {
    return text.size() >= tail.size() &&
           EqualsIgnoringCase(text.substr(text.size() - tail.size()), tail);
}

std::u16string GlossaryArray(const std::vector<TranslationGlossaryItem>& glossary) {
    std::u16string out = u"[";
    for (std::size_t i = 0; i < glossary.size(); ++i) {
        if (i > 0) out += u",";
        JsonObjectWriter item;
        item.String(u"source", glossary[i].source).String(u"target", glossary[i].target);
        if (!glossary[i].note.empty()) item.String(u"note", glossary[i].note);
        out += item.Finish();
    }
    return out + u"]";
}

JsonObjectWriter WithRunId(std::uint64_t runId) {
    JsonObjectWriter object;
    object.Raw(u"runId", Unsigned(runId));
    return object;
}

}  // namespace

bool EqualsIgnoringCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (Lower(a[i]) != Lower(b[i])) return false;
    }
    return true;
}

std::u16string BuildServiceUrl(std::u16string_view host, std::uint16_t port, bool secure,
                               std::u16string_view path) {
    std::u16string url = secure ? u"https://" : u"http://";
    url += host;
    const std::uint16_t defaultPort = secure ? 443 : 80;
    if (port != defaultPort) url += u":" + DecimalText(port);
    if (path.empty() || path.front() != u'/') url += u"/";
    url += path;
    return url;
}

std::u16string BuildPanelUrl(const PanelUrlParts& parts) {
    std::u16string path = u"/panel/ppt";
    path +=
        parts.page.empty() || parts.page == kPageTranslate ? u"/" : u"/" + parts.page + u".html";
    std::u16string url = BuildServiceUrl(parts.host, parts.port, parts.secure, path);
    url += u"?_=" + Unsigned(parts.tick);
    url += parts.wpsHost ? u"&host=wps-ppt" : u"&host=ppt";
    if (parts.paneNumber > 0) url += u"&pane=ppt" + DecimalText(parts.paneNumber);
    url += u"&mode=" + parts.mode;
    url += u"&uiLang=" + parts.uiLang;
    return url;
}

std::u16string PageFromPath(std::u16string_view path) {
    while (!path.empty() && path.back() == u'/')
        path.remove_suffix(1);
    if (path.empty() || path == u"/panel/ppt" || path == u"/panel/word" ||
        path == u"/panel/excel" || path == u"/panel") {
        return kPageTranslate;
    }
    static const char16_t* const kPages[] = {u"glossary", u"instruction", u"account", u"login",
                                             u"support"};
    for (const char16_t* page : kPages) {
        if (EndsWithIgnoringCase(path, std::u16string(page) + u".html")) return page;
    }
    return kPageTranslate;
}

bool PageFromSource(std::u16string_view url, std::u16string& page) {
    const std::size_t at = url.find(u"/panel");
    if (at == std::u16string_view::npos) return false;
    std::u16string_view path = url.substr(at);
    const std::size_t query = path.find(u'?');
    if (query != std::u16string_view::npos) path = path.substr(0, query);
    page = PageFromPath(path);
    return true;
}

std::u16string SetModeMessage(std::u16string_view mode) {
    // The mode comes from a fixed list of words: it goes in unescaped.
    return u"{\"action\":\"setMode\",\"mode\":\"" + std::u16string(mode) + u"\"}";
}

std::u16string AccessTokenMessage(std::u16string_view token) {
    return JsonObjectWriter()
        .String(u"action", u"accessToken")
        .String(u"accessToken", token)
        .Finish();
}

std::u16string UiLangChangedMessage(std::u16string_view lang) {
    return JsonObjectWriter().String(u"action", u"uiLangChanged").String(u"uiLang", lang).Finish();
}

std::u16string FontListMessage(const std::vector<std::u16string>& fonts) {
    return JsonObjectWriter()
        .String(u"action", u"fontList")
        .Raw(u"fonts", JsonStringArray(fonts))
        .Finish();
}

std::u16string TranslateAbortForRunMessage(std::uint64_t runId) {
    return JsonObjectWriter()
        .String(u"action", u"translateAbortForRun")
        .Raw(u"runId", Unsigned(runId))
        .Finish();
}

std::u16string TranslateBatchRequestMessage(std::u16string_view requestId,
                                            const TranslateBatchRequest& request) {
    JsonObjectWriter message;
    message.String(u"action", u"translateBatchRequest")
        .String(u"requestId", requestId)
        .Raw(u"runId", Unsigned(request.runId))
        .Raw(u"batchSeq", Unsigned(request.batchSeq))
        .String(u"sourceLang", request.sourceLang)
        .String(u"targetLang", request.targetLang)
        .String(u"usageKind", request.usageKind)
        .String(u"clientProduct", request.clientProduct)
        .Raw(u"texts", JsonStringArray(request.texts))
        .Raw(u"unitIds", JsonStringArray(request.unitIds));
    if (!request.glossary.empty()) message.Raw(u"glossary", GlossaryArray(request.glossary));
    if (!request.instruction.empty()) message.String(u"instruction", request.instruction);
    if (!request.clientTraceId.empty()) message.String(u"clientTraceId", request.clientTraceId);
    return message.Finish();
}

std::u16string TerminologyResolveRequestMessage(std::u16string_view requestId,
                                                const std::vector<std::u16string>& glossaryIds,
                                                std::u16string_view instructionId,
                                                const std::vector<std::u16string>& corpusTexts) {
    return JsonObjectWriter()
        .String(u"action", u"terminologyResolveRequest")
        .String(u"requestId", requestId)
        .Raw(u"glossaryIds", JsonStringArray(glossaryIds))
        .String(u"instructionId", instructionId)
        .Raw(u"corpusTexts", JsonStringArray(corpusTexts))
        .Finish();
}

std::u16string PanelCallScript(std::u16string_view name, std::u16string_view json) {
    const std::u16string fn = u"window." + std::u16string(name);
    return fn + u"&&" + fn + u"(" + std::u16string(json) + u")";
}

std::u16string RunIdEvent(std::uint64_t runId) {
    return WithRunId(runId).Finish();
}

std::u16string ScanProgressEvent(std::uint64_t runId, std::int32_t current, std::int32_t total,
                                 std::u16string_view phase) {
    // The phase is one of the collector's own words and goes in as it is.
    return WithRunId(runId)
        .Integer(u"current", current)
        .Integer(u"total", total)
        .Raw(u"phase", u"\"" + std::u16string(phase) + u"\"")
        .Finish();
}

std::u16string ReadyEvent(std::uint64_t runId, std::int32_t total, std::int32_t translatable) {
    return WithRunId(runId)
        .Integer(u"total", total)
        .Integer(u"translatable", translatable)
        .Finish();
}

std::u16string ProgressEvent(std::uint64_t runId, std::int32_t wordIndex, std::int32_t total,
                             bool skipped, std::u16string_view original,
                             std::u16string_view translated) {
    return WithRunId(runId)
        .Integer(u"wordIndex", wordIndex)
        .Integer(u"total", total)
        .Bool(u"skipped", skipped)
        .String(u"original", original)
        .String(u"translated", translated)
        .Finish();
}

std::u16string CompleteEvent(std::uint64_t runId, std::int64_t elapsed, std::int32_t total,
                             bool bilingualCopy) {
    return WithRunId(runId)
        .Integer(u"elapsed", elapsed)
        .Integer(u"total", total)
        .Bool(u"bilingualCopy", bilingualCopy)
        .Finish();
}

std::u16string ErrorEvent(std::uint64_t runId, std::u16string_view code,
                          std::u16string_view message) {
    return WithRunId(runId).String(u"code", code).String(u"message", message).Finish();
}

std::u16string SelectionPreviewScript(const SelectionPreview& preview) {
    if (preview.empty) {
        return u"if(window.onSelectionPreview)onSelectionPreview({fragments:0,chars:0,"
               u"pptEmpty:true})";
    }
    return u"if(window.onSelectionPreview)onSelectionPreview({fragments:" +
           DecimalText(preview.fragments) + u",chars:" + DecimalText(preview.chars) +
           u",pptEmpty:false,label:" + JsonQuote(preview.label) + u"})";
}

std::u16string SelectionPreviewFailedScript() {
    return u"if(window.onSelectionPreview)onSelectionPreview({error:"
           u"\"\u65e0\u6cd5\u8bfb\u53d6\u9009\u533a\",pptEmpty:true})";
}

std::u16string LocalQueryScript(std::u16string_view requestId, std::u16string_view data) {
    return u"if(window.QuillbrookTerminology)QuillbrookTerminology._onResponse({\"requestId\":" +
           JsonQuote(requestId) + u",\"ok\":true,\"data\":" +
           (data.empty() ? std::u16string(u"null") : std::u16string(data)) + u"})";
}

bool IsPassableTerminologyFailure(std::u16string_view code) {
    static const char16_t* const kPassable[] = {u"cancelled",
                                                u"aborted",
                                                u"AbortError",
                                                u"request_timeout",
                                                u"webview_navigating",
                                                u"webview_unavailable",
                                                u"401",
                                                u"402"};
    for (const char16_t* passable : kPassable) {
        if (code == passable) return true;
    }
    return false;
}

}  // namespace qb
