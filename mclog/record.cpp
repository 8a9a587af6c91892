// Recording a microcode log, and the trace snapshots that go with it.

#include "zelqcood/mclog.h"

#include <cstring>
#include <new>

#include "log/rollback.h"
#include "zelqplatform/errorlog_items.h"
#include "zelqplatform/trace_service.h"

namespace {

constexpr unsigned int lineWidth = 80;

// Puts a text item at the front of the list, which owns it from then on.
void insertText(std::list<XLogData*>& items, ZoString const& text) {
    std::unique_ptr<XLogData> item(
        new XMicrocodeLogData(static_cast<char*>(text), text.length(), XMicrocodeLogData::textFormat));
    items.push_front(item.get());
    static_cast<void>(item.release());
}

void removeFirst(std::list<XLogData*>& items) {
    delete items.front();
    items.pop_front();
}

// The service takes 8 bits of a block id, but the two formats need 9: they get numbers instead.
void numberFormats(std::list<XLogData*> const& items) {
    constexpr unsigned short firstNumber = 3;
    unsigned short number = firstNumber;
    unsigned short textNumber = XLOG_ITEM_FIRST_TEXT;
    for (XLogData* item : items) {
        if (item->size() == 0) {
            continue;
        }
        bool const isText = item->blockId() == XMicrocodeLogData::textFormat;
        if (isText && textNumber <= XLOG_ITEM_LAST_TEXT) {
            item->setBlockId(textNumber++);
        } else if (isText || item->blockId() == XMicrocodeLogData::binaryFormat) {
            item->setBlockId(number++);
        }
    }
}

// Of a buffer that may end in thousands of zero bytes.
std::size_t lengthWithoutZeros(char const* buffer, std::size_t length) {
    constexpr char zeros[64] = {};
    while (length >= sizeof zeros && std::memcmp(buffer + length - sizeof zeros, zeros, sizeof zeros) == 0) {
        length -= sizeof zeros;
    }
    while (length > 0 && buffer[length - 1] == '\0') {
        --length;
    }
    return length;
}

// One snapshot as an item, when the fetch succeeds: the text and one byte behind it, which is zero
// unless the text fills the buffer to its last line.
template <class Fetch>
void addSnapshot(XMicrocodeLog& log, unsigned int lines, xlog_item blockId, Fetch fetch) {
    unsigned int size = 0;  // as the service counts in all builds
    if (__builtin_mul_overflow(lines, lineWidth + 1, &size)) {
        throw std::bad_alloc();
    }
    std::unique_ptr<char[]> const buffer(new char[size]());
    int const result = fetch(buffer.get());
    std::size_t const length = lengthWithoutZeros(buffer.get(), std::size_t{lines} * lineWidth);
    if (result == 0) {
        log.addData(XLogData(buffer.get(), static_cast<unsigned long>(length + 1), blockId));
    }
}

}  // namespace

ZoString XMicrocodeLog::secondaryRefcodeText() const {
    ZoString text(xlog_secondary_heading);
    for (SecondaryRefcodeInfo const& refcode : *secondaryRefcodes_) {
        char code[xlog_reference_code_size];
        xlog_put_reference_code(code, refcode.logClass(), refcode.logType(),
                                {refcode.errorId(), refcode.errorReason()});
        text += "\n";
        text += ZoString(code, sizeof code);
    }
    return text;
}

XMicrocodeLog& XMicrocodeLog::log() {
    bool const hasRefcodes = !secondaryRefcodes_->empty();
    if (hasRefcodes) {
        insertText(items(), secondaryRefcodeText());
    }
    ZoString recorded = text();
    if (hasFlag(omitBacktrace) == 0) {
        recorded += "\n";
        recorded += backtrace();
    }
    insertText(items(), recorded);
    numberFormats(items());

    unsigned char code[xlog_error_code::bytes];
    xlog_error_code{errorId(), errorReason()}.store(code);
    addData(XLogData(code, sizeof code, XLOG_ITEM_ERROR_CODE));

    XLog::log();
    removeFirst(items());
    if (hasRefcodes) {
        removeFirst(items());
    }
    return *this;
}

XMicrocodeLog& XMicrocodeLog::addTraceBlocks(unsigned int systemLines, unsigned int processLines,
                                             unsigned int threadLines) {
    XLog::Rollback rollback(*this);
    if (isSystemTrace() != 0 && systemLines != 0) {
        addSnapshot(*this, systemLines, XLOG_ITEM_SYSTEM_TRACE, [systemLines](char* buffer) {
            int ignored[2];
            return xtr_fetch(buffer, systemLines, lineWidth, &ignored[0], &ignored[1]);
        });
    }
    if (isProcessTrace() != 0 && processLines != 0) {
        addSnapshot(*this, processLines, XLOG_ITEM_PROCESS_TRACE, [processLines](char* buffer) {
            int ignored;
            return xtr_fetch_pid(buffer, processLines * lineWidth, &ignored);
        });
    }
    if (isThreadTrace() != 0 && threadLines != 0) {
        addSnapshot(*this, threadLines, XLOG_ITEM_THREAD_TRACE, [threadLines](char* buffer) {
            int ignored;
            return xtr_fetch_tid(buffer, threadLines * lineWidth, &ignored);
        });
    }
    rollback.keep();
    return *this;
}
