#include "recordpeers.h"

#include <algorithm>
#include <sstream>

#ifdef ZELQ_BENCH_PROTOBUF
#include "microcodelog.pb.h"
#endif
#ifdef ZELQ_BENCH_MSGPACK
#include <msgpack.h>
#endif
#ifdef ZELQ_BENCH_FLATBUFFERS
#include "microcodelog_generated.h"
#endif
#ifdef ZELQ_BENCH_CEREAL
#include <cereal/archives/binary.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>
#endif
#ifdef ZELQ_BENCH_NLOHMANN
#include <nlohmann/json.hpp>
#endif

namespace {

#ifdef ZELQ_BENCH_PROTOBUF
std::size_t throughProtobuf(PeerLog const& log, PeerLog* rebuilt) {
    bench::MicrocodeLog message;
    for (std::uint64_t const number : log.numbers) {
        message.add_numbers(number);
    }
    for (std::string const& text : log.texts) {
        message.add_texts(text);
    }
    for (PeerLog::Item const& item : log.items) {
        bench::DataItem* const added = message.add_items();
        added->set_block_id(item.blockId);
        added->set_data(item.bytes.data(), item.bytes.size());
    }
    std::string const bytes = message.SerializeAsString();
    bench::MicrocodeLog read;
    if (!read.ParseFromString(bytes) || read.numbers_size() != 7 || read.texts_size() != 4) {
        return 0;
    }
    std::copy(read.numbers().begin(), read.numbers().end(), rebuilt->numbers);
    std::copy(read.texts().begin(), read.texts().end(), rebuilt->texts);
    for (bench::DataItem const& item : read.items()) {
        rebuilt->items.push_back({item.block_id(), {item.data().begin(), item.data().end()}});
    }
    return bytes.size();
}
#endif

#ifdef ZELQ_BENCH_MSGPACK
void packBytes(msgpack_packer* packer, void const* bytes, std::size_t size) {
    msgpack_pack_bin(packer, size);
    msgpack_pack_bin_body(packer, bytes, size);
}

std::size_t throughMsgpack(PeerLog const& log, PeerLog* rebuilt) {
    msgpack_sbuffer buffer;
    msgpack_sbuffer_init(&buffer);
    msgpack_packer packer;
    msgpack_packer_init(&packer, &buffer, msgpack_sbuffer_write);
    msgpack_pack_array(&packer, 7 + 4 + 2 * log.items.size());
    for (std::uint64_t const number : log.numbers) {
        msgpack_pack_uint64(&packer, number);
    }
    for (std::string const& text : log.texts) {
        packBytes(&packer, text.data(), text.size());
    }
    for (PeerLog::Item const& item : log.items) {
        msgpack_pack_uint64(&packer, item.blockId);
        packBytes(&packer, item.bytes.data(), item.bytes.size());
    }
    msgpack_unpacked unpacked;
    msgpack_unpacked_init(&unpacked);
    std::size_t const size = buffer.size;
    if (msgpack_unpack_next(&unpacked, buffer.data, buffer.size, nullptr) == MSGPACK_UNPACK_SUCCESS &&
        unpacked.data.type == MSGPACK_OBJECT_ARRAY && unpacked.data.via.array.size >= 11) {
        msgpack_object const* next = unpacked.data.via.array.ptr;
        msgpack_object const* const end = next + unpacked.data.via.array.size;
        for (std::uint64_t& number : rebuilt->numbers) {
            number = next++->via.u64;
        }
        for (std::string& text : rebuilt->texts) {
            text.assign(next->via.bin.ptr, next->via.bin.size);
            ++next;
        }
        for (; next < end; next += 2) {
            auto const* const bytes = reinterpret_cast<std::uint8_t const*>(next[1].via.bin.ptr);
            rebuilt->items.push_back({next[0].via.u64, {bytes, bytes + next[1].via.bin.size}});
        }
    }
    msgpack_unpacked_destroy(&unpacked);
    msgpack_sbuffer_destroy(&buffer);
    return size;
}
#endif

#ifdef ZELQ_BENCH_FLATBUFFERS
std::size_t throughFlatbuffers(PeerLog const& log, PeerLog* rebuilt) {
    flatbuffers::FlatBufferBuilder builder;
    std::vector<flatbuffers::Offset<flat::DataItem>> items;
    for (PeerLog::Item const& item : log.items) {
        items.push_back(flat::CreateDataItem(builder, item.blockId, builder.CreateVector(item.bytes)));
    }
    std::vector<std::string> const texts(log.texts, log.texts + 4);
    builder.Finish(flat::CreateMicrocodeLog(builder, builder.CreateVector(log.numbers, 7),
                                            builder.CreateVectorOfStrings(texts), builder.CreateVector(items)));
    flatbuffers::Verifier verifier(builder.GetBufferPointer(), builder.GetSize());
    if (!flat::VerifyMicrocodeLogBuffer(verifier)) {
        return 0;
    }
    flat::MicrocodeLog const* const read = flat::GetMicrocodeLog(builder.GetBufferPointer());
    std::copy(read->numbers()->begin(), read->numbers()->end(), rebuilt->numbers);
    for (unsigned i = 0; i < 4; ++i) {
        rebuilt->texts[i] = read->texts()->Get(i)->str();
    }
    for (flat::DataItem const* item : *read->items()) {
        rebuilt->items.push_back({item->block_id(), {item->data()->begin(), item->data()->end()}});
    }
    return builder.GetSize();
}
#endif

#ifdef ZELQ_BENCH_CEREAL
template <class Archive>
void visit(Archive& archive, PeerLog& log) {
    for (std::uint64_t& number : log.numbers) {
        archive(number);
    }
    for (std::string& text : log.texts) {
        archive(text);
    }
    std::uint64_t count = log.items.size();
    archive(count);
    log.items.resize(count);
    for (PeerLog::Item& item : log.items) {
        archive(item.blockId, item.bytes);
    }
}

std::size_t throughCereal(PeerLog const& log, PeerLog* rebuilt) {
    std::stringstream stream;
    cereal::BinaryOutputArchive output(stream);
    visit(output, const_cast<PeerLog&>(log));  // one function for both ways, which only reads here
    std::size_t const size = static_cast<std::size_t>(stream.tellp());
    cereal::BinaryInputArchive input(stream);
    visit(input, *rebuilt);
    return size;
}
#endif

#ifdef ZELQ_BENCH_NLOHMANN
std::size_t throughNlohmannJson(PeerLog const& log, PeerLog* rebuilt) {
    nlohmann::json document;
    document["numbers"] = log.numbers;
    document["texts"] = log.texts;
    for (PeerLog::Item const& item : log.items) {
        document["items"].push_back({{"block_id", item.blockId}, {"data", nlohmann::json::binary(item.bytes)}});
    }
    std::vector<std::uint8_t> const bytes = nlohmann::json::to_cbor(document);
    nlohmann::json read = nlohmann::json::from_cbor(bytes);
    for (std::size_t i = 0; i < 7; ++i) {
        rebuilt->numbers[i] = read["numbers"][i].get<std::uint64_t>();
    }
    for (std::size_t i = 0; i < 4; ++i) {
        rebuilt->texts[i] = read["texts"][i].get<std::string>();
    }
    for (nlohmann::json& item : read["items"]) {
        rebuilt->items.push_back({item["block_id"].get<std::uint64_t>(), std::move(item["data"].get_binary())});
    }
    return bytes.size();
}
#endif

}  // namespace

std::vector<RecordPeer> recordPeers() {
    return {
#ifdef ZELQ_BENCH_PROTOBUF
        {"protobuf", throughProtobuf},
#endif
#ifdef ZELQ_BENCH_MSGPACK
        {"msgpack", throughMsgpack},
#endif
#ifdef ZELQ_BENCH_FLATBUFFERS
        {"FlatBuffers", throughFlatbuffers},
#endif
#ifdef ZELQ_BENCH_CEREAL
        {"cereal", throughCereal},
#endif
#ifdef ZELQ_BENCH_NLOHMANN
        {"nlohmann-json, CBOR", throughNlohmannJson},
#endif
    };
}
