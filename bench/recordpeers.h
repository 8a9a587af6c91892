#ifndef ZELQCOOD_BENCH_RECORDPEERS_H
#define ZELQCOOD_BENCH_RECORDPEERS_H

#include <cstdint>
#include <string>
#include <vector>

/// The content of a microcode log, as a program would hold it that uses another serialiser.
struct PeerLog {
    struct Item {
        std::uint64_t blockId;
        std::vector<std::uint8_t> bytes;
    };

    std::uint64_t numbers[7];
    std::string texts[4];
    std::vector<Item> items;
};

struct RecordPeer {
    std::string name;
    std::size_t (*thereAndBack)(PeerLog const& log, PeerLog* rebuilt);
};

/// Those whose packages are installed.
std::vector<RecordPeer> recordPeers();

#endif
