// The front end's reports.
#include "cli/report.h"

#include <cstdio>

#include "foundation/text.h"
#include "sim/host/sim_host.h"
#include "sim/host/sim_metrics.h"

namespace qb::cli {
namespace {

using sim::PresentationModel;
using sim::ShapeModel;
using sim::SlideModel;

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else {
                    out.push_back(static_cast<char>(c));
                }
        }
    }
    return out + "\"";
}

std::string Html(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out.push_back(c);
        }
    }
    return out;
}

std::string Num(double value) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f", value);
    return buf;
}

void CheckShape(const ShapeModel& shape, std::int32_t slide, float slideWidth, float slideHeight,
                std::vector<Overflow>& out) {
    for (const auto& child : shape.children)
        CheckShape(*child, slide, slideWidth, slideHeight, out);
    if (!shape.hasTextFrame || shape.frame.text.empty()) return;
    const auto length = static_cast<std::int32_t>(shape.frame.text.size());
    const sim::TextBounds b = sim::MeasureRange(shape, 0, length);
    Overflow o;
    o.slide = slide;
    o.shape = Utf16ToUtf8(shape.name);
    // The same tolerance the fit allows itself.
    o.box = b.height > shape.height * 1.02f + 1.0f || b.width > shape.width * 1.02f + 1.0f;
    o.page = b.left < -1.0f || b.left + b.width > slideWidth + 1.0f || b.top < -1.0f ||
             b.top + b.height > slideHeight + 1.0f;
    if (o.box || o.page) out.push_back(o);
}

// One shape as SVG: its box, and its text line by line as the host lays it out.
void DrawShape(const ShapeModel& shape, std::string& svg) {
    for (const auto& child : shape.children)
        DrawShape(*child, svg);
    if (shape.table) {
        for (const auto& cell : shape.table->cells)
            DrawShape(*cell, svg);
    }
    if (!shape.hasTextFrame) {
        if (shape.children.empty() && !shape.table) {
            svg += "<rect x=\"" + Num(shape.left) + "\" y=\"" + Num(shape.top) + "\" width=\"" +
                   Num(shape.width) + "\" height=\"" + Num(shape.height) +
                   "\" fill=\"#eee\" stroke=\"#bbb\"/>";
        }
        return;
    }
    const auto length = static_cast<std::int32_t>(shape.frame.text.size());
    const sim::TextBounds b = sim::MeasureRange(shape, 0, length);
    const bool over = length > 0 && (b.height > shape.height * 1.02f + 1.0f ||
                                     b.width > shape.width * 1.02f + 1.0f);
    svg += "<rect x=\"" + Num(shape.left) + "\" y=\"" + Num(shape.top) + "\" width=\"" +
           Num(shape.width) + "\" height=\"" + Num(shape.height) + "\" fill=\"none\" stroke=\"" +
           (over ? std::string("#d00\" stroke-width=\"3") : std::string("#88a")) + "\"/>";
    float y = b.top;
    for (const sim::TextLine& line : sim::LayoutFrame(shape)) {
        std::u16string text = shape.frame.text.substr(
            static_cast<std::size_t>(line.start), static_cast<std::size_t>(line.end - line.start));
        while (!text.empty() && (text.back() == u'\r' || text.back() == u'\v'))
            text.pop_back();
        y += line.height;
        const float size = line.height / 1.2f;
        svg += "<text x=\"" + Num(shape.left + shape.frame.marginLeft) + "\" y=\"" +
               Num(y - line.height * 0.2f) + "\" font-size=\"" + Num(size) + "\"" +
               (over ? " fill=\"#d00\"" : "") + ">" + Html(Utf16ToUtf8(text)) + "</text>";
    }
}

std::string DrawSlide(const PresentationModel& deck, const SlideModel& slide) {
    std::string svg = "<svg viewBox=\"0 0 " + Num(deck.slideWidth) + " " + Num(deck.slideHeight) +
                      "\" width=\"480\">";
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"#fff\" stroke=\"#444\"/>";
    for (const auto& shape : slide.shapes)
        DrawShape(*shape, svg);
    return svg + "</svg>";
}

}  // namespace

std::shared_ptr<PresentationModel> CopyDeck(const PresentationModel& deck) {
    auto copy = std::make_shared<PresentationModel>(deck);
    for (auto& slide : copy->slides)
        slide = sim::CloneSlide(*slide);
    return copy;
}

std::vector<Overflow> FindOverflows(const PresentationModel& deck) {
    std::vector<Overflow> out;
    for (std::size_t i = 0; i < deck.slides.size(); ++i) {
        for (const auto& shape : deck.slides[i]->shapes) {
            CheckShape(*shape, static_cast<std::int32_t>(i + 1), deck.slideWidth, deck.slideHeight,
                       out);
        }
    }
    return out;
}

std::vector<std::string> SplitUnitIds(const std::string& firstApplyError) {
    std::vector<std::string> ids;
    std::size_t at = 0;
    while (at < firstApplyError.size()) {
        const std::size_t end = firstApplyError.find("; ", at);
        const std::string id = firstApplyError.substr(at, end - at);
        if (!id.empty()) ids.push_back(id);
        if (end == std::string::npos) break;
        at = end + 2;
    }
    return ids;
}

