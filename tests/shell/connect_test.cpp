// The connect object over the simulated host: task panes one per document
// window, what each ribbon button leads to, the settings dialog, labels and
// the unload. The system and the host's task pane factory are fakes.
#include <gtest/gtest.h>

#include "foundation/user_config.h"
#include "pane/ppt_pane.h"
#include "run/beacons.h"
#include "run/client_identity.h"
#include "shell/connect.h"
#include "shell/host_detect.h"
#include "shell/ribbon.h"
#include "shell/shell_support.h"
#include "sim/host/deck_builder.h"
#include "sim/host/sim_host.h"
#include "slides/automation.h"
#include "support/service_endpoint.h"

namespace qb {
namespace {

using test::PropertyObject;
using test::U8;

struct Box {
    std::u16string text, title;
    std::uint32_t flags = 0;
};

class FakePlatform : public ShellPlatform {
  public:
    std::vector<Box> boxes;
    std::vector<std::u16string> urls;
    std::intptr_t openResult = 42;
    bool dialogPicks = false;
    std::vector<std::intptr_t> dialogOwners;

    void MessageBox(const std::u16string& text, const std::u16string& title,
                    std::uint32_t flags) override {
        boxes.push_back(Box{text, title, flags});
    }
    std::intptr_t OpenUrl(const std::u16string& url) override {
        urls.push_back(url);
        return openResult;
    }
    bool ShowUiLangDialog(std::intptr_t owner, std::u16string& language) override {
        dialogOwners.push_back(owner);
        if (dialogPicks) language = u"de";
        return dialogPicks;
    }
    // The top-level window sits at a fixed distance, so the test sees which was asked.
    std::intptr_t RootWindow(std::intptr_t hwnd) override { return hwnd + 0x1000000; }
};

class FakeFactory : public TaskPaneFactory {
  public:
    HRESULT failure = S_OK;
    bool panesRefuseHide = false;
    std::vector<std::shared_ptr<PropertyObject>> panes;
    std::vector<std::u16string> progIds;
    std::vector<host::HostRef> windows;

    HRESULT CreateCtp(const std::u16string& progId, const std::u16string&,
                      const host::HostRef& window, host::HostRef& pane) override {
        progIds.push_back(progId);
        windows.push_back(window);
        if (FAILED(failure)) return failure;
        auto ctp = std::make_shared<PropertyObject>();
        ctp->props[u"Visible"] = host::Variant::Bool(false);
        ctp->props[u"DockPosition"] = host::Variant::I4(1);
        ctp->props[u"Width"] = host::Variant::I4(300);
        ctp->props[u"Window"] = host::Variant::Object(window);
        ctp->refuseHide = panesRefuseHide;
        panes.push_back(ctp);
        pane = ctp;
        return S_OK;
    }
};

class ConnectTest : public testing::Test {
  protected:
    void SetUp() override {
        CurrentPaneContext() = PaneContext{};
        SetMainModuleFileNameForTesting(u"POWERPNT.EXE");
        for (const char16_t* title : {u"First", u"Second"}) {
            sim::DeckBuilder b;
            b.Slide().Text(u"Title", title);
            host.AddPresentation(b.Build());
        }
    }
    void TearDown() override {
        connect.OnDisconnection();
        // Beacons end at the closed port before the endpoint goes back.
        EXPECT_TRUE(WaitForBeaconsForTesting(10000));
        CurrentPaneContext() = PaneContext{};
        SetMainModuleFileNameForTesting(u"");
        SetHostIdentity({});
    }

    void Connected() {
        connect.OnConnection(host.Application());
        connect.CTPFactoryAvailable(factory);
    }
    host::HostRef Window(std::int32_t index) {
        host::HostRef windows, window;
        EXPECT_EQ(host::GetObject(host.Application(), u"Windows", windows), S_OK);
        EXPECT_EQ(host::GetItem(windows, index, window), S_OK);
        return window;
    }
    std::intptr_t Hwnd(std::size_t index) { return host.App().windows[index - 1]->hwnd; }
    static host::HostRef Control(const host::HostRef& context, const char16_t* id = u"btnX") {
        auto control = std::make_shared<PropertyObject>();
        control->props[u"Id"] = host::Variant::String(id);
        if (context) control->props[u"Context"] = host::Variant::Object(context);
        return control;
    }
    std::u16string En(const char16_t* key) { return LookupUiText(u"en", key); }

