#ifndef ZELQ_STORE_RECORDREADER_H
#define ZELQ_STORE_RECORDREADER_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelq {

/// One item of a record, byte for byte as it was recorded.
struct RecordItem {
    std::uint64_t id;  ///< as the recording program chose it
    bool isText;       ///< `bytes` is text, its closing zero byte (if it had one) included
    std::string bytes;
};

/// A record read back from its line. A field that the line does not have is empty or 0.
struct Record {
    std::uint64_t version = 0;
    std::string id;
    long long timeUs = 0;  ///< since 1970
    std::string host;
    std::string program;
    std::uint64_t pid = 0;
    std::uint64_t tid = 0;
    std::uint64_t logClass = 0;
    std::uint64_t logType = 0;
    std::uint64_t user = 0;
    std::string severity;  ///< "error" or "informational"
    std::vector<std::string> flags;
    std::uint64_t attributes = 0;  ///< the whole word; `flags` names the bits that have one
    std::string event;             ///< exact bytes, which need not be UTF-8
    std::string logId;             ///< likewise
    std::uint64_t lostBefore = 0;  ///< records of that process that could not be stored before this one
    std::vector<RecordItem> items;
};

/// Why a line is no record.
struct RecordFault {
    std::string reason;
    bool isCutOff;  ///< it begins like a record and ends in the middle
};

/// The highest version of a line of which every field means what this reader takes it for.
constexpr std::uint64_t knownVersion = 1;

/// Reads one line of the store, its '\n' not included, into an empty record. Fields it does not
/// know are ignored: they may be added under any version. Of a higher version than the known one, it
/// reads what still looks as it should; id and time mean the same in all of them. Returns why the line is
/// no record; `record` then has what was read before that was found.
std::optional<RecordFault> parseRecord(std::string_view line, Record& record);

}  // namespace zelq

#endif
