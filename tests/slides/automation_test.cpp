// The by-name call helpers and the portable variant's conversions, over a
// fake host object that records every call and answers from a script.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "slides/automation.h"

namespace qb::host {
namespace {

// Records each call; answers each member from its script, and a member
// without one as lacking (DISP_E_UNKNOWNNAME).
class RecordingObject final : public HostObject {
  public:
    struct Call {
        std::u16string member;  // empty for the default member
        InvokeKind kind;
        std::vector<Variant> args;  // as received: last first
    };
    struct Answer {
        HRESULT hr = S_OK;
        Variant value;
    };

    explicit RecordingObject(const void* identity = nullptr)
        : identity_(identity ? identity : this) {}

    void Script(std::u16string member, HRESULT hr, Variant value = Variant()) {
        answers_[std::move(member)] = Answer{hr, std::move(value)};
    }
    void ScriptDefault(HRESULT hr, Variant value = Variant()) {
        defaultAnswer_ = Answer{hr, std::move(value)};
    }
    void AnswerAs(HostInterface which) { interfaces_.push_back(which); }

    HRESULT Invoke(std::u16string_view member, InvokeKind kind, const Variant* args,
                   std::size_t count, Variant* result) override {
        calls.push_back(
            Call{std::u16string(member), kind, std::vector<Variant>(args, args + count)});
        const auto found = answers_.find(std::u16string(member));
        if (found == answers_.end()) return DISP_E_UNKNOWNNAME;
        if (result && kind == InvokeKind::Get) *result = found->second.value;
        return found->second.hr;
    }
    HRESULT InvokeDefault(const Variant* args, std::size_t count, Variant* result) override {
        calls.push_back(Call{u"", InvokeKind::Get, std::vector<Variant>(args, args + count)});
        if (result) *result = defaultAnswer_.value;
        return defaultAnswer_.hr;
    }
    const void* Identity() const override { return identity_; }
    bool Answers(HostInterface which) const override {
        for (HostInterface i : interfaces_)
            if (i == which) return true;
        return false;
    }

    std::vector<Call> calls;

