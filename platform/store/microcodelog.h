#ifndef ZELQ_STORE_MICROCODELOG_H
#define ZELQ_STORE_MICROCODELOG_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/record.h"
#include "zelqplatform/errorlog_items.h"

namespace zelq {

/// What an item is in the record of a microcode log. Whatever does not look as such a log records
/// it is ordinary: it may be damaged, or a program's own data under the same number.
enum class ItemRole {
    ordinary,        ///< data of the program, and every item of a plain log
    text,            ///< the log's text, then the backtrace if it has one
    secondaryCodes,  ///< reference codes of the logs that were merged into this one
    trace,           ///< a snapshot of a trace: rows of text
    errorCode,       ///< error id and reason, which with class and type make up the reference code
    earlierCode,     ///< the same, from an earlier recording of this log
};

/// Error id and reason as they were when the log was recorded; none for a plain log.
std::optional<xlog_error_code> errorCode(Record const& record);

/// The reference code as people quote it, "A0420022 00000006": class, type, error id, error reason.
/// Class 10 reads A0, as in the list of secondary codes. Empty for a plain log.
std::string referenceCode(Record const& record);

/// One role for each item of the record, in their order.
std::vector<ItemRole> itemRoles(Record const& record);

/// Where the backtrace begins in the bytes of a text item; npos when there is none.
std::size_t backtraceStart(std::string_view text);

/// The lines of what a microcode log says, without the backtrace; none for a plain log.
std::vector<std::string_view> logText(Record const& record);

/// The lines of an item's text. The closing zero byte and the last line end are left out; the
/// item's size counts both.
std::vector<std::string_view> linesOf(std::string_view text);

/// The codes in the bytes of a secondaryCodes item, one a line.
std::string_view secondaryCodes(std::string_view text);

/// "system", "process" or "thread"; null when `id` is not that of a trace snapshot.
char const* traceName(std::uint64_t id);

}  // namespace zelq

#endif
