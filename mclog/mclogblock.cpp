// The block form of the microcode log.

#include "block/blockreader.h"
#include "block/blockwriter.h"
#include "mclog/layout.h"
#include "trace/scope.h"
#include "zelqcood/block.h"
#include "zelqcood/mclog.h"

namespace {

using namespace microcodeLogLayout;

constexpr char _traceMask[] = "XLIBMLG";
constexpr EntryLine rebuildLine(_traceMask, 'D', "XMicrocodeLog");
constexpr EntryLine asBinaryLine(_traceMask, 'F', "asBinary");

}  // namespace

// The plain log is read before the block around it is checked: a wrong header does not make it
// worthless. A null block has been reported by the base class.
XMicrocodeLog::XMicrocodeLog(unsigned char* block)
    : XLog(findBlock(block, logClassCode)),
      errorId_(0),
      errorReason_(0),
      owned_(0),
      secondaryRefcodes_(new std::list<SecondaryRefcodeInfo>) {
    TraceScope const scope(rebuildLine);
    BlockReader reader(block, _traceMask, 'F');
    if (block == nullptr || !reader.accepts(microcodeLogClass)) {
        return;
    }
    while (reader.next(children)) {
        switch (reader.type()) {
        case baseBlock:
            setErrorId(reader.get(errorIdField));
            setErrorReason(reader.get(errorReasonField));
            setOwned(reader.get(ownedField));
            break;
        case textBlock: text_ = reader.text(); break;
        case backtraceBlock: backtrace_ = reader.text(); break;
        case secondaryRefcodeBlock: secondaryRefcodes_->push_back(SecondaryRefcodeInfo(reader.block())); break;
        }
    }
    ZoString const here = captureBacktrace();
    if (here.length() != 0) {
        backtrace_ += "\nDeserialized\n";
        backtrace_ += here;
    }
}

unsigned char* XMicrocodeLog::asBinary() const {
    TraceScope const scope(asBinaryLine);
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
