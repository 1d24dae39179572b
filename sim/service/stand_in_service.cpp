// The stand-in service over cpp-httplib.
#include "sim/service/stand_in_service.h"

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>

#include "foundation/text.h"
#include "sim/host/json_value.h"
#include "sim/service/pseudo_translate.h"

namespace qb::sim {
namespace {

JsonValue ErrorBody(const char* code, const std::string& message) {
    JsonValue body = JsonValue::Object();
    body.Set(u"code", JsonValue::String(AsciiToUtf16(code)));
    body.Set(u"message", JsonValue::String(Utf8ToUtf16(message)));
    return body;
}

// The strings of an array member, or nothing when it isn't an array of strings.
std::optional<std::vector<std::u16string>> StringArray(const JsonValue& object,
                                                       std::u16string_view key) {
    const JsonValue* value = object.Find(key);
    if (!value || !value->IsArray()) return std::nullopt;
    std::vector<std::u16string> items;
    for (const JsonValue& item : value->Items()) {
        if (!item.IsString()) return std::nullopt;
        items.push_back(item.StringValue());
    }
    return items;
}

bool IsString(const JsonValue& object, std::u16string_view key) {
    const JsonValue* value = object.Find(key);
    return value && value->IsString();
}

// What is wrong with a client context, or empty.
std::string CheckContext(const JsonValue& request) {
    const JsonValue* context = request.Find(u"clientContext");
    if (!context) context = request.Find(u"context");
    if (!context || !context->IsObject()) return "no client context object";
    for (const char16_t* key :
         {u"installId", u"channel", u"os", u"hostApp", u"hostVersion", u"clientVersion"}) {
        if (!IsString(*context, key)) return "client context without " + Utf16ToUtf8(key);
    }
    if (context->Find(u"installId")->StringValue().empty()) return "empty installId";
    return {};
}

// The panel's pages as files, and its sign-in: any name with a password
// gets the service's token, which is what the pages hand the pane.
bool ServePanel(httplib::Server& server, const StandInService::Options& options) {
    if (!server.set_mount_point("/panel", options.panelFolder)) return false;
    server.Post("/v1/auth/signin", [token = options.token](const httplib::Request& request,
                                                           httplib::Response& response) {
        const std::optional<JsonValue> body = ParseJson(request.body);
        const JsonValue* user = body && body->IsObject() ? body->Find(u"user") : nullptr;
        const JsonValue* password = body && body->IsObject() ? body->Find(u"password") : nullptr;
        JsonValue answer = ErrorBody("bad_request", "a user name and a password are needed");
        response.status = 400;
        if (user && password && user->IsString() && password->IsString() &&
            !user->StringValue().empty() && !password->StringValue().empty()) {
            answer = JsonValue::Object();
            answer.Set(u"accessToken", JsonValue::String(Utf8ToUtf16(token)));
            answer.Set(u"user", JsonValue::String(user->StringValue()));
            response.status = 200;
        }
        response.set_content(WriteJson(answer), "application/json; charset=utf-8");
    });
    return true;
}

}  // namespace

std::optional<Fault> FaultFromName(std::string_view name, std::uint32_t lateMs) {
    Fault fault;
    if (name.size() == 3 &&
        std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        fault.kind = FaultKind::Status;
        fault.status = std::stoi(std::string(name));
        if (fault.status < 100) return std::nullopt;
        return fault;
    }
    if (name == "count") {
        fault.kind = FaultKind::WrongCount;
    } else if (name == "placeholders") {
        fault.kind = FaultKind::DamagedPlaceholders;
    } else if (name == "late") {
        fault.kind = FaultKind::Late;
        fault.delayMs = lateMs;
    } else if (name == "never") {
        fault.kind = FaultKind::Never;
    } else if (name == "drop") {
        fault.kind = FaultKind::Drop;
    } else {
        return std::nullopt;
    }
    return fault;
}

struct StandInService::Impl {
    httplib::Server server;
    std::thread listener;
    std::atomic<bool> listenerEnded{false};

    mutable std::mutex lock;
    mutable std::condition_variable changed;
    bool stopping = false;
    std::vector<RecordedRequest> requests;
    std::vector<ServiceRule> rules;
    std::map<std::u16string, std::vector<TermEntry>> glossaries;
    std::map<std::u16string, std::u16string> instructions;

    std::size_t Record(const httplib::Request& request) {
        RecordedRequest record;
        record.path = request.path;
        record.authorization = request.get_header_value("Authorization");
        record.userAgent = request.get_header_value("User-Agent");
        record.contentType = request.get_header_value("Content-Type");
        record.body = request.body;
        std::lock_guard<std::mutex> hold(lock);
        requests.push_back(std::move(record));
        changed.notify_all();
        return requests.size() - 1;
    }

