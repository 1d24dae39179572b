#include "support/pptx_writer.h"

#include "sim/pptx/zip_package.h"

namespace qb::test {

void DeckWriter::Slide(const std::string& shapes, const std::string& notes,
                       const std::string& rels) {
    slides_.push_back({shapes, notes, rels});
}

void DeckWriter::Part(const std::string& name, const std::string& bytes,
                      const std::string& contentType) {
    extra_[name] = bytes;
    if (!contentType.empty()) types_[name] = contentType;
}

std::map<std::string, std::string> DeckWriter::Parts() const {
    std::map<std::string, std::string> parts;
    std::string types =
        R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)"
        R"(<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)"
        R"(<Default Extension="xml" ContentType="application/xml"/>)"
        R"(<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>)"
        R"(<Override PartName="/ppt/presentation.xml" ContentType="application/vnd.openxmlformats-officedocument.presentationml.presentation.main+xml"/>)";
    std::string ids, presRels;
    for (std::size_t i = 0; i < slides_.size(); ++i) {
        const std::string n = std::to_string(i + 1);
        types +=
            R"(<Override PartName="/ppt/slides/slide)" + n +
            R"(.xml" ContentType="application/vnd.openxmlformats-officedocument.presentationml.slide+xml"/>)";
        ids += R"(<p:sldId id=")" + std::to_string(256 + i) + R"(" r:id="rId)" +
               std::to_string(i + 10) + R"("/>)";
        presRels += R"(<Relationship Id="rId)" + std::to_string(i + 10) + R"(" Type=")" + kRels +
                    R"(/slide" Target="slides/slide)" + n + R"(.xml"/>)";
        parts["ppt/slides/slide" + n + ".xml"] =
            std::string(R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)") + "<p:sld" +
            kNs + R"(><p:cSld><p:spTree><p:nvGrpSpPr><p:cNvPr id="1" name=""/>)" +
            "<p:cNvGrpSpPr/><p:nvPr/></p:nvGrpSpPr><p:grpSpPr/>" + slides_[i].shapes +
            "</p:spTree></p:cSld></p:sld>";
        std::string slideRels;
        if (!layout_.empty()) {
            slideRels += R"(<Relationship Id="rId1" Type=")" + std::string(kRels) +
                         R"(/slideLayout" Target="../slideLayouts/slideLayout1.xml"/>)";
        }
        if (!slides_[i].notes.empty()) {
            slideRels += R"(<Relationship Id="rId2" Type=")" + std::string(kRels) +
                         R"(/notesSlide" Target="../notesSlides/notesSlide)" + n + R"(.xml"/>)";
        }
        slideRels += slides_[i].rels;
        if (!slideRels.empty()) {
            parts["ppt/slides/_rels/slide" + n + ".xml.rels"] =
                std::string(R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)") +
                R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)" +
                slideRels + "</Relationships>";
        }
        if (!slides_[i].notes.empty()) {
            types +=
                R"(<Override PartName="/ppt/notesSlides/notesSlide)" + n +
                R"(.xml" ContentType="application/vnd.openxmlformats-officedocument.presentationml.notesSlide+xml"/>)";
            parts["ppt/notesSlides/notesSlide" + n + ".xml"] =
                std::string(R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)") +
                "<p:notes" + kNs +
                R"(><p:cSld><p:spTree><p:nvGrpSpPr><p:cNvPr id="1" name=""/><p:cNvGrpSpPr/>)" +
                "<p:nvPr/></p:nvGrpSpPr><p:grpSpPr/>" +
                Box(2, "Notes Placeholder 2",
                    "<a:p><a:r><a:t>" + slides_[i].notes + "</a:t></a:r></a:p>") +
                "</p:spTree></p:cSld></p:notes>";
            // A notes page names its slide, as the files tools write do.
            parts["ppt/notesSlides/_rels/notesSlide" + n + ".xml.rels"] =
                std::string(kXmlHead) +
                R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)" +
                Rel("rId1", std::string(kRels) + "/slide", "../slides/slide" + n + ".xml") +
                "</Relationships>";
        }
    }
    for (const auto& [name, type] : types_)
        types += R"(<Override PartName="/)" + name + R"(" ContentType=")" + type + R"("/>)";
    parts["[Content_Types].xml"] = types + "</Types>";
    parts["_rels/.rels"] =
        std::string(R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)") +
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)" +
        R"(<Relationship Id="rId1" Type=")" + kRels +
        R"(/officeDocument" Target="ppt/presentation.xml"/></Relationships>)";
    parts["ppt/presentation.xml"] =
        std::string(R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)") +
        "<p:presentation" + kNs + "><p:sldIdLst>" + ids +
        R"(</p:sldIdLst><p:sldSz cx="12192000" cy="6858000"/><p:notesSz cx="6858000" cy="9144000"/>)" +
        defaultTextStyle_ + "</p:presentation>";
    if (!layout_.empty()) {
        const std::string head = R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)";
        const std::string tree = R"(<p:cSld><p:spTree><p:nvGrpSpPr><p:cNvPr id="1" name=""/>)"
                                 "<p:cNvGrpSpPr/><p:nvPr/></p:nvGrpSpPr><p:grpSpPr/>";
        parts["ppt/slideLayouts/slideLayout1.xml"] = head + "<p:sldLayout" + kNs + ">" + tree +
                                                     layout_ + "</p:spTree></p:cSld></p:sldLayout>";
        parts["ppt/slideLayouts/_rels/slideLayout1.xml.rels"] =
            head +
            R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)" +
            R"(<Relationship Id="rId1" Type=")" + kRels +
            R"(/slideMaster" Target="../slideMasters/slideMaster1.xml"/></Relationships>)";
        parts["ppt/slideMasters/slideMaster1.xml"] = head + "<p:sldMaster" + kNs + ">" + tree +
                                                     master_ + "</p:spTree></p:cSld>" + txStyles_ +
                                                     "</p:sldMaster>";
    }
    parts["ppt/_rels/presentation.xml.rels"] =
        std::string(R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>)") +
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)" +
        presRels + "</Relationships>";
    for (const auto& [name, bytes] : extra_)
        parts[name] = bytes;
    return parts;
}

