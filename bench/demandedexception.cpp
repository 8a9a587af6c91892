// What the definition of an exception's operations cannot do without.

#include "demand.h"

#include <sys/syscall.h>
#include <unistd.h>
#include <unwind.h>
#include <new>

namespace demand {
namespace {

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
