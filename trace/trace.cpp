#include "zelqcood/trace.h"

#include <cstring>

#include "trace/scope.h"
#include "zelqplatform/trace_service.h"

namespace {

// Positions within a line.
constexpr std::size_t componentWidth = 7;
constexpr std::size_t levelAt = 7;
constexpr std::size_t colonAt = 8;
constexpr std::size_t textAt = 10;
constexpr std::size_t nameAt = 12;

constexpr std::size_t labelSize = 41;

// Straight into the line, since a line is read by the trace service at once: bytes that go through
// another place first, or through calls, make it wait twice.
void putPrefix(char* line, char const* traceMask, char level) {
    std::size_t i = 0;
    for (; i < componentWidth && traceMask[i] != '\0'; ++i) {
        line[i] = traceMask[i];
    }
    for (; i < componentWidth; ++i) {
        line[i] = ' ';
    }
    line[levelAt] = level;
    line[colonAt] = ':';
    line[colonAt + 1] = ' ';
}

// Puts as much of the text at line[textAt] as fits into `size` bytes.
void putText(char* line, std::size_t size, char const* text) {
    std::size_t length = strnlen(text, size - 1 - textAt);
    // A compiler that knows the bound copies by string instructions, whose start takes longer than
    // the C library needs for the whole copy. So it is not to know.
    asm("" : "+r"(length));
    std::memcpy(line + textAt, text, length);
    line[textAt + length] = '\0';
}

// The line as the scope keeps it: the exit line differs in the marker only.
char* newEntryLine(char const* traceMask, char level, char const* name) {
    char* const line = new char[traceLineSize];
    putPrefix(line, traceMask, level);
    line[textAt] = '>';
    line[textAt + 1] = ' ';
    std::strncpy(line + nameAt, name, traceLineSize - 1 - nameAt);
    line[traceLineSize - 1] = '\0';
    return line;
}

}  // namespace

XTrace::XTrace(char const* traceMask, char level, char const* name)
    : handle_(0), line_(newEntryLine(traceMask, level, name)) {
    xtr_trace(line_);
}

XTrace::XTrace(unsigned int handle, char const* traceMask, char level, char const* name)
    : handle_(handle), line_(newEntryLine(traceMask, level, name)) {
    xtr_trace_cb(handle_, line_);
}

XTrace::~XTrace() {
    line_[textAt] = '<';
    xtr_trace_cb(handle_, line_);
    delete[] line_;
}

void XTrace::write(unsigned int handle, char const* traceMask, char level, char const* text) {
    alignas(16) char line[traceLineSize];
    putPrefix(line, traceMask, level);
    putText(line, traceLineSize, text);
    line[traceLineSize - 1] = '\0';
    xtr_trace_cb(handle, line);
}

void XTrace::write(char const* traceMask, char level, char const* text) {
    write(0, traceMask, level, text);
}

void XTrace::dumpBytes(unsigned int handle, char const* traceMask, char level, char const* title, void const* data,
                       unsigned long length) {
    char label[labelSize];
    putPrefix(label, traceMask, level);
    if (title != nullptr && title[0] != '\0') {
        putText(label, labelSize, title);
    } else {
        label[colonAt + 1] = '\0';
    }
    label[labelSize - 1] = '\0';
    xtr_dump_bytes_cb(handle, label, data, length);
}

void XTrace::dumpBytes(char const* traceMask, char level, char const* title, void const* data, unsigned long length) {
    dumpBytes(0, traceMask, level, title, data, length);
}

TraceScope::TraceScope(EntryLine const& entry) : line_(new char[traceLineSize]) {
    std::memcpy(line_, entry.text_, traceLineSize);
    xtr_trace(line_);
}

TraceScope::~TraceScope() {
    line_[textAt] = '<';
    xtr_trace_cb(0, line_);
    delete[] line_;
}
