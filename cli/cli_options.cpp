// The front end's command line.
#include "cli/cli_options.h"

#include <algorithm>
#include <cctype>

namespace qb::cli {
namespace {

std::string Lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

bool ParseInt(const std::string& text, std::int32_t& out) {
    if (text.empty() || text.size() > 9) return false;
    std::int32_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    out = value;
    return true;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back().push_back(c);
        }
    }
    return parts;
}

// "3" or "3/1/2": a one-based shape path.
bool ParsePath(const std::string& text, std::vector<std::int32_t>& path) {
    path.clear();
    for (const std::string& part : Split(text, '/')) {
        std::int32_t n = 0;
        if (!ParseInt(part, n) || n < 1) return false;
        path.push_back(n);
    }
    return !path.empty() && path.size() <= 32;
}

// slides:2,4 | shapes:SLIDE:PATH[,PATH...] | text:SLIDE:PATH:START:LENGTH
bool ParseSelection(const std::string& text, SelectionSpec& spec, std::string& error) {
    const std::vector<std::string> parts = Split(text, ':');
    const std::string kind = parts[0];
    error =
        "--select: expected slides:N[,N...], shapes:SLIDE:PATH[,PATH...] or "
        "text:SLIDE:PATH:START:LENGTH, got \"" +
        text + "\"";
    if (kind == "slides" && parts.size() == 2) {
        spec.kind = SelectionSpec::Kind::Slides;
        for (const std::string& s : Split(parts[1], ',')) {
            std::int32_t n = 0;
            if (!ParseInt(s, n) || n < 1) return false;
            spec.slides.push_back(n);
        }
        return true;
    }
    if (kind == "shapes" && parts.size() == 3) {
        spec.kind = SelectionSpec::Kind::Shapes;
        if (!ParseInt(parts[1], spec.slide) || spec.slide < 1) return false;
        for (const std::string& p : Split(parts[2], ',')) {
            std::vector<std::int32_t> path;
            if (!ParsePath(p, path)) return false;
            spec.shapes.push_back(path);
        }
        return true;
    }
    if (kind == "text" && parts.size() == 5) {
        spec.kind = SelectionSpec::Kind::Text;
        return ParseInt(parts[1], spec.slide) && spec.slide >= 1 &&
               ParsePath(parts[2], spec.textShape) && ParseInt(parts[3], spec.start) &&
               spec.start >= 1 && ParseInt(parts[4], spec.length) && spec.length >= 1;
    }
    return false;
}

}  // namespace

bool IsKnownLanguage(const std::string& code, bool asSource) {
    static const char* const kCodes[] = {
        "ar",    "bg",    "cs",    "da",    "de",     "el",    "en",      "es",     "et",
        "fi",    "fr",    "he",    "hi",    "hu",     "id",    "it",      "ja",     "ko",
        "lt",    "lv",    "ms",    "nb",    "nl",     "pl",    "pt",      "pt-br",  "pt-pt",
        "ro",    "ru",    "sk",    "sl",    "sv",     "th",    "tr",      "uk",     "vi",
        "zh-cn", "zh-tw", "en-us", "en-gb", "es-419", "fr-ca", "zh-hans", "zh-hant"};
    const std::string lower = Lower(code);
    if (asSource && lower == "auto") return true;
    return std::find_if(std::begin(kCodes), std::end(kCodes),
                        [&](const char* c) { return lower == c; }) != std::end(kCodes);
}

bool ParseServiceUrl(const std::string& url, std::string& host, std::uint16_t& port) {
    const std::string prefix = "http://";
    if (url.compare(0, prefix.size(), prefix) != 0) return false;
    std::string rest = url.substr(prefix.size());
    if (!rest.empty() && rest.back() == '/') rest.pop_back();
    const std::size_t colon = rest.rfind(':');
    if (colon == std::string::npos) return false;
    const std::string name = rest.substr(0, colon);
    std::int32_t n = 0;
    if (!ParseInt(rest.substr(colon + 1), n) || n < 1 || n > 65535) return false;
    if (name != "127.0.0.1" && name != "localhost") return false;
    host = "127.0.0.1";
    port = static_cast<std::uint16_t>(n);
    return true;
}

std::string DefaultOutputPath(const std::string& deck) {
    const std::size_t slash = deck.find_last_of('/');
    const std::size_t dot = deck.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash) ||
        dot == (slash == std::string::npos ? 0 : slash + 1)) {
        return deck + ".translated";
    }
    return deck.substr(0, dot) + ".translated" + deck.substr(dot);
}

std::string DefaultReportPath(const std::string& output) {
    const std::size_t slash = output.find_last_of('/');
    const std::size_t dot = output.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return output + ".report.json";
    }
    return output.substr(0, dot) + ".report.json";
}

