// The add-in's own texts: fourteen complete tables, lookups and their
// fallbacks, placeholders, and the display language as the user's file, the
// host and the system decide it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>

#include "foundation/platform.h"
#include "foundation/ui_languages.h"
#include "foundation/ui_strings.h"
#include "foundation/user_config.h"
#include "sim/sim_test_support.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

using platform::KnownFolder;
using sim::FaultRule;
using sim::HostKind;
using sim::SimHost;

// How often each of the placeholders that callers fill stands in a text.
std::map<std::u16string_view, int> Placeholders(std::u16string_view text) {
    std::map<std::u16string_view, int> found;
    for (std::u16string_view name : {u"{count}", u"{failed}", u"{hr}"}) {
        for (std::size_t at = text.find(name); at != std::u16string_view::npos;
             at = text.find(name, at + 1)) {
            ++found[name];
        }
    }
    return found;
}

// A table's text, with a marker for none that no table holds.
std::u16string Ui(std::u16string_view language, std::u16string_view key) {
    const char16_t* text = LookupUiText(language, key);
    return text ? std::u16string(text) : u"<no text>";
}

FaultRule Fault(std::u16string type, std::u16string member, bool missing, HRESULT hr = E_FAIL) {
    FaultRule rule;
    rule.objectType = std::move(type);
    rule.member = std::move(member);
    rule.missing = missing;
    rule.hr = hr;
    return rule;
}

std::string Narrow(std::u16string_view text) {
    std::string out;
    for (char16_t c : text)
        out += c < 0x80 ? static_cast<char>(c) : '?';
    return out;
}

TEST(UiStringTables, EveryLanguageHasEveryKeyInOneSortedOrder) {
    const UiStringTable en = FindUiStringTable(u"en");
    ASSERT_NE(en.entries, nullptr);
    ASSERT_EQ(en.count, kUiStringCount);
    for (std::size_t i = 1; i < en.count; ++i) {
        // Strictly ascending by code units: sorted, and no key twice.
        EXPECT_LT(std::u16string_view(en.entries[i - 1].key),
                  std::u16string_view(en.entries[i].key))
            << "after " << Narrow(en.entries[i - 1].key);
    }
    for (std::u16string_view code : kUiLanguageCodes) {
        const UiStringTable table = FindUiStringTable(code);
        ASSERT_NE(table.entries, nullptr) << Narrow(code);
        ASSERT_EQ(table.count, kUiStringCount) << Narrow(code);
        for (std::size_t i = 0; i < table.count; ++i) {
            EXPECT_EQ(std::u16string_view(table.entries[i].key), en.entries[i].key)
                << Narrow(code) << " entry " << i;
        }
    }
    // Tables are chosen by the exact code only.
    EXPECT_EQ(FindUiStringTable(u"EN").entries, nullptr);
    EXPECT_EQ(FindUiStringTable(u"zh").entries, nullptr);
    EXPECT_EQ(FindUiStringTable(u"").entries, nullptr);
}

TEST(UiStringTables, EveryTextIsWholeAndKeepsThePlaceholdersAndLineBreaksOfEnglish) {
    const UiStringTable en = FindUiStringTable(u"en");
    ASSERT_EQ(en.count, kUiStringCount);
    // The English texts hold each placeholder somewhere, so the check below has teeth.
    std::map<std::u16string_view, int> all;
    for (std::size_t i = 0; i < en.count; ++i) {
        for (const auto& [name, n] : Placeholders(en.entries[i].text))
            all[name] += n;
    }
    EXPECT_EQ(all.size(), 3u);
    for (std::u16string_view code : kUiLanguageCodes) {
        const UiStringTable table = FindUiStringTable(code);
        ASSERT_EQ(table.count, kUiStringCount) << Narrow(code);
        for (std::size_t i = 0; i < table.count; ++i) {
            const std::u16string_view text = table.entries[i].text;
            const std::u16string_view english = en.entries[i].text;
            const std::string where = Narrow(code) + " " + Narrow(table.entries[i].key);
            EXPECT_FALSE(text.empty()) << where;
            EXPECT_EQ(Placeholders(text), Placeholders(english)) << where;
            EXPECT_EQ(std::count(text.begin(), text.end(), u'\n'),
                      std::count(english.begin(), english.end(), u'\n'))
                << where;
            for (char16_t c : text) {
                // Damaged source text shows as replacement or stray control characters.
                EXPECT_TRUE(c != 0xFFFD && (c >= 0x20 || c == u'\n')) << where;
            }
        }
    }
}

