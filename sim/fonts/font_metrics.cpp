// Font matching and advances for the front end's real metrics.
#include "sim/fonts/font_metrics.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_ADVANCES_H

#include <array>
#include <map>
#include <mutex>
#include <tuple>
#include <utility>
#include <vector>

#include "foundation/text.h"

namespace qb::sim::fonts {
namespace {

// Families whose advances match a face's glyph for glyph, as fontconfig's
// own substitution rules pair them. A match to anything else is refused.
const struct {
    const char* face;
    const char* substitute;
} kMetricCompatible[] = {
    {"Calibri", "Carlito"},
    {"Cambria", "Caladea"},
    {"Arial", "Liberation Sans"},
    {"Arial", "Arimo"},
    {"Helvetica", "Liberation Sans"},
    {"Helvetica", "Arimo"},
    {"Arial Narrow", "Liberation Sans Narrow"},
    {"Times New Roman", "Liberation Serif"},
    {"Times New Roman", "Tinos"},
    {"Times", "Liberation Serif"},
    {"Times", "Tinos"},
    {"Courier New", "Liberation Mono"},
    {"Courier New", "Cousine"},
    {"Courier", "Liberation Mono"},
    {"Courier", "Cousine"},
};

// Family names compare as fontconfig compares them: case and blanks aside.
std::string FamilyKey(const std::string& name) {
    std::string key;
    for (char c : name) {
        if (c == ' ') continue;
        key.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
    }
    return key;
}

bool MeasuresFace(const std::string& requested, const std::string& matched) {
    const std::string want = FamilyKey(requested);
    const std::string got = FamilyKey(matched);
    if (want == got) return true;
    for (const auto& pair : kMetricCompatible) {
        if (FamilyKey(pair.face) == want && FamilyKey(pair.substitute) == got) return true;
    }
    return false;
}

// A face name fontconfig is asked about: printable, no surrogate halves
// (which have no UTF-8), not absurdly long. Anything else is measured by
// the model.
bool UsableName(const std::u16string& name) {
    if (name.empty() || name.size() > 128) return false;
    for (char16_t c : name) {
        if (c < 0x20 || c == 0x7F || (c >= 0xD800 && c <= 0xDFFF)) return false;
    }
    return true;
}

constexpr float kNoGlyph = -1.0f;
constexpr float kNotAsked = -2.0f;

// One font file, opened once; advances in ems by unit as they are asked,
// in pages of 256 units, since a layout asks for every unit of a frame
// each time the fit measures it.
struct Font {
    using Page = std::array<float, 256>;
    FT_Face face = nullptr;
    float unitsPerEm = 0;
    std::array<std::unique_ptr<Page>, 256> pages;

    float& Slot(char16_t unit) {
        std::unique_ptr<Page>& page = pages[unit >> 8];
        if (!page) {
            page = std::make_unique<Page>();
            page->fill(kNotAsked);
        }
        return (*page)[unit & 0xFF];
    }
};

struct StyleKey {
    std::u16string face;
    bool bold, italic;
    bool operator<(const StyleKey& o) const {
        return std::tie(face, bold, italic) < std::tie(o.face, o.bold, o.italic);
    }
};

struct Style {
    Font* font = nullptr;  // null: the model measures this face
    std::string family;
};

}  // namespace

struct FontMetrics::State {
    std::mutex lock;
    FcConfig* config = nullptr;
    FT_Library library = nullptr;
    std::map<std::pair<std::string, int>, std::unique_ptr<Font>> fonts;  // by file and index
    std::map<StyleKey, Style> styles;
    // The last style asked for: runs ask for the same one unit after unit.
    const Style* last = nullptr;
    StyleKey lastKey{u"", false, false};

    ~State() {
        for (auto& entry : fonts) {
            if (entry.second->face) FT_Done_Face(entry.second->face);
        }
        if (library) FT_Done_FreeType(library);
        if (config) FcConfigDestroy(config);
    }

    Font* OpenFont(const std::string& file, int index) {
        auto& slot = fonts[{file, index}];
        if (!slot) {
            slot = std::make_unique<Font>();
            FT_Face face = nullptr;
            if (FT_New_Face(library, file.c_str(), index, &face) != 0) face = nullptr;
            // Only an outline font with a Unicode map has advances to trust.
            if (face && (!FT_IS_SCALABLE(face) || face->units_per_EM == 0 ||
                         FT_Select_Charmap(face, FT_ENCODING_UNICODE) != 0)) {
                FT_Done_Face(face);
                face = nullptr;
            }
            slot->face = face;
            if (face) slot->unitsPerEm = static_cast<float>(face->units_per_EM);
        }
        return slot->face ? slot.get() : nullptr;
    }

