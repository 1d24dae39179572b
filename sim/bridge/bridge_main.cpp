// qb-panel: the web panel in an ordinary browser, driving a real pane over
// the simulated host. It opens a deck file, starts the stand-in service
// (which serves the panel's pages) unless one is named, and serves at one
// address a page that shows the deck as it is written beside the panel.
// The panel's messages travel over HTTP between the browser and the pane,
// whose jobs and timers run on this program's main thread, the host's.
#include <signal.h>
#include <sys/stat.h>

#include <httplib.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "charts/chart_steps.h"
#include "cli/cli_options.h"
#include "foundation/platform.h"
#include "foundation/text.h"
#include "foundation/ui_languages.h"
#include "foundation/ui_strings.h"
#include "pane/ppt_pane.h"
#include "run/service_client.h"
#include "shell/ui_lang_dialog.h"
#include "sim/bridge/browser_view.h"
#include "sim/bridge/deck_picture.h"
#include "sim/bridge/json_text.h"
#include "sim/host/deck_file.h"
#include "sim/host/json_value.h"
#include "sim/host/sim_editor.h"
#include "sim/host/sim_host.h"
#include "sim/service/stand_in_service.h"

namespace {

using namespace qb;
using namespace qb::sim;

constexpr int kExitUsage = 2;
constexpr int kExitInput = 3;
constexpr int kExitService = 4;
constexpr std::uint32_t kPollWaitMs = 20000;
// The picture is drawn again at most this often while slides are written.
constexpr std::uint64_t kPictureEveryMs = 150;

struct Options {
    std::string deck;
    int port = 0;
    std::string serviceUrl;
    std::string token = "stand-in-token";
    std::string save;
    std::uint32_t lateMs = 1500;
    std::string panelDir = QB_PANEL_WEB_DIR;
    std::string pageDir = QB_BRIDGE_WEB_DIR;
};

int Fail(int code, const std::string& message) {
    std::fprintf(stderr, "qb-panel: %s\n", message.c_str());
    return code;
}

const char kUsage[] =
    "usage: qb-panel [--port N] [--service URL] [--token TOKEN] [--save PATH] [--late-ms N]\n"
    "                [--panel-dir DIR] [--page-dir DIR] DECK\n"
    "  Opens DECK on the simulated host and serves the web panel beside a picture of\n"
    "  the deck at http://127.0.0.1:PORT/ (a free port unless --port). --service uses a\n"
    "  running stand-in service that serves the panel; otherwise one is started here with\n"
    "  TOKEN. --save writes the deck to PATH after every run and at the end.\n";

bool IsFolder(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool ReadNumber(const std::string& text, long min, long max, long& out) {
    char* end = nullptr;
    out = std::strtol(text.c_str(), &end, 10);
    return !text.empty() && end && *end == '\0' && out >= min && out <= max;
}

// Empty on success, else one line for the user.
std::string ParseArgs(int argc, char** argv, Options& o, bool& help) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        long n = 0;
        if (arg == "--help" || arg == "-h") {
            help = true;
        } else if (arg == "--port" && hasValue) {
            if (!ReadNumber(argv[++i], 0, 65535, n))
                return "--port: not a port: " + std::string(argv[i]);
            o.port = static_cast<int>(n);
        } else if (arg == "--late-ms" && hasValue) {
            if (!ReadNumber(argv[++i], 0, 600000, n))
                return "--late-ms: not a number of ms: " + std::string(argv[i]);
            o.lateMs = static_cast<std::uint32_t>(n);
        } else if (arg == "--service" && hasValue) {
            o.serviceUrl = argv[++i];
        } else if (arg == "--token" && hasValue) {
            o.token = argv[++i];
        } else if (arg == "--save" && hasValue) {
            o.save = argv[++i];
        } else if (arg == "--panel-dir" && hasValue) {
            o.panelDir = argv[++i];
        } else if (arg == "--page-dir" && hasValue) {
            o.pageDir = argv[++i];
        } else if (!arg.empty() && arg[0] == '-') {
            return hasValue || arg.rfind("--", 0) != 0 ? "unknown option " + arg
                                                       : arg + " needs a value";
        } else if (o.deck.empty()) {
            o.deck = arg;
        } else {
            return "one deck at a time: " + arg;
        }
    }
    if (!help && o.deck.empty()) return "no deck file given (try --help)";
    if (o.token.empty()) return "--token: the token can't be empty";
    return {};
}

