// The block forms of microcode logs and of secondary reference codes.

#include "zelqcood/mclog.h"

#include "block/reader.h"
#include "block/writer.h"
#include "mclog/layout.h"
#include "trace/scope.h"
#include "zelqcood/block.h"
#include "zelqplatform/errorlog_items.h"

namespace {

constexpr char _traceMask[] = "XLIBMLG";
constexpr EntryLine rebuildLine(_traceMask, 'D', "XMicrocodeLog");
constexpr EntryLine asBinaryLine(_traceMask, 'F', "asBinary");
constexpr char _endTraceMask[] = "XLIBEML";
constexpr EntryLine endRebuildLine(_endTraceMask, 'D', "XEndMicrocodeLog");
constexpr EntryLine endAsBinaryLine(_endTraceMask, 'F', "asBinary");

// The record's own type, which means something only inside a microcode log's block.
constexpr unsigned short refcodeType = microcodeLogLayout::secondaryRefcodeBlock;

}  // namespace

XMicrocodeLog::SecondaryRefcodeInfo::SecondaryRefcodeInfo(unsigned char* block) : SecondaryRefcodeInfo(0, 0, 0, 0) {
    BlockReader reader(block, _traceMask, 'F');
    if (!reader.accepts(refcodeType)) {
        return;
    }
    using namespace secondaryRefcodeLayout;
    while (reader.next(children)) {
        logClass_ = reader.get(logClassField);
        logType_ = reader.get(logTypeField);
        errorId_ = reader.get(errorIdField);
        errorReason_ = reader.get(errorReasonField);
    }
}

unsigned char* XMicrocodeLog::SecondaryRefcodeInfo::asBinary() const {
    TraceScope const scope(asBinaryLine);
    using namespace secondaryRefcodeLayout;
    BlockWriter writer(refcodeType);
    writer.addFields(baseBlock, PackedFields<baseBlockSize>()
                                    .put(logClassField, logClass())
                                    .put(logTypeField, logType())
                                    .put(errorIdField, errorId())
                                    .put(errorReasonField, errorReason()));
    return writer.release();
}

// The plain log is read before the block around it is checked: a wrong header does not make it
// worthless. A null block has been reported by the base class.
[[gnu::noinline]] XMicrocodeLog::XMicrocodeLog(unsigned char* block)
    : XLog(findBlock(block, logClassCode)),
      microcode_{0, 0, nullptr, 0},
      secondaryRefcodes_(new std::list<SecondaryRefcodeInfo>) {
    TraceScope const scope(rebuildLine);
    BlockReader reader(block, _traceMask, 'F');
    if (block == nullptr || !reader.accepts(microcodeLogClass)) {
        return;
    }
    using namespace microcodeLogLayout;
    while (reader.next(children)) {
        switch (reader.type()) {
        case baseBlock:
            setErrorId(reader.get(errorIdField));
            setErrorReason(reader.get(errorReasonField));
            setOwned(reader.get(ownedField));
            break;
        case textBlock: microcode_.text = reader.text(); break;
        case backtraceBlock: backtrace_ = reader.text(); break;
        case secondaryRefcodeBlock: secondaryRefcodes_->push_back(SecondaryRefcodeInfo(reader.block())); break;
        }
    }
    captureBacktrace(xlog_deserialized_heading);
}

unsigned char* XMicrocodeLog::asBinary() const {
    TraceScope const scope(asBinaryLine);
    using namespace microcodeLogLayout;
    BlockWriter writer(microcodeLogClass);
    writer.addFields(baseBlock, PackedFields<baseBlockSize>()
                                    .put(errorIdField, errorId())
                                    .put(errorReasonField, errorReason())
                                    .put(ownedField, isOwned()));
    writer.addText(textBlock, text());
    writer.addText(backtraceBlock, backtrace());
    for (SecondaryRefcodeInfo const& refcode : *secondaryRefcodes_) {
        writer.addOwned(refcode.asBinary());
    }
    writer.addOwned(XLog::asBinary());
    return writer.release();
}

// As in the other readers, what is inside is read before the block around it is checked, and a
// null block has been reported by then.
XEndMicrocodeLog::XEndMicrocodeLog(unsigned char* block) : XMicrocodeLog(findBlock(block, microcodeLogClass)) {
    TraceScope const scope(endRebuildLine);
    if (block != nullptr) {
        BlockReader(block, _endTraceMask, 'F').accepts(endMicrocodeLogClass);
    }
}

unsigned char* XEndMicrocodeLog::asBinary() const {
    TraceScope const scope(endAsBinaryLine);
    BlockWriter writer(endMicrocodeLogClass);
    writer.addOwned(XMicrocodeLog::asBinary());
    return writer.release();
}
