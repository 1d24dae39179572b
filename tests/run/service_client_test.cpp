// The translate client: the request body it writes, how it reads every kind
// of reply, and (on every build, WinHTTP included) a real exchange with the
// stand-in service over the loopback address.
#include <gtest/gtest.h>

#include <memory>

#include "foundation/text.h"
#include "run/client_identity.h"
#include "run/json.h"
#include "run/service_client.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_host.h"
#include "sim/service/pseudo_translate.h"
#include "slides/automation.h"
#include "support/service_endpoint.h"

#if !defined(_WIN32)
#include "sim/service/stand_in_service.h"
#endif

namespace qb {
namespace {

TranslateBatchRequest Request(std::vector<std::u16string> texts) {
    TranslateBatchRequest request;
    request.texts = std::move(texts);
    request.sourceLang = u"auto";
    request.targetLang = u"de";
    return request;
}

// Everything before the client context, which names this machine.
std::u16string BodyHead(const TranslateBatchRequest& request) {
    const std::u16string body = BuildTranslateBody(request);
    const std::size_t cut = body.find(u",\"clientContext\":");
    EXPECT_NE(cut, std::u16string::npos);
    EXPECT_EQ(body.substr(cut), u",\"clientContext\":" + BuildClientContext() + u"}");
    return body.substr(0, cut);
}

TEST(TranslateBodyTest, KeysComeInTheirFixedOrderAndOnlyWhenSet) {
    TranslateBatchRequest minimal = Request({u"a"});
    minimal.usageKind.clear();
    EXPECT_EQ(BodyHead(minimal),
              u"{\"texts\":[\"a\"],\"sourceLang\":\"auto\",\"targetLang\":\"de\"");

    TranslateBatchRequest full = Request({u"a", u"b"});
    full.unitIds = {u"u1", u"u2"};
    full.usageKind = u"translate_full";
    full.clientProduct = u"ppt";
    full.glossary = {{u"Umsatz", u"revenue", u""}, {u"Q\"1", u"first", u"a \\ note"}};
    full.instruction = u"Be brief";
    full.clientTraceId = u"t-1";
    full.runId = 1234567890123ull;
    full.batchSeq = 3;
    EXPECT_EQ(BodyHead(full),
              u"{\"texts\":[\"a\",\"b\"],\"unitIds\":[\"u1\",\"u2\"],\"sourceLang\":\"auto\","
              u"\"targetLang\":\"de\",\"usageKind\":\"translate_full\",\"clientProduct\":\"ppt\","
              u"\"glossary\":[{\"source\":\"Umsatz\",\"target\":\"revenue\"},{\"source\":"
              u"\"Q\\\"1\",\"target\":\"first\",\"note\":\"a \\\\ note\"}],\"instruction\":\"Be "
              u"brief\",\"trace\":{\"clientTraceId\":\"t-1\",\"runId\":\"1234567890123\","
              u"\"batchSeq\":3}");
}

TEST(TranslateBodyTest, TextsAreEscapedAndLanguageCodesGoInUnchanged) {
    TranslateBatchRequest request = Request({u"say \"hi\"\\ now\nthen\x01 \u4e2d"});
    request.targetLang = u"zh-CN";
    request.usageKind.clear();
    EXPECT_EQ(BodyHead(request),
              u"{\"texts\":[\"say \\\"hi\\\"\\\\ now\\nthen\\u0001 \u4e2d\"],\"sourceLang\":"
              u"\"auto\",\"targetLang\":\"zh-CN\"");
}

TEST(TranslateBodyTest, TheTraceHoldsOnlyWhatIsSet) {
    struct Case {
        std::u16string traceId;
        std::uint64_t runId;
        std::uint32_t batchSeq;
        std::u16string expected;  // the tail after the languages
    };
    const Case cases[] = {
        {u"", 0, 0, u""},
        {u"", 42, 0, u",\"trace\":{\"runId\":\"42\"}"},
        {u"", 0, 5, u",\"trace\":{\"batchSeq\":5}"},
        {u"x", 0, 0, u",\"trace\":{\"clientTraceId\":\"x\"}"},
    };
    for (const Case& c : cases) {
        TranslateBatchRequest request = Request({u"a"});
        request.usageKind.clear();
        request.clientTraceId = c.traceId;
        request.runId = c.runId;
        request.batchSeq = c.batchSeq;
        EXPECT_EQ(BodyHead(request),
                  u"{\"texts\":[\"a\"],\"sourceLang\":\"auto\",\"targetLang\":\"de\"" + c.expected)
            << Utf16ToUtf8(c.expected);
    }
}

TEST(TranslateReplyTest, EveryKindOfReplyGivesItsCodeAndMessage) {
    struct Case {
        const char* name;
        std::u16string reply;
        std::uint32_t status;
        std::u16string transportError;
        bool ok;
        std::u16string code;
        std::u16string message;
    };
    const std::u16string credits = u"\u79ef\u5206\u4e0d\u8db3";
    const Case cases[] = {
        {"401 without a body", u"", 401, u"HTTP request failed", false, u"unauthorized",
         kUnauthorizedMessage},
        {"402 without a body", u"", 402, u"", false, u"insufficient_credits",
         kInsufficientCreditsMessage},
        {"no reply, transport text", u"", 0, u"WinHttpConnect failed", false, u"network_error",
         u"WinHttpConnect failed"},
        {"no reply, no text", u"", 500, u"", false, u"network_error", u"HTTP request failed"},
        {"401 with its own words", u"{\"code\":\"token_expired\",\"message\":\"expired\"}", 401,
         u"", false, u"token_expired", u"expired"},
        {"401 with a message only", u"{\"message\":\"go away\"}", 401, u"", false, u"unauthorized",
         u"go away"},
        {"402 with an error only", u"{\"error\":\"no money\"}", 402, u"", false, u"no money",
         u"no money"},
        {"empty translations", u"{\"translations\":[]}", 200, u"", false, u"",
         u"Empty translation response"},
        {"credits in the message", u"{\"message\":\"" + credits + u"\"}", 200, u"", false,
         u"insufficient_credits", credits},
        {"credits word in the message", u"{\"message\":\"insufficient_credits: top up\"}", 500, u"",
         false, u"insufficient_credits", u"insufficient_credits: top up"},
        {"500 with a service word", u"{\"code\":\"overloaded\",\"message\":\"busy\"}", 500, u"",
         false, u"overloaded", u"busy"},
        {"500 with a body of neither", u"{\"detail\":\"x\"}", 500, u"", false, u"",
         u"Empty translation response"},
        {"too few translations", u"{\"translations\":[\"A\"]}", 200, u"", false, u"",
         u"Translation count mismatch"},
        {"translations whatever the status", u"{\"translations\":[\"A\",\"B\"]}", 500, u"", true,
         u"", u""},
    };
    for (const Case& c : cases) {
        const TranslateBatchResult result =
            ReadTranslateReply(c.reply, c.status, c.transportError, 2);
        EXPECT_EQ(result.ok, c.ok) << c.name;
        EXPECT_EQ(Utf16ToUtf8(result.code), Utf16ToUtf8(c.code)) << c.name;
        EXPECT_EQ(Utf16ToUtf8(result.message), Utf16ToUtf8(c.message)) << c.name;
        if (!c.ok) {
            EXPECT_TRUE(result.translations.empty()) << c.name;
        }
    }
}

TEST(TranslateReplyTest, UnitIdsCountOnlyWhenThereAreAsManyAsTranslations) {
    const TranslateBatchResult matching = ReadTranslateReply(
        u"{\"translations\":[\"A\",\"B\"],\"unitIds\":[\"1\",\"2\"]}", 200, u"", 2);
    EXPECT_TRUE(matching.ok);
    EXPECT_EQ(matching.unitIds, (std::vector<std::u16string>{u"1", u"2"}));
    const TranslateBatchResult shorter =
        ReadTranslateReply(u"{\"translations\":[\"A\",\"B\"],\"unitIds\":[\"1\"]}", 200, u"", 2);
    EXPECT_TRUE(shorter.ok);
    EXPECT_EQ(shorter.translations, (std::vector<std::u16string>{u"A", u"B"}));
    EXPECT_TRUE(shorter.unitIds.empty());
}

TEST(ServiceUrlTest, TheSchemesDefaultPortIsLeftOut) {
    struct Case {
        HttpEndpoint endpoint;
        std::u16string path;
        std::u16string url;
    };
    const Case cases[] = {
        {{u"svc.example", 443, true}, u"/v1/translate", u"https://svc.example/v1/translate"},
        {{u"svc.example", 8443, true}, u"panel/ppt/", u"https://svc.example:8443/panel/ppt/"},
        {{u"127.0.0.1", 80, false}, u"/x", u"http://127.0.0.1/x"},
        {{u"127.0.0.1", 443, false}, u"/x", u"http://127.0.0.1:443/x"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(BuildServiceUrl(c.endpoint, c.path), c.url);
}

TEST(DocKeyTest, TheKeyIsTheFnv1aOfTheLowerCasedUnits) {
    // Known FNV-1a 64 values: units below 256 hash as the bytes would.
    EXPECT_EQ(DocKeyFromFullName(u""), u"cbf29ce484222325");
    EXPECT_EQ(DocKeyFromFullName(u"a"), u"af63dc4c8601ec8c");
    EXPECT_EQ(DocKeyFromFullName(u"foobar"), u"85944171f73967e8");
    EXPECT_EQ(DocKeyFromFullName(u"FooBar"), u"85944171f73967e8");
    // One step a 16-bit unit: not the hash of the UTF-8 bytes.
    EXPECT_NE(DocKeyFromFullName(u"\u4e2d"), DocKeyFromFullName(u"\u00e4\u00b8\u00ad"));
    EXPECT_EQ(ReadDocKey(nullptr), u"_no_doc");
}

TEST(DocKeyTest, APresentationIsKeyedByItsFullNameOrCalledUnsaved) {
    sim::SimHost host;
    sim::DeckBuilder b;
    b.Slide().Text(u"Title", u"Hello");
    auto deck = host.AddPresentation(b.Build());
    host::HostRef presentation;
    ASSERT_TRUE(
        SUCCEEDED(host::GetObject(host.Application(), u"ActivePresentation", presentation)));
    deck->fullName.clear();
    EXPECT_EQ(ReadDocKey(presentation), u"_unsaved");
    deck->fullName = u"C:\\Decks\\Q3.PPTX";
    EXPECT_EQ(ReadDocKey(presentation), DocKeyFromFullName(u"c:\\decks\\q3.pptx"));
    EXPECT_NE(ReadDocKey(presentation), DocKeyFromFullName(u"c:\\decks\\q4.pptx"));
}

TEST(HttpPostJsonTest, ACancelBeforeTheRequestSendsNothing) {
    std::atomic<std::uint8_t> cancelled{1}, paused{1};
    std::u16string error = u"stale";
    std::uint32_t status = 99;
    // A port nothing listens on: a request that went out would say so.
    test::ScopedServiceEndpoint endpoint(1);
    EXPECT_TRUE(HttpPostJson(HttpEndpoint(), kTranslatePath, "{}", &error, nullptr, &cancelled,
                             &paused, &status)
                    .empty());
    EXPECT_EQ(error, u"Cancelled");
    EXPECT_EQ(status, 0u);
}

TEST(HttpPostJsonTest, NoServerGivesTheTransportsFailure) {
    test::ScopedServiceEndpoint endpoint(1);
    std::u16string error;
    std::uint32_t status = 99;
    EXPECT_TRUE(HttpPostJson(HttpEndpoint(), kTranslatePath, "{}", &error, nullptr, nullptr,
                             nullptr, &status)
                    .empty());
    EXPECT_EQ(error, u"HTTP request failed");
    EXPECT_EQ(status, 0u);
    TranslateClientConfig config;
    const TranslateBatchResult result = TranslateNative(config, Request({u"a"}));
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.code, u"network_error");
    EXPECT_EQ(result.message, u"HTTP request failed");
}

// A real exchange with the stand-in service: in process natively, the
// standalone one under Wine.
class LoopbackServiceTest : public testing::Test {
  protected:
    void SetUp() override {
#if defined(_WIN32)
        port_ = test::StandInPortFromEnvironment();
        if (port_ == 0) GTEST_SKIP() << "no stand-in service: QB_STAND_IN_PORT is not set";
#else
        service_ = std::make_unique<sim::StandInService>();
        ASSERT_TRUE(service_->Start());
        port_ = static_cast<std::uint16_t>(service_->Port());
#endif
        config_.accessToken = u"stand-in-token";
        config_.targetLang = u"de";
    }

    TranslateBatchResult Translate(std::vector<std::u16string> texts) {
        TranslateBatchRequest request = Request(std::move(texts));
        request.targetLang = config_.targetLang;
        return TranslateNative(config_, request);
    }

    std::uint16_t port_ = 0;
    TranslateClientConfig config_;
#if !defined(_WIN32)
    std::unique_ptr<sim::StandInService> service_;
#endif
};

TEST_F(LoopbackServiceTest, ARealRequestComesBackTranslated) {
    test::ScopedServiceEndpoint endpoint(port_);
    const std::vector<std::u16string> texts = {u"Quarterly \"report\"", u"Revenue [[QB_A_12]] grew",
                                               u"\u4e2d\u6587 and more"};
    const TranslateBatchResult result = Translate(texts);
    ASSERT_TRUE(result.ok) << Utf16ToUtf8(result.code) << " " << Utf16ToUtf8(result.message);
    ASSERT_EQ(result.translations.size(), texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i)
        EXPECT_EQ(result.translations[i], sim::PseudoTranslate(texts[i], u"de"));
}

TEST_F(LoopbackServiceTest, AnotherTokenIsRefusedAsUnauthorized) {
    test::ScopedServiceEndpoint endpoint(port_);
    config_.accessToken = u"not-the-token";
    const TranslateBatchResult result = Translate({u"Hello"});
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.code, u"unauthorized");
    EXPECT_EQ(result.message, kUnauthorizedMessage);
}

TEST_F(LoopbackServiceTest, NoAnswerWithinTheTimeOutIsANetworkError) {
    test::ScopedServiceEndpoint endpoint(port_, 800);
    const TranslateBatchResult result = Translate({u"Hello @fault:never"});
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.code, u"network_error");
    EXPECT_EQ(result.message, u"HTTP request failed");
}

TEST_F(LoopbackServiceTest, FaultsOfTheServiceGiveTheirCodeAndMessage) {
    struct Case {
        const char16_t* text;
        std::u16string code;
        std::u16string message;
    };
    const Case cases[] = {
        {u"x @fault:402", u"insufficient_credits", kInsufficientCreditsMessage},
        {u"x @fault:500", u"network_error", u"HTTP request failed"},
        {u"x @fault:429", u"network_error", u"HTTP request failed"},
        {u"x @fault:drop", u"network_error", u"HTTP request failed"},
        {u"x @fault:count", u"", u"Translation count mismatch"},
    };
    test::ScopedServiceEndpoint endpoint(port_, 5000);
    for (const Case& c : cases) {
        const TranslateBatchResult result = Translate({c.text});
        EXPECT_FALSE(result.ok) << Utf16ToUtf8(c.text);
        EXPECT_EQ(Utf16ToUtf8(result.code), Utf16ToUtf8(c.code)) << Utf16ToUtf8(c.text);
        EXPECT_EQ(Utf16ToUtf8(result.message), Utf16ToUtf8(c.message)) << Utf16ToUtf8(c.text);
    }
}

}  // namespace
}  // namespace qb
