// A pane over the recording view on the simulated host, with the stand-in
// page and a hand-advanced clock: the whole panel road of a run, in-process.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/ui_strings.h"
#include "pane/ppt_pane.h"
#include "run/sta_gate.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_host.h"
#include "sim/panel/recording_view.h"
#include "sim/panel/scripted_page.h"
#include "support/manual_clock.h"
#include "support/trace_lines.h"

namespace qb::test {

inline bool g_paneUserActive = false;
inline bool PaneUserActive() {
    return g_paneUserActive;
}

inline std::string U8(const std::u16string& text) {
    return Utf16ToUtf8(text);
}

class PaneFixture : public testing::Test {
  protected:
    void SetUp() override {
        StaGate::ResetForTesting();
        BusyPresentationRegistry::ResetForTesting();
        ResetUiLanguageForTesting();
        SetSharedAccessToken(std::u16string());
        g_paneUserActive = false;
        platform::SetUserActivityForTesting(&PaneUserActive);
        sim::DeckBuilder b;
        b.Slide().Text(u"Title", u"Quarterly report").Text(u"Body", u"Sales grew\rCosts fell");
        b.Slide().Text(u"Title", u"Outlook");
        b.Slide().Text(u"Body", u"Next steps");
        deck = host.AddPresentation(b.Build());
    }
    void TearDown() override {
        // A run still going is cancelled and seen to its end, so that no
        // worker outlives the pane it calls.
        if (pane && pane->Controller()) {
            pane->CancelRun();
            if (page) (void)page->PumpUntilIdle(20000);
            if (pane->Controller()) pane->Controller()->WaitForWorker();
        }
        page.reset();
        pane.reset();
        platform::SetUserActivityForTesting(nullptr);
        StaGate::ResetForTesting();
        BusyPresentationRegistry::ResetForTesting();
        SetSharedAccessToken(std::u16string());
    }

    PaneSetup MakeSetup() {
        PaneSetup setup;
        setup.application = host.Application();
        setup.window.hwnd = host.App().windows[0]->hwnd;
        setup.paneNumber = 1;
        setup.serviceHost = u"svc.example";
        return setup;
    }
    // The pane with its view up and the translate page loaded.
    void MakePane(PaneSetup setup) {
        page.reset();
        pane = std::make_unique<PptPane>(view, std::move(setup));
        page = std::make_unique<sim::ScriptedPage>(host, *pane, view);
        pane->OnWindowCreated();
        pane->OnViewReady();
        ASSERT_TRUE(page->PumpUntilIdle());
    }
    void MakePane() { MakePane(MakeSetup()); }

    std::u16string FrameText(std::size_t slide, std::size_t shape) {
        return deck->slides[slide - 1]->shapes[shape - 1]->frame.text;
    }
    std::vector<std::u16string> Names(std::initializer_list<const char16_t*> names) {
        return std::vector<std::u16string>(names.begin(), names.end());
    }

  public:
    ManualClock clock;
    ScopedClock scope{clock};
    TraceLines lines;
    sim::SimHost host;
    std::shared_ptr<sim::PresentationModel> deck;
    sim::RecordingView view;
    std::unique_ptr<PptPane> pane;
    std::unique_ptr<sim::ScriptedPage> page;
};

}  // namespace qb::test