// What the browser asks of the program, and what the program shows it.
class Bridge {
  public:
    Bridge(SimHost& host, std::shared_ptr<PresentationModel> deck, BrowserView& view, PptPane& pane,
           const Options& options)
        : host_(host), deck_(std::move(deck)), view_(view), pane_(pane), options_(options) {}

    // --- The host's thread ----------------------------------------------
    void AfterTurn(bool somethingRan) {
        const bool running = pane_.RunInProgress();
        if (wasRunning_ && !running) {
            ++runsEnded_;
            Save();
        }
        wasRunning_ = running;
        if (somethingRan) pictureDirty_ = true;
        const std::uint64_t now = platform::CurrentClock().TickCount64();
        if (pictureDirty_ && now - pictureAt_ >= kPictureEveryMs) {
            pictureAt_ = now;
            pictureDirty_ = false;
            std::string picture = DeckPictureJson(*deck_, *host_.App().windows[0]);
            bool changed = false;
            {
                std::lock_guard<std::mutex> hold(lock_);
                if (picture != picture_) {
                    picture_ = std::move(picture);
                    ++revision_;
                    changed = true;
                }
            }
            if (changed) view_.PushEvent("deck", "\"revision\":" + std::to_string(revision_));
        }
        std::string state = "{\"viewReady\":" + Bool(pane_.HasView()) +
                            ",\"page\":" + JsonText(pane_.CurrentPage()) +
                            ",\"mode\":" + JsonText(pane_.Mode()) +
                            ",\"runInProgress\":" + Bool(running) +
                            ",\"accessToken\":" + JsonText(pane_.AccessToken()) +
                            ",\"runsEnded\":" + std::to_string(runsEnded_) +
                            ",\"saves\":" + std::to_string(saves_) +
                            ",\"saveError\":" + JsonText(Utf8ToUtf16(saveError_)) + "}";
        std::lock_guard<std::mutex> hold(lock_);
        state_ = std::move(state);
    }

    void Save() {
        if (options_.save.empty()) return;
        std::string error;
        if (SaveDeckFile(Utf8ToUtf16(options_.save), CaptureDeck(host_, deck_), &error)) {
            ++saves_;
            saveError_.clear();
            std::printf("qb-panel: deck saved to %s\n", options_.save.c_str());
            std::fflush(stdout);
        } else {
            saveError_ = "can't write " + options_.save + ": " + error;
            std::fprintf(stderr, "qb-panel: %s\n", saveError_.c_str());
        }
    }

    // --- The server's threads -------------------------------------------
    void Routes(httplib::Server& server) {
        server.Post("/bridge/attach", [this](const httplib::Request&, httplib::Response& res) {
            std::uint64_t last = 0;
            const std::uint64_t client = view_.Attach(last);
            // A new browser window is a new view: the first brings the view
            // up, a later one loads the page again for itself.
            view_.PostJob([this] {
                if (!pane_.HasView()) {
                    pane_.OnViewReady();
                } else {
                    pane_.NavigateToPage(pane_.CurrentPage());
                }
                pictureDirty_ = true;
            });
            Json(res, 200,
                 "{\"client\":" + std::to_string(client) + ",\"after\":" + std::to_string(last) +
                     ",\"revision\":" + std::to_string(Revision()) +
                     ",\"uiLanguages\":" + UiLanguages() + "}");
        });
        server.Get("/bridge/events", [this](const httplib::Request& req, httplib::Response& res) {
            std::string events;
            if (!view_.EventsAfter(Number(req, "client"), Number(req, "after"), kPollWaitMs,
                                   events)) {
                return Json(res, 409, "{\"detached\":true}");
            }
            Json(res, 200, "{\"events\":" + events + "}");
        });
        server.Post("/bridge/post", [this](const httplib::Request& req, httplib::Response& res) {
            Inbound(req, res);
        });
        server.Post("/bridge/ribbon", [this](const httplib::Request& req, httplib::Response& res) {
            Ribbon(req, res);
        });
        server.Post("/bridge/uilang", [this](const httplib::Request& req, httplib::Response& res) {
            UiLang(req, res);
        });
        server.Post("/bridge/select", [this](const httplib::Request& req, httplib::Response& res) {
            Select(req, res);
        });
        server.Get("/bridge/deck", [this](const httplib::Request&, httplib::Response& res) {
            std::lock_guard<std::mutex> hold(lock_);
            Json(res, 200,
                 "{\"revision\":" + std::to_string(revision_) + ",\"deck\":" + picture_ + "}");
        });
        server.Get("/bridge/state", [this](const httplib::Request&, httplib::Response& res) {
            std::lock_guard<std::mutex> hold(lock_);
            Json(res, 200, state_);
        });
    }

