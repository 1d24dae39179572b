// The simulated presentation host: an in-memory object model that answers
// the host-object seam the way the real hosts do, with their habits, that
// counts every call and can be told to lack or fail any member.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sim/host/sim_model.h"
#include "slides/host_object.h"

namespace qb::sim {

enum class HostKind { PowerPoint, Wps };

// Which calls a fault rule matches, and what they answer.
struct FaultRule {
    enum class Access { Any, Get, Put, Default };

    std::u16string objectType;  // "Shape", "TextRange", ...; empty: any type
    std::u16string member;      // ignoring case; empty: any member
    Access access = Access::Any;
    std::u16string shapeName;  // only objects of this shape, or inside it; empty: any
    std::int32_t nth = 0;      // only the nth matching call (one-based); 0: every one
    bool missing = false;      // answer as a host that lacks the member
    HRESULT hr = E_FAIL;
    // Raise an access violation, as a broken host does: only for tests of the
    // Windows fault guard, which turns it into E_FAIL (natively it ends the process).
    bool crash = false;
};

// How Slide.Duplicate behaves.
enum class DuplicateMode {
    Normal,         // the copy at index+1, a range of one slide
    AppendAtEnd,    // the copy appended after the last slide
    FailAfterCopy,  // the copy made, yet the call fails
    SeveralSlides,  // duplicateSlideCount slides behind the source, all in the range
};

// How Slides.Paste behaves.
enum class PasteMode { Normal, EmptyRange, Fail };

class SimHost {
  public:
    explicit SimHost(HostKind kind = HostKind::PowerPoint);
    ~SimHost();
    SimHost(const SimHost&) = delete;
    SimHost& operator=(const SimHost&) = delete;

    HostKind Kind() const { return kind_; }
    ApplicationModel& App() { return *app_; }
    // Adds a presentation in a new window, which becomes the active one.
    std::shared_ptr<PresentationModel> AddPresentation(std::shared_ptr<PresentationModel> deck);

    // The host's Application object: where the add-in starts.
    host::HostRef Application();

    // --- Faults --------------------------------------------------------------
    void AddFault(FaultRule rule);
    void ClearFaults();

    // --- Call counts ---------------------------------------------------------
    // Calls of one member of one object type; `member` "()" counts direct Item
    // calls, a trailing "=" counts puts. Names ignore case.
    std::uint64_t Calls(std::u16string_view objectType, std::u16string_view member) const;
    std::uint64_t TotalCalls() const { return totalCalls_; }
    const std::map<std::u16string, std::uint64_t>& CallCounts() const { return counts_; }
    void ResetCounts();

    // --- Habits --------------------------------------------------------------
    // Every call that returns a shape gives a new wrapper with its own
    // identity, so identity comparisons must fall back on Id and Name.
    bool unstableShapeIdentity = false;
    // Collections answer Item only as their default member, not by name.
    bool itemOnlyDirect = false;
    // A Text put resets colour and size of the new text (WPS habit).
    bool textPutResetsFormat = false;
    // Hosts without TextFrame2 (some WPS versions).
    bool hasTextFrame2 = true;
    DuplicateMode duplicateMode = DuplicateMode::Normal;
    std::int32_t duplicateSlideCount = 2;
    PasteMode pasteMode = PasteMode::Normal;
    // The type LanguageSettings.LanguageID answers in: I4 as the hosts do; I2,
    // R8 or String for a host that types the language id otherwise.
    host::VarType languageIdType = host::VarType::I4;
    // Runs before every host call, as a host that pumps messages in a call.
    std::function<void()> pump;

    // The slide Copy put on the clipboard, if any.
    std::shared_ptr<SlideModel> clipboard;

    // Used by the simulated objects.
    HRESULT BeforeCall(std::u16string_view type, std::u16string_view member,
                       FaultRule::Access access, const void* faultTarget);
    // Whether the shape, chart or SmartArt `target` is the shape named
    // `name`, or lies inside a group or table of that name.
    bool IsInShapeNamed(const void* target, std::u16string_view name) const;

  private:
    HostKind kind_;
    std::unique_ptr<ApplicationModel> app_;
    struct ActiveRule {
        FaultRule rule;
        std::int32_t seen = 0;
    };
    std::vector<ActiveRule> faults_;
    std::map<std::u16string, std::uint64_t> counts_;
    std::uint64_t totalCalls_ = 0;
    bool inPump_ = false;
};

// The WPS chart editor closing: the workbook is saved and closed, and the
// chart shows its cells.
void CommitChartEditor(ChartModel& chart);

// Deep copies for Duplicate and Copy: the same shapes, ids and tags.
std::shared_ptr<ShapeModel> CloneShape(const ShapeModel& shape);
std::shared_ptr<SlideModel> CloneSlide(const SlideModel& slide);

}  // namespace qb::sim
