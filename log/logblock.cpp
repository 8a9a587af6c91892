// The block form of the log record.

#include "block/blockreader.h"
#include "block/blockwriter.h"
#include "log/layout.h"
#include "trace/scope.h"
#include "zelqcood/log.h"

namespace {

using namespace logLayout;

constexpr char _traceMask[] = "XLIBLOG";
constexpr EntryLine rebuildLine(_traceMask, 'D', "XLog");
constexpr EntryLine asBinaryLine(_traceMask, 'F', "asBinary");

}  // namespace

XLog::XLog(unsigned char* block) : XLog() {
    TraceScope const scope(rebuildLine);
    BlockReader reader(block, _traceMask, 'F');
    if (!reader.accepts(logClassCode)) {
        return;
    }
    while (reader.next(children)) {
        switch (reader.type()) {
        case baseBlock:
            logClass_ = reader.get(logClassField);
            logType_ = reader.get(logTypeField);
            user_ = reader.get(userField);
            attributes_ = Attribute(reader.get(attributesField), 0);
            reserved1_ = reader.get(reserved1Field);
            reserved2_ = reader.get(reserved2Field);
            break;
        case eventNameBlock: eventName_ = reader.text(); break;
        case logIdBlock: logId_ = reader.text(); break;
        case logDataClass: addData(XLogData(reader.block())); break;
        case microcodeLogDataClass: addData(XMicrocodeLogData(reader.block())); break;
        }
    }
}

unsigned char* XLog::asBinary() const {
    TraceScope const scope(asBinaryLine);
    BlockWriter writer(logClassCode);
    writer.addFields(baseBlock, PackedFields<baseBlockSize>()
                                    .put(logClassField, logClass())
                                    .put(logTypeField, logType())
                                    .put(userField, user())
                                    .put(attributesField, static_cast<std::uint32_t>(attributes_.asUnsignedLong()))
                                    .put(reserved1Field, reserved1_)
                                    .put(reserved2Field, reserved2_));
    writer.addText(eventNameBlock, eventName());
    writer.addText(logIdBlock, logId());
    // Each test of the end goes through data(): its trace lines are part of what readers of a
    // trace expect here.
    for (auto item = data()->begin(); item != data()->end(); ++item) {
        writer.addOwned((*item)->asBinary());
    }
    return writer.release();
}
