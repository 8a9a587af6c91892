#include "tools/commandline/options.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

#include <date/date.h>

#include "common/systemcalls.h"

namespace zelq {
namespace {

constexpr long long second = 1000000;
constexpr std::size_t longestGiven = 200;  // regular expressions take stack for each character
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
std::optional<double> parseSpan(std::string const& text) {
    static std::regex const piece(R"( *(\d+(?:\.\d+)?) *([a-z]*) *)");
    double us = 0;
    std::smatch parts;
    for (auto at = text.begin(); at == text.begin() || at != text.end(); at = parts[0].second) {
        if (!std::regex_search(at, text.end(), parts, piece, std::regex_constants::match_continuous)) {
            return std::nullopt;
        }
        std::string const name = "|" + parts.str(2) + "|";
        auto const* const unit = std::find_if(std::begin(units), std::end(units), [&name](Unit const& candidate) {
            return candidate.names.find(name) != std::string_view::npos;
        });
        if (unit == std::end(units)) {
            return std::nullopt;
        }
        us += std::strtod(parts.str(1).c_str(), nullptr) * unit->us;
    }
    return us < 9e18 ? std::optional(us) : std::nullopt;  // what a long long holds
}

long long nowUs() {
    return clockNs(CLOCK_REALTIME) / 1000;
}

date::year_month_day today(bool isUtc) {
    auto const now = static_cast<time_t>(nowUs() / second);
    tm moment = {};
    auto* const convert = isUtc ? gmtime_r : localtime_r;
    convert(&now, &moment);
    return date::year(moment.tm_year + 1900) / (moment.tm_mon + 1) / moment.tm_mday;
}

// Local time is what the C library knows, by the rules of its zone.
long long secondsSince1970(date::year_month_day const& day, int hours, int minutes, int seconds, bool isUtc) {
    tm moment = {};
    moment.tm_year = static_cast<int>(day.year()) - 1900;
    moment.tm_mon = static_cast<int>(static_cast<unsigned>(day.month())) - 1;
    moment.tm_mday = static_cast<int>(static_cast<unsigned>(day.day()));
    moment.tm_hour = hours;
    moment.tm_min = minutes;
    moment.tm_sec = seconds;
    moment.tm_isdst = -1;
    return isUtc ? timegm(&moment) : mktime(&moment);
}

std::optional<long long> parseMoment(std::string text) {
    static std::regex const dateForm(R"((\d{4})-(\d{1,2})-(\d{1,2}))");
    static std::regex const timeForm(R"((\d{1,2}):(\d\d)(?::(\d\d))?(?:\.(\d+))?)");
    std::string const midnight = "0:00";
    std::smatch parts;
    auto const number = [&parts](std::size_t i) { return std::atoi(parts.str(i).c_str()); };
    bool const isUtc = takeEnd(text, " utc") || takeEnd(text, "z");
    date::year_month_day day = today(isUtc);
    if (text == "today" || text == "yesterday" || text == "tomorrow") {
        day = date::sys_days(day) + date::days(text == "today" ? 0 : text == "tomorrow" ? 1 : -1);
        text = midnight;
    } else if (std::regex_search(text, parts, dateForm, std::regex_constants::match_continuous)) {
        day = date::year(number(1)) / number(2) / number(3);
        std::string const behind = parts.suffix();
        if (!behind.empty() && behind[0] != 't' && behind[0] != ' ') {
            return std::nullopt;
        }
        text = behind.empty() ? midnight : behind.substr(std::min(behind.find_first_not_of(' ', 1), behind.size()));
    }
    if (!day.ok() || !std::regex_match(text, parts, timeForm) || number(1) > 23 || number(2) > 59 || number(3) > 59) {
        return std::nullopt;
    }
    int const us = std::atoi((parts.str(4) + "000000").substr(0, 6).c_str());
    return secondsSince1970(day, number(1), number(2), number(3), isUtc) * second + us;
}

std::optional<long long> parseGivenTime(std::string_view given) {
    // Case and surrounding spaces do not matter: "2026-11-22T10:00Z" is as good as "today ".
    std::string text(given.substr(0, given.find_last_not_of(' ') + 1));
    text.erase(0, text.find_first_not_of(' '));
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    if (text.size() > longestGiven) {
        return std::nullopt;
    }
    if (text == "now") {
        return nowUs();
    }
    if (std::regex_match(text, std::regex(R"(@\d+(\.\d+)?)"))) {
        double const seconds = std::strtod(text.c_str() + 1, nullptr);
        return seconds < 9e12 ? std::optional(static_cast<long long>(seconds * 1e6)) : std::nullopt;
    }
    bool const hasSign = !text.empty() && (text[0] == '-' || text[0] == '+');
    if (!hasSign && !takeEnd(text, " ago")) {
        return parseMoment(text);
    }
    bool const isLater = text[0] == '+';
    std::optional<double> const us = parseSpan(text.substr(hasSign ? 1 : 0));
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
