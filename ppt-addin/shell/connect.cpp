#include "shell/connect.h"

#include <cstdio>

#include "foundation/text.h"
#include "foundation/trace.h"
#include "foundation/ui_strings.h"
#include "pane/ppt_pane.h"
#include "run/beacons.h"
#include "run/client_identity.h"
#include "shell/host_detect.h"
#include "shell/ribbon.h"
#include "slides/automation.h"

namespace qb {

namespace {

// The connect object that made the last pane: the pane windows' 300 ms
// timer reaches its width tick through it. Host's thread only.
Connect*& ActiveConnect() {
    static Connect* active = nullptr;
    return active;
}

std::u16string Count(std::size_t n) {
    return DecimalText(static_cast<long long>(n));
}

host::HostRef ObjectOf(const host::Variant& value) {
    return value.Type() == host::VarType::Object ? value.ObjectValue() : nullptr;
}

// Hwnd by name: I4 and friends as they stand, the low half of an I8,
// anything else 0.
std::intptr_t ReadHwnd(const host::HostRef& object) {
    host::Variant value;
    if (FAILED(host::DispGet(object, u"Hwnd", &value))) return 0;
    std::int32_t v = 0;
    if (value.Type() == host::VarType::I4 && value.ToInt32(v)) return v;
    double d = 0;
    if (value.Type() == host::VarType::R8 && value.ToDouble(d)) {
        return static_cast<std::intptr_t>(
            static_cast<std::uint32_t>(static_cast<long long>(d) & 0xFFFFFFFF));
    }
    return 0;
}

bool HasField(const WindowKey& key) {
    return key.hwnd != 0 || key.identity != 0;
}

// The pane of a window in the pane list: by HWND, else by identity.
PptPane* FindPane(const WindowKey& key) {
    for (PptPane* pane : PaneRegistry::Snapshot()) {
        const WindowKey& k = pane->Window();
        if (key.hwnd != 0 ? k.hwnd == key.hwnd : key.identity != 0 && k.identity == key.identity) {
            return pane;
        }
    }
    return nullptr;
}

}  // namespace

std::int64_t PaneMapKey(const WindowKey& key) {
    if (key.hwnd != 0) return key.hwnd;
    if (key.identity != 0) return -static_cast<std::int64_t>(key.identity);
    return -1;
}

std::u16string WindowKeyText(const WindowKey& key) {
    char text[32];
    std::snprintf(text, sizeof text, "%llX",
                  static_cast<unsigned long long>(static_cast<std::uintptr_t>(key.hwnd)));
    return u"hwnd=0x" + AsciiToUtf16(text) + u" id=" + PointerText(key.identity);
}

void TickActivePaneWidths() {
    if (Connect* active = ActiveConnect()) active->TickPaneWidths();
}

Connect::Connect(ShellPlatform& platform) : platform_(platform) {}

Connect::~Connect() {
    OnDisconnection();
}

// --- Load and unload ----------------------------------------------------------

void Connect::OnConnection(host::HostRef application) {
    application_ = std::move(application);
    DetectHost(application_);
    std::u16string name = ReadHostText(application_, u"Name");
    if (name.empty()) name = u"(unknown)";
    Trace(u"PPT OnConnection hostApp=" + GetHostIdentity().hostApp + u" appName=" + name + u"\r\n");
    SendEvent(kLoadedEvent, u"client");
}

void Connect::OnBeginShutdown() {
    SavePaneWidthsNow();
    ClearActiveTick();
    for (PptPane* pane : PaneRegistry::Snapshot())
        pane->BeginShutdownEarly();
}

void Connect::OnDisconnection() {
    SavePaneWidthsNow();
    ClearActiveTick();
    ReleaseAllPanes();
    factory_.reset();
    application_.reset();
    ribbonUi_.reset();
}

void Connect::ClearActiveTick() {
    if (ActiveConnect() == this) ActiveConnect() = nullptr;
}

void Connect::CTPFactoryAvailable(std::shared_ptr<TaskPaneFactory> factory) {
    factory_ = std::move(factory);
    Trace(u"PPT CTPFactoryAvailable\r\n");
}

// --- Ribbon ------------------------------------------------------------------

void Connect::OnRibbonLoad(host::HostRef ribbonUi) {
    (void)ResolveUiLanguage(application_);
    ribbonUi_ = std::move(ribbonUi);
}

bool Connect::OnRibbonCommand(std::int32_t dispid, const host::HostRef& control) {
    switch (dispid) {
        case kDispTranslateFullDoc:
            Trace(u"PPT TranslateFullDocClicked\r\n");
            ShowPanePage(u"translate", u"full", control);
            return true;
        case kDispTranslateCurrentSlide:
            Trace(u"PPT TranslateCurrentSlideClicked\r\n");
            ShowPanePage(u"translate", u"slide", control);
            return true;
        case kDispTranslateSelection:
            Trace(u"PPT TranslateSelectionClicked\r\n");
            ShowPanePage(u"translate", u"selection", control);
            return true;
        case kDispShowPane:
            ShowPanePage(u"translate", std::nullopt, control);
            return true;
        case kDispGlossary:
            ShowPanePage(u"glossary", std::nullopt, control);
            return true;
        case kDispInstruction:
            ShowPanePage(u"instruction", std::nullopt, control);
            return true;
        case kDispAccount:
            ShowPanePage(u"account", std::nullopt, control);
            return true;
        case kDispSupport:
            SendEvent(kSupportClickEvent, u"ribbon");
            ShowPanePage(u"support", std::nullopt, control);
            return true;
        case kDispPdfTranslate:
            PdfTranslateClicked(control);
            return true;
        case kDispSettings:
            (void)ResolveUiLanguage(application_);
            SettingsClicked(control);
            return true;
        default:
            return false;
    }
}

std::u16string Connect::GetLabel(const host::HostRef& control) {
    (void)ResolveUiLanguage(application_);
    return RibbonLabel(control ? ReadHostText(control, u"Id") : std::u16string());
}

std::u16string Connect::GetScreentip(const host::HostRef& control) {
    (void)ResolveUiLanguage(application_);
    return RibbonScreentip(control ? ReadHostText(control, u"Id") : std::u16string());
}

void Connect::PdfTranslateClicked(const host::HostRef&) {
    Trace(u"PPT PdfTranslateClicked\r\n");
    const std::intptr_t code = platform_.OpenUrl(PdfTranslateUrl());
    if (code <= 32) {
        Trace(u"PPT PdfTranslate ShellExecute failed code=" + DecimalText(code) + u"\r\n");
        platform_.MessageBox(GetUiString(u"msg.browserFailed"), GetUiString(u"msg.title"),
                             kBoxWarning);
    }
}

void Connect::SettingsClicked(const host::HostRef&) {
    std::intptr_t owner = 0;
    host::HostRef window;
    if (SUCCEEDED(host::GetObject(application_, u"ActiveWindow", window))) {
        if (const std::intptr_t hwnd = ReadHwnd(window)) owner = platform_.RootWindow(hwnd);
    }
    if (owner == 0) {
        if (const std::intptr_t hwnd = ReadHwnd(application_)) owner = platform_.RootWindow(hwnd);
    }
    std::u16string language;
    if (!platform_.ShowUiLangDialog(owner, language)) return;
    (void)host::DispCall(ribbonUi_, u"Invalidate", nullptr, 0, nullptr);
    PptPane::BroadcastUiLang(language);
}

// --- Task panes ------------------------------------------------------------------

bool Connect::ResolveTargetWindow(const host::HostRef& control, WindowKey& key,
                                  host::HostRef& window, std::u16string& via) {
    if (control) {
        host::Variant context;
        if (SUCCEEDED(host::DispGet(control, u"Context", &context))) {
            const host::HostRef object = ObjectOf(context);
            if (object && object->Answers(host::HostInterface::DocumentWindow)) {
                const WindowKey k = WindowKeyOf(object);
                if (HasField(k)) {
                    key = k;
                    window = object;
                    via = u"ribbon_window";
                    return true;
                }
            } else if (object && object->Answers(host::HostInterface::Presentation)) {
                if (host::HostRef found = FindWindowOfPresentation(object)) {
                    key = WindowKeyOf(found);
                    window = std::move(found);
                    via = u"ribbon_presentation";
                    return true;
                }
            }
        }
    }
    host::HostRef active;
    if (SUCCEEDED(host::GetObject(application_, u"ActiveWindow", active)) && active) {
        const WindowKey k = WindowKeyOf(active);
        if (HasField(k)) {
            key = k;
            window = std::move(active);
            via = u"active_window";
            return true;
        }
    }
    return false;
}

host::HostRef Connect::FindWindowOfPresentation(const host::HostRef& presentation) {
    host::HostRef windows;
    std::int32_t count = 0;
    if (FAILED(host::GetObject(application_, u"Windows", windows)) ||
        FAILED(host::GetInt32(windows, u"Count", count))) {
        return nullptr;
    }
    host::HostRef first;
    for (std::int32_t i = 1; i <= count; ++i) {
        host::HostRef window, shown;
        if (FAILED(host::GetItem(windows, i, window)) ||
            FAILED(host::GetObject(window, u"Presentation", shown)) ||
            !host::SameIdentity(shown, presentation)) {
            continue;
        }
        std::int32_t active = 0;
        if (SUCCEEDED(host::GetInt32(window, u"Active", active)) && active == -1) return window;
        if (!first) first = std::move(window);
    }
    return first;
}

void Connect::ShowPanePage(const std::u16string& page, const std::optional<std::u16string>& mode,
                           const host::HostRef& control) {
    const std::u16string title = GetUiString(u"msg.title");
    if (!application_) {
        platform_.MessageBox(GetUiString(u"msg.hostNotReady.ppt"), title, kBoxWarning);
        return;
    }
    WindowKey key;
    host::HostRef window;
    std::u16string via;
    if (!ResolveTargetWindow(control, key, window, via)) {
        Trace(u"PPT ShowPanePage: no window resolved\r\n");
        platform_.MessageBox(GetUiString(u"msg.noWindow.ppt"), title, kBoxWarning);
        return;
    }
    Trace(u"PPT ShowPanePage page=" + page + u" via=" + via + u" " + WindowKeyText(key) + u"\r\n");
    PaneContext& context = CurrentPaneContext();
    context.page = (page.empty() ? std::u16string(u"translate") : page).substr(0, 32);

    bool created = false;
    if (FAILED(EnsureTaskPane(created, key, window))) return;
    const host::HostRef taskPane = TaskPaneOf(PaneMapKey(key));
    if (!taskPane) return;
    EnsureDockedRight(taskPane);

    if (mode && !mode->empty()) {
        context.mode = mode->substr(0, 16);
        if (PptPane* pane = FindPane(key)) {
            pane->SetPendingMode(*mode);
            if (pane->WindowExists()) pane->SetMode(*mode);
        }
    } else {
        context.mode.clear();
    }
    if (PptPane* pane = FindPane(key)) pane->ShowPage(context.page);
    (void)host::DispPut(taskPane, u"Visible", host::Variant::Bool(true));
    Trace(u"PPT ShowPanePage visible panes=" + Count(panes_.size()) + u" justCreated=" +
          (created ? u"1" : u"0") + u"\r\n");
}

HRESULT Connect::EnsureTaskPane(bool& created, const WindowKey& key, const host::HostRef& window) {
    created = false;
    if (!factory_) {
        Trace(u"PPT EnsureTaskPane: CTP factory null\r\n");
        platform_.MessageBox(GetUiString(u"msg.paneFactory.ppt"), GetUiString(u"msg.title"),
                             kBoxError);
        return E_FAIL;
    }
    PrunePanes();
    const std::int64_t mapKey = PaneMapKey(key);
    if (panes_.count(mapKey)) {
        Trace(u"PPT EnsureTaskPane reuse panes=" + Count(panes_.size()) + u" " +
              WindowKeyText(key) + u"\r\n");
        return S_OK;
    }
    if (!panes_.empty()) {
        Trace(u"PPT EnsureTaskPane no-match panes=" + Count(panes_.size()) + u" want " +
              WindowKeyText(key) + u"\r\n");
        for (const auto& [k, entry] : panes_) {
            Trace(u"PPT   existing key=" + DecimalText(k) + u" " + WindowKeyText(entry.key) +
                  u"\r\n");
        }
    }
    PaneContext& context = CurrentPaneContext();
    context.application = application_;
    context.window = key;
    context.paneNumber = NextPaneNumber();
    std::u16string title = GetUiString(u"msg.paneTitle");
    if (title.empty()) title = u"AI \u52A9\u624B \u00B7 Quillbrook";

    host::HostRef taskPane;
    HRESULT hr = factory_->CreateCtp(kPaneProgId, title, window, taskPane);
    context.application.reset();
    if (SUCCEEDED(hr) && !taskPane) hr = E_FAIL;
    if (FAILED(hr)) {
        const std::u16string hex = HexText(static_cast<std::uint32_t>(hr));
        Trace(u"PPT CreateCTP failed hr=0x" + hex + u"\r\n");
        platform_.MessageBox(FormatUiText(GetUiString(u"msg.createPaneFailed"), u"hr", u"0x" + hex),
                             GetUiString(u"msg.title"), kBoxError);
        return hr;
    }
    EnsureDockedRight(taskPane);

    host::HostRef shown;
    const WindowKey got =
        SUCCEEDED(host::GetObject(taskPane, u"Window", shown)) ? WindowKeyOf(shown) : WindowKey{};
    const bool matches = (key.hwnd != 0 && got.hwnd == key.hwnd) ||
                         (key.identity != 0 && got.identity == key.identity);
    if (!matches) {
        Trace(u"PPT CreateCTP window verify mismatch ctp[" + WindowKeyText(got) + u"] want[" +
              WindowKeyText(key) + u"]\r\n");
    }
    std::vector<host::HostRef> live;
    for (const auto& [k, entry] : panes_) {
        if (entry.taskPane) live.push_back(entry.taskPane);
    }
    const std::int32_t width = LoadPaneWidth(live);
    PaneEntry& entry = panes_[mapKey];
    entry = PaneEntry{taskPane, key, PaneWidthState{}};
    ActiveConnect() = this;
    const bool wps = IsWpsHost();
    BeginPaneWidth(entry.width, width, wps, taskPane);
    Trace(u"PPT pane width begin pt=" + DecimalText(width) + u" host=" +
          (wps ? u"wps" : u"office") + u"\r\n");
    Trace(u"PPT CreateCTP OK key=" + DecimalText(mapKey) + u" panes=" + Count(panes_.size()) +
          u" " + WindowKeyText(key) + u"\r\n");
    created = true;
    return S_OK;
}

void Connect::EnsureDockedRight(const host::HostRef& taskPane) {
    std::int32_t dock = 0;
    if (FAILED(host::GetInt32(taskPane, u"DockPosition", dock)) || dock != kDockRight) {
        (void)host::DispPut(taskPane, u"DockPosition", host::Variant::I4(kDockRight));
    }
}

void Connect::PrunePanes() {
    for (auto it = panes_.begin(); it != panes_.end();) {
        const PaneEntry& entry = it->second;
        const char16_t* reason = nullptr;
        if (!entry.taskPane) {
            reason = u"no_ctp";
        } else if (!HasField(entry.key) || !FindLiveWindow(application_, entry.key)) {
            reason = u"window_gone";
        }
        if (!reason) {
            ++it;
            continue;
        }
        Trace(u"PPT pane prune key=" + DecimalText(it->first) + u" reason=" + reason + u" " +
              WindowKeyText(entry.key) + u"\r\n");
        if (!entry.taskPane) {
            it = panes_.erase(it);
            continue;
        }
        const HRESULT hr = host::DispPut(entry.taskPane, u"Visible", host::Variant::Bool(false));
        if (SUCCEEDED(hr)) {
            it = panes_.erase(it);
        } else {
            Trace(u"PPT pane prune keep key=" + DecimalText(it->first) + u" hide hr=0x" +
                  HexText(static_cast<std::uint32_t>(hr)) + u"\r\n");
            ++it;
        }
    }
}

void Connect::ReleaseAllPanes() {
    for (auto& [k, entry] : panes_) {
        if (entry.taskPane) {
            (void)host::DispPut(entry.taskPane, u"Visible", host::Variant::Bool(false));
        }
    }
    panes_.clear();
}

void Connect::TickPaneWidths() {
    if (ActiveConnect() != this) return;
    for (auto& [k, entry] : panes_) {
        if (!entry.taskPane) continue;
        std::u16string line;
        if (PaneWidthStep(entry.width, entry.taskPane, line) != PaneWidthResult::None) {
            Trace(line + u"\r\n");
        }
    }
}

void Connect::SavePaneWidthsNow() {
    for (auto& [k, entry] : panes_) {
        if (entry.taskPane) SavePaneWidthNow(entry.width, entry.taskPane);
    }
}

const PaneWidthState* Connect::WidthStateOf(std::int64_t mapKey) const {
    const auto it = panes_.find(mapKey);
    return it == panes_.end() ? nullptr : &it->second.width;
}

host::HostRef Connect::TaskPaneOf(std::int64_t mapKey) const {
    const auto it = panes_.find(mapKey);
    return it == panes_.end() ? nullptr : it->second.taskPane;
}

}  // namespace qb
