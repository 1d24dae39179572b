// The front end over presentations other tools wrote (../shared/decks beside
// the repository, never copied into it): every deck runs without a crash,
// no text that had a letter comes back empty, the output reopens, and a
// table tells how much of each deck's text the run reached.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "foundation/char_class.h"
#include "foundation/text.h"
#include "sim/pptx/pptx_deck.h"
#include "slides/engine_harness.h"
#include "support/shared_decks.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using test::HasLetter;

namespace fs = std::filesystem;

// What MANIFEST.tsv says a deck holds: slide text, and the text of charts,
// SmartArt and notes, which its notes column counts.
struct Inventory {
    long slideChars = 0, chartChars = 0, smartArtChars = 0, notesChars = 0;
};

long NumberAfter(const std::string& text, const std::string& key) {
    const auto at = text.find(key + "=");
    return at == std::string::npos ? 0 : std::atol(text.c_str() + at + key.size() + 1);
}

std::map<std::string, Inventory> ReadManifest(const fs::path& path) {
    std::map<std::string, Inventory> out;
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);  // the header
    while (std::getline(in, line)) {
        std::vector<std::string> fields;
        std::stringstream s(line);
        std::string field;
        while (std::getline(s, field, '\t'))
            fields.push_back(field);
        if (fields.size() < 13) continue;
        Inventory inv;
        inv.slideChars = std::atol(fields[6].c_str());
        inv.chartChars = NumberAfter(fields[12], "chart_chars");
        inv.smartArtChars = NumberAfter(fields[12], "smartart_chars");
        inv.notesChars = NumberAfter(fields[12], "notes_chars");
        out[fs::path(fields[0]).filename().string()] = inv;
    }
    return out;
}

// Characters of texts with a letter, and of those the run changed.
struct Reach {
    long lettered = 0, translated = 0;
};

struct Row {
    std::string deck;
    int status = -1;
    std::string outcome;
    long frames = 0, lettered = 0, translated = 0, emptied = 0;
    Reach charts, smartArt;
    Inventory inventory;
};

// What a deck holds outside its text frames, in reading order: each chart's
// title, axis titles, series names, categories and data labels, and every
// SmartArt node.
struct OtherTexts {
    std::vector<std::u16string> chart, smartArt;
    std::vector<std::u16string> fields;  // data labels that show the data: never changed
};

void CollectOther(const std::vector<std::shared_ptr<sim::ShapeModel>>& shapes, OtherTexts& out) {
    for (const auto& shape : shapes) {
        if (const auto& c = shape->chart) {
            if (c->hasTitle) out.chart.push_back(c->title.text);
            for (const auto& axis : c->axes) {
                if (axis.hasTitle) out.chart.push_back(axis.title.text);
                if (axis.hasDisplayUnitLabel) out.chart.push_back(axis.displayUnitLabel.text);
            }
            for (const auto& series : c->series) {
                out.chart.push_back(series.name);
                out.chart.insert(out.chart.end(), series.categories.begin(),
                                 series.categories.end());
                for (const auto& label : series.dataLabels) {
                    const bool field = label.showValue || label.showPercentage ||
                                       label.showCategoryName || label.showSeriesName;
                    (field ? out.fields : out.chart).push_back(label.label.text);
                }
            }
        }
        if (shape->smartArt) test::AddNodeTexts(shape->smartArt->nodes, out.smartArt);
        CollectOther(shape->children, out);
    }
}

OtherTexts OtherTextsOf(const pptx::PptxDeck& deck) {
    OtherTexts out;
    for (const auto& slide : deck.Model()->slides)
        CollectOther(slide->shapes, out);
    return out;
}

