// Which host the add-in runs in, from the application's name and, failing
// that, the process's executable; and the identity that goes with requests.
#include <gtest/gtest.h>

#include "run/client_identity.h"
#include "shell/host_detect.h"
#include "shell/shell_support.h"
#include "sim/host/sim_host.h"

namespace qb {
namespace {

using test::U8;

class HostDetect : public testing::Test {
  protected:
    void TearDown() override {
        SetMainModuleFileNameForTesting(u"");
        SetHostIdentity({});
    }
};

TEST_F(HostDetect, TheNameElseTheExecutableTellsWps) {
    const struct {
        const char16_t* name;
        const char16_t* exe;
        const char* app;
    } cases[] = {
        {u"Microsoft PowerPoint", u"POWERPNT.EXE", "ppt"},
        {u"WPS \u6F14\u793A", u"POWERPNT.EXE", "wps"},
        {u"Kingsoft Presentation", u"POWERPNT.EXE", "wps"},
        {u"\u91D1\u5C71\u6F14\u793A", u"POWERPNT.EXE", "wps"},
        {u"ET Presentation", u"POWERPNT.EXE", "wps"},
        {u"", u"wpp.exe", "wps"},
        {u"", u"POWERPNT.EXE", "ppt"},
        {u"Microsoft PowerPoint", u"WPS.EXE", "wps"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(U8(c.name) + " in " + U8(c.exe));
        sim::SimHost host;
        host.App().name = c.name;
        host.App().version = u"11.1";
        SetMainModuleFileNameForTesting(c.exe);
        DetectHost(host.Application());
        const HostIdentity identity = GetHostIdentity();
        EXPECT_EQ(U8(identity.hostApp), c.app);
        EXPECT_EQ(U8(identity.hostAppName), U8(c.name));
        EXPECT_EQ(U8(identity.hostVersion), "11.1");
        EXPECT_EQ(IsWpsHost(), std::string(c.app) == "wps");
    }
}

TEST_F(HostDetect, AWpsExecutableInAnyCaseMakesAWpsHost) {
    SetHostIdentity(HostIdentity{u"ppt", u"16.0", u"Microsoft PowerPoint"});
    for (const char16_t* exe : {u"WPP.EXE", u"wps.exe", u"Et.Exe"}) {
        SetMainModuleFileNameForTesting(exe);
        EXPECT_TRUE(IsWpsHost()) << U8(exe);
    }
    for (const char16_t* exe : {u"POWERPNT.EXE", u"wpp.exe.bak", u"xwpp.exe"}) {
        SetMainModuleFileNameForTesting(exe);
        EXPECT_FALSE(IsWpsHost()) << U8(exe);
    }
    EXPECT_EQ(U8(MainModuleFileName()), "xwpp.exe");
}

TEST_F(HostDetect, ANameThatIsNoStringReadsEmpty) {
    SetMainModuleFileNameForTesting(u"POWERPNT.EXE");
    auto app = std::make_shared<test::PropertyObject>();
    app->props[u"Name"] = host::Variant::I4(7);
    app->props[u"Version"] = host::Variant::String(u"16.0");
    DetectHost(app);
    EXPECT_EQ(U8(GetHostIdentity().hostAppName), "");
    EXPECT_EQ(U8(GetHostIdentity().hostApp), "ppt");
    EXPECT_EQ(U8(GetHostIdentity().hostVersion), "16.0");
    EXPECT_EQ(U8(ReadHostText(nullptr, u"Name")), "");
    // Without a host at all the executable still decides.
    SetMainModuleFileNameForTesting(u"wpp.exe");
    DetectHost(nullptr);
    EXPECT_EQ(U8(GetHostIdentity().hostApp), "wps");
}

}  // namespace
}  // namespace qb
