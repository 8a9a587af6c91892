// Rendering an exception, writing it to the trace, and recording it.

#include "zelqcood/exception.h"

#include <cstring>
#include <optional>

#include "trace/message.h"
#include "zelqcood/trace.h"
#include "zelqplatform/memdebug_service.h"

namespace {

constexpr char _traceMask[] = "XLIBEXC";
constexpr EntryLine asLogLine(_traceMask, 'F', "asLog");

// The log of an exception that has none.
std::unique_ptr<XMicrocodeLog> newDefaultLog() {
    return std::make_unique<XEndMicrocodeLog>(0xDE, 0x3000, 0x30, 0, "LocalLib",
                                              "Exception logged without a log object",
                                              XLog::informational | XMicrocodeLog::omitBacktrace, 1, nullptr);
}

// The log's own text as an item at the front of its list, for the time of a recording. When the
// recording itself is left by an exception the item stays: the log may have put others before it.
class TextInFront {
public:
    TextInFront(XMicrocodeLog& log, ZoString const& text) : items_(*log.data()) {
        auto item = std::make_unique<XMicrocodeLogData>(nullptr, 0, XMicrocodeLogData::textFormat);
        item->setData(static_cast<char*>(text), text.length());
        items_.push_front(item.get());
        static_cast<void>(item.release());
    }
    ~TextInFront() {
        if (!isRecording_) {
            delete items_.front();
            items_.pop_front();
        }
    }
    TextInFront(TextInFront const&) = delete;
    TextInFront& operator=(TextInFront const&) = delete;

    void setRecording(bool isRecording) { isRecording_ = isRecording; }

private:
    std::list<XLogData*>& items_;
    bool isRecording_ = false;
};

}  // namespace

ZoString XBaseException::asString() const {
    ZoString result = message(name(), ": ", text(0));
    if (logInfo_) {
        ZoString const backtrace = logInfo_->backtrace();
        if (backtrace.length() != 0) {
            result += "\n";
            result += backtrace;
        }
    }
    if (locationCount() != 0) {
        result += "\n\nException Location Information\n";
    }
    for (unsigned long i = 0; i < locationCount(); ++i) {
        ZoExceptionLocation const& location = *locationAtIndex(i);
        ZoString line(location.lineNumber());
        result += message("  at Line: ", line.rightJustify(5, ' '), " in File: ", location.fileName(), "\n");
    }
    return result;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): programs are compiled for a copy
XBaseException const& XBaseException::asTrace(ZoString component, char level) const {
    constexpr int duplicateLine = 563;
    std::unique_ptr<char, Free> const copy(zelqmemdebug_strdup(asString(), "xexcbase.cpp", duplicateLine));
    for (char* piece = copy.get(); piece != nullptr;) {
        char* const end = std::strchr(piece, '\n');
        if (end != nullptr) {
            *end = '\0';
        }
        if (*piece != '\0') {
            XTrace::write(component, level, piece);
        }
        piece = end == nullptr ? nullptr : end + 1;
    }
    return *this;
}

XBaseException& XBaseException::asLog() {
    TraceScope const scope(asLogLine);
    if (isLogged() != 0) {
        return *this;
    }
    if (!logInfo_) {
        logInfo_ = newDefaultLog();
    }
    XMicrocodeLog& log = *logInfo_;
    ZoString const savedText = log.text();
    {
        std::optional<TextInFront> front;
        if (savedText.length() != 0) {
            front.emplace(log, savedText);
        }
        log.setText(asString());
        if (front) {
            front->setRecording(true);
        }
        log.log();
        if (front) {
            front->setRecording(false);
        }
    }
    log.setText(savedText);
    setLogged(1);
    return *this;
}
