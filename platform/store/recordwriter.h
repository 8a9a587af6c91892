#ifndef ZELQ_STORE_RECORDWRITER_H
#define ZELQ_STORE_RECORDWRITER_H

#include <string>

#include "store/record.h"
#include "zelqplatform/errorlog_service.h"

namespace zelq {

/// What a caller of the service says of a record. Who records it, when and under which id is still to be
/// filled in. Items are text when their bytes, less one optional zero byte at the end, are non-empty
/// printable UTF-8 (tab, line feed and carriage return included). Texts and bytes stay the caller's.
/// Throws std::bad_alloc.
RecordView viewOf(xlog_record_interface const& record);

/// Appends the line with its '\n' to `line`. The result is valid JSON and valid UTF-8 whatever the
/// bytes of the record are, and no byte of its items is lost. Throws std::bad_alloc; the caller's string
/// then holds a part of the line.
void renderRecord(RecordView const& record, std::string& line);

}  // namespace zelq

#endif