std::string ReportJson(const RunReport& r) {
    std::string j = "{\n";
    auto field = [&](const char* key, const std::string& value, bool last = false) {
        j += std::string("  \"") + key + "\": " + value + (last ? "\n" : ",\n");
    };
    auto num = [](long long v) { return std::to_string(v); };
    field("deck", JsonString(r.deck));
    field("output", JsonString(r.output));
    field("host", JsonString(r.host));
    field("road", JsonString(r.road));
    field("scope", JsonString(r.scope));
    field("sourceLang", JsonString(r.sourceLang));
    field("targetLang", JsonString(r.targetLang));
    field("bilingual", r.bilingual ? "true" : "false");
    field("result", JsonString(r.result));
    field("errorCode", JsonString(r.errorCode));
    field("errorMessage", JsonString(r.errorMessage));
    field("slides", num(r.slides));
    field("units", num(r.units));
    field("translated", num(r.translated));
    field("unchanged", num(r.unchanged));
    field("failed", num(r.failed));
    field("slidesWritten", num(r.slidesWritten));
    field("elapsedMs", num(r.elapsedMs));
    std::string failed = "[";
    for (std::size_t i = 0; i < r.failedUnits.size(); ++i)
        failed += (i ? ", " : "") + JsonString(r.failedUnits[i]);
    field("failedUnits", failed + "]");
    std::string overflows = "[";
    for (std::size_t i = 0; i < r.overflows.size(); ++i) {
        const Overflow& o = r.overflows[i];
        overflows += std::string(i ? ",\n    " : "\n    ") + "{\"slide\": " + num(o.slide) +
                     ", \"shape\": " + JsonString(o.shape) +
                     ", \"box\": " + (o.box ? "true" : "false") +
                     ", \"page\": " + (o.page ? "true" : "false") + "}";
    }
    field("overflows", overflows + (r.overflows.empty() ? "]" : "\n  ]"));
    std::string glossaries = "[";
    for (std::size_t i = 0; i < r.glossaries.size(); ++i)
        glossaries += (i ? ", " : "") + JsonString(r.glossaries[i]);
    field("glossaries", glossaries + "]");
    field("instruction", JsonString(r.instruction));
    field("terms", num(r.terms));
    field("serviceRequests",
          r.translateRequests < 0 ? std::string("null")
                                  : "{\"translate\": " + num(r.translateRequests) +
                                        ", \"resolve\": " + num(r.resolveRequests) +
                                        ", \"withInstruction\": " + num(r.instructedRequests) + "}",
          true);
    return j + "}\n";
}

std::string ReportHtml(const RunReport& r, const PresentationModel& before,
                       const PresentationModel& after) {
    std::string h =
        "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Translation report: " +
        Html(r.deck) +
        "</title><style>body{font-family:sans-serif;margin:24px}"
        "table.s td{padding:2px 12px}.slide{display:flex;gap:16px;margin:16px 0}"
        ".slide h3{margin:4px 0}.bad{color:#d00}</style></head><body>\n";
    h += "<h1>" + Html(r.deck) + " &rarr; " + Html(r.output) + "</h1>\n<table class=\"s\">";
    auto row = [&](const std::string& k, const std::string& v) {
        h += "<tr><td>" + k + "</td><td>" + Html(v) + "</td></tr>";
    };
    row("Result", r.result + (r.errorCode.empty() ? "" : " (" + r.errorCode + ")"));
    row("Languages", r.sourceLang + " \xe2\x86\x92 " + r.targetLang);
    row("Host, road, scope", r.host + ", " + r.road + ", " + r.scope);
    row("Units", std::to_string(r.units));
    row("Translated", std::to_string(r.translated));
    row("Unchanged", std::to_string(r.unchanged));
    row("Failed", std::to_string(r.failed));
    row("Slides written", std::to_string(r.slidesWritten));
    row("Time", std::to_string(r.elapsedMs) + " ms");
    h += "</table>\n";
    if (!r.overflows.empty()) {
        h += "<h2 class=\"bad\">Texts that don't fit</h2><ul>";
        for (const Overflow& o : r.overflows) {
            h += "<li>Slide " + std::to_string(o.slide) + ", " + Html(o.shape) + ": " +
                 (o.box ? "leaves its box" : "") + (o.box && o.page ? ", " : "") +
                 (o.page ? "leaves the slide" : "") + "</li>";
        }
        h += "</ul>\n";
    }
    if (!r.failedUnits.empty()) {
        h += "<h2 class=\"bad\">Units not written</h2><ul>";
        for (const std::string& id : r.failedUnits)
            h += "<li>" + Html(id) + "</li>";
        h += "</ul>\n";
    }
    // Slides of the result; a slide that was there before is drawn beside
    // its earlier self (matched by slide id, so bilingual copies stand alone).
    for (std::size_t i = 0; i < after.slides.size(); ++i) {
        const SlideModel& now = *after.slides[i];
        const SlideModel* was = nullptr;
        for (const auto& s : before.slides) {
            if (s->slideId == now.slideId) was = s.get();
        }
        h += "<div class=\"slide\"><div><h3>Slide " + std::to_string(i + 1) +
             (was ? " before" : " (new)") + "</h3>" +
             (was ? DrawSlide(before, *was) : std::string()) + "</div><div><h3>Slide " +
             std::to_string(i + 1) + " after</h3>" + DrawSlide(after, now) + "</div></div>\n";
    }
    return h + "</body></html>\n";
}

}  // namespace qb::cli
