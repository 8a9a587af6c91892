// blockexchange write FILE   writes one block of each kind of object, in a fixed order
// blockexchange check FILE   rebuilds the objects from such a file, whichever build wrote it: each
//                            has the fields it was written with, and serialises to the same bytes

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "support/hex.h"
#include "zelqcood/exception.h"
#include "zelqplatform/errorlog_service.h"

// What a log being built or rebuilt takes for its backtrace. A rebuilt log with none is as it was.
static char const* presentBacktrace = nullptr;

int xlog_get_backtrace(char** text, int, int* length) {
    *text = presentBacktrace != nullptr ? strdup(presentBacktrace) : nullptr;
    *length = presentBacktrace != nullptr ? static_cast<int>(std::strlen(presentBacktrace)) : 0;
    return presentBacktrace != nullptr ? 0 : ENOENT;
}

namespace {

struct PlainMicrocodeLog : XMicrocodeLog {
    using XMicrocodeLog::XMicrocodeLog;
    XMicrocodeLog* clone() override { return new PlainMicrocodeLog(*this); }
};
using Refcode = XMicrocodeLog::SecondaryRefcodeInfo;

// All that an object tells of itself, as one line.
template <class... Values>
std::string line(Values... values) {
    std::string text;
    ((text += std::to_string(values) + " "), ...);
    return text;
}

std::string fields(XLogData const& item) {
    std::string const bytes(static_cast<char const*>(item.data()), item.size());
    bool const isMicrocode = dynamic_cast<XMicrocodeLogData const*>(&item) != nullptr;
    return line(isMicrocode, item.blockId(), item.size()) + bytes;
}

std::string fields(Refcode const& code) {
    return line(code.logClass(), code.logType(), code.errorId(), code.errorReason());
}

std::string fields(XLog const& log) {
    std::string text = line(log.logClass(), log.logType(), log.user(), log.isError(), log.isStandardBlock(),
                            log.isModifyBlock(), log.isComponentLogOnly(), log.isComponentLogBoth());
    text += std::string(log.eventName()) + "|" + log.logId() + "|";
    for (XLogData const* item : *log.data()) {
        text += fields(*item) + "|";
    }
    return text;
}

std::string fields(XMicrocodeLog const& log) {
    std::string text = fields(static_cast<XLog const&>(log)) +
                       line(log.errorId(), log.errorReason(), log.isOwned(), log.isThreadTrace(), log.isProcessTrace(),
                            log.isSystemTrace(), log.isBacktrace(), log.isRebootSystem());
    text += std::string(static_cast<char const*>(log.text())) + "|" + static_cast<char const*>(log.backtrace()) + "|";
    for (Refcode const& code : *log.secondaryRefcodes()) {
        text += fields(code) + "|";
    }
    return text;
}

// Without the error code group, which is an address.
std::string fields(XBaseException const& exception) {
    std::string text = line(exception.errorId(), exception.isRecoverable(), exception.isLogged());
    text += std::string(exception.name()) + "|" + (exception.text() == nullptr ? "(none)" : exception.text()) + "|";
    for (unsigned long i = 0; i < exception.locationCount(); ++i) {
        ZoExceptionLocation const& location = *exception.locationAtIndex(i);
        text += std::string(location.fileName()) + "|" +
                (location.functionName() == nullptr ? "(none)" : location.functionName()) + "|" +
                line(location.lineNumber());
    }
    return exception.logInfo() == nullptr ? text : text + fields(*exception.logInfo());
}

std::string bytes(std::size_t size) {
    std::string result(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        result[i] = static_cast<char>(i * 31 + i / 256);
    }
    return result;
}

template <class Item, class Kind>
Item item(std::string content, Kind kind) {
    return Item(content.data(), content.size(), kind);
}

void fill(XLog& log) {
    log.addData(item<XLogData>(bytes(300), static_cast<unsigned short>(0xFFFF)));
    log.addData(item<XMicrocodeLogData>("some text", XMicrocodeLogData::textFormat));
    log.addData(item<XMicrocodeLogData>(bytes(70000), XMicrocodeLogData::binaryFormat));
    log.addData(item<XLogData>("", static_cast<unsigned short>(1)));
}

void fill(XMicrocodeLog& log) {
    fill(static_cast<XLog&>(log));
    log.secondaryRefcodes()->emplace_back(1, 2, 3, -4);
    log.secondaryRefcodes()->emplace_back(0xFF, 0xFE, 0xFFFD, INT_MAX);
}

// Shows the visitor every object of the exchange.
template <class Visitor>
void visitAll(Visitor& visit) {
    auto const omitAll = XMicrocodeLog::omitAllTraces | XLog::error | XMicrocodeLog::rebootSystem;
    visit(XLogData());
    visit(item<XLogData>("A", static_cast<unsigned short>(0x1234)));
    visit(item<XLogData>(bytes(100001), static_cast<unsigned short>(0xFEDC)));
    visit(item<XMicrocodeLogData>("text of an item", XMicrocodeLogData::textFormat));
    visit(item<XMicrocodeLogData>(bytes(257), XMicrocodeLogData::binaryFormat));
    visit(Refcode(10, 0xDE, 0xABCD, INT_MIN));

    visit(XLog());
    XLog log(0xFF, 0x80, 0xFEDC, "EVENT", XLog::error | XLog::logModifyBlock | XLog::componentLogBoth, "log \xC3\xA4");
    visit(log);
    fill(log);
    visit(log);

    visit(PlainMicrocodeLog());
    presentBacktrace = "0 main\n1 start";
    PlainMicrocodeLog microcodeLog(1, 2, 3, 0xFFFE, -2, "EVENT", "two\nlines", XLog::informational, -1, "");
    XEndMicrocodeLog endLog(0xDF, 0x3000, 0x30, INT_MIN, "EV", "T", omitAll | XMicrocodeLog::omitBacktrace, 1, "ID");
    presentBacktrace = nullptr;
    visit(microcodeLog);
    fill(microcodeLog);
    visit(microcodeLog);
    visit(XEndMicrocodeLog());
    fill(endLog);
    visit(endLog);

    visit(XTrapException(static_cast<char*>(nullptr), -1));
    XException exception("open failed", ZoException::recoverable, 0);
    exception.setErrorId(0xFEDCBA98);
    for (unsigned long lineNumber = 1; lineNumber <= 7; ++lineNumber) {
        exception.addLocation(ZoExceptionLocation("file.cpp", lineNumber % 2 == 0 ? nullptr : "function", lineNumber));
    }
    visit(exception);
    visit(XBaseException("closed", ZoException::unrecoverable, 7));
    exception.setLogInfo(&endLog);
    visit(exception);
}

struct Writer {
    std::ofstream file;

