// The interface ids of the host's type libraries behind each HostInterface:
// one table, read by the IDispatch adapter (to ask an object) and by the
// exported wrapper of the simulated host (to answer like one).
#pragma once

#include <windows.h>

#include <cstddef>

#include "slides/host_object.h"

namespace qb::host {

namespace iids {

// The presentation host's own type library ids share one suffix.
constexpr IID Host(unsigned long first) {
    return IID{first, 0x5A91, 0x11CF, {0x87, 0x00, 0x00, 0xAA, 0x00, 0x60, 0x26, 0x3B}};
}

inline constexpr IID kApplication[] = {Host(0x91493442)};
inline constexpr IID kDocumentWindow[] = {Host(0x91493457)};
inline constexpr IID kPresentation[] = {Host(0x9149349D)};
inline constexpr IID kSlide[] = {Host(0x9149346A)};
inline constexpr IID kSlideRange[] = {Host(0x9149346B)};
inline constexpr IID kShapes[] = {Host(0x91493475)};
inline constexpr IID kShape[] = {Host(0x91493479)};
inline constexpr IID kShapeRange[] = {Host(0x9149347A)};
inline constexpr IID kGroupShapes[] = {Host(0x9149347B)};
inline constexpr IID kTextFrame[] = {Host(0x91493484)};
// The host's own TextFrame2 first; the shared office library's TextFrame2
// is the same object model, so an object answering either one counts.
inline constexpr IID kTextFrame2[] = {
    Host(0x914934F9),
    IID{0x000C0398, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}};
// TextRange2 lives only in the shared office library.
inline constexpr IID kTextRange2[] = {
    IID{0x000C0397, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}};
inline constexpr IID kTextRange[] = {Host(0x9149348F)};
inline constexpr IID kFont[] = {Host(0x91493495)};
inline constexpr IID kTable[] = {Host(0x914934C3)};
inline constexpr IID kCell[] = {Host(0x914934C9)};
inline constexpr IID kChart[] = {
    IID{0x92D41A55, 0xF07E, 0x4CA4, {0xAF, 0x6F, 0xBE, 0xF4, 0x86, 0xAA, 0x4E, 0x6F}}};

}  // namespace iids

struct IidList {
    const IID* first;
    std::size_t count;
    const IID* begin() const { return first; }
    const IID* end() const { return first + count; }
};

// Every interface id that counts as `which`; QueryInterface for any of
// them succeeding means the object answers it.
inline IidList IidsOf(HostInterface which) {
    switch (which) {
#define QB_IIDS(name)         \
    case HostInterface::name: \
        return IidList{iids::k##name, sizeof iids::k##name / sizeof(IID)};
        QB_IIDS(Application)
        QB_IIDS(DocumentWindow)
        QB_IIDS(Presentation)
        QB_IIDS(Slide)
        QB_IIDS(SlideRange)
        QB_IIDS(Shapes)
        QB_IIDS(Shape)
        QB_IIDS(ShapeRange)
        QB_IIDS(GroupShapes)
        QB_IIDS(TextFrame)
        QB_IIDS(TextFrame2)
        QB_IIDS(TextRange)
        QB_IIDS(TextRange2)
        QB_IIDS(Font)
        QB_IIDS(Table)
        QB_IIDS(Cell)
        QB_IIDS(Chart)
#undef QB_IIDS
    }
    return IidList{nullptr, 0};
}

inline constexpr HostInterface kAllHostInterfaces[] = {
    HostInterface::Application, HostInterface::DocumentWindow, HostInterface::Presentation,
    HostInterface::Slide,       HostInterface::SlideRange,     HostInterface::Shapes,
    HostInterface::Shape,       HostInterface::ShapeRange,     HostInterface::GroupShapes,
    HostInterface::TextFrame,   HostInterface::TextFrame2,     HostInterface::TextRange,
    HostInterface::TextRange2,  HostInterface::Font,           HostInterface::Table,
    HostInterface::Cell,        HostInterface::Chart,
};

}  // namespace qb::host
