// The simulated charts (titles, axes, series, data labels), their data
// workbook with sheets, ranges and cells, and SmartArt nodes.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "foundation/char_class.h"
#include "foundation/text.h"
#include "sim/host/sim_object.h"

namespace qb::sim::detail {
namespace {

using host::HostInterface;
using host::VarType;

// --- Text holders ---------------------------------------------------------

// TextFrame2 and its TextRange over one text of a chart label or node.
class TextHolderObject final : public SimObject {
  public:
    TextHolderObject(SimHost& host, std::u16string type, std::shared_ptr<std::u16string> text,
                     bool isFrame)
        : SimObject(host, std::move(type)), text_(std::move(text)), isFrame_(isFrame) {}
    bool Answers(HostInterface which) const override {
        return which == (isFrame_ ? HostInterface::TextFrame2 : HostInterface::TextRange2);
    }

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (isFrame_ && name == u"textrange") {
            result = Obj(std::make_shared<TextHolderObject>(host_, u"TextRange2", text_, false));
            return S_OK;
        }
        if (!isFrame_ && name == u"text") {
            result = Variant::String(*text_);
            return S_OK;
        }
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
        if (isFrame_ || name != u"text") return DISP_E_UNKNOWNNAME;
        if (value.Type() != VarType::String) return DISP_E_TYPEMISMATCH;
        *text_ = value.StringValue();
        return S_OK;
    }

  private:
    std::shared_ptr<std::u16string> text_;
    bool isFrame_;
};

// A chart title, axis title, display unit label or data label.
class LabelObject final : public SimObject {
  public:
    LabelObject(SimHost& host, std::u16string type, std::shared_ptr<ChartLabelModel> label,
                const DataLabelModel* data = nullptr)
        : SimObject(host, std::move(type)), label_(std::move(label)), data_(data) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if ((name == u"text" && label_->hasText) || (name == u"caption" && label_->hasCaption)) {
            result = Variant::String(label_->text);
            return S_OK;
        }
        if (name == u"textframe2" && label_->hasTextFrame2) {
            auto text = std::shared_ptr<std::u16string>(label_, &label_->text);
            result = Obj(std::make_shared<TextHolderObject>(host_, u"TextFrame2", text, true));
            return S_OK;
        }
        if (data_) {
            if (name == u"showvalue") return Flag(data_->showValue, result);
            if (name == u"showpercentage") return Flag(data_->showPercentage, result);
            if (name == u"showcategoryname") return Flag(data_->showCategoryName, result);
            if (name == u"showseriesname") return Flag(data_->showSeriesName, result);
            if (name == u"showbubblesize" && data_->hasShowBubbleSize) {
                return Flag(data_->showBubbleSize, result);
            }
        }
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
        if ((name == u"text" && label_->hasText) || (name == u"caption" && label_->hasCaption)) {
            if (value.Type() != VarType::String) return DISP_E_TYPEMISMATCH;
            label_->text = value.StringValue();
            return S_OK;
        }
        return DISP_E_UNKNOWNNAME;
    }

  private:
    static HRESULT Flag(bool value, Variant& result) {
        result = Truth(value);
        return S_OK;
    }

    std::shared_ptr<ChartLabelModel> label_;
    const DataLabelModel* data_;
};

// --- Sheet references -----------------------------------------------------

struct CellRef {
    std::u16string sheet;
    std::int32_t row1 = 0, column1 = 0, row2 = 0, column2 = 0;
};

