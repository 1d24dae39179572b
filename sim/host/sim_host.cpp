// The simulated host's shared machinery: counting, faults, the pump, deep
// copies, and the base of every simulated object.

#include "foundation/char_class.h"
#include "sim/host/sim_object.h"

namespace qb::sim {

std::shared_ptr<ShapeModel> TableModel::CellAt(std::int32_t row, std::int32_t column) const {
    if (row < 1 || column < 1 || row > rows || column > columns) return nullptr;
    std::size_t position = static_cast<std::size_t>((row - 1) * columns + (column - 1));
    if (position < mergedInto.size() && mergedInto[position] >= 0) {
        position = static_cast<std::size_t>(mergedInto[position]);
    }
    return position < cells.size() ? cells[position] : nullptr;
}

std::int32_t PresentationModel::IndexOf(const SlideModel* slide) const {
    for (std::size_t i = 0; i < slides.size(); ++i) {
        if (slides[i].get() == slide) return static_cast<std::int32_t>(i + 1);
    }
    return 0;
}

std::shared_ptr<ShapeModel> CloneShape(const ShapeModel& shape) {
    auto copy = std::make_shared<ShapeModel>(shape);
    for (auto& child : copy->children)
        child = CloneShape(*child);
    if (shape.table) {
        copy->table = std::make_shared<TableModel>(*shape.table);
        for (auto& cell : copy->table->cells)
            cell = CloneShape(*cell);
    }
    if (shape.chart) copy->chart = std::make_shared<ChartModel>(*shape.chart);
    if (shape.smartArt) copy->smartArt = std::make_shared<SmartArtModel>(*shape.smartArt);
    return copy;
}

std::shared_ptr<SlideModel> CloneSlide(const SlideModel& slide) {
    auto copy = std::make_shared<SlideModel>(slide);
    copy->copiedFrom = slide.slideId;
    for (auto& s : copy->shapes)
        s = CloneShape(*s);
    for (auto& s : copy->notesShapes)
        s = CloneShape(*s);
    return copy;
}

SimHost::SimHost(HostKind kind) : kind_(kind), app_(std::make_unique<ApplicationModel>()) {
    app_->name = kind == HostKind::Wps ? u"WPS \u6f14\u793a" : u"Microsoft PowerPoint";
    app_->version = kind == HostKind::Wps ? u"12.0" : u"16.0";
    textPutResetsFormat = kind == HostKind::Wps;
}

SimHost::~SimHost() = default;

std::shared_ptr<PresentationModel> SimHost::AddPresentation(
    std::shared_ptr<PresentationModel> deck) {
    app_->presentations.push_back(deck);
    auto window = std::make_shared<WindowModel>();
    window->presentation = deck;
    window->hwnd = 0x20000 + static_cast<std::intptr_t>(app_->windows.size()) * 0x10;
    app_->windows.push_back(window);
    app_->activeWindow = static_cast<std::int32_t>(app_->windows.size());
    return deck;
}

void SimHost::AddFault(FaultRule rule) {
    faults_.push_back(ActiveRule{std::move(rule), 0});
}

void SimHost::ClearFaults() {
    faults_.clear();
}

namespace {

std::u16string CountKey(std::u16string_view type, std::u16string_view member) {
    std::u16string key = ToLower(type);
    key += u'.';
    key += ToLower(member);
    return key;
}

bool AccessMatches(FaultRule::Access rule, FaultRule::Access call) {
    return rule == FaultRule::Access::Any || rule == call;
}

}  // namespace

std::uint64_t SimHost::Calls(std::u16string_view objectType, std::u16string_view member) const {
    const auto it = counts_.find(CountKey(objectType, member));
    return it == counts_.end() ? 0 : it->second;
}

void SimHost::ResetCounts() {
    counts_.clear();
    totalCalls_ = 0;
}

namespace {

using ShapeList = std::vector<std::shared_ptr<ShapeModel>>;

// The chain of shapes from a page down to `target`, found by a walk.
bool PathTo(const ShapeList& list, const void* target, std::vector<const ShapeModel*>& path) {
    for (const auto& shape : list) {
        path.push_back(shape.get());
        if (shape.get() == target || shape->chart.get() == target ||
            shape->smartArt.get() == target || PathTo(shape->children, target, path)) {
            return true;
        }
        if (shape->table) {
            for (const auto& cell : shape->table->cells) {
                if (cell.get() == target) {
                    path.push_back(cell.get());
                    return true;
                }
            }
        }
        path.pop_back();
    }
    return false;
}

}  // namespace

bool SimHost::IsInShapeNamed(const void* target, std::u16string_view name) const {
    if (!target) return false;
    for (const auto& deck : app_->presentations) {
        for (const auto& slide : deck->slides) {
            for (const ShapeList* page : {&slide->shapes, &slide->notesShapes}) {
                std::vector<const ShapeModel*> path;
                if (!PathTo(*page, target, path)) continue;
                for (const ShapeModel* shape : path) {
                    if (shape->name == name) return true;
                }
                return false;
            }
        }
    }
    return false;
}

HRESULT SimHost::BeforeCall(std::u16string_view type, std::u16string_view member,
                            FaultRule::Access access, const void* faultTarget) {
    std::u16string counted(member);
    if (access == FaultRule::Access::Put) counted += u'=';
    if (access == FaultRule::Access::Default) counted = u"()";
    ++counts_[CountKey(type, counted)];
    ++totalCalls_;
    // A host call may pump messages: queued jobs run inside it, once.
    if (pump && !inPump_) {
        inPump_ = true;
        pump();
        inPump_ = false;
    }
    for (ActiveRule& active : faults_) {
        const FaultRule& rule = active.rule;
        if (!rule.objectType.empty() && !EqualsIgnoreCase(rule.objectType, type)) continue;
        if (!rule.member.empty() && !EqualsIgnoreCase(rule.member, member)) continue;
        if (!AccessMatches(rule.access, access)) continue;
        if (!rule.shapeName.empty() && !IsInShapeNamed(faultTarget, rule.shapeName)) continue;
        ++active.seen;
        if (rule.nth != 0 && active.seen != rule.nth) continue;
        if (rule.crash) {
            volatile int* nowhere = nullptr;
            *nowhere = 1;  // the access violation a broken host raises
        }
        return rule.missing ? DISP_E_UNKNOWNNAME : rule.hr;
    }
    return S_OK;
}

namespace detail {

bool Args::Float(std::size_t i, float& out) const {
    double d = 0;
    if (i >= count_ || !(*this)[i].ToDouble(d)) return false;
    out = static_cast<float>(d);
    return true;
}

bool Args::String(std::size_t i, std::u16string& out) const {
    return i < count_ && (*this)[i].ToString(out);
}

HRESULT SimObject::Invoke(std::u16string_view member, host::InvokeKind kind, const Variant* args,
                          std::size_t count, Variant* result) {
    const bool put = kind == host::InvokeKind::Put;
    RETURN_IF_FAILED(host_.BeforeCall(
        type_, member, put ? FaultRule::Access::Put : FaultRule::Access::Get, FaultTarget()));
    const std::u16string name = ToLower(member);
    if (put) {
        if (count < 1) return DISP_E_BADPARAMCOUNT;
        // The seam puts the value first; the member's own arguments follow it.
        return Put(name, Args(args + 1, count - 1), args[0]);
    }
    Variant ignored;
    Variant& out = result ? *result : ignored;
    const HRESULT hr = Get(name, Args(args, count), out);
    if (SUCCEEDED(hr)) PassTargetOn(out);
    return hr;
}

void SimObject::PassTargetOn(const Variant& result) const {
    if (result.Type() != host::VarType::Object) return;
    auto* child = dynamic_cast<SimObject*>(result.ObjectValue().get());
    if (child && !child->FaultTarget()) child->inheritedTarget_ = FaultTarget();
}

HRESULT SimObject::InvokeDefault(const Variant* args, std::size_t count, Variant* result) {
    RETURN_IF_FAILED(host_.BeforeCall(type_, u"", FaultRule::Access::Default, FaultTarget()));
    Variant ignored;
    Variant& out = result ? *result : ignored;
    const HRESULT hr = Default(Args(args, count), out);
    if (SUCCEEDED(hr)) PassTargetOn(out);
    return hr;
}

HRESULT SimObject::Put(std::u16string_view, const Args&, const Variant&) {
    return DISP_E_MEMBERNOTFOUND;
}

HRESULT SimObject::Default(const Args&, Variant&) {
    return DISP_E_MEMBERNOTFOUND;
}

}  // namespace detail
}  // namespace qb::sim
