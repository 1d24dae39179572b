// The bridge's pending tables on their own: request ids, one completion a
// record whatever meets on it, aborts that touch only batches, and the
// waiter's signal, also when the answer and the abort race on two threads.
#include <gtest/gtest.h>

#include <thread>

#include "pane/panel_bridge.h"

namespace qb {
namespace {

std::shared_ptr<PendingTranslateRequest> Translate(PanelBridge& bridge) {
    auto record = std::make_shared<PendingTranslateRequest>();
    record->requestId = bridge.NextRequestId(u"ppttr_");
    record->event = std::make_shared<ReplySignal>();
    bridge.AddTranslate(record);
    return record;
}

std::shared_ptr<PendingTerminologyRequest> Terminology(PanelBridge& bridge) {
    auto record = std::make_shared<PendingTerminologyRequest>();
    record->requestId = bridge.NextRequestId(u"pptterm_");
    record->event = std::make_shared<ReplySignal>();
    bridge.AddTerminology(record);
    return record;
}

PanelAnswer Ok(std::vector<std::u16string> translations) {
    PanelAnswer answer;
    answer.ok = true;
    answer.translations = std::move(translations);
    return answer;
}

TEST(BridgeTableTest, RequestIdsRiseAcrossBothKindsFromOne) {
    PanelBridge bridge;
    EXPECT_EQ(Terminology(bridge)->requestId, u"pptterm_1");
    EXPECT_EQ(Translate(bridge)->requestId, u"ppttr_2");
    EXPECT_EQ(Translate(bridge)->requestId, u"ppttr_3");
    EXPECT_EQ(bridge.WaitingIds(),
              (std::vector<std::u16string>{u"ppttr_2", u"ppttr_3", u"pptterm_1"}));
}

TEST(BridgeTableTest, ARecordIsCompletedOnceAndItsWaiterWokenOnce) {
    PanelBridge bridge;
    auto record = Translate(bridge);
    EXPECT_FALSE(record->event->IsSet());
    EXPECT_FALSE(bridge.CompleteTranslate(u"ppttr_77", Ok({u"x"})));  // unknown id
    EXPECT_FALSE(record->event->IsSet());
    EXPECT_TRUE(bridge.CompleteTranslate(record->requestId, Ok({u"eins"})));
    EXPECT_TRUE(record->event->IsSet());
    EXPECT_TRUE(record->event->WaitFor(0));
    // A second answer, and an abort after it, change nothing.
    EXPECT_FALSE(bridge.CompleteTranslate(record->requestId, Ok({u"zwei"})));
    EXPECT_EQ(bridge.AbortTranslates(u"cancelled"), 0u);
    EXPECT_TRUE(record->ok);
    EXPECT_EQ(record->translations, std::vector<std::u16string>{u"eins"});
    EXPECT_TRUE(record->code.empty());
    EXPECT_TRUE(bridge.RemoveTranslate(record->requestId));
    EXPECT_FALSE(bridge.RemoveTranslate(record->requestId));
    // After the waiter took it out, an answer finds nothing.
    EXPECT_FALSE(bridge.CompleteTranslate(record->requestId, Ok({u"late"})));
}

TEST(BridgeTableTest, AnAbortFailsWaitingBatchesAndLeavesTerminologyWaiting) {
    PanelBridge bridge;
    auto first = Translate(bridge);
    auto term = Terminology(bridge);
    auto second = Translate(bridge);
    EXPECT_EQ(bridge.AbortTranslates(u"webview_navigating"), 2u);
    for (const auto& record : {first, second}) {
        EXPECT_TRUE(record->done);
        EXPECT_FALSE(record->ok);
        EXPECT_EQ(record->code, u"webview_navigating");
        EXPECT_EQ(record->message, u"cancelled");
        EXPECT_TRUE(record->event->IsSet());
    }
    EXPECT_FALSE(term->event->IsSet());
    EXPECT_FALSE(bridge.CompleteTranslate(first->requestId, Ok({u"x"})));  // too late
    EXPECT_EQ(first->code, u"webview_navigating");

    PanelAnswer failed;
    failed.code = u"402";
    failed.message = u"no credits";
    failed.result = u"{\"ignored\":1}";
    EXPECT_TRUE(bridge.CompleteTerminology(term->requestId, failed));
    const PendingTerminologyRequest taken = bridge.TakeTerminology(term->requestId);
    EXPECT_TRUE(taken.done);
    EXPECT_FALSE(taken.ok);
    EXPECT_EQ(taken.code, u"402");
    EXPECT_TRUE(taken.result.empty());
    EXPECT_FALSE(bridge.TakeTerminology(term->requestId).done);
}

TEST(BridgeTableTest, AnAnswerAndAnAbortRacingOnTwoThreadsLeaveOneWholeOutcome) {
    for (int round = 0; round < 200; ++round) {
        PanelBridge bridge;
        std::vector<std::shared_ptr<PendingTranslateRequest>> records;
        for (int i = 0; i < 8; ++i)
            records.push_back(Translate(bridge));
        std::thread answers([&] {
            for (const auto& record : records)
                (void)bridge.CompleteTranslate(record->requestId, Ok({u"t"}));
        });
        std::thread aborts([&] { (void)bridge.AbortTranslates(u"cancelled"); });
        answers.join();
        aborts.join();
        for (const auto& record : records) {
            ASSERT_TRUE(record->event->IsSet());
            (void)bridge.RemoveTranslate(record->requestId);
            if (record->ok) {
                EXPECT_EQ(record->translations, std::vector<std::u16string>{u"t"});
                EXPECT_TRUE(record->code.empty());
            } else {
                EXPECT_EQ(record->code, u"cancelled");
                EXPECT_TRUE(record->translations.empty());
            }
        }
    }
}

TEST(BridgeTableTest, ASignalWakesAWaiterOnAnotherThread) {
    ReplySignal signal;
    EXPECT_FALSE(signal.WaitFor(1));
    std::thread setter([&] { signal.Set(); });
    EXPECT_TRUE(signal.WaitFor(60000));
    setter.join();
}

}  // namespace
}  // namespace qb
