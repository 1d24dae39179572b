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
#include "sim/host/json_value.h"
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

    std::string WriteFile(const std::string& name, const std::string& content) {
        const std::string path = Path(name);
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    // The report of a run, by key; the number or text under it as text.
    std::string ReportField(const std::string& reportPath, const char16_t* key) {
        const std::optional<sim::JsonValue> report = sim::ParseJson(ReadAll(reportPath));
        if (!report || !report->IsObject()) return "<no report>";
        const sim::JsonValue* value = report->Find(key);
        if (!value) return "<absent>";
        if (value->IsString()) return Utf16ToUtf8(value->StringValue());
        if (value->IsNumber()) return value->NumberText();
        if (value->IsObject()) {
            std::string fields;
            for (const char16_t* name : {u"translate", u"resolve", u"withInstruction"}) {
                const sim::JsonValue* n = value->Find(name);
                fields += (fields.empty() ? "" : " ") + (n ? n->NumberText() : "?");
            }
            return fields;
        }
        return "<other>";
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
        {"--token wrong " + deck, 4, "qb-translate: the run failed: unauthorized: "},
        {"-o " + Path("no/such/dir/out.json") + " " + deck, 5, "qb-translate: can't write "},
    };
    // Each road ends a bad run the same way.
    for (const char* road : {"native", "panel"}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(road) + ": " + c.args);
            const std::string out = Path("never.json");
            std::remove(out.c_str());
            const bool ownOutput =
                c.args.find(" -o ") != std::string::npos || c.args.rfind("-o ", 0) == 0;
            const Ran r = Run("-q --road " + std::string(road) + " " +
                              (ownOutput ? std::string() : "-o " + out + " ") + c.args);
            EXPECT_EQ(r.status, c.status) << r.err;
            EXPECT_EQ(r.err.compare(0, c.error.size(), c.error), 0) << r.err;
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), c.error.empty() ? 0 : 1)
                << r.err;
            if (c.status != 0) {
                EXPECT_FALSE(Exists(out));
            }
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

// Whatever a run asks for, the panel road (the pane handing each batch to
// the page, which calls the service) saves the deck the native road saves,
// and counts the same.
TEST_F(CliRun, ThePanelRoadSavesTheDeckTheNativeRoadSaves) {
    const std::string deck = Deck();
    const std::string glossary = WriteFile("terms.tsv", "Next steps\tN\u00c4CHSTE SCHRITTE\n");
    const std::string instruction = WriteFile("style.txt", "Keep it short.\n");
    const std::string cases[] = {
        "",
        "--to ja --scope slide --slide 2",
        "--select shapes:1:2",
        "--select text:1:1:1:9",
        "--select slides:1,3 --bilingual",
        "--host wps --target-font ''",
        "--from en --to fr --target-font Arial",
        "--glossary " + glossary + " --instruction " + instruction,
    };
    for (const std::string& args : cases) {
        SCOPED_TRACE(args);
        std::string saved[2];
        for (const char* road : {"native", "panel"}) {
            const bool panel = std::string(road) == "panel";
            const std::string out = Path(std::string(road) + ".json");
            const Ran r =
                Run("-q --road " + std::string(road) + " -o " + out + " " + args + " " + deck);
            ASSERT_EQ(r.status, 0) << road << ": " << r.err;
            saved[panel] = ReadAll(out);
            EXPECT_EQ(ReportField(Path(std::string(road) + ".report.json"), u"road"), road);
        }
        EXPECT_EQ(saved[0], saved[1]);
        EXPECT_NE(saved[0], ReadAll(deck)) << "the run changed nothing";
        for (const char16_t* key : {u"result", u"slides", u"units", u"translated", u"unchanged",
                                    u"failed", u"slidesWritten", u"serviceRequests"}) {
            EXPECT_EQ(ReportField(Path("native.report.json"), key),
                      ReportField(Path("panel.report.json"), key))
                << Utf16ToUtf8(key);
        }
    }
}

// The panel road's progress and summary are made of the events the page
// heard: the last progress line and the summary count every unit and slide.
TEST_F(CliRun, ThePanelRoadReportsWhatThePageHeard) {
    const std::string deck = Deck();
    const Ran r = Run("--road panel --to de -o " + Path("out.json") + " " + deck);
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string last = "collected 3/3 slides, translated 7/7 units, written 3/3 slides\n";
    ASSERT_GE(r.err.size(), last.size()) << r.err;
    EXPECT_EQ(r.err.substr(r.err.size() - last.size()), last) << r.err;
    EXPECT_EQ(r.err.rfind("collected ", 0), 0u) << r.err;
    EXPECT_NE(r.out.find("7 units on 3 slides: 7 translated, 0 unchanged, 0 failed; 3 slides "
                         "written in "),
              std::string::npos)
        << r.out;
    EXPECT_EQ(ReportField(Path("out.report.json"), u"result"), "complete");
    EXPECT_EQ(ReportField(Path("out.report.json"), u"serviceRequests"), "3 1 0");
}

