// The glossary and instruction files as the user's other program leaves them,
// read through the public listing, loading and snapshot operations.
#include <gtest/gtest.h>

#include <algorithm>

#include "foundation/platform.h"
#include "run/json.h"
#include "run/local_stores.h"
#include "run/terminology.h"
#include "support/temp_dir.h"

namespace qb {
namespace {

class LocalStoresTest : public ::testing::Test {
  protected:
    void SetUp() override {
        platform::SetKnownFolderForTesting(platform::KnownFolder::RoamingAppData, dir_.Path());
    }
    void TearDown() override {
        platform::SetKnownFolderForTesting(platform::KnownFolder::RoamingAppData, u"");
    }
    void WriteGlossary(std::u16string_view name, std::string_view bytes) {
        test::WriteFileBytes(platform::JoinPath(GlossaryDirectory(), name), bytes);
    }
    void WriteInstruction(std::u16string_view name, std::string_view bytes) {
        test::WriteFileBytes(platform::JoinPath(InstructionDirectory(), name), bytes);
    }
    test::TempDir dir_;
};

TEST_F(LocalStoresTest, NoFilesGiveAnEmptySnapshotAndCreateTheFolders) {
    EXPECT_EQ(ExportLocalSnapshot(), u"{\"glossaries\":[],\"instructions\":[]}");
    platform::FileInfo info;
    ASSERT_TRUE(platform::GetFileInfo(GlossaryDirectory(), info));
    EXPECT_TRUE(info.isDirectory);
    EXPECT_TRUE(ListJsonStems(u"").empty());
}

struct GlossaryCase {
    const char* label;
    std::string bytes;
    bool listed;
    std::u16string id, name;
    std::int32_t count;
};

TEST_F(LocalStoresTest, GlossaryFilesOfEveryShape) {
    const std::vector<GlossaryCase> cases = {
        {"meta and entries",
         R"({"meta":{"id":"g1","name":"Legal","updatedAt":"t1"},"entries":[)"
         R"({"source":"board","target":"BOARD","note":"n"},{"source":"x","enabled":false}]})",
         true, u"g1", u"Legal", 1},
        {"bom, no meta, top-level name",
         "\xEF\xBB\xBF{\"name\":\"Plain\",\"entries\":[{\"source\":\"a\",\"target\":\"b\"}]}", true,
         u"stem2", u"Plain", 1},
        {"damaged: cut in the middle",
         R"({"meta":{"id":"g3","name":"Cut"},"entries":[{"source":"a",)", true, u"g3", u"Cut", 0},
        {"empty file", "", false, u"", u"", 0},
        {"not UTF-8", "{\"name\":\"\xFF\xFE\"}", false, u"", u"", 0},
    };
    int n = 0;
    for (const GlossaryCase& c : cases) {
        SCOPED_TRACE(c.label);
        const std::u16string stem = u"stem" + std::u16string(1, static_cast<char16_t>(u'0' + ++n));
        WriteGlossary(stem + u".json", c.bytes);
        bool found = false;
        for (const GlossaryRecord& record : ListGlossaries()) {
            if (record.id != (c.id == u"stem2" ? stem : c.id) || !c.listed) continue;
            found = true;
            EXPECT_EQ(record.name, c.name);
            EXPECT_EQ(record.entryCount, c.count);
            EXPECT_TRUE(record.entries.empty());
        }
        EXPECT_EQ(found, c.listed);
        GlossaryRecord loaded;
        EXPECT_EQ(LoadGlossary(stem, loaded), c.listed);
        platform::RemoveFile(platform::JoinPath(GlossaryDirectory(), stem + u".json"));
    }
}

TEST_F(LocalStoresTest, SnapshotKeepsDisabledEntriesAndLeavesOutMismatchedIdsAndOddNames) {
    WriteGlossary(u"g.json", R"({"meta":{"id":"g","name":"N","updatedAt":"u"},"entries":[)"
                             R"({"source":"s","target":"t","note":"q","enabled":false}]})");
    WriteGlossary(u"a.json", R"({"meta":{"id":"b","name":"Other"},"entries":[]})");
    WriteGlossary(u"abc.JSON", R"({"meta":{"id":"abc"}})");
    WriteInstruction(
        u"i.json", "\xEF\xBB\xBF{\"name\":\"Tone\",\"content\":\"Be brief\",\"updatedAt\":\"u2\"}");
    test::MakeFileOfSize(platform::JoinPath(InstructionDirectory(), u"huge.json"),
                         kMaxTextFileBytes + 1);

    std::vector<std::u16string> ids;
    for (const GlossaryRecord& record : ListGlossaries())
        ids.push_back(record.id);
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(ids, (std::vector<std::u16string>{u"b", u"g"}));

    EXPECT_EQ(ExportLocalSnapshot(),
              u"{\"glossaries\":[{\"id\":\"g\",\"name\":\"N\",\"updatedAt\":\"u\",\"entries\":["
              u"{\"source\":\"s\",\"target\":\"t\",\"note\":\"q\",\"enabled\":false}]}],"
              u"\"instructions\":[{\"id\":\"i\",\"name\":\"Tone\",\"content\":\"Be brief\","
              u"\"updatedAt\":\"u2\"}]}");
}

}  // namespace
}  // namespace qb
