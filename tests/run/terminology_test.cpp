// The resolve reply as the run's instruction and glossary, from every shape
// of reply a service or a broken network can give.
#include <gtest/gtest.h>

#include "run/terminology.h"

namespace qb {
namespace {

struct ReplyCase {
    const char* label;
    std::u16string reply;
    std::u16string instruction;
    std::vector<std::u16string> sources;  // of the glossary items, in order
};

TEST(TerminologyTest, RepliesBecomeInstructionAndEnabledTerms) {
    const std::vector<ReplyCase> cases = {
        {"one enabled, one disabled",
         u"{\"instruction\":\"Formal\",\"entries\":[{\"source\":\"a\",\"target\":\"A\",\"note\":"
         u"\"\","
         u"\"enabled\":true},{\"source\":\"b\",\"target\":\"B\",\"enabled\":false}]}",
         u"Formal",
         {u"a"}},
        {"instruction only", u"{\"instruction\":\"Short\"}", u"Short", {}},
        {"entry without target dropped",
         u"{\"entries\":[{\"source\":\"a\"},{\"source\":\"c\",\"target\":\"C\"}]}",
         u"",
         {u"c"}},
        {"error body", u"{\"error\":{\"code\":\"bad_request\",\"message\":\"no\"}}", u"", {}},
        {"garbage", u"<html>502 Bad Gateway", u"", {}},
        {"truncated: the scanner keeps what arrived", u"{\"instruction\":\"Form", u"Form", {}},
    };
    for (const ReplyCase& c : cases) {
        SCOPED_TRACE(c.label);
        std::u16string instruction = u"stale";
        std::vector<TranslationGlossaryItem> glossary;
        ApplyTerminology(ParseTerminologyReply(c.reply), instruction, glossary);
        EXPECT_EQ(instruction, c.instruction);
        std::vector<std::u16string> sources;
        for (const auto& item : glossary)
            sources.push_back(item.source);
        EXPECT_EQ(sources, c.sources);
    }
}

TEST(TerminologyTest, BodyKeepsItsKeyOrderAndEmptyInputs) {
    EXPECT_EQ(BuildTerminologyBody({}, u"", {u"Hi \"you\""}),
              u"{\"glossaryIds\":[],\"instructionId\":\"\",\"corpusTexts\":[\"Hi \\\"you\\\"\"],"
              u"\"maxEntries\":200}");
}

}  // namespace
}  // namespace qb
