#include "tools/commandline/timetext.h"

#include <cctype>
#include <ctime>

#include "common/calendar.h"

namespace zelq {
namespace {

constexpr long long second = 1000000;

struct Unit {
    std::string_view name;
    double us;
};

constexpr double minuteUs = 60e6;
constexpr double hourUs = 60 * minuteUs;
constexpr double dayUs = 24 * hourUs;

// Months and years are average ones.
constexpr Unit units[] = {
    {"", 1e6},
    {"us", 1},
    {"usec", 1},
    {"ms", 1e3},
    {"msec", 1e3},
    {"s", 1e6},
    {"sec", 1e6},
    {"second", 1e6},
    {"seconds", 1e6},
    {"m", minuteUs},
    {"min", minuteUs},
    {"minute", minuteUs},
    {"minutes", minuteUs},
    {"h", hourUs},
    {"hr", hourUs},
    {"hour", hourUs},
    {"hours", hourUs},
    {"d", dayUs},
    {"day", dayUs},
    {"days", dayUs},
    {"w", 7 * dayUs},
    {"week", 7 * dayUs},
    {"weeks", 7 * dayUs},
    {"month", 30.44 * dayUs},
    {"months", 30.44 * dayUs},
    {"y", 365.25 * dayUs},
    {"year", 365.25 * dayUs},
    {"years", 365.25 * dayUs},
};

// Local time goes through the C library, which knows the zone.
std::optional<long long> momentOf(CalendarTime const& time, bool utc) {
    if (!exists(time)) {
        return std::nullopt;
    }
    if (utc) {
        return utcMoment(time);
    }
    tm moment = {};
    moment.tm_year = time.year - 1900;
    moment.tm_mon = time.month - 1;
    moment.tm_mday = time.day;
    moment.tm_hour = time.hour;
    moment.tm_min = time.minute;
    moment.tm_sec = time.second;
    moment.tm_isdst = -1;
    return static_cast<long long>(mktime(&moment)) * second + time.us;
}

// One or more numbers with their units, "1h 30min"; a number without a unit counts seconds.
std::optional<double> parseSpan(std::string_view text) {
    Scanner scanner(text);
    double us = 0;
    scanner.skipSpaces();
    do {
        std::optional<double> const number = scanner.takeDecimal();
        if (!number.has_value()) {
            return std::nullopt;
        }
        scanner.skipSpaces();
        std::string_view const name = scanner.takeWord();
        double factor = 0;
        for (Unit const& unit : units) {
            factor = unit.name == name ? unit.us : factor;
        }
        if (factor == 0) {
            return std::nullopt;
        }
        us += *number * factor;
        scanner.skipSpaces();
    } while (!scanner.atEnd());
    return us < 9e18 ? std::optional<double>(us) : std::nullopt;  // what a long long holds
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::optional<long long> parseMoment(std::string_view text, long long nowUs) {
    bool utc = false;
    // What is without a mark is local time, as the user's clock shows it.
    for (std::string_view const mark : {" utc", "z"}) {
        if (endsWith(text, mark)) {
            text.remove_suffix(mark.size());
            utc = true;
            break;
        }
    }
    time_t const now = static_cast<time_t>(nowUs / second);
    tm today = {};
    utc ? gmtime_r(&now, &today) : localtime_r(&now, &today);
    today.tm_hour = today.tm_min = today.tm_sec = 0;
    if (text == "today" || text == "yesterday" || text == "tomorrow") {
        today.tm_mday += text == "today" ? 0 : text == "tomorrow" ? 1 : -1;
        today.tm_isdst = -1;
        return static_cast<long long>(utc ? timegm(&today) : mktime(&today)) * second;
    }
    CalendarTime time;
    time.year = today.tm_year + 1900;
    time.month = today.tm_mon + 1;
    time.day = today.tm_mday;
    Scanner onlyTime(text);  // "10:00" and "2026-..." both begin with digits
    CalendarTime atTime = time;
    if (onlyTime.takeTimeOfDay(atTime) && onlyTime.atEnd()) {
        return momentOf(atTime, utc);
    }
    Scanner scanner(text);
    if (!scanner.takeDate(time)) {
        return std::nullopt;
    }
    if (!scanner.atEnd()) {
        if (!scanner.take('t') && !scanner.take(' ')) {
            return std::nullopt;
        }
        scanner.skipSpaces();
        if (!scanner.takeTimeOfDay(time) || !scanner.atEnd()) {
            return std::nullopt;
        }
    }
    return momentOf(time, utc);
}

}  // namespace

std::string shownTime(long long timeUs, bool microseconds) {
    std::string text = storedTime(timeUs);
    text[text.find('T')] = ' ';
    return microseconds ? text : text.substr(0, text.find('.')) + "Z";
}

std::optional<long long> parseGivenTime(std::string_view given, long long nowUs) {
    // Case and surrounding spaces do not matter: "2026-11-22T10:00Z" is as good as "today ".
    std::string text;
    for (char const c : given) {
        text += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    while (!text.empty() && text.back() == ' ') {
        text.pop_back();
    }
    text.erase(0, text.find_first_not_of(' '));
    if (text.empty()) {
        return std::nullopt;
    }
    if (text == "now") {
        return nowUs;
    }
    if (text[0] == '@') {
        Scanner scanner(std::string_view(text).substr(1));
        std::optional<double> const seconds = scanner.takeDecimal();
        if (!seconds.has_value() || !scanner.atEnd() || *seconds >= 9e12) {
            return std::nullopt;
        }
        return static_cast<long long>(*seconds * 1e6);
    }
    double sign = 0;
    std::string_view span = text;
    if (text[0] == '-' || text[0] == '+') {
        sign = text[0] == '-' ? -1 : 1;
        span.remove_prefix(1);
    } else if (endsWith(text, " ago")) {
        sign = -1;
        span.remove_suffix(4);
    }
    if (sign == 0) {
        return parseMoment(text, nowUs);
    }
    std::optional<double> const us = parseSpan(span);
    return us.has_value() ? std::optional<long long>(nowUs + static_cast<long long>(sign * *us)) : std::nullopt;
}

}  // namespace zelq
