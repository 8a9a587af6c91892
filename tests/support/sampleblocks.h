#ifndef ZELQCOOD_TESTS_SAMPLEBLOCKS_H
#define ZELQCOOD_TESTS_SAMPLEBLOCKS_H

#include "support/fakeservices.h"
#include "support/guardedblock.h"
#include "zelqcood/exception.h"

// Every class that has a block form, one good block of each, and what holds for any block at all.

enum Kind {
    logData,
    microcodeLogData,
    log,
    refcode,
    microcodeLog,
    endMicrocodeLog,
    baseException,
    exception,
    trapException,
};
inline constexpr Kind allKinds[] = {
    logData, microcodeLogData, log, refcode, microcodeLog, endMicrocodeLog, baseException, exception, trapException,
};

struct PlainMicrocodeLog : XMicrocodeLog {
    using XMicrocodeLog::XMicrocodeLog;
    XMicrocodeLog* clone() override { return new PlainMicrocodeLog(*this); }
};

/// Rebuilds an object of the kind from the block and shows it to the visitor.
template <class Visitor>
void withRebuilt(Kind kind, unsigned char* block, Visitor visit) {
    switch (kind) {
    case logData: return visit(XLogData(block));
    case microcodeLogData: return visit(XMicrocodeLogData(block));
    case log: return visit(XLog(block));
    case refcode: return visit(XMicrocodeLog::SecondaryRefcodeInfo(block));
    case microcodeLog: return visit(PlainMicrocodeLog(block));
    case endMicrocodeLog: return visit(XEndMicrocodeLog(block));
    case baseException: return visit(XBaseException(block));
    case exception: return visit(XException(block));
    case trapException: return visit(XTrapException(block));
    }
}

/// Rebuilds an object of the kind, and gives its block.
inline Block rewritten(Kind kind, unsigned char* block) {
    Block result;
    withRebuilt(kind, block, [&](auto const& object) { result.reset(object.asBinary()); });
    return result;
}

/// A block of the kind that holds every child its class knows, lists with two members.
inline Bytes richBlock(Kind kind) {
    static char word[] = "hello";
    auto const bytesOf = [](auto const& object) { return toBytes(Block(object.asBinary())); };
    switch (kind) {
    case logData: return bytesOf(XLogData(word, 5, 0x1234));
    case microcodeLogData: return bytesOf(XMicrocodeLogData(word, 5, XMicrocodeLogData::textFormat));
    case refcode: return bytesOf(XMicrocodeLog::SecondaryRefcodeInfo(1, 2, 3, 4));
    default: break;
    }
    XEndMicrocodeLog rich(0x22, 0x0304, 5, 6, "event", "text", XMicrocodeLog::omitAllTraces, 1, "log id");
    rich.addData(XLogData(word, 5, 1)).addData(XMicrocodeLogData(word, 5, XMicrocodeLogData::textFormat));
    rich.secondaryRefcodes()->emplace_back(1, 2, 3, 4);
    rich.secondaryRefcodes()->emplace_back(10, 6, 7, -8);
    switch (kind) {
    case log: return toBytes(Block(rich.XLog::asBinary()));
    case microcodeLog: return toBytes(Block(rich.XMicrocodeLog::asBinary()));
    case endMicrocodeLog: return bytesOf(rich);
    default: break;
    }
    XTrapException thrown("error", 1);
    thrown.addLocation(ZoExceptionLocation("file", "function", 42));
    thrown.addLocation(ZoExceptionLocation("other file", nullptr, 43));
    thrown.setLogInfo(&rich);
    switch (kind) {
    case trapException: return bytesOf(thrown);
    case exception: return bytesOf(XException(static_cast<ZoException const&>(thrown)));
    default: return toBytes(Block(thrown.XBaseException::asBinary()));
    }
}

/// Rebuilds an object of the kind from bytes that may be anything, and gives its block. Stores in `wrong`
/// what should not have happened, if anything did. The first writing may leave out what was no part of an
/// object, but what it writes is whole: it rebuilds without complaint, and is written the same again.
inline Bytes roundTrip(Kind kind, Bytes const& bytes, std::string& wrong) {
    GuardedBlock const block(bytes);
    keepTrace(Keep::reports);
    clearTrace();
    Bytes const once = toBytes(rewritten(kind, block.get()));
    // A child has 8 bytes at least and is worth two lines at most, and so are the few outer headers.
    if (reportedLines().size() > 8 + bytes.size() / 4) {
        wrong = std::to_string(reportedLines().size()) + " lines about " + std::to_string(bytes.size()) + " bytes";
    }
    if (std::memcmp(block.get(), bytes.data(), bytes.size()) != 0) {
        wrong = "the block was written to";
    }
    GuardedBlock const written(once);
    setBacktrace(nullptr);  // each reading process adds its own
    clearTrace();
    Bytes const twice = toBytes(rewritten(kind, written.get()));
    if (!reportedLines().empty()) {
        wrong = reportedLines()[0] + " about what was written: " + toHex(once.data(), once.size());
    }
    if (once != twice) {
        wrong = "written another time it is\n" + toHex(twice.data(), twice.size()) + " and not\n" +
                toHex(once.data(), once.size());
    }
    keepTrace(Keep::everything);
    return once;
}

#endif
