#ifndef ZELQ_CALENDAR_H
#define ZELQ_CALENDAR_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// Times as text. Moments are microseconds since 1970, UTC; no function takes the C library's time zone lock,
// which a child forked at a bad moment finds taken for ever.

namespace zelq {

/// What the digits of a date and a time of day say; there need be no such time.
struct CalendarTime {
    int year = 1970;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int us = 0;
};

/// Takes one piece after the other from the front of a text. What is not there is not taken.
class Scanner {
public:
    explicit Scanner(std::string_view text) : left_(text) {}

    bool atEnd() const { return left_.empty(); }
    bool take(char c);
    void skipSpaces();

    /// Between `fewest` and `most` decimal digits.
    std::optional<int> takeNumber(std::size_t fewest, std::size_t most);

    /// Digits behind a decimal point as microseconds; more than six are read and dropped.
    std::optional<int> takeFraction();

    std::optional<double> takeDecimal();
    std::string_view takeWord();

    /// "2026-11-22". False when there is none; then anything of it may be taken.
    bool takeDate(CalendarTime& time);

    /// Likewise "10:00", "10:00:01" or "10:00:01.5".
    bool takeTimeOfDay(CalendarTime& time);

private:
    bool takeInto(int& number, std::size_t fewest, std::size_t most);

    std::string_view left_;
};

/// True when there is such a day, such as no 30 February, and such a time of day.
bool exists(CalendarTime const& time);

/// The moment in UTC of a time that exists.
long long utcMoment(CalendarTime const& time);

/// A moment as it is stored, "2026-11-22T10:00:00.123456Z".
std::string storedTime(long long timeUs);

/// The opposite.
std::optional<long long> parseStoredTime(std::string_view text);

}  // namespace zelq

#endif
