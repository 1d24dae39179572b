// The host over presentation files over arbitrary bytes: a file it refuses
// says why in one line; a file it opens is translated and saved, and what it
// saved opens again with the same slides and frames.
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "bench/bench_decks.h"
#include "foundation/platform.h"
#include "foundation/text.h"
#include "sim/host/deck_file.h"
#include "sim/host/sim_host.h"
#include "sim/pptx/pptx_deck.h"

namespace {

std::string folder;

bool WriteAll(const std::string& path, const std::uint8_t* data, std::size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The worker's trace and the files go into a folder of our own.
    char pattern[] = "/tmp/qb-pptx-fuzz-XXXXXX";
    const char* dir = mkdtemp(pattern);
    if (!dir) __builtin_trap();
    folder = dir;
    qb::platform::SetKnownFolderForTesting(qb::platform::KnownFolder::LocalAppData,
                                           qb::Utf8ToUtf16(folder));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace qb;
    const std::string in = folder + "/in.pptx", out = folder + "/out.pptx";
    if (!WriteAll(in, data, size)) __builtin_trap();
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
