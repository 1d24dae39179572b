#include "sim/pptx/zip_package.h"

#include <zip.h>

#include <algorithm>

#include <cstdio>
#include <memory>

namespace qb::pptx {
namespace {

struct ArchiveCloser {
    void operator()(zip_t* z) const { zip_discard(z); }
};
struct FileCloser {
    void operator()(zip_file_t* f) const { zip_fclose(f); }
};

std::string OpenError(int code) {
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    std::string text = zip_error_strerror(&error);
    zip_error_fini(&error);
    return text;
}

}  // namespace

std::string ZipPackage::Read(const std::string& path, const ZipLimits& limits) {
    parts_.clear();
    int code = 0;
    std::unique_ptr<zip_t, ArchiveCloser> archive(
        zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &code));
    if (!archive) {
        if (code == ZIP_ER_NOZIP) return "not a zip package";
        if (code == ZIP_ER_INCONS)
            return "a damaged zip package (its directory doesn't match its contents)";
        return "can't open as a zip package: " + OpenError(code);
    }
    return ReadEntries(archive.get(), limits);
}

std::string ZipPackage::ReadBytes(const std::string& bytes, const ZipLimits& limits) {
    parts_.clear();
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error);
    if (!source) {
        zip_error_fini(&error);
        return "can't read the zip package from memory";
    }
    std::unique_ptr<zip_t, ArchiveCloser> archive(
        zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, &error));
    if (!archive) {
        const int code = zip_error_code_zip(&error);
        zip_error_fini(&error);
        zip_source_free(source);
        if (code == ZIP_ER_NOZIP) return "not a zip package";
        if (code == ZIP_ER_INCONS)
            return "a damaged zip package (its directory doesn't match its contents)";
        return "can't open as a zip package: " + OpenError(code);
    }
    zip_error_fini(&error);
    return ReadEntries(archive.get(), limits);
}

std::string ZipPackage::ReadEntries(zip_t* archive, const ZipLimits& limits) {
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    if (count < 0) return "can't list the zip package";
    if (static_cast<std::size_t>(count) > limits.maxParts) {
        return "too many parts (" + std::to_string(count) + ")";
    }
    std::size_t total = 0;
    for (zip_uint64_t i = 0; i < static_cast<zip_uint64_t>(count); ++i) {
        zip_stat_t st;
        zip_stat_init(&st);
        if (zip_stat_index(archive, i, 0, &st) != 0 || !(st.valid & ZIP_STAT_NAME)) {
            return "can't read entry " + std::to_string(i) + " of the zip package";
        }
        ZipPart part;
        part.name = st.name;
        if (!part.name.empty() && part.name.back() == '/') continue;  // a folder entry
        if ((st.valid & ZIP_STAT_SIZE) && st.size > limits.maxPartBytes) {
            return part.name + ": part too large (" + std::to_string(st.size) + " bytes, limit " +
                   std::to_string(limits.maxPartBytes) + ")";
        }
        std::unique_ptr<zip_file_t, FileCloser> file(zip_fopen_index(archive, i, 0));
        if (!file) return part.name + ": can't read the part: " + zip_strerror(archive);
        // Read one byte past the limit: a size in the directory may lie.
        char buffer[1 << 16];
        for (;;) {
            const zip_int64_t n = zip_fread(file.get(), buffer, sizeof buffer);
            if (n < 0) return part.name + ": damaged part: " + zip_file_strerror(file.get());
            if (n == 0) break;
            part.bytes.append(buffer, static_cast<std::size_t>(n));
            if (part.bytes.size() > limits.maxPartBytes) {
                return part.name + ": part too large (limit " +
                       std::to_string(limits.maxPartBytes) + " bytes)";
            }
        }
        if ((st.valid & ZIP_STAT_SIZE) && part.bytes.size() != st.size) {
            return part.name + ": damaged part (truncated)";
        }
        total += part.bytes.size();
        if (total > limits.maxTotalBytes) {
            return "package too large (limit " + std::to_string(limits.maxTotalBytes) +
                   " bytes inflated)";
        }
        parts_.push_back(std::move(part));
    }
    return "";
}

