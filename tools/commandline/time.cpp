#include "tools/commandline/options.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <iterator>
#include <string>

#include "common/calendar.h"
#include "common/systemcalls.h"

namespace zelq {
namespace {

constexpr long long second = 1000000;
constexpr double minuteUs = 60e6;
constexpr double hourUs = 60 * minuteUs;
constexpr double dayUs = 24 * hourUs;

struct Unit {
    std::string_view names;
    double us;
};

// A number without a unit counts seconds. Months and years are average ones.
constexpr Unit units[] = {
    {"|us|usec|", 1},
    {"|ms|msec|", 1e3},
    {"||s|sec|second|seconds|", 1e6},
    {"|m|min|minute|minutes|", minuteUs},
    {"|h|hr|hour|hours|", hourUs},
    {"|d|day|days|", dayUs},
    {"|w|week|weeks|", 7 * dayUs},
    {"|month|months|", 30.44 * dayUs},
    {"|y|year|years|", 365.25 * dayUs},
};

bool takeEnd(std::string& text, std::string_view end) {
    bool const found = text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
    text.erase(text.size() - (found ? end.size() : 0));
    return found;
}

// One or more numbers with their units, "1h 30min", in microseconds.
std::optional<double> parseSpan(std::string_view text) {
    Scanner scanner(text);
    double us = 0;
    do {
        scanner.skipSpaces();
        std::optional<double> const number = scanner.takeDecimal();
        scanner.skipSpaces();
        std::string const name = "|" + std::string(scanner.takeWord()) + "|";
        auto const* const unit = std::find_if(std::begin(units), std::end(units), [&name](Unit const& candidate) {
            return candidate.names.find(name) != std::string_view::npos;
        });
        if (!number.has_value() || unit == std::end(units)) {
            return std::nullopt;
        }
        us += *number * unit->us;
        scanner.skipSpaces();
    } while (!scanner.atEnd());
    return us < 9e18 ? std::optional(us) : std::nullopt;  // what a long long holds
}

long long nowUs() {
    return clockNs(CLOCK_REALTIME) / 1000;
}

CalendarTime today(bool isUtc) {
    auto const now = static_cast<time_t>(nowUs() / second);
    auto* const convert = isUtc ? gmtime_r : localtime_r;
    tm moment = {};
    convert(&now, &moment);
    return {moment.tm_year + 1900, moment.tm_mon + 1, moment.tm_mday};
}

// By the C library, which knows the zone and what day the one before the first is.
long long momentOf(CalendarTime const& time, bool isUtc) {
    tm moment = {};
    moment.tm_year = time.year - 1900;
    moment.tm_mon = time.month - 1;
    moment.tm_mday = time.day;
    moment.tm_hour = time.hour;
    moment.tm_min = time.minute;
    moment.tm_sec = time.second;
    moment.tm_isdst = -1;
    return static_cast<long long>(isUtc ? timegm(&moment) : mktime(&moment)) * second + time.us;
}

/// Takes a date, a time of day or both; what is not there keeps its value. False when it is something else.
bool takeMoment(std::string_view text, CalendarTime& time) {
    Scanner scanner(text);
    CalendarTime given = time;
    if (scanner.takeTimeOfDay(given) && scanner.atEnd()) {  // "10:00" and "2026-..." both begin with digits
        time = given;
        return exists(time);
    }
    scanner = Scanner(text);
    if (!scanner.takeDate(time)) {
        return false;
    }
    if (!scanner.atEnd()) {
        bool const isApart = scanner.take('t') || scanner.take(' ');
        scanner.skipSpaces();
        if (!isApart || !scanner.takeTimeOfDay(time)) {
            return false;
        }
    }
    return scanner.atEnd() && exists(time);
}

std::optional<long long> parseMoment(std::string text) {
    bool const isUtc = takeEnd(text, " utc") || takeEnd(text, "z");
    CalendarTime time = today(isUtc);
    if (text == "yesterday" || text == "tomorrow") {
        time.day += text == "tomorrow" ? 1 : -1;
    } else if (text != "today" && !takeMoment(text, time)) {
        return std::nullopt;
    }
    return momentOf(time, isUtc);
}

std::optional<long long> parseGivenTime(std::string_view given) {
    // Case and surrounding spaces do not matter: "2026-11-22T10:00Z" is as good as "today ".
    std::string text(given.substr(0, given.find_last_not_of(' ') + 1));
    text.erase(0, text.find_first_not_of(' '));
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    if (text == "now") {
        return nowUs();
    }
    Scanner scanner(text);
    if (scanner.take('@')) {
        std::optional<double> const seconds = scanner.takeDecimal();
        bool const isMoment = scanner.atEnd() && seconds.value_or(9e12) < 9e12;
        return isMoment ? std::optional(static_cast<long long>(*seconds * 1e6)) : std::nullopt;
    }
    bool const isLater = scanner.take('+');
    bool const hasSign = isLater || scanner.take('-');
    if (!hasSign && !takeEnd(text, " ago")) {
        return parseMoment(text);
    }
    std::optional<double> const us = parseSpan(std::string_view(text).substr(hasSign ? 1 : 0));
    return us.has_value() ? std::optional(nowUs() + static_cast<long long>(isLater ? *us : -*us)) : std::nullopt;
}

}  // namespace

long long parseTime(std::string const& text) {
    std::optional<long long> const moment = parseGivenTime(text);
    if (!moment.has_value()) {
        throw Failure{exitUsage,
                      "not a time: '" + text + "' (such as \"2026-11-22 10:00\", \"10 min ago\", yesterday)"};
    }
    return *moment;
}

long long parseDaysBeforeNow(std::string const& text) {
    constexpr std::uint64_t daysMax = 365 * 1000;
    constexpr long long dayUs = 86400LL * 1000000;
    std::optional<std::uint64_t> const days = parseNumber(text, 10);
    if (days.value_or(daysMax + 1) > daysMax) {
        throw Failure{exitUsage, "not a number of days: '" + text + "'"};
    }
    return nowUs() - static_cast<long long>(*days) * dayUs;
}

}  // namespace zelq