// "$B$2", "B2", "A2:A5", each optionally after "Sheet1!".
bool ParseRef(std::u16string_view text, CellRef& ref) {
    const std::size_t bang = text.rfind(u'!');
    if (bang != std::u16string_view::npos) {
        ref.sheet = std::u16string(text.substr(0, bang));
        if (ref.sheet.size() >= 2 && ref.sheet.front() == u'\'' && ref.sheet.back() == u'\'') {
            ref.sheet = ref.sheet.substr(1, ref.sheet.size() - 2);
        }
        text = text.substr(bang + 1);
    }
    const auto one = [](std::u16string_view part, std::int32_t& row, std::int32_t& column) {
        std::size_t i = 0;
        column = 0;
        row = 0;
        if (i < part.size() && part[i] == u'$') ++i;
        for (; i < part.size() && IsLetter(part[i]) && part[i] < 0x80; ++i) {
            column = column * 26 + (ToLower(part[i]) - u'a' + 1);
        }
        if (i < part.size() && part[i] == u'$') ++i;
        for (; i < part.size() && part[i] >= u'0' && part[i] <= u'9'; ++i) {
            row = row * 10 + (part[i] - u'0');
        }
        return i == part.size() && row > 0 && column > 0;
    };
    const std::size_t colon = text.find(u':');
    if (colon == std::u16string_view::npos) {
        if (!one(text, ref.row1, ref.column1)) return false;
        ref.row2 = ref.row1, ref.column2 = ref.column1;
        return true;
    }
    return one(text.substr(0, colon), ref.row1, ref.column1) &&
           one(text.substr(colon + 1), ref.row2, ref.column2);
}

// The name and category references of "=SERIES(name,categories,values,order)".
bool ParseSeriesFormula(const std::u16string& formula, CellRef& name, CellRef& categories) {
    const std::size_t open = formula.find(u'(');
    const std::size_t close = formula.rfind(u')');
    if (open == std::u16string::npos || close == std::u16string::npos || close < open) return false;
    std::vector<std::u16string> parts(1);
    for (std::size_t i = open + 1; i < close; ++i) {
        if (formula[i] == u',') {
            parts.emplace_back();
        } else {
            parts.back() += formula[i];
        }
    }
    return parts.size() >= 2 && ParseRef(parts[0], name) && ParseRef(parts[1], categories);
}

std::u16string NumberText(double value) {
    if (std::floor(value) == value && std::fabs(value) < 1e15) {
        return AsciiToUtf16(std::to_string(static_cast<long long>(value)));
    }
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", value);
    return AsciiToUtf16(buffer);
}

std::u16string CellText(const SheetCellModel& cell) {
    if (!cell.shownText.empty()) return cell.shownText;
    return (cell.isNumber ? NumberText(cell.number) : cell.text) + cell.formatSuffix;
}

SheetModel* FindSheet(WorkbookModel& book, const std::u16string& name) {
    for (SheetModel& sheet : book.sheets) {
        if (name.empty() || EqualsIgnoreCase(sheet.name, name)) return &sheet;
    }
    return nullptr;
}

// A refresh makes the chart show what its sheet now holds.
void RefreshChart(ChartModel& chart) {
    ++chart.refreshes;
    for (SeriesModel& series : chart.series) {
        CellRef nameRef, categoryRef;
        if (!ParseSeriesFormula(series.formula, nameRef, categoryRef)) continue;
        if (SheetModel* sheet = FindSheet(chart.workbook, nameRef.sheet)) {
            if (const SheetCellModel* cell = sheet->Cell(nameRef.row1, nameRef.column1)) {
                series.name = CellText(*cell);
            }
        }
        if (SheetModel* sheet = FindSheet(chart.workbook, categoryRef.sheet)) {
            series.categories.clear();
            series.categoryIsNumber.clear();
            for (std::int32_t r = categoryRef.row1; r <= categoryRef.row2; ++r) {
                for (std::int32_t c = categoryRef.column1; c <= categoryRef.column2; ++c) {
                    const SheetCellModel* cell = sheet->Cell(r, c);
                    series.categories.push_back(cell ? CellText(*cell) : u"");
                    series.categoryIsNumber.push_back(cell && cell->isNumber);
                }
            }
        }
    }
}

Variant CategoryArray(const std::vector<std::u16string>& texts, const std::vector<bool>& numbers) {
    std::vector<Variant> items;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        double d = 0;
        if (i < numbers.size() && numbers[i] && Variant::String(texts[i]).ToDouble(d)) {
            items.push_back(Variant::R8(d));
        } else {
            items.push_back(Variant::String(texts[i]));
        }
    }
    return Variant::Array(std::move(items), 1);  // the host's arrays are one-based
}