  private:
    static std::string Bool(bool value) { return value ? "true" : "false"; }

    static void Json(httplib::Response& res, int status, const std::string& body) {
        res.status = status;
        res.set_header("Cache-Control", "no-store");
        res.set_content(body, "application/json; charset=utf-8");
    }

    static void Refuse(httplib::Response& res, const std::string& why) {
        Json(res, 400, "{\"error\":" + JsonText(Utf8ToUtf16(why)) + "}");
    }

    static std::uint64_t Number(const httplib::Request& req, const char* key) {
        return std::strtoull(req.get_param_value(key).c_str(), nullptr, 10);
    }

    static std::optional<JsonValue> Body(const httplib::Request& req, httplib::Response& res) {
        JsonError error;
        std::optional<JsonValue> body = ParseJson(req.body, &error);
        if (!body) Refuse(res, "the body is not JSON: " + error.ToString());
        return body;
    }

    static std::u16string Member(const JsonValue& object, std::u16string_view key) {
        const JsonValue* value = object.IsObject() ? object.Find(key) : nullptr;
        return value && value->IsString() ? value->StringValue() : std::u16string();
    }

    std::uint64_t Revision() {
        std::lock_guard<std::mutex> hold(lock_);
        return revision_;
    }

    // What the page and its frame report, in the order they happened: the
    // page's messages, loads, failed loads and the page leaving.
    void Inbound(const httplib::Request& req, httplib::Response& res) {
        // A window that another one replaced reports nothing any more.
        if (!view_.IsAttached(Number(req, "client"))) {
            return Json(res, 409, "{\"detached\":true}");
        }
        const std::optional<JsonValue> body = Body(req, res);
        if (!body) return;
        if (!body->IsArray()) return Refuse(res, "expected an array of reports");
        for (const JsonValue& item : body->Items()) {
            const std::u16string kind = Member(item, u"kind");
            if (kind == u"message") {
                view_.PostJob(
                    [this, json = Member(item, u"json")] { pane_.HandleWebMessage(json); });
            } else if (kind == u"loaded") {
                view_.PostJob([this, url = Member(item, u"url")] {
                    view_.SetSource(url);
                    pane_.OnNavigationCompleted(true);
                });
            } else if (kind == u"failed") {
                view_.PostJob([this] { pane_.OnNavigationCompleted(false); });
            } else if (kind == u"leaving") {
                view_.PostJob([this] { pane_.OnNavigationStarting(); });
            } else {
                std::fprintf(stderr,
                             "qb-panel: the browser reported \"%s\", which means nothing here\n",
                             Utf16ToUtf8(kind).c_str());
            }
        }
        Json(res, 200, "{\"ok\":true}");
    }

    // A ribbon button: the page to show, and for the translate page the
    // mode, as the add-in's ribbon hands them to the pane.
    void Ribbon(const httplib::Request& req, httplib::Response& res) {
        const std::optional<JsonValue> body = Body(req, res);
        if (!body) return;
        const std::u16string page = Member(*body, u"page");
        const std::u16string mode = Member(*body, u"mode");
        static const char16_t* const kPages[] = {u"translate", u"glossary", u"instruction",
                                                 u"account",   u"login",    u"support"};
        if (std::none_of(std::begin(kPages), std::end(kPages), [&](auto p) { return page == p; })) {
            return Refuse(res, "no such page: " + Utf16ToUtf8(page));
        }
        if (!mode.empty() && mode != u"full" && mode != u"slide" && mode != u"selection") {
            return Refuse(res, "no such mode: " + Utf16ToUtf8(mode));
        }
        view_.PostJob([this, page, mode] {
            if (!mode.empty()) {
                pane_.SetPendingMode(mode);
                if (pane_.WindowExists()) pane_.SetMode(mode);
            }
            pane_.ShowPage(page);
        });
        Json(res, 200, "{\"ok\":true}");
    }

