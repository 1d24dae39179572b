// A presentation written part by part for tests of the host over files:
// only what a reader needs, plus whatever parts a test adds.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace qb::test {

class DeckWriter {
  public:
    // A slide from the shapes' XML; notes text gives it a notes page.
    // `rels` are more relationships of the slide (ids from rId3 on are free).
    void Slide(const std::string& shapes, const std::string& notes = "",
               const std::string& rels = "");
    // Another part; a content type gives it an override in [Content_Types].xml.
    void Part(const std::string& name, const std::string& bytes,
              const std::string& contentType = "");
    // Where text takes the sizes it doesn't set: the presentation's default
    // style, and one layout and master with placeholders for every slide.
    void DefaultTextStyle(const std::string& xml) { defaultTextStyle_ = xml; }
    void LayoutAndMaster(const std::string& layoutShapes, const std::string& masterShapes,
                         const std::string& txStyles) {
        layout_ = layoutShapes;
        master_ = masterShapes;
        txStyles_ = txStyles;
    }

    std::map<std::string, std::string> Parts() const;
    // Empty on success, else why the package couldn't be written.
    [[nodiscard]] std::string Write(const std::string& path) const;

    // A text box with the given paragraphs' XML.
    static std::string Box(int id, const std::string& name, const std::string& paragraphs);
    // The same where the slide has it, in EMU (an inch is 914400).
    static std::string BoxAt(int id, const std::string& name, long x, long y, long cx, long cy,
                             const std::string& paragraphs);
    static std::string Para(const std::string& text);
    // One relationship of a slide's rels part.
    static std::string Rel(const std::string& id, const std::string& type,
                           const std::string& target);

    static constexpr const char* kRels =
        "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
    static constexpr const char* kNs =
        R"( xmlns:a="http://schemas.openxmlformats.org/drawingml/2006/main")"
        R"( xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships")"
        R"( xmlns:p="http://schemas.openxmlformats.org/presentationml/2006/main")";
    static constexpr const char* kXmlHead =
        R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)";

  private:
    struct SlideParts {
        std::string shapes, notes, rels;
    };
    std::vector<SlideParts> slides_;
    std::map<std::string, std::string> extra_;
    std::map<std::string, std::string> types_;
    std::string defaultTextStyle_, layout_, master_, txStyles_;
};

// Shapes' XML for slides, layouts and masters.
std::string Group(int id, const std::string& name, const std::string& inner);
// A table cell; an empty text gives it one empty paragraph.
std::string Cell(const std::string& text, const std::string& attrs = "");
// A two-column table from its rows' XML.
std::string Table(int id, const std::string& rows);
// A placeholder's text with a list style of one level's size.
std::string Placeholder(int id, const std::string& ph, const std::string& lstStyle,
                        const std::string& paragraphs, const std::string& xfrm = "");
// One level of a list style, with its size in hundredths of a point.
std::string Level(int level, int sz);

}  // namespace qb::test
