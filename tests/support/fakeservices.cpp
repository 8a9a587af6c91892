#include "support/fakeservices.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>

#include "support/failingnew.h"
#include "zelqplatform/memdebug_service.h"
#include "zelqplatform/pce_service.h"
#include "zelqplatform/trace_service.h"

namespace {

std::vector<TraceCall>& calls() {
    static auto* const all = new std::vector<TraceCall>;  // statics of other files trace on exit
    return *all;
}

int trapService(std::string const& call, std::string const& argument, int* crc) {
    NoFailingNew const allowed;
    fake.trapCalls += call + argument + " ";
    bool const fails = call == fake.trapFailure.call;
    *crc = fails ? fake.trapFailure.crc : 0;
    return fails ? fake.trapFailure.src : 0;
}

int fetch(char which, char* buffer, unsigned size) {
    return fake.fetch ? fake.fetch(which, buffer, size) : -1;
}

// The prefix of a line has 10 characters, the level is the one at 7.
bool isReport(std::string_view line) {
    std::string_view const text = line.substr(std::min<std::size_t>(10, line.size()));
    return line.size() > 7 && line[7] != 'D' && text.substr(0, 2) != "> " && text.substr(0, 2) != "< ";
}

void add(TraceCall::Function function, unsigned int handle, char const* line, void const* data = nullptr,
         unsigned long length = 0) {
    NoFailingNew const allowed;
    char const last = function == TraceCall::trace ? '\0' : line[function == TraceCall::traceCb ? 199 : 40];
    if (fake.keep == FakeServices::everything || (fake.keep == FakeServices::reports && isReport(line))) {
        calls().push_back({function, handle, line, data, length, last});
    }
}

std::string withoutAddresses(std::string line) {
    for (char const* key : {"pData=", "pBlockData=", "Returning ", "returns 0x", "this=0x"}) {
        std::size_t const found = line.find(key);
        if (found == std::string::npos) {
            continue;
        }
        std::size_t const first = found + std::string(key).size();
        std::size_t last = first;
        while (last < line.size() && std::isxdigit(static_cast<unsigned char>(line[last])) != 0) {
            ++last;
        }
        bool const isCut = key != std::string("this=0x") || last - first == 8;  // to the low 32 bits
        if (line.substr(first, last - first) != "0" && isCut) {
            line.replace(first, last - first, "@");
        }
    }
    return line;
}

}  // namespace

std::vector<TraceCall> const& traceCalls() {
    return calls();
}

void clearTrace() {
    NoFailingNew const allowed;
    calls().clear();
}

std::string tracedText() {
    std::string text;
    for (TraceCall const& call : calls()) {
        text += call.handle == 0 ? "" : "[" + std::to_string(call.handle) + "] ";
        text += withoutAddresses(call.line);
        text += call.function != TraceCall::dumpBytesCb
                    ? ""
                    : " " + std::string(static_cast<char const*>(call.data), call.length) + " .";
        text += "\n";
    }
    return text;
}

std::vector<std::string> reportedLines() {
    std::vector<std::string> lines;
    for (TraceCall const& call : calls()) {
        if (isReport(call.line)) {
            lines.push_back(call.line);
        }
    }
    return lines;
}

extern "C" {

int xpce_ckptr(void const* address, unsigned long length, int* code) {
    bool const isReadable = address != nullptr && address != fake.unreadable && length == 8;
    *code = isReadable ? 0 : 14;
    return *code;
}

int xpce_setup(unsigned short processType, void*, void*, int* crc) {
    return trapService("setup", "(" + std::to_string(processType) + ")", crc);
}

int xpce_unset(void*, int* crc) {
    return trapService("unset", "", crc);
}

int xpce_add_user_exit(xpce_user_exit, int* crc) {
    return trapService("add", "", crc);
}

int xpce_remove_user_exit(xpce_user_exit, int* crc) {
    return trapService("remove", "", crc);
}

char* zelqmemdebug_strdup(char const* text, char const*, int) {
    NoFailingNew const allowed;
    return strdup(text);
}

int xtr_trace(char const* line) {
    add(TraceCall::trace, 0, line);
    return 0;
}

int xtr_trace_cb(unsigned int handle, char const* line) {
    add(TraceCall::traceCb, handle, line);
    return 0;
}

int xtr_dump_bytes_cb(unsigned int handle, char const* label, void const* data, unsigned long length) {
    add(TraceCall::dumpBytesCb, handle, label, data, length);
    return 0;
}

int xlog_record(xlog_record_interface* record, int* crc) {
    *crc = 0;
    return fake.record ? fake.record(record, crc) : 0;
}

int xlog_get_backtrace(char** text, int frames, int*) {
    NoFailingNew const allowed;
    fake.backtraceRequests.push_back(frames);
    *text = fake.backtrace == nullptr ? nullptr : strdup(fake.backtrace);
    return 0;
}

int xtr_fetch(char* buffer, unsigned int lines, unsigned int lineWidth, int*, int*) {
    return fetch('s', buffer, lines * lineWidth);
}

int xtr_fetch_pid(char* buffer, unsigned int size, int*) {
    return fetch('p', buffer, size);
}

int xtr_fetch_tid(char* buffer, unsigned int size, int*) {
    return fetch('t', buffer, size);
}
}
