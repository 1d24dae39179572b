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
    // Fails the calling test when the package can't be written.
    void Write(const std::string& path) const;

    // A text box with the given paragraphs' XML.
    static std::string Box(int id, const std::string& name, const std::string& paragraphs);
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

}  // namespace qb::test
