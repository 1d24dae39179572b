// The parts of a zip package held in memory, in their order in the file, and
// written back as a new zip. Reading is bounded: a part or a package larger
// than the limits below is refused before it is inflated, so a small file
// can't make us allocate gigabytes.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct zip;  // libzip's archive

namespace qb::pptx {

struct ZipLimits {
    std::size_t maxPartBytes = 64u << 20;    // one part, inflated
    std::size_t maxTotalBytes = 512u << 20;  // all parts, inflated
    std::size_t maxParts = 20000;
};

struct ZipPart {
    std::string name;
    std::string bytes;
};

class ZipPackage {
  public:
    // Empty on success, else one line naming what is wrong.
    std::string Read(const std::string& path, const ZipLimits& limits = ZipLimits());
    // The same from a package held in memory (one embedded in another).
    std::string ReadBytes(const std::string& bytes, const ZipLimits& limits = ZipLimits());
    // Writes beside `path` and renames over it, so a failed write leaves
    // nothing behind and never a half file. Empty on success.
    std::string Write(const std::string& path) const;
    // The package as the bytes of a zip file. Empty on success.
    std::string WriteBytes(std::string& bytes) const;

    const std::vector<ZipPart>& Parts() const { return parts_; }
    // Appends a part, or replaces the bytes of the part of that name.
    void Put(const std::string& name, std::string bytes);
    // Takes a part out; false when there was none of that name.
    bool Remove(const std::string& name);
    // Null when the package has no part of that name (names compare exactly).
    const ZipPart* Find(const std::string& name) const;
    ZipPart* Find(const std::string& name);

  private:
    std::string ReadEntries(::zip* archive, const ZipLimits& limits);
    std::string AddEntries(::zip* archive) const;

    std::vector<ZipPart> parts_;
};

}  // namespace qb::pptx
