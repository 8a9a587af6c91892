#ifndef ZELQPLATFORM_TRACE_SERVICE_H
#define ZELQPLATFORM_TRACE_SERVICE_H

#include "zelqplatform/api.h"

/// \file
/// The trace service keeps the newest trace lines of all programs of one user in a ring in shared
/// memory. A line goes to the ring during the call; no pointer is kept. The functions allocate
/// nothing, take no lock, keep errno, never fail visibly and may be called from any thread. They
/// may be called from a signal handler once the process has written its first line (that first
/// call maps the ring). A line longer than 199 characters keeps its first 199.

extern "C" {

/// Appends one zero-terminated line to the default trace. Returns 0; a null line is ignored.
ZELQ_API int xtr_trace(char const* line);

/// Appends one zero-terminated line to the trace that `handle` selects, 0 being the default. All
/// traces share the ring; a line keeps its handle, and readers select by it.
ZELQ_API int xtr_trace_cb(unsigned int handle, char const* line);

/// Appends a dump of `length` bytes at `data`: a line with the label and the length, then lines of
/// 32 bytes with their offset in hexadecimal and as characters. A dump takes at most a quarter of
/// the ring; what is left out is counted in its last line. Null `data` gives the first line alone.
ZELQ_API int xtr_dump_bytes_cb(unsigned int handle, char const* label, void const* data, unsigned long length);

// Snapshots: the newest lines that the ring holds, oldest first, each in one row of at most the
// given width, its closing newline included. A row begins with the time of day (UTC, to the
// millisecond); what does not fit is cut off; bytes that are no printable text show as ".". Bytes
// behind the last row are not touched. Out-pointers may be null. The functions return 0, EINVAL
// when there is no buffer or no ring, or ENOMEM. They are not for signal handlers.

/// The newest lines of all processes, at most `lines` rows of at most `lineWidth` characters, with
/// process and thread id. `lines` times `lineWidth` bytes are enough. Stores the number of rows and
/// of bytes.
ZELQ_API int xtr_fetch(char* buffer, unsigned int lines, unsigned int lineWidth, int* rowCount, int* byteCount);

/// The newest lines of the calling process with their thread ids, one for each 80 bytes of `size`,
/// in rows of at most 80 characters. Stores the number of bytes.
ZELQ_API int xtr_fetch_pid(char* buffer, unsigned int size, int* byteCount);

/// The same of the calling thread alone.
ZELQ_API int xtr_fetch_tid(char* buffer, unsigned int size, int* byteCount);
}

#endif
