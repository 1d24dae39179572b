// The pane over the stand-in service on the loopback address, both roads:
// the worker posting itself with the token the run copied, and the page
// calling the service for each batch the bridge hands it. Nothing here is
// faked between the pane's message and the service's answer.
#include "pane/pane_fixture.h"
#include "run/json.h"
#include "run/service_client.h"
#include "sim/service/pseudo_translate.h"
#include "sim/service/stand_in_service.h"
#include "support/service_endpoint.h"

namespace qb::test {
namespace {

class PaneServiceTest : public PaneFixture {
  protected:
    void SetUp() override {
        PaneFixture::SetUp();
        ASSERT_TRUE(service.Start());
        endpoint = std::make_unique<ScopedServiceEndpoint>(
            static_cast<std::uint16_t>(service.Port()), 5000);
    }
    void TearDown() override {
        PaneFixture::TearDown();
        endpoint.reset();
        service.Stop();
    }
    std::string Pseudo(const char16_t* text, const char16_t* lang) {
        return U8(sim::PseudoTranslate(text, lang));
    }
    void ExpectDeckTranslatedTo(const char16_t* lang) {
        EXPECT_EQ(U8(FrameText(1, 1)), Pseudo(u"Quarterly report", lang));
        EXPECT_EQ(U8(FrameText(1, 2)),
                  Pseudo(u"Sales grew", lang) + "\r" + Pseudo(u"Costs fell", lang));
        EXPECT_EQ(U8(FrameText(2, 1)), Pseudo(u"Outlook", lang));
        EXPECT_EQ(U8(FrameText(3, 1)), Pseudo(u"Next steps", lang));
    }