  private:
    const void* identity_;
    std::map<std::u16string, Answer> answers_;
    Answer defaultAnswer_{DISP_E_MEMBERNOTFOUND, Variant()};
    std::vector<HostInterface> interfaces_;
};

std::shared_ptr<RecordingObject> MakeRecorder() {
    return std::make_shared<RecordingObject>();
}

// --- Calls by name ---------------------------------------------------------

TEST(DispCall, PassesArgumentsInTheOrderGivenAndReturnsTheAnswer) {
    auto object = MakeRecorder();
    object->Script(u"Cell", S_OK, Variant::String(u"b2"));
    // Cell(2, 3): the column lies first.
    const Variant args[] = {Variant::I4(3), Variant::I4(2)};
    Variant result;
    ASSERT_EQ(DispCall(object, u"Cell", args, 2, &result), S_OK);
    EXPECT_EQ(result, Variant::String(u"b2"));
    ASSERT_EQ(object->calls.size(), 1u);
    EXPECT_EQ(object->calls[0].member, u"Cell");
    EXPECT_EQ(object->calls[0].kind, InvokeKind::Get);
    EXPECT_EQ(object->calls[0].args, (std::vector<Variant>{Variant::I4(3), Variant::I4(2)}));
}

TEST(DispCall, HandsOnTheObjectsFailureAndAcceptsNoResultSlot) {
    auto object = MakeRecorder();
    object->Script(u"Delete", E_ACCESSDENIED);
    object->Script(u"Select", S_FALSE, Variant::I4(1));
    EXPECT_EQ(DispCall(object, u"Delete", nullptr, 0, nullptr), E_ACCESSDENIED);
    EXPECT_EQ(DispCall(object, u"Select", nullptr, 0, nullptr), S_FALSE);
    EXPECT_EQ(DispCall(object, u"Missing", nullptr, 0, nullptr), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(object->calls.size(), 3u);
}

TEST(DispCall, NullObjectGivesEPointerEverywhere) {
    const HostRef none;
    Variant value;
    HostRef out;
    std::int32_t n = 0;
    float f = 0;
    std::u16string s;
    bool b = false;
    EXPECT_EQ(DispCall(none, u"X", nullptr, 0, &value), E_POINTER);
    EXPECT_EQ(DispGet(none, u"X", &value), E_POINTER);
    EXPECT_EQ(DispPut(none, u"X", Variant::I4(1)), E_POINTER);
    EXPECT_EQ(DispDefault(none, nullptr, 0, &value), E_POINTER);
    EXPECT_EQ(GetItem(none, 1, out), E_POINTER);
    EXPECT_EQ(GetItemDirect(none, 1, out), E_POINTER);
    EXPECT_EQ(DispItem(none, 1, out), E_POINTER);
    EXPECT_EQ(GetObject(none, u"X", out), E_POINTER);
    EXPECT_EQ(GetInt32(none, u"X", n), E_POINTER);
    EXPECT_EQ(GetFloat(none, u"X", f), E_POINTER);
    EXPECT_EQ(GetString(none, u"X", s), E_POINTER);
    EXPECT_EQ(GetTruth(none, u"X", b), E_POINTER);
}

TEST(DispGet, CallsWithoutArguments) {
    auto object = MakeRecorder();
    object->Script(u"Count", S_OK, Variant::I4(4));
    Variant value;
    ASSERT_EQ(DispGet(object, u"Count", &value), S_OK);
    EXPECT_EQ(value, Variant::I4(4));
    ASSERT_EQ(object->calls.size(), 1u);
    EXPECT_TRUE(object->calls[0].args.empty());
    EXPECT_EQ(object->calls[0].kind, InvokeKind::Get);
}

TEST(DispPut, PutsTheValueFirstThenTheMembersOwnArguments) {
    auto object = MakeRecorder();
    object->Script(u"Text", S_OK);
    object->Script(u"Value", S_OK);
    ASSERT_EQ(DispPut(object, u"Text", Variant::String(u"new")), S_OK);
    const Variant own[] = {Variant::String(u"key")};
    ASSERT_EQ(DispPut(object, u"Value", Variant::Bool(true), own, 1), S_OK);
    ASSERT_EQ(object->calls.size(), 2u);
    EXPECT_EQ(object->calls[0].kind, InvokeKind::Put);
    EXPECT_EQ(object->calls[0].args, std::vector<Variant>{Variant::String(u"new")});
    EXPECT_EQ(object->calls[1].kind, InvokeKind::Put);
    EXPECT_EQ(object->calls[1].args,
              (std::vector<Variant>{Variant::Bool(true), Variant::String(u"key")}));
    EXPECT_EQ(object->calls[1].args[0].BoolValue(), -1);
}

TEST(DispPut, HandsOnAFailedPut) {
    auto object = MakeRecorder();
    object->Script(u"Left", E_INVALIDARG);
    EXPECT_EQ(DispPut(object, u"Left", Variant::R4(1.5f)), E_INVALIDARG);
    EXPECT_EQ(DispPut(object, u"Missing", Variant::R4(1.5f)), DISP_E_UNKNOWNNAME);
}

// --- Collections ---------------------------------------------------------

struct ItemCase {
    const char* name;
    bool itemByName;     // Item answers by name
    bool itemIsObject;   // ...with an object
    HRESULT defaultHr;   // what the direct Item answers
    bool defaultObject;  // ...with an object
    HRESULT expected;
    std::size_t expectedCalls;
    bool expectDirect;  // the object returned is the direct Item's
};

class GetItemTest : public ::testing::TestWithParam<ItemCase> {};

TEST_P(GetItemTest, TriesItemByNameThenTheDirectItem) {
    const ItemCase& c = GetParam();
    auto collection = MakeRecorder();
    auto byName = MakeRecorder();
    auto direct = MakeRecorder();
    if (c.itemByName)
        collection->Script(u"Item", S_OK,
                           c.itemIsObject ? Variant::Object(byName) : Variant::I4(7));
    collection->ScriptDefault(c.defaultHr,
                              c.defaultObject ? Variant::Object(direct) : Variant::Null());
    HostRef out;
    EXPECT_EQ(GetItem(collection, 3, out), c.expected);
    ASSERT_EQ(collection->calls.size(), c.expectedCalls);
    for (const auto& call : collection->calls)
        EXPECT_EQ(call.args, std::vector<Variant>{Variant::I4(3)});
    if (SUCCEEDED(c.expected)) {
        EXPECT_EQ(out, c.expectDirect ? HostRef(direct) : HostRef(byName));
    } else {
        EXPECT_EQ(out, nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, GetItemTest,
    ::testing::Values(ItemCase{"ByName", true, true, S_OK, true, S_OK, 1, false},
                      ItemCase{"NoItemMember", false, false, S_OK, true, S_OK, 2, true},
                      ItemCase{"ItemNotAnObject", true, false, S_OK, true, S_OK, 2, true},
                      ItemCase{"NeitherWay", false, false, DISP_E_BADINDEX, false, DISP_E_BADINDEX,
                               2, false},
                      ItemCase{"DirectNotAnObject", false, false, S_OK, false, E_FAIL, 2, false}),
    [](const ::testing::TestParamInfo<ItemCase>& info) { return info.param.name; });

TEST(GetItemDirect, CallsOnlyTheDefaultMember) {
    auto collection = MakeRecorder();
    auto item = MakeRecorder();
    collection->Script(u"Item", S_OK, Variant::Object(MakeRecorder()));
    collection->ScriptDefault(S_OK, Variant::Object(item));
    HostRef out;
    ASSERT_EQ(GetItemDirect(collection, 2, out), S_OK);
    EXPECT_EQ(out, HostRef(item));
    ASSERT_EQ(collection->calls.size(), 1u);
    EXPECT_EQ(collection->calls[0].member, u"");
    EXPECT_EQ(collection->calls[0].args, std::vector<Variant>{Variant::I4(2)});

    collection->ScriptDefault(S_OK, Variant::Object(nullptr));
    HostRef untouched = item;
    EXPECT_EQ(GetItemDirect(collection, 2, untouched), E_FAIL);
    EXPECT_EQ(untouched, HostRef(item));
}

TEST(DispItem, AnswersOnlyShapes) {
    auto collection = MakeRecorder();
    auto shape = MakeRecorder();
    shape->AnswerAs(HostInterface::Shape);
    auto notShape = MakeRecorder();
    notShape->AnswerAs(HostInterface::TextRange);

    struct Case {
        Variant item;
        HRESULT itemHr;
        HRESULT expected;
    };
    const Case cases[] = {
        {Variant::Object(shape), S_OK, S_OK},
        {Variant::Object(notShape), S_OK, E_NOINTERFACE},
        {Variant::I4(5), S_OK, E_FAIL},
        {Variant::Object(nullptr), S_OK, E_FAIL},
        {Variant(), DISP_E_BADINDEX, DISP_E_BADINDEX},
    };
    for (const Case& c : cases) {
        collection->Script(u"Item", c.itemHr, c.item);
        collection->calls.clear();
        HostRef out;
        EXPECT_EQ(DispItem(collection, 1, out), c.expected);
        EXPECT_EQ(out, c.expected == S_OK ? HostRef(shape) : HostRef());
        // Never the direct Item: DispItem goes by name only.
        ASSERT_EQ(collection->calls.size(), 1u);
        EXPECT_EQ(collection->calls[0].member, u"Item");
    }
}

// --- Typed reads -----------------------------------------------------------

TEST(GetObject, TakesOnlyAnObject) {
    auto object = MakeRecorder();
    auto child = MakeRecorder();
    object->Script(u"TextFrame", S_OK, Variant::Object(child));
    object->Script(u"Name", S_OK, Variant::String(u"x"));
    HostRef out;
    ASSERT_EQ(GetObject(object, u"TextFrame", out), S_OK);
    EXPECT_EQ(out, HostRef(child));
    EXPECT_EQ(GetObject(object, u"Name", out), E_FAIL);
    EXPECT_EQ(GetObject(object, u"Missing", out), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(out, HostRef(child));
}

struct ReadCase {
    Variant value;
    HRESULT hr;  // what the member answers
    HRESULT expectedHr;
    double expected;  // for a successful read
};

TEST(GetInt32, ConvertsAsVariantChangeTypeDoes) {
    const ReadCase cases[] = {
        {Variant::I4(-7), S_OK, S_OK, -7},
        {Variant::I2(12), S_OK, S_OK, 12},
        {Variant::Bool(true), S_OK, S_OK, -1},
        {Variant::R8(2.5), S_OK, S_OK, 2},
        {Variant::R8(3.5), S_OK, S_OK, 4},
        {Variant::R8(-2.5), S_OK, S_OK, -2},
        {Variant::R4(1.5f), S_OK, S_OK, 2},
        {Variant::String(u" 42 "), S_OK, S_OK, 42},
        {Variant::String(u"4.5"), S_OK, S_OK, 4},
        {Variant::String(u"forty"), S_OK, DISP_E_TYPEMISMATCH, 0},
        {Variant::R8(3e9), S_OK, DISP_E_TYPEMISMATCH, 0},
        {Variant::Null(), S_OK, DISP_E_TYPEMISMATCH, 0},
        {Variant::I4(1), E_ACCESSDENIED, E_ACCESSDENIED, 0},
    };
    for (const ReadCase& c : cases) {
        auto object = MakeRecorder();
        object->Script(u"Type", c.hr, c.value);
        std::int32_t out = 99;
        EXPECT_EQ(GetInt32(object, u"Type", out), c.expectedHr);
        EXPECT_EQ(out, SUCCEEDED(c.expectedHr) ? static_cast<std::int32_t>(c.expected) : 99);
    }
}

TEST(GetFloat, WidensAndParses) {
    const ReadCase cases[] = {
        {Variant::R4(12.25f), S_OK, S_OK, 12.25},
        {Variant::R8(-3.5), S_OK, S_OK, -3.5},
        {Variant::I4(7), S_OK, S_OK, 7},
        {Variant::String(u"1.5"), S_OK, S_OK, 1.5},
        {Variant::String(u""), S_OK, DISP_E_TYPEMISMATCH, 0},
        {Variant::Object(nullptr), S_OK, DISP_E_TYPEMISMATCH, 0},
        {Variant(), DISP_E_UNKNOWNNAME, DISP_E_UNKNOWNNAME, 0},
    };
    for (const ReadCase& c : cases) {
        auto object = MakeRecorder();
        object->Script(u"Left", c.hr, c.value);
        float out = -1;
        EXPECT_EQ(GetFloat(object, u"Left", out), c.expectedHr);
        EXPECT_EQ(out, SUCCEEDED(c.expectedHr) ? static_cast<float>(c.expected) : -1.0f);
    }
}

TEST(GetString, TakesOnlyAString) {
    auto object = MakeRecorder();
    const std::u16string withNul(u"a\0b\U0001F600", 5);
    object->Script(u"Text", S_OK, Variant::String(withNul));
    object->Script(u"Count", S_OK, Variant::I4(3));
    std::u16string out = u"old";
    ASSERT_EQ(GetString(object, u"Text", out), S_OK);
    EXPECT_EQ(out, withNul);
    out = u"old";
    EXPECT_EQ(GetString(object, u"Count", out), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(out, u"old");
}

TEST(GetTruth, AnyNonZeroIntegerIsTrue) {
    struct Case {
        Variant value;
        HRESULT expectedHr;
        bool expected;
    };
    const Case cases[] = {
        {Variant::Bool(true), S_OK, true},
        {Variant::Bool(false), S_OK, false},
        {Variant::I2(1), S_OK, true},
        {Variant::I4(0), S_OK, false},
        {Variant::I4(-2), S_OK, true},
        {Variant::String(u"-1"), DISP_E_TYPEMISMATCH, false},
        {Variant::R8(1), DISP_E_TYPEMISMATCH, false},
    };
    for (const Case& c : cases) {
        auto object = MakeRecorder();
        object->Script(u"HasText", S_OK, c.value);
        bool out = !c.expected;
        EXPECT_EQ(GetTruth(object, u"HasText", out), c.expectedHr);
        if (SUCCEEDED(c.expectedHr)) {
            EXPECT_EQ(out, c.expected);
        }
    }
}

TEST(SameIdentity, ComparesIdentitiesNotReferences) {
    int one = 0, other = 0;
    auto a = std::make_shared<RecordingObject>(&one);
    auto b = std::make_shared<RecordingObject>(&one);  // another wrapper, same object
    auto c = std::make_shared<RecordingObject>(&other);
    EXPECT_TRUE(SameIdentity(a, b));
    EXPECT_TRUE(SameIdentity(a, a));
    EXPECT_FALSE(SameIdentity(a, c));
    EXPECT_FALSE(SameIdentity(a, nullptr));
    EXPECT_FALSE(SameIdentity(nullptr, nullptr));
}

// --- Variant conversions --------------------------------------------------

TEST(VariantToInt32, RoundsHalfToEvenAndRefusesWhatDoesNotFit) {
    struct Case {
        Variant value;
        bool ok;
        std::int32_t expected;
    };
    const Case cases[] = {
        {Variant::R8(0.5), true, 0},
        {Variant::R8(1.5), true, 2},
        {Variant::R8(2.5), true, 2},
        {Variant::R8(3.5), true, 4},
        {Variant::R8(-2.5), true, -2},
        {Variant::R8(-3.5), true, -4},
        {Variant::R8(2.4999), true, 2},
        {Variant::R4(2.5f), true, 2},
        {Variant::R8(2147483647.4), true, 2147483647},
        {Variant::R8(-2147483648.4), true, std::numeric_limits<std::int32_t>::min()},
        {Variant::R8(2147483647.5), false, 0},
        {Variant::R8(-2147483648.6), false, 0},
        {Variant::R8(std::nan("")), false, 0},
        {Variant::R8(std::numeric_limits<double>::infinity()), false, 0},
        {Variant::Bool(true), true, -1},
        {Variant::Bool(false), true, 0},
        {Variant::I2(-300), true, -300},
        {Variant(), true, 0},
        {Variant::String(u"12"), true, 12},
        {Variant::String(u"\t-12 "), true, -12},
        {Variant::String(u"+7"), true, 7},
        {Variant::String(u"2.5"), true, 2},
        {Variant::String(u"1e3"), true, 1000},
        {Variant::String(u"3000000000"), false, 0},
        {Variant::String(u"12abc"), false, 0},
        {Variant::String(u"\u0661"), false, 0},  // only ASCII digits parse
        {Variant::Null(), false, 0},
        {Variant::Object(nullptr), false, 0},
        {Variant::Array({Variant::I4(1)}), false, 0},
    };
    for (std::size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        std::int32_t out = 12345;
        EXPECT_EQ(cases[i].value.ToInt32(out), cases[i].ok) << "case " << i;
        EXPECT_EQ(out, cases[i].ok ? cases[i].expected : 12345) << "case " << i;
    }
}

TEST(VariantToString, WritesAsTheHostShowsIt) {
    struct Case {
        Variant value;
        bool ok;
        std::u16string expected;
    };
    const Case cases[] = {
        {Variant::Bool(true), true, u"True"},
        {Variant::Bool(false), true, u"False"},
        {Variant::I2(-5), true, u"-5"},
        {Variant::I4(42), true, u"42"},
        {Variant::R8(2.5), true, u"2.5"},
        {Variant::R4(0.1f), true, u"0.1"},
        {Variant(), true, u""},
        {Variant::String(u"x"), true, u"x"},
        {Variant::Null(), false, u""},
        {Variant::Object(nullptr), false, u""},
    };
    for (const Case& c : cases) {
        std::u16string out = u"untouched";
        EXPECT_EQ(c.value.ToString(out), c.ok);
        EXPECT_EQ(out, c.ok ? c.expected : u"untouched");
    }
}

TEST(VariantEquality, ArraysCompareShapeAndBounds) {
    const Variant oneBased = Variant::Array({Variant::I4(1), Variant::String(u"a")}, 1);
    const Variant zeroBased = Variant::Array({Variant::I4(1), Variant::String(u"a")}, 0);
    EXPECT_EQ(oneBased, Variant::Array({Variant::I4(1), Variant::String(u"a")}, 1));
    EXPECT_NE(oneBased, zeroBased);
    VariantArray square{{1, 1}, {2, 1}, {Variant::I4(1), Variant::String(u"a")}};
    EXPECT_NE(Variant::Array(square), oneBased);
    // Same number in two types is two values, as VARIANTs of two types are.
    EXPECT_NE(Variant::I2(1), Variant::I4(1));
    EXPECT_NE(Variant::R4(1), Variant::R8(1));
    EXPECT_NE(Variant::Bool(true), Variant::I2(-1));
}

}  // namespace
}  // namespace qb::host
