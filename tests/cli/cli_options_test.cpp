// The front end's command line: every option read as documented, and every
// mistake an error that names it, before anything is read or written.
#include <gtest/gtest.h>

#include "cli/cli_options.h"
#include "cli/report.h"
#include "cli/term_files.h"
#include "foundation/text.h"
#include "sim/host/deck_builder.h"

namespace qb::cli {
namespace {

ParseResult Parse(std::vector<std::string> args) {
    return ParseCommandLine(args);
}

TEST(CliOptions, DefaultsTranslateTheWholeDeckIntoANewFile) {
    const ParseResult r = Parse({"decks/report.json"});
    ASSERT_EQ(r.error, "");
    EXPECT_EQ(r.options.deck, "decks/report.json");
    EXPECT_EQ(r.options.output, "decks/report.translated.json");
    EXPECT_EQ(r.options.reportPath, "decks/report.translated.report.json");
    EXPECT_EQ(r.options.targetLang, "en");
    EXPECT_EQ(r.options.sourceLang, "auto");
    EXPECT_EQ(r.options.scope, Scope::Deck);
    EXPECT_EQ(r.options.road, Road::Native);
    EXPECT_FALSE(r.options.targetFont.has_value());
    EXPECT_EQ(r.options.fontMetrics, FontMetricsChoice::Default);
}

TEST(CliOptions, FontMetricsAreTheModelOrRealFonts) {
    const struct {
        std::vector<std::string> args;
        FontMetricsChoice choice;
    } cases[] = {
        {{"--font-metrics", "model", "d.pptx"}, FontMetricsChoice::Model},
        {{"--font-metrics=real", "d.json"}, FontMetricsChoice::Real},
        {{"--font-metrics", "real", "--font-metrics", "model", "d.pptx"}, FontMetricsChoice::Model},
    };
    for (const auto& c : cases) {
        const ParseResult r = Parse(c.args);
        ASSERT_EQ(r.error, "");
        EXPECT_EQ(r.options.fontMetrics, c.choice);
    }
}

TEST(CliOptions, ReadsEveryOptionInBothSpellings) {
    const ParseResult r =
        Parse({"--to=ja",       "-f",     "en",          "--scope",   "slide",
               "--slide",       "3",      "--bilingual", "--road",    "native",
               "--target-font", "",       "--host=wps",  "--service", "http://127.0.0.1:8123",
               "--token",       "abc",    "-o",          "out.json",  "--report",
               "r.json",        "--html", "r.html",      "-q",        "deck.json"});
    ASSERT_EQ(r.error, "");
    const Options& o = r.options;
    EXPECT_EQ(o.targetLang, "ja");
    EXPECT_EQ(o.sourceLang, "en");
    EXPECT_EQ(o.scope, Scope::Slide);
    EXPECT_EQ(o.slide, 3);
    EXPECT_TRUE(o.bilingual);
    EXPECT_EQ(o.road, Road::Native);
    ASSERT_TRUE(o.targetFont.has_value());
    EXPECT_EQ(*o.targetFont, "");
    EXPECT_EQ(o.host, HostChoice::Wps);
    EXPECT_EQ(o.serviceUrl, "http://127.0.0.1:8123");
    EXPECT_EQ(o.token, "abc");
    EXPECT_EQ(o.output, "out.json");
    EXPECT_EQ(o.reportPath, "r.json");
    EXPECT_EQ(o.htmlPath, "r.html");
    EXPECT_TRUE(o.quiet);
}

TEST(CliOptions, ThePanelRoadAndTerminologyFiles) {
    ParseResult r = Parse({"--road", "panel", "--glossary", "a.tsv", "--glossary=b.tsv",
                           "--instruction", "i.txt", "--latency", "250", "d.json"});
    ASSERT_EQ(r.error, "");
    EXPECT_EQ(r.options.road, Road::Panel);
    EXPECT_EQ(r.options.glossaryFiles, (std::vector<std::string>{"a.tsv", "b.tsv"}));
    EXPECT_EQ(r.options.instructionFile, "i.txt");
    EXPECT_EQ(r.options.latencyMs, 250);
    r = Parse({"d.json"});
    EXPECT_EQ(r.options.latencyMs, 0);
    EXPECT_TRUE(r.options.glossaryFiles.empty());
    EXPECT_EQ(r.options.instructionFile, "");
}

TEST(CliOptions, SelectionsOfSlidesShapesAndCharacters) {
    ParseResult r = Parse({"--select", "slides:2,4", "d.json"});
    ASSERT_EQ(r.error, "");
    EXPECT_EQ(r.options.scope, Scope::Selection);
    EXPECT_EQ(r.options.selection.slides, (std::vector<std::int32_t>{2, 4}));
    r = Parse({"--select", "shapes:3:2/1,4", "d.json"});
    ASSERT_EQ(r.error, "");
    EXPECT_EQ(r.options.selection.slide, 3);
    EXPECT_EQ(r.options.selection.shapes, (std::vector<std::vector<std::int32_t>>{{2, 1}, {4}}));
    r = Parse({"--scope", "selection", "--select", "text:1:2:15:42", "d.json"});
    ASSERT_EQ(r.error, "");
    EXPECT_EQ(r.options.selection.kind, SelectionSpec::Kind::Text);
    EXPECT_EQ(r.options.selection.textShape, std::vector<std::int32_t>{2});
    EXPECT_EQ(r.options.selection.start, 15);
    EXPECT_EQ(r.options.selection.length, 42);
}

TEST(CliOptions, MistakesAreOneLineErrors) {
    const struct {
        std::vector<std::string> args;
        std::string error;
    } cases[] = {
        {{}, "no deck file given (see --help)"},
        {{"a.json", "b.json"}, "one deck file at a time, got 2"},
        {{"--frobnicate", "a.json"}, "unknown option --frobnicate (see --help)"},
        {{"--to"}, "--to: needs a value"},
        {{"--to", "klingon", "a.json"}, "--to: unknown language \"klingon\""},
        {{"--from", "xx", "a.json"}, "--from: unknown language \"xx\""},
        {{"--scope", "page", "a.json"}, "--scope: expected deck, slide or selection, got \"page\""},
        {{"--slide", "0", "a.json"}, "--slide: expected a slide number from 1, got \"0\""},
        {{"--scope", "selection", "a.json"}, "--scope selection needs --select"},
        {{"--scope", "slide", "--select", "slides:1", "a.json"},
         "--select needs --scope selection"},
        {{"--select", "shapes:1", "a.json"},
         "--select: expected slides:N[,N...], shapes:SLIDE:PATH[,PATH...] or "
         "text:SLIDE:PATH:START:LENGTH, got \"shapes:1\""},
        {{"--select", "text:1:2:0:4", "a.json"},
         "--select: expected slides:N[,N...], shapes:SLIDE:PATH[,PATH...] or "
         "text:SLIDE:PATH:START:LENGTH, got \"text:1:2:0:4\""},
        {{"--font-metrics", "Real", "a.pptx"},
         "--font-metrics: expected model or real, got \"Real\""},
        {{"--font-metrics"}, "--font-metrics: needs a value"},
        {{"--road", "carrier-pigeon", "a.json"},
         "--road: expected native or panel, got \"carrier-pigeon\""},
        {{"--glossary"}, "--glossary: needs a value"},
        {{"--latency", "-5", "a.json"},
         "--latency: expected milliseconds from 0 to 600000, got \"-5\""},
        {{"--latency", "600001", "a.json"},
         "--latency: expected milliseconds from 0 to 600000, got \"600001\""},
        {{"--latency=10", "--service", "http://127.0.0.1:8123", "a.json"},
         "--latency needs the in-process service, not --service"},
        {{"--instruction", "i.txt", "--service", "http://127.0.0.1:8123", "a.json"},
         "--glossary and --instruction need the in-process service, not --service"},
        {{"--service=http://127.0.0.1:8123", "--glossary", "g.tsv", "a.json"},
         "--glossary and --instruction need the in-process service, not --service"},
        {{"--service", "https://example.com", "a.json"},
         "--service: expected http://127.0.0.1:PORT, got \"https://example.com\""},
        {{"--quiet=yes", "a.json"}, "--quiet: takes no value"},
        {{"-o", "a.json", "a.json"},
         "the output would overwrite the input; give --in-place to allow it"},
        {{"--in-place", "-o", "b.json", "a.json"}, "--in-place and --output exclude each other"},
    };
    for (const auto& c : cases) {
        const ParseResult r = ParseCommandLine(c.args);
        EXPECT_EQ(r.error, c.error);
    }
    const ParseResult inPlace = Parse({"--in-place", "a.json"});
    EXPECT_EQ(inPlace.error, "");
    EXPECT_EQ(inPlace.options.output, "a.json");
}

TEST(CliOptions, DefaultPathsKeepTheExtensionAndFolder) {
    EXPECT_EQ(DefaultOutputPath("deck.json"), "deck.translated.json");
    EXPECT_EQ(DefaultOutputPath("dir.v2/deck"), "dir.v2/deck.translated");
    EXPECT_EQ(DefaultOutputPath(".hidden"), ".hidden.translated");
    EXPECT_EQ(DefaultReportPath("out/deck.translated.json"), "out/deck.translated.report.json");
    EXPECT_EQ(DefaultReportPath("a.b/out"), "a.b/out.report.json");
    std::string host;
    std::uint16_t port = 0;
    EXPECT_TRUE(ParseServiceUrl("http://localhost:9/", host, port));
    EXPECT_EQ(port, 9);
    EXPECT_FALSE(ParseServiceUrl("http://127.0.0.1:70000", host, port));
    EXPECT_FALSE(ParseServiceUrl("http://10.0.0.1:80", host, port));
}

TEST(CliTermFiles, AGlossaryIsOneTermALineWithAnOptionalNote) {
    std::vector<GlossaryEntry> terms;
    std::string error;
    ASSERT_TRUE(ParseGlossaryText("g.tsv",
                                  "\xEF\xBB\xBF# ours\r\n"
                                  "Board\tVorstand\r\n"
                                  "\n"
                                  "  \n"
                                  " net sales \tNettoumsatz\tkeep the spaces\n"
                                  "\xE5\xAD\xA3\xE5\xBA\xA6\tquarter",
                                  terms, error))
        << error;
    ASSERT_EQ(terms.size(), 3u);
    EXPECT_EQ(terms[0].source, u"Board");
    EXPECT_EQ(terms[0].target, u"Vorstand");
    EXPECT_EQ(terms[0].note, u"");
    EXPECT_EQ(terms[1].source, u" net sales ");
    EXPECT_EQ(terms[1].note, u"keep the spaces");
    EXPECT_EQ(terms[2].source, u"\u5b63\u5ea6");
    EXPECT_EQ(terms[2].target, u"quarter");
    EXPECT_TRUE(terms[2].enabled);
}

TEST(CliTermFiles, EveryLineTheReaderCantTakeIsNamedWithItsLine) {
    const struct {
        std::string text;
        std::string error;
    } cases[] = {
        {"Board\tVorstand\nno tab here\n",
         "g.tsv:2: expected SOURCE<TAB>TARGET[<TAB>NOTE], got 1 field"},
        {"a\tb\tc\td\n", "g.tsv:1: expected SOURCE<TAB>TARGET[<TAB>NOTE], got 4 fields"},
        {"# c\n\tVorstand\n", "g.tsv:2: the source is empty"},
        {"Board\t \n", "g.tsv:1: the target is empty"},
        {"Board\tVorst\xC3\n", "g.tsv: not UTF-8 text"},
        {"# only a comment\n\n", "g.tsv: no terms (one a line: SOURCE<TAB>TARGET[<TAB>NOTE])"},
        {"", "g.tsv: no terms (one a line: SOURCE<TAB>TARGET[<TAB>NOTE])"},
    };
    for (const auto& c : cases) {
        std::vector<GlossaryEntry> terms;
        std::string error;
        EXPECT_FALSE(ParseGlossaryText("g.tsv", c.text, terms, error)) << c.text;
        EXPECT_EQ(error, c.error) << c.text;
    }
}

TEST(CliTermFiles, AnInstructionIsItsTextWithoutTrailingBlankLines) {
    std::u16string instruction;
    std::string error;
    ASSERT_TRUE(ParseInstructionText("i.txt", "\xEF\xBB\xBFKeep it short.\r\nUse du.\n\n",
                                     instruction, error));
    EXPECT_EQ(instruction, u"Keep it short.\r\nUse du.");
    EXPECT_FALSE(ParseInstructionText("i.txt", " \r\n\t\n", instruction, error));
    EXPECT_EQ(error, "i.txt: the instruction is empty");
    EXPECT_FALSE(ParseInstructionText("i.txt", "caf\xE9", instruction, error));
    EXPECT_EQ(error, "i.txt: not UTF-8 text");
}

TEST(CliReport, NamesFailedUnitsAndTextsThatDontFit) {
    EXPECT_EQ(SplitUnitIds("shapes[2].p1; shapes[3].frame"),
              (std::vector<std::string>{"shapes[2].p1", "shapes[3].frame"}));
    EXPECT_TRUE(SplitUnitIds("").empty());

    sim::DeckBuilder b;
    b.Slide().Text(u"Fits", u"Short", sim::Box{50, 50, 400, 60});
    b.Text(u"Tall", u"One\rTwo\rThree\rFour\rFive", sim::Box{50, 150, 400, 40});
    b.Text(u"Off", u"Past the edge of the slide", sim::Box{900, 300, 400, 60});
    const auto deck = b.Build();
    const std::vector<Overflow> found = FindOverflows(*deck);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].shape, "Tall");
    EXPECT_TRUE(found[0].box);
    EXPECT_FALSE(found[0].page);
    EXPECT_EQ(found[1].shape, "Off");
    EXPECT_TRUE(found[1].page);

