// The parts of a presentation file (or of a package held in memory, such as
// a chart's embedded workbook) by name, for tests that compare packages.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "sim/pptx/zip_package.h"

namespace qb::test {

inline std::map<std::string, std::string> PartsOfPackage(const pptx::ZipPackage& zip) {
    std::map<std::string, std::string> parts;
    for (const auto& part : zip.Parts())
        parts[part.name] = part.bytes;
    return parts;
}

inline std::map<std::string, std::string> PartsOf(const std::string& path) {
    pptx::ZipPackage zip;
    EXPECT_EQ(zip.Read(path), "") << path;
    return PartsOfPackage(zip);
}

inline std::map<std::string, std::string> PartsOfBytes(const std::string& bytes) {
    pptx::ZipPackage zip;
    EXPECT_EQ(zip.ReadBytes(bytes), "");
    return PartsOfPackage(zip);
}

}  // namespace qb::test