ParseResult ParseCommandLine(const std::vector<std::string>& args) {
    ParseResult r;
    Options& o = r.options;
    std::vector<std::string> positional;
    bool scopeGiven = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        std::string arg = args[i];
        std::string value;
        bool hasInline = false;
        if (arg.rfind("--", 0) == 0) {
            const std::size_t eq = arg.find('=');
            if (eq != std::string::npos) {
                value = arg.substr(eq + 1);
                arg = arg.substr(0, eq);
                hasInline = true;
            }
        }
        auto next = [&](std::string& out) {
            if (hasInline) {
                out = value;
                return true;
            }
            if (i + 1 >= args.size()) {
                r.error = arg + ": needs a value";
                return false;
            }
            out = args[++i];
            return true;
        };
        auto flag = [&]() {
            if (hasInline) r.error = arg + ": takes no value";
            return !hasInline;
        };
        if (arg == "-h" || arg == "--help") {
            if (!flag()) return r;
            o.help = true;
        } else if (arg == "--version") {
            if (!flag()) return r;
            o.version = true;
        } else if (arg == "-q" || arg == "--quiet") {
            if (!flag()) return r;
            o.quiet = true;
        } else if (arg == "--bilingual") {
            if (!flag()) return r;
            o.bilingual = true;
        } else if (arg == "--in-place") {
            if (!flag()) return r;
            o.inPlace = true;
        } else if (arg == "-o" || arg == "--output") {
            if (!next(o.output)) return r;
        } else if (arg == "-t" || arg == "--to") {
            if (!next(o.targetLang)) return r;
        } else if (arg == "-f" || arg == "--from") {
            if (!next(o.sourceLang)) return r;
        } else if (arg == "--scope") {
            std::string s;
            if (!next(s)) return r;
            scopeGiven = true;
            if (s == "deck") {
                o.scope = Scope::Deck;
            } else if (s == "slide") {
                o.scope = Scope::Slide;
            } else if (s == "selection") {
                o.scope = Scope::Selection;
            } else {
                r.error = "--scope: expected deck, slide or selection, got \"" + s + "\"";
                return r;
            }
        } else if (arg == "--slide") {
            std::string s;
            if (!next(s)) return r;
            if (!ParseInt(s, o.slide) || o.slide < 1) {
                r.error = "--slide: expected a slide number from 1, got \"" + s + "\"";
                return r;
            }
        } else if (arg == "--select") {
            std::string s;
            if (!next(s)) return r;
            std::string error;
            if (!ParseSelection(s, o.selection, error)) {
                r.error = error;
                return r;
            }
        } else if (arg == "--road") {
            std::string s;
            if (!next(s)) return r;
            if (s == "native") {
                o.road = Road::Native;
            } else if (s == "panel") {
                o.road = Road::Panel;
            } else {
                r.error = "--road: expected native or panel, got \"" + s + "\"";
                return r;
            }
        } else if (arg == "--target-font") {
            std::string s;
            if (!next(s)) return r;
            o.targetFont = s;
        } else if (arg == "--host") {
            std::string s;
            if (!next(s)) return r;
            if (s == "powerpoint") {
                o.host = HostChoice::PowerPoint;
            } else if (s == "wps") {
                o.host = HostChoice::Wps;
            } else {
                r.error = "--host: expected powerpoint or wps, got \"" + s + "\"";
                return r;
            }
        } else if (arg == "--font-metrics") {
            std::string s;
            if (!next(s)) return r;
            if (s == "model") {
                o.fontMetrics = FontMetricsChoice::Model;
            } else if (s == "real") {
                o.fontMetrics = FontMetricsChoice::Real;
            } else {
                r.error = "--font-metrics: expected model or real, got \"" + s + "\"";
                return r;
            }
        } else if (arg == "--service") {
            if (!next(o.serviceUrl)) return r;
            std::string host;
            std::uint16_t port = 0;
            if (!ParseServiceUrl(o.serviceUrl, host, port)) {
                r.error = "--service: expected http://127.0.0.1:PORT, got \"" + o.serviceUrl + "\"";
                return r;
            }
        } else if (arg == "--glossary") {
            std::string s;
            if (!next(s)) return r;
            o.glossaryFiles.push_back(s);
        } else if (arg == "--instruction") {
            if (!next(o.instructionFile)) return r;
        } else if (arg == "--latency") {
            std::string s;
            if (!next(s)) return r;
            if (!ParseInt(s, o.latencyMs) || o.latencyMs > 600000) {
                r.error = "--latency: expected milliseconds from 0 to 600000, got \"" + s + "\"";
                return r;
            }
        } else if (arg == "--token") {
            if (!next(o.token)) return r;
        } else if (arg == "--report") {
            if (!next(o.reportPath)) return r;
        } else if (arg == "--html") {
            if (!next(o.htmlPath)) return r;
        } else if (arg.size() > 1 && arg[0] == '-') {
            r.error = "unknown option " + arg + " (see --help)";
            return r;
        } else {
            positional.push_back(arg);
        }
    }
    if (o.help || o.version) return r;
    if (positional.size() != 1) {
        r.error = positional.empty()
                      ? "no deck file given (see --help)"
                      : "one deck file at a time, got " + std::to_string(positional.size());
        return r;
    }
    o.deck = positional[0];
    if (!IsKnownLanguage(o.targetLang, false)) {
        r.error = "--to: unknown language \"" + o.targetLang + "\"";
        return r;
    }
    if (!IsKnownLanguage(o.sourceLang, true)) {
        r.error = "--from: unknown language \"" + o.sourceLang + "\"";
        return r;
    }
    if (o.selection.kind != SelectionSpec::Kind::None) {
        if (scopeGiven && o.scope != Scope::Selection) {
            r.error = "--select needs --scope selection";
            return r;
        }
        o.scope = Scope::Selection;
    } else if (o.scope == Scope::Selection) {
        r.error = "--scope selection needs --select";
        return r;
    }
    // A running service has its own terms; only ours can be given files.
    if (!o.serviceUrl.empty() && (!o.glossaryFiles.empty() || !o.instructionFile.empty())) {
        r.error = "--glossary and --instruction need the in-process service, not --service";
        return r;
    }
    if (!o.serviceUrl.empty() && o.latencyMs > 0) {
        r.error = "--latency needs the in-process service, not --service";
        return r;
    }
    if (o.inPlace && !o.output.empty()) {
        r.error = "--in-place and --output exclude each other";
        return r;
    }
    if (o.inPlace) o.output = o.deck;
    if (o.output.empty()) o.output = DefaultOutputPath(o.deck);
    if (o.output == o.deck && !o.inPlace) {
        r.error = "the output would overwrite the input; give --in-place to allow it";
        return r;
    }
    // A presentation file is saved as one, or as a deck file to look at; a
    // deck file has no package to write a presentation into.
    if (IsPresentationFile(o.output) && !IsPresentationFile(o.deck)) {
        r.error = "a .pptx output needs a .pptx input";
        return r;
    }
    if (IsPresentationFile(o.deck) && !IsPresentationFile(o.output) &&
        !EndsWithIgnoringCase(o.output, ".json")) {
        r.error = "the output of a .pptx input is a .pptx or a .json deck file";
        return r;
    }
    if (o.reportPath.empty()) o.reportPath = DefaultReportPath(o.output);
    return r;
}

