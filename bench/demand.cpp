#include "demand.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "tracing/ringlayout.h"
#include "zelqplatform/errorlog_service.h"

namespace demand {
namespace {

constexpr std::size_t lineSize = 200;
constexpr std::size_t snapshotLines = 250;
constexpr std::size_t rowWidth = 80;

void clear(void* memory, std::size_t size) {
    std::memset(memory, 0, size);
    asm volatile("" : : "r"(memory) : "memory");
    counts.bytes += size;
}

// The slots of the newest lines lie together; a row is made of each.
void takeSnapshot(char* rows) {
    static auto* const ring = static_cast<zelq::RingSlot*>(std::aligned_alloc(64, zelq::ringSizeDefault));
    for (std::size_t i = 0; i < snapshotLines; ++i) {
        zelq::RingSlot slot;
        copy(&slot, ring + i, sizeof slot);
        copy(rows + i * rowWidth, slot.text, rowWidth);
    }
}

}  // namespace

void line() {
    static char const text[lineSize] = "XLIBBLKD: pData=94527891012345, blockSize=64, blockType=1";
    static struct {
        struct timespec time;
        char text[lineSize];
    } slot;
    clock_gettime(CLOCK_REALTIME, &slot.time);
    std::memcpy(slot.text, text, lineSize);
    asm volatile("" : : "r"(&slot) : "memory");
    ++counts.lines;
}

void* take(std::size_t size) {
    ++counts.allocations;
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        std::abort();
    }
    return memory;
}

void* takeCopy(void const* bytes, std::size_t size) {
    void* const memory = take(size);
    copy(memory, bytes, size);
    return memory;
}

void give(void* memory) {
    std::free(memory);
}

void copy(void* to, void const* from, std::size_t size) {
    std::memcpy(to, from, size);
    asm volatile("" : : "r"(to) : "memory");
    counts.bytes += size;
}

Scope::Scope() : line_(take(lineSize)) {
    line();
}

Scope::~Scope() {
    line();
    give(line_);
}

Text::Text(char const* characters) {
    append(characters, std::strlen(characters));
}

void Text::append(Text const& other) {
    append(other.characters(), other.length_);
}

void Text::append(char const* characters, std::size_t length) {
    std::size_t const newLength = length_ + length;
    if (newLength < shortSize) {
        copy(short_ + length_, characters, length);
        short_[newLength] = '\0';
    } else {
        auto* const longer = static_cast<char*>(take(newLength + 1));
        copy(longer, this->characters(), length_);
        copy(longer + length_, characters, length);
        longer[newLength] = '\0';
        give(long_);
        long_ = longer;
    }
    length_ = newLength;
}

Block::Block(std::size_t room) : bytes_(nullptr), size_(8), room_(room) {
    Scope const scope;
    line();
    bytes_ = static_cast<unsigned char*>(take(room_));
    line();
}

unsigned char* Block::append(std::size_t added) {
    if (size_ + added > room_) {
        room_ = std::max(size_ + added, room_ + room_ / 2);
        auto* const larger = static_cast<unsigned char*>(take(room_));
        copy(larger, bytes_, size_);
        give(bytes_);
        bytes_ = larger;
    }
    size_ += added;
    return bytes_ + size_ - added;
}

void Block::addLeaf(void const* body, std::size_t size) {
    constexpr std::size_t headerSize = 8;
    Scope const scope;
    line();
    copy(append(size + headerSize) + headerSize, body, size);
    line();
}

void Block::addBlock(Block const& block) {
    Scope const scope;
    line();
    copy(append(block.size_), block.bytes_, block.size_);
    line();
}

Block dataItemAsBlock(void const* bytes, std::size_t size) {
    Scope const scope;
    Block block;
    block.addLeaf("id", 2);
    block.addLeaf(bytes, size);
    return block;
}

void findBlock() {
    Scope const scope;
    line();
    line();
}

Log::Log(Kind kind, Text const& eventName, Text const& logId, Text const& text, Text const& backtrace)
    : kind_(kind),
      list_(static_cast<Node*>(take(sizeof(Node)))),
      eventName_(eventName),
      logId_(logId),
      text_(text),
      backtrace_(backtrace) {
    *list_ = {list_, list_, nullptr};
    if (kind == microcode) {
        refcodes_ = take(sizeof(Node));
    }
}

