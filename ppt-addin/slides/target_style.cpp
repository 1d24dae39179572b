// The target style and font.
#include "slides/target_style.h"

#include "run/json.h"
#include "slides/automation.h"

namespace qb {
namespace {

bool HasKey(std::u16string_view message, std::u16string_view key) {
    std::u16string quoted = u"\"";
    quoted += key;
    quoted += u"\"";
    return message.size() >= quoted.size() && message.find(quoted) != std::u16string_view::npos;
}

}  // namespace

void ReadTargetStyle(std::u16string_view messageText, TargetStyle& style) {
    if (HasKey(messageText, u"targetFontBold")) {
        const double bold = ReadJsonNumber(messageText, u"targetFontBold");
        style.bold = bold == 0.0 ? 0 : bold == 1.0 ? 1 : -1;
    }
    if (HasKey(messageText, u"targetFont")) {
        style.font = ReadJsonString(messageText, u"targetFont");
    }
    if (HasKey(messageText, u"targetFontSize")) {
        style.size = ReadJsonNumber(messageText, u"targetFontSize");
    }
    if (HasKey(messageText, u"targetFontColor")) {
        std::int32_t color = -1;
        if (!ParseHexColor(ReadJsonString(messageText, u"targetFontColor"), color)) color = -1;
        style.color = color;
    }
}

void ApplyTargetFont(const host::HostRef& range, const std::u16string& fontName) {
    if (fontName.empty()) return;
    host::HostRef font;
    if (FAILED(host::GetObject(range, u"Font", font))) return;
    const host::Variant name = host::Variant::String(fontName);
    // Each slot on its own: a host that refuses one still gets the others.
    (void)host::DispPut(font, u"Name", name);
    (void)host::DispPut(font, u"NameFarEast", name);
    (void)host::DispPut(font, u"NameAscii", name);
}

bool IsNonCjkTarget(std::u16string_view language) {
    std::u16string lower(language);
    for (char16_t& c : lower) {
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
    }
    if (lower.empty() || lower == u"auto") return false;
    for (std::u16string_view cjk : {u"zh", u"ja", u"ko", u"chinese", u"japan", u"korean"}) {
        if (lower.find(cjk) != std::u16string::npos) return false;
    }
    return true;
}

}  // namespace qb
