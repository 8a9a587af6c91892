#ifndef ZELQ_TOOLS_LOG_RECORDPRINTER_H
#define ZELQ_TOOLS_LOG_RECORDPRINTER_H

#include "store/recordreader.h"
#include "tools/terminal/output.h"

namespace zelq {

/// Prints everything about one record: its fields, then its items. Of a microcode log first what
/// happened and where (text, backtrace, secondary codes), then the traces that led up to it, each
/// folded to its last lines unless `isFull`, then the program's own items.
void printRecord(Record const& record, bool isFull, Output& output);

}  // namespace zelq

#endif
