// The records of one run: its scope and options, the callbacks to the pane,
// the units with their texts and addresses, and the slide spans.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "run/run_types.h"

namespace qb {

enum class RunScope : std::int32_t { FullDeck = 0, CurrentSlide = 1, Selection = 2 };

// What a unit is; how its address is read back at writeback.
enum class UnitKind : std::int32_t {
    Frame = 0,
    TableCell = 1,
    NotesFrame = 2,
    ChartTitle = 3,
    SmartArtNode = 4,
    SelectedCharacters = 5,
    AxisTitle = 6,
    Category = 7,
    SeriesName = 8,
    DataLabel = 9,
    DisplayUnit = 10,
    SheetCell = 11,
};

inline constexpr std::int32_t kMaxShapeDepth = 32;

// Where a unit lives, by position only; no host object is held.
struct UnitAddress {
    UnitKind kind = UnitKind::Frame;
    std::int32_t slideIndex = 0;
    std::vector<std::int32_t> shapePath;  // one-based indexes, at most 32
    std::int32_t paragraphIndex = 0;
    std::uint8_t paragraphEndsInCr = 0;
    std::uint8_t wholeFrame = 0;
    std::int32_t row = 0;
    std::int32_t column = 0;
    std::int32_t smartArtNode = 0;
    std::uint8_t onNotesPage = 0;
    std::int32_t charStart = 0;
    std::int32_t charLength = 0;
    std::int32_t axisType = 0;
    std::int32_t axisGroup = 1;
    std::int32_t seriesIndex = 0;
    std::int32_t itemIndex = 0;
    std::uint8_t useAxisCategories = 0;
    std::u16string sheetName;
};

struct TextUnit {
    std::int32_t slideIndex = 0;
    std::u16string unitId;  // for logs only; no key
    std::u16string hostText;
    std::uint8_t paragraphFlag = 0;
    std::uint8_t frameCollapsed = 0;
    std::u16string sourceText;
    std::int32_t paragraphCount = 0;
};

// Formatting forced on the translation (font, size, colour, bold).
struct TargetStyle {
    std::u16string font;
    double size = 0.0;  // points; 0 means none
    std::int32_t color = -1;
    std::int32_t bold = -1;
};

// A document window as the pane knows it.
struct WindowKey {
    std::intptr_t hwnd = 0;
    std::intptr_t identity = 0;
};

struct TranslateClientConfig;

struct RunOptions {
    RunScope scope = RunScope::FullDeck;
    bool fullDeck = true;
    std::u16string targetLang = u"en";
    std::u16string sourceLang = u"auto";
    std::u16string targetFont;
    bool hasTargetSize = false;
    bool bilingualSlides = false;
    std::u16string accessToken;
    std::u16string clientTraceId;
    std::u16string usageKind = u"translate_full";
    std::uint64_t runId = 0;
    TargetStyle targetStyle;
    BatchTransport translateOverride;
    // The service exchange, taken when there is no override (set by the pane).
    BatchTransport nativeRoad;
    // Without a nativeRoad: the worker posts to the service itself, with the
    // run's own token and cancel and pause flags.
    bool nativeService = false;
    TerminologyResolver terminologyResolver;
    WindowKey window;
    TranslateClientConfig** liveConfigSlot = nullptr;
    const void* ownerPane = nullptr;
};

struct RunCallbacks {
    std::function<void()> onRunStarted;
    std::function<void(std::int32_t current, std::int32_t total, const std::u16string& phase)>
        onScanProgress;
    std::function<void(std::int32_t total, std::int32_t translatable)> onReady;
    ProgressCallback onProgress;  // from the worker thread
    std::function<void(std::int64_t elapsedMs, std::int32_t total, bool bilingualCopy)> onComplete;
    std::function<void(const std::u16string& code, const std::u16string& message)> onError;
    std::function<void()> onCancelled;
};

// The run's parallel lists under one index, and what collection adds.
struct RunLists {
    std::vector<TextUnit> units;
    std::vector<std::u16string> texts;
    std::vector<UnitAddress> addresses;
    std::vector<std::u16string> translations;
    std::vector<SlideSpan> spans;
    std::vector<std::int32_t> slideIndexes;  // one a span
    std::int32_t firstSlide = 1;
    // Set for a unit that a pass after the slide writes has already written.
    std::vector<bool> writtenUnits;
    std::vector<std::u16string> skippedLabels;
    std::int32_t skippedSmartArt = 0;
};

// A pane's run ids: raised to the tick count if below it, then incremented,
// each by a compare-and-exchange loop, so ids rise strictly.
std::uint64_t TakeRunId(std::atomic<std::uint64_t>& counter, std::uint64_t nowTick);

}  // namespace qb
