// The deck file reader over arbitrary bytes: it never crashes, and a deck it
// accepts is written back and read again to the same bytes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/host/deck_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const qb::sim::DeckLoadResult first = qb::sim::ParseDeck(text, "fuzz.json");
    if (!first.deck) {
        if (first.error.empty()) __builtin_trap();  // a refusal always says why
        return 0;
    }
    const std::string written = qb::sim::WriteDeck(first);
    const qb::sim::DeckLoadResult second = qb::sim::ParseDeck(written, "rewritten.json");
    if (!second.deck || qb::sim::WriteDeck(second) != written) __builtin_trap();
    return 0;
}
