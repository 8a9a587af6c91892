#ifndef ZELQCOOD_TRACE_SCOPE_H
#define ZELQCOOD_TRACE_SCOPE_H

#include <cstddef>
#include <initializer_list>
#include <new>
#include <optional>

// The library's own trace scopes. XTrace is for programs, whose names are known at run time only.

/// A component name: what each trace line begins with.
using TraceMask = char const[8];

constexpr std::size_t traceLineSize = 200;  // closing zero byte included

/// The first line of a scope of the library, made when the library is built.
class EntryLine {
public:
    template <std::size_t Size>
    constexpr EntryLine(TraceMask& mask, char level, char const (&name)[Size]) : text_() {
        constexpr std::size_t nameAt = sizeof mask + 4;
        static_assert(nameAt + Size <= traceLineSize);
        std::size_t at = 0;
        for (; mask[at] != '\0'; ++at) {
            text_[at] = mask[at];
        }
        for (char const character : {level, ':', ' ', '>', ' '}) {
            text_[at++] = character;
        }
        for (char const character : name) {
            text_[at++] = character;
        }
    }

private:
    friend class TraceScope;

    alignas(16) char text_[traceLineSize];
};

/// A trace scope as XTrace is one, with the same lines. They are copied and changed in whole chunks, as
/// the trace service reads them: it does not have to wait until the pieces of a line are joined.
///
/// Throws std::bad_alloc, before anything is written, when there is no memory for the line.
class TraceScope {
public:
    explicit TraceScope(EntryLine const& entry);
    ~TraceScope();
    TraceScope(TraceScope const&) = delete;
    TraceScope& operator=(TraceScope const&) = delete;

private:
    char* line_;
};

/// The trace scope of a destructor: without memory for its line there is no scope, since nothing may
/// leave a destructor.
class DestructorScope {
public:
    explicit DestructorScope(EntryLine const& entry) noexcept {
        try {
            scope_.emplace(entry);
        } catch (std::bad_alloc const&) {
        }
    }

private:
    std::optional<TraceScope> scope_;
};

#endif