TEST(UiStringTables, TextsComeOutAsWrittenInEveryLanguage) {
    // Each language's assistant name, spelled in escapes so that a compiler
    // misreading the tables' UTF-8 source can't agree with itself.
    const struct {
        std::u16string_view code;
        std::u16string_view title;
    } titles[] = {
        {u"zh-CN", u"AI \u52A9\u624B"},
        {u"zh-TW", u"AI \u52A9\u624B"},
        {u"en", u"AI Assistant"},
        {u"ja", u"AI \u30A2\u30B7\u30B9\u30BF\u30F3\u30C8"},
        {u"ru", u"\u0418\u0418-\u043F\u043E\u043C\u043E\u0449\u043D\u0438\u043A"},
        {u"ms", u"Pembantu AI"},
        {u"th", u"\u0E1C\u0E39\u0E49\u0E0A\u0E48\u0E27\u0E22 AI"},
        {u"de", u"KI-Assistent"},
        {u"fr", u"Assistant IA"},
        {u"es", u"Asistente de IA"},
        {u"id", u"Asisten AI"},
        {u"vi", u"Tr\u1EE3 l\u00FD AI"},
        {u"ko", u"AI \uB3C4\uC6B0\uBBF8"},
        {u"ar",
         u"\u0645\u0633\u0627\u0639\u062F \u0627\u0644\u0630\u0643\u0627\u0621 "
         u"\u0627\u0644\u0627\u0635\u0637\u0646\u0627\u0639\u064A"},
    };
    ASSERT_EQ(std::size(titles), std::size(kUiLanguageCodes));
    for (const auto& t : titles) {
        EXPECT_EQ(Ui(t.code, u"msg.title"), t.title) << Narrow(t.code);
        // The pane's title: the assistant's name, a middle dot, the site's name.
        EXPECT_EQ(Ui(t.code, u"msg.paneTitle"), std::u16string(t.title) + u" \u00B7 Quillbrook")
            << Narrow(t.code);
    }
    EXPECT_EQ(Ui(u"en", u"msg.createPaneFailed"),
              u"The task pane could not be created.\nHRESULT: {hr}");
}

TEST(UiStringLookup, FindsTheExactKeyInTheExactLanguageElseInEnglish) {
    const struct {
        std::u16string_view language;
        std::u16string_view key;
        const char16_t* text;  // null: no text
    } cases[] = {
        {u"de", u"settings.cancel", u"Abbrechen"},
        {u"zh-TW", u"settings.cancel", u"\u53D6\u6D88"},
        {u"ar", u"settings.cancel", u"\u0625\u0644\u063A\u0627\u0621"},
        // The first and the last key: the search reaches both ends.
        {u"en", u"blank.excel.deleted", u"Deleted {count} blank rows."},
        {u"en", u"settings.writeFailed",
         u"Could not save the language setting. Check that you can write the user config file."},
        // A key that is a prefix of another is a key of its own.
        {u"en", u"ribbon.btnAccount", u"Account"},
        {u"en", u"ribbon.btnAccount.tip", u"Account and plan"},
        {u"en", u"ribbon.btnAccount.ti", nullptr},
        {u"en", u"Ribbon.btnAccount", nullptr},
        {u"en", u"settings.cancel ", nullptr},
        {u"en", u"zzz", nullptr},
        {u"en", u"", nullptr},
        {u"de", u"", nullptr},
        // Any other code reads the English table.
        {u"xx", u"settings.cancel", u"Cancel"},
        {u"", u"settings.cancel", u"Cancel"},
        {u"DE", u"settings.cancel", u"Cancel"},
        {u"zh-tw", u"settings.cancel", u"Cancel"},
        {u"xx", u"no.such.key", nullptr},
    };
    for (const auto& c : cases) {
        const char16_t* text = LookupUiText(c.language, c.key);
        const std::string where = Narrow(c.language) + " / " + Narrow(c.key);
        if (!c.text) {
            EXPECT_EQ(text, nullptr) << where;
        } else {
            ASSERT_NE(text, nullptr) << where;
            EXPECT_EQ(std::u16string_view(text), c.text) << where;
        }
    }
}

