// The front end as a person runs it: the program started with options, its
// exit status, its one-line errors, and the deck it saves compared with
// what the stand-in service's translation must put on every slide.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "foundation/text.h"
#include "sim/host/deck_builder.h"
#include "sim/host/deck_file.h"
#include "sim/service/pseudo_translate.h"
#include "slides/writeback.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

struct Ran {
    int status = -1;
    std::string out, err;
};

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

bool Exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

class CliRun : public testing::Test {
  protected:
    std::string Path(const std::string& name) { return Utf16ToUtf8(dir_.Path()) + "/" + name; }

    Ran Run(const std::string& args) {
        const std::string out = Path("stdout.txt"), err = Path("stderr.txt");
        const std::string command =
            std::string(QB_CLI_PATH) + " " + args + " >" + out + " 2>" + err + " </dev/null";
        const int raw = std::system(command.c_str());
        Ran r;
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        r.out = ReadAll(out);
        r.err = ReadAll(err);
        return r;
    }

    std::string WriteDeck(const std::string& name, sim::DeckBuilder& b) {
        const std::string path = Path(name);
        std::ofstream(path) << sim::WriteDeck(*b.Build());
        return path;
    }

    std::string Deck() {
        sim::DeckBuilder b;
        b.Slide().Text(u"Title", u"Quarterly report").Text(u"Body", u"Sales grew\rCosts fell");
        b.Notes(u"Speak slowly");
        b.Slide().Text(u"Second", u"Next steps").Table(u"Grid", 1, 2, {u"North", u"42"});
        b.Slide().Text(u"Third", u"Thank you");
        return WriteDeck("deck.json", b);
    }

    // The texts of every frame of a saved deck, slide by slide.
    std::vector<std::u16string> Texts(const std::string& path) {
        const sim::DeckLoadResult loaded = sim::LoadDeckFile(Utf8ToUtf16(path));
        EXPECT_EQ(loaded.error, "");
        std::vector<std::u16string> texts;
        if (!loaded.deck) return texts;
        for (const auto& slide : loaded.deck->slides) {
            for (const auto& shape : slide->shapes) {
                if (shape->hasTextFrame) texts.push_back(shape->frame.text);
                if (shape->table) {
                    for (const auto& cell : shape->table->cells)
                        texts.push_back(cell->frame.text);
                }
            }
            for (const auto& shape : slide->notesShapes)
                texts.push_back(shape->frame.text);
        }
        return texts;
    }

    static std::u16string T(std::u16string_view text, std::u16string_view lang = u"en") {
        return NormalizeTranslation(sim::PseudoTranslate(text, lang));
    }

    test::TempDir dir_;
};

TEST_F(CliRun, TranslatesTheDeckIntoANewFileWithItsReports) {
    const std::string deck = Deck();
    const std::string before = ReadAll(deck);
    const Ran r = Run("--to de --html " + Path("r.html") + " " + deck);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadAll(deck), before) << "the input is never overwritten unless asked";
    const std::vector<std::u16string> texts = Texts(Path("deck.translated.json"));
    const std::vector<std::u16string> expected = {
        T(u"Quarterly report", u"de"),
        T(u"Sales grew", u"de") + u"\r" + T(u"Costs fell", u"de"),
        T(u"Speak slowly", u"de"),
        T(u"Next steps", u"de"),
        T(u"North", u"de"),
        u"42",
        T(u"Thank you", u"de"),
    };
    EXPECT_EQ(texts, expected);
    const std::string report = ReadAll(Path("deck.translated.report.json"));
    EXPECT_NE(report.find("\"units\": 7"), std::string::npos) << report;
    EXPECT_NE(report.find("\"translated\": 7"), std::string::npos);
    EXPECT_NE(report.find("\"result\": \"complete\""), std::string::npos);
    EXPECT_NE(ReadAll(Path("r.html")).find("<svg"), std::string::npos);
    EXPECT_NE(r.out.find("7 units on 3 slides: 7 translated, 0 unchanged, 0 failed"),
              std::string::npos)
        << r.out;
}

