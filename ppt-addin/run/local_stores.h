// The user's glossaries and custom instructions as small JSON files under the
// roaming application data. Read only: another program writes them, and the
// web panel gets them through the local snapshot.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qb {

struct GlossaryEntry {
    std::u16string source;
    std::u16string target;
    std::u16string note;
    bool enabled = true;
};

struct GlossaryRecord {
    std::u16string id;
    std::u16string name;
    std::int32_t entryCount = 0;
    std::u16string updatedAt;
    std::vector<GlossaryEntry> entries;
};

struct InstructionRecord {
    std::u16string id;
    std::u16string name;
    std::u16string content;
    std::u16string updatedAt;
};

// "<roaming>\Quillbrook\glossaries\global" and its instruction twin; the
// folders on the way are created, a failure ignored.
std::u16string GlossaryDirectory();
std::u16string InstructionDirectory();

// Stems of the files ending exactly in ".json" (case counts), in the file
// system's order. Empty for an empty path.
std::vector<std::u16string> ListJsonStems(const std::u16string& directory);

// The entries of a glossary text; those without source or target dropped.
std::vector<GlossaryEntry> ScanGlossaryEntries(std::u16string_view text);
// A glossary text read into a record; an empty id stays empty.
GlossaryRecord ParseGlossaryText(std::u16string_view text);

// One per readable glossary file, without entries; an id-less one under its stem.
std::vector<GlossaryRecord> ListGlossaries();
// Reads "<id>.json"; false when it gives no text.
bool LoadGlossary(const std::u16string& id, GlossaryRecord& outRecord);
std::vector<InstructionRecord> ListInstructions();

}  // namespace qb
