// Small helpers over pugixml for the parts of an Office package: elements
// found by their local name, whatever prefix a writer bound the namespace
// to, and relationship targets resolved against the part they come from.
#pragma once

#include <pugixml.hpp>

#include <cstring>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

namespace qb::pptx::xml {

inline const char* Local(const char* name) {
    const char* colon = std::strchr(name, ':');
    return colon ? colon + 1 : name;
}

inline bool Is(pugi::xml_node node, const char* local) {
    return node.type() == pugi::node_element && std::strcmp(Local(node.name()), local) == 0;
}

inline pugi::xml_node Child(pugi::xml_node node, const char* local) {
    for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling()) {
        if (Is(c, local)) return c;
    }
    return {};
}

inline pugi::xml_node Path(pugi::xml_node node, std::initializer_list<const char*> locals) {
    for (const char* local : locals) {
        node = Child(node, local);
        if (!node) return {};
    }
    return node;
}

inline std::vector<pugi::xml_node> Children(pugi::xml_node node, const char* local) {
    std::vector<pugi::xml_node> out;
    for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling()) {
        if (Is(c, local)) out.push_back(c);
    }
    return out;
}

inline pugi::xml_attribute Attr(pugi::xml_node node, const char* local) {
    for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute()) {
        if (std::strcmp(Local(a.name()), local) == 0) return a;
    }
    return {};
}

// The prefix, with its colon, that an element's name carries.
inline std::string PrefixOf(pugi::xml_node node) {
    const std::string name = node.name();
    const auto colon = name.find(':');
    return colon == std::string::npos ? "" : name.substr(0, colon + 1);
}

inline std::string RelsPathOf(const std::string& part) {
    const auto slash = part.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : part.substr(0, slash + 1);
    const std::string file = slash == std::string::npos ? part : part.substr(slash + 1);
    return folder + "_rels/" + file + ".rels";
}

// A relationship target resolved against the folder of the part it is from.
inline std::string Resolve(const std::string& fromPart, const std::string& target) {
    const auto slash = fromPart.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : fromPart.substr(0, slash + 1);
    const std::string joined =
        !target.empty() && target[0] == '/' ? target.substr(1) : folder + target;
    std::vector<std::string> segments;
    std::stringstream in(joined);
    std::string segment;
    while (std::getline(in, segment, '/')) {
        if (segment == "..") {
            if (!segments.empty()) segments.pop_back();
        } else if (!segment.empty() && segment != ".") {
            segments.push_back(segment);
        }
    }
    std::string out;
    for (const std::string& s : segments)
        out += (out.empty() ? "" : "/") + s;
    return out;
}

}  // namespace qb::pptx::xml
