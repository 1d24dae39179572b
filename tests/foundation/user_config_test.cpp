// The user's settings file: single keys read by text search and rewritten in
// place, everything else kept, the file replaced in one step.
#include <gtest/gtest.h>

#include "foundation/platform.h"
#include "foundation/user_config.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

TEST(UserConfigText, ReplacesOrAddsOneKeyAndKeepsEverythingElse) {
    const struct {
        const char* name;
        std::string text;
        bool ok;
        std::string result;
    } cases[] = {
        {"empty object gets no comma", "{}", true, "{\n  \"paneWidthPt\": 520\n}"},
        {"after another key", "{\"a\":1}", true, "{\"a\":1,\n  \"paneWidthPt\": 520\n}"},
        {"trailing text stays", "{\"a\":1}\n\n// note\n", true,
         "{\"a\":1,\n  \"paneWidthPt\": 520\n}\n\n// note\n"},
        {"only the digits change", "{ \"x\" : [1,2],\r\n\t\"paneWidthPt\" :\n -300 , \"y\": 2 }",
         true, "{ \"x\" : [1,2],\r\n\t\"paneWidthPt\" :\n 520 , \"y\": 2 }"},
        {"a string where a number belongs", "{\"paneWidthPt\": \"wide\"}", false, ""},
        {"no colon", "{\"paneWidthPt\" 5}", false, ""},
        {"no closing brace", "{\"a\":1", false, ""},
        {"not JSON at all", "", false, ""},
    };
    for (const auto& c : cases) {
        std::string result;
        EXPECT_EQ(ReplaceOrAddJsonInt(c.text, "paneWidthPt", 520, result), c.ok) << c.name;
        if (c.ok) {
            EXPECT_EQ(result, c.result) << c.name;
        }
    }
    std::string result;
    ASSERT_TRUE(ReplaceOrAddUiLang("{\"uiLang\": \"d\\\"e\", \"z\": 1}", "ja", result));
    EXPECT_EQ(result, "{\"uiLang\": \"ja\", \"z\": 1}");
    EXPECT_FALSE(ReplaceOrAddUiLang("{\"uiLang\": 5}", "ja", result));
}

TEST(UserConfigText, ReadsIntegersAndLanguageValues) {
    const struct {
        std::string text;
        bool ok;
        std::int32_t value;
    } ints[] = {
        {"{\"paneWidthPt\": 640}", true, 640},
        {"{\"paneWidthPt\":\n\t-5}", true, -5},
        {"{\"paneWidthPt\": +7}", true, 7},
        {"{\"paneWidthPt\": 2147483647}", true, 2147483647},
        {"{\"paneWidthPt\": 99999999999}", false, 0},
        {"{\"paneWidthPt\": 2147483648}", false, 0},
        {"{\"paneWidthPt\": 12.5}", true, 12},
        {"{\"paneWidthPt\": -}", false, 0},
        {"{\"other\": 1}", false, 0},
    };
    for (const auto& c : ints) {
        std::int32_t value = 31337;
        EXPECT_EQ(ReadJsonInt(c.text, "paneWidthPt", value), c.ok) << c.text;
        EXPECT_EQ(value, c.ok ? c.value : 31337) << c.text;  // left alone on failure
    }
    std::string lang;
    EXPECT_TRUE(ReadUiLangValue("{\"uiLang\" : \"zh\\-TW\"}", lang));
    EXPECT_EQ(lang, "zh-TW");  // a backslash takes the next character as it is
    EXPECT_FALSE(ReadUiLangValue("{\"uiLang\": \"open", lang));
    EXPECT_FALSE(ReadUiLangValue("{\"uiLang\": en}", lang));
}

// Each test gets application data folders of its own.
class UserConfigFiles : public testing::Test {
  protected:
    void SetUp() override {
        using platform::KnownFolder;
        savedLocal_ = platform::GetKnownFolder(KnownFolder::LocalAppData);
        savedRoaming_ = platform::GetKnownFolder(KnownFolder::RoamingAppData);
        platform::SetKnownFolderForTesting(KnownFolder::LocalAppData, dir_.Path());
    }
    void TearDown() override {
        using platform::KnownFolder;
        platform::SetKnownFolderForTesting(KnownFolder::LocalAppData, savedLocal_);
        platform::SetKnownFolderForTesting(KnownFolder::RoamingAppData, savedRoaming_);
    }
    std::string FileText() { return test::ReadFileBytes(GetConfigPath()); }