bool ReadCategoryArray(const Variant& value, std::vector<std::u16string>& texts,
                       std::vector<bool>& numbers) {
    if (value.Type() != VarType::Array) return false;
    texts.clear();
    numbers.clear();
    for (const Variant& item : value.ArrayValue().elements) {
        std::u16string text;
        if (!item.ToString(text)) return false;
        texts.push_back(text);
        numbers.push_back(item.Type() != VarType::String);
    }
    return true;
}

// --- Workbook objects -----------------------------------------------------

class RangeObject final : public SimObject {
  public:
    RangeObject(SimHost& host, std::shared_ptr<ChartModel> chart, std::size_t sheet, CellRef ref)
        : SimObject(host, u"Range"),
          chart_(std::move(chart)),
          sheet_(sheet),
          ref_(std::move(ref)) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        if (!chart_->workbook.open) return E_FAIL;
        SheetModel& sheet = chart_->workbook.sheets[sheet_];
        const SheetCellModel* cell = sheet.Cell(ref_.row1, ref_.column1);
        if (name == u"row") {
            result = I4(ref_.row1);
        } else if (name == u"column") {
            result = I4(ref_.column1);
        } else if (name == u"rows" || name == u"columns") {
            const std::int32_t n =
                name == u"rows" ? ref_.row2 - ref_.row1 + 1 : ref_.column2 - ref_.column1 + 1;
            result = Obj(
                std::make_shared<CountObject>(host_, name == u"rows" ? u"Rows" : u"Columns", n));
        } else if (name == u"count") {
            result = I4((ref_.row2 - ref_.row1 + 1) * (ref_.column2 - ref_.column1 + 1));
        } else if (name == u"cells") {
            std::int32_t row = 0, column = 0;
            if (!args.Int(0, row) || !args.Int(1, column)) return DISP_E_TYPEMISMATCH;
            if (row < 1 || column < 1) return E_INVALIDARG;
            CellRef one;
            one.row1 = one.row2 = ref_.row1 + row - 1;
            one.column1 = one.column2 = ref_.column1 + column - 1;
            result = Obj(std::make_shared<RangeObject>(host_, chart_, sheet_, one));
        } else if (name == u"text") {
            result = Variant::String(cell ? CellText(*cell) : u"");
        } else if (name == u"value" || name == u"value2") {
            if (!cell) {
                result = Variant();
            } else if (cell->isNumber) {
                result = Variant::R8(cell->number);
            } else {
                result = Variant::String(cell->text);
            }
        } else if (name == u"hasformula") {
            result = Truth(cell && cell->hasFormula);
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

    HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
        if (!chart_->workbook.open) return E_FAIL;
        if (name != u"value" && name != u"value2") return DISP_E_UNKNOWNNAME;
        SheetCellModel& cell = chart_->workbook.sheets[sheet_].cells[{ref_.row1, ref_.column1}];
        if (value.Type() == VarType::String) {
            cell.text = value.StringValue();
            cell.isNumber = false;
        } else if (!value.ToDouble(cell.number)) {
            return DISP_E_TYPEMISMATCH;
        } else {
            cell.isNumber = true;
        }
        cell.shownText.clear();
        cell.hasFormula = false;
        return S_OK;  // the chart sees it only after a refresh
    }

  private:
    std::shared_ptr<ChartModel> chart_;
    std::size_t sheet_;
    CellRef ref_;
};

