// What the library's operations write into the trace, all of it.

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/sampleblocks.h"
#include "zelqcood/block.h"
#include "zelqcood/trap.h"

namespace {

class Listing {
public:
    template <class Operation>
    void add(char const* title, Operation operation) {
        clearTrace();
        operation();
        text_ += text_.empty() ? "" : "\n";
        text_ += "# " + std::string(title) + "\n" + tracedText();
    }
    std::string const& text() const { return text_; }

private:
    std::string text_;
};

TEST(Trace, ListsEachOperation) {
    Listing listing;
    unsigned char* block = nullptr;
    listing.add("Blocks: create, append a child without and with a block of its own, search", [&] {
        unsigned char bytes[] = {1, 2};
        block = createBlock(0x8005, 1);
        addHeaderBlock(&block, 2, 0, 1, bytes);
        Block const child(createBlock(65535, 1));
        addBlock(&block, child.get());
        findBlock(block, 3);
    });
    delete[] block;

    GuardedBlock const rich(richBlock(endMicrocodeLog));
    std::unique_ptr<XEndMicrocodeLog> log;
    listing.add("A microcode log is read", [&] { log = std::make_unique<XEndMicrocodeLog>(rich.get()); });
    listing.add("It is written", [&] { Block(log->asBinary()); });
    listing.add("It is recorded", [&] { log->log(); });
    XLog target(*log);
    listing.add("A log is assigned", [&] { target = *log; });
    listing.add("A log is assigned to itself", [&, &self = target] { target = self; });
    setRecordService([](xlog_record_interface*, int*) -> int { throw 1; });
    listing.add("The service throws", [&] { EXPECT_THROW(target.log(), int); });
    setRecordService(nullptr);

    listing.add("An exception begins and ends", [] { XException("open failed", ZoException::recoverable, 0); });
    listing.add("One without a text", [] { XTrapException(static_cast<char*>(nullptr), 1); });
    XException thrown("open failed", ZoException::recoverable, 0);
    setBacktrace("#0 main\n#1 start");
    XEndMicrocodeLog backtraced(1, 2, 3, 4, "EV", "", XMicrocodeLog::omitAllTraces, 0, "ID");
    setBacktrace(nullptr);
    thrown.addLocation(ZoExceptionLocation("mod_a", "f", 42));
    thrown.addLocation(ZoExceptionLocation("mod_b", nullptr, 1234567));
    thrown.setLogInfo(&backtraced);
    listing.add("It is written into the trace", [&] { EXPECT_EQ(&thrown.asTrace("MYCOMP", 'W'), &thrown); });
    thrown.setLogged(1);
    listing.add("It is recorded, but has been before", [&] { thrown.asLog(); });

    listing.add("A trap handler begins and ends",
                [] { XTrapHandler const handler(XTrapHandler::serviceProcess, [](int, siginfo*, void*) {}); });
    EXPECT_EQ(listing.text(), contents(EXPECTED_FILES "/trace.txt"));
}

}  // namespace
