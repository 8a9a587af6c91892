#include "block/blockreader.h"
#include "block/blockwriter.h"
#include "mclog/layout.h"
#include "trace/scope.h"
#include "zelqcood/mclog.h"

namespace {

using namespace secondaryRefcodeLayout;

constexpr char _traceMask[] = "XLIBMLG";
constexpr EntryLine asBinaryLine(_traceMask, 'F', "asBinary");

// The record's own type, which means something only inside a microcode log's block.
constexpr unsigned short refcodeType = microcodeLogLayout::secondaryRefcodeBlock;

}  // namespace

XMicrocodeLog::SecondaryRefcodeInfo::SecondaryRefcodeInfo(unsigned char logClass, unsigned char logType,
                                                          unsigned short errorId, int errorReason)
    : logClass_(logClass), logType_(logType), errorId_(errorId), errorReason_(errorReason) {}

XMicrocodeLog::SecondaryRefcodeInfo::SecondaryRefcodeInfo(SecondaryRefcodeInfo const& other) = default;

XMicrocodeLog::SecondaryRefcodeInfo::SecondaryRefcodeInfo(unsigned char* block) : SecondaryRefcodeInfo(0, 0, 0, 0) {
    BlockReader reader(block, _traceMask, 'F');
    if (!reader.accepts(refcodeType)) {
        return;
    }
    while (reader.next(children)) {
        logClass_ = reader.get(logClassField);
        logType_ = reader.get(logTypeField);
        errorId_ = reader.get(errorIdField);
        errorReason_ = reader.get(errorReasonField);
    }
}

XMicrocodeLog::SecondaryRefcodeInfo::~SecondaryRefcodeInfo() = default;

unsigned char XMicrocodeLog::SecondaryRefcodeInfo::logClass() const {
    return static_cast<unsigned char>(logClass_);
}

unsigned char XMicrocodeLog::SecondaryRefcodeInfo::logType() const {
    return static_cast<unsigned char>(logType_);
}

unsigned short XMicrocodeLog::SecondaryRefcodeInfo::errorId() const {
    return errorId_;
}

int XMicrocodeLog::SecondaryRefcodeInfo::errorReason() const {
    return errorReason_;
}

unsigned char* XMicrocodeLog::SecondaryRefcodeInfo::asBinary() const {
    TraceScope const scope(asBinaryLine);
    BlockWriter writer(refcodeType);
    writer.addFields(baseBlock, PackedFields<baseBlockSize>()
                                    .put(logClassField, logClass())
                                    .put(logTypeField, logType())
                                    .put(errorIdField, errorId())
                                    .put(errorReasonField, errorReason()));
    return writer.release();
}