    static std::string UiLanguages() {
        std::string list = "[";
        for (std::size_t i = 0; i < std::size(kUiLanguageCodes); ++i) {
            list += std::string(i ? "," : "") +
                    "{\"code\":" + JsonText(std::u16string(kUiLanguageCodes[i])) +
                    ",\"name\":" + JsonText(std::u16string(kUiLanguageNames[i])) + "}";
        }
        return list + "]";
    }

    // The display language dialog's choice: saved as the user's, and every
    // pane's page told, as the ribbon's dialog does it.
    void UiLang(const httplib::Request& req, httplib::Response& res) {
        const std::optional<JsonValue> body = Body(req, res);
        if (!body) return;
        const std::u16string code = Member(*body, u"code");
        std::int32_t row = -1;
        for (std::size_t i = 0; i < std::size(kUiLanguageCodes); ++i) {
            if (kUiLanguageCodes[i] == code) row = static_cast<std::int32_t>(i);
        }
        if (row < 0) return Refuse(res, "no such display language: " + Utf16ToUtf8(code));
        view_.PostJob([this, row] {
            std::u16string chosen;
            const UiLangChoice choice =
                ApplyUiLangChoice(ResolveUiLanguage(host_.Application()), row, chosen);
            if (choice == UiLangChoice::Changed) PptPane::BroadcastUiLang(chosen);
            if (choice == UiLangChoice::SaveFailed) {
                std::fprintf(stderr, "qb-panel: the display language could not be saved\n");
            }
        });
        Json(res, 200, "{\"ok\":true}");
    }

    // A click on the picture: a slide becomes the current one and is
    // selected, or a shape on it is; an empty slide number selects nothing.
    void Select(const httplib::Request& req, httplib::Response& res) {
        const std::optional<JsonValue> body = Body(req, res);
        if (!body) return;
        const JsonValue* slide = body->IsObject() ? body->Find(u"slide") : nullptr;
        const JsonValue* path = body->IsObject() ? body->Find(u"path") : nullptr;
        std::vector<std::int32_t> indexes;
        if (path && path->IsArray()) {
            for (const JsonValue& index : path->Items()) {
                if (!index.IsNumber()) return Refuse(res, "path: expected numbers");
                indexes.push_back(static_cast<std::int32_t>(index.NumberValue()));
            }
        }
        const std::int32_t number =
            slide && slide->IsNumber() ? static_cast<std::int32_t>(slide->NumberValue()) : 0;
        view_.PostJob([this, number, indexes] {
            WindowModel& window = *host_.App().windows[0];
            window.selection = SelectionModel();
            pictureDirty_ = true;
            if (number < 1 || number > static_cast<std::int32_t>(deck_->slides.size())) return;
            window.currentSlide = number;
            if (indexes.empty()) {
                window.selection.type = SelectionType::Slides;
                window.selection.slides.push_back(
                    deck_->slides[static_cast<std::size_t>(number - 1)]);
                return;
            }
            const std::shared_ptr<ShapeModel> shape = ShapeAtPath(*deck_, number, indexes);
            if (!shape) return;
            window.selection.type = SelectionType::Shapes;
            window.selection.shapes.push_back(shape);
            if (indexes.size() > 1) window.selection.childShapes.push_back(shape);
        });
        Json(res, 200, "{\"ok\":true}");
    }

    SimHost& host_;
    std::shared_ptr<PresentationModel> deck_;
    BrowserView& view_;
    PptPane& pane_;
    const Options& options_;
    // Host's thread only.
    bool wasRunning_ = false;
    bool pictureDirty_ = true;
    std::uint64_t pictureAt_ = 0;
    int runsEnded_ = 0;
    int saves_ = 0;
    std::string saveError_;
    // Handed to the server's threads.
    std::mutex lock_;
    std::string picture_;
    std::uint64_t revision_ = 0;
    std::string state_ = "{}";
};

std::atomic<bool> g_stop{false};

