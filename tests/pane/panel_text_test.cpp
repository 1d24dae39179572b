// The panel's texts without a pane: URLs, the page a URL shows, event
// objects, and the exact scripts and messages the page receives.
#include <gtest/gtest.h>

#include "foundation/text.h"
#include "pane/panel_text.h"

namespace qb {
namespace {

std::string U8(const std::u16string& text) {
    return Utf16ToUtf8(text);
}

TEST(PanelTextTest, PageUrlsCarryTheirQueryKeysInOrder) {
    const struct {
        const char* name;
        PanelUrlParts parts;
        std::u16string url;
    } cases[] = {
        {"translate page",
         {u"svc.example", 443, true, u"translate", 77, false, 1, u"full", u"en"},
         u"https://svc.example/panel/ppt/?_=77&host=ppt&pane=ppt1&mode=full&uiLang=en"},
        {"empty page is the translate page, WPS host",
         {u"svc.example", 443, true, u"", 5, true, 3, u"slide", u"zh-CN"},
         u"https://svc.example/panel/ppt/?_=5&host=wps-ppt&pane=ppt3&mode=slide&uiLang=zh-CN"},
        {"glossary page, no pane number",
         {u"svc.example", 443, true, u"glossary", 9, false, 0, u"full", u"ja"},
         u"https://svc.example/panel/ppt/glossary.html?_=9&host=ppt&mode=full&uiLang=ja"},
        {"negative pane number",
         {u"svc.example", 443, true, u"login", 9, false, -2, u"full", u"en"},
         u"https://svc.example/panel/ppt/login.html?_=9&host=ppt&mode=full&uiLang=en"},
        {"plain http on its default port",
         {u"127.0.0.1", 80, false, u"support", 1, false, 2, u"full", u"en"},
         u"http://127.0.0.1/panel/ppt/support.html?_=1&host=ppt&pane=ppt2&mode=full&uiLang=en"},
        {"another port is named",
         {u"127.0.0.1", 8443, true, u"translate", 1, false, 0, u"selection", u"en"},
         u"https://127.0.0.1:8443/panel/ppt/?_=1&host=ppt&mode=selection&uiLang=en"},
        {"443 is no default for http",
         {u"h", 443, false, u"translate", 1, false, 0, u"full", u"en"},
         u"http://h:443/panel/ppt/?_=1&host=ppt&mode=full&uiLang=en"},
        {"tick above 2^32",
         {u"h", 443, true, u"translate", 5000000000ull, false, 0, u"full", u"en"},
         u"https://h/panel/ppt/?_=5000000000&host=ppt&mode=full&uiLang=en"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(U8(BuildPanelUrl(c.parts)), U8(c.url));
    }
}

TEST(PanelTextTest, TheViewsUrlMapsToItsPage) {
    const struct {
        std::u16string url;
        bool found;
        std::u16string page;
    } cases[] = {
        {u"https://h/panel/ppt/?_=1&host=ppt", true, u"translate"},
        {u"https://h/panel/ppt/support.html?x=1", true, u"support"},
        {u"https://h/panel/ppt/GLOSSARY.HTML", true, u"glossary"},
        {u"https://h/panel/ppt/instruction.html/", true, u"instruction"},
        {u"https://h/panel/ppt/account.html", true, u"account"},
        {u"https://h/panel/ppt/login.html?next=/panel/ppt/support.html", true, u"login"},
        {u"https://h/panel/word", true, u"translate"},
        {u"https://h/panel/excel///", true, u"translate"},
        {u"https://h/panel", true, u"translate"},
        {u"https://h/panel/ppt/other.html", true, u"translate"},
        {u"about:blank", false, u""},
        {u"", false, u""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(U8(c.url));
        std::u16string page = u"unchanged";
        EXPECT_EQ(PageFromSource(c.url, page), c.found);
        EXPECT_EQ(U8(page), c.found ? U8(c.page) : "unchanged");
    }
    EXPECT_EQ(PageFromPath(u""), u"translate");
    EXPECT_EQ(PageFromPath(u"/"), u"translate");
}

TEST(PanelTextTest, EventObjectsKeepTheirKeyOrderAndStayValidJson) {
    const std::u16string hostile = u"a\"b\\c\nd\re\tf\x01g";
    EXPECT_EQ(U8(ProgressEvent(12345, 7, 40, false, hostile, u"\u8bd1")),
              U8(u"{\"runId\":12345,\"wordIndex\":7,\"total\":40,\"skipped\":false,"
                 u"\"original\":\"a\\\"b\\\\c\\nd\\re\\tf\\u0001g\",\"translated\":\"\u8bd1\"}"));
    EXPECT_EQ(U8(ProgressEvent(1, 1, 1, true, u"x", u"x")),
              "{\"runId\":1,\"wordIndex\":1,\"total\":1,\"skipped\":true,\"original\":\"x\","
              "\"translated\":\"x\"}");
    EXPECT_EQ(U8(RunIdEvent(18446744073709551615ull)), "{\"runId\":18446744073709551615}");
    EXPECT_EQ(U8(ScanProgressEvent(3, 2, 9, u"slides")),
              "{\"runId\":3,\"current\":2,\"total\":9,\"phase\":\"slides\"}");
    EXPECT_EQ(U8(ScanProgressEvent(3, 0, 0, u"")),
              "{\"runId\":3,\"current\":0,\"total\":0,\"phase\":\"\"}");
    EXPECT_EQ(U8(ReadyEvent(3, 5, 5)), "{\"runId\":3,\"total\":5,\"translatable\":5}");
    EXPECT_EQ(U8(CompleteEvent(9, 0, 0, false)),
              "{\"runId\":9,\"elapsed\":0,\"total\":0,\"bilingualCopy\":false}");
    EXPECT_EQ(U8(CompleteEvent(9, 4294967296ll * 3, 2, true)),
              "{\"runId\":9,\"elapsed\":12884901888,\"total\":2,\"bilingualCopy\":true}");
    EXPECT_EQ(U8(ErrorEvent(9, u"collect_failed", u"\"no\"")),
              "{\"runId\":9,\"code\":\"collect_failed\",\"message\":\"\\\"no\\\"\"}");
}

TEST(PanelTextTest, ScriptsAndMessagesAreExactlyTheProtocolsTexts) {
    EXPECT_EQ(U8(PanelCallScript(u"onReady", u"{\"runId\":1}")),
              "window.onReady&&window.onReady({\"runId\":1})");
    EXPECT_EQ(U8(SetModeMessage(u"slide")), "{\"action\":\"setMode\",\"mode\":\"slide\"}");
    EXPECT_EQ(U8(AccessTokenMessage(u"t\"k")),
              "{\"action\":\"accessToken\",\"accessToken\":\"t\\\"k\"}");
    EXPECT_EQ(U8(UiLangChangedMessage(u"de")), "{\"action\":\"uiLangChanged\",\"uiLang\":\"de\"}");
    EXPECT_EQ(U8(FontListMessage({u"Arial", u"Sim\"Sun"})),
              "{\"action\":\"fontList\",\"fonts\":[\"Arial\",\"Sim\\\"Sun\"]}");
    EXPECT_EQ(U8(FontListMessage({})), "{\"action\":\"fontList\",\"fonts\":[]}");
    EXPECT_EQ(U8(TranslateAbortForRunMessage(42)),
              "{\"action\":\"translateAbortForRun\",\"runId\":42}");
    EXPECT_EQ(U8(LocalQueryScript(u"r1", u"{\"uiLang\":\"en\"}")),
              "if(window.QuillbrookTerminology)QuillbrookTerminology._onResponse({\"requestId\":"
              "\"r1\",\"ok\":true,\"data\":{\"uiLang\":\"en\"}})");
    EXPECT_EQ(U8(LocalQueryScript(u"", u"")),
              "if(window.QuillbrookTerminology)QuillbrookTerminology._onResponse({\"requestId\":"
              "\"\",\"ok\":true,\"data\":null})");
    SelectionPreview none;
    EXPECT_EQ(
        U8(SelectionPreviewScript(none)),
        "if(window.onSelectionPreview)onSelectionPreview({fragments:0,chars:0,pptEmpty:true})");
    SelectionPreview some{false, 3, 0, u"\u5df2\u9009 3 \u9875"};
    EXPECT_EQ(U8(SelectionPreviewScript(some)),
              U8(u"if(window.onSelectionPreview)onSelectionPreview({fragments:3,chars:0,"
                 u"pptEmpty:false,label:\"\u5df2\u9009 3 \u9875\"})"));
    EXPECT_EQ(U8(SelectionPreviewFailedScript()),
              U8(u"if(window.onSelectionPreview)onSelectionPreview({error:\"\u65e0\u6cd5\u8bfb"
                 u"\u53d6\u9009\u533a\",pptEmpty:true})"));
}

TEST(PanelTextTest, BridgeRequestsNameOnlyWhatTheyHave) {
    TranslateBatchRequest request;
    request.texts = {u"Hello", u"a\"b"};
    request.unitIds = {u"shapes[1].p1", u"shapes[2].p1"};
    request.sourceLang = u"auto";
    request.targetLang = u"de";
    request.usageKind = u"translate_full";
    request.clientProduct = u"ppt";
    request.runId = 99;
    EXPECT_EQ(U8(TranslateBatchRequestMessage(u"ppttr_2", request)),
              "{\"action\":\"translateBatchRequest\",\"requestId\":\"ppttr_2\",\"runId\":99,"
              "\"batchSeq\":0,\"sourceLang\":\"auto\",\"targetLang\":\"de\",\"usageKind\":"
              "\"translate_full\",\"clientProduct\":\"ppt\",\"texts\":[\"Hello\",\"a\\\"b\"],"
              "\"unitIds\":[\"shapes[1].p1\",\"shapes[2].p1\"]}");
    request.unitIds.clear();
    request.glossary = {{u"Hello", u"Hallo", u""}, {u"b", u"B", u"note"}};
    request.instruction = u"formal";
    request.clientTraceId = u"ppt_99";
    EXPECT_EQ(U8(TranslateBatchRequestMessage(u"ppttr_3", request)),
              "{\"action\":\"translateBatchRequest\",\"requestId\":\"ppttr_3\",\"runId\":99,"
              "\"batchSeq\":0,\"sourceLang\":\"auto\",\"targetLang\":\"de\",\"usageKind\":"
              "\"translate_full\",\"clientProduct\":\"ppt\",\"texts\":[\"Hello\",\"a\\\"b\"],"
              "\"unitIds\":[],\"glossary\":[{\"source\":\"Hello\",\"target\":\"Hallo\"},"
              "{\"source\":\"b\",\"target\":\"B\",\"note\":\"note\"}],\"instruction\":\"formal\","
              "\"clientTraceId\":\"ppt_99\"}");
    EXPECT_EQ(U8(TerminologyResolveRequestMessage(u"pptterm_1", {u"g1", u"g2"}, u"i1", {u"x"})),
              "{\"action\":\"terminologyResolveRequest\",\"requestId\":\"pptterm_1\","
              "\"glossaryIds\":[\"g1\",\"g2\"],\"instructionId\":\"i1\",\"corpusTexts\":[\"x\"]}");
}

TEST(PanelTextTest, PassableTerminologyFailuresAreExactlyTheEightCodes) {
    for (const char16_t* code : {u"cancelled", u"aborted", u"AbortError", u"request_timeout",
                                 u"webview_navigating", u"webview_unavailable", u"401", u"402"}) {
        EXPECT_TRUE(IsPassableTerminologyFailure(code)) << U8(code);
    }
    for (const char16_t* code : {u"", u"Cancelled", u"abortError", u"500", u"403",
                                 u"internal_error", u"unauthorized", u"401 "}) {
        EXPECT_FALSE(IsPassableTerminologyFailure(code)) << U8(code);
    }
}

}  // namespace
}  // namespace qb
