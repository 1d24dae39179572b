// Runs the real slide engine under the run controller on the simulated host,
// with a transport that translates at once and a hand-advanced clock, and
// checks what every run must leave behind: each paragraph that held text is
// its translation or exactly its source, and none is left empty.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/ppt_ctrl.h"
#include "run/sta_gate.h"
#include "sim/host/sim_host.h"
#include "slides/slide_engine.h"
#include "slides/writeback.h"
#include "support/manual_clock.h"

namespace qb::test {

// A visible, deterministic stand-in translation.
inline std::u16string Pseudo(std::u16string_view text) {
    return u"DE<" + std::u16string(text) + u">";
}

inline std::vector<std::u16string> SplitParagraphs(const std::u16string& text) {
    std::vector<std::u16string> out(1);
    for (char16_t c : text) {
        if (c == u'\r') {
            out.emplace_back();
        } else {
            out.back().push_back(c);
        }
    }
    return out;
}

// Every text frame of a deck: shapes, group items, table cells, notes.
struct FrameRecord {
    const sim::ShapeModel* shape = nullptr;
    std::u16string where;
    std::u16string text;
};

inline void CaptureShape(const std::shared_ptr<sim::ShapeModel>& shape, const std::u16string& where,
                         std::vector<FrameRecord>& out) {
    if (shape->hasTextFrame)
        out.push_back({shape.get(), where + u"/" + shape->name, shape->frame.text});
    for (const auto& child : shape->children)
        CaptureShape(child, where + u"/" + shape->name, out);
    if (shape->table) {
        for (const auto& cell : shape->table->cells)
            CaptureShape(cell, where + u"/" + shape->name, out);
    }
}

inline std::vector<FrameRecord> CaptureFrames(const sim::PresentationModel& deck) {
    std::vector<FrameRecord> out;
    for (std::size_t s = 0; s < deck.slides.size(); ++s) {
        const std::u16string where = u"slide " + DecimalText(static_cast<long long>(s + 1));
        for (const auto& shape : deck.slides[s]->shapes)
            CaptureShape(shape, where, out);
        for (const auto& shape : deck.slides[s]->notesShapes)
            CaptureShape(shape, where + u" notes", out);
    }
    return out;
}

// The invariant of every run, whatever failed in it.
inline void ExpectTranslatedOrSource(
    const std::vector<FrameRecord>& before,
    const std::function<std::u16string(std::u16string_view)>& t = Pseudo) {
    for (const FrameRecord& frame : before) {
        const std::u16string now = frame.shape->frame.text;
        const std::vector<std::u16string> was = SplitParagraphs(frame.text);
        const std::vector<std::u16string> is = SplitParagraphs(now);
        const std::u16string where = frame.where;
        if (is.size() == 1 && was.size() > 1) {
            std::u16string joined;
            for (const auto& p : was)
                joined += p;
            EXPECT_EQ(now, NormalizeTranslation(t(joined)))
                << "a frame written whole holds the translation of its whole text: "
                << Utf16ToUtf8(where);
            continue;
        }
        ASSERT_EQ(is.size(), was.size())
            << "paragraphs lost or added in " << Utf16ToUtf8(where) << ": " << Utf16ToUtf8(now);
        for (std::size_t i = 0; i < was.size(); ++i) {
            if (!was[i].empty()) {
                EXPECT_FALSE(is[i].empty()) << "emptied: " << Utf16ToUtf8(where);
            }
            EXPECT_TRUE(is[i] == was[i] || is[i] == NormalizeTranslation(t(was[i])))
                << Utf16ToUtf8(where) << " paragraph " << i + 1 << " is neither source nor "
                << "translation: " << Utf16ToUtf8(is[i]);
        }
    }
}

inline bool g_harnessUserActive = false;
inline bool HarnessUserActive() {
    return g_harnessUserActive;
}

struct RunOutcome {
    bool started = false;
    std::u16string startMessage;
    std::int32_t applied = 0;
    std::u16string firstApplyError;
    RunLists lists;
    std::vector<std::string> closing;  // "complete", "error <code>", "cancelled"
};

// One run of the real engine through the controller, to its end.
class EngineHarness {
  public:
    explicit EngineHarness(sim::HostKind kind = sim::HostKind::PowerPoint) : host(kind) {
        StaGate::ResetForTesting();
        BusyPresentationRegistry::ResetForTesting();
        g_harnessUserActive = false;
        platform::SetUserActivityForTesting(&HarnessUserActive);
    }
    ~EngineHarness() {
        platform::SetUserActivityForTesting(nullptr);
        StaGate::ResetForTesting();
        BusyPresentationRegistry::ResetForTesting();
    }

    RunOptions Options(RunScope scope = RunScope::FullDeck) {
        RunOptions o;
        o.scope = scope;
        o.fullDeck = scope == RunScope::FullDeck;
        o.targetLang = u"de";
        o.targetFont = u"Times New Roman";
        o.window.hwnd = host.App().windows.empty() ? 0 : host.App().windows[0]->hwnd;
        o.ownerPane = &paneMark_;
        o.runId = 11;
        o.translateOverride = [this](const TranslateBatchRequest& request) {
            TranslateBatchResult result;
            result.ok = true;
            for (const auto& text : request.texts)
                result.translations.push_back(translate(text));
            return result;
        };
        return o;
    }

    RunOutcome Run(const RunOptions& options) {
        SlideEngine engine(offer, writers);
        if (phrase) engine.SetPhraseTranslator(phrase);
        PptCtrl run(host.Application(), engine);
        RunOutcome out;
        RunCallbacks callbacks;
        callbacks.onComplete = [&](std::int64_t, std::int32_t, bool) {
            out.closing.push_back("complete");
        };
        callbacks.onError = [&](const std::u16string& code, const std::u16string&) {
            out.closing.push_back("error " + Utf16ToUtf8(code));
        };
        callbacks.onCancelled = [&] { out.closing.push_back("cancelled"); };
        out.started = run.Start(options, &callbacks, out.startMessage);
        if (out.started) {
            run.WaitForWorker();
            if (beforeWrites) beforeWrites();
            for (int i = 0; i < 1000 && !run.Tick(); ++i)
                clock.Advance(200);
        }
        out.applied = run.Applied();
        out.firstApplyError = run.FirstApplyError();
        out.lists = run.Lists();
        return out;
    }

    ManualClock clock;
    ScopedClock scope{clock};
    sim::SimHost host;
    std::function<std::u16string(std::u16string_view)> translate = Pseudo;
    ShapeOffer offer;
    ShapeUnitWriters writers;
    // The broken phrase pass's road; unset: the pass does nothing.
    PhraseTranslator phrase;
    // Runs on the test's thread once everything is translated and before
    // the first slide is written: a user's edit in the middle of a run.
    std::function<void()> beforeWrites;

  private:
    int paneMark_ = 0;
};

}  // namespace qb::test
