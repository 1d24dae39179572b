// Client identity: the install id kept in the per-user registry, the build
// named by version.json, and the two JSON objects made from them.
#include <gtest/gtest.h>

#include <regex>

#include "foundation/platform.h"
#include "foundation/text.h"
#include "run/client_identity.h"
#include "run/json.h"
#include "support/temp_dir.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace qb {
namespace {

// Keeps whatever install id the machine had (under Wine, the prefix's own)
// and puts it back afterwards.
class ScopedInstallId {
  public:
    ScopedInstallId() {
        had_ = platform::ReadUserRegistryString(kInstallIdKey, kInstallIdValue, saved_);
        platform::DeleteUserRegistryValue(kInstallIdKey, kInstallIdValue);
    }
    ~ScopedInstallId() {
        if (had_) {
            platform::WriteUserRegistryString(kInstallIdKey, kInstallIdValue, saved_);
        } else {
            platform::DeleteUserRegistryValue(kInstallIdKey, kInstallIdValue);
        }
    }

  private:
    bool had_ = false;
    std::u16string saved_;
};

class ScopedModuleFolder {
  public:
    explicit ScopedModuleFolder(std::u16string path) {
        platform::SetKnownFolderForTesting(platform::KnownFolder::Module, std::move(path));
    }
    ~ScopedModuleFolder() {
        platform::SetKnownFolderForTesting(platform::KnownFolder::Module, std::u16string());
    }
};

class ScopedHostIdentity {
  public:
    explicit ScopedHostIdentity(HostIdentity identity) : saved_(GetHostIdentity()) {
        SetHostIdentity(std::move(identity));
    }
    ~ScopedHostIdentity() { SetHostIdentity(saved_); }

  private:
    HostIdentity saved_;
};

bool LooksLikeGuid(const std::u16string& id) {
    static const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}");
    return std::regex_match(Utf16ToUtf8(id), form);
}

std::u16string Stored() {
    std::u16string value;
    EXPECT_TRUE(platform::ReadUserRegistryString(kInstallIdKey, kInstallIdValue, value));
    return value;
}

TEST(InstallIdTest, MadeOnceStoredAndKeptAcrossCalls) {
    ScopedInstallId keep;
    const std::u16string first = GetInstallId();
    EXPECT_TRUE(LooksLikeGuid(first)) << Utf16ToUtf8(first);
    EXPECT_EQ(Stored(), first);
    // A later call, as after a restart, reads the stored id again.
    EXPECT_EQ(GetInstallId(), first);
    EXPECT_EQ(GetInstallId(), first);
    EXPECT_EQ(Stored(), first);
}

TEST(InstallIdTest, AValidStoredIdIsNeverReplaced) {
    ScopedInstallId keep;
    ASSERT_TRUE(platform::WriteUserRegistryString(kInstallIdKey, kInstallIdValue, u"local-12345"));
    EXPECT_EQ(GetInstallId(), u"local-12345");
    EXPECT_EQ(Stored(), u"local-12345");
}

TEST(InstallIdTest, ADamagedValueIsReplacedOnceAndTheNewIdKept) {
    const std::u16string damaged[] = {u"", u"abc\u0001def", u"bad\ufffdbytes",
                                      std::u16string(600, u'a')};
    for (const std::u16string& value : damaged) {
        ScopedInstallId keep;
        ASSERT_TRUE(platform::WriteUserRegistryString(kInstallIdKey, kInstallIdValue, value));
        const std::u16string fresh = GetInstallId();
        EXPECT_TRUE(LooksLikeGuid(fresh)) << Utf16ToUtf8(fresh);
        EXPECT_EQ(Stored(), fresh);
        EXPECT_EQ(GetInstallId(), fresh);
    }
}

#if defined(_WIN32)
TEST(InstallIdTest, AValueOfAnotherTypeIsReplacedByAString) {
    ScopedInstallId keep;
    const DWORD number = 7;
    ASSERT_EQ(::RegSetKeyValueW(HKEY_CURRENT_USER, L"Software\\Quillbrook", L"InstallId", REG_DWORD,
                                &number, sizeof number),
              ERROR_SUCCESS);
    const std::u16string fresh = GetInstallId();
    EXPECT_TRUE(LooksLikeGuid(fresh));
    EXPECT_EQ(Stored(), fresh);
    EXPECT_EQ(GetInstallId(), fresh);
}
#else
TEST(InstallIdTest, WithRegistryWritesRefusedEachCallMakesAnotherId) {
    // A file where the registry's folder would go refuses every write.
    test::TempDir roaming;
    test::WriteFileBytes(roaming.Join(u"registry"), "not a folder");
    platform::SetKnownFolderForTesting(platform::KnownFolder::RoamingAppData, roaming.Path());
    const std::u16string first = GetInstallId();
    const std::u16string second = GetInstallId();
    platform::SetKnownFolderForTesting(platform::KnownFolder::RoamingAppData, std::u16string());
    EXPECT_FALSE(first.empty());
    EXPECT_TRUE(LooksLikeGuid(first));
    EXPECT_NE(first, second);
}
#endif