    RunReport report;
    report.deck = "in \"q\".json";
    report.result = "complete";
    report.units = 3;
    report.failedUnits = {"shapes[2].p1"};
    report.overflows = found;
    const std::string json = ReportJson(report);
    EXPECT_NE(json.find("\"deck\": \"in \\\"q\\\".json\""), std::string::npos);
    EXPECT_NE(json.find("\"failedUnits\": [\"shapes[2].p1\"]"), std::string::npos);
    EXPECT_NE(json.find("\"serviceRequests\": null\n}"), std::string::npos) << json;
    report.glossaries = {"a.tsv", "b.tsv"};
    report.instruction = "i.txt";
    report.terms = 4;
    report.translateRequests = 3;
    report.resolveRequests = 1;
    report.instructedRequests = 3;
    const std::string withTerms = ReportJson(report);
    EXPECT_NE(withTerms.find("\"glossaries\": [\"a.tsv\", \"b.tsv\"],\n  \"instruction\": "
                             "\"i.txt\",\n  \"terms\": 4,\n  \"serviceRequests\": "
                             "{\"translate\": 3, \"resolve\": 1, \"withInstruction\": 3}\n}"),
              std::string::npos)
        << withTerms;
    EXPECT_NE(json.find("{\"slide\": 1, \"shape\": \"Tall\", \"box\": true, \"page\": false}"),
              std::string::npos);

    const auto before = CopyDeck(*deck);
    deck->slides[0]->shapes[0]->frame.SetText(u"<b>&", sim::CharFormat());
    EXPECT_EQ(before->slides[0]->shapes[0]->frame.text, u"Short");  // a real copy
    const std::string html = ReportHtml(report, *before, *deck);
    EXPECT_NE(html.find("&lt;b&gt;&amp;"), std::string::npos);
    EXPECT_NE(html.find("stroke=\"#d00\""), std::string::npos);  // the tall box is marked
    EXPECT_NE(html.find("Slide 1, Tall: leaves its box"), std::string::npos);
}

}  // namespace
}  // namespace qb::cli
