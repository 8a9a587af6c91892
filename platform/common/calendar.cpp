#include "common/calendar.h"

#include <date/date.h>
#include <cctype>
#include <chrono>
#include <cstdio>

namespace zelq {
namespace {

date::year_month_day dayOf(CalendarTime const& time) {
    return {date::year(time.year), date::month(static_cast<unsigned>(time.month)),
            date::day(static_cast<unsigned>(time.day))};
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

bool Scanner::take(char c) {
    bool const found = !left_.empty() && left_[0] == c;
    left_.remove_prefix(found ? 1 : 0);
    return found;
}

void Scanner::skipSpaces() {
    while (take(' ')) {
    }
}

std::optional<int> Scanner::takeNumber(std::size_t fewest, std::size_t most) {
    std::size_t count = 0;
    int value = 0;
    while (count < most && count < left_.size() && isDigit(left_[count])) {
        value = value * 10 + (left_[count++] - '0');
    }
    if (count < fewest) {
        return std::nullopt;
    }
    left_.remove_prefix(count);
    return value;
}

std::optional<int> Scanner::takeFraction() {
    int us = 0;
    int count = 0;
    for (; std::optional<int> const digit = takeNumber(1, 1); ++count) {
        us = count < 6 ? us * 10 + *digit : us;
    }
    for (int missing = count; missing < 6; ++missing) {
        us *= 10;
    }
    return count > 0 ? std::optional<int>(us) : std::nullopt;
}

std::optional<double> Scanner::takeDecimal() {
    double value = 0;
    int count = 0;
    for (; std::optional<int> const digit = takeNumber(1, 1); ++count) {
        value = value * 10 + *digit;
    }
    std::optional<int> us = 0;
    if (count > 0 && take('.')) {
        us = takeFraction();
    }
    return count > 0 && us.has_value() ? std::optional<double>(value + *us / 1e6) : std::nullopt;
}

std::string_view Scanner::takeWord() {
    std::size_t count = 0;
    while (count < left_.size() && std::isalpha(static_cast<unsigned char>(left_[count])) != 0) {
        ++count;
    }
    std::string_view const word = left_.substr(0, count);
    left_.remove_prefix(count);
    return word;
}

bool Scanner::takeDate(CalendarTime& time) {
    return takeInto(time.year, 4, 4) && take('-') && takeInto(time.month, 1, 2) && take('-') &&
           takeInto(time.day, 1, 2);
}

bool Scanner::takeTimeOfDay(CalendarTime& time) {
    if (!takeInto(time.hour, 1, 2) || !take(':') || !takeInto(time.minute, 2, 2)) {
        return false;
    }
    if (take(':') && !takeInto(time.second, 2, 2)) {
        return false;
    }
    std::optional<int> const us = take('.') ? takeFraction() : time.us;
    time.us = us.value_or(0);
    return us.has_value();
}

bool Scanner::takeInto(int& number, std::size_t fewest, std::size_t most) {
    std::optional<int> const taken = takeNumber(fewest, most);
    number = taken.value_or(number);
    return taken.has_value();
}

bool exists(CalendarTime const& time) {
    return dayOf(time).ok() && time.hour <= 23 && time.minute <= 59 && time.second <= 59;
}

long long utcMoment(CalendarTime const& time) {
    auto const sinceEpoch = date::sys_days(dayOf(time)).time_since_epoch() + std::chrono::hours(time.hour) +
                            std::chrono::minutes(time.minute) + std::chrono::seconds(time.second);
    return std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count() + time.us;
}

// Before 1970 the digits behind the point count backwards from the second before them.
std::string storedTime(long long timeUs) {
    using std::chrono::seconds;
    date::sys_seconds const moment{seconds(timeUs / 1000000)};
    auto const midnight = date::floor<date::days>(moment);
    date::year_month_day const day(midnight);
    int const ofDay = static_cast<int>((moment - midnight).count());
    char text[64];
    int const length =
        std::snprintf(text, sizeof text, "%d-%02u-%02uT%02d:%02d:%02d.%06dZ", static_cast<int>(day.year()),
                      static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()), ofDay / 3600,
                      ofDay / 60 % 60, ofDay % 60, static_cast<int>(timeUs % 1000000));
    return std::string(text, static_cast<std::size_t>(length));
}

std::optional<long long> parseStoredTime(std::string_view text) {
    Scanner scanner(text);
    CalendarTime time;
    bool const isTime = scanner.takeDate(time) && scanner.take('T') && scanner.takeTimeOfDay(time) && scanner.take('Z');
    return isTime && scanner.atEnd() && exists(time) ? std::optional<long long>(utcMoment(time)) : std::nullopt;
}

}  // namespace zelq