TEST(VersionFileTest, TheBuildIdentityTakesWhatTheFileGives) {
    test::TempDir folder;
    ScopedModuleFolder module(folder.Path());
    EXPECT_EQ(ReadVersionFile(), u"");
    EXPECT_EQ(GetClientVersion(), u"0.0.0");
    EXPECT_EQ(ReadBuildIdentity().productId, u"quillbrook-office-ai");

    test::WriteFileBytes(folder.Join(u"version.json"),
                         "{\"productId\":\"\",\"platform\":\"win\",\"commit\":\"abc1234\","
                         "\"buildDate\":\"2026-11-20\"}");
    const BuildIdentity partial = ReadBuildIdentity();
    EXPECT_EQ(partial.productId, u"quillbrook-office-ai");  // empty keeps the default
    EXPECT_EQ(partial.platform, u"win");
    EXPECT_EQ(partial.version, u"0.0.0");
    EXPECT_EQ(partial.commit, u"abc1234");
    EXPECT_EQ(partial.buildDate, u"2026-11-20");

    test::WriteFileBytes(folder.Join(u"version.json"), "{\"version\":\"1.4.2\"}");
    EXPECT_EQ(GetClientVersion(), u"1.4.2");
}

TEST(VersionFileTest, AnX86FolderLooksOneLevelUpAndNoOtherFolderDoes) {
    test::TempDir root;
    test::WriteFileBytes(root.Join(u"version.json"), "{\"version\":\"2.0.0\"}");
    for (const char16_t* name : {u"x86", u"X86", u"bin"}) {
        const std::u16string sub = root.Join(name);
        ASSERT_TRUE(platform::MakeDirectory(sub));
        ScopedModuleFolder module(sub);
        const bool looksUp = std::u16string(name) != u"bin";
        EXPECT_EQ(GetClientVersion(), looksUp ? u"2.0.0" : u"0.0.0") << Utf16ToUtf8(name);
    }
}

TEST(ClientContextTest, TheObjectsHoldTheirKeysInOrder) {
    ScopedInstallId keep;
    ASSERT_TRUE(platform::WriteUserRegistryString(kInstallIdKey, kInstallIdValue, u"id-1"));
    test::TempDir folder;
    ScopedModuleFolder module(folder.Path());
    test::WriteFileBytes(folder.Join(u"version.json"),
                         "{\"productId\":\"p\",\"platform\":\"w\",\"version\":\"3.1.0\","
                         "\"commit\":\"c\",\"buildDate\":\"d\"}");
    ScopedHostIdentity host({u"wps", u"12.1", u"WPS \"Presentation\""});
    const std::u16string os = JsonQuote(GetOsString());
    EXPECT_EQ(BuildClientContext(), u"{\"installId\":\"id-1\",\"channel\":\"word\",\"os\":" + os +
                                        u",\"hostApp\":\"wps\",\"hostVersion\":\"12.1\","
                                        u"\"clientVersion\":\"3.1.0\"}");
    EXPECT_EQ(BuildClientInfo(),
              u"{\"productId\":\"p\",\"platform\":\"w\",\"version\":\"3.1.0\",\"commit\":\"c\","
              u"\"buildDate\":\"d\",\"os\":" +
                  os +
                  u",\"installId\":\"id-1\",\"hostApp\":\"wps\",\"hostAppVersion\":\"12.1\","
                  u"\"hostAppName\":\"WPS \\\"Presentation\\\"\",\"capabilities\":{"
                  u"\"pptBilingualSlides\":true,\"targetFontBold\":false}}");
}

TEST(ClientContextTest, OnlyASpreadsheetHostIsTheExcelChannel) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"ppt", u"word"}, {u"wps", u"word"}, {u"excel", u"excel"}, {u"wps-excel", u"excel"}};
    for (const auto& [app, channel] : cases) {
        ScopedHostIdentity host({app, u"1", u"n"});
        EXPECT_EQ(ReadJsonString(BuildClientContext(), u"channel"), channel) << Utf16ToUtf8(app);
    }
}

TEST(ClientContextTest, TheOsStringNamesTheSystemAndItsArchitecture) {
    const std::string os = Utf16ToUtf8(GetOsString());
#if defined(_WIN32)
    EXPECT_TRUE(
        std::regex_match(os, std::regex("Windows_NT (x86|x64|arm64) [0-9]+\\.[0-9]+\\.[0-9]+")))
        << os;
#else
    EXPECT_TRUE(std::regex_match(os, std::regex("[A-Za-z]+ [A-Za-z0-9_]+ .+"))) << os;
#endif
}

}  // namespace
}  // namespace qb
