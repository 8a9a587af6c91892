#include "tools/commandline/timetext.h"

#include <cctype>
#include <cstdio>
#include <ctime>

namespace zelq {
namespace {

constexpr long long second = 1000000;

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
bool toMicroseconds(tm moment, int us, long long* timeUs) {
    tm checked = moment;
    time_t const seconds = timegm(&checked);
    bool const rightDate = checked.tm_mday == moment.tm_mday && checked.tm_mon == moment.tm_mon;
    if (!rightDate || moment.tm_hour > 23 || moment.tm_min > 59 || moment.tm_sec > 59) {
        return false;
    }
    *timeUs = static_cast<long long>(seconds) * second + us;
    return true;
}

}  // namespace

bool parseStoredTime(std::string_view text, long long* timeUs) {
    Scanner scanner(text);
    tm moment = {};
    int us = 0;
    return takeDate(scanner, &moment) && scanner.take('T') && takeTimeOfDay(scanner, &moment, &us) &&
           scanner.take('Z') && scanner.atEnd() && toMicroseconds(moment, us, timeUs);
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

}  // namespace zelq
