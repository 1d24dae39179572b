// The host-object seam over real IDispatch: a small fake object model is
// exported as IDispatch, wrapped again by the adapter the add-in uses, and
// walked with the by-name helpers, as the add-in walks the host. Also the
// VARIANT conversions, the interface ids, and the structured-exception guard
// with members that fault, on both Windows ABIs.
#include <gtest/gtest.h>

#include <windows.h>

#include <oleauto.h>

#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "foundation/com_win.h"
#include "foundation/wide_win.h"
#include "sim/dispatch/export_win.h"
#include "slides/automation.h"
#include "slides/dispatch_win.h"
#include "slides/host_iids_win.h"
#include "slides/seh_guard_win.h"

namespace qb::host {
namespace {

// --- A small portable object model, to export ----------------------------

class FakeShape final : public HostObject {
  public:
    FakeShape(std::u16string name, std::int32_t type, float left)
        : name(std::move(name)), type(type), left(left) {}

    HRESULT Invoke(std::u16string_view member, InvokeKind kind, const Variant* args,
                   std::size_t count, Variant* result) override {
        lastArgs.assign(args, args + count);
        const bool get = kind == InvokeKind::Get;
        if (member == u"Name") {
            if (get) return Give(result, Variant::String(name));
            return args[0].ToString(name) ? S_OK : DISP_E_TYPEMISMATCH;
        }
        if (member == u"Type" && get) return Give(result, Variant::I4(type));
        if (member == u"Left") {
            if (get) return Give(result, Variant::R4(left));
            double d = 0;
            if (!args[0].ToDouble(d)) return DISP_E_TYPEMISMATCH;
            left = static_cast<float>(d);
            return S_OK;
        }
        if (member == u"Text") {
            if (get) return Give(result, Variant::String(text));
            if (args[0].Type() != VarType::String) return DISP_E_TYPEMISMATCH;
            text = args[0].StringValue();
            return S_OK;
        }
        if (member == u"Visible") {
            if (get) return Give(result, Variant::Bool(visible));
            if (args[0].Type() != VarType::Bool) return DISP_E_TYPEMISMATCH;
            visibleAsPut = args[0].BoolValue();
            visible = visibleAsPut != 0;
            return S_OK;
        }
        if (member == u"Tag") {  // Tag(key), get and put
            const std::size_t keyAt = get ? 0 : 1;
            if (count != keyAt + 1 || args[keyAt].Type() != VarType::String)
                return DISP_E_BADPARAMCOUNT;
            if (get) return Give(result, tags[args[keyAt].StringValue()]);
            tags[args[keyAt].StringValue()] = args[0];
            return S_OK;
        }
        if (member == u"Echo" && get) {  // all its arguments, as received
            return Give(result, Variant::Array(std::vector<Variant>(args, args + count)));
        }
        if (member == u"EchoFirst" && get && count == 1) return Give(result, args[0]);
        if (member == u"Fails" && get) return E_ACCESSDENIED;
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT InvokeDefault(const Variant*, std::size_t, Variant*) override {
        return DISP_E_MEMBERNOTFOUND;
    }
    const void* Identity() const override { return this; }
    bool Answers(HostInterface which) const override {
        return which == HostInterface::Shape || (textFrame2 && which == HostInterface::TextFrame2);
    }

    std::u16string name;
    std::int32_t type;
    float left;
    std::u16string text;
    bool visible = false;
    std::int16_t visibleAsPut = 1;  // neither -1 nor 0 until put
    std::map<std::u16string, Variant> tags;
    std::vector<Variant> lastArgs;
    bool textFrame2 = false;

  private:
    static HRESULT Give(Variant* result, Variant value) {
        if (result) *result = std::move(value);
        return S_OK;
    }
};

// An object that answers nothing: not a shape, no members.
class FakeThing final : public HostObject {
  public:
    HRESULT Invoke(std::u16string_view, InvokeKind, const Variant*, std::size_t,
                   Variant*) override {
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT InvokeDefault(const Variant*, std::size_t, Variant*) override {
        return DISP_E_MEMBERNOTFOUND;
    }
    const void* Identity() const override { return this; }
    bool Answers(HostInterface) const override { return false; }
};

// A Shapes collection: Count, Item(index or name) and the same as the
// default member. Its items need not be shapes, nor objects.
class FakeShapes final : public HostObject {
  public:
    HRESULT Invoke(std::u16string_view member, InvokeKind kind, const Variant* args,
                   std::size_t count, Variant* result) override {
        if (kind != InvokeKind::Get) return DISP_E_MEMBERNOTFOUND;
        if (member == u"Count") {
            *result = Variant::I4(static_cast<std::int32_t>(items.size()));
            return S_OK;
        }
        if (member == u"Item" && itemByName) {
            ++itemCalls;
            return Item(args, count, result);
        }
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT InvokeDefault(const Variant* args, std::size_t count, Variant* result) override {
        ++defaultCalls;
        return Item(args, count, result);
    }
    const void* Identity() const override { return this; }
    bool Answers(HostInterface which) const override { return which == HostInterface::Shapes; }

    std::vector<Variant> items;
    bool itemByName = true;
    int itemCalls = 0;
    int defaultCalls = 0;

  private:
    HRESULT Item(const Variant* args, std::size_t count, Variant* result) {
        if (count != 1) return DISP_E_BADPARAMCOUNT;
        if (args[0].Type() == VarType::String) {
            for (const Variant& item : items) {
                auto* shape = dynamic_cast<FakeShape*>(item.ObjectValue().get());
                if (shape && shape->name == args[0].StringValue()) {
                    *result = item;
                    return S_OK;
                }
            }
            return DISP_E_BADINDEX;
        }
        std::int32_t index = 0;
        if (!args[0].ToInt32(index)) return DISP_E_TYPEMISMATCH;
        if (index < 1 || index > static_cast<std::int32_t>(items.size())) return DISP_E_BADINDEX;
        *result = items[static_cast<std::size_t>(index) - 1];
        return S_OK;
    }
};

// The fake model, exported, and the adapter the add-in would hold over it.
struct Model {
    std::shared_ptr<FakeShapes> shapes = std::make_shared<FakeShapes>();
    std::shared_ptr<FakeShape> title = std::make_shared<FakeShape>(u"Title 1", 14, 12.25f);
    std::shared_ptr<FakeShape> body = std::make_shared<FakeShape>(u"Body 2", 1, 40.5f);
    std::shared_ptr<FakeThing> thing = std::make_shared<FakeThing>();
    ComPtr<IDispatch> exported;
    HostRef adapter;

    Model() {
        shapes->items = {Variant::Object(title), Variant::Object(body), Variant::Object(thing),
                         Variant::I4(42)};
        EXPECT_EQ(sim::ExportDispatch(shapes, &exported), S_OK);
        adapter = DispatchObject::Wrap(exported.Get(), sim::ExportBridge());
    }