void CountOther(const std::string& deck, const char* kind, const std::vector<std::u16string>& was,
                const std::vector<std::u16string>& is, Reach& reach) {
    if (was.size() != is.size()) {
        ADD_FAILURE() << deck << ": " << was.size() << " " << kind << " texts became " << is.size();
        return;
    }
    for (std::size_t i = 0; i < was.size(); ++i) {
        if (!HasLetter(was[i])) {
            EXPECT_EQ(Utf16ToUtf8(is[i]), Utf16ToUtf8(was[i]))
                << deck << ": a " << kind << " text without a letter";
            continue;
        }
        reach.lettered += static_cast<long>(was[i].size());
        if (is[i] != was[i]) reach.translated += static_cast<long>(was[i].size());
        EXPECT_TRUE(HasLetter(is[i])) << deck << ": a " << kind << " text lost its letters: \""
                                      << Utf16ToUtf8(was[i]) << "\"";
    }
}

int RunCli(const std::string& args, std::string& err, const std::string& errPath) {
    const int raw = std::system(
        (std::string(QB_CLI_PATH) + " " + args + " >/dev/null 2>'" + errPath + "' </dev/null")
            .c_str());
    std::ifstream in(errPath);
    std::stringstream s;
    s << in.rdbuf();
    err = s.str();
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

// Characters of paragraphs that hold a letter, and of those the run changed
// (a frame whose paragraphs came or went counts as a whole). Text without a
// letter, numbers and fields among it, must come back as it was.
void Count(const pptx::PptxDeck& before, const pptx::PptxDeck& after, Row& row) {
    const auto was = before.Texts(), is = after.Texts();
    row.frames = static_cast<long>(was.size());
    if (was.size() != is.size()) {
        row.outcome = "frames differ";
        ADD_FAILURE() << row.deck << ": " << was.size() << " frames became " << is.size();
        return;
    }
    for (std::size_t i = 0; i < was.size(); ++i) {
        if (!HasLetter(was[i].text)) {
            EXPECT_EQ(Utf16ToUtf8(is[i].text), Utf16ToUtf8(was[i].text))
                << row.deck << ": " << was[i].place << " has no letter to translate";
            continue;
        }
        if (!HasLetter(is[i].text)) {
            ++row.emptied;
            ADD_FAILURE() << row.deck << ": " << was[i].place << " lost its text: \""
                          << Utf16ToUtf8(was[i].text) << "\" became \"" << Utf16ToUtf8(is[i].text)
                          << "\"";
        }
        const auto from = test::SplitParagraphs(was[i].text),
                   to = test::SplitParagraphs(is[i].text);
        for (std::size_t k = 0; k < from.size(); ++k) {
            if (!HasLetter(from[k])) continue;
            row.lettered += static_cast<long>(from[k].size());
            const bool changed =
                from.size() == to.size() ? to[k] != from[k] : is[i].text != was[i].text;
            if (changed) row.translated += static_cast<long>(from[k].size());
        }
    }
}

// Every frame's text on a slide and its notes page, groups and tables walked.
void FrameTexts(const std::vector<std::shared_ptr<sim::ShapeModel>>& shapes,
                std::vector<std::u16string>& into) {
    for (const auto& shape : shapes) {
        if (shape->hasTextFrame) into.push_back(shape->frame.text);
        FrameTexts(shape->children, into);
        if (shape->table) FrameTexts(shape->table->cells, into);
    }
}

std::vector<std::u16string> FrameTexts(const sim::SlideModel& slide) {
    std::vector<std::u16string> texts;
    FrameTexts(slide.shapes, texts);
    FrameTexts(slide.notesShapes, texts);
    return texts;
}

std::vector<std::u16string> WithoutDigits(std::vector<std::u16string> texts) {
    for (std::u16string& text : texts) {
        text.erase(std::remove_if(text.begin(), text.end(),
                                  [](char16_t c) { return c >= u'0' && c <= u'9'; }),
                   text.end());
    }
    return texts;
}

// A bilingual run leaves every source slide as it was and puts a tagged
// copy behind each slide it wrote on.
void CheckBilingual(const pptx::PptxDeck& before, const fs::path& deck, const fs::path& work) {
    const fs::path out = work / ("bilingual-" + deck.filename().string());
    std::string err;
    ASSERT_EQ(RunCli("-q --bilingual --to de -o '" + out.string() + "' '" + deck.string() + "'",
                     err, (work / "stderr.txt").string()),
              0)
        << deck.filename() << ": " << err;
    std::string error;
    const auto after = pptx::PptxDeck::Open(out.string(), error);
    ASSERT_TRUE(after) << deck.filename() << ": the bilingual output doesn't reopen: " << error;
    const auto& sources = before.Model()->slides;
    const auto& slides = after->Model()->slides;
    std::size_t at = 0;
    for (const auto& source : sources) {
        ASSERT_LT(at, slides.size()) << deck.filename();
        EXPECT_EQ(slides[at]->slideId, source->slideId) << deck.filename();
        // Slide number fields count the copies in front of them.
        EXPECT_EQ(WithoutDigits(FrameTexts(*slides[at])), WithoutDigits(FrameTexts(*source)))
            << deck.filename() << ": source slide " << source->slideId << " changed";
        OtherTexts sourceOther, keptOther;
        CollectOther(source->shapes, sourceOther);
        CollectOther(slides[at]->shapes, keptOther);
        EXPECT_EQ(keptOther.chart, sourceOther.chart) << deck.filename();
        EXPECT_EQ(keptOther.smartArt, sourceOther.smartArt) << deck.filename();
        ++at;
        const auto tag = at < slides.size()
                             ? slides[at]->tags.find(u"QUILLBROOK.BILINGUALCOPYOF")
                             : std::map<std::u16string, std::u16string>::const_iterator();
        if (at < slides.size() && tag != slides[at]->tags.end()) {
            EXPECT_EQ(tag->second, Utf8ToUtf16(std::to_string(source->slideId))) << deck.filename();
            const auto was = FrameTexts(*source), is = FrameTexts(*slides[at]);
            EXPECT_EQ(is.size(), was.size()) << deck.filename();
            for (std::size_t i = 0; i < was.size() && i < is.size(); ++i) {
                if (HasLetter(was[i])) {
                    EXPECT_TRUE(HasLetter(is[i])) << deck.filename() << ": a copy lost its text";
                }
            }
            // Charts and diagrams on the copy are its own, translated.
            OtherTexts copyOther;
            CollectOther(slides[at]->shapes, copyOther);
            Reach charts, smartArt;
            CountOther(deck.filename().string(), "copied chart", sourceOther.chart, copyOther.chart,
                       charts);
            CountOther(deck.filename().string(), "copied SmartArt", sourceOther.smartArt,
                       copyOther.smartArt, smartArt);
            EXPECT_EQ(charts.translated, charts.lettered) << deck.filename();
            EXPECT_EQ(smartArt.translated, smartArt.lettered) << deck.filename();
            ++at;
        }
    }
    EXPECT_EQ(at, slides.size()) << deck.filename() << ": slides that are neither";
}

Row RunDeck(const fs::path& deck, const fs::path& work) {
    Row row;
    row.deck = deck.filename().string();
    const fs::path out = work / ("out-" + row.deck);
    std::string err;
    row.status = RunCli("-q --to de -o '" + out.string() + "' '" + deck.string() + "'", err,
                        (work / "stderr.txt").string());
    std::string error;
    const auto before = pptx::PptxDeck::Open(deck.string(), error);
    if (row.status != 0) {
        // A deck we can't read is turned away with one line and no output.
        row.outcome = "refused: " + err.substr(0, err.find('\n'));
        EXPECT_EQ(row.status, 3) << row.deck << ": " << err;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << row.deck << ": " << err;
        EXPECT_FALSE(fs::exists(out)) << row.deck;
        EXPECT_FALSE(before) << row.deck << " opens here, yet the front end refused it";
        return row;
    }
    EXPECT_TRUE(before) << row.deck << ": " << error;
    const auto after = pptx::PptxDeck::Open(out.string(), error);
    EXPECT_TRUE(after) << row.deck << ": the output doesn't reopen: " << error;
    if (!before || !after) {
        row.outcome = "output unreadable";
        return row;
    }
    EXPECT_EQ(after->Model()->slides.size(), before->Model()->slides.size()) << row.deck;
    row.outcome = "ok";
    Count(*before, *after, row);
    const OtherTexts was = OtherTextsOf(*before), is = OtherTextsOf(*after);
    CountOther(row.deck, "chart", was.chart, is.chart, row.charts);
    CountOther(row.deck, "SmartArt", was.smartArt, is.smartArt, row.smartArt);
    EXPECT_EQ(is.fields, was.fields) << row.deck << ": data labels that show the data changed";
    CheckBilingual(*before, deck, work);
    return row;
}

TEST(PptxDecks, EveryDeckRunsAndKeepsItsText) {
    const fs::path root = test::SharedDecksRoot();
    if (!fs::is_directory(root / "pptx")) {
        GTEST_SKIP() << "no decks at " << root.string() << ": the suite needs ../shared/decks";
    }
    const auto manifest = ReadManifest(root / "MANIFEST.tsv");
    const std::vector<fs::path> decks = test::SharedDecks();
    ASSERT_FALSE(decks.empty());

    test::TempDir dir;
    std::vector<Row> rows;
    for (const fs::path& deck : decks) {
        Row row = RunDeck(deck, fs::path(dir.Path()));
        const auto it = manifest.find(row.deck);
        if (it != manifest.end()) row.inventory = it->second;
        rows.push_back(row);
    }

    // Text reached per deck: characters with a letter that the run
    // translated, out of those it read, in text frames (slides and notes),
    // charts and SmartArt; beside them what the manifest counts.
    std::printf("\n%-46s %-8s %6s %13s %11s %9s | %6s %6s %6s %6s\n", "deck", "outcome", "frames",
                "frame text", "charts", "SmartArt", "m.slid", "m.note", "m.chrt", "m.smrt");
    const auto pair = [](long done, long of) {
        return of == 0 ? std::string("-") : std::to_string(done) + "/" + std::to_string(of);
    };
    Row all;
    for (const Row& r : rows) {
        std::printf(
            "%-46s %-8s %6ld %13s %11s %9s | %6ld %6ld %6ld %6ld\n", r.deck.c_str(),
            r.outcome.substr(0, 8).c_str(), r.frames, pair(r.translated, r.lettered).c_str(),
            pair(r.charts.translated, r.charts.lettered).c_str(),
            pair(r.smartArt.translated, r.smartArt.lettered).c_str(), r.inventory.slideChars,
            r.inventory.notesChars, r.inventory.chartChars, r.inventory.smartArtChars);
        if (r.outcome.rfind("refused", 0) == 0) std::printf("    %s\n", r.outcome.c_str());
        // Every text with a letter in it is translated.
        EXPECT_EQ(r.translated, r.lettered) << r.deck;
        EXPECT_EQ(r.charts.translated, r.charts.lettered) << r.deck;
        EXPECT_EQ(r.smartArt.translated, r.smartArt.lettered) << r.deck;
        all.lettered += r.lettered;
        all.translated += r.translated;
        all.charts.lettered += r.charts.lettered;
        all.charts.translated += r.charts.translated;
        all.smartArt.lettered += r.smartArt.lettered;
        all.smartArt.translated += r.smartArt.translated;
        all.inventory.slideChars += r.inventory.slideChars;
        all.inventory.notesChars += r.inventory.notesChars;
        all.inventory.chartChars += r.inventory.chartChars;
        all.inventory.smartArtChars += r.inventory.smartArtChars;
    }
    std::printf("%-46s %-8s %6s %13s %11s %9s | %6ld %6ld %6ld %6ld\n", "all", "", "",
                pair(all.translated, all.lettered).c_str(),
                pair(all.charts.translated, all.charts.lettered).c_str(),
                pair(all.smartArt.translated, all.smartArt.lettered).c_str(),
                all.inventory.slideChars, all.inventory.notesChars, all.inventory.chartChars,
                all.inventory.smartArtChars);
    const long translated = all.translated + all.charts.translated + all.smartArt.translated;
    EXPECT_GT(translated, 0) << "the run reached no text in any deck";
}

}  // namespace
}  // namespace qb
