// qb-translate: translates a deck file the way the add-in translates a
// presentation inside its host. The deck is opened in the simulated host,
// the run collects, translates through the service (a stand-in started
// in-process unless one is named) on the native or the panel road and
// writes the slides back on its run tick; then the deck is saved beside the
// input with a report. A .pptx is opened by the host over presentation
// files and saved as one.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "charts/chart_steps.h"
#include "cli/cli_options.h"
#include "cli/report.h"
#include "cli/roads.h"
#include "cli/term_files.h"
#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/service_client.h"
#include "sim/host/deck_file.h"
#include "sim/host/sim_editor.h"
#include "sim/host/sim_host.h"
#include "sim/host/sim_metrics.h"
#include "sim/pptx/pptx_deck.h"
#include "sim/service/stand_in_service.h"
#ifdef QB_HAVE_FONT_METRICS
#include "sim/fonts/font_metrics.h"
#endif

namespace {

using namespace qb;
using namespace qb::cli;

constexpr int kExitOk = 0;
constexpr int kExitUnitsFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInput = 3;
constexpr int kExitService = 4;
constexpr int kExitOutput = 5;
constexpr char kVersion[] = "qb-translate 0.1.0";

int Fail(int code, const std::string& message) {
    std::fprintf(stderr, "qb-translate: %s\n", message.c_str());
    return code;
}

std::u16string U16(const std::string& s) {
    return Utf8ToUtf16(s);
}

// Beside the target, then renamed over it: nobody sees half a report.
bool WriteText(const std::string& path, const std::string& text) {
    const std::u16string target = U16(path);
    const std::u16string temporary = target + u".tmp";
    if (!platform::WriteNewFile(temporary, text.data(), text.size())) return false;
    if (platform::MoveFileReplacing(temporary, target)) return true;
    platform::RemoveFile(temporary);
    return false;
}

// The whole file, or false when it can't be read. A folder opens like a
// file here and reads as nothing, so it is turned away first.
bool ReadFile(const std::string& path, std::string& text) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::stringstream s;
    s << in.rdbuf();
    text = s.str();
    return !in.bad();
}

// The glossary and instruction files, read before anything runs and put
// into the in-process service under ids the run then names.
struct Terms {
    std::vector<std::u16string> glossaryIds;
    std::vector<std::vector<GlossaryEntry>> glossaries;
    std::u16string instructionId, instruction;
};

std::string ReadTerms(const Options& o, Terms& terms) {
    std::string text, error;
    for (const std::string& path : o.glossaryFiles) {
        if (!ReadFile(path, text)) return path + ": can't read the glossary";
        std::vector<GlossaryEntry> entries;
        if (!ParseGlossaryText(path, text, entries, error)) return error;
        terms.glossaryIds.push_back(
            u"glossary-" + DecimalText(static_cast<long long>(terms.glossaryIds.size() + 1)));
        terms.glossaries.push_back(std::move(entries));
    }
    if (!o.instructionFile.empty()) {
        if (!ReadFile(o.instructionFile, text)) {
            return o.instructionFile + ": can't read the instruction";
        }
        if (!ParseInstructionText(o.instructionFile, text, terms.instruction, error)) return error;
        terms.instructionId = u"instruction-1";
    }
    return "";
}

