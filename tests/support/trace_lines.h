// Collects what the trace sends to the debugger while alive, from any
// thread, for tests that look for the lines a step must write.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

#include "foundation/platform.h"

namespace qb::test {

class TraceLines {
  public:
    TraceLines() { platform::SetDebugListener(&TraceLines::Take, this); }
    ~TraceLines() { platform::SetDebugListener(nullptr, nullptr); }
    TraceLines(const TraceLines&) = delete;
    TraceLines& operator=(const TraceLines&) = delete;

    bool Has(std::u16string_view part) {
        std::lock_guard<std::mutex> hold(lock_);
        return text_.find(part) != std::u16string::npos;
    }
    std::size_t Count(std::u16string_view part) {
        std::lock_guard<std::mutex> hold(lock_);
        std::size_t n = 0;
        for (std::size_t at = text_.find(part); at != std::u16string::npos;
             at = text_.find(part, at + part.size())) {
            ++n;
        }
        return n;
    }
    std::u16string Text() {
        std::lock_guard<std::mutex> hold(lock_);
        return text_;
    }

  private:
    static void Take(void* self, std::u16string_view piece) {
        auto* lines = static_cast<TraceLines*>(self);
        std::lock_guard<std::mutex> hold(lines->lock_);
        lines->text_ += piece;
    }
    std::mutex lock_;
    std::u16string text_;
};

}  // namespace qb::test
