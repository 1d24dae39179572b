// The bridge's pending tables.
#include "pane/panel_bridge.h"

#include <chrono>

#include "foundation/text.h"

namespace qb {

void ReplySignal::Set() {
    {
        std::lock_guard<std::mutex> hold(lock_);
        set_ = true;
    }
    changed_.notify_all();
}

bool ReplySignal::IsSet() const {
    std::lock_guard<std::mutex> hold(lock_);
    return set_;
}

bool ReplySignal::WaitFor(std::uint32_t ms) const {
    std::unique_lock<std::mutex> hold(lock_);
    return changed_.wait_for(hold, std::chrono::milliseconds(ms), [this] { return set_; });
}

std::u16string PanelBridge::NextRequestId(const std::u16string& prefix) {
    const std::uint64_t number = counter_.fetch_add(1) + 1;
    return prefix + AsciiToUtf16(std::to_string(number));
}

void PanelBridge::AddTranslate(const std::shared_ptr<PendingTranslateRequest>& record) {
    std::lock_guard<std::mutex> hold(lock_);
    translates_[record->requestId] = record;
}

bool PanelBridge::RemoveTranslate(const std::u16string& requestId) {
    std::lock_guard<std::mutex> hold(lock_);
    const auto found = translates_.find(requestId);
    if (found == translates_.end()) return false;
    const bool done = found->second->done;
    translates_.erase(found);
    return done;
}

void PanelBridge::AddTerminology(const std::shared_ptr<PendingTerminologyRequest>& record) {
    std::lock_guard<std::mutex> hold(lock_);
    terminology_[record->requestId] = record;
}

PendingTerminologyRequest PanelBridge::TakeTerminology(const std::u16string& requestId) {
    PendingTerminologyRequest copy;
    std::lock_guard<std::mutex> hold(lock_);
    const auto found = terminology_.find(requestId);
    if (found == terminology_.end()) return copy;
    const PendingTerminologyRequest& record = *found->second;
    copy.requestId = record.requestId;
    copy.ok = record.ok;
    copy.result = record.result;
    copy.code = record.code;
    copy.message = record.message;
    copy.done = record.done;
    terminology_.erase(found);
    return copy;
}

bool PanelBridge::CompleteTranslate(const std::u16string& requestId, PanelAnswer answer) {
    std::shared_ptr<ReplySignal> wake;
    {
        std::lock_guard<std::mutex> hold(lock_);
        const auto found = translates_.find(requestId);
        if (found == translates_.end() || found->second->done) return false;
        PendingTranslateRequest& record = *found->second;
        record.ok = answer.ok;
        if (answer.ok) {
            record.translations = std::move(answer.translations);
            record.unitIds = std::move(answer.unitIds);
        } else {
            record.code = std::move(answer.code);
            record.message = std::move(answer.message);
        }
        record.done = true;
        wake = record.event;
    }
    // Signalled outside the lock; the signal is shared, so a waiter that
    // has gone meanwhile leaves it alive.
    if (wake) wake->Set();
    return true;
}

bool PanelBridge::CompleteTerminology(const std::u16string& requestId, PanelAnswer answer) {
    std::shared_ptr<ReplySignal> wake;
    {
        std::lock_guard<std::mutex> hold(lock_);
        const auto found = terminology_.find(requestId);
        if (found == terminology_.end() || found->second->done) return false;
        PendingTerminologyRequest& record = *found->second;
        record.ok = answer.ok;
        if (answer.ok) {
            record.result = std::move(answer.result);
        } else {
            record.code = std::move(answer.code);
            record.message = std::move(answer.message);
        }
        record.done = true;
        wake = record.event;
    }
    if (wake) wake->Set();
    return true;
}

std::size_t PanelBridge::AbortTranslates(const std::u16string& code) {
    std::vector<std::shared_ptr<ReplySignal>> failed;
    {
        std::lock_guard<std::mutex> hold(lock_);
        for (auto& entry : translates_) {
            PendingTranslateRequest& record = *entry.second;
            if (record.done) continue;
            record.done = true;
            record.ok = false;
            record.code = code;
            record.message = u"cancelled";
            failed.push_back(record.event);
        }
    }
    for (const auto& wake : failed) {
        if (wake) wake->Set();
    }
    return failed.size();
}

std::vector<std::u16string> PanelBridge::WaitingIds() const {
    std::vector<std::u16string> ids;
    std::lock_guard<std::mutex> hold(lock_);
    for (const auto& entry : translates_) {
        if (!entry.second->done) ids.push_back(entry.first);
    }
    for (const auto& entry : terminology_) {
        if (!entry.second->done) ids.push_back(entry.first);
    }
    return ids;
}

}  // namespace qb