    void SetStatus(std::size_t index, int status) {
        std::lock_guard<std::mutex> hold(lock);
        if (index < requests.size()) requests[index].status = status;
        changed.notify_all();
    }

    Fault ChooseFault(const httplib::Request& request, std::uint32_t lateMs) {
        const std::size_t at = request.body.find(kFaultDirective);
        if (at != std::string::npos) {
            std::size_t end = at + sizeof kFaultDirective - 1;
            const std::size_t start = end;
            while (end < request.body.size() &&
                   (std::isalnum(static_cast<unsigned char>(request.body[end])) != 0)) {
                ++end;
            }
            if (auto fault = FaultFromName(request.body.substr(start, end - start), lateMs)) {
                return *fault;
            }
        }
        std::lock_guard<std::mutex> hold(lock);
        for (ServiceRule& rule : rules) {
            if (rule.times == 0) continue;
            if (!rule.path.empty() && rule.path != request.path) continue;
            if (!rule.bodyContains.empty() &&
                request.body.find(rule.bodyContains) == std::string::npos) {
                continue;
            }
            if (rule.times > 0) --rule.times;
            return rule.fault;
        }
        return {};
    }

    // Waits up to `ms` (forever when 0) or until the service stops; true
    // when it stops.
    bool WaitOrStop(std::uint32_t ms) {
        std::unique_lock<std::mutex> hold(lock);
        if (ms == 0) {
            changed.wait(hold, [&] { return stopping; });
            return true;
        }
        return changed.wait_for(hold, std::chrono::milliseconds(ms), [&] { return stopping; });
    }

    static std::u16string TranslateWithTerms(
        const std::u16string& text, const std::u16string& targetLang,
        const std::vector<std::pair<std::u16string, std::u16string>>& terms) {
        std::u16string out;
        std::size_t from = 0;
        for (;;) {
            std::size_t at = std::u16string::npos;
            const std::pair<std::u16string, std::u16string>* term = nullptr;
            for (const auto& candidate : terms) {
                const std::size_t found = text.find(candidate.first, from);
                if (found < at) {
                    at = found;
                    term = &candidate;
                }
            }
            if (!term) break;
            if (at > from) out += PseudoTranslate(text.substr(from, at - from), targetLang);
            out += term->second;
            from = at + term->first.size();
        }
        if (from < text.size() || text.empty())
            out += PseudoTranslate(text.substr(from), targetLang);
        return out;
    }

    static void Reply(httplib::Response& response, int status, const JsonValue& body) {
        response.status = status;
        response.set_content(WriteJson(body), "application/json; charset=utf-8");
    }

    void Translate(const JsonValue& request, const Fault& fault, httplib::Response& response) {
        const auto texts = StringArray(request, u"texts");
        if (!texts) return Reply(response, 400, ErrorBody("bad_request", "texts missing"));
        if (!IsString(request, u"sourceLang") || !IsString(request, u"targetLang")) {
            return Reply(response, 400, ErrorBody("bad_request", "languages missing"));
        }
        const std::u16string targetLang = request.Find(u"targetLang")->StringValue();
        const auto unitIds = StringArray(request, u"unitIds");
        if (request.Find(u"unitIds") && (!unitIds || unitIds->size() != texts->size())) {
            return Reply(response, 400, ErrorBody("bad_request", "unitIds do not match texts"));
        }
        if (const JsonValue* trace = request.Find(u"trace")) {
            const JsonValue* runId = trace->IsObject() ? trace->Find(u"runId") : nullptr;
            const JsonValue* batchSeq = trace->IsObject() ? trace->Find(u"batchSeq") : nullptr;
            if (!trace->IsObject() || (runId && !runId->IsString()) ||
                (batchSeq && !batchSeq->IsNumber())) {
                return Reply(response, 400, ErrorBody("bad_request", "trace malformed"));
            }
        }
        const std::string context = CheckContext(request);
        if (!context.empty()) return Reply(response, 400, ErrorBody("bad_request", context));

        // The batch's glossary wins over the pseudo-translation: each term's
        // source comes out as its target, as it stands.
        std::vector<std::pair<std::u16string, std::u16string>> terms;
        if (const JsonValue* glossary = request.Find(u"glossary");
            glossary && glossary->IsArray()) {
            for (const JsonValue& item : glossary->Items()) {
                const JsonValue* source = item.IsObject() ? item.Find(u"source") : nullptr;
                const JsonValue* target = item.IsObject() ? item.Find(u"target") : nullptr;
                if (source && target && source->IsString() && target->IsString() &&
                    !source->StringValue().empty()) {
                    terms.emplace_back(source->StringValue(), target->StringValue());
                }
            }
        }
        JsonValue translations = JsonValue::Array();
        for (const std::u16string& text : *texts) {
            std::u16string translated = TranslateWithTerms(text, targetLang, terms);
            if (fault.kind == FaultKind::DamagedPlaceholders) {
                translated = RemoveLockedTokens(translated);
            }
            translations.Push(JsonValue::String(std::move(translated)));
        }
        JsonValue body = JsonValue::Object();
        if (fault.kind == FaultKind::WrongCount) {
            JsonValue shorter = JsonValue::Array();
            for (std::size_t i = 0; i + 1 < translations.Items().size(); ++i)
                shorter.Push(translations.Items()[i]);
            // With one text, one too many instead of none at all.
            if (translations.Items().size() <= 1) {
                shorter = translations;
                shorter.Push(JsonValue::String(u"extra"));
            }
            translations = shorter;
        }
        body.Set(u"translations", std::move(translations));
        if (unitIds) {
            JsonValue ids = JsonValue::Array();
            for (const std::u16string& id : *unitIds)
                ids.Push(JsonValue::String(id));
            body.Set(u"unitIds", std::move(ids));
        }
        Reply(response, 200, body);
    }