Log::Log(Log const& other) : Log(other.kind_, other.eventName_, other.logId_, other.text_, other.backtrace_) {
    for (Node const* node = other.list_->next; node != other.list_; node = node->next) {
        link(newNode(node->item->bytes, node->item->size), list_);
        ++itemCount_;
    }
}

Log::Log(FromBlock, Log const& other) : Log(plain, Text(), Text(), Text(), Text()) {
    if (other.kind_ == plain) {
        readItems(other);
        return;
    }
    findBlock();
    findBlock();
    readItems(other);
    kind_ = microcode;
    refcodes_ = take(sizeof(Node));
    {
        Scope const scope;
        text_.append(other.text_);
        backtrace_.append(other.backtrace_);
    }
    Scope const scope;
}

void Log::readItems(Log const& other) {
    Scope const scope;
    eventName_.append(other.eventName_);
    logId_.append(other.logId_);
    for (Node const* node = other.list_->next; node != other.list_; node = node->next) {
        void* const temporary = takeCopy(node->item->bytes, node->item->size);
        addData(temporary, node->item->size);
        give(temporary);
    }
}

Log::~Log() {
    give(refcodes_);
    {
        Scope const scope;
        while (list_->next != list_) {
            unlink(list_->next);
        }
    }
    give(list_);
}

Log::Node* Log::newNode(void const* bytes, std::size_t size) {
    auto* const item = static_cast<Item*>(take(sizeof(Item)));
    item->bytes = takeCopy(bytes, size);
    item->size = size;
    auto* const node = static_cast<Node*>(take(sizeof(Node)));
    node->item = item;
    return node;
}

void Log::link(Node* node, Node* next) {
    node->next = next;
    node->previous = next->previous;
    next->previous->next = node;
    next->previous = node;
}

void Log::unlink(Node* node) {
    node->previous->next = node->next;
    node->next->previous = node->previous;
    give(node->item->bytes);
    give(node->item);
    give(node);
}

void Log::addData(void const* bytes, std::size_t size) {
    Scope const scope;
    link(newNode(bytes, size), list_);
    ++itemCount_;
}

void Log::addSnapshots() {
    constexpr std::size_t bufferSize = snapshotLines * (rowWidth + 1);
    constexpr std::size_t itemSize = snapshotLines * rowWidth + 1;
    for (int kinds = 3; kinds != 0; --kinds) {
        auto* const buffer = static_cast<char*>(take(bufferSize));
        clear(buffer, bufferSize);
        takeSnapshot(buffer);
        void* const temporary = takeCopy(buffer, itemSize);
        addData(temporary, itemSize);
        give(temporary);
        give(buffer);
    }
}

void Log::record(Text const& text) {
    Text recorded(text);
    recorded.append(Text(backtrace_));
    link(newNode(recorded.characters(), recorded.length() + 1), list_->next);
    char const code[] = "6bytes";
    void* const temporary = takeCopy(code, sizeof code - 1);
    addData(temporary, sizeof code - 1);
    give(temporary);
    {
        Scope const scope;
        xlog_record_interface record;
        clear(&record, sizeof record);
        copy(record.eventName, eventName_.characters(), eventName_.length());
        copy(record.logId, logId_.characters(), logId_.length());
        std::size_t const size = (itemCount_ + 1) * sizeof(xlog_detail_entry);
        void* const entries = take(size);
        clear(entries, size);
        line();
        give(entries);
    }
    unlink(list_->next);
    unlink(list_->previous);
    --itemCount_;
}

void askForData() {
    Scope const scope;
    line();
}

Block Log::asLogBlock() const {
    constexpr std::size_t fieldsSize = 16;
    Scope const scope;
    Block block;
    block.addLeaf("sixteen bytes..", fieldsSize);
    block.addText(eventName_);
    block.addText(logId_);
    askForData();  // the walk does so for its start and for each test of its end
    for (Node const* node = list_->next;; node = node->next) {
        askForData();
        if (node == list_) {
            return block;
        }
        block.addBlock(dataItemAsBlock(node->item->bytes, node->item->size));
    }
}

Block Log::asMicrocodeLogBlock() const {
    constexpr std::size_t fieldsSize = 10;
    Scope const scope;
    Block block;
    block.addLeaf("ten bytes.", fieldsSize);
    block.addText(Text(text_));
    block.addText(Text(backtrace_));
    block.addBlock(asLogBlock());
    return block;
}

Block Log::asEndMicrocodeLogBlock() const {
    Scope const scope;
    Block block;
    block.addBlock(asMicrocodeLogBlock());
    return block;
}

}  // namespace demand
