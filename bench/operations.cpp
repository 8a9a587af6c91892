#include "operations.h"

#include <array>
#include <cstring>
#include <memory>

#include "demand.h"
#include "switchedservices.h"
#include "zelqcood/block.h"
#include "zelqcood/exception.h"
#include "zelqcood/trace.h"

namespace {

using Bytes = std::unique_ptr<unsigned char[]>;
using demand::Block;
using demand::Exception;
using demand::Log;

constexpr std::size_t itemSize = 64;
constexpr std::size_t snapshotSize = 20000;
std::array<char, snapshotSize> payload = {};

char const eventName[] = "BENCH";
char const logId[] = "a log of the benchmark";
char const logText[] = "a text of usual length, with a file name and an error";
char const errorText[] = "open failed";
char const fileName[] = "file.cpp";
char const functionName[] = "function";

template <class Object>
std::shared_ptr<unsigned char> blockOf(Object const& object) {
    return {object.asBinary(), std::default_delete<unsigned char[]>()};
}

void addTraceOperations(std::vector<Operation>& operations) {
    operations.push_back({"trace scope", [] { XTrace const scope("XLIBBLK", 'F', "addHeaderBlock"); },
                          [] { demand::Scope const scope; }});
    operations.push_back({"trace line", [] { XTrace::write("XLIBBLK", 'D', "Adding block 17 of 42, 512 bytes"); },
                          [] { demand::line(); }});
}

void addBlockOperations(std::vector<Operation>& operations) {
    operations.push_back({"createBlock, addHeaderBlock 64 bytes",
                          [] {
                              unsigned char* block = createBlock(1, 1);
                              Bytes const larger(addHeaderBlock(&block, itemSize, 1, 1,
                                                                reinterpret_cast<unsigned char*>(payload.data())));
                          },
                          [] { Block(8).addLeaf(payload.data(), itemSize); }});
    auto const item = std::make_shared<XLogData>(payload.data(), itemSize, 7);
    operations.push_back({"XLogData 64 bytes: asBinary", [item] { Bytes const block(item->asBinary()); },
                          [] { demand::dataItemAsBlock(payload.data(), itemSize); }});
    operations.push_back({"XLogData 64 bytes: rebuild",
                          [block = blockOf(*item)] { XLogData const rebuilt(block.get()); },
                          [] { demand::give(demand::takeCopy(payload.data(), itemSize)); }});
}

void addLogOperations(std::vector<Operation>& operations) {
    for (int const items : {1, 10, 100, 1000, 50000}) {
        auto const log = std::make_shared<XLog>(0x11, 0x22, 0x0304, eventName, XLog::error, logId);
        auto const demanded = std::make_shared<Log>(Log::plain, demand::Text(eventName), demand::Text(logId),
                                                    demand::Text(), demand::Text());
        for (int i = 0; i < items; ++i) {
            log->addData(XLogData(payload.data(), itemSize, static_cast<unsigned short>(i)));
            demanded->addData(payload.data(), itemSize);
        }
        std::string const name = "XLog with " + std::to_string(items) + (items == 1 ? " item: " : " items: ");
        operations.push_back(
            {name + "asBinary", [log] { Bytes const block(log->asBinary()); }, [demanded] { demanded->asLogBlock(); }});
        operations.push_back({name + "rebuild", [block = blockOf(*log)] { XLog const rebuilt(block.get()); },
                              [demanded] { Log const rebuilt(Log::FromBlock{}, *demanded); }});
    }
}

XEndMicrocodeLog newLog(XMicrocodeLog::Attribute attributes) {
    return XEndMicrocodeLog(0xDE, 0x3000, 0x30, 0x12345678, eventName, logText, attributes, 1, logId);
}

/// A log with the backtrace of where it is built.
std::shared_ptr<XEndMicrocodeLog> newLogWithBacktrace() {
    isBacktraceTaken = true;
    auto const log = std::make_shared<XEndMicrocodeLog>(newLog(XLog::error | XMicrocodeLog::omitAllTraces));
    isBacktraceTaken = false;
    return log;
}

Log newDemandedLog(XMicrocodeLog const& like) {
    return Log(Log::microcode, demand::Text(eventName), demand::Text(logId), demand::Text(logText),
               demand::Text(like.backtrace()));
}

/// The reference code, which each recording adds. The log's list is asked for once.
void removeLast(XMicrocodeLog const& log) {
    std::list<XLogData*>& items = *log.data();
    delete items.back();
    items.pop_back();
}

void addBuilding(std::vector<Operation>& operations) {
    operations.push_back({"XEndMicrocodeLog: built",
                          [] { XEndMicrocodeLog const log = newLog(XLog::error | XMicrocodeLog::omitAllTraces); },
                          [] {
                              Log const log(Log::microcode, demand::Text(eventName), demand::Text(logId),
                                            demand::Text(logText), demand::Text());
                          }});
    auto const like = newLogWithBacktrace();
    operations.push_back({"XEndMicrocodeLog: built, backtrace",
                          [] {
                              isBacktraceTaken = true;
                              XEndMicrocodeLog const log = newLog(XLog::error | XMicrocodeLog::omitAllTraces);
                              isBacktraceTaken = false;
                          },
                          [backtrace = std::make_shared<demand::Text>(like->backtrace()), like] {
                              demand::takeBacktrace(*backtrace);
                              Log const log = newDemandedLog(*like);
                          }});
    operations.push_back({"XEndMicrocodeLog: built, 3 snapshots",
                          [] { XEndMicrocodeLog const log = newLog(XLog::error); },
                          [] {
                              Log log(Log::microcode, demand::Text(eventName), demand::Text(logId),
                                      demand::Text(logText), demand::Text());
                              log.addSnapshots();
                          }});
}

void addBlockForms(std::vector<Operation>& operations, std::string const& name, bool hasSnapshots) {
    auto const log = newLogWithBacktrace();
    auto const demanded = std::make_shared<Log>(newDemandedLog(*log));
    for (unsigned short blockId = 239; hasSnapshots && blockId >= 237; --blockId) {
        log->addData(XLogData(payload.data(), payload.size(), blockId));
        demanded->addData(payload.data(), payload.size());
    }
    operations.push_back({name + "recorded",
                          [log] {
                              log->log();
                              removeLast(*log);
                          },
                          [demanded] {
                              demanded->record();
                              demand::askForData();
                          }});
    operations.push_back({name + "asBinary", [log] { Bytes const block(log->asBinary()); },
                          [demanded] { demanded->asEndMicrocodeLogBlock(); }});
    operations.push_back({name + "rebuild", [block = blockOf(*log)] { XEndMicrocodeLog const rebuilt(block.get()); },
                          [demanded] { Log const rebuilt(Log::FromBlock{}, *demanded); }});
}

void addExceptionOperations(std::vector<Operation>& operations) {
    auto const log = newLogWithBacktrace();
    auto const exception = std::make_shared<XException>(errorText, ZoException::recoverable, 0);
    exception->addLocation(ZoExceptionLocation(fileName, functionName, 42));
    exception->setLogInfo(log.get());
    auto const demanded = std::make_shared<Exception>(demand::Text(errorText), demand::Text(fileName),
                                                      demand::Text(functionName), newDemandedLog(*log));
    operations.push_back({"XException: thrown and caught",
                          [exception] {
                              try {
                                  throw XException(*exception);
                              } catch (XBaseException const&) {
                              }
                          },
                          [demanded] {
                              try {
                                  throw Exception(*demanded);
                              } catch (Exception const&) {
                              }
                          }});
    operations.push_back({"XException: asBinary", [exception] { Bytes const block(exception->asBinary()); },
                          [demanded] { demanded->asBlock(); }});
    operations.push_back({"XException: rebuild",
                          [block = blockOf(*exception)] { XException const rebuilt(block.get()); },
                          [demanded] { Exception const rebuilt(Log::FromBlock{}, *demanded); }});
    operations.push_back({"XException: recorded",
                          [exception] {
                              exception->asLog();
                              exception->setLogged(0);
                              removeLast(*exception->logInfo());
                          },
                          [demanded] {
                              demanded->record();
                              demand::askForData();
                          }});
}

}  // namespace

std::vector<Operation> mainOperations() {
    std::vector<Operation> operations;
    addTraceOperations(operations);
    addBlockOperations(operations);
    addLogOperations(operations);
    addBuilding(operations);
    addBlockForms(operations, "XEndMicrocodeLog: ", false);
    addBlockForms(operations, "XEndMicrocodeLog, 3 items of 20,000 bytes: ", true);
    addExceptionOperations(operations);
    return operations;
}
