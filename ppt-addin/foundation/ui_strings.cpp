// Lookups in the compiled string tables, the display language with its two
// process-wide facts, and placeholder filling.
#include "foundation/ui_strings.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "foundation/platform.h"
#include "foundation/ui_languages.h"
#include "foundation/user_config.h"
#include "slides/automation.h"

namespace qb {
namespace {

#include "foundation/ui_string_table.inc"

struct LanguageTables {
    const UiStringEntry* builtIn;
    UiStringTable inUse;
};

// In the order of kUiLanguageCodes.
LanguageTables g_tables[] = {
    {kUiStringsZhCN, {kUiStringsZhCN, std::size(kUiStringsZhCN)}},
    {kUiStringsZhTW, {kUiStringsZhTW, std::size(kUiStringsZhTW)}},
    {kUiStringsEn, {kUiStringsEn, std::size(kUiStringsEn)}},
    {kUiStringsJa, {kUiStringsJa, std::size(kUiStringsJa)}},
    {kUiStringsRu, {kUiStringsRu, std::size(kUiStringsRu)}},
    {kUiStringsMs, {kUiStringsMs, std::size(kUiStringsMs)}},
    {kUiStringsTh, {kUiStringsTh, std::size(kUiStringsTh)}},
    {kUiStringsDe, {kUiStringsDe, std::size(kUiStringsDe)}},
    {kUiStringsFr, {kUiStringsFr, std::size(kUiStringsFr)}},
    {kUiStringsEs, {kUiStringsEs, std::size(kUiStringsEs)}},
    {kUiStringsId, {kUiStringsId, std::size(kUiStringsId)}},
    {kUiStringsVi, {kUiStringsVi, std::size(kUiStringsVi)}},
    {kUiStringsKo, {kUiStringsKo, std::size(kUiStringsKo)}},
    {kUiStringsAr, {kUiStringsAr, std::size(kUiStringsAr)}},
};
static_assert(std::size(g_tables) == std::size(kUiLanguageCodes));

// A table one entry short or long would still compile; this makes it not.
template <std::size_t N>
constexpr bool HasAllKeys(const UiStringEntry (&)[N]) {
    return N == kUiStringCount;
}
static_assert(HasAllKeys(kUiStringsZhCN) && HasAllKeys(kUiStringsZhTW) &&
              HasAllKeys(kUiStringsEn) && HasAllKeys(kUiStringsJa) && HasAllKeys(kUiStringsRu) &&
              HasAllKeys(kUiStringsMs) && HasAllKeys(kUiStringsTh) && HasAllKeys(kUiStringsDe) &&
              HasAllKeys(kUiStringsFr) && HasAllKeys(kUiStringsEs) && HasAllKeys(kUiStringsId) &&
              HasAllKeys(kUiStringsVi) && HasAllKeys(kUiStringsKo) && HasAllKeys(kUiStringsAr));

LanguageTables* TablesOf(std::u16string_view language) {
    for (std::size_t i = 0; i < std::size(kUiLanguageCodes); ++i) {
        if (kUiLanguageCodes[i] == language) return &g_tables[i];
    }
    return nullptr;
}

// Used on the host's thread only, so no lock.
struct UiLanguageState {
    std::u16string current = u"en";
    bool automatic = false;
};

UiLanguageState& State() {
    static UiLanguageState state;
    return state;
}

// msoLanguageIDUI: the language of the host's own menus and dialogs.
constexpr std::int32_t kLanguageIdUi = 2;

// Application.LanguageSettings.LanguageID(2), or 0 when any step fails or
// the answer isn't a 16- or 32-bit integer.
std::uint32_t HostLanguageId(const host::HostRef& application) {
    if (!application) return 0;
    host::HostRef settings;
    if (FAILED(host::GetObject(application, u"LanguageSettings", settings))) return 0;
    const host::Variant which = host::Variant::I4(kLanguageIdUi);
    host::Variant id;
    if (FAILED(host::DispCall(settings, u"LanguageID", &which, 1, &id))) return 0;
    switch (id.Type()) {
        case host::VarType::I2: {
            std::int32_t value = 0;
            return id.ToInt32(value) ? static_cast<std::uint16_t>(value) : 0;
        }
        case host::VarType::I4:
            return static_cast<std::uint32_t>(id.I4Value());
        default:
            return 0;
    }
}

std::u16string_view UiLanguageOfLanguageId(std::uint32_t id) {
    const std::uint32_t primary = id & 0x3FF;
    const std::uint32_t sub = id >> 10;
    if (primary == 0x04) {
        // Taiwan, Hong Kong, Macao and the Traditional neutral read Traditional.
        const bool traditional = id == 0x0404 || id == 0x0C04 || id == 0x1404 || id == 0x7C04 ||
                                 sub == 1 || sub == 3 || sub == 5;
        return traditional ? u"zh-TW" : u"zh-CN";
    }
    switch (primary) {
        case 0x01:
            return u"ar";
        case 0x07:
            return u"de";
        case 0x0A:
            return u"es";
        case 0x0C:
            return u"fr";
        case 0x11:
            return u"ja";
        case 0x12:
            return u"ko";
        case 0x19:
            return u"ru";
        case 0x1E:
            return u"th";
        case 0x21:
            return u"id";
        case 0x2A:
            return u"vi";
        case 0x3E:
            return u"ms";
        default:
            return u"en";  // English (9), neutral (0) and every language we don't have
    }
}

}  // namespace

UiStringTable FindUiStringTable(std::u16string_view language) {
    const LanguageTables* tables = TablesOf(language);
    return tables ? tables->inUse : UiStringTable{};
}

const char16_t* LookupUiText(std::u16string_view language, std::u16string_view key) {
    if (key.empty()) return nullptr;
    const LanguageTables* tables = TablesOf(language);
    if (!tables) tables = TablesOf(u"en");
    const UiStringEntry* begin = tables->inUse.entries;
    const UiStringEntry* end = begin + tables->inUse.count;
    // char16_t compares as unsigned, so this is the order of UTF-16 code units.
    const UiStringEntry* it =
        std::lower_bound(begin, end, key, [](const UiStringEntry& entry, std::u16string_view k) {
            return std::u16string_view(entry.key) < k;
        });
    if (it == end || std::u16string_view(it->key) != key) return nullptr;
    return it->text;
}

std::u16string GetUiString(std::u16string_view key) {
    const std::u16string language = ResolveUiLanguage(nullptr);
    const char16_t* text = LookupUiText(language, key);
    if (!text && language != u"en") text = LookupUiText(u"en", key);
    return text ? std::u16string(text) : std::u16string();
}

std::u16string FormatUiText(std::u16string_view text, std::u16string_view name,
                            std::u16string_view value) {
    if (name.empty()) return std::u16string(text);
    std::u16string pattern;
    pattern.reserve(name.size() + 2);
    pattern += u'{';
    pattern += name;
    pattern += u'}';
    std::u16string result;
    result.reserve(text.size());
    std::size_t from = 0;
    for (std::size_t at = text.find(pattern); at != std::u16string_view::npos;
         at = text.find(pattern, from)) {
        result.append(text, from, at - from);
        result += value;
        from = at + pattern.size();
    }
    result.append(text, from, std::u16string_view::npos);
    return result;
}

std::u16string ResolveUiLanguage(const host::HostRef& application) {
    UiLanguageState& state = State();
    // The user's choice is read every time, so a change in the file needs no restart.
    std::u16string saved;
    if (LoadUiLanguage(saved)) {
        state.current = std::move(saved);
        state.automatic = false;
        return state.current;
    }
    // The automatic choice is made once a process.
    if (state.automatic) return state.current;
    std::uint32_t id = HostLanguageId(application);
    if (id == 0) id = platform::UserDefaultUiLanguage();
    state.current = std::u16string(UiLanguageOfLanguageId(id));
    state.automatic = true;
    return state.current;
}

void ClearUiLanguageIsAutomatic() {
    State().automatic = false;
}

void ResetUiLanguageForTesting() {
    State() = UiLanguageState{};
}

void SetUiStringTableForTesting(std::u16string_view language, const UiStringEntry* entries,
                                std::size_t count) {
    LanguageTables* tables = TablesOf(language);
    if (!tables) return;
    tables->inUse =
        entries ? UiStringTable{entries, count} : UiStringTable{tables->builtIn, kUiStringCount};
}

}  // namespace qb
