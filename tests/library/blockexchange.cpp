// blockexchange write FILE   writes a block of each kind of object
// blockexchange check FILE   reads such a file, whichever build wrote it: the blocks are those that this
//                            build writes, and the objects rebuilt from them serialise to the same bytes

#include <climits>
#include <cstdio>
#include <fstream>

#include "support/sampleblocks.h"

namespace {

// The numbers at their ends, and items beyond the 64 KiB that a narrow size could hold.
Bytes extremeBlock() {
    setBacktrace("0 main\n1 start");
    XEndMicrocodeLog log(0xFF, 0xFEDC, 0xFFFE, INT_MIN, "EVENT", "two\nlines", XMicrocodeLog::omitAllTraces, INT_MIN,
                         "log \xC3\xA4");
    setBacktrace(nullptr);  // a reading process adds its own
    std::string bytes;
    for (unsigned i = 0; i < 100001; ++i) {
        bytes += static_cast<char>(i * 31 + i / 256);
    }
    log.addData(XLogData(bytes.data(), bytes.size(), 0xFFFF));
    log.addData(XMicrocodeLogData(bytes.data(), 70000, XMicrocodeLogData::textFormat)).addData(XLogData());
    log.secondaryRefcodes()->emplace_back(0xFF, 0xFE, 0xFFFD, INT_MAX);
    XException thrown(static_cast<char*>(nullptr), ZoException::unrecoverable, -1);
    thrown.setErrorId(0xFEDCBA98);
    for (unsigned long line = 1; line <= 7; ++line) {
        thrown.addLocation(ZoExceptionLocation("file.cpp", line % 2 == 0 ? nullptr : "function", line << 28));
    }
    thrown.setLogInfo(&log);
    return toBytes(Block(thrown.asBinary()));
}

bool writeBlock(std::fstream& file, Kind, Bytes const& block) {
    file.write(reinterpret_cast<char const*>(block.data()), static_cast<std::streamsize>(block.size()));
    return file.good();
}

bool checkBlock(std::fstream& file, Kind kind, Bytes const& block) {
    Bytes read(block.size());
    file.read(reinterpret_cast<char*>(read.data()), static_cast<std::streamsize>(read.size()));
    return file.good() && read == block && toBytes(rewritten(kind, read.data())) == read;
}

}  // namespace

int main(int argc, char** argv) {
    bool const writes = argc == 3 && argv[1] == std::string("write");
    if (argc != 3 || (!writes && argv[1] != std::string("check"))) {
        std::fputs("usage: blockexchange write|check FILE\n", stderr);
        return 2;
    }
    std::fstream file(argv[2], std::ios::binary | (writes ? std::ios::out : std::ios::in));
    auto const treat = writes ? writeBlock : checkBlock;
    for (Kind const kind : allKinds) {
        if (!treat(file, kind, richBlock(kind))) {
            std::fprintf(stderr, "blockexchange: the block of kind %d differs\n", kind);
            return 1;
        }
    }
    if (!treat(file, exception, extremeBlock()) || (!writes && file.peek() != EOF)) {
        std::fputs("blockexchange: the last block differs, or is not the last\n", stderr);
        return 1;
    }
    return 0;
}
