#include "support/manual_clock.h"

namespace qb::test {
namespace {

// Days since 1601-01-01 for a proleptic Gregorian date (H. Hinnant's algorithm,
// shifted from the 1970 epoch).
std::int64_t DaysFrom1601(int y, int m, int d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const std::int64_t yoe = y - era * 400;
    const std::int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const std::int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468 + 134774;
}

}  // namespace

std::uint64_t FileTimeFromUtc(int year, int month, int day, int hour, int minute, int second,
                              int milliseconds) {
    const std::int64_t days = DaysFrom1601(year, month, day);
    const std::int64_t ms = ((days * 24 + hour) * 60 + minute) * 60000 +
                            static_cast<std::int64_t>(second) * 1000 + milliseconds;
    return static_cast<std::uint64_t>(ms) * 10000ull;
}

ManualClock::ManualClock()
    : owner_(std::this_thread::get_id()),
      ticks_(5000000000ull),
      fileTime_(FileTimeFromUtc(2026, 3, 1, 9, 41, 7, 123)) {}

void ManualClock::Sleep(std::uint32_t milliseconds) {
    if (std::this_thread::get_id() == owner_) {
        Advance(milliseconds);
    } else {
        std::this_thread::yield();
    }
}

platform::LocalTime ManualClock::LocalNow() {
    const std::uint64_t ms = fileTime_.load() / 10000ull;
    std::int64_t days = static_cast<std::int64_t>(ms / 86400000ull) - 134774;  // since 1970
    const std::uint64_t inDay = ms % 86400000ull;
    // Civil from days (H. Hinnant).
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const std::int64_t doe = days - era * 146097;
    const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const std::int64_t mp = (5 * doy + 2) / 153;
    const std::int64_t d = doy - (153 * mp + 2) / 5 + 1;
    const std::int64_t m = mp < 10 ? mp + 3 : mp - 9;
    const std::int64_t y = yoe + era * 400 + (m <= 2);
    platform::LocalTime t;
    t.year = static_cast<std::uint16_t>(y);
    t.month = static_cast<std::uint16_t>(m);
    t.day = static_cast<std::uint16_t>(d);
    t.hour = static_cast<std::uint16_t>(inDay / 3600000);
    t.minute = static_cast<std::uint16_t>(inDay / 60000 % 60);
    t.second = static_cast<std::uint16_t>(inDay / 1000 % 60);
    t.milliseconds = static_cast<std::uint16_t>(inDay % 1000);
    return t;
}

}  // namespace qb::test