// The selection the options describe, on the first window; an error text
// when it names a slide or shape the deck doesn't have.
std::string ApplySelection(const SelectionSpec& spec, sim::SimHost& host,
                           const sim::PresentationModel& deck) {
    sim::SelectionModel& selection = host.App().windows[0]->selection;
    selection = sim::SelectionModel();
    auto slideAt = [&](std::int32_t n) -> std::shared_ptr<sim::SlideModel> {
        return n >= 1 && n <= static_cast<std::int32_t>(deck.slides.size())
                   ? deck.slides[static_cast<std::size_t>(n - 1)]
                   : nullptr;
    };
    auto shapeAt = [&](std::int32_t slide,
                       const std::vector<std::int32_t>& path) -> std::shared_ptr<sim::ShapeModel> {
        const auto s = slideAt(slide);
        if (!s) return nullptr;
        const std::vector<std::shared_ptr<sim::ShapeModel>>* list = &s->shapes;
        std::shared_ptr<sim::ShapeModel> shape;
        for (std::int32_t index : path) {
            if (index < 1 || index > static_cast<std::int32_t>(list->size())) return nullptr;
            shape = (*list)[static_cast<std::size_t>(index - 1)];
            list = &shape->children;
        }
        return shape;
    };
    auto pathText = [](const std::vector<std::int32_t>& path) {
        std::string text;
        for (std::int32_t i : path)
            text += (text.empty() ? "" : "/") + std::to_string(i);
        return text;
    };
    switch (spec.kind) {
        case SelectionSpec::Kind::Slides:
            selection.type = sim::SelectionType::Slides;
            for (std::int32_t n : spec.slides) {
                const auto s = slideAt(n);
                if (!s) return "--select: the deck has no slide " + std::to_string(n);
                selection.slides.push_back(s);
            }
            break;
        case SelectionSpec::Kind::Shapes:
            selection.type = sim::SelectionType::Shapes;
            for (const auto& path : spec.shapes) {
                const auto shape = shapeAt(spec.slide, path);
                if (!shape) {
                    return "--select: slide " + std::to_string(spec.slide) + " has no shape " +
                           pathText(path);
                }
                (path.size() > 1 ? selection.childShapes : selection.shapes).push_back(shape);
            }
            // Shapes inside groups are selected as the host reports them:
            // the child range, with the outermost groups as the shape range.
            if (!selection.childShapes.empty() && selection.shapes.empty()) {
                selection.shapes = selection.childShapes;
            }
            break;
        case SelectionSpec::Kind::Text: {
            const auto shape = shapeAt(spec.slide, spec.textShape);
            if (!shape || !shape->hasTextFrame) {
                return "--select: slide " + std::to_string(spec.slide) + " has no text shape " +
                       pathText(spec.textShape);
            }
            if (spec.start + spec.length - 1 >
                static_cast<std::int32_t>(shape->frame.text.size())) {
                return "--select: the characters " + std::to_string(spec.start) + " to " +
                       std::to_string(spec.start + spec.length - 1) + " lie past the end of its " +
                       std::to_string(shape->frame.text.size()) + " characters";
            }
            selection.type = sim::SelectionType::Text;
            selection.textShape = shape;
            selection.textStart = spec.start;
            selection.textLength = spec.length;
            break;
        }
        case SelectionSpec::Kind::None:
            break;
    }
    return "";
}

const char* ScopeName(Scope scope) {
    return scope == Scope::Deck ? "deck" : scope == Scope::Slide ? "slide" : "selection";
}

