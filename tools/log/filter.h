#ifndef ZELQ_TOOLS_LOG_FILTER_H
#define ZELQ_TOOLS_LOG_FILTER_H

#include <regex.h>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "store/recordreader.h"

namespace zelq {

/// A pattern that was compiled once, for searching in many texts.
class TextPattern {
public:
    /// An extended regular expression. Without a capital letter in it, case does not count. Throws
    /// Failure when it is none.
    explicit TextPattern(std::string const& expression);

    bool isFoundIn(std::string_view text) const;

private:
    std::shared_ptr<regex_t> compiled_;
};

/// Which records a command is about. A record has to match everything that is set; of a list, one
/// entry.
struct LogFilter {
    std::vector<std::string> severities;  ///< as shownSeverity() names them
    std::vector<std::uint64_t> classes;
    std::vector<std::string> events;    ///< shell patterns
    std::vector<std::string> programs;  ///< likewise
    std::optional<long long> sinceUs;   ///< this moment and later ones; microseconds since 1970
    std::optional<long long> untilUs;   ///< this moment and earlier ones
    std::optional<TextPattern> text;    ///< in what textsOf() names

    bool matches(Record const& record) const;

    /// True when every record matches.
    bool isEmpty() const;
};

/// The word that the viewer shows for a record's severity.
char const* shownSeverity(Record const& record);

}  // namespace zelq

#endif
