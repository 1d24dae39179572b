// config.json: reading and rewriting single keys by hand.
#include "foundation/user_config.h"

#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/ui_languages.h"

namespace qb {
namespace {

constexpr std::size_t npos = std::string_view::npos;

bool IsGap(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::size_t SkipGaps(std::string_view text, std::size_t p) {
    while (p < text.size() && IsGap(text[p]))
        ++p;
    return p;
}

// Where the value of the first "key" begins: after the needle, gaps, a
// colon and gaps. npos when the key or its colon is missing.
std::size_t ValueStart(std::string_view text, std::string_view key, bool& keyFound) {
    keyFound = false;
    if (key.empty()) return npos;
    const std::string needle = "\"" + std::string(key) + "\"";
    const std::size_t hit = text.find(needle);
    if (hit == npos) return npos;
    keyFound = true;
    std::size_t p = SkipGaps(text, hit + needle.size());
    if (p >= text.size() || text[p] != ':') return npos;
    return SkipGaps(text, p + 1);
}

// The end of an integer at `p` (a sign and at least one digit), or npos.
std::size_t IntEnd(std::string_view text, std::size_t p) {
    if (p < text.size() && (text[p] == '+' || text[p] == '-')) ++p;
    const std::size_t digits = p;
    while (p < text.size() && text[p] >= '0' && text[p] <= '9')
        ++p;
    return p > digits ? p : npos;
}

// The end (past the closing quote) of a string at `p`, or npos.
std::size_t StringEnd(std::string_view text, std::size_t p) {
    if (p >= text.size() || text[p] != '"') return npos;
    for (++p; p < text.size(); ++p) {
        if (text[p] == '\\') {
            ++p;
        } else if (text[p] == '"') {
            return p + 1;
        }
    }
    return npos;
}

// Adds `"key": value` before the last closing brace.
bool AddKey(std::string_view text, std::string_view key, std::string_view value,
            std::string& result) {
    const std::size_t brace = text.rfind('}');
    if (brace == npos) return false;
    std::size_t end = brace;
    while (end > 0 && IsGap(text[end - 1]))
        --end;
    const std::string_view prefix = text.substr(0, end);
    const char* separator = prefix.find('"') != npos ? ",\n  " : "\n  ";
    result = std::string(prefix) + separator + "\"" + std::string(key) +
             "\": " + std::string(value) + "\n" + std::string(text.substr(brace));
    return true;
}

bool ReplaceOrAdd(std::string_view text, std::string_view key, std::string_view value,
                  std::size_t (*valueEnd)(std::string_view, std::size_t), std::string& result) {
    bool keyFound = false;
    const std::size_t start = ValueStart(text, key, keyFound);
    if (!keyFound) return AddKey(text, key, value, result);
    const std::size_t end = start == npos ? npos : valueEnd(text, start);
    if (end == npos) return false;  // a value of another form: the file counts as damaged
    result =
        std::string(text.substr(0, start)) + std::string(value) + std::string(text.substr(end));
    return true;
}

// Writes beside the target and renames over it: the target is replaced in
// one step or not at all. `errorCode` is the system's code of the failure.
bool WriteAtomically(const std::u16string& path, std::string_view bytes, std::uint32_t& errorCode) {
    if (path.empty()) return false;
    const std::u16string temp = path + u".tmp";
    if (!platform::WriteNewFile(temp, bytes.data(), bytes.size())) {
        errorCode = platform::LastErrorCode();
        return false;
    }
    if (!platform::MoveFileReplacing(temp, path)) {
        errorCode = platform::LastErrorCode();
        platform::RemoveFile(temp);  // the old file stays as it was
        return false;
    }
    return true;
}

bool SaveKey(std::string_view key, std::string_view value,
             std::size_t (*valueEnd)(std::string_view, std::size_t), std::uint32_t& errorCode) {
    errorCode = 0;
    const std::u16string path = GetConfigPath();
    if (path.empty()) {
        errorCode = kErrorBadPathname;
        return false;
    }
    std::string text, merged;
    if (!ReadFileBytes(path, text)) text.clear();
    if (!ReplaceOrAdd(text, key, value, valueEnd, merged)) {
        merged = "{\n  \"" + std::string(key) + "\": " + std::string(value) + "\n}\n";
    }
    return WriteAtomically(path, merged, errorCode);
}

}  // namespace

std::u16string GetConfigDirectory() {
    std::u16string base = platform::GetKnownFolder(platform::KnownFolder::LocalAppData);
    if (base.empty()) base = platform::GetKnownFolder(platform::KnownFolder::RoamingAppData);
    if (base.empty()) return {};
    const std::u16string directory = platform::JoinPath(base, u"Quillbrook");
    platform::MakeDirectory(directory);  // every time; its result doesn't matter
    return directory;
}

std::u16string GetConfigPath() {
    const std::u16string directory = GetConfigDirectory();
    return directory.empty() ? std::u16string() : platform::JoinPath(directory, u"config.json");
}

bool ReadFileBytes(const std::u16string& path, std::string& bytes) {
    if (path.empty() || !platform::ReadWholeFile(path, bytes)) return false;
    if (bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) bytes.erase(0, 3);
    return true;
}

bool WriteFileAtomically(const std::u16string& path, std::string_view bytes) {
    std::uint32_t ignored = 0;
    return WriteAtomically(path, bytes, ignored);
}

bool ReadJsonInt(std::string_view text, std::string_view key, std::int32_t& value) {
    bool keyFound = false;
    std::size_t p = ValueStart(text, key, keyFound);
    if (p == npos || IntEnd(text, p) == npos) return false;
    bool negative = false;
    if (text[p] == '+' || text[p] == '-') negative = text[p++] == '-';
    std::int64_t magnitude = 0;
    for (; p < text.size() && text[p] >= '0' && text[p] <= '9'; ++p) {
        magnitude = magnitude * 10 + (text[p] - '0');
        if (magnitude > 2147483647) return false;  // value left alone
    }
    value = static_cast<std::int32_t>(negative ? -magnitude : magnitude);
    return true;
}

bool ReplaceOrAddJsonInt(std::string_view text, std::string_view key, std::int32_t value,
                         std::string& result) {
    return ReplaceOrAdd(text, key, std::to_string(value), &IntEnd, result);
}

bool ReadUiLangValue(std::string_view text, std::string& value) {
    bool keyFound = false;
    std::size_t p = ValueStart(text, "uiLang", keyFound);
    if (p == npos || p >= text.size() || text[p] != '"') return false;
    std::string out;
    for (++p; p < text.size(); ++p) {
        if (text[p] == '\\') {
            if (++p >= text.size()) return false;
            out += text[p];  // taken literally, no further unescaping
        } else if (text[p] == '"') {
            value = std::move(out);
            return true;
        } else {
            out += text[p];
        }
    }
    return false;
}

bool ReplaceOrAddUiLang(std::string_view text, std::string_view value, std::string& result) {
    return ReplaceOrAdd(text, "uiLang", "\"" + std::string(value) + "\"", &StringEnd, result);
}

std::int32_t ReadPaneWidth(bool& found) {
    found = false;
    std::string text;
    std::int32_t width = kDefaultPaneWidthPt;
    if (ReadFileBytes(GetConfigPath(), text) && ReadJsonInt(text, "paneWidthPt", width)) {
        found = true;
        return width;
    }
    return kDefaultPaneWidthPt;
}

bool SavePaneWidth(std::int32_t width, std::uint32_t& errorCode) {
    return SaveKey("paneWidthPt", std::to_string(width), &IntEnd, errorCode);
}

bool LoadUiLanguage(std::u16string& code) {
    std::string text, value;
    if (!ReadFileBytes(GetConfigPath(), text) || !ReadUiLangValue(text, value) || value.empty()) {
        return false;
    }
    std::u16string wide;
    if (!TryUtf8ToUtf16(value, wide) || !IsSupportedUiLanguage(wide)) return false;
    code = std::move(wide);
    return true;
}

bool SaveUiLanguage(std::u16string_view code) {
    if (!IsSupportedUiLanguage(code)) return false;
    std::uint32_t errorCode = 0;
    return SaveKey("uiLang", "\"" + Utf16ToUtf8(code) + "\"", &StringEnd, errorCode);
}

}  // namespace qb