    test::ScopedUiLanguage language{0x0409};
    test::ScopedServiceEndpoint endpoint{1, 2000};  // nothing listens on port 1
    sim::SimHost host;
    FakePlatform platform;
    std::shared_ptr<FakeFactory> factory = std::make_shared<FakeFactory>();
    Connect connect{platform};
};

TEST_F(ConnectTest, WithoutHostOrFactoryOrPaneTheUserIsTold) {
    connect.ShowPanePage(u"translate", std::nullopt, nullptr);
    ASSERT_EQ(platform.boxes.size(), 1u);
    EXPECT_EQ(U8(platform.boxes[0].text), U8(En(u"msg.hostNotReady.ppt")));
    EXPECT_EQ(U8(platform.boxes[0].title), "AI Assistant");
    EXPECT_EQ(platform.boxes[0].flags, kBoxWarning);

    connect.OnConnection(host.Application());
    connect.ShowPanePage(u"translate", std::nullopt, nullptr);
    ASSERT_EQ(platform.boxes.size(), 2u);
    EXPECT_EQ(U8(platform.boxes[1].text), U8(En(u"msg.paneFactory.ppt")));
    EXPECT_EQ(platform.boxes[1].flags, kBoxError);

    connect.CTPFactoryAvailable(factory);
    factory->failure = E_FAIL;
    connect.ShowPanePage(u"translate", std::nullopt, nullptr);
    ASSERT_EQ(platform.boxes.size(), 3u);
    EXPECT_NE(platform.boxes[2].text.find(u"0x80004005"), std::u16string::npos)
        << U8(platform.boxes[2].text);
    EXPECT_EQ(platform.boxes[2].flags, kBoxError);
    EXPECT_EQ(connect.PaneCount(), 0u);
    EXPECT_EQ(CurrentPaneContext().application, nullptr);  // not held past the creation

    host.App().activeWindow = 0;
    connect.ShowPanePage(u"translate", std::nullopt, nullptr);
    ASSERT_EQ(platform.boxes.size(), 4u);
    EXPECT_EQ(U8(platform.boxes[3].text), U8(En(u"msg.noWindow.ppt")));
    EXPECT_EQ(factory->progIds.size(), 1u);
}

TEST_F(ConnectTest, EachWindowGetsOnePaneDockedRight) {
    Connected();
    ASSERT_TRUE(connect.OnRibbonCommand(kDispTranslateFullDoc, Control(nullptr)));
    ASSERT_TRUE(connect.OnRibbonCommand(kDispTranslateFullDoc, Control(nullptr)));
    EXPECT_TRUE(platform.boxes.empty());
    ASSERT_EQ(factory->panes.size(), 1u);
    EXPECT_EQ(U8(factory->progIds[0]), "Quillbrook.PptPane");
    EXPECT_EQ(WindowKeyOf(factory->windows[0]).hwnd, Hwnd(2));  // the active window
    EXPECT_EQ(connect.PaneCount(), 1u);
    EXPECT_EQ(connect.TaskPaneOf(Hwnd(2)), factory->panes[0]);
    EXPECT_EQ(factory->panes[0]->props[u"DockPosition"].I4Value(), kDockRight);
    EXPECT_NE(factory->panes[0]->props[u"Visible"].BoolValue(), 0);

    // The ribbon of the other window names it, as a window or as its presentation.
    connect.OnRibbonCommand(kDispGlossary, Control(Window(1)));
    ASSERT_EQ(factory->panes.size(), 2u);
    EXPECT_EQ(WindowKeyOf(factory->windows[1]).hwnd, Hwnd(1));
    EXPECT_EQ(connect.TaskPaneOf(Hwnd(1)), factory->panes[1]);
    host::HostRef presentation;
    ASSERT_EQ(host::GetObject(Window(1), u"Presentation", presentation), S_OK);
    connect.OnRibbonCommand(kDispAccount, Control(presentation));
    EXPECT_EQ(factory->panes.size(), 2u);
    EXPECT_EQ(connect.PaneCount(), 2u);
}

TEST_F(ConnectTest, APaneOpensAtTheRememberedWidthAndShutdownKeepsTheLastDrag) {
    Connected();
    connect.OnRibbonCommand(kDispTranslateFullDoc, Control(Window(1)));
    ASSERT_EQ(factory->panes.size(), 1u);
    EXPECT_EQ(factory->panes[0]->props[u"Width"].I4Value(), kDefaultPaneWidthPt);
    // The user drags the first pane; the second window's pane follows it.
    factory->panes[0]->props[u"Width"] = host::Variant::I4(410);
    connect.OnRibbonCommand(kDispTranslateFullDoc, Control(Window(2)));
    ASSERT_EQ(factory->panes.size(), 2u);
    EXPECT_EQ(factory->panes[1]->props[u"Width"].I4Value(), 410);
    ASSERT_NE(connect.WidthStateOf(Hwnd(2)), nullptr);
    EXPECT_EQ(connect.WidthStateOf(Hwnd(2))->target, 410);

    connect.OnBeginShutdown();
    bool found = false;
    EXPECT_EQ(ReadPaneWidth(found), 410);
    EXPECT_TRUE(found);
}

TEST_F(ConnectTest, APaneOfAClosedWindowGoesUnlessItRefusesToHide) {
    for (const bool refuse : {false, true}) {
        SCOPED_TRACE(refuse ? "refusing" : "hiding");
        sim::SimHost local;
        for (int i = 0; i < 2; ++i)
            local.AddPresentation(sim::DeckBuilder().Slide().Text(u"T", u"x").Build());
        Connect c(platform);
        auto f = std::make_shared<FakeFactory>();
        f->panesRefuseHide = refuse;
        c.OnConnection(local.Application());
        c.CTPFactoryAvailable(f);
        c.ShowPanePage(u"translate", std::nullopt, nullptr);
        const std::intptr_t closed = local.App().windows[1]->hwnd;
        ASSERT_NE(c.TaskPaneOf(closed), nullptr);
        local.App().windows.erase(local.App().windows.begin() + 1);
        local.App().activeWindow = 1;
        c.ShowPanePage(u"translate", std::nullopt, nullptr);
        ASSERT_EQ(f->panes.size(), 2u);
        EXPECT_EQ(c.PaneCount(), refuse ? 2u : 1u);
        EXPECT_EQ(c.TaskPaneOf(closed) != nullptr, refuse);
        ASSERT_FALSE(f->panes[0]->visiblePuts.empty());
        EXPECT_FALSE(f->panes[0]->visiblePuts.back());  // asked to hide either way
        EXPECT_NE(c.TaskPaneOf(local.App().windows[0]->hwnd), nullptr);
        c.OnDisconnection();
    }
}

TEST_F(ConnectTest, EachButtonLeadsToItsPageAndMode) {
    Connected();
    const struct {
        std::int32_t dispid;
        const char* page;
        const char* mode;
    } cases[] = {
        {100, "translate", "full"},
        {103, "glossary", ""},
        {101, "translate", "slide"},
        {102, "translate", ""},
        {109, "translate", "selection"},
        {104, "instruction", ""},
        {100, "translate", "full"},
        {105, "account", ""},
        {106, "support", ""},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(connect.OnRibbonCommand(c.dispid, Control(nullptr))) << c.dispid;
        EXPECT_EQ(U8(CurrentPaneContext().page), c.page) << c.dispid;
        EXPECT_EQ(U8(CurrentPaneContext().mode), c.mode) << c.dispid;
    }
    EXPECT_EQ(factory->panes.size(), 1u);
    EXPECT_TRUE(platform.boxes.empty());
    for (const std::int32_t none : {0, 107, 108, 111, 130, 131}) {
        EXPECT_FALSE(connect.OnRibbonCommand(none, Control(nullptr))) << none;
    }
    EXPECT_TRUE(platform.urls.empty());
    EXPECT_TRUE(platform.dialogOwners.empty());
}

TEST_F(ConnectTest, PdfTranslateOpensTheBrowserAndWarnsWhenItCannot) {
    Connected();
    platform.openResult = 42;
    EXPECT_TRUE(connect.OnRibbonCommand(kDispPdfTranslate, Control(nullptr)));
    EXPECT_TRUE(platform.boxes.empty());
    platform.openResult = 2;
    connect.PdfTranslateClicked(Control(nullptr));
    ASSERT_EQ(platform.urls.size(), 2u);
    EXPECT_EQ(U8(platform.urls[0]), U8(PdfTranslateUrl()));
    ASSERT_EQ(platform.boxes.size(), 1u);
    EXPECT_EQ(U8(platform.boxes[0].text), U8(En(u"msg.browserFailed")));
    EXPECT_EQ(platform.boxes[0].flags, kBoxWarning);
    // Above 32 is success, 32 itself is not.
    platform.openResult = 33;
    connect.PdfTranslateClicked(Control(nullptr));
    EXPECT_EQ(platform.boxes.size(), 1u);
    platform.openResult = 32;
    connect.PdfTranslateClicked(Control(nullptr));
    EXPECT_EQ(platform.boxes.size(), 2u);
    EXPECT_EQ(factory->panes.size(), 0u);
}

TEST_F(ConnectTest, SettingsOwnsTheDialogToTheWindowAndRefreshesTheRibbonOnAChoice) {
    Connected();
    auto ribbon = std::make_shared<PropertyObject>();
    ribbon->methods.insert(u"Invalidate");
    connect.OnRibbonLoad(ribbon);
    EXPECT_EQ(connect.RibbonUi(), ribbon);
    platform.dialogPicks = true;
    EXPECT_TRUE(connect.OnRibbonCommand(kDispSettings, Control(nullptr)));
    platform.dialogPicks = false;
    connect.SettingsClicked(Control(nullptr));
    host.App().activeWindow = 0;  // no document window: the application's own
    connect.SettingsClicked(Control(nullptr));
    const std::vector<std::intptr_t> owners = {Hwnd(2) + 0x1000000, Hwnd(2) + 0x1000000,
                                               host.App().hwnd + 0x1000000};
    EXPECT_EQ(platform.dialogOwners, owners);
    EXPECT_EQ(ribbon->CallCount(u"Invalidate"), 1u);
}

TEST_F(ConnectTest, LabelsFollowTheHostsLanguage) {
    Connected();
    EXPECT_EQ(U8(connect.GetLabel(Control(nullptr, u"btnGlossary"))), "Glossary");
    EXPECT_EQ(U8(connect.GetScreentip(Control(nullptr, u"btnGlossary"))), "Personal glossary");
    host.App().uiLanguageId = 0x0804;
    test::ScopedUiLanguage::Use(0x0409);  // the next choice comes from the host
    EXPECT_EQ(U8(connect.GetLabel(Control(nullptr, u"btnGlossary"))), U8(u"\u672F\u8BED\u8868"));
    EXPECT_EQ(U8(connect.GetScreentip(Control(nullptr, u"btnGlossary"))),
              U8(u"\u4E2A\u4EBA\u672F\u8BED\u8868"));
}

TEST_F(ConnectTest, DisconnectionLetsGoOfEverything) {
    Connected();
    auto ribbon = std::make_shared<PropertyObject>();
    connect.OnRibbonLoad(ribbon);
    connect.OnRibbonCommand(kDispTranslateFullDoc, Control(nullptr));
    connect.OnRibbonCommand(kDispTranslateFullDoc, Control(Window(1)));
    ASSERT_EQ(connect.PaneCount(), 2u);
    connect.OnDisconnection();
    EXPECT_EQ(connect.Application(), nullptr);
    EXPECT_EQ(connect.RibbonUi(), nullptr);
    EXPECT_EQ(connect.PaneCount(), 0u);
    for (const auto& pane : factory->panes) {
        ASSERT_FALSE(pane->visiblePuts.empty());
        EXPECT_FALSE(pane->visiblePuts.back());
    }
}

TEST(PaneMapKey, HwndElseNegatedIdentityElseMinusOne) {
    const struct {
        std::intptr_t hwnd, identity;
        std::int64_t key;
    } cases[] = {{0x20010, 0x5000, 0x20010}, {0, 0x5000, -0x5000}, {0, 0, -1}, {0x30, 0, 0x30}};
    for (const auto& c : cases) {
        EXPECT_EQ(PaneMapKey(WindowKey{c.hwnd, c.identity}), c.key) << c.hwnd << "/" << c.identity;
    }
}

}  // namespace
}  // namespace qb
