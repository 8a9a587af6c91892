#include <unwind.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>

#include "common/systemcalls.h"
#include "services/frameline.h"
#include "services/linecache.h"
#include "zelqplatform/errorlog_service.h"

namespace zelq {
namespace {

constexpr std::size_t frameLimit = 256;

// A usual line; a text grows when its lines are longer.
constexpr std::size_t lineEstimate = 112;

struct Stack {
    std::uintptr_t callersAddress;  ///< the first frame that counts
    std::size_t leftOut;
    bool hasBegun = false;
    bool isCut = false;
    std::size_t count = 0;
    Frame frames[frameLimit];
};

_Unwind_Reason_Code addFrame(_Unwind_Context* context, void* target) noexcept {
    auto& stack = *static_cast<Stack*>(target);
    int interrupted = 0;
    std::uintptr_t const address = _Unwind_GetIPInfo(context, &interrupted);
    // The function's own frame is recognised, not counted: a compiler may split one function into
    // several frames.
    stack.hasBegun = stack.hasBegun || address == stack.callersAddress;
    if (!stack.hasBegun || address == 0) {  // 0 stands behind a thread's outermost frame
        return _URC_NO_REASON;
    }
    if (stack.leftOut != 0) {
        --stack.leftOut;
        return _URC_NO_REASON;
    }
    if (stack.count == frameLimit) {
        stack.isCut = true;
        return _URC_NORMAL_STOP;
    }
    if (interrupted != 0 && stack.count != 0) {
        // The frame before it is no call either, but the kernel's way back from the signal handler.
        stack.frames[stack.count - 1].interrupted = true;
    }
    stack.frames[stack.count++] = {address, interrupted != 0};
    return _URC_NO_REASON;
}

void render(Stack const& stack, MallocText& text) {
    std::optional<ModuleChanges> const changes = lineCache.moduleChanges();
    FrameDescriber describer;
    for (std::size_t i = 0; i < stack.count; ++i) {
        if (changes.has_value()) {
            i = lineCache.appendKnown(*changes, stack.frames, i, stack.count, text);
            if (i == stack.count) {
                break;
            }
        }
        std::string line = describer.describe(stack.frames[i]);
        appendNumbered(text, i, line);
        if (changes.has_value()) {
            lineCache.remember(*changes, stack.frames[i], std::move(line));
        }
    }
    if (stack.isCut) {
        appendNumbered(text, stack.count, "and more: only the innermost frames are described");
    }
}

int describeStack(Stack const& stack, char** text, int* length) noexcept {
    if (stack.count == 0) {
        return ENODATA;
    }
    try {
        MallocText rendered(stack.count * lineEstimate);
        render(stack, rendered);
        if (length != nullptr) {
            *length = static_cast<int>(rendered.size());
        }
        *text = rendered.release();
        return 0;
    } catch (std::exception const&) {
        return ENOMEM;
    }
}

}  // namespace
}  // namespace zelq

// The unwinder is asked itself, and not backtrace(), which does not tell where a signal interrupted
// the thread.
int xlog_get_backtrace(char** text, int frames, int* length) {
    zelq::ErrnoKeeper const keeper;
    zelq::NoCancellation const noCancellation;
    if (length != nullptr) {
        *length = 0;
    }
    if (text == nullptr) {
        return EINVAL;
    }
    *text = nullptr;
    zelq::Stack stack;
    stack.callersAddress = reinterpret_cast<std::uintptr_t>(__builtin_return_address(0));
    stack.leftOut = frames > 0 ? static_cast<std::size_t>(frames) : 0;
    _Unwind_Backtrace(zelq::addFrame, &stack);
    return zelq::describeStack(stack, text, length);
}