    // Item(index) through IDispatch, as an adapter.
    HostRef Shape(std::int32_t index) {
        HostRef out;
        EXPECT_EQ(GetItem(adapter, index, out), S_OK);
        return out;
    }
};

const std::u16string kWithNul(u"a\0b\U0001F600", 5);

// --- Round trips through real IDispatch ----------------------------------

TEST(DispatchRoundTrip, WalksTheCollectionByName) {
    Model model;
    std::int32_t count = 0;
    ASSERT_EQ(GetInt32(model.adapter, u"Count", count), S_OK);
    EXPECT_EQ(count, 4);

    const HostRef shape = model.Shape(1);
    ASSERT_NE(shape, nullptr);
    // What came back is an adapter over another exported IDispatch, not the fake.
    ASSERT_NE(dynamic_cast<DispatchObject*>(shape.get()), nullptr);
    EXPECT_EQ(model.shapes->itemCalls, 1);
    EXPECT_EQ(model.shapes->defaultCalls, 0);

    std::u16string name;
    std::int32_t type = 0;
    float left = 0;
    ASSERT_EQ(GetString(shape, u"Name", name), S_OK);
    ASSERT_EQ(GetInt32(shape, u"Type", type), S_OK);
    ASSERT_EQ(GetFloat(shape, u"Left", left), S_OK);
    EXPECT_EQ(name, u"Title 1");
    EXPECT_EQ(type, 14);
    EXPECT_EQ(left, 12.25f);
    Variant raw;
    ASSERT_EQ(DispGet(shape, u"Left", &raw), S_OK);
    EXPECT_EQ(raw, Variant::R4(12.25f));  // R4 stays R4 through both layers

    // Item by name, with a string.
    const Variant byName = Variant::String(u"Body 2");
    Variant found;
    ASSERT_EQ(DispCall(model.adapter, u"Item", &byName, 1, &found), S_OK);
    EXPECT_TRUE(SameIdentity(found.ObjectValue(), model.Shape(2)));
}

TEST(DispatchRoundTrip, FallsBackToTheDirectItem) {
    Model model;
    model.shapes->itemByName = false;
    const HostRef shape = model.Shape(2);
    ASSERT_NE(shape, nullptr);
    std::u16string name;
    ASSERT_EQ(GetString(shape, u"Name", name), S_OK);
    EXPECT_EQ(name, u"Body 2");
    EXPECT_EQ(model.shapes->defaultCalls, 1);

    HostRef direct;
    ASSERT_EQ(GetItemDirect(model.adapter, 1, direct), S_OK);
    EXPECT_EQ(model.shapes->defaultCalls, 2);
    EXPECT_EQ(GetItemDirect(model.adapter, 9, direct), DISP_E_BADINDEX);
}

TEST(DispatchRoundTrip, DispItemAnswersShapesOnly) {
    Model model;
    struct Case {
        std::int32_t index;
        HRESULT expected;
    };
    const Case cases[] = {{1, S_OK}, {3, E_NOINTERFACE}, {4, E_FAIL}, {9, DISP_E_BADINDEX}};
    for (const Case& c : cases) {
        HostRef shape;
        EXPECT_EQ(DispItem(model.adapter, c.index, shape), c.expected) << "index " << c.index;
        EXPECT_EQ(shape != nullptr, c.expected == S_OK) << "index " << c.index;
    }
}

TEST(DispatchRoundTrip, PutsReachTheObjectWithTheirArguments) {
    Model model;
    const HostRef shape = model.Shape(1);
    ASSERT_EQ(DispPut(shape, u"Left", Variant::R4(30.5f)), S_OK);
    EXPECT_EQ(model.title->left, 30.5f);
    ASSERT_EQ(DispPut(shape, u"Text", Variant::String(kWithNul)), S_OK);
    EXPECT_EQ(model.title->text, kWithNul);
    ASSERT_EQ(DispPut(shape, u"Name", Variant::String(u"Renamed")), S_OK);
    EXPECT_EQ(model.title->name, u"Renamed");

    // Tag("lang") = "fr": the value is element 0, the key follows it.
    const Variant key = Variant::String(u"lang");
    ASSERT_EQ(DispPut(shape, u"Tag", Variant::String(u"fr"), &key, 1), S_OK);
    EXPECT_EQ(model.title->tags[u"lang"], Variant::String(u"fr"));
    EXPECT_EQ(model.title->lastArgs,
              (std::vector<Variant>{Variant::String(u"fr"), Variant::String(u"lang")}));
    Variant tag;
    ASSERT_EQ(DispCall(shape, u"Tag", &key, 1, &tag), S_OK);
    EXPECT_EQ(tag, Variant::String(u"fr"));

    EXPECT_EQ(DispPut(shape, u"Text", Variant::I4(1)), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(DispGet(shape, u"Fails", nullptr), E_ACCESSDENIED);
}

TEST(DispatchRoundTrip, BooleansAreMinusOneAndZero) {
    Model model;
    const HostRef shape = model.Shape(1);
    for (bool value : {true, false, true}) {
        ASSERT_EQ(DispPut(shape, u"Visible", Variant::Bool(value)), S_OK);
        EXPECT_EQ(model.title->visibleAsPut, value ? -1 : 0);
        bool read = !value;
        ASSERT_EQ(GetTruth(shape, u"Visible", read), S_OK);
        EXPECT_EQ(read, value);
        Variant raw;
        ASSERT_EQ(DispGet(shape, u"Visible", &raw), S_OK);
        EXPECT_EQ(raw.Type(), VarType::Bool);
        EXPECT_EQ(raw.BoolValue(), value ? -1 : 0);
    }
    // And on the wire, VARIANT_TRUE itself.
    ComPtr<IDispatch> exported;
    ASSERT_EQ(sim::ExportDispatch(model.title, &exported), S_OK);
    LPOLESTR name = const_cast<LPOLESTR>(L"Visible");
    DISPID id = 0;
    ASSERT_EQ(exported->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id), S_OK);
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    ScopedVariant result;
    ASSERT_EQ(exported->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none,
                               result.Get(), nullptr, nullptr),
              S_OK);
    EXPECT_EQ(V_VT(result.Get()), VT_BOOL);
    EXPECT_EQ(V_BOOL(result.Get()), VARIANT_TRUE);
    EXPECT_EQ(V_BOOL(result.Get()), -1);
}

TEST(DispatchRoundTrip, StringsKeepEmbeddedNulsAndSurrogates) {
    Model model;
    const HostRef shape = model.Shape(1);
    const std::u16string texts[] = {u"",
                                    kWithNul,
                                    u"\U0001F600\U00020000",
                                    u"x\xD800y",
                                    std::u16string(3, u'\0'),
                                    u"line\rbreak\vsoft"};
    for (const std::u16string& text : texts) {
        const Variant arg = Variant::String(text);
        Variant back;
        ASSERT_EQ(DispCall(shape, u"EchoFirst", &arg, 1, &back), S_OK);
        EXPECT_EQ(back.StringValue().size(), text.size());
        EXPECT_EQ(back, arg);
    }
}

TEST(DispatchRoundTrip, ArgumentsLieLastFirstThroughBothLayers) {
    Model model;
    const HostRef shape = model.Shape(1);
    // Echo(1, "two", 3.5): last first, as rgvarg has them.
    const std::vector<Variant> args = {Variant::R8(3.5), Variant::String(u"two"), Variant::I4(1)};
    Variant back;
    ASSERT_EQ(DispCall(shape, u"Echo", args.data(), args.size(), &back), S_OK);
    EXPECT_EQ(model.title->lastArgs, args);
    EXPECT_EQ(back, Variant::Array(args));
}

TEST(DispatchRoundTrip, ArraysKeepBoundsShapeAndMixedTypes) {
    Model model;
    const HostRef shape = model.Shape(1);
    const Variant mixed[] = {Variant::I4(1),      Variant::String(u"two"), Variant::R8(3.5),
                             Variant::Bool(true), Variant::Null(),         Variant(),
                             Variant::I2(7),      Variant::R4(1.25f)};
    const std::vector<Variant> mixedList(std::begin(mixed), std::end(mixed));
    const Variant arrays[] = {
        Variant::Array(mixedList, 1),
        Variant::Array(mixedList, -3),
        Variant::Array(VariantArray{{1, 0}, {2, 4}, mixedList}),
        Variant::Array(VariantArray{{1, 1}, {4, 2}, mixedList}),
        Variant::Array(VariantArray{{0, 0, 0}, {2, 2, 2}, mixedList}),
        Variant::Array(std::vector<Variant>{}, 1),
        Variant::Array({Variant::Array({Variant::I4(1), Variant::I4(2)}, 1), Variant::I4(3)}),
    };
    for (const Variant& array : arrays) {
        Variant back;
        ASSERT_EQ(DispCall(shape, u"EchoFirst", &array, 1, &back), S_OK);
        EXPECT_EQ(back, array);
    }
}

TEST(DispatchRoundTrip, MissingMembersAnswerUnknownNameThroughBothLayers) {
    Model model;
    const HostRef shape = model.Shape(1);
    Variant value;
    EXPECT_EQ(DispGet(shape, u"TextFrame2", &value), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(DispPut(shape, u"TextFrame2", Variant::I4(1)), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(DispGet(model.adapter, u"GroupItems", &value), DISP_E_UNKNOWNNAME);
    EXPECT_TRUE(value.IsEmpty());
    // A member the object has still answers after a miss on the same name table.
    std::u16string name;
    EXPECT_EQ(GetString(shape, u"Name", name), S_OK);
}

TEST(DispatchRoundTrip, IdentityFollowsTheObjectNotTheReference) {
    Model model;
    const HostRef first = model.Shape(1);
    const HostRef again = model.Shape(1);
    const HostRef other = model.Shape(2);
    ASSERT_NE(first, again);                  // two adapters...
    EXPECT_TRUE(SameIdentity(first, again));  // ...over one object
    EXPECT_FALSE(SameIdentity(first, other));

    ComPtr<IDispatch> a, b;
    ASSERT_EQ(sim::ExportDispatch(model.title, &a), S_OK);
    ASSERT_EQ(sim::ExportDispatch(model.title, &b), S_OK);
    EXPECT_EQ(a.Get(), b.Get());
    EXPECT_EQ(DispatchObject::Wrap(a.Get())->Identity(), first->Identity());
    ComPtr<IUnknown> unknown;
    ASSERT_EQ(a.As(&unknown), S_OK);
    EXPECT_EQ(first->Identity(), static_cast<const void*>(unknown.Get()));
}

TEST(DispatchRoundTrip, ObjectArgumentsArriveAsTheObjectsThemselves) {
    Model model;
    const HostRef shape = model.Shape(1);
    // An adapter over one of our exports goes back as the fake it carries...
    const Variant adapterArg = Variant::Object(model.Shape(2));
    ASSERT_EQ(DispCall(shape, u"Echo", &adapterArg, 1, nullptr), S_OK);
    ASSERT_EQ(model.title->lastArgs.size(), 1u);
    EXPECT_EQ(model.title->lastArgs[0].ObjectValue(), HostRef(model.body));
    // ...and so does a portable object that never was an IDispatch.
    const HostRef loose = std::make_shared<FakeThing>();
    const Variant looseArg = Variant::Object(loose);
    ASSERT_EQ(DispCall(shape, u"Echo", &looseArg, 1, nullptr), S_OK);
    EXPECT_EQ(model.title->lastArgs[0].ObjectValue(), loose);
    // Without a bridge, the add-in's adapter refuses a portable object.
    const HostRef bare = DispatchObject::Wrap(model.exported.Get());
    Variant value;
    EXPECT_EQ(DispCall(bare, u"Count", &looseArg, 1, &value), DISP_E_TYPEMISMATCH);
    // Objects inside arrays cross as well.
    const Variant inArray = Variant::Array({Variant::Object(loose), Variant::I4(2)}, 1);
    ASSERT_EQ(DispCall(shape, u"Echo", &inArray, 1, nullptr), S_OK);
    EXPECT_EQ(model.title->lastArgs[0].ArrayValue().elements[0].ObjectValue(), loose);
}

// --- The exported wrapper on its own -------------------------------------

DISPID IdOf(IDispatch* dispatch, const wchar_t* name) {
    LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
    DISPID id = DISPID_UNKNOWN;
    EXPECT_EQ(dispatch->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id), S_OK);
    return id;
}

TEST(ExportedDispatch, NamesHaveStableCaseInsensitiveIds) {
    Model model;
    const DISPID left = IdOf(model.exported.Get(), L"Left");
    EXPECT_GT(left, 0);  // never the default member's 0, nor a reserved negative id
    EXPECT_EQ(IdOf(model.exported.Get(), L"LEFT"), left);
    EXPECT_EQ(IdOf(model.exported.Get(), L"left"), left);
    ComPtr<IDispatch> other;
    ASSERT_EQ(sim::ExportDispatch(model.body, &other), S_OK);
    EXPECT_EQ(IdOf(other.Get(), L"Left"), left);
    EXPECT_NE(IdOf(model.exported.Get(), L"Top"), left);

    // The seam has no named parameters.
    LPOLESTR names[] = {const_cast<LPOLESTR>(L"Cell"), const_cast<LPOLESTR>(L"Row")};
    DISPID ids[2] = {0, 0};
    EXPECT_EQ(model.exported->GetIDsOfNames(IID_NULL, names, 2, LOCALE_USER_DEFAULT, ids),
              DISP_E_UNKNOWNNAME);
    EXPECT_EQ(ids[1], DISPID_UNKNOWN);
    EXPECT_EQ(model.exported->GetIDsOfNames(IID_IDispatch, names, 1, LOCALE_USER_DEFAULT, ids),
              DISP_E_UNKNOWNINTERFACE);
}

TEST(ExportedDispatch, AnswersTheHostInterfacesTheObjectAnswers) {
    Model model;
    ComPtr<IDispatch> shape;
    ASSERT_EQ(sim::ExportDispatch(model.title, &shape), S_OK);
    struct Case {
        IID iid;
        bool answered;
    };
    const Case cases[] = {
        {IID_IUnknown, true},      {IID_IDispatch, true},    {iids::kShape[0], true},
        {iids::kShapes[0], false}, {iids::kSlide[0], false}, {iids::kTextFrame2[0], false},
        {IID_IEnumVARIANT, false},
    };
    for (const Case& c : cases) {
        ComPtr<IUnknown> answer;
        EXPECT_EQ(shape->QueryInterface(c.iid, &answer), c.answered ? S_OK : E_NOINTERFACE);
        EXPECT_EQ(answer != nullptr, c.answered);
        if (answer) {
            ComPtr<IUnknown> identity;
            ASSERT_EQ(answer.As(&identity), S_OK);
            EXPECT_EQ(identity.Get(), static_cast<IUnknown*>(shape.Get()));
        }
    }
    // Either TextFrame2 counts, the host's own or the shared office one.
    model.title->textFrame2 = true;
    for (const IID& iid : iids::kTextFrame2) {
        ComPtr<IUnknown> answer;
        EXPECT_EQ(shape->QueryInterface(iid, &answer), S_OK);
    }
    const HostRef adapter = DispatchObject::Wrap(shape.Get());
    EXPECT_TRUE(adapter->Answers(HostInterface::Shape));
    EXPECT_TRUE(adapter->Answers(HostInterface::TextFrame2));
    EXPECT_FALSE(adapter->Answers(HostInterface::Slide));
    EXPECT_FALSE(adapter->Answers(HostInterface::TextRange2));
}

TEST(ExportedDispatch, FailuresComeBackAsTheirHresultWithAnEmptyExcepinfo) {
    Model model;
    ComPtr<IDispatch> shape;
    ASSERT_EQ(sim::ExportDispatch(model.title, &shape), S_OK);
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    struct Case {
        const wchar_t* member;
        HRESULT expected;
    };
    const Case cases[] = {{L"Fails", E_ACCESSDENIED}, {L"Missing", DISP_E_UNKNOWNNAME}};
    for (const Case& c : cases) {
        EXCEPINFO info;
        std::memset(&info, 0x5A, sizeof info);
        ScopedVariant result;
        EXPECT_EQ(shape->Invoke(IdOf(shape.Get(), c.member), IID_NULL, LOCALE_USER_DEFAULT,
                                DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none, result.Get(), &info,
                                nullptr),
                  c.expected);
        EXPECT_EQ(info.scode, 0);
        EXPECT_EQ(info.wCode, 0);
        EXPECT_EQ(info.bstrDescription, nullptr);
        EXPECT_EQ(V_VT(result.Get()), VT_EMPTY);
    }
    // An id never handed out, and a put of the default member.
    ScopedVariant value;
    EXPECT_EQ(shape->Invoke(0x7FFF0000, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none,
                            value.Get(), nullptr, nullptr),
              DISP_E_MEMBERNOTFOUND);
    V_VT(value.Get()) = VT_I4;
    V_I4(value.Get()) = 1;
    DISPID put = DISPID_PROPERTYPUT;
    DISPPARAMS one{value.Get(), &put, 1, 1};
    EXPECT_EQ(shape->Invoke(DISPID_VALUE, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYPUT, &one,
                            nullptr, nullptr, nullptr),
              DISP_E_MEMBERNOTFOUND);
}

TEST(ExportedDispatch, PutsNeedTheirNamedArgument) {
    Model model;
    ComPtr<IDispatch> shape;
    ASSERT_EQ(sim::ExportDispatch(model.title, &shape), S_OK);
    const DISPID left = IdOf(shape.Get(), L"Left");
    ScopedVariant value;
    V_VT(value.Get()) = VT_R8;
    V_R8(value.Get()) = 99.0;
    DISPPARAMS unnamed{value.Get(), nullptr, 1, 0};
    EXPECT_EQ(shape->Invoke(left, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYPUT, &unnamed,
                            nullptr, nullptr, nullptr),
              DISP_E_PARAMNOTOPTIONAL);
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS asGet{value.Get(), &named, 1, 1};
    EXPECT_EQ(shape->Invoke(left, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &asGet,
                            nullptr, nullptr, nullptr),
              DISP_E_NONAMEDARGS);
    EXPECT_EQ(model.title->left, 12.25f);
    DISPPARAMS put{value.Get(), &named, 1, 1};
    EXPECT_EQ(shape->Invoke(left, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYPUT, &put,
                            nullptr, nullptr, nullptr),
              S_OK);
    EXPECT_EQ(model.title->left, 99.0f);
}

TEST(ExportedDispatch, HasNoTypeInformation) {
    Model model;
    UINT count = 7;
    EXPECT_EQ(model.exported->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 0u);
    ITypeInfo* info = reinterpret_cast<ITypeInfo*>(&count);
    EXPECT_EQ(model.exported->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info), DISP_E_BADINDEX);
    EXPECT_EQ(info, nullptr);
}

TEST(ExportedDispatch, KeepsItsObjectAliveExactlyWhileReferenced) {
    auto shape = std::make_shared<FakeShape>(u"Kept", 1, 0.0f);
    const std::weak_ptr<FakeShape> watch = shape;
    ComPtr<IDispatch> exported;
    ASSERT_EQ(sim::ExportDispatch(shape, &exported), S_OK);
    shape.reset();
    EXPECT_FALSE(watch.expired());
    ComPtr<IDispatch> second;
    ASSERT_EQ(exported.As(&second), S_OK);
    exported.Reset();
    EXPECT_FALSE(watch.expired());  // `second` still holds it
    second.Reset();
    EXPECT_TRUE(watch.expired());
}

// A host calls through the vtable with the Windows calling convention: on
// x86 that is __stdcall with `this` pushed first. A method that lost
// STDMETHODCALLTYPE reads its arguments from the wrong places and leaves the
// stack unbalanced, so the values and the repeated calls below would break.
#if defined(_WIN32) && !defined(_WIN64)
#define QB_HOST_CALL __stdcall
#else
#define QB_HOST_CALL
#endif

using GetIDsOfNamesSlot = HRESULT(QB_HOST_CALL*)(void*, const IID*, LPOLESTR*, UINT, LCID, DISPID*);
using InvokeSlot = HRESULT(QB_HOST_CALL*)(void*, DISPID, const IID*, LCID, WORD, DISPPARAMS*,
                                          VARIANT*, EXCEPINFO*, UINT*);
using CountSlot = ULONG(QB_HOST_CALL*)(void*);

template <typename Slot>
Slot VtableSlot(void* object, int index) {
    void** vtable = *static_cast<void***>(object);
    return reinterpret_cast<Slot>(vtable[index]);
}

TEST(ExportedDispatch, VtableCallsKeepTheHostCallingConvention) {
    Model model;
    ComPtr<IDispatch> exported;
    ASSERT_EQ(sim::ExportDispatch(model.title, &exported), S_OK);
    void* self = exported.Get();
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(VtableSlot<CountSlot>(self, 1)(self), 2u);  // AddRef
        EXPECT_EQ(VtableSlot<CountSlot>(self, 2)(self), 1u);  // Release

        LPOLESTR tag = const_cast<LPOLESTR>(L"Tag");
        DISPID id = 0;
        ASSERT_EQ(VtableSlot<GetIDsOfNamesSlot>(self, 5)(self, &IID_NULL, &tag, 1,
                                                         LOCALE_USER_DEFAULT, &id),
                  S_OK);
        // Tag("k") = round, by a put with two arguments, then read back.
        ScopedBstr key(u"k");
        VARIANT args[2];
        V_VT(&args[0]) = VT_I4;
        V_I4(&args[0]) = 100 + round;
        V_VT(&args[1]) = VT_BSTR;
        V_BSTR(&args[1]) = key.Get();
        DISPID named = DISPID_PROPERTYPUT;
        DISPPARAMS put{args, &named, 2, 1};
        UINT argError = 0;
        ASSERT_EQ(VtableSlot<InvokeSlot>(self, 6)(self, id, &IID_NULL, LOCALE_USER_DEFAULT,
                                                  DISPATCH_PROPERTYPUT, &put, nullptr, nullptr,
                                                  &argError),
                  S_OK);
        DISPPARAMS get{&args[1], nullptr, 1, 0};
        ScopedVariant result;
        EXCEPINFO info{};
        ASSERT_EQ(VtableSlot<InvokeSlot>(self, 6)(self, id, &IID_NULL, LOCALE_USER_DEFAULT,
                                                  DISPATCH_METHOD | DISPATCH_PROPERTYGET, &get,
                                                  result.Get(), &info, &argError),
                  S_OK);
        EXPECT_EQ(V_VT(result.Get()), VT_I4);
        EXPECT_EQ(V_I4(result.Get()), 100 + round);
    }
}

// --- The adapter over hand-made IDispatch objects -------------------------

// An IDispatch living on the stack, which records the interfaces asked of it
// and has its members scripted by the tests below.
class ScriptedDispatch : public IDispatch {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
        asked.push_back(riid);
        *out = nullptr;
        bool yes = riid == IID_IUnknown || riid == IID_IDispatch;
        for (const IID& iid : answered)
            yes = yes || iid == riid;
        if (!yes) return E_NOINTERFACE;
        *out = static_cast<IDispatch*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override {
        return static_cast<ULONG>(::InterlockedIncrement(&refs));
    }
    ULONG STDMETHODCALLTYPE Release() override {
        return static_cast<ULONG>(::InterlockedDecrement(&refs));
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }

    std::vector<IID> answered;
    std::vector<IID> asked;
    LONG refs = 1;
};

TEST(DispatchObject, NullDispatchGivesEPointer) {
    DispatchObject object(nullptr);
    Variant value;
    EXPECT_EQ(object.Invoke(u"Name", InvokeKind::Get, nullptr, 0, &value), E_POINTER);
    EXPECT_EQ(object.Invoke(u"Name", InvokeKind::Put, &value, 1, nullptr), E_POINTER);
    EXPECT_EQ(object.InvokeDefault(nullptr, 0, &value), E_POINTER);
    EXPECT_EQ(object.Identity(), nullptr);
    EXPECT_FALSE(object.Answers(HostInterface::Shape));
    EXPECT_EQ(DispatchObject::Wrap(nullptr), nullptr);
}

class AnswerOnly final : public ScriptedDispatch {
  public:
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override {
        return DISP_E_MEMBERNOTFOUND;
    }
};

TEST(DispatchObject, AnswersByQueryingEachIidOfTheInterface) {
    AnswerOnly object;
    object.answered = {iids::kTextFrame2[1]};  // only the shared office TextFrame2
    {
        const HostRef adapter = DispatchObject::Wrap(&object);
        EXPECT_TRUE(adapter->Answers(HostInterface::TextFrame2));
        object.asked.clear();
        EXPECT_FALSE(adapter->Answers(HostInterface::Shape));
        ASSERT_EQ(object.asked.size(), 1u);
        EXPECT_TRUE(object.asked[0] == iids::kShape[0]);
        EXPECT_EQ(DispGet(adapter, u"Anything", nullptr), DISP_E_UNKNOWNNAME);
    }
    EXPECT_EQ(object.refs, 1);  // every reference taken was given back
}

std::u16string Text(const IID& iid) {
    wchar_t buffer[40] = {};
    EXPECT_GT(::StringFromGUID2(iid, buffer, 40), 0);
    return FromWide(buffer);
}

TEST(HostIids, MatchTheHostTypeLibraries) {
    struct Case {
        HostInterface which;
        std::vector<std::u16string> expected;
    };
    const Case cases[] = {
        {HostInterface::Application, {u"{91493442-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::DocumentWindow, {u"{91493457-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::Presentation, {u"{9149349D-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::Slide, {u"{9149346A-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::SlideRange, {u"{9149346B-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::Shapes, {u"{91493475-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::Shape, {u"{91493479-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::ShapeRange, {u"{9149347A-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::GroupShapes, {u"{9149347B-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::TextFrame, {u"{91493484-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::TextFrame2,
         {u"{914934F9-5A91-11CF-8700-00AA0060263B}", u"{000C0398-0000-0000-C000-000000000046}"}},
        {HostInterface::TextRange, {u"{9149348F-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::TextRange2, {u"{000C0397-0000-0000-C000-000000000046}"}},
        {HostInterface::Font, {u"{91493495-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::Table, {u"{914934C3-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::Cell, {u"{914934C9-5A91-11CF-8700-00AA0060263B}"}},
        {HostInterface::Chart, {u"{92D41A55-F07E-4CA4-AF6F-BEF486AA4E6F}"}},
    };
    ASSERT_EQ(sizeof cases / sizeof cases[0], sizeof kAllHostInterfaces / sizeof(HostInterface));
    std::vector<std::u16string> all;
    for (const Case& c : cases) {
        std::vector<std::u16string> actual;
        for (const IID& iid : IidsOf(c.which))
            actual.push_back(Text(iid));
        EXPECT_EQ(actual, c.expected);
        all.insert(all.end(), actual.begin(), actual.end());
    }
    for (std::size_t i = 0; i < all.size(); ++i)
        for (std::size_t j = i + 1; j < all.size(); ++j)
            EXPECT_NE(all[i], all[j]);
}

// --- VARIANT conversions ---------------------------------------------------

class PlainUnknown final : public IUnknown {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
        *out = nullptr;
        if (riid != IID_IUnknown) return E_NOINTERFACE;
        *out = this;
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

VARIANT Make(VARTYPE type) {
    VARIANT v;
    ::VariantInit(&v);
    V_VT(&v) = type;
    return v;
}

template <typename Set>
VARIANT Make(VARTYPE type, Set set) {
    VARIANT v = Make(type);
    set(v);
    return v;
}

TEST(DispatchConversion, FromVariantWidensWhatTheSeamLacks) {
    LONG target = 31;
    ScopedBstr text(kWithNul);
    BSTR textRef = text.Get();
    VARIANT inner = Make(VT_R8, [](VARIANT& v) { V_R8(&v) = 6.5; });
    VARIANT decimal = Make(VT_EMPTY);
    ASSERT_EQ(::VarDecFromR8(-2.5, &V_DECIMAL(&decimal)), S_OK);
    V_VT(&decimal) = VT_DECIMAL;  // the decimal overlays the type field

    const std::pair<VARIANT, Variant> cases[] = {
        {Make(VT_EMPTY), Variant()},
        {Make(VT_NULL), Variant::Null()},
        {Make(VT_ERROR, [](VARIANT& v) { V_ERROR(&v) = DISP_E_PARAMNOTFOUND; }), Variant::Null()},
        {Make(VT_BOOL, [](VARIANT& v) { V_BOOL(&v) = VARIANT_TRUE; }), Variant::Bool(true)},
        {Make(VT_BOOL, [](VARIANT& v) { V_BOOL(&v) = VARIANT_FALSE; }), Variant::Bool(false)},
        {Make(VT_I2, [](VARIANT& v) { V_I2(&v) = -5; }), Variant::I2(-5)},
        {Make(VT_I4, [](VARIANT& v) { V_I4(&v) = -70000; }), Variant::I4(-70000)},
        {Make(VT_R4, [](VARIANT& v) { V_R4(&v) = 0.5f; }), Variant::R4(0.5f)},
        {Make(VT_R8, [](VARIANT& v) { V_R8(&v) = 1e300; }), Variant::R8(1e300)},
        {Make(VT_I1, [](VARIANT& v) { V_I1(&v) = -3; }), Variant::I4(-3)},
        {Make(VT_UI1, [](VARIANT& v) { V_UI1(&v) = 200; }), Variant::I4(200)},
        {Make(VT_UI2, [](VARIANT& v) { V_UI2(&v) = 60000; }), Variant::I4(60000)},
        {Make(VT_UI4, [](VARIANT& v) { V_UI4(&v) = 7; }), Variant::I4(7)},
        {Make(VT_UI4, [](VARIANT& v) { V_UI4(&v) = 4000000000u; }), Variant::R8(4e9)},
        {Make(VT_INT, [](VARIANT& v) { V_INT(&v) = -9; }), Variant::I4(-9)},
        {Make(VT_UINT, [](VARIANT& v) { V_UINT(&v) = 9; }), Variant::I4(9)},
        {Make(VT_I8, [](VARIANT& v) { V_I8(&v) = -12; }), Variant::I4(-12)},
        {Make(VT_I8, [](VARIANT& v) { V_I8(&v) = 1LL << 40; }), Variant::R8(1099511627776.0)},
        {Make(VT_I8, [](VARIANT& v) { V_I8(&v) = 2147483647; }), Variant::I4(2147483647)},
        {Make(VT_I8, [](VARIANT& v) { V_I8(&v) = 2147483648LL; }), Variant::R8(2147483648.0)},
        {Make(VT_I8, [](VARIANT& v) { V_I8(&v) = -2147483648LL; }), Variant::I4(-2147483647 - 1)},
        {Make(VT_UI8, [](VARIANT& v) { V_UI8(&v) = 5; }), Variant::I4(5)},
        {Make(VT_UI8, [](VARIANT& v) { V_UI8(&v) = ~0ULL; }), Variant::R8(18446744073709551616.0)},
        {Make(VT_I1, [](VARIANT& v) { V_I1(&v) = -128; }), Variant::I4(-128)},
        {Make(VT_DATE, [](VARIANT& v) { V_DATE(&v) = 45000.25; }), Variant::R8(45000.25)},
        {Make(VT_CY, [](VARIANT& v) { V_CY(&v).int64 = 12345; }), Variant::R8(1.2345)},
        {decimal, Variant::R8(-2.5)},
        {Make(VT_I4 | VT_BYREF, [&](VARIANT& v) { V_I4REF(&v) = &target; }), Variant::I4(31)},
        {Make(VT_BSTR | VT_BYREF, [&](VARIANT& v) { V_BSTRREF(&v) = &textRef; }),
         Variant::String(kWithNul)},
        {Make(VT_VARIANT | VT_BYREF, [&](VARIANT& v) { V_VARIANTREF(&v) = &inner; }),
         Variant::R8(6.5)},
        {Make(VT_BSTR, [](VARIANT& v) { V_BSTR(&v) = nullptr; }), Variant::String(u"")},
        {Make(VT_DISPATCH, [](VARIANT& v) { V_DISPATCH(&v) = nullptr; }), Variant::Object(nullptr)},
    };
    for (std::size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        Variant out = Variant::String(u"untouched");
        ASSERT_EQ(FromVariant(cases[i].first, out, nullptr), S_OK) << "case " << i;
        EXPECT_EQ(out, cases[i].second) << "case " << i;
    }
}

TEST(DispatchConversion, FromVariantTakesDispatchAndUnknownThatAnswersIt) {
    AnswerOnly dispatch;
    VARIANT v = Make(VT_DISPATCH);
    V_DISPATCH(&v) = &dispatch;
    Variant out;
    ASSERT_EQ(FromVariant(v, out, nullptr), S_OK);
    auto* adapter = dynamic_cast<DispatchObject*>(out.ObjectValue().get());
    ASSERT_NE(adapter, nullptr);
    EXPECT_EQ(adapter->Dispatch(), &dispatch);

    v = Make(VT_UNKNOWN);
    V_UNKNOWN(&v) = static_cast<IDispatch*>(&dispatch);
    ASSERT_EQ(FromVariant(v, out, nullptr), S_OK);
    EXPECT_NE(dynamic_cast<DispatchObject*>(out.ObjectValue().get()), nullptr);

    PlainUnknown plain;
    V_UNKNOWN(&v) = &plain;
    EXPECT_EQ(FromVariant(v, out, nullptr), DISP_E_TYPEMISMATCH);
    out = Variant();
    EXPECT_EQ(dispatch.refs, 1);
}

TEST(DispatchConversion, SafeArraysAreReadInStorageOrderWithTheirBounds) {
    // R8[1..2, 0..2] with a(i, j) = 10 i + j, put by index.
    SAFEARRAYBOUND bounds[] = {{2, 1}, {3, 0}};
    ScopedSafeArray array(::SafeArrayCreate(VT_R8, 2, bounds));
    ASSERT_NE(array.Get(), nullptr);
    for (LONG i = 1; i <= 2; ++i) {
        for (LONG j = 0; j <= 2; ++j) {
            LONG index[] = {i, j};
            double value = 10.0 * i + j;
            ASSERT_EQ(::SafeArrayPutElement(array.Get(), index, &value), S_OK);
        }
    }
    VARIANT v = Make(VT_ARRAY | VT_R8);
    V_ARRAY(&v) = array.Get();
    Variant out;
    ASSERT_EQ(FromVariant(v, out, nullptr), S_OK);
    ASSERT_EQ(out.Type(), VarType::Array);
    const VariantArray& read = out.ArrayValue();
    EXPECT_EQ(read.lowerBounds, (std::vector<std::int32_t>{1, 0}));
    EXPECT_EQ(read.lengths, (std::vector<std::uint32_t>{2, 3}));
    // The first dimension varies fastest.
    const double expected[] = {10, 20, 11, 21, 12, 22};
    ASSERT_EQ(read.elements.size(), 6u);
    for (std::size_t k = 0; k < 6; ++k)
        EXPECT_EQ(read.elements[k], Variant::R8(expected[k]));

    // And back: a SAFEARRAY of VARIANT with the same bounds and order.
    ScopedVariant back;
    ASSERT_EQ(ToVariant(out, *back.Get(), nullptr), S_OK);
    ASSERT_EQ(V_VT(back.Get()), VT_ARRAY | VT_VARIANT);
    SAFEARRAY* written = V_ARRAY(back.Get());
    ASSERT_EQ(::SafeArrayGetDim(written), 2u);
    LONG lower = -1;
    ASSERT_EQ(::SafeArrayGetLBound(written, 1, &lower), S_OK);
    EXPECT_EQ(lower, 1);
    ASSERT_EQ(::SafeArrayGetLBound(written, 2, &lower), S_OK);
    EXPECT_EQ(lower, 0);
    for (LONG i = 1; i <= 2; ++i) {
        for (LONG j = 0; j <= 2; ++j) {
            LONG index[] = {i, j};
            ScopedVariant element;
            ASSERT_EQ(::SafeArrayGetElement(written, index, element.Get()), S_OK);
            EXPECT_EQ(V_VT(element.Get()), VT_R8);
            EXPECT_EQ(V_R8(element.Get()), 10.0 * i + j);
        }
    }
}

// Builds a one-dimensional SAFEARRAY of `type` from `lower` with SafeArrayPutElement.
template <typename T>
ScopedSafeArray OneDimensional(VARTYPE type, LONG lower, std::vector<T> values) {
    SAFEARRAYBOUND bound{static_cast<ULONG>(values.size()), lower};
    ScopedSafeArray array(::SafeArrayCreate(type, 1, &bound));
    for (std::size_t k = 0; k < values.size(); ++k) {
        LONG index = lower + static_cast<LONG>(k);
        // A BSTR is put as itself, any other element by its address.
        void* element = nullptr;
        if constexpr (std::is_same_v<T, BSTR>) {
            element = values[k];
        } else {
            element = &values[k];
        }
        EXPECT_EQ(::SafeArrayPutElement(array.Get(), &index, element), S_OK);
    }
    return array;
}

TEST(DispatchConversion, SafeArraysOfEachElementType) {
    ScopedBstr a(u"a"), empty(u""), nul(kWithNul);
    struct Case {
        VARTYPE type;
        ScopedSafeArray array;
        Variant expected;
    };
    Case cases[] = {
        {VT_BSTR, OneDimensional<BSTR>(VT_BSTR, 1, {a.Get(), empty.Get(), nul.Get()}),
         Variant::Array({Variant::String(u"a"), Variant::String(u""), Variant::String(kWithNul)},
                        1)},
        {VT_I4, OneDimensional<LONG>(VT_I4, -2, {5, -6}),
         Variant::Array({Variant::I4(5), Variant::I4(-6)}, -2)},
        {VT_BOOL, OneDimensional<VARIANT_BOOL>(VT_BOOL, 0, {VARIANT_TRUE, VARIANT_FALSE}),
         Variant::Array({Variant::Bool(true), Variant::Bool(false)})},
        {VT_UI1, OneDimensional<BYTE>(VT_UI1, 0, {255, 0}),
         Variant::Array({Variant::I4(255), Variant::I4(0)})},
        {VT_R4, OneDimensional<float>(VT_R4, 1, {}), Variant::Array({}, 1)},
    };
    for (Case& c : cases) {
        VARIANT v = Make(VT_ARRAY | c.type);
        V_ARRAY(&v) = c.array.Get();
        Variant out;
        ASSERT_EQ(FromVariant(v, out, nullptr), S_OK) << "type " << c.type;
        EXPECT_EQ(out, c.expected) << "type " << c.type;
        // By reference, as an out parameter hands it.
        SAFEARRAY* held = c.array.Get();
        VARIANT reference = Make(VT_ARRAY | VT_BYREF | c.type);
        V_ARRAYREF(&reference) = &held;
        out = Variant();
        ASSERT_EQ(FromVariant(reference, out, nullptr), S_OK) << "type " << c.type;
        EXPECT_EQ(out, c.expected) << "type " << c.type;
    }
}

TEST(DispatchConversion, RefusesAnArrayOfAnotherTypeThanItsVariantSays) {
    ScopedSafeArray doubles = OneDimensional<double>(VT_R8, 0, {1.0, 2.0});
    VARIANT v = Make(VT_ARRAY | VT_VARIANT);
    V_ARRAY(&v) = doubles.Get();
    Variant out = Variant::I4(5);
    EXPECT_EQ(FromVariant(v, out, nullptr), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(out, Variant::I4(5));
}

TEST(DispatchConversion, ToVariantWritesEachType) {
    struct Case {
        Variant in;
        VARTYPE type;
    };
    const Case cases[] = {
        {Variant(), VT_EMPTY},
        {Variant::Null(), VT_NULL},
        {Variant::Bool(true), VT_BOOL},
        {Variant::I2(-2), VT_I2},
        {Variant::I4(9), VT_I4},
        {Variant::R4(0.25f), VT_R4},
        {Variant::R8(-0.5), VT_R8},
        {Variant::String(kWithNul), VT_BSTR},
        {Variant::Object(nullptr), VT_DISPATCH},
    };
    for (const Case& c : cases) {
        ScopedVariant out;
        ASSERT_EQ(ToVariant(c.in, *out.Get(), nullptr), S_OK);
        EXPECT_EQ(V_VT(out.Get()), c.type);
        Variant back;
        ASSERT_EQ(FromVariant(out.Value(), back, nullptr), S_OK);
        EXPECT_EQ(back, c.in);
    }
    ScopedVariant boolean;
    ASSERT_EQ(ToVariant(Variant::Bool(true), *boolean.Get(), nullptr), S_OK);
    EXPECT_EQ(V_BOOL(boolean.Get()), VARIANT_TRUE);
    ScopedVariant text;
    ASSERT_EQ(ToVariant(Variant::String(kWithNul), *text.Get(), nullptr), S_OK);
    EXPECT_EQ(::SysStringLen(V_BSTR(text.Get())), 5u);

    // A malformed array: its lengths don't cover its elements.
    ScopedVariant bad;
    EXPECT_EQ(
        ToVariant(Variant::Array(VariantArray{{0}, {3}, {Variant::I4(1)}}), *bad.Get(), nullptr),
        E_INVALIDARG);
    EXPECT_EQ(V_VT(bad.Get()), VT_EMPTY);
}

TEST(DispatchConversion, ObjectsCrossAsTheirOwnIDispatch) {
    AnswerOnly dispatch;
    {
        const HostRef adapter = DispatchObject::Wrap(&dispatch);
        ScopedVariant out;
        ASSERT_EQ(ToVariant(Variant::Object(adapter), *out.Get(), nullptr), S_OK);
        EXPECT_EQ(V_VT(out.Get()), VT_DISPATCH);
        EXPECT_EQ(V_DISPATCH(out.Get()), &dispatch);

        const HostRef portable = std::make_shared<FakeThing>();
        ScopedVariant refused;
        EXPECT_EQ(ToVariant(Variant::Object(portable), *refused.Get(), nullptr),
                  DISP_E_TYPEMISMATCH);
        ScopedVariant exported;
        ASSERT_EQ(ToVariant(Variant::Object(portable), *exported.Get(), sim::ExportBridge()), S_OK);
        ASSERT_EQ(V_VT(exported.Get()), VT_DISPATCH);
        EXPECT_NE(V_DISPATCH(exported.Get()), nullptr);
    }
    EXPECT_EQ(dispatch.refs, 1);
}

// --- The structured-exception guard ----------------------------------------

// Read through volatile, so that the compiler can't see the faults coming
// and turn them into something else.
int* volatile g_nowhere = nullptr;
volatile int g_zero = 0;

HRESULT WriteNowhere(void*) {
    *g_nowhere = 1;
    return S_OK;
}
HRESULT ReadNowhere(void*) {
    return *g_nowhere == 0 ? S_OK : S_FALSE;
}
HRESULT DivideByZero(void*) {
    return 100 / g_zero == 1 ? S_OK : S_FALSE;
}
HRESULT RaiseOwn(void*) {
    ::RaiseException(0xE0424242, 0, 0, nullptr);
    return S_OK;
}
HRESULT IllegalInstruction(void*) {
    __builtin_trap();
}
HRESULT Answer(void* context) {
    return *static_cast<HRESULT*>(context);
}

struct FaultCase {
    const char* name;
    GuardedFunction function;
};

class SehGuardFaults : public ::testing::TestWithParam<FaultCase> {};

TEST_P(SehGuardFaults, BecomeEFailAndTheProcessGoesOn) {
    for (int round = 0; round < 3; ++round)
        EXPECT_EQ(CallGuarded(GetParam().function, nullptr), E_FAIL);
    // Nothing of the guard is left behind: a plain call and a C++ exception
    // work as before.
    HRESULT answer = S_FALSE;
    EXPECT_EQ(CallGuarded(&Answer, &answer), S_FALSE);
    bool caught = false;
    try {
        throw std::runtime_error("after the fault");
    } catch (const std::runtime_error&) {
        caught = true;
    }
    EXPECT_TRUE(caught);
}

INSTANTIATE_TEST_SUITE_P(Faults, SehGuardFaults,
                         ::testing::Values(FaultCase{"WriteToNull", &WriteNowhere},
                                           FaultCase{"ReadNull", &ReadNowhere},
                                           FaultCase{"DivideByZero", &DivideByZero},
                                           FaultCase{"RaiseException", &RaiseOwn},
                                           FaultCase{"IllegalInstruction", &IllegalInstruction}),
                         [](const ::testing::TestParamInfo<FaultCase>& info) {
                             return info.param.name;
                         });

TEST(SehGuard, PassesResultsThrough) {
    for (HRESULT expected : {S_OK, S_FALSE, DISP_E_BADINDEX, E_FAIL}) {
        HRESULT answer = expected;
        EXPECT_EQ(CallGuarded(&Answer, &answer), expected);
    }
    EXPECT_EQ(CallGuarded(nullptr, nullptr), E_POINTER);
}

HRESULT InnerFaultThenAnswer(void*) {
    // The inner guard catches its own fault; the outer one sees a plain return.
    return CallGuarded(&WriteNowhere, nullptr) == E_FAIL ? S_FALSE : E_UNEXPECTED;
}
HRESULT InnerAnswerThenFault(void*) {
    HRESULT answer = S_OK;
    if (CallGuarded(&Answer, &answer) != S_OK) return E_UNEXPECTED;
    *g_nowhere = 2;
    return S_OK;
}

TEST(SehGuard, Nests) {
    EXPECT_EQ(CallGuarded(&InnerFaultThenAnswer, nullptr), S_FALSE);
    EXPECT_EQ(CallGuarded(&InnerAnswerThenFault, nullptr), E_FAIL);
}

TEST(SehGuard, CallerStateSurvivesACaughtFault) {
    // Many values live across the call, so that some sit in the registers a
    // callee must preserve; a resume that lost them shows here.
    volatile int seed = 3;
    int a = seed * 2, b = seed * 3, c = seed * 5, d = seed * 7, e = seed * 11, f = seed * 13;
    double x = seed * 0.5, y = seed * 0.25, z = seed * 0.125;
    for (int round = 0; round < 4; ++round) {
        EXPECT_EQ(CallGuarded(&WriteNowhere, nullptr), E_FAIL);
        a += 1, b += 2, c += 3, d += 4, e += 5, f += 6;
        x += 1, y += 2, z += 3;
    }
    EXPECT_EQ(a + b + c + d + e + f, 6 + 9 + 15 + 21 + 33 + 39 + 4 * 21);
    EXPECT_EQ(x + y + z, 1.5 + 0.75 + 0.375 + 4 * 6);
#if !defined(_WIN64)
    // x86: the thread's handler chain (its head at fs:0) is as it was.
    auto head = [] {
        void* record = nullptr;
        asm volatile("movl %%fs:0, %0" : "=r"(record));
        return record;
    };
    void* const before = head();
    EXPECT_EQ(CallGuarded(&WriteNowhere, nullptr), E_FAIL);
    EXPECT_EQ(head(), before);
#endif
}

// A frame standing for the host's own code between the guard and a fault:
// it has a cleanup handler, as the host's compiled frames do, which counts
// how the system called it. The guard must let the search pass it and then
// have it unwound before resuming.
int g_hostSearches = 0;
int g_hostUnwinds = 0;

extern "C" HRESULT qb_test_host_frame(GuardedFunction function, void* context);

extern "C" EXCEPTION_DISPOSITION qb_test_host_handler(EXCEPTION_RECORD* record, void*, CONTEXT*,
                                                      void*) {
    if (record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND)) {
        ++g_hostUnwinds;
    } else {
        ++g_hostSearches;
    }
    return ExceptionContinueSearch;
}

#if defined(_WIN64)
asm(R"(
    .text
    .globl qb_test_host_frame
    .def qb_test_host_frame; .scl 2; .type 32; .endef
    .seh_proc qb_test_host_frame
qb_test_host_frame:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    .seh_handler qb_test_host_handler, @except, @unwind
    movq %rcx, %rax
    movq %rdx, %rcx
    call *%rax
    nop
    addq $40, %rsp
    ret
    .seh_endproc
)");
#else
asm(R"(
    .text
    .globl _qb_test_host_frame
    .def _qb_test_host_frame; .scl 2; .type 32; .endef
_qb_test_host_frame:
    pushl %ebp
    movl %esp, %ebp
    pushl $_qb_test_host_handler
    pushl %fs:0
    movl %esp, %fs:0
    pushl 12(%ebp)
    call *8(%ebp)
    addl $4, %esp
    movl (%esp), %ecx
    movl %ecx, %fs:0
    movl %ebp, %esp
    popl %ebp
    ret
)");
#endif

HRESULT FaultBeneathAHostFrame(void*) {
    return qb_test_host_frame(&WriteNowhere, nullptr);
}
HRESULT AnswerBeneathAHostFrame(void* context) {
    return qb_test_host_frame(&Answer, context);
}

TEST(SehGuard, HostFramesAreSearchedThenUnwound) {
    g_hostSearches = g_hostUnwinds = 0;
    EXPECT_EQ(CallGuarded(&FaultBeneathAHostFrame, nullptr), E_FAIL);
    EXPECT_EQ(g_hostSearches, 1);
    EXPECT_EQ(g_hostUnwinds, 1);
    // Without a fault the host frame is left as it came.
    HRESULT answer = S_FALSE;
    EXPECT_EQ(CallGuarded(&AnswerBeneathAHostFrame, &answer), S_FALSE);
    EXPECT_EQ(g_hostSearches, 1);
    EXPECT_EQ(g_hostUnwinds, 1);
}

// A host object whose members fault in the middle of the host's own code.
class FaultingDispatch final : public ScriptedDispatch {
  public:
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT, LCID,
                                            DISPID* ids) override {
        const std::wstring name = names[0];
        if (name == L"BadLookup") *g_nowhere = 3;
        const wchar_t* const known[] = {L"Boom", L"Fine", L"Raises"};
        for (DISPID id = 1; id <= 3; ++id) {
            if (name == known[id - 1]) {
                ids[0] = id;
                return S_OK;
            }
        }
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS*, VARIANT* result,
                                     EXCEPINFO* info, UINT*) override {
        ++invokes;
        if (id == 1) *g_nowhere = 4;
        if (id == 3) {
            info->scode = E_ACCESSDENIED;
            info->bstrDescription = ::SysAllocString(L"locked");
            return DISP_E_EXCEPTION;
        }
        V_VT(result) = VT_I4;
        V_I4(result) = 7;
        return S_OK;
    }
    int invokes = 0;
};

TEST(SehGuard, AFaultingHostMemberGivesEFail) {
    FaultingDispatch host;
    const HostRef object = DispatchObject::Wrap(&host);
    std::int32_t value = 0;
    for (int round = 0; round < 2; ++round) {
        Variant ignored;
        EXPECT_EQ(DispGet(object, u"Boom", &ignored), E_FAIL);
        EXPECT_EQ(DispPut(object, u"Boom", Variant::I4(1)), E_FAIL);
        EXPECT_EQ(GetInt32(object, u"Fine", value), S_OK);
        EXPECT_EQ(value, 7);
        // A fault in the lookup reads as a member the object lacks.
        EXPECT_EQ(DispGet(object, u"BadLookup", &ignored), DISP_E_UNKNOWNNAME);
        // An exception the host raised tells its own code.
        EXPECT_EQ(DispGet(object, u"Raises", &ignored), E_ACCESSDENIED);
    }
    EXPECT_EQ(host.invokes, 8);
}

}  // namespace
}  // namespace qb::host