int Run(const Options& o) {
    DeckLoadResult loaded = LoadDeckFile(Utf8ToUtf16(o.deck));
    if (!loaded.error.empty()) return Fail(kExitInput, loaded.error);
    if (!IsFolder(o.pageDir)) return Fail(kExitInput, "no page folder at " + o.pageDir);

    StandInService::Options serviceOptions;
    serviceOptions.token = o.token;
    serviceOptions.lateMs = o.lateMs;
    std::string serviceHost = "127.0.0.1";
    std::uint16_t servicePort = 0;
    if (o.serviceUrl.empty()) {
        if (!IsFolder(o.panelDir)) return Fail(kExitInput, "no panel folder at " + o.panelDir);
        serviceOptions.panelFolder = o.panelDir;
    } else if (!cli::ParseServiceUrl(o.serviceUrl, serviceHost, servicePort)) {
        return Fail(kExitUsage, "--service: expected http://127.0.0.1:PORT, not " + o.serviceUrl);
    }
    StandInService service(serviceOptions);
    if (o.serviceUrl.empty()) {
        if (!service.Start(0)) return Fail(kExitService, "can't start the stand-in service");
        servicePort = static_cast<std::uint16_t>(service.Port());
    }
    SetHttpEndpointForTesting(Utf8ToUtf16(serviceHost), servicePort);

    SimHost host(loaded.kind);
    const std::shared_ptr<PresentationModel> deck = OpenDeck(host, loaded);
    host.App().activeWindow = 1;

    // Charts and SmartArt as the command-line front end has them, so that
    // both roads write the same deck.
    SimChartEditor editor(host);
    ChartStepsConfig charts;
    const bool wps = loaded.kind == HostKind::Wps;
    charts.isWpsHost = [wps] { return wps; };
    charts.editor = &editor;

    BrowserView view;
    PaneSetup setup;
    setup.application = host.Application();
    setup.window.hwnd = host.App().windows[0]->hwnd;
    setup.paneNumber = NextPaneNumber();
    setup.wpsHost = wps;
    setup.serviceHost = Utf8ToUtf16(serviceHost);
    setup.servicePort = servicePort;
    setup.serviceSecure = false;
    setup.services.offer = MakeChartOffer(charts);
    setup.services.writers = MakeChartWriters(charts);
    PptPane pane(view, std::move(setup));
    view.SetTimerSink([&pane](PaneTimer timer) { pane.OnTimer(timer); });
    pane.OnWindowCreated();

    Bridge bridge(host, deck, view, pane, o);
    httplib::Server server;
    bridge.Routes(server);
    server.set_mount_point("/", o.pageDir);
    const int port = o.port == 0 ? server.bind_to_any_port("127.0.0.1")
                                 : (server.bind_to_port("127.0.0.1", o.port) ? o.port : -1);
    if (port <= 0) return Fail(kExitService, "can't listen on 127.0.0.1:" + std::to_string(o.port));
    std::thread listener([&server] { server.listen_after_bind(); });

    std::printf("qb-panel: %s on %s, service http://127.0.0.1:%u\n", o.deck.c_str(),
                wps ? "WPS Presentation" : "PowerPoint", unsigned{servicePort});
    std::printf("qb-panel: open http://127.0.0.1:%d/\n", port);
    std::fflush(stdout);

    while (!g_stop) {
        const std::size_t ran = view.RunPendingJobs() + view.FireDueTimers();
        bridge.AfterTurn(ran > 0);
        if (ran == 0) view.WaitForWork(100);
    }

    // A run still going is cancelled and seen to its end before the deck
    // is saved and the pane goes.
    if (pane.RunInProgress()) {
        pane.CancelRun();
        const std::uint64_t until = platform::CurrentClock().TickCount64() + 10000;
        while (pane.RunInProgress() && platform::CurrentClock().TickCount64() < until) {
            if (view.RunPendingJobs() + view.FireDueTimers() == 0) view.WaitForWork(50);
        }
        bridge.AfterTurn(true);
    }
    bridge.Save();
    pane.OnWindowDestroyed();
    view.DestroyWindow();
    view.StopEvents();
    server.stop();
    listener.join();
    service.Stop();
    SetHttpEndpointForTesting(u"", 0);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    bool help = false;
    const std::string error = ParseArgs(argc, argv, options, help);
    if (help) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (!error.empty()) return Fail(kExitUsage, error);

    // Blocked before any thread exists, so that only the waiter below sees them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread waiter([signals] {
        int received = 0;
        sigwait(&signals, &received);
        g_stop = true;
    });
    waiter.detach();
    try {
        return Run(options);
    } catch (const std::exception& e) {
        return Fail(kExitService, std::string("internal error: ") + e.what());
    }
}
