// Merging one microcode log into another.

#include "zelqcood/mclog.h"

#include "log/rollback.h"
#include "trace/message.h"
#include "zelqplatform/errorlog_items.h"

namespace {

constexpr char _traceMask[] = "XLIBMLG";
constexpr EntryLine secondaryRefcodesLine(_traceMask, 'D', "secondaryRefcodes");
constexpr EntryLine mergeLine(_traceMask, 'T', "operator+=");

}  // namespace

// The same for what this class adds to a log.
class XMicrocodeLog::Rollback {
public:
    explicit Rollback(XMicrocodeLog& log)
        : plain_(log), log_(log), fields_(log.microcode_), refcodes_(log.secondaryRefcodes_->size()) {}
    ~Rollback() {
        if (!isKept_) {
            putBack();
        }
    }
    Rollback(Rollback const&) = delete;
    Rollback& operator=(Rollback const&) = delete;

    void keep() {
        plain_.keep();
        isKept_ = true;
    }

private:
    [[gnu::cold]] void putBack() {
        log_.microcode_ = static_cast<MicrocodeFields&&>(fields_);
        while (log_.secondaryRefcodes_->size() > refcodes_) {
            log_.secondaryRefcodes_->pop_back();
        }
    }

    XLog::Rollback plain_;
    XMicrocodeLog& log_;
    MicrocodeFields fields_;
    std::size_t refcodes_;
    bool isKept_ = false;
};

std::list<XMicrocodeLog::SecondaryRefcodeInfo>* XMicrocodeLog::secondaryRefcodes() const {
    TraceScope const scope(secondaryRefcodesLine);
    traceLine(_traceMask, 'D', "returns 0x", hexadecimal(addressOf(secondaryRefcodes_.get()), 8));
    return secondaryRefcodes_.get();
}

bool XMicrocodeLog::hasReferenceCode() const {
    return errorId() != 0 || errorReason() != 0;
}

XMicrocodeLog::SecondaryRefcodeInfo XMicrocodeLog::referenceCode() const {
    return SecondaryRefcodeInfo(logClass(), logType(), errorId(), errorReason());
}

XMicrocodeLog& XMicrocodeLog::operator+=(XMicrocodeLog const& other) {
    TraceScope const scope(mergeLine);
    Rollback rollback(*this);
    if (isOwned() == 0) {
        takeOverReferenceCode(other);
    }
    ZoString otherText = other.text();
    if (otherText.length() != 0) {
        setText(otherText + "\n\nSecondary text:\n" + text());
    } else if (other.hasReferenceCode()) {
        secondaryRefcodes_->push_back(other.referenceCode());
    }
    // Counted beforehand: in a log that is merged into itself the end would move away.
    auto item = other.data()->begin();
    for (std::size_t left = other.items().size(); left != 0; --left, ++item) {
        mergeItem(**item);
    }
    rollback.keep();
    return *this;
}

void XMicrocodeLog::takeOverReferenceCode(XMicrocodeLog const& other) {
    if (hasReferenceCode()) {
        secondaryRefcodes_->push_back(referenceCode());
    }
    if (other.hasReferenceCode()) {
        setLogClass(other.logClass());
        setLogType(other.logType());
        setUser(other.user());
        setErrorId(other.errorId());
        setErrorReason(other.errorReason());
    }
    setEventName(other.eventName());
    setSeverity(other.isError());
    enableStandardBlock(other.isStandardBlock());
    enableModifyBlock(other.isModifyBlock());
    setOwned(other.isOwned());
}

// Of each kind of trace a log holds one snapshot: its own, or the first that comes in.
void XMicrocodeLog::mergeItem(XLogData const& item) {
    struct {
        xlog_item blockId;
        Attribute const& omit;
    } const traces[] = {
        {XLOG_ITEM_THREAD_TRACE, omitThreadTrace},
        {XLOG_ITEM_PROCESS_TRACE, omitProcessTrace},
        {XLOG_ITEM_SYSTEM_TRACE, omitSystemTrace},
    };
    for (auto const& trace : traces) {
        if (item.blockId() != trace.blockId) {
            continue;
        }
        for (XLogData const* own : items()) {
            if (own->blockId() == trace.blockId) {
                return;
            }
        }
        setFlag(trace.omit, 0);
    }
    addData(item);
}