TEST_F(CliRun, ScopesSelectionsBilingualAndHosts) {
    const std::string deck = Deck();
    const struct {
        std::string args;
        std::vector<std::u16string> texts;
    } cases[] = {
        {"--scope slide --slide 2",
         {u"Quarterly report", u"Sales grew\rCosts fell", u"Speak slowly", T(u"Next steps"),
          T(u"North"), u"42", u"Thank you"}},
        {"--select shapes:1:2",
         {u"Quarterly report", T(u"Sales grew") + u"\r" + T(u"Costs fell"), u"Speak slowly",
          u"Next steps", u"North", u"42", u"Thank you"}},
        {"--select text:1:1:1:9",
         {T(u"Quarterly") + u" report", u"Sales grew\rCosts fell", u"Speak slowly", u"Next steps",
          u"North", u"42", u"Thank you"}},
        {"--select slides:3 --host wps --target-font ''",
         {u"Quarterly report", u"Sales grew\rCosts fell", u"Speak slowly", u"Next steps", u"North",
          u"42", T(u"Thank you")}},
        {"--select slides:3 --bilingual",
         {u"Quarterly report", u"Sales grew\rCosts fell", u"Speak slowly", u"Next steps", u"North",
          u"42", u"Thank you", T(u"Thank you")}},
    };
    for (const auto& c : cases) {
        const Ran r = Run("-q -o " + Path("out.json") + " " + c.args + " " + deck);
        ASSERT_EQ(r.status, 0) << c.args << ": " << r.err;
        EXPECT_EQ(r.out, "") << "quiet";
        EXPECT_EQ(Texts(Path("out.json")), c.texts) << c.args;
    }
}

TEST_F(CliRun, BadInputIsOneLineAndWritesNothing) {
    const std::string deck = Deck();
    std::ofstream(Path("broken.json")) << "{\"slides\": [ {\"shapes\": [\"x\", ] } ] }";
    sim::DeckBuilder numbers;
    numbers.Slide().Text(u"N", u"2024");
    const std::string digits = WriteDeck("digits.json", numbers);
    const struct {
        std::string args;
        int status;
        std::string error;
    } cases[] = {
        {"--bogus " + deck, 2, "qb-translate: unknown option --bogus (see --help)\n"},
        {"--to xx " + deck, 2, "qb-translate: --to: unknown language \"xx\"\n"},
        {Path("missing.json"), 3, "qb-translate: " + Path("missing.json") + ": no such file\n"},
        {Path("broken.json"), 3, "qb-translate: " + Path("broken.json") + ":1:31: unexpected ']'"},
        {"--slide 9 " + deck, 3, "qb-translate: --slide: the deck has 3 slides, not 9\n"},
        {"--select shapes:1:7 " + deck, 3, "qb-translate: --select: slide 1 has no shape 7\n"},
        {"--select text:1:1:10:50 " + deck, 3, "qb-translate: --select: the characters 10 to 59"},
        {"--select shapes:1:1 " + digits, 3, "qb-translate: nothing to translate: collect_failed"},
        {digits, 0, ""},
        {"--service http://127.0.0.1:9 " + deck, 4, "qb-translate: the run failed: "},
        {"-o " + Path("no/such/dir/out.json") + " " + deck, 5, "qb-translate: can't write "},
    };
    for (const auto& c : cases) {
        const std::string out = Path("never.json");
        std::remove(out.c_str());
        const bool ownOutput =
            c.args.find(" -o ") != std::string::npos || c.args.rfind("-o ", 0) == 0;
        const Ran r = Run("-q " + (ownOutput ? std::string() : "-o " + out + " ") + c.args);
        EXPECT_EQ(r.status, c.status) << c.args << ": " << r.err;
        EXPECT_EQ(r.err.compare(0, c.error.size(), c.error), 0) << c.args << ": " << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), c.error.empty() ? 0 : 1)
            << c.args << ": " << r.err;
        if (c.status != 0) {
            EXPECT_FALSE(Exists(out)) << c.args;
        }
    }
}

TEST_F(CliRun, HelpVersionAndInPlace) {
    Ran r = Run("--help");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("Usage: qb-translate [options] DECK", 0), 0u);
    r = Run("--version");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("qb-translate ", 0), 0u);
    const std::string deck = Deck();
    r = Run("-q --in-place " + deck);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(Texts(deck).front(), T(u"Quarterly report"));
}

}  // namespace
}  // namespace qb