std::string DeckWriter::Write(const std::string& path) const {
    pptx::ZipPackage zip;
    for (const auto& [name, bytes] : Parts())
        zip.Put(name, bytes);
    return zip.Write(path);
}

std::string DeckWriter::Box(int id, const std::string& name, const std::string& paragraphs) {
    return BoxAt(id, name, 127000, 254000, 2540000, 635000, paragraphs);
}

std::string DeckWriter::BoxAt(int id, const std::string& name, long x, long y, long cx, long cy,
                              const std::string& paragraphs) {
    return R"(<p:sp><p:nvSpPr><p:cNvPr id=")" + std::to_string(id) + R"(" name=")" + name +
           R"("/><p:cNvSpPr txBox="1"/><p:nvPr/></p:nvSpPr><p:spPr><a:xfrm><a:off x=")" +
           std::to_string(x) + R"(" y=")" + std::to_string(y) + R"("/><a:ext cx=")" +
           std::to_string(cx) + R"(" cy=")" + std::to_string(cy) +
           R"("/></a:xfrm></p:spPr><p:txBody><a:bodyPr wrap="square"/><a:lstStyle/>)" + paragraphs +
           "</p:txBody></p:sp>";
}

std::string DeckWriter::Para(const std::string& text) {
    return "<a:p><a:r><a:rPr lang=\"en-US\"/><a:t>" + text + "</a:t></a:r></a:p>";
}

std::string DeckWriter::Rel(const std::string& id, const std::string& type,
                            const std::string& target) {
    return R"(<Relationship Id=")" + id + R"(" Type=")" + type + R"(" Target=")" + target +
           R"("/>)";
}

std::string Group(int id, const std::string& name, const std::string& inner) {
    return R"(<p:grpSp><p:nvGrpSpPr><p:cNvPr id=")" + std::to_string(id) + R"(" name=")" + name +
           R"("/><p:cNvGrpSpPr/><p:nvPr/></p:nvGrpSpPr><p:grpSpPr/>)" + inner + "</p:grpSp>";
}

std::string Cell(const std::string& text, const std::string& attrs) {
    return "<a:tc" + attrs + "><a:txBody><a:bodyPr/><a:lstStyle/>" +
           (text.empty() ? "<a:p><a:endParaRPr lang=\"en-US\"/></a:p>" : DeckWriter::Para(text)) +
           "</a:txBody><a:tcPr/></a:tc>";
}

std::string Table(int id, const std::string& rows) {
    return R"(<p:graphicFrame><p:nvGraphicFramePr><p:cNvPr id=")" + std::to_string(id) +
           R"(" name="Table"/><p:cNvGraphicFramePr/><p:nvPr/></p:nvGraphicFramePr>)"
           R"(<p:xfrm><a:off x="0" y="0"/><a:ext cx="3000000" cy="1000000"/></p:xfrm>)"
           R"(<a:graphic><a:graphicData uri="http://schemas.openxmlformats.org/drawingml/2006/table">)"
           R"(<a:tbl><a:tblGrid><a:gridCol w="1500000"/><a:gridCol w="1500000"/></a:tblGrid>)" +
           rows + "</a:tbl></a:graphicData></a:graphic></p:graphicFrame>";
}

std::string Placeholder(int id, const std::string& ph, const std::string& lstStyle,
                        const std::string& paragraphs, const std::string& xfrm) {
    return R"(<p:sp><p:nvSpPr><p:cNvPr id=")" + std::to_string(id) +
           R"(" name="P"/><p:cNvSpPr/><p:nvPr>)" + ph + R"(</p:nvPr></p:nvSpPr><p:spPr>)" + xfrm +
           R"(</p:spPr><p:txBody><a:bodyPr/>)" + lstStyle + paragraphs + "</p:txBody></p:sp>";
}

std::string Level(int level, int sz) {
    return "<a:lvl" + std::to_string(level) + "pPr><a:defRPr sz=\"" + std::to_string(sz) +
           "\"/></a:lvl" + std::to_string(level) + "pPr>";
}

}  // namespace qb::test
