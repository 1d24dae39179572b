// The pane's native window under Wine: jobs from any thread run on the
// window's thread in posting order, a destroyed window drops what is queued
// and refuses more, timers and size reach the pane, a job that throws
// doesn't take the window down, the pump hands a quit back to the host's
// loop, and the clipboard and the font list are the system's.
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "pane/pane_window_win.h"

namespace qb {
namespace {

class PaneWindowTest : public testing::Test {
  protected:
    void SetUp() override {
        parent_ = ::CreateWindowExW(0, L"STATIC", L"host", WS_OVERLAPPED, 0, 0, 400, 300, nullptr,
                                    nullptr, nullptr, nullptr);
        ASSERT_NE(parent_, nullptr);
        PaneWindow::Events events;
        events.created = [this] { ++created_; };
        events.timer = [this](PaneTimer timer) { timers_.push_back(timer); };
        events.sized = [this](int width, int height) { sizes_.push_back({width, height}); };
        events.destroyed = [this] { ++destroyed_; };
        window_ = std::make_unique<PaneWindow>(std::move(events));
        ASSERT_NE(window_->Create(parent_, RECT{0, 0, 320, 240}), nullptr);
    }
    void TearDown() override {
        window_.reset();
        ::DestroyWindow(parent_);
        // Nothing of this test may reach the next one's pump.
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        }
    }
    // Pumps until nothing is waiting.
    void Drain() {
        for (int i = 0; i < 10; ++i)
            ASSERT_EQ(window_->PumpMessages(0), PumpResult::Pumped);
    }

    HWND parent_ = nullptr;
    std::unique_ptr<PaneWindow> window_;
    int created_ = 0;
    int destroyed_ = 0;
    std::vector<PaneTimer> timers_;
    std::vector<std::pair<int, int>> sizes_;
};

TEST_F(PaneWindowTest, JobsFromAnyThreadRunOnTheWindowsThreadInPostingOrder) {
    EXPECT_EQ(created_, 1);
    const DWORD hostThread = ::GetCurrentThreadId();
    std::vector<int> order;
    std::vector<DWORD> threads;
    std::thread worker([&] {
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(window_->PostJob([&, i] {
                order.push_back(i);
                threads.push_back(::GetCurrentThreadId());
            }));
        }
    });
    worker.join();
    EXPECT_TRUE(order.empty()) << "nothing runs before the host's thread pumps";
    Drain();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
    for (DWORD thread : threads)
        EXPECT_EQ(thread, hostThread);
}

TEST_F(PaneWindowTest, ADestroyedWindowDropsQueuedJobsUnrunAndRefusesMore) {
    auto held = std::make_shared<int>(0);
    int ran = 0;
    ASSERT_TRUE(window_->PostJob([held, &ran] { ++ran; }));
    ASSERT_TRUE(window_->PostJob([held, &ran] { ++ran; }));
    ASSERT_EQ(held.use_count(), 3);
    ASSERT_TRUE(::DestroyWindow(window_->Handle()));
    EXPECT_EQ(destroyed_, 1);
    EXPECT_FALSE(window_->IsValid());
    EXPECT_EQ(held.use_count(), 1) << "the queued jobs were destroyed";
    EXPECT_FALSE(window_->PostJob([held, &ran] { ++ran; }));
    EXPECT_EQ(held.use_count(), 1) << "a refused job is destroyed at once";
    Drain();
    EXPECT_EQ(ran, 0);
    EXPECT_FALSE(window_->SetTimer(PaneTimer::RunTick, 120));
}

TEST_F(PaneWindowTest, TimersAndSizeReachThePane) {
    EXPECT_TRUE(window_->SetTimer(PaneTimer::RunTick, 120));
    // The window's timer message as the system sends it when the period ends.
    ::PostMessageW(window_->Handle(), WM_TIMER, static_cast<WPARAM>(PaneTimer::RunTick), 0);
    ::PostMessageW(window_->Handle(), WM_TIMER, static_cast<WPARAM>(PaneTimer::PaneTick), 0);
    Drain();
    EXPECT_EQ(timers_, (std::vector<PaneTimer>{PaneTimer::RunTick, PaneTimer::PaneTick}));
    window_->KillTimer(PaneTimer::RunTick);

    ::MoveWindow(window_->Handle(), 0, 0, 300, 200, FALSE);
    ASSERT_FALSE(sizes_.empty());
    EXPECT_EQ(sizes_.back(), std::make_pair(300, 200));
}

TEST_F(PaneWindowTest, AJobThatThrowsLeavesTheWindowWorking) {
    int ran = 0;
    ASSERT_TRUE(window_->PostJob([] { throw std::runtime_error("job failed"); }));
    ASSERT_TRUE(window_->PostJob([&ran] { ++ran; }));
    Drain();
    EXPECT_EQ(ran, 1);
    EXPECT_TRUE(window_->IsValid());
}

TEST_F(PaneWindowTest, APumpThatMeetsAQuitLeavesItForTheHostsLoop) {
    ::PostQuitMessage(7);
    EXPECT_EQ(window_->PumpMessages(0), PumpResult::Quit);
    MSG message;
    ASSERT_TRUE(::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
    EXPECT_EQ(message.wParam, 7u);
}

TEST_F(PaneWindowTest, TheClipboardHoldsTheTextWithItsTerminator) {
    ASSERT_TRUE(window_->SetClipboardText(u"Quillbrook-1"));
    ASSERT_TRUE(::OpenClipboard(nullptr));
    HANDLE data = ::GetClipboardData(CF_UNICODETEXT);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(::GlobalSize(data), 13 * sizeof(wchar_t));
    const auto* text = static_cast<const wchar_t*>(::GlobalLock(data));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, L"Quillbrook-1");
    ::GlobalUnlock(data);
    ::CloseClipboard();
}

TEST_F(PaneWindowTest, FontFamiliesAreTheSystemsAsEnumerated) {
    const std::vector<std::u16string> families = window_->ListFontFamilies();
    ASSERT_FALSE(families.empty());
    // Names as the system gives them: the first makes a font again by name.
    LOGFONTW font{};
    font.lfCharSet = DEFAULT_CHARSET;
    const std::u16string& first = families.front();
    ASSERT_LT(first.size(), static_cast<std::size_t>(LF_FACESIZE));
    std::copy(first.begin(), first.end(), font.lfFaceName);
    HFONT made = ::CreateFontIndirectW(&font);
    EXPECT_NE(made, nullptr);
    ::DeleteObject(made);
}

}  // namespace
}  // namespace qb
