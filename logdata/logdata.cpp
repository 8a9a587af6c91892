#include "zelqcood/logdata.h"
#include "logdata/layout.h"

#include <cstring>

#include "block/blockreader.h"
#include "block/blockwriter.h"
#include "trace/scope.h"

namespace {

using namespace logDataLayout;

constexpr char _traceMask[] = "XLIBLGD";
constexpr EntryLine asBinaryLine(_traceMask, 'F', "asBinary");

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

}  // namespace

XLogData::XLogData() : data_(nullptr), size_(0), blockId_(0) {}

XLogData::XLogData(void* data, unsigned long size, unsigned short blockId)
    : data_(newCopy(data, size)), size_(size), blockId_(blockId) {}

XLogData::XLogData(const XLogData& other)
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

XLogData& XLogData::operator=(const XLogData& other) {
    if (this != &other) {
        setData(other.data_, other.size_);
        blockId_ = other.blockId_;
    }
    return *this;
}

bool XLogData::operator==(const XLogData& other) {
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