    test::TempDir dir_;
    std::u16string savedLocal_, savedRoaming_;
};

TEST_F(UserConfigFiles, SettingsSurviveARestartAndKeepEachOther) {
    EXPECT_EQ(GetConfigPath(),
              platform::JoinPath(platform::JoinPath(dir_.Path(), u"Quillbrook"), u"config.json"));
    bool found = true;
    EXPECT_EQ(ReadPaneWidth(found), kDefaultPaneWidthPt);
    EXPECT_FALSE(found);
    std::uint32_t error = 99;
    ASSERT_TRUE(SavePaneWidth(600, error));
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(FileText(), "{\n  \"paneWidthPt\": 600\n}\n");
    ASSERT_TRUE(SaveUiLanguage(u"ja"));
    EXPECT_EQ(FileText(), "{\n  \"paneWidthPt\": 600,\n  \"uiLang\": \"ja\"\n}\n");
    ASSERT_TRUE(SavePaneWidth(480, error));
    EXPECT_EQ(ReadPaneWidth(found), 480);
    EXPECT_TRUE(found);
    std::u16string code;
    ASSERT_TRUE(LoadUiLanguage(code));
    EXPECT_EQ(code, u"ja");
    EXPECT_FALSE(SaveUiLanguage(u"xx"));  // not a supported code: nothing written
    EXPECT_EQ(FileText(), "{\n  \"paneWidthPt\": 480,\n  \"uiLang\": \"ja\"\n}\n");
}

TEST_F(UserConfigFiles, ADamagedFileReadsAsDefaultsAndIsReplacedOnTheNextSave) {
    ASSERT_TRUE(platform::MakeDirectory(GetConfigDirectory()));
    test::WriteFileBytes(GetConfigPath(),
                         "\xEF\xBB\xBF{\"paneWidthPt\": \"wide\", \"uiLang\": \"xx\"}");
    bool found = true;
    EXPECT_EQ(ReadPaneWidth(found), kDefaultPaneWidthPt);
    EXPECT_FALSE(found);
    std::u16string code = u"unchanged";
    EXPECT_FALSE(LoadUiLanguage(code));
    EXPECT_EQ(code, u"unchanged");
    std::uint32_t error = 0;
    ASSERT_TRUE(SavePaneWidth(500, error));
    EXPECT_EQ(FileText(), "{\n  \"paneWidthPt\": 500\n}\n");
}

TEST_F(UserConfigFiles, ACrashBetweenWriteAndRenameLeavesTheOldFileWhole) {
    std::uint32_t error = 0;
    ASSERT_TRUE(SavePaneWidth(700, error));
    // What a crash after the write and before the rename leaves behind.
    test::WriteFileBytes(GetConfigPath() + u".tmp", "{\n  \"paneWidthPt\": 1");
    bool found = false;
    EXPECT_EQ(ReadPaneWidth(found), 700);
    ASSERT_TRUE(SavePaneWidth(710, error));  // the next save writes over the leftover
    EXPECT_EQ(FileText(), "{\n  \"paneWidthPt\": 710\n}\n");
    EXPECT_FALSE(test::FileExists(GetConfigPath() + u".tmp"));
}

TEST_F(UserConfigFiles, AFailedWriteKeepsTheOldFileAndSaysWhy) {
    std::uint32_t error = 0;
    ASSERT_TRUE(SavePaneWidth(650, error));
    // A folder where the temporary file must go: the write can't happen.
    ASSERT_TRUE(platform::MakeDirectory(GetConfigPath() + u".tmp"));
    EXPECT_FALSE(SavePaneWidth(900, error));
    EXPECT_NE(error, 0u);
    EXPECT_EQ(FileText(), "{\n  \"paneWidthPt\": 650\n}\n");
}

}  // namespace
}  // namespace qb
