// Bilingual runs on the simulated host: the translation goes onto tagged
// copies directly behind their sources, the sources stay exactly as they
// were, a later run writes on the same copies, and whatever a host does
// with Duplicate and Paste, only slides the run provably made are deleted.
#include <gtest/gtest.h>

#include "charts/bilingual_copy.h"
#include "sim/host/deck_builder.h"
#include "sim/sim_test_support.h"
#include "slides/engine_harness.h"
#include "support/trace_lines.h"

namespace qb {
namespace {

using sim::DeckBuilder;
using sim::DuplicateMode;
using sim::PasteMode;
using sim::SelectionModel;
using sim::SelectionType;
using sim::SlideModel;
using test::EngineHarness;
using test::Pseudo;

// Everything of a slide a run could change, for a byte-for-byte compare.
struct SlideImage {
    std::int32_t id = 0;
    std::vector<std::u16string> texts;
    std::vector<std::vector<sim::CharFormat>> formats;
    std::map<std::u16string, std::u16string> tags;
    bool operator==(const SlideImage& o) const {
        return id == o.id && texts == o.texts && formats == o.formats && tags == o.tags;
    }
};

SlideImage Image(const SlideModel& slide) {
    SlideImage image;
    image.id = slide.slideId;
    image.tags = slide.tags;
    for (const auto& shape : slide.shapes) {
        image.texts.push_back(shape->frame.text);
        image.formats.push_back(shape->frame.formats);
    }
    for (const auto& shape : slide.notesShapes)
        image.texts.push_back(shape->frame.text);
    return image;
}

class BilingualDeck {
  public:
    BilingualDeck() {
        DeckBuilder b;
        for (int i = 1; i <= 5; ++i) {
            b.Slide().Text(u"Title", u"Title of slide " + DecimalText(i));
            b.Text(u"Body", u"Body of slide " + DecimalText(i) + u"\rSecond line");
            b.Notes(u"Notes " + DecimalText(i));
        }
        deck_ = h_.host.AddPresentation(b.Build());
        for (const auto& slide : deck_->slides)
            sources_.push_back(Image(*slide));
    }

    RunOptions Options(RunScope scope = RunScope::FullDeck) {
        RunOptions o = h_.Options(scope);
        o.bilingualSlides = true;
        return o;
    }
    // Selects slides by their present index.
    void SelectSlides(std::initializer_list<int> indexes) {
        SelectionModel m;
        m.type = SelectionType::Slides;
        for (int i : indexes)
            m.slides.push_back(deck_->slides[static_cast<std::size_t>(i - 1)]);
        h_.host.App().windows[0]->selection = m;
    }
    // "1 2 2' ..." : each slide by its source number, a copy marked '.
    std::string Order() const {
        std::string order;
        for (const auto& slide : deck_->slides) {
            if (!order.empty()) order += ' ';
            const auto tag = slide->tags.find(u"QUILLBROOK.BILINGUALCOPYOF");
            const std::int32_t id =
                tag == slide->tags.end() ? slide->slideId : std::stoi(Utf16ToUtf8(tag->second));
            order += std::to_string(id - 255);
            if (tag != slide->tags.end()) order += '\'';
        }
        return order;
    }
    const SlideModel& At(int index) const {
        return *deck_->slides[static_cast<std::size_t>(index - 1)];
    }
    // Every source slide is as it was, wherever it stands now.
    void ExpectSourcesUntouched() {
        for (const SlideImage& source : sources_) {
            bool found = false;
            for (const auto& slide : deck_->slides) {
                if (slide->slideId != source.id) continue;
                found = true;
                EXPECT_TRUE(Image(*slide) == source) << "slide id " << source.id << " changed";
            }
            EXPECT_TRUE(found) << "slide id " << source.id << " is gone";
        }
    }