    void Resolve(const JsonValue& request, httplib::Response& response) {
        const auto glossaryIds = StringArray(request, u"glossaryIds");
        const auto corpus = StringArray(request, u"corpusTexts");
        const JsonValue* maxEntries = request.Find(u"maxEntries");
        if (!glossaryIds || !corpus || !IsString(request, u"instructionId") || !maxEntries ||
            !maxEntries->IsNumber()) {
            return Reply(response, 400, ErrorBody("bad_request", "resolve fields missing"));
        }
        const auto limit = static_cast<std::size_t>(std::max(0.0, maxEntries->NumberValue()));
        JsonValue body = JsonValue::Object();
        JsonValue entries = JsonValue::Array();
        std::lock_guard<std::mutex> hold(lock);
        const std::u16string instructionId = request.Find(u"instructionId")->StringValue();
        const auto instruction = instructions.find(instructionId);
        if (instruction != instructions.end()) {
            body.Set(u"instruction", JsonValue::String(instruction->second));
        }
        // Only the terms that occur in the run's own text matter.
        for (const std::u16string& id : *glossaryIds) {
            const auto glossary = glossaries.find(id);
            if (glossary == glossaries.end()) continue;
            for (const TermEntry& term : glossary->second) {
                const bool used = std::any_of(corpus->begin(), corpus->end(), [&](const auto& t) {
                    return t.find(term.source) != std::u16string::npos;
                });
                if (!used || entries.Items().size() >= limit) continue;
                JsonValue entry = JsonValue::Object();
                entry.Set(u"source", JsonValue::String(term.source));
                entry.Set(u"target", JsonValue::String(term.target));
                entry.Set(u"note", JsonValue::String(term.note));
                entry.Set(u"enabled", JsonValue::Bool(term.enabled));
                entries.Push(std::move(entry));
            }
        }
        body.Set(u"entries", std::move(entries));
        Reply(response, 200, body);
    }

