// Merging one microcode log into another.

#include "mclog/addeditems.h"
#include "trace/message.h"
#include "zelqcood/mclog.h"
#include "zelqplatform/errorlog_items.h"

namespace {

constexpr char _traceMask[] = "XLIBMLG";
constexpr EntryLine secondaryRefcodesLine(_traceMask, 'D', "secondaryRefcodes");
constexpr EntryLine mergeLine(_traceMask, 'T', "operator+=");

}  // namespace

// What a merge may change, as it was before: put back when the merge runs out of memory.
class XMicrocodeLog::Rollback {
public:
    explicit Rollback(XMicrocodeLog& log)
        : log_(log),
          logClass_(log.logClass_),
          logType_(log.logType_),
          user_(log.user_),
          eventName_(log.eventName_),
          attributes_(log.attributes_),
          errorId_(log.errorId_),
          errorReason_(log.errorReason_),
          text_(log.text_),
          owned_(log.owned_),
          items_(*log.data_),
          refcodes_(log.secondaryRefcodes_->size()) {}

    ~Rollback() {
        if (isNeeded_) {
            putBack();
        }
    }
    Rollback(Rollback const&) = delete;
    Rollback& operator=(Rollback const&) = delete;

    void forget() {
        isNeeded_ = false;
        items_.keep();
    }

private:
    void putBack() {
        log_.logClass_ = logClass_;
        log_.logType_ = logType_;
        log_.user_ = user_;
        log_.eventName_ = static_cast<ZoString&&>(eventName_);
        log_.attributes_ = attributes_;
        log_.errorId_ = errorId_;
        log_.errorReason_ = errorReason_;
        log_.text_ = static_cast<ZoString&&>(text_);
        log_.owned_ = owned_;
        while (log_.secondaryRefcodes_->size() > refcodes_) {
            log_.secondaryRefcodes_->pop_back();
        }
    }

    XMicrocodeLog& log_;
    std::uint8_t logClass_;
    std::uint8_t logType_;
    std::uint16_t user_;
    ZoString eventName_;
    Attribute attributes_;
    std::uint16_t errorId_;
    std::int32_t errorReason_;
    ZoString text_;
    int owned_;
    AddedItems items_;
    std::size_t refcodes_;
    bool isNeeded_ = true;
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
    for (std::size_t left = other.data_->size(); left != 0; --left, ++item) {
        mergeItem(**item);
    }
    rollback.forget();
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
        for (XLogData const* own : *data_) {
            if (own->blockId() == trace.blockId) {
                return;
            }
        }
        setFlag(trace.omit, 0);
    }
    addData(item);
}
