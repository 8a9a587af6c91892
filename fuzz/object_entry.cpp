// Rebuilding objects from blocks.
//
// Input: one byte that chooses the class, then the block. 0 chooses by the class code in the
// block's header; the highest bit gives the reading process a backtrace of its own.

#include <map>

#include "entry.h"
#include "support/failingnew.h"
#include "support/sampleblocks.h"

// The services in tests/support allow allocations that a test makes fail. None fails here.
NoFailingNew::NoFailingNew() = default;
NoFailingNew::~NoFailingNew() = default;

namespace {

constexpr unsigned char withBacktrace = 0x80;

std::uint16_t typeOf(Bytes const& block) {
    std::uint16_t type = 0;
    std::memcpy(&type, &block[4], sizeof type);
    return type;
}

Kind kindOf(unsigned char choice, Bytes const& block) {
    static std::map<std::uint16_t, Kind> const kindsByType = [] {
        std::map<std::uint16_t, Kind> kinds;
        for (Kind kind : allKinds) {
            kinds[typeOf(richBlock(kind))] = kind;
        }
        return kinds;
    }();
    if (choice != 0) {
        return allKinds[(choice - 1U) % std::size(allKinds)];
    }
    auto const found = kindsByType.find(typeOf(block));
    return found != kindsByType.end() ? found->second : refcode;
}

// The size in the header is all that a reader knows of the memory, so it is never more than there
// is; what it leaves out is not there either. Both ways the block ends at a guard page.
Bytes wholeBlock(std::uint8_t const* data, std::size_t size) {
    Bytes block(data, data + size);
    std::uint32_t const told = sizeOf(block.data());
    if (told > size) {
        auto const there = static_cast<std::uint32_t>(size);
        std::memcpy(block.data(), &there, sizeof there);
    } else if (told >= 8) {
        block.resize(told);
    }
    return block;
}

// What a program would do with the object: none of it may fail on what came out of a block.
void use(XLogData const& item) {
    std::unique_ptr<XLogData> const copy(item.clone());
    require(copy->size() == item.size() && copy->blockId() == item.blockId(), "a clone differs");
}

// What can be written and rebuilt, and no more.
struct AnyOther {
    template <class Object>
    AnyOther(Object const&) {}
};
void use(AnyOther const&) {}

void use(XLog const& log) {
    XLog copy(log);
    copy.log();
}

void use(XMicrocodeLog const& log) {
    std::unique_ptr<XMicrocodeLog> const copy(const_cast<XMicrocodeLog&>(log).clone());
    *copy += log;
    copy->log();
    Block const block(copy->asBinary());
}

void use(XBaseException const& exception) {
    XBaseException copy(exception);
    copy.asTrace("FUZZER", 'F');
    for (unsigned i = 0; i <= copy.dataCount() + 1; ++i) {
        require(copy.data(i) != nullptr, "no item");
    }
    copy.asLog();
}

}  // namespace

std::vector<std::string> seeds() {
    std::vector<std::string> inputs;
    for (std::size_t i = 0; i < std::size(allKinds); ++i) {
        Bytes const block = richBlock(allKinds[i]);
        for (unsigned choice : {0U, static_cast<unsigned>(i) + 1}) {
            inputs.push_back(static_cast<char>(choice) + std::string(block.begin(), block.end()));
        }
    }
    return inputs;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    if (size < 9) {
        return 0;
    }
    Bytes const bytes = wholeBlock(data + 1, size - 1);
    Kind const kind = kindOf(data[0] & 0x7F, bytes);
    fake.backtrace = (data[0] & withBacktrace) != 0 ? "#0  0x1  here" : nullptr;
    std::string wrong;
    GuardedBlock const written(roundTrip(kind, bytes, wrong));
    if (!wrong.empty()) {
        fail(wrong);
    }
    fake.keep = FakeServices::nothing;
    withRebuilt(kind, written.get(), [](auto const& object) { use(object); });
    return 0;
}
