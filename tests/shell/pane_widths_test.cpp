// The pane width memory over a task pane that is only its Width, on a hand
// clock: where a new pane's width comes from, the one-second rule before a
// save, noise, WPS's reapplying with its three ends, and the save at shutdown.
#include <gtest/gtest.h>

#include "foundation/user_config.h"
#include "shell/pane_widths.h"
#include "shell/shell_support.h"
#include "support/manual_clock.h"

namespace qb {
namespace {

// A task pane whose width the user (the test) sets; the host may ignore the
// add-in's puts, as WPS does at first.
class WidthPane final : public test::PropertyObject {
  public:
    explicit WidthPane(std::int32_t width) { Set(width); }
    void Set(std::int32_t width) { props[u"Width"] = host::Variant::I4(width); }
    HRESULT Invoke(std::u16string_view member, host::InvokeKind kind, const host::Variant* args,
                   std::size_t count, host::Variant* result) override {
        if (kind == host::InvokeKind::Put && member == u"Width") {
            ++widthPuts;
            if (ignorePuts) return S_OK;
        }
        return PropertyObject::Invoke(member, kind, args, count, result);
    }
    std::int32_t Width() const { return props.at(u"Width").I4Value(); }

    bool ignorePuts = false;
    int widthPuts = 0;
};

class PaneWidthsTest : public testing::Test {
  protected:
    std::int32_t Stored() {
        bool found = false;
        const std::int32_t width = ReadPaneWidth(found);
        return found ? width : -1;
    }
    void Store(std::int32_t width) {
        std::uint32_t error = 0;
        ASSERT_TRUE(SavePaneWidth(width, error));
    }
    // One 300 ms tick.
    PaneWidthResult Tick(PaneWidthState& state, const std::shared_ptr<WidthPane>& pane) {
        clock.Advance(300);
        return PaneWidthStep(state, pane, line);
    }

    test::ScopedUiLanguage folders;  // the configuration file in a folder of the test's own
    test::ManualClock clock;
    test::ScopedClock useClock{clock};
    std::u16string line;
};

TEST_F(PaneWidthsTest, ANewPaneTakesALivePaneThenAPlausibleStoredWidthThenTheDefault) {
    const struct {
        const char* name;
        std::vector<std::int32_t> live;  // widths of the panes already open
        std::int32_t stored;             // -1: nothing stored
        std::int32_t expected;
    } cases[] = {
        {"nothing stored", {}, -1, 520},
        {"first live pane that is wide enough", {150, 410, 500}, -1, 410},
        {"live pane wins over the file", {300}, 700, 300},
        {"a narrow live pane is noise", {150}, 700, 700},
        {"lower bound", {}, 240, 240},
        {"below the lower bound", {}, 239, 520},
        {"upper bound", {}, 1600, 1600},
        {"above the upper bound", {}, 1601, 520},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.stored >= 0) Store(c.stored);
        std::vector<host::HostRef> panes;
        for (std::int32_t width : c.live)
            panes.push_back(std::make_shared<WidthPane>(width));
        EXPECT_EQ(LoadPaneWidth(panes), c.expected);
        if (c.stored >= 0) Store(kDefaultPaneWidthPt);  // back to a neutral file
    }
}

TEST_F(PaneWidthsTest, PowerPointTakesTheWidthAtOnceAndSavesADragOnlyOnceItHasStoodASecond) {
    auto pane = std::make_shared<WidthPane>(300);
    PaneWidthState state;
    BeginPaneWidth(state, 520, false, pane);
    EXPECT_EQ(pane->Width(), 520);
    EXPECT_FALSE(state.pending);

    // The two quiet ticks after the application only observe.
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::None);
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::None);
    // A drag: seen, then it must stand for a second.
    pane->Set(410);
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::None);
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::None);
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::None);
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::None);
    EXPECT_EQ(Stored(), -1) << "900 ms is not yet a second";
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::Save);
    EXPECT_EQ(Stored(), 410);
    EXPECT_NE(line.find(u"PaneWidth save pt=410 ok=1 err=0 file="), std::u16string::npos);
    // The same width is not written again.
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(Tick(state, pane), PaneWidthResult::None);
}