std::string ZipPackage::Write(const std::string& path) const {
    const std::string temporary = path + ".tmp";
    std::remove(temporary.c_str());
    int code = 0;
    zip_t* archive = zip_open(temporary.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &code);
    if (!archive) return "can't create " + temporary + ": " + OpenError(code);
    const std::string added = AddEntries(archive);
    if (!added.empty()) {
        zip_discard(archive);
        std::remove(temporary.c_str());
        return added;
    }
    if (zip_close(archive) != 0) {
        const std::string error = zip_strerror(archive);
        zip_discard(archive);
        std::remove(temporary.c_str());
        return "can't write " + path + ": " + error;
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        return "can't move the new file over " + path;
    }
    return "";
}

std::string ZipPackage::WriteBytes(std::string& bytes) const {
    bytes.clear();
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* buffer = zip_source_buffer_create(nullptr, 0, 0, &error);
    if (!buffer) {
        zip_error_fini(&error);
        return "can't make a zip package in memory";
    }
    // The archive frees its source on close; the package is read from it after.
    zip_source_keep(buffer);
    zip_t* archive = zip_open_from_source(buffer, ZIP_TRUNCATE, &error);
    zip_error_fini(&error);
    if (!archive) {
        zip_source_free(buffer);
        return "can't make a zip package in memory";
    }
    std::string failed = AddEntries(archive);
    if (failed.empty() && zip_close(archive) != 0) failed = "can't write the zip package in memory";
    if (!failed.empty()) {
        zip_discard(archive);  // a failed close leaves the archive open
        zip_source_free(buffer);
        return failed;
    }
    zip_stat_t st;
    zip_stat_init(&st);
    if (zip_source_stat(buffer, &st) != 0 || !(st.valid & ZIP_STAT_SIZE) ||
        zip_source_open(buffer) != 0) {
        zip_source_free(buffer);
        return "can't read back the zip package made in memory";
    }
    bytes.resize(static_cast<std::size_t>(st.size));
    const zip_int64_t n = zip_source_read(buffer, bytes.data(), st.size);
    zip_source_close(buffer);
    zip_source_free(buffer);
    if (n < 0 || static_cast<zip_uint64_t>(n) != st.size) {
        bytes.clear();
        return "can't read back the zip package made in memory";
    }
    return "";
}

std::string ZipPackage::AddEntries(zip_t* archive) const {
    for (const ZipPart& part : parts_) {
        // The buffers outlive zip_close, which is when libzip reads them.
        zip_source_t* source = zip_source_buffer(archive, part.bytes.data(), part.bytes.size(), 0);
        if (!source) return "can't add " + part.name;
        if (zip_file_add(archive, part.name.c_str(), source, ZIP_FL_ENC_UTF_8) < 0) {
            zip_source_free(source);
            return "can't add " + part.name + ": " + zip_strerror(archive);
        }
    }
    return "";
}

void ZipPackage::Put(const std::string& name, std::string bytes) {
    if (ZipPart* part = Find(name)) {
        part->bytes = std::move(bytes);
    } else {
        parts_.push_back({name, std::move(bytes)});
    }
}

bool ZipPackage::Remove(const std::string& name) {
    const auto it = std::find_if(parts_.begin(), parts_.end(),
                                 [&](const ZipPart& part) { return part.name == name; });
    if (it == parts_.end()) return false;
    parts_.erase(it);
    return true;
}

const ZipPart* ZipPackage::Find(const std::string& name) const {
    for (const ZipPart& part : parts_) {
        if (part.name == name) return &part;
    }
    return nullptr;
}

ZipPart* ZipPackage::Find(const std::string& name) {
    for (ZipPart& part : parts_) {
        if (part.name == name) return &part;
    }
    return nullptr;
}

}  // namespace qb::pptx
