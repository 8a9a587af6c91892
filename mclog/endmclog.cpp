#include "block/blockreader.h"
#include "block/blockwriter.h"
#include "trace/scope.h"
#include "zelqcood/block.h"
#include "zelqcood/mclog.h"

namespace {

constexpr char _traceMask[] = "XLIBEML";
constexpr EntryLine rebuildLine(_traceMask, 'D', "XEndMicrocodeLog");
constexpr EntryLine asBinaryLine(_traceMask, 'F', "asBinary");

constexpr unsigned char endLogClass = 10;
constexpr unsigned int snapshotLines = 250;

}  // namespace

XEndMicrocodeLog::XEndMicrocodeLog()
    : XMicrocodeLog(endLogClass, 0, 0, 0, 0, nullptr, nullptr, XLog::error | XLog::logStandardBlock, 1, nullptr) {}

XEndMicrocodeLog::XEndMicrocodeLog(unsigned char logType, unsigned short user, unsigned short errorId, int errorReason,
                                   char const* eventName, char const* text, XMicrocodeLog::Attribute attributes,
                                   int owned, char const* logId)
    : XMicrocodeLog(endLogClass, logType, user, errorId, errorReason, eventName, text, attributes, owned, logId) {
    XMicrocodeLog::addTraceBlocks(snapshotLines, snapshotLines, snapshotLines);
}

XEndMicrocodeLog::XEndMicrocodeLog(XEndMicrocodeLog const& other) = default;

// As in the other readers, what is inside is read before the block around it is checked, and a
// null block has been reported by then.
XEndMicrocodeLog::XEndMicrocodeLog(unsigned char* block) : XMicrocodeLog(findBlock(block, microcodeLogClass)) {
    TraceScope const scope(rebuildLine);
    if (block != nullptr) {
        BlockReader(block, _traceMask, 'F').accepts(endMicrocodeLogClass);
    }
}

XEndMicrocodeLog::~XEndMicrocodeLog() = default;

unsigned char* XEndMicrocodeLog::asBinary() const {
    TraceScope const scope(asBinaryLine);
    BlockWriter writer(endMicrocodeLogClass);
    writer.addOwned(XMicrocodeLog::asBinary());
    return writer.release();
}

XEndMicrocodeLog* XEndMicrocodeLog::clone() {
    return new XEndMicrocodeLog(*this);
}

int XEndMicrocodeLog::subclassLevel() const {
    return 1;
}
