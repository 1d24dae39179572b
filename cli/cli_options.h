// The command line of the front end: what a run is to translate and how,
// read strictly so that a typo is an error naming itself, never a quietly
// different run.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qb::cli {

enum class Scope { Deck, Slide, Selection };
enum class Road { Native, Panel };
enum class HostChoice { FromDeck, PowerPoint, Wps };
// How text is measured for fit: the metric model, or installed fonts where
// they have the face. Default: fonts for a .pptx when the build has them.
enum class FontMetricsChoice { Default, Model, Real };

// A selection as the user gives it: slides, shapes by path, or characters.
struct SelectionSpec {
    enum class Kind { None, Slides, Shapes, Text } kind = Kind::None;
    std::vector<std::int32_t> slides;               // Slides
    std::int32_t slide = 0;                         // Shapes, Text
    std::vector<std::vector<std::int32_t>> shapes;  // Shapes: one-based paths
    std::vector<std::int32_t> textShape;            // Text: the shape's path
    std::int32_t start = 0, length = 0;             // Text: one-based start
};

struct Options {
    std::string deck;
    std::string output;  // empty: beside the deck, ".translated" before the extension
    bool inPlace = false;
    std::string targetLang = "en";
    std::string sourceLang = "auto";
    Scope scope = Scope::Deck;
    std::int32_t slide = 0;  // the current slide; 0: as the deck file says
    SelectionSpec selection;
    bool bilingual = false;
    Road road = Road::Native;
    std::optional<std::string> targetFont;  // absent: the run's default
    HostChoice host = HostChoice::FromDeck;
    FontMetricsChoice fontMetrics = FontMetricsChoice::Default;
    std::string serviceUrl;  // empty: start the stand-in service in-process
    // Glossary and instruction files (term_files.h), loaded into the
    // in-process service and named in the run by their ids.
    std::vector<std::string> glossaryFiles;
    std::string instructionFile;
    // The in-process service answers each translate and resolve request
    // this many milliseconds late, as a remote one would.
    std::int32_t latencyMs = 0;
    std::string token = "stand-in-token";
    std::string reportPath;  // empty: beside the output, ".report.json"
    std::string htmlPath;    // empty: no HTML report
    bool quiet = false;
    bool help = false;
    bool version = false;
};

struct ParseResult {
    Options options;
    std::string error;  // empty on success; one line for the user
};

ParseResult ParseCommandLine(const std::vector<std::string>& args);

// "deck.json" -> "deck.translated.json"; "deck" -> "deck.translated".
std::string DefaultOutputPath(const std::string& deck);
// A presentation file by its extension, ".pptx" in any case.
bool IsPresentationFile(const std::string& path);
bool EndsWithIgnoringCase(const std::string& path, const std::string& lowerSuffix);

// "out.json" -> "out.report.json".
std::string DefaultReportPath(const std::string& output);

// Language codes the service takes, lower-case compared.
bool IsKnownLanguage(const std::string& code, bool asSource);

// "http://127.0.0.1:8080" -> host and port; only plain HTTP on loopback.
bool ParseServiceUrl(const std::string& url, std::string& host, std::uint16_t& port);

std::string UsageText();

}  // namespace qb::cli
