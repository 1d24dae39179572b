// The presentations other tools wrote, kept beside the repository in
// ../shared/decks (never copied into it), and what suites over them share.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/char_class.h"
#include "sim/host/sim_model.h"

namespace qb::test {

inline std::filesystem::path SharedDecksRoot() {
    return std::filesystem::path(QB_SOURCE_DIR) / ".." / "shared" / "decks";
}

// Every deck of pptx/ and pptx-bad/, sorted; none when the folder is absent.
inline std::vector<std::filesystem::path> SharedDecks() {
    namespace fs = std::filesystem;
    std::vector<fs::path> decks;
    for (const char* folder : {"pptx", "pptx-bad"}) {
        if (!fs::is_directory(SharedDecksRoot() / folder)) continue;
        for (const auto& entry : fs::directory_iterator(SharedDecksRoot() / folder)) {
            if (entry.path().extension() == ".pptx") decks.push_back(entry.path());
        }
    }
    std::sort(decks.begin(), decks.end());
    return decks;
}

inline bool HasLetter(std::u16string_view text) {
    return std::any_of(text.begin(), text.end(), [](char16_t c) { return IsLetter(c); });
}

// A SmartArt graphic's node texts, parents before their children.
inline void AddNodeTexts(const std::vector<sim::SmartArtNodeModel>& nodes,
                         std::vector<std::u16string>& into) {
    for (const auto& node : nodes) {
        into.push_back(node.text);
        AddNodeTexts(node.children, into);
    }
}

}  // namespace qb::test
