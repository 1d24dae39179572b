// Glossary and instruction files.
#include "cli/term_files.h"

#include "foundation/text.h"

namespace qb::cli {
namespace {

constexpr char kBom[] = "\xEF\xBB\xBF";

std::string WithoutBom(const std::string& utf8) {
    return utf8.compare(0, 3, kBom) == 0 ? utf8.substr(3) : utf8;
}

bool IsBlank(std::u16string_view line) {
    return line.find_first_not_of(u" \t\r") == std::u16string_view::npos;
}

}  // namespace

bool ParseGlossaryText(const std::string& name, const std::string& utf8,
                       std::vector<GlossaryEntry>& terms, std::string& error) {
    terms.clear();
    std::u16string text;
    if (!TryUtf8ToUtf16(WithoutBom(utf8), text)) {
        error = name + ": not UTF-8 text";
        return false;
    }
    std::size_t lineNumber = 0;
    for (std::size_t from = 0; from <= text.size();) {
        std::size_t end = text.find(u'\n', from);
        if (end == std::u16string::npos) end = text.size();
        std::u16string line = text.substr(from, end - from);
        from = end + 1;
        ++lineNumber;
        if (!line.empty() && line.back() == u'\r') line.pop_back();
        if (IsBlank(line) || line[0] == u'#') continue;
        std::vector<std::u16string> fields(1);
        for (char16_t c : line) {
            if (c == u'\t') {
                fields.emplace_back();
            } else {
                fields.back().push_back(c);
            }
        }
        const std::string where = name + ":" + std::to_string(lineNumber) + ": ";
        if (fields.size() < 2 || fields.size() > 3) {
            error = where + "expected SOURCE<TAB>TARGET[<TAB>NOTE], got " +
                    std::to_string(fields.size()) + " field" + (fields.size() == 1 ? "" : "s");
            return false;
        }
        if (IsBlank(fields[0]) || IsBlank(fields[1])) {
            error = where + (IsBlank(fields[0]) ? "the source is empty" : "the target is empty");
            return false;
        }
        terms.push_back({fields[0], fields[1], fields.size() == 3 ? fields[2] : u"", true});
    }
    if (terms.empty()) {
        error = name + ": no terms (one a line: SOURCE<TAB>TARGET[<TAB>NOTE])";
        return false;
    }
    return true;
}

bool ParseInstructionText(const std::string& name, const std::string& utf8,
                          std::u16string& instruction, std::string& error) {
    if (!TryUtf8ToUtf16(WithoutBom(utf8), instruction)) {
        error = name + ": not UTF-8 text";
        return false;
    }
    while (!instruction.empty() && (instruction.back() == u'\n' || instruction.back() == u'\r' ||
                                    instruction.back() == u' ' || instruction.back() == u'\t')) {
        instruction.pop_back();
    }
    if (IsBlank(instruction)) {
        error = name + ": the instruction is empty";
        return false;
    }
    return true;
}

}  // namespace qb::cli