TEST(UiTextFormat, FillsEveryPlaceholderOfTheNameOnce) {
    const struct {
        std::u16string_view text, name, value, result;
    } cases[] = {
        {u"HRESULT: {hr}", u"hr", u"0x80004005", u"HRESULT: 0x80004005"},
        {u"{count} of {count}", u"count", u"3", u"3 of 3"},
        {u"{count} ({failed} failed)", u"count", u"7", u"7 ({failed} failed)"},
        {u"{count} ({failed} failed)", u"failed", u"2", u"{count} (2 failed)"},
        // What a value brings in is not searched again.
        {u"a {hr} b", u"hr", u"{hr}", u"a {hr} b"},
        {u"{{hr}hr}", u"hr", u"", u"{hr}"},
        {u"{hr}{hr}", u"hr", u"{h", u"{h{h"},
        // An empty name leaves the text alone, even a "{}".
        {u"x {} {hr}", u"", u"v", u"x {} {hr}"},
        {u"no placeholder", u"hr", u"v", u"no placeholder"},
        {u"{hr", u"hr", u"v", u"{hr"},
        {u"{HR}", u"hr", u"v", u"{HR}"},
        {u"", u"hr", u"v", u""},
        {u"\u53D6{n}\u6D88", u"n", u"\u00B7", u"\u53D6\u00B7\u6D88"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FormatUiText(c.text, c.name, c.value), c.result)
            << Narrow(c.text) << " / " << Narrow(c.name);
    }
    EXPECT_EQ(FormatUiText(LookupUiText(u"zh-CN", u"msg.createPaneFailed"), u"hr", u"0x80070005"),
              u"\u521B\u5EFA\u4EFB\u52A1\u9762\u677F\u5931\u8D25\u3002\nHRESULT: 0x80070005");
}

// Each test gets a configuration folder of its own, a fresh language state
// and a system in English unless it says otherwise.
class UiLanguage : public testing::Test {
  protected:
    void SetUp() override {
        savedLocal_ = platform::GetKnownFolder(KnownFolder::LocalAppData);
        platform::SetKnownFolderForTesting(KnownFolder::LocalAppData, dir_.Path());
        platform::SetUserDefaultUiLanguageForTesting(0x0409);
        ResetUiLanguageForTesting();
    }
    void TearDown() override {
        ResetUiLanguageForTesting();
        platform::SetUserDefaultUiLanguageForTesting(-1);
        platform::SetKnownFolderForTesting(KnownFolder::LocalAppData, savedLocal_);
    }
    static void SystemLanguage(std::int32_t id) {
        platform::SetUserDefaultUiLanguageForTesting(id);
    }
    static void WriteConfig(std::string_view text) {
        ASSERT_TRUE(platform::MakeDirectory(GetConfigDirectory()));
        test::WriteFileBytes(GetConfigPath(), text);
    }

    test::TempDir dir_;
    std::u16string savedLocal_;
};

