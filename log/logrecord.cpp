// Handing a log to the error-log service.

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "trace/message.h"
#include "zelqcood/log.h"
#include "zelqplatform/errorlog_service.h"

namespace {

constexpr char _traceMask[] = "XLIBLOG";
constexpr EntryLine logLine(_traceMask, 'T', "log");

// Copies as much of the text as the field takes; the field is zero behind it already.
void putText(char* field, std::size_t most, char const* text, std::size_t length) {
    std::memcpy(field, text, std::min(length, most));
}

}  // namespace

XLog& XLog::log() {
    TraceScope const scope(logLine);
    int src = 0;
    int crc = 0;
    xlog_record_interface record = {};
    record.logClass = logClass_;
    record.logType = logType_;
    record.user = user_;
    putText(record.eventName, sizeof record.eventName, eventName_, eventName_.length());
    // The field always ends in at least two zero bytes.
    putText(record.logId, sizeof record.logId - 2, logId_, logId_.length());
    record.attributes = static_cast<std::uint16_t>(attributes_.asUnsignedLong());

    // The record goes out without its data rather than not at all.
    std::unique_ptr<xlog_detail_entry[]> entries;
    if (!data_->empty()) {
        entries.reset(new (std::nothrow) xlog_detail_entry[data_->size()]());
        if (!entries) {
            traceLine(_traceMask, 'F', "Error allocation error for detlog");
        }
    }
    if (entries) {
        xlog_detail_entry** link = &record.details;
        xlog_detail_entry* entry = entries.get();
        for (XLogData const* item : *data_) {
            if (item->size() == 0) {
                continue;
            }
            entry->size = static_cast<std::uint32_t>(item->size());
            entry->id = static_cast<std::uint8_t>(item->blockId());
            entry->data = item->data();
            *link = entry;
            link = &entry->next;
            ++entry;
        }
    }
    log(&record, &src, &crc);
    return *this;
}

XLog& XLog::log(xlog_record_interface* record, int* src, int* crc) {
    *src = xlog_record(record, crc);
    traceLine(_traceMask, 'F', "xlog_record: src=", *src, ", crc=0x", hexadecimal(static_cast<std::uint32_t>(*crc), 4));
    return *this;
}
