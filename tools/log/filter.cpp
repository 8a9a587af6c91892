#include "tools/log/filter.h"

#include <fnmatch.h>
#include <regex.h>
#include <algorithm>
#include <cctype>

#include "store/microcodelog.h"
#include "store/severity.h"
#include "tools/terminal/output.h"

namespace zelq {
namespace {

bool matchesAny(std::vector<std::string> const& patterns, std::string const& text) {
    return patterns.empty() || std::any_of(patterns.begin(), patterns.end(), [&text](std::string const& pattern) {
               return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
           });
}

// What a log says, and not the traces in it: those hold lines of other programs, and of nearly
// every function of this one.
bool says(Record const& record, TextPattern const& pattern) {
    if (pattern.isFoundIn(record.event) || pattern.isFoundIn(record.logId) ||
        pattern.isFoundIn(referenceCode(record))) {
        return true;
    }
    std::vector<ItemRole> const roles = itemRoles(record);
    for (std::size_t i = 0; i < roles.size(); ++i) {
        bool const isText = record.items[i].isText || roles[i] == ItemRole::text;
        if (isText && roles[i] != ItemRole::trace && pattern.isFoundIn(record.items[i].bytes)) {
            return true;
        }
    }
    return false;
}

}  // namespace

TextPattern::TextPattern(std::string const& expression) {
    bool const hasCapital =
        std::any_of(expression.begin(), expression.end(), [](unsigned char c) { return std::isupper(c) != 0; });
    int const flags = REG_EXTENDED | REG_NEWLINE | (hasCapital ? 0 : REG_ICASE);
    auto compiled = std::make_unique<regex_t>();
    if (int const failure = regcomp(compiled.get(), expression.c_str(), flags); failure != 0) {
        char reason[128];
        regerror(failure, compiled.get(), reason, sizeof reason);
        throw Failure{exitUsage, "not a regular expression: '" + expression + "': " + reason};
    }
    compiled_ = {compiled.release(), [](regex_t* pattern) {
                     regfree(pattern);
                     delete pattern;
                 }};
}

// Bounds are given instead of a closing zero byte, since the text may hold some.
bool TextPattern::isFoundIn(std::string_view text) const {
    regmatch_t bounds = {0, static_cast<regoff_t>(text.size())};
    char const* const characters = text.data() == nullptr ? "" : text.data();
    return regexec(compiled_.get(), characters, 1, &bounds, REG_STARTEND) == 0;
}

bool LogFilter::matches(Record const& record) const {
    auto const isAmong = [](auto const& list, auto const& value) {
        return list.empty() || std::find(list.begin(), list.end(), value) != list.end();
    };
    return isAmong(severities, shownSeverity(record)) && isAmong(classes, record.logClass) &&
           (!sinceUs.has_value() || record.timeUs >= *sinceUs) && (!untilUs.has_value() || record.timeUs <= *untilUs) &&
           matchesAny(events, record.event) && matchesAny(programs, record.program) &&
           (!text.has_value() || says(record, *text));
}

bool LogFilter::isEmpty() const {
    return severities.empty() && classes.empty() && events.empty() && programs.empty() && !sinceUs.has_value() &&
           !untilUs.has_value() && !text.has_value();
}

char const* shownSeverity(Record const& record) {
    return severityStoredAs(record.severity).shown;
}

}  // namespace zelq