TEST_F(UiLanguage, GetUiStringSpeaksTheCurrentLanguage) {
    SystemLanguage(0x0411);
    EXPECT_EQ(GetUiString(u"settings.cancel"), u"\u30AD\u30E3\u30F3\u30BB\u30EB");
    ASSERT_TRUE(SaveUiLanguage(u"ar"));
    EXPECT_EQ(GetUiString(u"settings.cancel"), u"\u0625\u0644\u063A\u0627\u0621");
    EXPECT_EQ(GetUiString(u"no.such.key"), u"");
    EXPECT_EQ(GetUiString(u""), u"");
}

TEST_F(UiLanguage, AKeyMissingInTheLanguageFallsBackOnEnglish) {
    // A German table with a gap: only two keys, still sorted.
    static const UiStringEntry kGappy[] = {
        {u"ribbon.btnGlossary", u"Glossar"},
        {u"settings.cancel", u"Abbrechen"},
    };
    SetUiStringTableForTesting(u"de", kGappy, std::size(kGappy));
    ASSERT_TRUE(SaveUiLanguage(u"de"));
    EXPECT_EQ(GetUiString(u"settings.cancel"), u"Abbrechen");
    EXPECT_EQ(GetUiString(u"ribbon.btnGlossary"), u"Glossar");
    EXPECT_EQ(LookupUiText(u"de", u"ribbon.btnAccount"), nullptr);
    EXPECT_EQ(GetUiString(u"ribbon.btnAccount"), u"Account");
    EXPECT_EQ(GetUiString(u"no.such.key"), u"");
    SetUiStringTableForTesting(u"de", nullptr, 0);
    EXPECT_EQ(GetUiString(u"ribbon.btnAccount"), u"Konto");
}

TEST_F(UiLanguage, TheUsersChoiceWinsEveryTimeAndEndsTheAutomaticOne) {
    SimHost host;
    host.App().uiLanguageId = 0x0411;
    const host::HostRef app = sim::test::Root(host);
    EXPECT_EQ(ResolveUiLanguage(app), u"ja");
    ASSERT_TRUE(SaveUiLanguage(u"ko"));
    EXPECT_EQ(ResolveUiLanguage(app), u"ko");
    EXPECT_EQ(ResolveUiLanguage(nullptr), u"ko");
    // The file changes under a running process: no restart needed.
    ASSERT_TRUE(SaveUiLanguage(u"vi"));
    EXPECT_EQ(ResolveUiLanguage(app), u"vi");
    EXPECT_EQ(host.Calls(u"LanguageSettings", u"LanguageID"), 1u);
    // The choice is gone again: the automatic one is made anew, from the host.
    host.App().uiLanguageId = 0x040C;
    WriteConfig("{\"paneWidthPt\": 600}");
    EXPECT_EQ(ResolveUiLanguage(app), u"fr");
    EXPECT_EQ(host.Calls(u"LanguageSettings", u"LanguageID"), 2u);
}

TEST_F(UiLanguage, TheAutomaticChoiceIsMadeOncePerProcess) {
    SimHost host;
    host.App().uiLanguageId = 0x0411;
    SystemLanguage(0x0407);
    // The first call has no host: the system's German holds from then on.
    EXPECT_EQ(ResolveUiLanguage(nullptr), u"de");
    EXPECT_EQ(ResolveUiLanguage(sim::test::Root(host)), u"de");
    SystemLanguage(0x0419);
    EXPECT_EQ(ResolveUiLanguage(nullptr), u"de");
    EXPECT_EQ(host.Calls(u"LanguageSettings", u"LanguageID"), 0u);
    // Until the user picks one.
    ASSERT_TRUE(SaveUiLanguage(u"th"));
    EXPECT_EQ(ResolveUiLanguage(sim::test::Root(host)), u"th");
    // Gone again: a new automatic choice, this time from the system.
    WriteConfig("{}");
    EXPECT_EQ(ResolveUiLanguage(nullptr), u"ru");
    // The dialog's pick clears the automatic choice, so the next one asks the host.
    ClearUiLanguageIsAutomatic();
    EXPECT_EQ(ResolveUiLanguage(sim::test::Root(host)), u"ja");
}