    template <class Object>
    void operator()(Object const& object) {
        Block const block(object.asBinary());
        file.write(reinterpret_cast<char const*>(block.get()), static_cast<std::streamsize>(sizeOf(block.get())));
    }
};

struct Checker {
    Bytes file;
    std::size_t position = 0;
    int number = 0;
    int failures = 0;

    template <class Object>
    void operator()(Object const& expected) {
        ++number;
        std::size_t const left = file.size() - position;
        std::size_t const size = left < 8 ? 0 : sizeOf(&file[position]);
        if (size < 8 || size > left) {
            fail("is cut off");
            return;
        }
        Bytes read(file.begin() + static_cast<long>(position), file.begin() + static_cast<long>(position + size));
        position += size;
        Object const rebuilt(read.data());
        if (fields(rebuilt) != fields(expected)) {
            fail("has other fields");
        }
        if (toBytes(Block(rebuilt.asBinary())) != read) {
            fail("is written with other bytes");
        }
    }

    void fail(char const* problem) {
        std::fprintf(stderr, "blockexchange: block %d %s\n", number, problem);
        ++failures;
    }
};

bool writeBlocks(char const* path) {
    Writer writer{std::ofstream(path, std::ios::binary)};
    visitAll(writer);
    return writer.file.flush().good();
}

bool checkBlocks(char const* path) {
    std::ifstream file(path, std::ios::binary);
    Checker checker;
    checker.file.assign(std::istreambuf_iterator<char>(file), {});
    visitAll(checker);
    if (checker.position != checker.file.size()) {
        checker.fail("is not the last");
    }
    return checker.failures == 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "write") == 0) {
        return writeBlocks(argv[2]) ? 0 : 1;
    }
    if (argc == 3 && std::strcmp(argv[1], "check") == 0) {
        return checkBlocks(argv[2]) ? 0 : 1;
    }
    std::fputs("usage: blockexchange write|check FILE\n", stderr);
    return 2;
}
