// Deck files: the simulated host's document model as JSON, so that decks for
// the stand-ins and for tests can be written by hand, kept beside them, and
// saved after a run to be looked at. docs/deck-format.md describes the
// format. Reading is strict: a typo is an error naming its place, never a
// quietly different deck.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/host/sim_host.h"
#include "sim/host/sim_model.h"

namespace qb::sim {

// Everything a deck file holds: the presentation, and how the host shows it.
struct DeckContents {
    std::shared_ptr<PresentationModel> deck;
    HostKind kind = HostKind::PowerPoint;
    std::u16string appName;         // empty: the host's own for its kind
    std::u16string appVersion;      // empty: the host's own for its kind
    std::int32_t uiLanguageId = 0;  // 0: the host's own
    // The windows showing the deck (their presentation is `deck`, their
    // selections point into it); at least one once read. Window handles are
    // the host's to give and aren't kept.
    std::vector<WindowModel> windows;
    std::int32_t activeWindow = 1;  // one-based into `windows`; 0 for none
};

struct DeckLoadResult : DeckContents {
    // Empty on success. Otherwise "source:line:column: path: what is wrong",
    // and `deck` is null.
    std::string error;
};

// Reads a deck from UTF-8 JSON text; `sourceName` starts error texts.
DeckLoadResult ParseDeck(std::string_view utf8, std::string_view sourceName);
// Reads a deck file; errors name the file by its last path component.
DeckLoadResult LoadDeckFile(const std::u16string& path);

// The canonical text of a deck: keys in a fixed order, values that equal
// their defaults left out, so that reading it back gives an equal model and
// writing that again gives the same bytes.
std::string WriteDeck(const DeckContents& contents);
std::string WriteDeck(const PresentationModel& deck, HostKind kind = HostKind::PowerPoint);

// Writes beside the target and renames over it, so that a reader never sees
// half a file. False, with `error` set, when any step fails.
bool SaveDeckFile(const std::u16string& path, const DeckContents& contents,
                  std::string* error = nullptr);

// Puts a deck into a host made for `contents.kind`: its presentation, its
// windows (the first one active unless the file says otherwise) and the
// application's name, version and language when the file gives them.
std::shared_ptr<PresentationModel> OpenDeck(SimHost& host, const DeckContents& contents);
// The contents of one presentation of a host, with the windows that show it,
// for saving after a run.
DeckContents CaptureDeck(SimHost& host, const std::shared_ptr<PresentationModel>& deck);

}  // namespace qb::sim
