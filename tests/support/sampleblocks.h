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

inline constexpr char const* classNames[] = {
    "XLogData",         "XMicrocodeLogData", "XLog",       "SecondaryRefcodeInfo", "XMicrocodeLog",
    "XEndMicrocodeLog", "XBaseException",    "XException", "XTrapException",
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

/// Gives the exception everything that one can have.
template <class Exception>
Exception& enriched(Exception&& thrown, XMicrocodeLog& log) {
    thrown.setErrorId(0x12345678);
    thrown.addLocation(ZoExceptionLocation("file.cpp", nullptr, 42));
    thrown.addLocation(ZoExceptionLocation("other file", "function", 43));
    thrown.setLogInfo(&log);
    return thrown;
}

/// A block of the kind that holds every child its class knows, lists with several members, and another value
/// in every field. tests/expected/blocks.txt has its bytes.
inline Bytes richBlock(Kind kind) {
    std::string bytes = std::string("\0\1bytes of an item ", 19) + std::string(60, '\xFF');
    std::string text = "text of an item";
    std::string rows;
    for (int row = 1; row < 12; ++row) {
        rows += "row " + std::to_string(row) + "\n";
    }
    XLogData const item(bytes.data(), bytes.size(), 0x1234);
    XMicrocodeLogData const textItem(text.data(), text.size(), XMicrocodeLogData::textFormat);
    fake.backtrace = "#0  main\n#1  start";
    XEndMicrocodeLog rich(0x22, 0x3344, 0x5566, -2, "EVENT", "two\nlines \x1b[31m",
                          XMicrocodeLog::omitAllTraces | XMicrocodeLog::rebootSystem, 3, "log id");
    fake.backtrace = nullptr;
    rich.addData(item).addData(textItem).addData(XLogData(rows.data(), rows.size() + 1, 237));
    rich.secondaryRefcodes()->emplace_back(0x77, 0x88, 0x99AA, 0x0BCCDDEE);
    rich.secondaryRefcodes()->emplace_back(10, 6, 7, -8);
    char error[] = "error text";
    auto const bytesOf = [](unsigned char* block) { return toBytes(Block(block)); };
    switch (kind) {
    case logData: return bytesOf(item.asBinary());
    case microcodeLogData: return bytesOf(textItem.asBinary());
    case log: return bytesOf(rich.XLog::asBinary());
    case refcode: return bytesOf(rich.secondaryRefcodes()->front().asBinary());
    case microcodeLog: return bytesOf(rich.XMicrocodeLog::asBinary());
    case endMicrocodeLog: return bytesOf(rich.asBinary());
    case baseException: return bytesOf(enriched(XBaseException(error, ZoException::recoverable, 5), rich).asBinary());
    case exception: return bytesOf(enriched(XException(error, ZoException::recoverable, 5), rich).asBinary());
    default: return bytesOf(enriched(XTrapException(error, 5), rich).asBinary());
    }
}

/// Rebuilds an object of the kind from bytes that may be anything, and gives its block. Stores in `wrong`
/// what should not have happened, if anything did. The first writing may leave out what was no part of an
/// object, but what it writes is whole: it rebuilds without complaint, and is written the same again.
inline Bytes roundTrip(Kind kind, Bytes const& bytes, std::string& wrong) {
    GuardedBlock const block(bytes);
    fake.keep = FakeServices::reports;
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
    fake.backtrace = nullptr;  // each reading process adds its own
    clearTrace();
    Bytes const twice = toBytes(rewritten(kind, written.get()));
    if (!reportedLines().empty()) {
        wrong = reportedLines()[0] + " about what was written: " + toHex(once.data(), once.size());
    }
    if (once != twice) {
        wrong = "written another time it is\n" + toHex(twice.data(), twice.size()) + " and not\n" +
                toHex(once.data(), once.size());
    }
    fake.keep = FakeServices::everything;
    return once;
}

#endif
