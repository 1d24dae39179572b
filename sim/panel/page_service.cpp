// The page's service call and its reading of the pane's scripts.
#include "sim/panel/page_service.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "foundation/text.h"
#include "run/json.h"
#include "run/run_types.h"
#include "run/service_client.h"
#include "run/terminology.h"
#include "sim/host/json_value.h"

namespace qb::sim {
namespace {

constexpr char16_t kCallPrefix[] = u"window.";
constexpr char16_t kLocalAnswerPrefix[] =
    u"if(window.QuillbrookTerminology)QuillbrookTerminology._onResponse(";
constexpr char16_t kPreviewPrefix[] = u"if(window.onSelectionPreview)onSelectionPreview(";

constexpr std::size_t npos = std::u16string::npos;

// The text between `from` and the script's last closing parenthesis.
std::u16string Inside(const std::u16string& script, std::size_t from) {
    const std::size_t end = script.rfind(u')');
    return end == npos || end < from ? std::u16string() : script.substr(from, end - from);
}

// The batch a translateBatchRequest carries, read back as the page would.
TranslateBatchRequest BatchOfMessage(const std::u16string& json) {
    TranslateBatchRequest request;
    request.texts = ReadJsonStringArray(json, u"texts");
    request.unitIds = ReadJsonStringArray(json, u"unitIds");
    request.sourceLang = ReadJsonString(json, u"sourceLang");
    request.targetLang = ReadJsonString(json, u"targetLang");
    request.usageKind = ReadJsonString(json, u"usageKind");
    request.clientProduct = ReadJsonString(json, u"clientProduct");
    request.instruction = ReadJsonString(json, u"instruction");
    request.clientTraceId = ReadJsonString(json, u"clientTraceId");
    const std::optional<JsonValue> message = ParseJson(Utf16ToUtf8(json));
    const JsonValue* glossary = message ? message->Find(u"glossary") : nullptr;
    if (glossary && glossary->IsArray()) {
        const auto text = [](const JsonValue& item, std::u16string_view key) {
            const JsonValue* value = item.Find(key);
            return value && value->IsString() ? value->StringValue() : std::u16string();
        };
        for (const JsonValue& item : glossary->Items()) {
            if (item.IsObject()) {
                request.glossary.push_back(
                    {text(item, u"source"), text(item, u"target"), text(item, u"note")});
            }
        }
    }
    // Run ids are tick counts and batch numbers small: a double holds both.
    const double runId = ReadJsonNumber(json, u"runId");
    if (runId > 0 && runId < 1.8e19) request.runId = static_cast<std::uint64_t>(runId);
    const double seq = ReadJsonNumber(json, u"batchSeq");
    if (seq > 0 && seq < 4.2e9) request.batchSeq = static_cast<std::uint32_t>(seq);
    return request;
}

// A failure as the page words it. A batch carries the service's own code
// ("unauthorized" ends the run at once); a resolve refused for sign-in or
// payment carries the bare status, which lets the run go on without terms.
std::u16string FailureCode(bool terminology, std::uint32_t status,
                           const std::u16string& serviceCode) {
    if (terminology && (status == 401 || status == 402)) {
        return DecimalText(static_cast<long long>(status));
    }
    return serviceCode.empty() ? std::u16string(u"service_error") : serviceCode;
}

std::u16string Answer(const std::u16string& requestJson, bool terminology,
                      const std::u16string& token) {
    JsonObjectWriter answer;
    answer.String(u"action", terminology ? u"terminologyResolveResult" : u"translateBatchResult")
        .String(u"requestId", ReadJsonString(requestJson, u"requestId"));
    std::u16string error;
    std::uint32_t status = 0;
    const std::u16string* bearer = token.empty() ? nullptr : &token;
    if (terminology) {
        const std::u16string body =
            BuildTerminologyBody(ReadJsonStringArray(requestJson, u"glossaryIds"),
                                 ReadJsonString(requestJson, u"instructionId"),
                                 ReadJsonStringArray(requestJson, u"corpusTexts"));
        const std::u16string reply =
            HttpPostJson(HttpEndpoint(), kTerminologyPath, Utf16ToUtf8(body), &error, bearer,
                         nullptr, nullptr, &status);
        if (status == 200 && !reply.empty() && reply.front() == u'{') {
            answer.Bool(u"ok", true).Raw(u"result", reply);
        } else {
            answer.Bool(u"ok", false)
                .String(u"code", FailureCode(true, status, ReadJsonString(reply, u"code")))
                .String(u"message", reply.empty() ? error : ReadFailureText(reply));
        }
        return answer.Finish();
    }
    const TranslateBatchRequest request = BatchOfMessage(requestJson);
    const std::u16string reply =
        HttpPostJson(HttpEndpoint(), kTranslatePath, Utf16ToUtf8(BuildTranslateBody(request)),
                     &error, bearer, nullptr, nullptr, &status);
    const TranslateBatchResult result =
        ReadTranslateReply(reply, status, error, request.texts.size());
    if (result.ok) {
        answer.Bool(u"ok", true)
            .Raw(u"translations", JsonStringArray(result.translations))
            .Raw(u"unitIds",
                 JsonStringArray(result.unitIds.empty() ? request.unitIds : result.unitIds));
    } else {
        answer.Bool(u"ok", false)
            .String(u"code", FailureCode(false, status, result.code))
            .String(u"message", result.message);
    }
    return answer.Finish();
}

}  // namespace

std::u16string PageServiceAnswer(const std::u16string& requestJson, bool terminology,
                                 const std::u16string& token) {
    try {
        return Answer(requestJson, terminology, token);
    } catch (...) {
        // Out of memory on the way: the page still answers, so that the
        // pane's waiter is not left to its time-out.
        try {
            return JsonObjectWriter()
                .String(u"action",
                        terminology ? u"terminologyResolveResult" : u"translateBatchResult")
                .String(u"requestId", ReadJsonString(requestJson, u"requestId"))
                .Bool(u"ok", false)
                .String(u"code", u"page_error")
                .String(u"message", u"the page failed to call the service")
                .Finish();
        } catch (...) {
            return {};
        }
    }
}

PageScript ReadPageScript(const std::u16string& script) {
    PageScript read;
    const auto startsWith = [&](const char16_t* prefix) { return script.rfind(prefix, 0) == 0; };
    if (startsWith(kLocalAnswerPrefix)) {
        read.kind = PageScript::Kind::LocalAnswer;
        read.args = Inside(script, std::char_traits<char16_t>::length(kLocalAnswerPrefix));
        return read;
    }
    if (startsWith(kPreviewPrefix)) {
        read.kind = PageScript::Kind::Preview;
        read.args = Inside(script, std::char_traits<char16_t>::length(kPreviewPrefix));
        return read;
    }
    if (!startsWith(kCallPrefix)) return read;
    const std::size_t guard = script.find(u"&&");
    if (guard == npos) return read;
    const std::size_t open = script.find(u'(', guard);
    if (open == npos) return read;
    const std::size_t nameStart = std::char_traits<char16_t>::length(kCallPrefix);
    read.kind = PageScript::Kind::Call;
    read.name = script.substr(nameStart, guard - nameStart);
    read.args = Inside(script, open + 1);
    return read;
}

}  // namespace qb::sim
