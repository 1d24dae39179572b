// The stand-in service as the web panel's home: its pages as files under
// /panel when it is given their folder, and the stand-in sign-in that hands
// out the service's own token; none of it when it is not.
#include <gtest/gtest.h>

#include <httplib.h>

#include <string>

#include "sim/service/stand_in_service.h"

namespace qb {
namespace {

const std::string kPanelFolder = std::string(QB_SOURCE_DIR) + "/sim/panel/web";

class PanelPagesTest : public testing::Test {
  protected:
    void Serve(sim::StandInService::Options options) {
        service_ = std::make_unique<sim::StandInService>(std::move(options));
        ASSERT_TRUE(service_->Start());
        client_ = std::make_unique<httplib::Client>("127.0.0.1", service_->Port());
    }
    httplib::Result SignIn(const std::string& body) {
        return client_->Post("/v1/auth/signin", body, "application/json");
    }

    std::unique_ptr<sim::StandInService> service_;
    std::unique_ptr<httplib::Client> client_;
};

TEST_F(PanelPagesTest, ServesEveryPageUnderTheNavigatedPaths) {
    sim::StandInService::Options options;
    options.panelFolder = kPanelFolder;
    Serve(options);
    const auto translate = client_->Get("/panel/ppt/?_=12&host=ppt&pane=ppt1&mode=full&uiLang=en");
    ASSERT_TRUE(translate);
    EXPECT_EQ(translate->status, 200);
    EXPECT_NE(translate->body.find("data-page=\"translate\""), std::string::npos);
    EXPECT_NE(translate->body.find("webview-shim.js"), std::string::npos);
    for (const char* page : {"glossary", "instruction", "account", "login", "support"}) {
        const auto got = client_->Get(std::string("/panel/ppt/") + page + ".html?_=1&host=ppt");
        ASSERT_TRUE(got) << page;
        EXPECT_EQ(got->status, 200) << page;
        EXPECT_NE(got->body.find(std::string("data-page=\"") + page + "\""), std::string::npos)
            << page;
    }
    const auto web = client_->Get("/panel/web/webtranslate.html?tool=pdftr");
    ASSERT_TRUE(web);
    EXPECT_EQ(web->status, 200);
    const auto missing = client_->Get("/panel/ppt/nowhere.html");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->status, 404);
}

TEST_F(PanelPagesTest, SignInHandsOutTheServicesTokenForANameWithAPassword) {
    sim::StandInService::Options options;
    options.panelFolder = kPanelFolder;
    options.token = "token-of-this-service";
    Serve(options);
    const auto good = SignIn(R"({"user":"ada@example.com","password":"x"})");
    ASSERT_TRUE(good);
    EXPECT_EQ(good->status, 200);
    EXPECT_NE(good->body.find("\"token-of-this-service\""), std::string::npos) << good->body;
    EXPECT_NE(good->body.find("ada@example.com"), std::string::npos);
    for (const char* bad : {R"({"user":"ada@example.com","password":""})", R"({"user":"ada"})",
                            "not json", R"(["user","password"])"}) {
        const auto refused = SignIn(bad);
        ASSERT_TRUE(refused) << bad;
        EXPECT_EQ(refused->status, 400) << bad;
        EXPECT_NE(refused->body.find("\"bad_request\""), std::string::npos) << bad;
    }
    // Sign-in isn't a request of the service's protocol: it isn't recorded.
    EXPECT_TRUE(service_->Requests().empty());
}

TEST_F(PanelPagesTest, WithoutAFolderThereAreNoPagesAndNoSignIn) {
    Serve({});
    const auto page = client_->Get("/panel/ppt/");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 404);
    const auto signIn = SignIn(R"({"user":"ada","password":"x"})");
    ASSERT_TRUE(signIn);
    EXPECT_EQ(signIn->status, 404);
}

TEST(PanelPagesStart, AFolderThatIsNotThereStopsTheStart) {
    sim::StandInService::Options options;
    options.panelFolder = std::string(QB_SOURCE_DIR) + "/no/such/folder";
    sim::StandInService service(options);
    EXPECT_FALSE(service.Start());
}

}  // namespace
}  // namespace qb
