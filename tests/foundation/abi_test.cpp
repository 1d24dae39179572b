// What only shows across the two Windows ABIs: 16-bit wide strings that must
// be the very units of std::u16string, and COM methods that must keep the
// host's calling convention (x86's __stdcall) when called through a vtable.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "foundation/hresult.h"
#include "foundation/platform.h"
#include "support/temp_dir.h"

#if defined(_WIN32)
#include <windows.h>

#include "foundation/wide_win.h"
#endif

namespace qb {
namespace {

// A COM-shaped interface as the product declares them: no virtual
// destructor, every method STDMETHODCALLTYPE, so the vtable is the one a
// host compiled elsewhere calls into.
struct ICalculator {
    virtual HRESULT STDMETHODCALLTYPE Add(std::int32_t value, std::int32_t* result) = 0;
    virtual std::uint32_t STDMETHODCALLTYPE Mix(std::uint8_t a, std::int64_t b, double c,
                                                std::uint16_t d) = 0;
};

class Calculator final : public ICalculator {
  public:
    explicit Calculator(std::int32_t base) : base_(base) {}
    HRESULT STDMETHODCALLTYPE Add(std::int32_t value, std::int32_t* result) override {
        if (!result) return E_POINTER;
        *result = base_ + value;
        return S_OK;
    }
    std::uint32_t STDMETHODCALLTYPE Mix(std::uint8_t a, std::int64_t b, double c,
                                        std::uint16_t d) override {
        return static_cast<std::uint32_t>(base_ + a + b + static_cast<std::int64_t>(c) + d);
    }

  private:
    std::int32_t base_;
};

#if defined(_WIN32) && !defined(_WIN64)
#define QB_HOST_CALL __stdcall  // how a 32-bit host calls every COM method
#else
#define QB_HOST_CALL
#endif

using AddSlot = HRESULT(QB_HOST_CALL*)(void* self, std::int32_t, std::int32_t*);
using MixSlot = std::uint32_t(QB_HOST_CALL*)(void* self, std::uint8_t, std::int64_t, double,
                                             std::uint16_t);

template <typename Slot>
Slot VtableSlot(void* object, int index) {
    void** vtable = *static_cast<void***>(object);
    return reinterpret_cast<Slot>(vtable[index]);
}

// Made out of the optimiser's sight, so that no call below is devirtualised.
__attribute__((noinline)) ICalculator* MakeCalculator(std::int32_t base) {
    static Calculator calculator(0);
    calculator = Calculator(base);
    ICalculator* volatile object = &calculator;
    return object;
}

// Called as a C host calls: `this` pushed as the first argument. A method
// that lost STDMETHODCALLTYPE on x86 expects `this` in ECX and pops one
// argument too few, so the results below come out wrong or the stack breaks.
TEST(ComAbi, MethodsKeepTheHostCallingConvention) {
    ICalculator* object = MakeCalculator(40);
    for (int round = 0; round < 3; ++round) {
        std::int32_t result = 0;
        const HRESULT hr = VtableSlot<AddSlot>(object, 0)(object, 2 + round, &result);
        EXPECT_EQ(hr, S_OK);
        EXPECT_EQ(result, 42 + round);
        EXPECT_EQ(VtableSlot<AddSlot>(object, 0)(object, 1, nullptr), E_POINTER);
        EXPECT_EQ(VtableSlot<MixSlot>(object, 1)(object, 1, 1000000000000LL, 2.9, 7),
                  static_cast<std::uint32_t>(40 + 1 + 1000000000000LL + 2 + 7));
    }
}

TEST(ComAbi, HresultCodesAreTheSdkValues) {
    EXPECT_EQ(static_cast<std::uint32_t>(E_FAIL), 0x80004005u);
    EXPECT_EQ(static_cast<std::uint32_t>(E_NOINTERFACE), 0x80004002u);
    EXPECT_EQ(static_cast<std::uint32_t>(E_INVALIDARG), 0x80070057u);
    EXPECT_EQ(static_cast<std::uint32_t>(DISP_E_UNKNOWNNAME), 0x80020006u);
    EXPECT_EQ(static_cast<std::uint32_t>(DISP_E_MEMBERNOTFOUND), 0x80020003u);
    EXPECT_EQ(static_cast<std::uint32_t>(REGDB_E_CLASSNOTREG), 0x80040154u);
    EXPECT_EQ(static_cast<std::uint32_t>(kHrCancelled), 0x800704C7u);
    EXPECT_TRUE(FAILED(E_FAIL));
    EXPECT_TRUE(SUCCEEDED(S_FALSE));
    EXPECT_EQ(sizeof(HRESULT), 4u);
}

HRESULT FirstFailure(HRESULT a, HRESULT b, int* steps) {
    ++*steps;
    RETURN_IF_FAILED(a);
    ++*steps;
    RETURN_IF_FAILED(b);
    ++*steps;
    return S_OK;
}

TEST(ComAbi, ReturnIfFailedStopsAtTheFirstFailure) {
    int steps = 0;
    EXPECT_EQ(FirstFailure(S_OK, E_ABORT, &steps), E_ABORT);
    EXPECT_EQ(steps, 2);
    steps = 0;
    EXPECT_EQ(FirstFailure(S_FALSE, S_OK, &steps), S_OK);
    EXPECT_EQ(steps, 3);
}

#if defined(_WIN32)
// The u16string units are handed to the SDK as they are: a wchar_t of
// another width, or a conversion on the way, would change what it sees.
TEST(WideStrings, SdkSeesTheSameUnits) {
    const std::u16string text = u"\u00E9\u4E2D\U0001F600";
    ASSERT_EQ(text.size(), 4u);
    EXPECT_EQ(::lstrlenW(AsWide(text)), 4);
    EXPECT_EQ(::CompareStringOrdinal(AsWide(text), -1, L"\u00E9\u4E2D\U0001F600", -1, FALSE),
              CSTR_EQUAL);
    char utf8[32] = {};
    const int n =
        ::WideCharToMultiByte(CP_UTF8, 0, AsWide(text), -1, utf8, sizeof utf8, nullptr, nullptr);
    EXPECT_EQ(std::string(utf8, static_cast<std::size_t>(n > 0 ? n - 1 : 0)),
              "\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
    EXPECT_EQ(FromWide(L"\u00E9\u4E2D\U0001F600"), text);
}

// A file made through the seam is found by a plain Win32 call with a wide
// literal, and one made by Win32 is listed through the seam.
TEST(WideStrings, FileNamesMatchTheSdksWideNames) {
    test::TempDir dir;
    ASSERT_TRUE(platform::AppendToFile(dir.Join(u"\u00E9\u4E2D.log"), "x", 1));
    const std::u16string pattern = dir.Join(u"*.log");
    WIN32_FIND_DATAW data{};
    HANDLE find = ::FindFirstFileW(AsWide(pattern), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    ::FindClose(find);
    EXPECT_EQ(std::wstring(data.cFileName), L"\u00E9\u4E2D.log");

    const std::u16string other = dir.Join(u"\u0416.txt");
    HANDLE file = ::CreateFileW(AsWide(other), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    ::CloseHandle(file);
    bool listed = false;
    for (const auto& e : platform::ListDirectory(dir.Path()))
        listed |= e.name == u"\u0416.txt";
    EXPECT_TRUE(listed);
}
#endif

}  // namespace
}  // namespace qb
