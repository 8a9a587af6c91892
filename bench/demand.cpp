#include "demand.h"

#include <sys/syscall.h>
#include <unistd.h>
#include <unwind.h>
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

_Unwind_Reason_Code countFrame(_Unwind_Context* context, void* target) {
    *static_cast<std::uintptr_t*>(target) += _Unwind_GetIP(context);
    return _URC_NO_REASON;
}

// What it takes to ask whether memory can be read: the cheapest call of the kernel that tells.
void checkPointer() {
    static std::uint64_t const readable = 0;
    syscall(SYS_rt_sigprocmask, -1, &readable, nullptr, sizeof readable);
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

Block::Block() : bytes_(nullptr), size_(8) {
    Scope const scope;
    line();
    bytes_ = static_cast<unsigned char*>(take(size_));
    line();
}

unsigned char* Block::append(std::size_t added) {
    auto* const larger = static_cast<unsigned char*>(take(size_ + added));
    copy(larger, bytes_, size_);
    give(bytes_);
    unsigned char* const end = larger + size_;
    bytes_ = larger;
    size_ += added;
    return end;
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

void Exception::takeMemory(Log const* log) {
    texts_ = take(sizeof(ZoString));
    locations_ = take(sizeof(ZoExceptionLocation));
    log_ = log == nullptr ? nullptr : new (take(sizeof(XEndMicrocodeLog))) Log(*log);
}

Exception::Exception(Text const& text, Text const& file, Text const& function, Log const& log)
    : text_(text), name_("XException"), file_(file), function_(function) {
    takeMemory(&log);
}

Exception::Exception(Exception const& other)
    : text_(other.text_), name_(other.name_), file_(other.file_), function_(other.function_) {
    {
        Scope const scope;
        takeMemory(other.log_);
    }
    Scope const scope;
}

Exception::Exception(Log::FromBlock from, Exception const& other) : text_("DummyText") {
    checkPointer();
    findBlock();
    {
        Scope const scope;
        line();
        checkPointer();
        Text const text(other.text_);
        name_.append(other.name_);
        give(takeCopy(other.file_.characters(), other.file_.length() + 1));
        give(takeCopy(other.function_.characters(), other.function_.length() + 1));
        Log const log(from, *other.log_);
        takeMemory(&log);
    }
    Scope const scope;
    checkPointer();
}

Exception::~Exception() {
    { Scope const scope; }
    Scope const scope;
    line();
    if (log_ != nullptr) {
        log_->~Log();
        give(log_);
    }
    give(texts_);
    give(locations_);
}

Block Exception::asBaseBlock() const {
    constexpr std::size_t fieldsSize = 36;
    Scope const scope;
    Block block;
    block.addLeaf("thirty-six bytes of fixed fields...", fieldsSize);
    block.addText(text_);
    {
        Block location;
        location.addText(file_);
        location.addText(function_);
        location.addLeaf("line", 4);
        block.addBlock(location);
    }
    block.addBlock(log_->asEndMicrocodeLogBlock());
    return block;
}

Block Exception::asBlock() const {
    Scope const scope;
    Block block;
    block.addBlock(asBaseBlock());
    return block;
}

Text Exception::asString() const {
    Text text(name_);
    text.append(text_);
    text.append(Text(log_->backtrace()));
    text.append(file_);
    return text;
}

void Exception::record() {
    Scope const scope;
    Text const saved(log_->text());
    Text const rendering = asString();
    Text const set(rendering);
    void* const item = take(sizeof(XMicrocodeLogData));
    void* const bytes = takeCopy(saved.characters(), saved.length());
    void* const node = take(3 * sizeof(void*));
    askForData();
    log_->record(set);
    give(node);
    give(bytes);
    give(item);
    Text const restored(saved);
}

// The service, the step that asks it, two constructors, and two frames of the benchmark's own.
__attribute__((noipa)) void takeBacktrace(Text const& text, int frames) {
    if (frames > 1) {
        takeBacktrace(text, frames - 1);
        asm volatile("");  // no jump: a frame
        return;
    }
    std::uintptr_t addresses = 0;
    _Unwind_Backtrace(countFrame, &addresses);
    asm volatile("" : : "r"(addresses));
    give(takeCopy(text.characters(), text.length() + 1));
}

}  // namespace demand