    EngineHarness h_;
    std::shared_ptr<sim::PresentationModel> deck_;
    std::vector<SlideImage> sources_;
};

class Bilingual : public testing::Test, protected BilingualDeck {};

TEST_F(Bilingual, CopiesStandBehindTheirSourcesAndTakeTheTranslation) {
    SelectSlides({5, 2, 2});  // one index twice: one copy
    test::TraceLines trace;
    const test::RunOutcome out = h_.Run(Options(RunScope::Selection));
    EXPECT_EQ(out.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(Order(), "1 2 2' 3 4 5 5'");
    ExpectSourcesUntouched();
    EXPECT_EQ(At(3).shapes[0]->frame.text, u"DE<Title of slide 2>");
    EXPECT_EQ(At(3).shapes[1]->frame.text, u"DE<Body of slide 2>\rDE<Second line>");
    EXPECT_EQ(At(3).notesShapes[0]->frame.text, u"DE<Notes 2>");
    EXPECT_EQ(At(7).shapes[0]->frame.text, u"DE<Title of slide 5>");
    EXPECT_EQ(At(3).tags.at(u"QUILLBROOK.BILINGUALCOPYOF"), u"257");
    // The last slide is copied first.
    const std::u16string log = trace.Text();
    EXPECT_LT(log.find(u"PptCtrl bilingual copy source=5 sourceId=260"),
              log.find(u"PptCtrl bilingual copy source=2 sourceId=257"));
}

TEST_F(Bilingual, ALaterRunWritesOnTheSameCopiesEvenAfterSlidesMoved) {
    ASSERT_EQ(h_.Run(Options()).closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(Order(), "1 1' 2 2' 3 3' 4 4' 5 5'");
    // A new slide before the sources: indexes move, ids don't.
    DeckBuilder extra;
    extra.Slide().Text(u"New", u"Inserted later");
    auto inserted = extra.Build()->slides[0];
    inserted->slideId = deck_->nextSlideId++;
    deck_->slides.insert(deck_->slides.begin(), inserted);
    h_.translate = [](std::u16string_view text) { return u"FR<" + std::u16string(text) + u">"; };
    const test::RunOutcome second = h_.Run(Options());
    EXPECT_EQ(second.closing, std::vector<std::string>{"complete"});
    EXPECT_EQ(deck_->slides.size(), 12u);  // the new slide got a copy; no other new slide
    EXPECT_EQ(Order(), "11 11' 1 1' 2 2' 3 3' 4 4' 5 5'");
    EXPECT_EQ(At(6).shapes[0]->frame.text, u"FR<Title of slide 2>");
    ExpectSourcesUntouched();
}

TEST_F(Bilingual, AFullRunLeavesOldCopiesOutOfItsText) {
    h_.Run(Options());
    RunOptions plain = h_.Options();
    const test::RunOutcome out = h_.Run(plain);
    EXPECT_EQ(out.lists.slideIndexes, (std::vector<std::int32_t>{1, 3, 5, 7, 9}));
    // A selection of a copy is refused by name.
    SelectSlides({2});
    const test::RunOutcome refused = h_.Run(Options(RunScope::Selection));
    EXPECT_EQ(refused.closing, std::vector<std::string>{"error bilingual_copy_failed"});
}

TEST_F(Bilingual, EveryWayADuplicateCanGoEndsWithOneCopyBehindTheSource) {
    const struct {
        const char* name;
        DuplicateMode mode;
        const char16_t* trace;
    } cases[] = {
        {"fails but copied", DuplicateMode::FailAfterCopy, nullptr},
        {"appended at the end", DuplicateMode::AppendAtEnd, u"; fallback clipboard"},
        {"several slides", DuplicateMode::SeveralSlides, nullptr},
    };
    for (const auto& c : cases) {
        BilingualDeck fresh;
        fresh.h_.host.duplicateMode = c.mode;
        fresh.SelectSlides({3});
        test::TraceLines trace;
        const test::RunOutcome out = fresh.h_.Run(fresh.Options(RunScope::Selection));
        EXPECT_EQ(out.closing, std::vector<std::string>{"complete"}) << c.name;
        EXPECT_EQ(fresh.Order(), "1 2 3 3' 4 5") << c.name;
        EXPECT_EQ(fresh.At(4).shapes[0]->frame.text, u"DE<Title of slide 3>") << c.name;
        if (c.trace) {
            EXPECT_TRUE(trace.Has(c.trace)) << c.name;
        }
        fresh.ExpectSourcesUntouched();
    }
}

TEST_F(Bilingual, WhenNeitherRoadGivesACopyTheRunIsRefusedAndNothingIsLeft) {
    h_.host.duplicateMode = DuplicateMode::AppendAtEnd;
    h_.host.pasteMode = PasteMode::Fail;
    SelectSlides({2, 4});
    const test::RunOutcome out = h_.Run(Options(RunScope::Selection));
    EXPECT_EQ(out.closing, std::vector<std::string>{"error bilingual_copy_failed"});
    EXPECT_EQ(Order(), "1 2 3 4 5");
    ExpectSourcesUntouched();
}

TEST_F(Bilingual, ACancelledRunRemovesItsOwnCopiesAndKeepsReusedOnes) {
    SelectSlides({2});
    ASSERT_EQ(h_.Run(Options(RunScope::Selection)).closing, std::vector<std::string>{"complete"});
    ASSERT_EQ(Order(), "1 2 2' 3 4 5");
    TranslateClientConfig* live = nullptr;
    RunOptions options = Options();
    options.liveConfigSlot = &live;
    h_.translate = [&live](std::u16string_view text) {
        live->cancelled = 1;
        return Pseudo(text);
    };
    const test::RunOutcome out = h_.Run(options);
    EXPECT_EQ(out.closing, std::vector<std::string>{"cancelled"});
    EXPECT_EQ(Order(), "1 2 2' 3 4 5");  // the copy of the first run stays
    EXPECT_EQ(At(3).shapes[0]->frame.text, u"DE<Title of slide 2>");
    ExpectSourcesUntouched();
}

TEST_F(Bilingual, ACopyReplacedByAnotherSlideIsNeverDeleted) {
    SelectSlides({1});
    TranslateClientConfig* live = nullptr;
    RunOptions options = Options(RunScope::Selection);
    options.liveConfigSlot = &live;
    h_.translate = [&live](std::u16string_view text) {
        live->cancelled = 1;
        return Pseudo(text);
    };
    // The user deletes the copy and puts a slide of their own at its place.
    h_.beforeWrites = [&] {
        deck_->slides[1]->tags.clear();
        deck_->slides[1]->slideId = 999;
        deck_->slides[1]->shapes[0]->frame.SetText(u"Mine now", sim::CharFormat());
    };
    test::TraceLines trace;
    const test::RunOutcome out = h_.Run(options);
    EXPECT_EQ(out.closing, std::vector<std::string>{"cancelled"});
    ASSERT_EQ(deck_->slides.size(), 6u);
    EXPECT_EQ(At(2).shapes[0]->frame.text, u"Mine now");
    EXPECT_TRUE(trace.Has(u"PptCtrl bilingual cleanup keep unconfirmed index=2"));
}

// Each member the copies use, missing and then failing: the run ends once,
// the sources are as they were, and no slide the run didn't make is gone.
TEST(BilingualFaults, NoMemberFailureCostsASourceSlide) {
    const struct {
        const char16_t* type;
        const char16_t* member;
        sim::FaultRule::Access access;
    } members[] = {
        {u"Slide", u"Duplicate", sim::FaultRule::Access::Get},
        {u"Slide", u"Copy", sim::FaultRule::Access::Get},
        {u"Slides", u"Paste", sim::FaultRule::Access::Get},
        {u"Slide", u"SlideID", sim::FaultRule::Access::Get},
        {u"Slide", u"SlideIndex", sim::FaultRule::Access::Get},
        {u"Slide", u"Tags", sim::FaultRule::Access::Get},
        {u"Tags", u"Add", sim::FaultRule::Access::Get},
        {u"Tags", u"Item", sim::FaultRule::Access::Get},
        {u"Slides", u"FindBySlideID", sim::FaultRule::Access::Get},
        {u"Slide", u"Delete", sim::FaultRule::Access::Get},
        {u"SlideRange", u"Count", sim::FaultRule::Access::Get},
        {u"Selection", u"SlideRange", sim::FaultRule::Access::Get},
    };
    for (const auto& m : members) {
        for (bool missing : {true, false}) {
            BilingualDeck d;
            d.h_.host.duplicateMode = DuplicateMode::AppendAtEnd;  // both roads in play
            d.SelectSlides({2, 4});
            sim::FaultRule rule;
            rule.objectType = m.type;
            rule.member = m.member;
            rule.access = m.access;
            rule.missing = missing;
            d.h_.host.AddFault(rule);
            const std::string name = Utf16ToUtf8(m.type) + "." + Utf16ToUtf8(m.member) +
                                     (missing ? " missing" : " failing");
            const test::RunOutcome out = d.h_.Run(d.Options(RunScope::Selection));
            EXPECT_EQ(out.closing.size(), 1u) << name;
            d.ExpectSourcesUntouched();
        }
    }
}

TEST(BilingualTags, ReadTheSourceIdFromTheTagsStart) {
    const struct {
        std::u16string tag;
        std::int32_t source;
        bool copy, ofSource;
    } cases[] = {
        {u"256", 256, true, true},  {u" 256", 256, true, true}, {u"256abc", 256, true, true},
        {u"257", 256, true, false}, {u"abc", 256, true, false}, {u"abc", 0, true, true},
        {u"", 256, false, false},   {u"-5", -5, true, true},
    };
    for (const auto& c : cases) {
        DeckBuilder b;
        b.Slide();
        if (!c.tag.empty()) b.Tag(u"Quillbrook.BilingualCopyOf", c.tag);
        sim::SimHost host;
        host.AddPresentation(b.Build());
        const host::HostRef slide =
            sim::test::Object(sim::test::SlidesOf(host), u"Item", {sim::test::I4(1)});
        EXPECT_EQ(IsBilingualCopy(slide), c.copy) << Utf16ToUtf8(c.tag);
        EXPECT_EQ(IsCopyOfSource(slide, c.source), c.ofSource) << Utf16ToUtf8(c.tag);
    }
}

}  // namespace
}  // namespace qb
