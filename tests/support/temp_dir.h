// A fresh folder for one test, removed with everything in it at the end.
#pragma once

#include <string>
#include <string_view>

namespace qb::test {

class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::u16string& Path() const { return path_; }
    std::u16string Join(std::u16string_view name) const;

  private:
    std::u16string path_;
};

// Writes bytes to a new file (replacing one), failing the test on error.
void WriteFileBytes(const std::u16string& path, std::string_view bytes);
// A file of `size` bytes without writing them (sparse where the system can).
void MakeFileOfSize(const std::u16string& path, unsigned long long size);
bool FileExists(const std::u16string& path);
std::string ReadFileBytes(const std::u16string& path);

}  // namespace qb::test
