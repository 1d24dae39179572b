// Linux has no spreadsheet editor process: no window ever answers, so the
// commit stops at its window test unless a simulated editor is given.
#include "charts/wps_chart_commit.h"

namespace qb {
namespace {

class NoEditorWindows final : public EditorWindows {
  public:
    bool IsWindow(std::intptr_t) override { return false; }
    bool WindowProcessId(std::intptr_t, std::uint32_t&) override { return false; }
    std::uint32_t CurrentProcessId() override { return 0; }
    bool ClassName(std::intptr_t, std::u16string&) override { return false; }
    bool IsWindowVisible(std::intptr_t) override { return false; }
    bool PostClose(std::intptr_t) override { return false; }
};

}  // namespace

EditorWindows& SystemEditorWindows() {
    static NoEditorWindows windows;
    return windows;
}

}  // namespace qb
