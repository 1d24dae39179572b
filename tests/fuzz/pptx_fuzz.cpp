// The host over presentation files over arbitrary bytes: a file it refuses
// says why in one line; a file it opens is translated and saved, and what it
// saved opens again with the same slides and frames. Bytes that start as a
// zip are the file; anything else is read as parts in plain text ("==> name"
// lines, each followed by the part's bytes) and zipped first, since a
// mutation inside a zipped part only ever breaks its checksum and never
// reaches the XML readers.
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/bench_decks.h"
#include "foundation/platform.h"
#include "foundation/text.h"
#include "sim/host/deck_file.h"
#include "sim/host/sim_host.h"
#include "sim/pptx/pptx_deck.h"
#include "sim/pptx/zip_package.h"

namespace {

std::string folder;

bool WriteAll(const std::string& path, const std::uint8_t* data, std::size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

// "==> name\n" starts a part; its bytes run to the next such line.
bool WriteParts(const std::string& path, const std::string& text) {
    qb::pptx::ZipPackage zip;
    const std::string mark = "==> ";
    std::size_t at = text.rfind(mark, 0) == 0 ? 0 : text.find("\n" + mark);
    if (at == std::string::npos) return false;
    if (at != 0) ++at;
    while (at != std::string::npos) {
        const std::size_t nameEnd = text.find('\n', at);
        if (nameEnd == std::string::npos) break;
        const std::string name = text.substr(at + mark.size(), nameEnd - at - mark.size());
        std::size_t next = text.find("\n" + mark, nameEnd);
        zip.Put(name, text.substr(nameEnd + 1, next == std::string::npos ? std::string::npos
                                                                         : next - nameEnd - 1));
        at = next == std::string::npos ? next : next + 1;
    }
    return zip.Write(path).empty();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The worker's trace and the files go into a folder of our own, in
    // memory where the system has it: every input is written and read twice.
    char shm[] = "/dev/shm/qb-pptx-fuzz-XXXXXX";
    char tmp[] = "/tmp/qb-pptx-fuzz-XXXXXX";
    const char* dir = mkdtemp(shm);
    if (!dir) dir = mkdtemp(tmp);
    if (!dir) __builtin_trap();
    folder = dir;
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    });
    qb::platform::SetKnownFolderForTesting(qb::platform::KnownFolder::LocalAppData,
                                           qb::Utf8ToUtf16(folder));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace qb;
    const std::string in = folder + "/in.pptx", out = folder + "/out.pptx";
    const bool zipped = size >= 2 && data[0] == 'P' && data[1] == 'K';
    if (zipped) {
        if (!WriteAll(in, data, size)) __builtin_trap();
    } else if (!WriteParts(in, std::string(reinterpret_cast<const char*>(data), size))) {
        return 0;  // no part, or a name the zip can't hold
    }
    std::string error;
    auto presentation = pptx::PptxDeck::Open(in, error);
    if (!presentation) {
        if (error.empty() || error.find('\n') != std::string::npos) __builtin_trap();
        return 0;
    }
    const std::size_t slides = presentation->Model()->slides.size();
    const std::size_t frames = presentation->Texts().size();
    sim::DeckLoadResult loaded;
    loaded.deck = presentation->Model();
    loaded.windows.emplace_back();
    sim::SimHost host(loaded.kind);
    sim::OpenDeck(host, loaded);
    (void)bench::TranslateAtOnce(host);
    error = presentation->Save(out);
    if (!error.empty()) {
        // A failed save leaves nothing behind.
        if (access(out.c_str(), F_OK) == 0) __builtin_trap();
        return 0;
    }
    auto again = pptx::PptxDeck::Open(out, error);
    if (!again || again->Model()->slides.size() != slides || again->Texts().size() != frames) {
        __builtin_trap();
    }
    std::remove(out.c_str());
    return 0;
}