TEST_F(PaneWidthsTest, ANarrowWidthIsNoiseOnceAndNeverWritten) {
    auto pane = std::make_shared<WidthPane>(520);
    PaneWidthState state;
    BeginPaneWidth(state, 520, false, pane);
    pane->Set(150);
    int noise = 0;
    for (int i = 0; i < 12; ++i)
        noise += Tick(state, pane) == PaneWidthResult::SkipNoise;
    EXPECT_EQ(noise, 1);
    EXPECT_EQ(line, u"");
    EXPECT_EQ(Stored(), -1);
}

TEST_F(PaneWidthsTest, WpsGetsTheWidthFromTheTicksAndGivesUpAfterSixTries) {
    auto pane = std::make_shared<WidthPane>(320);
    pane->ignorePuts = true;
    PaneWidthState state;
    BeginPaneWidth(state, 520, true, pane);
    EXPECT_EQ(pane->widthPuts, 0) << "nothing is set at creation";
    EXPECT_TRUE(state.pending);

    std::vector<std::u16string> lines;
    PaneWidthResult result = PaneWidthResult::None;
    for (int i = 0; i < 10 && state.pending; ++i) {
        result = Tick(state, pane);
        lines.push_back(line);
    }
    EXPECT_EQ(result, PaneWidthResult::GiveUp);
    // The sixth application says give-up; the tick after it leaves the mode.
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(lines[0], u"PaneWidth reapply -> 520 try-left=5");
    EXPECT_EQ(lines[4], u"PaneWidth reapply -> 520 try-left=1");
    EXPECT_EQ(lines[5], u"PaneWidth reapply give-up (target=520)");
    EXPECT_EQ(lines[6], u"PaneWidth reapply give-up (target=520)");
    EXPECT_EQ(pane->widthPuts, 12) << "six applications, each a nudge and the width";
}

TEST_F(PaneWidthsTest, WpsIsDoneWithinTwoPoints) {
    auto pane = std::make_shared<WidthPane>(519);
    PaneWidthState state;
    BeginPaneWidth(state, 520, true, pane);
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::Done);
    EXPECT_EQ(line, u"PaneWidth reapply done at 519");
    EXPECT_FALSE(state.pending);
    EXPECT_EQ(pane->widthPuts, 0);
}

TEST_F(PaneWidthsTest, AUserDragDuringWpsReapplyWinsAndIsSavedASecondLater) {
    auto pane = std::make_shared<WidthPane>(320);
    pane->ignorePuts = true;
    PaneWidthState state;
    BeginPaneWidth(state, 520, true, pane);
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::Reapply);
    pane->Set(640);
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::UserTakeover);
    EXPECT_EQ(line, u"PaneWidth reapply give-up (user-takeover cur=640)");
    PaneWidthResult result = PaneWidthResult::None;
    for (int i = 0; i < 6 && result == PaneWidthResult::None; ++i)
        result = Tick(state, pane);
    EXPECT_EQ(result, PaneWidthResult::Save);
    EXPECT_EQ(Stored(), 640);
}

TEST_F(PaneWidthsTest, ShutdownSavesADragTheSecondHasNotLetThrough) {
    auto pane = std::make_shared<WidthPane>(520);
    PaneWidthState state;
    BeginPaneWidth(state, 520, false, pane);
    pane->Set(410);
    EXPECT_EQ(Tick(state, pane), PaneWidthResult::None);
    SavePaneWidthNow(state, pane);
    EXPECT_EQ(Stored(), 410);
    EXPECT_EQ(state.savedWidth, 410);

    // Nothing new, or noise: no write.
    Store(700);
    SavePaneWidthNow(state, pane);
    pane->Set(150);
    SavePaneWidthNow(state, pane);
    EXPECT_EQ(Stored(), 700);
}

}  // namespace
}  // namespace qb
