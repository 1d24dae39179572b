// The sample decks that people run first: each one reads without an error
// and a whole run over it writes every text it collects.
#include <gtest/gtest.h>

#include "foundation/text.h"
#include "sim/host/deck_file.h"
#include "slides/engine_harness.h"

namespace qb {
namespace {

std::u16string SamplePath(const char* name) {
#if defined(_WIN32)
    const std::string root = std::string("Z:") + QB_SOURCE_DIR;  // Wine's view of the tree
#else
    const std::string root = QB_SOURCE_DIR;
#endif
    return Utf8ToUtf16(root + "/samples/" + name);
}

TEST(SampleDecks, ReadAndTranslateCompletely) {
    for (const char* name : {"business.json", "cjk.json", "overflow.json"}) {
        const sim::DeckLoadResult loaded = sim::LoadDeckFile(SamplePath(name));
        ASSERT_EQ(loaded.error, "") << name;
        test::EngineHarness h;
        const auto deck = sim::OpenDeck(h.host, loaded);
        const auto before = test::CaptureFrames(*deck);
        const test::RunOutcome out = h.Run(h.Options());
        EXPECT_EQ(out.closing, std::vector<std::string>{"complete"}) << name;
        EXPECT_EQ(out.firstApplyError, u"") << name;
        EXPECT_GT(out.applied, 0) << name;
        test::ExpectTranslatedOrSource(before, h.translate);
    }
}

}  // namespace
}  // namespace qb