class WorksheetObject final : public SimObject {
  public:
    WorksheetObject(SimHost& host, std::shared_ptr<ChartModel> chart, std::size_t sheet)
        : SimObject(host, u"Worksheet"), chart_(std::move(chart)), sheet_(sheet) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        if (!chart_->workbook.open) return E_FAIL;
        SheetModel& sheet = chart_->workbook.sheets[sheet_];
        if (name == u"name") {
            result = Variant::String(sheet.name);
            return S_OK;
        }
        if (name == u"usedrange") {
            CellRef used;
            used.row1 = used.column1 = 1;
            if (!sheet.cells.empty()) {
                used.row1 = used.column1 = 1 << 20;
                for (const auto& [at, cell] : sheet.cells) {
                    used.row1 = std::min(used.row1, at.first);
                    used.column1 = std::min(used.column1, at.second);
                    used.row2 = std::max(used.row2, at.first);
                    used.column2 = std::max(used.column2, at.second);
                }
            } else {
                used.row2 = used.column2 = 1;
            }
            result = Obj(std::make_shared<RangeObject>(host_, chart_, sheet_, used));
            return S_OK;
        }
        CellRef ref;
        if (name == u"cells") {
            if (!args.Int(0, ref.row1) || !args.Int(1, ref.column1)) return DISP_E_TYPEMISMATCH;
            if (ref.row1 < 1 || ref.column1 < 1) return E_INVALIDARG;
            ref.row2 = ref.row1, ref.column2 = ref.column1;
        } else if (name == u"range") {
            std::u16string address;
            if (!args.String(0, address) || !ParseRef(address, ref) || !ref.sheet.empty()) {
                return E_INVALIDARG;
            }
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        result = Obj(std::make_shared<RangeObject>(host_, chart_, sheet_, ref));
        return S_OK;
    }

  private:
    std::shared_ptr<ChartModel> chart_;
    std::size_t sheet_;
};

class WorkbookObject;

class WorkbookPartObject final : public SimObject {
  public:
    // The workbook's Worksheets, Windows, Window, Workbooks and spreadsheet Application.
    enum class Kind { Worksheets, Windows, Window, Workbooks, Application };
    WorkbookPartObject(SimHost& host, std::shared_ptr<ChartModel> chart, Kind kind);

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override;
    HRESULT Put(std::u16string_view name, const Args& args, const Variant& value) override;
    HRESULT Default(const Args& args, Variant& result) override {
        if (kind_ == Kind::Worksheets || kind_ == Kind::Windows) return Get(u"item", args, result);
        return DISP_E_MEMBERNOTFOUND;
    }

  private:
    static std::u16string TypeOf(Kind kind) {
        switch (kind) {
            case Kind::Worksheets:
                return u"Worksheets";
            case Kind::Windows:
                return u"Windows";
            case Kind::Window:
                return u"Window";
            case Kind::Workbooks:
                return u"Workbooks";
            default:
                return u"SheetApplication";
        }
    }

    std::shared_ptr<ChartModel> chart_;
    Kind kind_;
};

class WorkbookObject final : public SimObject {
  public:
    WorkbookObject(SimHost& host, std::shared_ptr<ChartModel> chart)
        : SimObject(host, u"Workbook"), chart_(std::move(chart)) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        WorkbookModel& book = chart_->workbook;
        if (!book.open) return E_FAIL;
        using Kind = WorkbookPartObject::Kind;
        if (name == u"name") {
            result = Variant::String(book.name);
        } else if (name == u"application") {
            result = Obj(std::make_shared<WorkbookPartObject>(host_, chart_, Kind::Application));
        } else if (name == u"worksheets") {
            result = Obj(std::make_shared<WorkbookPartObject>(host_, chart_, Kind::Worksheets));
        } else if (name == u"windows") {
            result = Obj(std::make_shared<WorkbookPartObject>(host_, chart_, Kind::Windows));
        } else if (name == u"activate") {
        } else if (name == u"save") {
            ++book.saves;
        } else if (name == u"close") {
            book.open = false;
            chart_->activated = false;
            ++book.closes;
            // On WPS the cells reach the chart only when its editor window
            // closes (CommitChartEditor): a close by automation doesn't redraw.
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }

  private:
    std::shared_ptr<ChartModel> chart_;
};

