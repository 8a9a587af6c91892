#ifndef ZELQ_STORE_RECORDREADER_H
#define ZELQ_STORE_RECORDREADER_H

#include <optional>
#include <string>
#include <string_view>

#include "store/record.h"

namespace zelq {

/// Why a line is no record.
struct RecordFault {
    std::string reason;
    bool isCutOff;  ///< it begins like a record and ends in the middle
};

/// Reads one line of the store, its '\n' not included, into an empty record. Fields it does not
/// know are ignored: they may be added under any version. Of a higher version than the known one, it
/// reads what still looks as it should; id and time mean the same in all of them. Returns why the line is
/// no record; `record` then has what was read before that was found.
std::optional<RecordFault> parseRecord(std::string_view line, Record& record);

}  // namespace zelq

#endif
