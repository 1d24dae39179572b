#include "run/local_stores.h"

#include "foundation/platform.h"
#include "run/json.h"

namespace qb {

namespace {

std::u16string StoreDirectory(std::u16string_view kind) {
    const std::u16string base = platform::GetKnownFolder(platform::KnownFolder::RoamingAppData);
    // Without a roaming folder the base is empty and the paths are relative,
    // as the host would make them.
    const std::u16string root = platform::JoinPath(base, u"Quillbrook");
    const std::u16string middle = platform::JoinPath(root, kind);
    const std::u16string leaf = platform::JoinPath(middle, u"global");
    (void)platform::MakeDirectory(root);
    (void)platform::MakeDirectory(middle);
    (void)platform::MakeDirectory(leaf);
    return leaf;
}

std::u16string JsonPath(const std::u16string& directory, const std::u16string& stem) {
    return platform::JoinPath(directory, stem + u".json");
}

// The text from the first '{' at or after `from` to its matching '}', braces
// counted without regard for strings; empty when it never closes.
std::u16string_view CutObject(std::u16string_view text, std::size_t from) {
    const std::size_t open = text.find(u'{', from);
    if (open == std::u16string_view::npos) return {};
    int depth = 0;
    for (std::size_t i = open; i < text.size(); ++i) {
        if (text[i] == u'{') ++depth;
        if (text[i] == u'}' && --depth == 0) return text.substr(open, i - open + 1);
    }
    return {};
}

}  // namespace

std::u16string GlossaryDirectory() {
    return StoreDirectory(u"glossaries");
}
std::u16string InstructionDirectory() {
    return StoreDirectory(u"instructions");
}

std::vector<std::u16string> ListJsonStems(const std::u16string& directory) {
    std::vector<std::u16string> stems;
    if (directory.empty()) return stems;
    static constexpr std::u16string_view kSuffix = u".json";
    for (const platform::DirectoryEntry& entry : platform::ListDirectory(directory)) {
        if (entry.info.isDirectory) continue;
        const std::u16string& name = entry.name;
        if (name.size() < kSuffix.size() + 1) continue;
        if (std::u16string_view(name).substr(name.size() - kSuffix.size()) != kSuffix) continue;
        stems.push_back(name.substr(0, name.size() - kSuffix.size()));
    }
    return stems;
}

std::vector<GlossaryEntry> ScanGlossaryEntries(std::u16string_view text) {
    std::vector<GlossaryEntry> entries;
    std::size_t at = text.find(u"\"entries\"");
    if (at == std::u16string_view::npos) at = 0;
    at = text.find(u'[', at);
    if (at == std::u16string_view::npos) return entries;
    while (true) {
        const std::size_t open = text.find(u'{', at);
        if (open == std::u16string_view::npos) break;
        const std::size_t close = text.find(u'}', open);
        if (close == std::u16string_view::npos) break;
        const std::u16string_view cut = text.substr(open, close - open + 1);
        GlossaryEntry entry;
        entry.source = ReadStoreString(cut, u"source");
        entry.target = ReadStoreString(cut, u"target");
        entry.note = ReadStoreString(cut, u"note");
        entry.enabled = ReadStoreBool(cut, u"enabled");
        if (!entry.source.empty() && !entry.target.empty()) entries.push_back(std::move(entry));
        at = close + 1;
        const std::size_t nextOpen = text.find(u'{', at);
        const std::size_t end = text.find(u']', at);
        if (nextOpen == std::u16string_view::npos) break;
        if (end != std::u16string_view::npos && end < nextOpen) break;
    }
    return entries;
}

GlossaryRecord ParseGlossaryText(std::u16string_view text) {
    GlossaryRecord record;
    std::u16string_view head = text;
    const std::size_t meta = text.find(u"\"meta\"");
    if (meta != std::u16string_view::npos) {
        const std::u16string_view cut = CutObject(text, meta);
        if (!cut.empty()) head = cut;
    }
    record.id = ReadStoreString(head, u"id");
    record.name = ReadStoreString(head, u"name");
    record.updatedAt = ReadStoreString(head, u"updatedAt");
    record.entries = ScanGlossaryEntries(text);
    record.entryCount = static_cast<std::int32_t>(record.entries.size());
    return record;
}

std::vector<GlossaryRecord> ListGlossaries() {
    std::vector<GlossaryRecord> records;
    const std::u16string directory = GlossaryDirectory();
    for (const std::u16string& stem : ListJsonStems(directory)) {
        const std::u16string text = ReadTextFile(JsonPath(directory, stem));
        if (text.empty()) continue;
        GlossaryRecord record = ParseGlossaryText(text);
        if (record.id.empty()) record.id = stem;
        record.entries.clear();
        records.push_back(std::move(record));
    }
    return records;
}

bool LoadGlossary(const std::u16string& id, GlossaryRecord& outRecord) {
    const std::u16string text = ReadTextFile(JsonPath(GlossaryDirectory(), id));
    if (text.empty()) return false;
    outRecord = ParseGlossaryText(text);
    if (outRecord.id.empty()) outRecord.id = id;
    return true;
}

std::vector<InstructionRecord> ListInstructions() {
    std::vector<InstructionRecord> records;
    const std::u16string directory = InstructionDirectory();
    for (const std::u16string& stem : ListJsonStems(directory)) {
        const std::u16string text = ReadTextFile(JsonPath(directory, stem));
        if (text.empty()) continue;
        InstructionRecord record;
        record.id = ReadStoreString(text, u"id");
        record.name = ReadStoreString(text, u"name");
        record.content = ReadStoreString(text, u"content");
        record.updatedAt = ReadStoreString(text, u"updatedAt");
        if (record.id.empty()) record.id = stem;
        records.push_back(std::move(record));
    }
    return records;
}

}  // namespace qb