WorkbookPartObject::WorkbookPartObject(SimHost& host, std::shared_ptr<ChartModel> chart, Kind kind)
    : SimObject(host, TypeOf(kind)), chart_(std::move(chart)), kind_(kind) {}

HRESULT WorkbookPartObject::Get(std::u16string_view name, const Args& args, Variant& result) {
    WorkbookModel& book = chart_->workbook;
    if (!book.open) return E_FAIL;
    switch (kind_) {
        case Kind::Worksheets:
            if (name == u"count") {
                result = I4(static_cast<std::int32_t>(book.sheets.size()));
                return S_OK;
            }
            if (name == u"item") {
                if (args.size() != 1) return DISP_E_BADPARAMCOUNT;
                if (args[0].Type() == VarType::String) {
                    for (std::size_t i = 0; i < book.sheets.size(); ++i) {
                        if (EqualsIgnoreCase(book.sheets[i].name, args[0].StringValue())) {
                            result = Obj(std::make_shared<WorksheetObject>(host_, chart_, i));
                            return S_OK;
                        }
                    }
                    return E_INVALIDARG;
                }
                std::int32_t i = 0;
                if (!args.Int(0, i)) return DISP_E_TYPEMISMATCH;
                if (i < 1 || i > static_cast<std::int32_t>(book.sheets.size())) return E_INVALIDARG;
                result = Obj(std::make_shared<WorksheetObject>(host_, chart_,
                                                               static_cast<std::size_t>(i - 1)));
                return S_OK;
            }
            break;
        case Kind::Windows:
            if (name == u"count") {
                result = I4(book.windowCount);
                return S_OK;
            }
            if (name == u"item") {
                std::int32_t i = 0;
                if (!args.Int(0, i)) return DISP_E_TYPEMISMATCH;
                if (i < 1 || i > book.windowCount) return E_INVALIDARG;
                result = Obj(std::make_shared<WorkbookPartObject>(host_, chart_, Kind::Window));
                return S_OK;
            }
            break;
        case Kind::Window:
            if (name == u"caption") {
                result =
                    Variant::String(book.windowCaption.empty() ? book.name : book.windowCaption);
                return S_OK;
            }
            if (name == u"visible") {
                result = Truth(book.windowVisible);
                return S_OK;
            }
            break;
        case Kind::Workbooks:
            if (name == u"count") {
                result = I4(book.otherWorkbooks + 1);
                return S_OK;
            }
            break;
        case Kind::Application:
            if (name == u"workbooks") {
                result = Obj(std::make_shared<WorkbookPartObject>(host_, chart_, Kind::Workbooks));
                return S_OK;
            }
            if (name == u"screenupdating") {
                result = Truth(book.screenUpdating);
                return S_OK;
            }
            if (name == u"calculate") {
                RefreshChart(*chart_);
                return S_OK;
            }
            if (name == u"activeworkbook") {
                result = Obj(std::make_shared<WorkbookObject>(host_, chart_));
                return S_OK;
            }
            if (name == u"hwnd") {
                result = I4(book.editorHwnd);
                return S_OK;
            }
            break;
    }
    return DISP_E_UNKNOWNNAME;
}

HRESULT WorkbookPartObject::Put(std::u16string_view name, const Args&, const Variant& value) {
    WorkbookModel& book = chart_->workbook;
    if (!book.open) return E_FAIL;
    std::int32_t flag = 0;
    if (!value.ToInt32(flag)) return DISP_E_TYPEMISMATCH;
    if (kind_ == Kind::Window && name == u"visible") {
        book.windowVisible = flag != 0;
        return S_OK;
    }
    if (kind_ == Kind::Application && name == u"screenupdating") {
        book.screenUpdating = flag != 0;
        return S_OK;
    }
    if (kind_ == Kind::Application && name == u"visible") {
        book.appVisible = flag != 0;
        return S_OK;
    }
    return DISP_E_UNKNOWNNAME;
}