TEST_F(UiLanguage, ASavedCodeOutsideTheFourteenIsIgnored) {
    SimHost host;
    host.App().uiLanguageId = 0x0412;
    const struct {
        const char* file;
        std::u16string_view language;
    } cases[] = {
        {"{\"uiLang\": \"xx\"}", u"ko"},       {"{\"uiLang\": \"zh-cn\"}", u"ko"},
        {"{\"uiLang\": \"\"}", u"ko"},         {"{\"uiLang\": 5}", u"ko"},
        {"{\"uiLang\": \"zh-CN\"}", u"zh-CN"}, {"{\"uiLang\": \"en\"}", u"en"},
    };
    for (const auto& c : cases) {
        ResetUiLanguageForTesting();
        WriteConfig(c.file);
        EXPECT_EQ(ResolveUiLanguage(sim::test::Root(host)), c.language) << c.file;
    }
}

TEST_F(UiLanguage, WithNoLanguageAnywhereTheAnswerIsEnglish) {
    SystemLanguage(0);
    SimHost host;
    host.App().uiLanguageId = 0;
    EXPECT_EQ(ResolveUiLanguage(sim::test::Root(host)), u"en");
    ResetUiLanguageForTesting();
    EXPECT_EQ(ResolveUiLanguage(nullptr), u"en");
}

// The same cases on the host posing as PowerPoint and as WPS Presentation.
class UiLanguageOnHost : public UiLanguage, public testing::WithParamInterface<HostKind> {};

TEST_P(UiLanguageOnHost, TheHostsLanguageIdGivesTheCode) {
    SystemLanguage(0x0419);  // Russian, seen only when the host says 0
    const struct {
        std::int32_t id;
        std::u16string_view language;
    } cases[] = {
        {0x0804, u"zh-CN"}, {0x0C04, u"zh-TW"}, {0x1004, u"zh-CN"}, {0x0404, u"zh-TW"},
        {0x1404, u"zh-TW"}, {0x7C04, u"zh-TW"}, {0x0004, u"zh-CN"}, {0x7804, u"zh-CN"},
        {0x0410, u"en"},    {0x0816, u"en"},    {0x0409, u"en"},    {0x0809, u"en"},
        {0x0401, u"ar"},    {0x3801, u"ar"},    {0x0407, u"de"},    {0x0C07, u"de"},
        {0x0C0A, u"es"},    {0x080A, u"es"},    {0x040C, u"fr"},    {0x0411, u"ja"},
        {0x0412, u"ko"},    {0x0419, u"ru"},    {0x041E, u"th"},    {0x0421, u"id"},
        {0x042A, u"vi"},    {0x043E, u"ms"},    {0x083E, u"ms"},    {0x0000, u"ru"},
        {0x10407, u"de"},
    };
    SimHost host(GetParam());
    for (const auto& c : cases) {
        ResetUiLanguageForTesting();
        host.App().uiLanguageId = c.id;
        EXPECT_EQ(ResolveUiLanguage(sim::test::Root(host)), c.language) << std::hex << c.id;
    }
    EXPECT_EQ(host.Calls(u"LanguageSettings", u"LanguageID"), std::size(cases));
}

