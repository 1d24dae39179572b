#include "support/package_check.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <set>

#include "sim/pptx/zip_package.h"

namespace qb::test {
namespace {

bool EndsWith(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

std::string Lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

// Targets are URIs: %20 and friends stand for the bytes of the part name.
std::string Unescape(const std::string& s) {
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size() &&
            std::isxdigit(static_cast<unsigned char>(s[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(s[i + 2]))) {
            out.push_back(static_cast<char>(std::stoi(s.substr(i + 1, 2), nullptr, 16)));
            i += 2;
        } else {
            out.push_back(s[i]);
        }
    }
    return out;
}

// The part a relationship's target names, from the folder of its source
// part; "" when it climbs out of the package.
std::string Resolve(const std::string& folder, const std::string& target) {
    std::string path = target.rfind('/', 0) == 0 ? target.substr(1) : folder + target;
    std::vector<std::string> kept;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t slash = std::min(path.find('/', start), path.size());
        const std::string step = path.substr(start, slash - start);
        if (step == "..") {
            if (kept.empty()) return "";
            kept.pop_back();
        } else if (!step.empty() && step != ".") {
            kept.push_back(step);
        }
        start = slash + 1;
    }
    std::string out;
    for (const std::string& step : kept)
        out += (out.empty() ? "" : "/") + step;
    return out;
}

// "ppt/slides/_rels/slide1.xml.rels" -> "ppt/slides/"; "_rels/.rels" -> "".
std::string SourceFolder(const std::string& relsPart) {
    const std::size_t at = relsPart.rfind("_rels/");
    return relsPart.substr(0, at);
}

}  // namespace

std::vector<std::string> PackageProblems(const std::string& path) {
    pptx::ZipPackage zip;
    const std::string error = zip.Read(path);
    if (!error.empty()) return {error};
    std::vector<std::string> problems;
    std::set<std::string> names;
    for (const pptx::ZipPart& part : zip.Parts())
        names.insert(part.name);

    std::set<std::string> defaults, overrides;  // lower-cased, as names compare so
    const pptx::ZipPart* types = zip.Find("[Content_Types].xml");
    if (!types) problems.push_back("[Content_Types].xml: missing");
    for (const pptx::ZipPart& part : zip.Parts()) {
        const bool rels = EndsWith(part.name, ".rels");
        if (!rels && !EndsWith(Lower(part.name), ".xml")) continue;
        pugi::xml_document doc;
        const pugi::xml_parse_result parsed = doc.load_buffer(part.bytes.data(), part.bytes.size());
        if (!parsed) {
            problems.push_back(part.name + ": not well-formed XML: " + parsed.description() +
                               " at byte " + std::to_string(parsed.offset));
            continue;
        }
        if (&part == types) {
            for (const pugi::xml_node n : doc.document_element().children("Default"))
                defaults.insert(Lower(n.attribute("Extension").value()));
            for (const pugi::xml_node n : doc.document_element().children("Override")) {
                std::string name = n.attribute("PartName").value();
                if (name.rfind('/', 0) == 0) name.erase(0, 1);
                overrides.insert(Lower(name));
            }
        }
        if (!rels) continue;
        for (const pugi::xml_node r : doc.document_element().children("Relationship")) {
            if (std::string(r.attribute("TargetMode").value()) == "External") continue;
            const std::string target = Unescape(r.attribute("Target").value());
            const std::string resolved = Resolve(SourceFolder(part.name), target);
            if (resolved.empty() || !names.count(resolved)) {
                problems.push_back(part.name + ": " + r.attribute("Id").value() + " targets " +
                                   target + ", which the package doesn't hold");
            }
        }
    }
    for (const pptx::ZipPart& part : zip.Parts()) {
        if (&part == types) continue;
        const std::size_t dot = part.name.rfind('.');
        const std::string ext =
            dot == std::string::npos || part.name.find('/', dot) != std::string::npos
                ? ""
                : Lower(part.name.substr(dot + 1));
        if (!overrides.count(Lower(part.name)) && !defaults.count(ext)) {
            problems.push_back(part.name + ": no content type");
        }
    }
    return problems;
}

}  // namespace qb::test