    void Events(const httplib::Request& http, const JsonValue& request,
                httplib::Response& response) {
        if (http.has_header("Authorization")) {
            return Reply(response, 400, ErrorBody("bad_request", "events carry no token"));
        }
        const JsonValue* events = request.Find(u"events");
        if (!events || !events->IsArray() || events->Items().empty()) {
            return Reply(response, 400, ErrorBody("bad_request", "events missing"));
        }
        for (const JsonValue& event : events->Items()) {
            if (!event.IsObject() || !IsString(event, u"event") || !IsString(event, u"outcome")) {
                return Reply(response, 400, ErrorBody("bad_request", "event malformed"));
            }
            const std::string context = CheckContext(event);
            if (!context.empty()) return Reply(response, 400, ErrorBody("bad_request", context));
        }
        JsonValue body = JsonValue::Object();
        body.Set(u"accepted",
                 JsonValue::Integer(static_cast<std::int64_t>(events->Items().size())));
        Reply(response, 200, body);
    }
};

StandInService::StandInService() : StandInService(Options()) {}

StandInService::StandInService(Options options)
    : options_(std::move(options)), impl_(std::make_unique<Impl>()) {}

StandInService::~StandInService() {
    Stop();
}

bool StandInService::Start(int port) {
    Impl& impl = *impl_;
    const auto handle = [this](const httplib::Request& request, httplib::Response& response) {
        Impl& impl = *impl_;
        const std::size_t index = impl.Record(request);
        const Fault fault = impl.ChooseFault(request, options_.lateMs);
        if (options_.latencyMs > 0 && request.path != "/v1/analytics/events" &&
            impl.WaitOrStop(options_.latencyMs)) {
            return impl.Reply(response, 503, ErrorBody("stopping", "service stopping"));
        }
        switch (fault.kind) {
            case FaultKind::Late:
                if (impl.WaitOrStop(fault.delayMs)) {
                    return impl.Reply(response, 503, ErrorBody("stopping", "service stopping"));
                }
                break;
            case FaultKind::Never:
                impl.WaitOrStop(0);
                return impl.Reply(response, 503, ErrorBody("stopping", "service stopping"));
            case FaultKind::Drop:
                // The headers promise a body that never comes.
                response.set_content_provider(
                    64, "application/json",
                    [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
                return;
            case FaultKind::Status:
                response.status = fault.status;
                if (!fault.body.empty()) response.set_content(fault.body, "application/json");
                impl.SetStatus(index, fault.status);
                return;
            default:
                break;
        }
        const bool open = request.path == "/v1/analytics/events";
        if (!open && request.get_header_value("Authorization") != "Bearer " + options_.token) {
            response.status = 401;  // no body: the client says it in its own words
            impl.SetStatus(index, 401);
            return;
        }
        JsonError error;
        const std::optional<JsonValue> body = ParseJson(request.body, &error);
        if (!body || !body->IsObject()) {
            impl.Reply(response, 400,
                       ErrorBody("bad_request", "not a JSON object: " + error.ToString()));
        } else if (request.get_header_value("Content-Type") != "application/json") {
            impl.Reply(response, 415, ErrorBody("bad_request", "not application/json"));
        } else if (request.path == "/v1/translate") {
            impl.Translate(*body, fault, response);
        } else if (request.path == "/v1/terminology/resolve") {
            impl.Resolve(*body, response);
        } else {
            impl.Events(request, *body, response);
        }
        impl.SetStatus(index, response.status);
    };
    impl.server.Post("/v1/translate", handle);
    impl.server.Post("/v1/terminology/resolve", handle);
    impl.server.Post("/v1/analytics/events", handle);
    // Replies go out as they are; the clients ask for no compression.
    impl.server.set_keep_alive_max_count(1);
    if (!options_.panelFolder.empty() && !ServePanel(impl.server, options_)) return false;

    if (port == 0) {
        port_ = impl.server.bind_to_any_port("127.0.0.1");
        if (port_ <= 0) return false;
    } else {
        if (!impl.server.bind_to_port("127.0.0.1", port)) return false;
        port_ = port;
    }
    impl.listener = std::thread([&impl] {
        impl.server.listen_after_bind();
        impl.listenerEnded = true;
    });
    // A stop that comes before the server runs is lost and the listener then
    // never ends; so Start returns only once it runs (or has failed).
    while (!impl.server.is_running() && !impl.listenerEnded) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return !impl.listenerEnded;
}

void StandInService::Stop() {
    Impl& impl = *impl_;
    {
        std::lock_guard<std::mutex> hold(impl.lock);
        impl.stopping = true;
        impl.changed.notify_all();
    }
    if (impl.listener.joinable()) {
        impl.server.stop();
        impl.listener.join();
    }
}

void StandInService::AddRule(ServiceRule rule) {
    std::lock_guard<std::mutex> hold(impl_->lock);
    impl_->rules.push_back(std::move(rule));
}

void StandInService::FailNext(std::string path, Fault fault, int times) {
    AddRule(ServiceRule{std::move(path), {}, times, std::move(fault)});
}

void StandInService::ClearRules() {
    std::lock_guard<std::mutex> hold(impl_->lock);
    impl_->rules.clear();
}

void StandInService::AddTerm(const std::u16string& glossaryId, TermEntry entry) {
    std::lock_guard<std::mutex> hold(impl_->lock);
    impl_->glossaries[glossaryId].push_back(std::move(entry));
}

void StandInService::SetInstruction(const std::u16string& instructionId, std::u16string text) {
    std::lock_guard<std::mutex> hold(impl_->lock);
    impl_->instructions[instructionId] = std::move(text);
}

std::vector<RecordedRequest> StandInService::Requests() const {
    std::lock_guard<std::mutex> hold(impl_->lock);
    return impl_->requests;
}

std::vector<RecordedRequest> StandInService::RequestsTo(std::string_view path) const {
    std::vector<RecordedRequest> out;
    for (RecordedRequest& request : Requests()) {
        if (request.path == path) out.push_back(std::move(request));
    }
    return out;
}

bool StandInService::WaitForRequests(std::string_view path, std::size_t count,
                                     std::uint32_t timeoutMs) const {
    std::unique_lock<std::mutex> hold(impl_->lock);
    return impl_->changed.wait_for(hold, std::chrono::milliseconds(timeoutMs), [&] {
        return static_cast<std::size_t>(std::count_if(
                   impl_->requests.begin(), impl_->requests.end(),
                   [&](const RecordedRequest& r) { return r.path == path; })) >= count;
    });
}

}  // namespace qb::sim
