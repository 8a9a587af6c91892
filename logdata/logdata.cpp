#include "zelqcood/logdata.h"

#include <cstring>
#include <limits>
#include <new>

#include "block/reader.h"
#include "block/writer.h"
#include "logdata/layout.h"
#include "trace/scope.h"
#include "zelqcood/block.h"

namespace {

using namespace logDataLayout;

constexpr char _traceMask[] = "XLIBLGD";
constexpr EntryLine asBinaryLine(_traceMask, 'F', "asBinary");
constexpr char _microcodeTraceMask[] = "XLIBMLD";
constexpr EntryLine microcodeAsBinaryLine(_microcodeTraceMask, 'F', "asBinary");

// A copy of the bytes; of 0 bytes too, so that an item that was given data has a data pointer.
// Bytes that are not there count as zero, as in a block.
unsigned char* newCopy(void const* data, unsigned long size) {
    auto* const copy = new unsigned char[size];
    if (data == nullptr) {
        std::memset(copy, 0, size);
    } else {
        std::memcpy(copy, data, size);
    }
    return copy;
}

// The zero byte behind a text is part of the item, but an item without characters has none.
unsigned long storedSize(unsigned long size, XMicrocodeLogData::Format format) {
    if (format != XMicrocodeLogData::textFormat || size == 0) {
        return size;
    }
    if (size == std::numeric_limits<unsigned long>::max()) {
        throw std::bad_alloc();
    }
    return size + 1;
}

}  // namespace

XLogData::XLogData() : data_(nullptr), size_(0), blockId_(0) {}

XLogData::XLogData(void* data, unsigned long size, unsigned short blockId)
    : data_(newCopy(data, size)), size_(size), blockId_(blockId) {}

XLogData::XLogData(XLogData const& other)
    : ZoVBase(other), data_(newCopy(other.data_, other.size_)), size_(other.size_), blockId_(other.blockId_) {}

// Delegating, so that the destructor runs when the walk runs out of memory.
XLogData::XLogData(unsigned char* block) : XLogData() {
    BlockReader reader(block, _traceMask, 'F');
    if (!reader.accepts(logDataClass)) {
        return;
    }
    while (reader.next(children)) {
        switch (reader.type()) {
        case baseBlock: blockId_ = reader.get(blockIdField); break;
        case dataBlock: XLogData::setData(reader.body(), reader.bodySize()); break;
        }
    }
}

XLogData::~XLogData() {
    delete[] data_;
}

XLogData& XLogData::operator=(XLogData const& other) {
    if (this != &other) {
        setData(other.data_, other.size_);
        blockId_ = other.blockId_;
    }
    return *this;
}

bool XLogData::operator==(XLogData const& other) {
    return data_ == other.data_ && size_ == other.size_ && blockId_ == other.blockId_;
}

void* XLogData::data() const {
    return data_;
}

unsigned long XLogData::size() const {
    return size_;
}

unsigned short XLogData::blockId() const {
    return blockId_;
}

XLogData& XLogData::setBlockId(unsigned short blockId) {
    blockId_ = blockId;
    return *this;
}

XLogData& XLogData::setData(void* data, unsigned long size) {
    unsigned char* const copy = newCopy(data, size);
    delete[] data_;
    data_ = copy;
    size_ = size;
    return *this;
}

XLogData* XLogData::clone() const {
    return new XLogData(*this);
}

unsigned char* XLogData::asBinary() const {
    TraceScope const scope(asBinaryLine);
    BlockWriter writer(logDataClass);
    writer.addFields(baseBlock, PackedFields<baseBlockSize>().put(blockIdField, blockId_));
    writer.addLeaf(dataBlock, data_, size_);
    return writer.release();
}

XMicrocodeLogData::XMicrocodeLogData(void* data, unsigned long size, Format format)
    : XLogData(data, storedSize(size, format), static_cast<unsigned short>(format)) {}

XMicrocodeLogData::XMicrocodeLogData(void* data, unsigned long size, unsigned short blockId)
    : XLogData(data, size, blockId) {}

XMicrocodeLogData::XMicrocodeLogData(XMicrocodeLogData const& other) = default;

// The item inside is read before the block around it is checked: a wrong header does not make the
// data worthless. A null block has been reported by the base class.
XMicrocodeLogData::XMicrocodeLogData(unsigned char* block) : XLogData(findBlock(block, logDataClass)) {
    if (block != nullptr) {
        BlockReader(block, _microcodeTraceMask, 'T').accepts(microcodeLogDataClass, "32774");
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
    TraceScope const scope(microcodeAsBinaryLine);
    BlockWriter writer(microcodeLogDataClass);
    writer.addOwned(XLogData::asBinary());
    return writer.release();
}