std::string LastComponent(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Installs the installed fonts' advances for the run when it measures by
// them; an error text when it asks for them and this build or machine
// can't give them.
std::string ChooseFontMetrics(const Options& o, std::unique_ptr<sim::ScopedAdvanceSource>& scope) {
    // Deck files keep the model unless asked: their runs are compared
    // byte for byte.
    const bool real = o.fontMetrics == FontMetricsChoice::Real ||
                      (o.fontMetrics == FontMetricsChoice::Default && IsPresentationFile(o.deck));
    if (!real) return "";
#ifdef QB_HAVE_FONT_METRICS
    auto source = sim::fonts::FontMetrics::Create();
    if (source) {
        scope = std::make_unique<sim::ScopedAdvanceSource>(std::move(source));
        return "";
    }
    return o.fontMetrics == FontMetricsChoice::Real ? "--font-metrics real: can't load fonts" : "";
#else
    return o.fontMetrics == FontMetricsChoice::Real
               ? "--font-metrics real: this build has no FreeType and fontconfig"
               : "";
#endif
}

int Run(const Options& o) {
    std::unique_ptr<sim::ScopedAdvanceSource> metrics;
    const std::string metricsError = ChooseFontMetrics(o, metrics);
    if (!metricsError.empty()) return Fail(kExitUsage, metricsError);
    sim::DeckLoadResult loaded;
    std::unique_ptr<pptx::PptxDeck> presentation;
    if (IsPresentationFile(o.deck)) {
        std::string error;
        presentation = pptx::PptxDeck::Open(o.deck, error);
        if (!presentation) return Fail(kExitInput, LastComponent(o.deck) + ": " + error);
        // One window on the presentation, as a host shows an opened file.
        loaded.deck = presentation->Model();
        loaded.windows.emplace_back();
    } else {
        loaded = sim::LoadDeckFile(U16(o.deck));
        if (!loaded.error.empty()) return Fail(kExitInput, loaded.error);
    }
    if (o.host == HostChoice::PowerPoint) loaded.kind = sim::HostKind::PowerPoint;
    if (o.host == HostChoice::Wps) loaded.kind = sim::HostKind::Wps;
    sim::SimHost host(loaded.kind);
    const auto deck = sim::OpenDeck(host, loaded);
    const auto slideCount = static_cast<std::int32_t>(deck->slides.size());
    if (o.slide > slideCount) {
        return Fail(kExitInput, "--slide: the deck has " + std::to_string(slideCount) +
                                    " slides, not " + std::to_string(o.slide));
    }
    if (o.slide > 0) host.App().windows[0]->currentSlide = o.slide;
    host.App().activeWindow = 1;
    if (o.scope == Scope::Selection) {
        const std::string error = ApplySelection(o.selection, host, *deck);
        if (!error.empty()) return Fail(kExitInput, error);
        // Shapes or text are selected on the slide the window shows, as in
        // a host; otherwise the run writes into the shown slide's shapes.
        const bool onOneSlide = o.selection.kind == SelectionSpec::Kind::Shapes ||
                                o.selection.kind == SelectionSpec::Kind::Text;
        if (onOneSlide && o.slide == 0) host.App().windows[0]->currentSlide = o.selection.slide;
    }

    Terms terms;
    const std::string termsError = ReadTerms(o, terms);
    if (!termsError.empty()) return Fail(kExitInput, termsError);

    // The service: a running stand-in, or one of our own on a free port.
    sim::StandInService::Options serviceOptions;
    serviceOptions.latencyMs = static_cast<std::uint32_t>(o.latencyMs);
    sim::StandInService service(serviceOptions);
    std::string serviceHost = "127.0.0.1";
    std::uint16_t port = 0;
    if (o.serviceUrl.empty()) {
        if (!service.Start(0)) return Fail(kExitService, "can't start the stand-in service");
        port = static_cast<std::uint16_t>(service.Port());
        for (std::size_t i = 0; i < terms.glossaryIds.size(); ++i) {
            for (const GlossaryEntry& entry : terms.glossaries[i]) {
                service.AddTerm(terms.glossaryIds[i],
                                {entry.source, entry.target, entry.note, entry.enabled});
            }
        }
        if (!terms.instructionId.empty()) {
            service.SetInstruction(terms.instructionId, terms.instruction);
        }
    } else {
        ParseServiceUrl(o.serviceUrl, serviceHost, port);
    }
    SetHttpEndpointForTesting(U16(serviceHost), port);

    const auto before = CopyDeck(*deck);
    // Charts and SmartArt as the posed host has them; on WPS the chart
    // editor is the simulated one.
    sim::SimChartEditor editor(host);
    ChartStepsConfig charts;
    const bool wps = loaded.kind == sim::HostKind::Wps;
    charts.isWpsHost = [wps] { return wps; };
    charts.editor = &editor;
    RoadRequest request;
    request.host = &host;
    request.wpsHost = wps;
    request.offer = MakeChartOffer(charts);
    request.writers = MakeChartWriters(charts);
    request.scope = o.scope == Scope::Deck    ? RunScope::FullDeck
                    : o.scope == Scope::Slide ? RunScope::CurrentSlide
                                              : RunScope::Selection;
    request.targetLang = U16(o.targetLang);
    request.sourceLang = U16(o.sourceLang);
    if (o.targetFont) request.targetFont = U16(*o.targetFont);
    request.bilingual = o.bilingual;
    request.token = U16(o.token);
    request.glossaryIds = terms.glossaryIds;
    request.instructionId = terms.instructionId;

    Progress progress(o.quiet);
    const auto started = std::chrono::steady_clock::now();
    const RoadOutcome ran =
        o.road == Road::Panel ? RunPanelRoad(request, progress) : RunNativeRoad(request, progress);
    progress.End();
    service.Stop();
    const std::vector<sim::RecordedRequest> translates = service.RequestsTo("/v1/translate");
    SetHttpEndpointForTesting(u"", 0);

    if (ran.closing == "error") {
        const int code = ran.code == "collect_failed" ? kExitInput : kExitService;
        return Fail(code, (code == kExitInput ? "nothing to translate: " : "the run failed: ") +
                              ran.code + ": " + ran.message);
    }
    if (ran.closing == "cancelled") return Fail(kExitService, "the run was cancelled");
    if (ran.closing.empty()) return Fail(kExitService, "the run never ended");

    RunReport report;
    report.deck = o.deck;
    report.output = o.output;
    report.host = loaded.kind == sim::HostKind::Wps ? "wps" : "powerpoint";
    report.road = o.road == Road::Panel ? "panel" : "native";
    report.scope = ScopeName(o.scope);
    report.sourceLang = o.sourceLang;
    report.targetLang = o.targetLang;
    report.bilingual = o.bilingual;
    report.result = ran.closing;
    report.slides = ran.slides;
    report.units = ran.units;
    report.translated = ran.translated;
    report.unchanged = ran.unchanged;
    report.failedUnits = SplitUnitIds(ran.firstApplyError);
    report.failed = static_cast<std::int32_t>(report.failedUnits.size());
    report.slidesWritten = ran.slidesWritten;
    report.elapsedMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                           std::chrono::steady_clock::now() - started)
                           .count();
    report.overflows = FindOverflows(*deck);
    report.glossaries = o.glossaryFiles;
    report.instruction = o.instructionFile;
    for (const auto& entries : terms.glossaries)
        report.terms += static_cast<std::int32_t>(entries.size());
    if (o.serviceUrl.empty()) {
        report.translateRequests = static_cast<std::int32_t>(translates.size());
        report.resolveRequests =
            static_cast<std::int32_t>(service.RequestsTo("/v1/terminology/resolve").size());
        report.instructedRequests = static_cast<std::int32_t>(
            std::count_if(translates.begin(), translates.end(), [](const sim::RecordedRequest& r) {
                return r.body.find("\"instruction\":\"") != std::string::npos;
            }));
    }

    std::string error;
    if (IsPresentationFile(o.output)) {
        error = presentation->Save(o.output);
        if (!error.empty()) return Fail(kExitOutput, "can't write " + o.output + ": " + error);
    } else if (!sim::SaveDeckFile(U16(o.output), sim::CaptureDeck(host, deck), &error)) {
        return Fail(kExitOutput, "can't write " + o.output + ": " + error);
    }
    if (!WriteText(o.reportPath, ReportJson(report))) {
        return Fail(kExitOutput, "can't write " + o.reportPath);
    }
    if (!o.htmlPath.empty() && !WriteText(o.htmlPath, ReportHtml(report, *before, *deck))) {
        return Fail(kExitOutput, "can't write " + o.htmlPath);
    }
    if (!o.quiet) {
        std::printf(
            "%s: %d units on %d slides: %d translated, %d unchanged, %d failed; %d slides "
            "written in %lld ms\n",
            o.deck.c_str(), report.units, report.slides, report.translated, report.unchanged,
            report.failed, report.slidesWritten, static_cast<long long>(report.elapsedMs));
        if (!report.overflows.empty()) {
            std::printf("%zu texts don't fit their box or the slide (see the report)\n",
                        report.overflows.size());
        }
        std::printf("translated deck: %s\nreport: %s\n", o.output.c_str(), o.reportPath.c_str());
        if (!o.htmlPath.empty()) std::printf("html report: %s\n", o.htmlPath.c_str());
    }
    return report.failed > 0 ? kExitUnitsFailed : kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    const ParseResult parsed = ParseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
    if (!parsed.error.empty()) return Fail(kExitUsage, parsed.error);
    if (parsed.options.help) {
        std::fputs(UsageText().c_str(), stdout);
        return kExitOk;
    }
    if (parsed.options.version) {
        std::printf("%s\n", kVersion);
        return kExitOk;
    }
    try {
        return Run(parsed.options);
    } catch (const std::exception& e) {
        return Fail(kExitService, std::string("internal error: ") + e.what());
    }
}