class ChartDataObject final : public SimObject {
  public:
    ChartDataObject(SimHost& host, std::shared_ptr<ChartModel> chart)
        : SimObject(host, u"ChartData"), chart_(std::move(chart)) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (name == u"islinked" && chart_->hasIsLinked) {
            result = Truth(chart_->isLinked);
            return S_OK;
        }
        if (name == u"activate") {
            if (chart_->isLinked) return E_FAIL;
            chart_->activated = true;
            chart_->workbook.open = true;
            return S_OK;
        }
        if (name == u"workbook") {
            // The workbook is there only once the data has been activated.
            if (!chart_->activated || !chart_->workbook.open) return E_FAIL;
            result = Obj(std::make_shared<WorkbookObject>(host_, chart_));
            return S_OK;
        }
        return DISP_E_UNKNOWNNAME;
    }

  private:
    std::shared_ptr<ChartModel> chart_;
};

// --- Chart objects --------------------------------------------------------

class SeriesObject final : public SimObject {
  public:
    SeriesObject(SimHost& host, std::shared_ptr<ChartModel> chart, std::size_t index)
        : SimObject(host, u"Series"), chart_(std::move(chart)), index_(index) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        SeriesModel& s = chart_->series[index_];
        if (name == u"name") {
            result = Variant::String(s.name);
        } else if (name == u"formula") {
            if (s.formula.empty()) return E_FAIL;
            result = Variant::String(s.formula);
        } else if (name == u"xvalues") {
            result = CategoryArray(s.categories, s.categoryIsNumber);
            if (chart_->xValuesTwoDimensional) {
                host::VariantArray array = result.ArrayValue();
                array.lowerBounds = {1, 1};
                array.lengths = {static_cast<std::uint32_t>(array.elements.size()), 1};
                result = Variant::Array(std::move(array));
            }
        } else if (name == u"hasdatalabels") {
            result = Truth(s.hasDataLabels);
        } else if (name == u"datalabels") {
            if (!s.hasDataLabels) return E_FAIL;
            auto chart = chart_;
            const std::size_t series = index_;
            result = Obj(std::make_shared<ListObject>(
                host_, u"DataLabels",
                [chart, series] { return chart->series[series].dataLabels.size(); },
                [h = &host_, chart, series](std::size_t i) {
                    DataLabelModel& data = chart->series[series].dataLabels[i];
                    auto label = std::shared_ptr<ChartLabelModel>(chart, &data.label);
                    return HostRef(std::make_shared<LabelObject>(*h, u"DataLabel", label, &data));
                }));
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }
    HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
        SeriesModel& s = chart_->series[index_];
        if (name == u"name") {
            if (value.Type() != VarType::String) return DISP_E_TYPEMISMATCH;
            s.name = value.StringValue();
            return S_OK;
        }
        if (name == u"formula") {
            if (value.Type() != VarType::String) return DISP_E_TYPEMISMATCH;
            s.formula = value.StringValue();
            RefreshChart(*chart_);  // putting the formula makes the host read the cells again
            return S_OK;
        }
        if (name == u"xvalues") {
            return ReadCategoryArray(value, s.categories, s.categoryIsNumber) ? S_OK
                                                                              : DISP_E_TYPEMISMATCH;
        }
        return DISP_E_UNKNOWNNAME;
    }

  private:
    std::shared_ptr<ChartModel> chart_;
    std::size_t index_;
};

class SeriesCollectionObject final : public SimObject {
  public:
    SeriesCollectionObject(SimHost& host, std::shared_ptr<ChartModel> chart)
        : SimObject(host, u"SeriesCollection"), chart_(std::move(chart)) {}

    static HRESULT SeriesAt(SimHost& host, const std::shared_ptr<ChartModel>& chart,
                            const Args& args, Variant& result) {
        std::int32_t i = 0;
        if (!args.Int(0, i)) return DISP_E_TYPEMISMATCH;
        if (i < 1 || i > static_cast<std::int32_t>(chart->series.size())) return E_INVALIDARG;
        result = Obj(std::make_shared<SeriesObject>(host, chart, static_cast<std::size_t>(i - 1)));
        return S_OK;
    }

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        if (name == u"count") {
            result = I4(static_cast<std::int32_t>(chart_->series.size()));
            return S_OK;
        }
        if (name == u"item") return SeriesAt(host_, chart_, args, result);
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT Default(const Args& args, Variant& result) override {
        return SeriesAt(host_, chart_, args, result);
    }

