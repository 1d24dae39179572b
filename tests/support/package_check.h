// What a reader needs of a package to open it cleanly, checked part by part:
// every XML and relationships part is well-formed, every internal
// relationship points at a part that is there, and every part has a content
// type. Office programs repair or refuse a package that fails any of these,
// often without saying so, so the tests check it themselves.
#pragma once

#include <string>
#include <vector>

namespace qb::test {

// One line a problem ("ppt/slides/slide1.xml: not well-formed XML: ..."),
// in part order; empty when the package is clean. A file that can't be read
// as a zip package is one problem.
std::vector<std::string> PackageProblems(const std::string& path);

}  // namespace qb::test