TEST_P(UiLanguageOnHost, AMissingFailingOrOddLanguageIdFallsBackOnTheSystem) {
    SystemLanguage(0x0407);
    const struct {
        const char* name;
        FaultRule fault;  // an empty member: no fault
        host::VarType type;
        std::u16string_view language;
    } cases[] = {
        {"as the host has it", {}, host::VarType::I4, u"ja"},
        {"a 16-bit id", {}, host::VarType::I2, u"ja"},
        {"a floating id", {}, host::VarType::R8, u"de"},
        {"an id as text", {}, host::VarType::String, u"de"},
        {"no LanguageSettings", Fault(u"Application", u"LanguageSettings", true), host::VarType::I4,
         u"de"},
        {"LanguageSettings fails", Fault(u"Application", u"LanguageSettings", false),
         host::VarType::I4, u"de"},
        {"no LanguageID", Fault(u"LanguageSettings", u"LanguageID", true), host::VarType::I4,
         u"de"},
        {"LanguageID fails", Fault(u"LanguageSettings", u"LanguageID", false, E_ACCESSDENIED),
         host::VarType::I4, u"de"},
    };
    for (const auto& c : cases) {
        SimHost host(GetParam());
        host.App().uiLanguageId = 0x0411;
        host.languageIdType = c.type;
        if (!c.fault.member.empty()) host.AddFault(c.fault);
        ResetUiLanguageForTesting();
        EXPECT_EQ(ResolveUiLanguage(sim::test::Root(host)), c.language) << c.name;
    }
}

INSTANTIATE_TEST_SUITE_P(UiHosts, UiLanguageOnHost,
                         testing::Values(HostKind::PowerPoint, HostKind::Wps),
                         [](const testing::TestParamInfo<HostKind>& info) {
                             return info.param == HostKind::Wps ? "Wps" : "PowerPoint";
                         });

#if !defined(_WIN32)
// Linux has no GetUserDefaultUILanguage: the locale variables stand for it.
class UiLanguageFromLocale : public UiLanguage {
  protected:
    void SetUp() override {
        UiLanguage::SetUp();
        SystemLanguage(-1);
        for (const char* name : kVariables) {
            const char* value = std::getenv(name);
            saved_[name] = value ? std::optional<std::string>(value) : std::nullopt;
        }
    }
    void TearDown() override {
        for (const auto& [name, value] : saved_)
            Set(name.c_str(), value ? value->c_str() : nullptr);
        UiLanguage::TearDown();
    }
    static void Set(const char* name, const char* value) {
        if (value) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }

    static constexpr const char* kVariables[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
    std::map<std::string, std::optional<std::string>> saved_;
};

TEST_F(UiLanguageFromLocale, TheLocaleVariablesGiveTheSystemsLanguage) {
    const struct {
        const char* lcAll;
        const char* lcMessages;
        const char* lang;
        std::uint16_t id;
    } cases[] = {
        {nullptr, nullptr, "de_DE.UTF-8", 0x0407}, {nullptr, nullptr, "zh_TW.UTF-8", 0x0404},
        {nullptr, nullptr, "zh_HK", 0x0C04},       {nullptr, nullptr, "zh_SG.GB2312", 0x1004},
        {nullptr, nullptr, "zh_CN.UTF-8", 0x0804}, {nullptr, nullptr, "zh", 0x0804},
        {nullptr, nullptr, "pt_BR@euro", 0x0416},  {nullptr, nullptr, "fi_FI.UTF-8", 0},
        {nullptr, nullptr, "C.UTF-8", 0x0409},     {nullptr, nullptr, nullptr, 0x0409},
        {"ja_JP.UTF-8", "fr_FR", "de_DE", 0x0411}, {"", "fr_FR.UTF-8", "de_DE", 0x040C},
        {nullptr, "", "ko_KR.UTF-8", 0x0412},
    };
    for (const auto& c : cases) {
        Set("LC_ALL", c.lcAll);
        Set("LC_MESSAGES", c.lcMessages);
        Set("LANG", c.lang);
        EXPECT_EQ(platform::UserDefaultUiLanguage(), c.id) << (c.lang ? c.lang : "(none)");
    }
    Set("LC_ALL", nullptr);
    Set("LC_MESSAGES", nullptr);
    Set("LANG", "vi_VN.UTF-8");
    EXPECT_EQ(ResolveUiLanguage(nullptr), u"vi");
}
#endif

}  // namespace
}  // namespace qb