  private:
    std::shared_ptr<ChartModel> chart_;
};

class AxisObject final : public SimObject {
  public:
    AxisObject(SimHost& host, std::shared_ptr<ChartModel> chart, std::size_t index)
        : SimObject(host, u"Axis"), chart_(std::move(chart)), index_(index) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        AxisModel& axis = chart_->axes[index_];
        if (name == u"hastitle") {
            result = Truth(axis.hasTitle);
        } else if (name == u"axistitle") {
            if (!axis.hasTitle) return E_FAIL;
            result = Obj(std::make_shared<LabelObject>(
                host_, u"AxisTitle", std::shared_ptr<ChartLabelModel>(chart_, &axis.title)));
        } else if (name == u"hasdisplayunitlabel") {
            result = Truth(axis.hasDisplayUnitLabel);
        } else if (name == u"displayunitlabel") {
            if (!axis.hasDisplayUnitLabel) return E_FAIL;
            result = Obj(std::make_shared<LabelObject>(
                host_, u"DisplayUnitLabel",
                std::shared_ptr<ChartLabelModel>(chart_, &axis.displayUnitLabel)));
        } else if (name == u"categorynames") {
            if (axis.type != 1) return E_FAIL;
            result = CategoryArray(Categories(), {});
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }
    HRESULT Put(std::u16string_view name, const Args&, const Variant& value) override {
        AxisModel& axis = chart_->axes[index_];
        if (name != u"categorynames") return DISP_E_UNKNOWNNAME;
        if (axis.type != 1) return E_FAIL;
        std::vector<bool> numbers;
        if (!ReadCategoryArray(value, chart_->axisCategoryNames, numbers))
            return DISP_E_TYPEMISMATCH;
        return S_OK;
    }

  private:
    std::vector<std::u16string> Categories() const {
        if (!chart_->axisCategoryNames.empty()) return chart_->axisCategoryNames;
        return chart_->series.empty() ? std::vector<std::u16string>()
                                      : chart_->series[0].categories;
    }

    std::shared_ptr<ChartModel> chart_;
    std::size_t index_;
};

class ChartObject final : public SimObject {
  public:
    ChartObject(SimHost& host, std::shared_ptr<ChartModel> chart)
        : SimObject(host, u"Chart"), chart_(std::move(chart)) {}
    bool Answers(HostInterface which) const override { return which == HostInterface::Chart; }

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        ChartModel& chart = *chart_;
        if (name == u"hastitle") {
            result = Truth(chart.hasTitle);
        } else if (name == u"charttitle") {
            if (!chart.hasTitle) return E_FAIL;
            result = Obj(std::make_shared<LabelObject>(
                host_, u"ChartTitle", std::shared_ptr<ChartLabelModel>(chart_, &chart.title)));
        } else if (name == u"hasaxis" || name == u"axes") {
            if (name == u"hasaxis" && !chart.hasHasAxis) return DISP_E_UNKNOWNNAME;
            std::int32_t type = 0, group = 1;
            if (!args.Int(0, type)) return DISP_E_TYPEMISMATCH;
            if (args.size() > 1 && !args.Int(1, group)) return DISP_E_TYPEMISMATCH;
            for (std::size_t i = 0; i < chart.axes.size(); ++i) {
                if (chart.axes[i].type == type && chart.axes[i].group == group) {
                    if (name == u"hasaxis") {
                        result = Truth(true);
                    } else {
                        result = Obj(std::make_shared<AxisObject>(host_, chart_, i));
                    }
                    return S_OK;
                }
            }
            if (name == u"axes") return E_FAIL;
            result = Truth(false);
        } else if (name == u"seriescollection") {
            if (args.size() > 0)
                return SeriesCollectionObject::SeriesAt(host_, chart_, args, result);
            if (!chart.seriesCollectionAsProperty) return DISP_E_BADPARAMCOUNT;
            result = Obj(std::make_shared<SeriesCollectionObject>(host_, chart_));
        } else if (name == u"chartdata") {
            if (!chart.hasChartData) return DISP_E_UNKNOWNNAME;
            result = Obj(std::make_shared<ChartDataObject>(host_, chart_));
        } else if (name == u"refresh") {
            RefreshChart(chart);
        } else {
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }
    const void* FaultTarget() const override { return chart_.get(); }

