// Advances of text from the fonts installed on this machine: a face name is
// matched by fontconfig and measured by FreeType from the font's own
// horizontal advances. Only the face itself or a metric-compatible
// substitute of it is used; for any other face, unit or failure the metric
// model stays in charge, so a deck is never measured with an unrelated font.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "sim/host/sim_metrics.h"

namespace qb::sim::fonts {

class FontMetrics : public AdvanceSource {
  public:
    // Null when fontconfig or FreeType can't start.
    static std::shared_ptr<FontMetrics> Create();
    ~FontMetrics() override;

    // The run's Latin face (its East Asian face for wide characters), bold
    // and italic as set, times the size; nullopt for the model's.
    std::optional<float> Advance(char16_t unit, const CharFormat& format) override;

    // The advance of a unit in ems, nullopt where the model measures it.
    std::optional<float> EmAdvance(const std::u16string& face, bool bold, bool italic,
                                   char16_t unit);
    // The family that measures a face in a style; empty when none does.
    std::string MeasuringFamily(const std::u16string& face, bool bold, bool italic);

    FontMetrics(const FontMetrics&) = delete;
    FontMetrics& operator=(const FontMetrics&) = delete;

  private:
    struct State;
    explicit FontMetrics(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

}  // namespace qb::sim::fonts