// Terms from the files are resolved once a run through the service and win
// over the translation, on both roads; the instruction reaches every batch.
TEST_F(CliRun, GlossaryAndInstructionFilesReachEveryBatchOfARun) {
    const std::string deck = Deck();
    const std::string first =
        WriteFile("first.tsv",
                  "\xEF\xBB\xBF# terms of the board\r\nNext steps\tN\u00c4CHSTE SCHRITTE\t"
                  "a heading\r\nNot in the deck\tNIRGENDS\r\n");
    const std::string second = WriteFile("second.tsv", "Thank you\tDANKE\n");
    const std::string instruction = WriteFile("style.txt", "Use the formal address.\n");
    for (const char* road : {"native", "panel"}) {
        SCOPED_TRACE(road);
        const Ran r = Run("-q --to de --road " + std::string(road) + " --glossary " + first +
                          " --glossary=" + second + " --instruction " + instruction + " -o " +
                          Path("out.json") + " " + deck);
        ASSERT_EQ(r.status, 0) << r.err;
        const std::vector<std::u16string> expected = {
            T(u"Quarterly report", u"de"),
            T(u"Sales grew", u"de") + u"\r" + T(u"Costs fell", u"de"),
            T(u"Speak slowly", u"de"),
            u"N\u00c4CHSTE SCHRITTE",
            T(u"North", u"de"),
            u"42",
            u"DANKE",
        };
        EXPECT_EQ(Texts(Path("out.json")), expected);
        const std::string report = Path("out.report.json");
        EXPECT_EQ(ReportField(report, u"terms"), "3");
        EXPECT_EQ(ReportField(report, u"instruction"), instruction);
        // One batch a slide, one resolve a run, the instruction in each batch.
        EXPECT_EQ(ReportField(report, u"serviceRequests"), "3 1 3");
    }
}

// The in-process service told a latency answers every round trip (one
// resolve, one batch a slide) that late, on both roads.
TEST_F(CliRun, ALatencyDelaysEveryRoundTripOfTheInProcessService) {
    const std::string deck = Deck();
    for (const char* road : {"native", "panel"}) {
        SCOPED_TRACE(road);
        const Ran r = Run("-q --latency 150 --road " + std::string(road) + " -o " +
                          Path("out.json") + " " + deck);
        ASSERT_EQ(r.status, 0) << r.err;
        const std::string report = Path("out.report.json");
        EXPECT_EQ(ReportField(report, u"serviceRequests"), "3 1 0");
        EXPECT_GE(std::stol(ReportField(report, u"elapsedMs")), 4 * 150);
        EXPECT_EQ(Texts(Path("out.json")).back(), T(u"Thank you"));
    }
}

TEST_F(CliRun, BadGlossaryAndInstructionFilesStopTheRunBeforeItWritesAnything) {
    const std::string deck = Deck();
    const std::string good = WriteFile("good.tsv", "Thank you\tDANKE\n");
    const struct {
        std::string args;
        int status;
        std::string error;
    } cases[] = {
        {"--glossary " + Path("none.tsv"), 3,
         "qb-translate: " + Path("none.tsv") + ": can't read the glossary\n"},
        {"--glossary " + good + " --glossary " + WriteFile("spaces.tsv", "Thank you  DANKE\n"), 3,
         "qb-translate: " + Path("spaces.tsv") +
             ":1: expected SOURCE<TAB>TARGET[<TAB>NOTE], got 1 field\n"},
        {"--glossary " + WriteFile("empty.tsv", "# nothing yet\n"), 3,
         "qb-translate: " + Path("empty.tsv") +
             ": no terms (one a line: SOURCE<TAB>TARGET[<TAB>NOTE])\n"},
        {"--glossary " + WriteFile("latin1.tsv", "Caf\xe9\tKaffee\n"), 3,
         "qb-translate: " + Path("latin1.tsv") + ": not UTF-8 text\n"},
        {"--road panel --glossary " + WriteFile("target.tsv", "Thank you\t\n"), 3,
         "qb-translate: " + Path("target.tsv") + ":1: the target is empty\n"},
        {"--instruction " + Path("none.txt"), 3,
         "qb-translate: " + Path("none.txt") + ": can't read the instruction\n"},
        {"--instruction " + WriteFile("blank.txt", "\n  \n"), 3,
         "qb-translate: " + Path("blank.txt") + ": the instruction is empty\n"},
        {"--instruction " + Path(".."), 3,
         "qb-translate: " + Path("..") + ": can't read the instruction\n"},
        {"--glossary " + good + " --service http://127.0.0.1:9", 2,
         "qb-translate: --glossary and --instruction need the in-process service, not "
         "--service\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        const std::string out = Path("never.json");
        const Ran r = Run("-q -o " + out + " " + c.args + " " + deck);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_EQ(r.err.compare(0, c.error.size(), c.error), 0) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_FALSE(Exists(out));
        EXPECT_FALSE(Exists(Path("never.report.json")));
    }
}

}  // namespace
}  // namespace qb