  private:
    std::shared_ptr<ChartModel> chart_;
};

// --- SmartArt -------------------------------------------------------------

class SmartArtNodeObject final : public SimObject {
  public:
    SmartArtNodeObject(SimHost& host, std::shared_ptr<SmartArtModel> art, std::size_t index)
        : SimObject(host, u"SmartArtNode"), art_(std::move(art)), index_(index) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args&, Variant& result) override {
        if (name != u"textframe2") return DISP_E_UNKNOWNNAME;
        auto text = std::shared_ptr<std::u16string>(art_, &art_->nodes[index_].text);
        result = Obj(std::make_shared<TextHolderObject>(host_, u"TextFrame2", text, true));
        return S_OK;
    }

  private:
    std::shared_ptr<SmartArtModel> art_;
    std::size_t index_;
};

class SmartArtObject final : public SimObject {
  public:
    SmartArtObject(SimHost& host, std::shared_ptr<SmartArtModel> art, bool nodes)
        : SimObject(host, nodes ? u"SmartArtNodes" : u"SmartArt"),
          art_(std::move(art)),
          nodes_(nodes) {}

  protected:
    HRESULT Get(std::u16string_view name, const Args& args, Variant& result) override {
        if (!nodes_) {
            if (name != u"nodes") return DISP_E_UNKNOWNNAME;
            if (!art_->usable) return E_FAIL;
            result = Obj(std::make_shared<SmartArtObject>(host_, art_, true));
            return S_OK;
        }
        if (name == u"count") {
            // Only the top-level nodes, as the host's Nodes gives them.
            result = I4(static_cast<std::int32_t>(art_->nodes.size()));
            return S_OK;
        }
        if (name == u"item") return Default(args, result);
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT Default(const Args& args, Variant& result) override {
        if (!nodes_) return DISP_E_MEMBERNOTFOUND;
        std::int32_t i = 0;
        if (!args.Int(0, i)) return DISP_E_TYPEMISMATCH;
        if (i < 1 || i > static_cast<std::int32_t>(art_->nodes.size())) return E_INVALIDARG;
        result =
            Obj(std::make_shared<SmartArtNodeObject>(host_, art_, static_cast<std::size_t>(i - 1)));
        return S_OK;
    }

    const void* FaultTarget() const override { return art_.get(); }

  private:
    std::shared_ptr<SmartArtModel> art_;
    bool nodes_;
};

}  // namespace

HostRef MakeChart(SimHost& host, std::shared_ptr<ShapeModel> shape) {
    return std::make_shared<ChartObject>(host,
                                         std::shared_ptr<ChartModel>(shape, shape->chart.get()));
}

HostRef MakeSmartArt(SimHost& host, std::shared_ptr<ShapeModel> shape) {
    return std::make_shared<SmartArtObject>(
        host, std::shared_ptr<SmartArtModel>(shape, shape->smartArt.get()), false);
}

}  // namespace qb::sim::detail

namespace qb::sim {

void CommitChartEditor(ChartModel& chart) {
    WorkbookModel& book = chart.workbook;
    if (!book.open) return;
    ++book.saves;
    ++book.closes;
    ++book.commits;
    book.open = false;
    book.windowVisible = false;
    chart.activated = false;
    detail::RefreshChart(chart);
}

}  // namespace qb::sim
