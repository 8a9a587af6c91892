#include "tools/commandline/timetext.h"

#include <cctype>
#include <cstdio>
#include <ctime>

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

/// Takes one piece after the other from the front of a text.
class Scanner {
public:
    explicit Scanner(std::string_view text) : left_(text) {}

    bool atEnd() const { return left_.empty(); }

    bool take(char c) {
        bool const found = !left_.empty() && left_[0] == c;
        left_.remove_prefix(found ? 1 : 0);
        return found;
    }

    void skipSpaces() {
        while (take(' ')) {
        }
    }

    /// Between `fewest` and `most` decimal digits.
    bool takeNumber(std::size_t fewest, std::size_t most, int* number) {
        std::size_t count = 0;
        int value = 0;
        while (count < most && count < left_.size() && std::isdigit(static_cast<unsigned char>(left_[count])) != 0) {
            value = value * 10 + (left_[count++] - '0');
        }
        if (count < fewest) {
            return false;
        }
        *number = value;
        left_.remove_prefix(count);
        return true;
    }

    /// Digits behind a decimal point as microseconds; more than six are read and dropped.
    bool takeFraction(int* us) {
        int digit = 0;
        int count = 0;
        for (*us = 0; takeNumber(1, 1, &digit); ++count) {
            *us = count < 6 ? *us * 10 + digit : *us;
        }
        for (int missing = count; missing < 6; ++missing) {
            *us *= 10;
        }
        return count > 0;
    }

    bool takeDecimal(double* number) {
        double value = 0;
        int digit = 0;
        int count = 0;
        for (; takeNumber(1, 1, &digit); ++count) {
            value = value * 10 + digit;
        }
        int us = 0;
        if (count == 0 || (take('.') && !takeFraction(&us))) {
            return false;
        }
        *number = value + us / 1e6;
        return true;
    }

    std::string_view takeWord() {
        std::size_t count = 0;
        while (count < left_.size() && std::isalpha(static_cast<unsigned char>(left_[count])) != 0) {
            ++count;
        }
        std::string_view const word = left_.substr(0, count);
        left_.remove_prefix(count);
        return word;
    }

private:
    std::string_view left_;
};

bool takeDate(Scanner& scanner, tm* moment) {
    int year = 0;
    int month = 0;
    int day = 0;
    if (!scanner.takeNumber(4, 4, &year) || !scanner.take('-') || !scanner.takeNumber(1, 2, &month) ||
        !scanner.take('-') || !scanner.takeNumber(1, 2, &day)) {
        return false;
    }
    moment->tm_year = year - 1900;
    moment->tm_mon = month - 1;
    moment->tm_mday = day;
    return true;
}

// "10:00", "10:00:01" or "10:00:01.5"; the ranges are left to toMicroseconds().
bool takeTimeOfDay(Scanner& scanner, tm* moment, int* us) {
    if (!scanner.takeNumber(1, 2, &moment->tm_hour) || !scanner.take(':') ||
        !scanner.takeNumber(2, 2, &moment->tm_min)) {
        return false;
    }
    if (scanner.take(':') && !scanner.takeNumber(2, 2, &moment->tm_sec)) {
        return false;
    }
    return !scanner.take('.') || scanner.takeFraction(us);
}

// Also turns down what the C library would silently carry over, such as 30 February.
bool toMicroseconds(tm moment, int us, bool utc, long long* timeUs) {
    tm checked = moment;
    checked.tm_isdst = -1;
    time_t const seconds = utc ? timegm(&checked) : mktime(&checked);
    bool const rightDate = checked.tm_mday == moment.tm_mday && checked.tm_mon == moment.tm_mon;
    if (!rightDate || moment.tm_hour > 23 || moment.tm_min > 59 || moment.tm_sec > 59) {
        return false;
    }
    *timeUs = static_cast<long long>(seconds) * second + us;
    return true;
}

// One or more numbers with their units, "1h 30min"; a number without a unit counts seconds.
bool parseSpan(std::string_view text, double* us) {
    Scanner scanner(text);
    *us = 0;
    scanner.skipSpaces();
    do {
        double number = 0;
        if (!scanner.takeDecimal(&number)) {
            return false;
        }
        scanner.skipSpaces();
        std::string_view const name = scanner.takeWord();
        double factor = 0;
        for (Unit const& unit : units) {
            factor = unit.name == name ? unit.us : factor;
        }
        if (factor == 0) {
            return false;
        }
        *us += number * factor;
        scanner.skipSpaces();
    } while (!scanner.atEnd());
    return *us < 9e18;  // what a long long holds
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool parseMoment(std::string_view text, long long nowUs, long long* timeUs) {
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
    tm moment = {};
    utc ? gmtime_r(&now, &moment) : localtime_r(&now, &moment);
    moment.tm_hour = moment.tm_min = moment.tm_sec = 0;
    if (text == "today" || text == "yesterday" || text == "tomorrow") {
        moment.tm_mday += text == "today" ? 0 : text == "tomorrow" ? 1 : -1;
        moment.tm_isdst = -1;
        *timeUs = static_cast<long long>(utc ? timegm(&moment) : mktime(&moment)) * second;
        return true;
    }
    Scanner scanner(text);
    int us = 0;
    Scanner onlyTime = scanner;  // "10:00" and "2026-..." both begin with digits
    tm atTime = moment;
    if (takeTimeOfDay(onlyTime, &atTime, &us) && onlyTime.atEnd()) {
        return toMicroseconds(atTime, us, utc, timeUs);
    }
    if (!takeDate(scanner, &moment)) {
        return false;
    }
    if (scanner.atEnd()) {
        return toMicroseconds(moment, 0, utc, timeUs);
    }
    if (!scanner.take('t') && !scanner.take(' ')) {
        return false;
    }
    scanner.skipSpaces();
    us = 0;
    return takeTimeOfDay(scanner, &moment, &us) && scanner.atEnd() && toMicroseconds(moment, us, utc, timeUs);
}

}  // namespace

bool parseStoredTime(std::string_view text, long long* timeUs) {
    Scanner scanner(text);
    tm moment = {};
    int us = 0;
    return takeDate(scanner, &moment) && scanner.take('T') && takeTimeOfDay(scanner, &moment, &us) &&
           scanner.take('Z') && scanner.atEnd() && toMicroseconds(moment, us, true, timeUs);
}

std::string shownTime(long long timeUs, bool microseconds) {
    time_t const seconds = static_cast<time_t>(timeUs / second);
    tm moment = {};
    gmtime_r(&seconds, &moment);
    char text[64];
    std::size_t const length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &moment);
    std::string shown(text, length);
    if (microseconds) {
        std::snprintf(text, sizeof text, ".%06d", static_cast<int>(timeUs % second));
        shown += text;
    }
    return shown + "Z";
}

std::string storedTime(long long timeUs) {
    std::string text = shownTime(timeUs, true);
    text[text.find(' ')] = 'T';
    return text;
}

bool parseGivenTime(std::string_view given, long long nowUs, long long* timeUs) {
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
        return false;
    }
    if (text == "now") {
        *timeUs = nowUs;
        return true;
    }
    double us = 0;
    if (text[0] == '@') {
        Scanner scanner(std::string_view(text).substr(1));
        bool const read = scanner.takeDecimal(&us) && scanner.atEnd() && us < 9e12;
        *timeUs = static_cast<long long>(us * 1e6);
        return read;
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
        return parseMoment(text, nowUs, timeUs);
    }
    if (!parseSpan(span, &us)) {
        return false;
    }
    *timeUs = nowUs + static_cast<long long>(sign * us);
    return true;
}

}  // namespace zelq
