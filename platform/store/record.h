#ifndef ZELQ_STORE_RECORD_H
#define ZELQ_STORE_RECORD_H

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// A record on disk: one line of JSON. What is to become a field needs a member and a row here, and a
// value from the service. Field names and their meaning reach the disk: add fields, never change one.

namespace zelq {

/// The version of the lines that are written, and the highest of which every field means what the
/// reader takes it for. One that knows only an older version still finds the fields it knows.
constexpr std::uint64_t knownVersion = 1;

/// One item of a record, byte for byte as it was recorded.
template <class Text>
struct RecordItemOf {
    std::uint64_t id;  ///< as the recording program chose it
    bool isText;       ///< `bytes` is text, its closing zero byte (if it had one) included
    Text bytes;
};

template <class Text>
struct RecordOf {
    std::uint64_t version = 0;
    Text id;               ///< 16 lower-case hexadecimal digits, random
    long long timeUs = 0;  ///< since 1970
    Text host;
    Text program;
    std::uint64_t pid = 0;
    std::uint64_t tid = 0;
    std::uint64_t logClass = 0;
    std::uint64_t logType = 0;
    std::uint64_t user = 0;
    Text severity;                 ///< as stored, see severity.h
    std::vector<Text> flags;       ///< names of the other attribute bits that have one
    std::uint64_t attributes = 0;  ///< the whole word, so that bits without a name are kept
    Text event;                    ///< exact bytes, which need not be UTF-8
    Text logId;                    ///< likewise
    std::uint64_t lostBefore = 0;  ///< records of that process that could not be stored before this one
    std::vector<RecordItemOf<Text>> items;
};

/// A record read back from its line. A field that the line does not have is empty or 0.
using Record = RecordOf<std::string>;
using RecordItem = RecordItemOf<std::string>;

/// A record about to be written, whose texts and bytes are somebody else's.
using RecordView = RecordOf<std::string_view>;
using RecordItemView = RecordItemOf<std::string_view>;

/// Peculiarities of a field.
enum class FieldRule {
    none,
    exactBytes,  ///< a text; if it is not UTF-8, its bytes follow in base64, in a field with "_base64" behind its name
    unlessZero,  ///< missing when it is 0
};

template <class Text>
struct RecordField {
    using Of = RecordOf<Text>;
    using Member = std::variant<std::uint64_t Of::*,                     // a number
                                Text Of::*,                              // a string
                                long long Of::*,                         // a time, "2026-11-22T10:00:00.123456Z"
                                std::vector<Text> Of::*,                 // a list of strings
                                std::vector<RecordItemOf<Text>> Of::*>;  // a list of objects with the fields below

    std::string_view name;
    Member member;
    int column = 0;  ///< its place in a table of comma-separated values, counted from 1; 0 when it has none
    FieldRule rule = FieldRule::none;
};

/// The fields, in the order in which they are written.
template <class Text, class Of = RecordOf<Text>>
constexpr RecordField<Text> recordFields[] = {
    {"v", &Of::version},
    {"id", &Of::id, 1},
    {"time", &Of::timeUs, 2},
    {"host", &Of::host, 13},
    {"program", &Of::program, 10},
    {"pid", &Of::pid, 11},
    {"tid", &Of::tid, 12},
    {"class", &Of::logClass, 5},
    {"type", &Of::logType, 6},
    {"user", &Of::user, 7},
    {"severity", &Of::severity, 3},
    {"flags", &Of::flags},
    {"attributes", &Of::attributes, 14},
    {"event", &Of::event, 8, FieldRule::exactBytes},
    {"log_id", &Of::logId, 9, FieldRule::exactBytes},
    {"lost_before", &Of::lostBefore, 15, FieldRule::unlessZero},
    {"items", &Of::items},
};

constexpr std::string_view exactSuffix = "_base64";

/// The fields of an item. It has one of the last two; the size counts a closing zero byte, which a text
/// is stored without.
namespace itemFields {
constexpr std::string_view id = "id";
constexpr std::string_view size = "size";
constexpr std::string_view text = "text";
constexpr std::string_view base64 = "base64";
}  // namespace itemFields

}  // namespace zelq

#endif
