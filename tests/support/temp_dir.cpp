// Test folders through std::filesystem, independent of the platform seam
// that the tests check.
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>

#include "foundation/platform.h"

namespace fs = std::filesystem;

namespace qb::test {

TempDir::TempDir() {
    static std::atomic<unsigned> counter{0};
    std::random_device seed;
    const fs::path base = fs::temp_directory_path();
    for (int attempt = 0; attempt < 100; ++attempt) {
        const fs::path candidate =
            base / ("qb-test-" + std::to_string(seed()) + "-" + std::to_string(counter++));
        std::error_code ec;
        if (fs::create_directory(candidate, ec)) {
            path_ = candidate.u16string();
            return;
        }
    }
    ADD_FAILURE() << "could not create a temporary folder";
}

TempDir::~TempDir() {
    if (path_.empty()) return;
    std::error_code ec;
    fs::remove_all(fs::path(path_), ec);
}

std::u16string TempDir::Join(std::u16string_view name) const {
    return platform::JoinPath(path_, name);
}

void WriteFileBytes(const std::u16string& path, std::string_view bytes) {
    std::ofstream out(fs::path(path), std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(out.good()) << "could not write a test file";
}

void MakeFileOfSize(const std::u16string& path, unsigned long long size) {
    { std::ofstream out(fs::path(path), std::ios::binary | std::ios::trunc); }
    std::error_code ec;
    fs::resize_file(fs::path(path), size, ec);
    ASSERT_FALSE(ec) << "could not size a test file: " << ec.message();
}

bool FileExists(const std::u16string& path) {
    std::error_code ec;
    return fs::exists(fs::path(path), ec);
}

std::string ReadFileBytes(const std::u16string& path) {
    std::ifstream in(fs::path(path), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace qb::test