bool EndsWithIgnoringCase(const std::string& path, const std::string& lowerSuffix) {
    if (path.size() < lowerSuffix.size()) return false;
    for (std::size_t i = 0; i < lowerSuffix.size(); ++i) {
        char c = path[path.size() - lowerSuffix.size() + i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != lowerSuffix[i]) return false;
    }
    return true;
}

bool IsPresentationFile(const std::string& path) {
    return EndsWithIgnoringCase(path, ".pptx");
}

std::string UsageText() {
    return "Usage: qb-translate [options] DECK\n"
           "Translates a deck file on the simulated presentation host, as the add-in does\n"
           "inside the host, and saves the translated deck with a report. DECK may be a\n"
           ".pptx presentation: its slide, table, notes, chart (with the chart's data) and\n"
           "SmartArt text is translated and written back into a new .pptx.\n"
           "\n"
           "  -t, --to LANG            target language (default en)\n"
           "  -f, --from LANG          source language (default auto)\n"
           "      --scope SCOPE        deck, slide or selection (default deck)\n"
           "      --slide N            the current slide (default: as the deck file says)\n"
           "      --select SPEC        what is selected: slides:2,4 | shapes:SLIDE:PATH[,PATH]\n"
           "                           | text:SLIDE:PATH:START:LENGTH  (PATH like 3 or 3/1)\n"
           "      --bilingual          write the translation onto copies behind the slides\n"
           "      --road ROAD          native: the add-in posts to the service itself;\n"
           "                           panel: batches go through the web panel (default native)\n"
           "      --glossary FILE      a glossary: one term a line, SOURCE<TAB>TARGET[<TAB>NOTE],\n"
           "                           UTF-8, # starts a comment; may be given more than once\n"
           "      --instruction FILE   an instruction for the translation, UTF-8 plain text\n"
           "      --target-font NAME   font set on written text (\"\" keeps the source's)\n"
           "      --host HOST          pose as powerpoint or wps (default: as the deck says)\n"
           "      --font-metrics M     measure text for fit by the metric model, or real: by\n"
           "                           installed fonts of the run's face or a metric twin\n"
           "                           (default real for a .pptx where built, else model)\n"
           "      --service URL        a running stand-in service, http://127.0.0.1:PORT\n"
           "                           (default: one is started in-process)\n"
           "      --latency MS         the in-process service answers this late (default 0)\n"
           "      --token TOKEN        the access token sent to the service\n"
           "  -o, --output FILE        the translated deck (default DECK.translated.json, or\n"
           "                           .pptx for a .pptx; a .pptx may also be saved as .json)\n"
           "      --in-place           overwrite DECK instead\n"
           "      --report FILE        the JSON report (default OUTPUT.report.json)\n"
           "      --html FILE          an HTML report drawing each slide before and after\n"
           "  -q, --quiet              no progress, only errors\n"
           "  -h, --help               this text\n"
           "      --version            the version\n"
           "\n"
           "Exit status: 0 translated; 1 the run ended with units that failed;\n"
           "2 bad command line; 3 bad input (deck, selection, glossary, instruction);\n"
           "4 the service failed; "
           "5 an output could not be written.\n";
}

}  // namespace qb::cli
