// A host over a presentation file: the package is read into the simulated
// host's document model, so the engine meets the same objects and members
// it meets in the simulated host, and on save every text frame the run
// changed is written back into its XML at paragraph and run level; so is
// every SmartArt node, into its diagram's data part and the drawing part
// readers show. Parts that hold no change are written back with their
// original bytes.
//
// Charts are read with their caches and embedded workbook, and their
// changed texts written back into both (pptx_chart.h).
//
// What a run doesn't set itself (size, bold, italic, colour, Latin and East
// Asian faces, the theme's faces among them) it inherits from its list
// styles, its placeholders and its master.
//
// Slides the run copies (bilingual copies) get parts of their own on save,
// copied from their source's with the notes, charts and diagrams it owns;
// slide tags live in tags parts; a deleted slide leaves the package.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/host/sim_model.h"
#include "sim/pptx/pptx_chart.h"
#include "sim/pptx/zip_package.h"

namespace qb::pptx {

// One text frame as the model holds it, with where it stands.
struct FrameText {
    std::string place;  // "slide 2, Title 1", "slide 1 notes, Notes Placeholder 2", ...
    std::u16string text;
    std::vector<sim::CharFormat> formats;
};

class PptxDeck {
  public:
    ~PptxDeck();
    // Null with `error` set (one line, no file name) when the file can't be
    // read as a presentation.
    static std::unique_ptr<PptxDeck> Open(const std::string& path, std::string& error,
                                          const ZipLimits& limits = ZipLimits());

    const std::shared_ptr<sim::PresentationModel>& Model() const;
    // Every text frame of the model, slides in order, each slide's shapes
    // (groups and tables walked) then its notes.
    std::vector<FrameText> Texts() const;

    // Puts the model's changes into the XML and writes a new package to
    // `path`. Empty on success; on failure nothing is left at `path`.
    std::string Save(const std::string& path);
    // Frames written back by the last Save.
    std::size_t FramesWritten() const;
    // Every text of the deck's charts as the file holds it (after a Save: as
    // it was written), and the charts written back by the last Save.
    std::vector<ChartText> ChartTexts() const;
    std::size_t ChartsWritten() const;
    // One line for each chart that couldn't be read (the run passes it
    // over) and each chart whose workbook couldn't be (read around).
    const std::vector<std::string>& ChartProblems() const;

  private:
    struct State;
    explicit PptxDeck(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

}  // namespace qb::pptx