    sim::StandInService service;
    std::unique_ptr<ScopedServiceEndpoint> endpoint;
};

struct RoadCase {
    const char* name;
    const char16_t* start;
    bool pageCallsService;
    std::size_t pageBatches;  // translateBatchRequests the page saw
};

class PaneServiceRoadTest : public PaneServiceTest, public testing::WithParamInterface<RoadCase> {};

TEST_P(PaneServiceRoadTest, ARunSignedInOnThePageIsTranslatedByTheServiceWithThatToken) {
    const RoadCase& c = GetParam();
    MakePane();
    page->UseService(c.pageCallsService);
    page->SignIn(u"stand-in-token");
    page->Start(c.start);
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->CountEvents(u"onComplete"), 1u);
    ExpectDeckTranslatedTo(u"fr");
    EXPECT_EQ(page->BatchRequests().size(), c.pageBatches);
    const auto batches = service.RequestsTo("/v1/translate");
    ASSERT_EQ(batches.size(), 3u);  // one a slide
    for (const auto& request : batches) {
        EXPECT_EQ(request.authorization, "Bearer stand-in-token");
        EXPECT_EQ(request.status, 200);
    }
}

TEST_P(PaneServiceRoadTest, AGlossaryAndAnInstructionAreResolvedOnceAndReachTheSlides) {
    const RoadCase& c = GetParam();
    service.AddTerm(u"g1", {u"Outlook", u"AUSBLICK", u"", true});
    service.AddTerm(u"g1", {u"Costs", u"KOSTEN", u"", false});
    service.SetInstruction(u"i1", u"Keep it short");
    MakePane();
    page->UseService(c.pageCallsService);
    page->SignIn(u"stand-in-token");
    std::u16string start = c.start;
    start.insert(start.size() - 1, u",\"glossaryIds\":[\"g1\"],\"globalInstructionId\":\"i1\"");
    page->Start(start);
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->CountEvents(u"onComplete"), 1u);
    EXPECT_EQ(U8(FrameText(2, 1)), "AUSBLICK");
    // The disabled term is not applied.
    EXPECT_EQ(U8(FrameText(1, 2)),
              Pseudo(u"Sales grew", u"fr") + "\r" + Pseudo(u"Costs fell", u"fr"));
    const auto resolves = service.RequestsTo("/v1/terminology/resolve");
    ASSERT_EQ(resolves.size(), 1u);
    EXPECT_NE(resolves[0].body.find("\"glossaryIds\":[\"g1\"],\"instructionId\":\"i1\""),
              std::string::npos);
    for (const auto& request : service.RequestsTo("/v1/translate")) {
        EXPECT_NE(request.body.find("\"instruction\":\"Keep it short\""), std::string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Roads, PaneServiceRoadTest,
    testing::Values(
        RoadCase{"Native", u"{\"action\":\"start\",\"transport\":\"native\",\"targetLang\":\"fr\"}",
                 false, 0},
        RoadCase{"Panel", u"{\"action\":\"start\",\"targetLang\":\"fr\"}", true, 3}),
    [](const testing::TestParamInfo<RoadCase>& info) { return std::string(info.param.name); });

TEST_F(PaneServiceTest, ATokenTheServiceRefusesEndsThePanelRunWithTheSignInMessage) {
    MakePane();
    page->UseService(true);
    page->SignIn(u"expired-token");
    page->Start(u"{\"action\":\"start\",\"targetLang\":\"fr\"}");
    ASSERT_TRUE(page->PumpUntilIdle());
    ASSERT_EQ(page->CountEvents(u"onError"), 1u);
    const std::u16string error = page->Events().back().json;
    EXPECT_EQ(ReadJsonString(error, u"code"), u"unauthorized");
    EXPECT_EQ(ReadJsonString(error, u"message"), kUnauthorizedMessage);
    // A lapsed sign-in on the resolve lets the run reach its first batch.
    ASSERT_EQ(service.RequestsTo("/v1/terminology/resolve").size(), 1u);
    EXPECT_EQ(service.RequestsTo("/v1/terminology/resolve")[0].status, 401);
    EXPECT_EQ(U8(FrameText(2, 1)), "Outlook");
}

struct ResolveFaultCase {
    const char* name;
    const char16_t* start;
    bool pageCallsService;
    int status;
    const char16_t* closing;
};

class PaneResolveFaultTest : public PaneServiceTest,
                             public testing::WithParamInterface<ResolveFaultCase> {};

TEST_P(PaneResolveFaultTest, AFailedResolveEndsTheRunOnlyWhereThePanelSaysSo) {
    const ResolveFaultCase& c = GetParam();
    sim::Fault fault;
    fault.kind = sim::FaultKind::Status;
    fault.status = c.status;
    service.FailNext("/v1/terminology/resolve", fault);
    MakePane();
    page->UseService(c.pageCallsService);
    page->SignIn(u"stand-in-token");
    page->Start(c.start);
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(page->CountEvents(c.closing), 1u);
    EXPECT_EQ(page->CountEvents(u"onComplete") + page->CountEvents(u"onError"), 1u);
    if (std::u16string(c.closing) == u"onComplete") {
        ExpectDeckTranslatedTo(u"fr");
    } else {
        EXPECT_EQ(U8(FrameText(2, 1)), "Outlook");  // nothing lost
        EXPECT_TRUE(service.RequestsTo("/v1/translate").empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Faults, PaneResolveFaultTest,
    testing::Values(
        ResolveFaultCase{"NativeServerError",
                         u"{\"action\":\"start\",\"transport\":\"native\",\"targetLang\":\"fr\"}",
                         false, 500, u"onComplete"},
        ResolveFaultCase{"PanelSignInLapsed", u"{\"action\":\"start\",\"targetLang\":\"fr\"}", true,
                         402, u"onComplete"},
        ResolveFaultCase{"PanelServerError", u"{\"action\":\"start\",\"targetLang\":\"fr\"}", true,
                         500, u"onError"}),
    [](const testing::TestParamInfo<ResolveFaultCase>& info) {
        return std::string(info.param.name);
    });

TEST_F(PaneServiceTest, ANativeRunTakesTheTokenItStartedWithNotALaterSignIn) {
    MakePane();
    // The first batch is held a moment, so the later batches leave after
    // the page has signed in as someone else.
    sim::Fault late;
    late.kind = sim::FaultKind::Late;
    late.delayMs = 300;
    service.FailNext("/v1/translate", late);
    page->SignIn(u"stand-in-token");
    page->Start(u"{\"action\":\"start\",\"transport\":\"native\",\"targetLang\":\"de\"}");
    ASSERT_TRUE(page->PumpUntil([&] { return pane->Controller() != nullptr; }));
    page->SignIn(u"someone-else");
    ASSERT_TRUE(page->PumpUntilIdle());
    EXPECT_EQ(pane->AccessToken(), u"someone-else");
    EXPECT_EQ(page->CountEvents(u"onComplete"), 1u);
    ExpectDeckTranslatedTo(u"de");
    for (const auto& request : service.Requests()) {
        if (request.path == "/v1/analytics/events") continue;
        EXPECT_EQ(request.authorization, "Bearer stand-in-token") << request.path;
    }
}

}  // namespace
}  // namespace qb::test
