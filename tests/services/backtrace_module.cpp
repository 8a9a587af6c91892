// Built twice, with names of the same length, so that the second module fits where the first one was.

/// Calls back from two functions, of which the loader knows only one.
using Callback = void (*)(void*);

__attribute__((noipa)) static void HIDDEN_FUNCTION(Callback callback, void* argument) {
    callback(argument);
    asm volatile("");  // so that the call stays one, and does not become a jump
}

extern "C" __attribute__((visibility("default"), noipa)) void MODULE_FUNCTION(Callback callback, void* argument) {
    HIDDEN_FUNCTION(callback, argument);
    asm volatile("");
}
