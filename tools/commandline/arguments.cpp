#include "tools/commandline/arguments.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <limits>

#include "common/systemcalls.h"
#include "tools/commandline/timetext.h"

namespace zelq {
namespace {

/// Digits and nothing else but what `end` points to afterwards. False when there are none.
bool takeNumber(std::string const& text, int base, std::uint64_t* number, char const** end) {
    char* behind = nullptr;
    errno = 0;
    *number = std::strtoull(text.c_str(), &behind, base);
    *end = behind;
    auto const first = static_cast<unsigned char>(text[0]);
    return behind != text.c_str() && errno == 0 && (base == 16 ? std::isxdigit(first) : std::isdigit(first)) != 0;
}

bool parseNumber(std::string const& text, int base, std::uint64_t most, std::uint64_t* number) {
    char const* end = nullptr;
    return takeNumber(text, base, number, &end) && *end == '\0' && *number <= most;
}

long long nowUs() {
    return clockNs(CLOCK_REALTIME) / 1000;
}

}  // namespace

std::size_t parseNewest(std::string const& text) {
    if (text == "all") {
        return std::numeric_limits<std::size_t>::max();
    }
    std::uint64_t count = 0;
    if (!parseNumber(text, 10, std::numeric_limits<std::size_t>::max(), &count)) {
        throw UsageError{"not a number of lines: '" + text + "'"};
    }
    return static_cast<std::size_t>(count);
}

long long parseTime(std::string const& text) {
    long long moment = 0;
    if (!parseGivenTime(text, nowUs(), &moment)) {
        throw UsageError{"not a time: '" + text + "' (such as \"2026-11-22 10:00\", \"10 min ago\", yesterday)"};
    }
    return moment;
}

std::string parseId(std::string text) {
    for (char& c : text) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) {
            throw UsageError{"not an id: '" + text + "' (hexadecimal digits, at least the first of them)"};
        }
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

long long parseDaysBeforeNow(std::string const& text) {
    constexpr std::uint64_t daysMax = 365 * 1000;
    constexpr long long dayUs = 86400LL * 1000000;
    std::uint64_t days = 0;
    if (!parseNumber(text, 10, daysMax, &days)) {
        throw UsageError{"not a number of days: '" + text + "'"};
    }
    return nowUs() - static_cast<long long>(days) * dayUs;
}

std::uint64_t parseBytes(std::string const& text) {
    std::uint64_t number = 0;
    char const* unit = nullptr;
    bool const isRead = takeNumber(text, 10, &number, &unit);
    std::string const units = "KMG";
    std::size_t const found = isRead && *unit != '\0' ? units.find(*unit) : std::string::npos;
    unsigned const shift = found == std::string::npos ? 0 : 10 * static_cast<unsigned>(found + 1);
    bool const isWhole = isRead && *(unit + (shift > 0 ? 1 : 0)) == '\0';
    if (!isWhole || number > std::numeric_limits<std::uint64_t>::max() >> shift) {
        throw UsageError{"not a number of bytes: '" + text + "' (such as 100000, 500K, 20M, 1G)"};
    }
    return number << shift;
}

std::uint64_t parseClass(std::string const& text) {
    std::uint64_t number = 0;
    if (!parseNumber(text, 16, 0xFF, &number)) {
        throw UsageError{"not a class: '" + text + "' (two hexadecimal digits, as the list shows it)"};
    }
    return number;
}

std::string parseSeverity(std::string const& text) {
    if (text != "error" && text != "info" && text != "informational") {
        throw UsageError{"not a severity: '" + text + "' (error or info)"};
    }
    return text == "error" ? "error" : "info";
}

TextPattern parsePattern(std::string const& text) {
    TextPattern pattern;
    if (std::string const reason = pattern.compile(text); !reason.empty()) {
        throw UsageError{"not a regular expression: '" + text + "': " + reason};
    }
    return pattern;
}

}  // namespace zelq
