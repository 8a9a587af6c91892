#include "block/blockreader.h"
#include "block/blockwriter.h"
#include "trace/scope.h"
#include "zelqcood/block.h"
#include "zelqcood/logdata.h"

namespace {

constexpr char _traceMask[] = "XLIBMLD";
constexpr EntryLine asBinaryLine(_traceMask, 'F', "asBinary");

// The zero byte behind a text is part of the item, but an item without characters has none.
unsigned long storedSize(unsigned long size, XMicrocodeLogData::Format format) {
    return format == XMicrocodeLogData::textFormat && size != 0 ? size + 1 : size;
}

}  // namespace

XMicrocodeLogData::XMicrocodeLogData(void* data, unsigned long size, Format format)
    : XLogData(data, storedSize(size, format), static_cast<unsigned short>(format)) {}

XMicrocodeLogData::XMicrocodeLogData(void* data, unsigned long size, unsigned short blockId)
    : XLogData(data, size, blockId) {}

XMicrocodeLogData::XMicrocodeLogData(const XMicrocodeLogData& other) = default;

// The item inside is read before the block around it is checked: a wrong header does not make the
// data worthless. A null block has been reported by the base class.
XMicrocodeLogData::XMicrocodeLogData(unsigned char* block) : XLogData(findBlock(block, logDataClass)) {
    if (block != nullptr) {
        BlockReader(block, _traceMask, 'T').accepts(microcodeLogDataClass, "32774");
    }
}

XMicrocodeLogData::~XMicrocodeLogData() = default;

XMicrocodeLogData::Format XMicrocodeLogData::format() const {
    return blockId() == textFormat ? textFormat : binaryFormat;
}

XMicrocodeLogData& XMicrocodeLogData::setFormat(Format format) {
    setBlockId(static_cast<unsigned short>(format));
    return *this;
}

XMicrocodeLogData* XMicrocodeLogData::clone() const {
    return new XMicrocodeLogData(*this);
}

unsigned char* XMicrocodeLogData::asBinary() const {
    TraceScope const scope(asBinaryLine);
    BlockWriter writer(microcodeLogDataClass);
    writer.addOwned(XLogData::asBinary());
    return writer.release();
}