    Style Resolve(const StyleKey& key) {
        Style style;
        if (!UsableName(key.face)) return style;
        const std::string name = Utf16ToUtf8(key.face);
        FcPattern* pattern = FcPatternCreate();
        if (!pattern) return style;
        FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(name.c_str()));
        FcPatternAddInteger(pattern, FC_WEIGHT, key.bold ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
        FcPatternAddInteger(pattern, FC_SLANT, key.italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
        FcConfigSubstitute(config, pattern, FcMatchPattern);
        FcDefaultSubstitute(pattern);
        FcResult result = FcResultNoMatch;
        FcPattern* match = FcFontMatch(config, pattern, &result);
        FcPatternDestroy(pattern);
        if (!match) return style;
        std::string family;
        FcChar8* value = nullptr;
        for (int i = 0; FcPatternGetString(match, FC_FAMILY, i, &value) == FcResultMatch; ++i) {
            const std::string candidate(reinterpret_cast<const char*>(value));
            if (MeasuresFace(name, candidate)) {
                family = candidate;
                break;
            }
        }
        FcChar8* file = nullptr;
        int index = 0;
        if (!family.empty() && FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch) {
            if (FcPatternGetInteger(match, FC_INDEX, 0, &index) != FcResultMatch) index = 0;
            style.font = OpenFont(reinterpret_cast<const char*>(file), index);
            if (style.font) style.family = family;
        }
        FcPatternDestroy(match);
        return style;
    }

    const Style& StyleFor(const std::u16string& face, bool bold, bool italic) {
        if (last && lastKey.bold == bold && lastKey.italic == italic && lastKey.face == face) {
            return *last;
        }
        StyleKey key{face, bold, italic};
        auto it = styles.find(key);
        if (it == styles.end()) it = styles.emplace(key, Resolve(key)).first;
        lastKey = std::move(key);
        last = &it->second;
        return *last;
    }

    std::optional<float> Ems(const std::u16string& face, bool bold, bool italic, char16_t unit) {
        // Control characters and surrogate halves have no advance of their
        // own in a font; the model's rules measure them.
        if (unit < 0x20 || unit == 0x7F || (unit >= 0xD800 && unit <= 0xDFFF)) return std::nullopt;
        Font* font = StyleFor(face, bold, italic).font;
        if (!font) return std::nullopt;
        float& ems = font->Slot(unit);
        if (ems == kNotAsked) {
            ems = kNoGlyph;
            const FT_UInt glyph = FT_Get_Char_Index(font->face, unit);
            FT_Fixed advance = 0;
            if (glyph != 0 && FT_Get_Advance(font->face, glyph, FT_LOAD_NO_SCALE, &advance) == 0 &&
                advance >= 0) {
                ems = static_cast<float>(advance) / font->unitsPerEm;
                // A damaged metrics table can claim anything; beyond a few
                // ems the model is the better guess.
                if (ems > 4.0f) ems = kNoGlyph;
            }
        }
        if (ems == kNoGlyph) return std::nullopt;
        return ems;
    }
};

std::shared_ptr<FontMetrics> FontMetrics::Create() {
    auto state = std::make_unique<State>();
    state->config = FcInitLoadConfigAndFonts();
    if (!state->config) return nullptr;
    if (FT_Init_FreeType(&state->library) != 0) {
        state->library = nullptr;
        return nullptr;
    }
    return std::shared_ptr<FontMetrics>(new FontMetrics(std::move(state)));
}

FontMetrics::FontMetrics(std::unique_ptr<State> state) : state_(std::move(state)) {}

FontMetrics::~FontMetrics() = default;

std::optional<float> FontMetrics::Advance(char16_t unit, const CharFormat& format) {
    const std::u16string& face = IsWideUnit(unit) ? format.nameFarEast : format.name;
    const std::lock_guard<std::mutex> lock(state_->lock);
    const std::optional<float> ems = state_->Ems(face, format.bold != 0, format.italic != 0, unit);
    if (!ems) return std::nullopt;
    return *ems * format.size;
}

std::optional<float> FontMetrics::EmAdvance(const std::u16string& face, bool bold, bool italic,
                                            char16_t unit) {
    const std::lock_guard<std::mutex> lock(state_->lock);
    return state_->Ems(face, bold, italic, unit);
}

std::string FontMetrics::MeasuringFamily(const std::u16string& face, bool bold, bool italic) {
    const std::lock_guard<std::mutex> lock(state_->lock);
    return state_->StyleFor(face, bold, italic).family;
}

}  // namespace qb::sim::fonts
