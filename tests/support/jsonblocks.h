#ifndef ZELQCOOD_TESTS_JSONBLOCKS_H
#define ZELQCOOD_TESTS_JSONBLOCKS_H

#include <algorithm>
#include <string>

#include <rapidjson/document.h>

#include "block/cursor.h"
#include "support/hex.h"

// The way back from the JSON of `zelq block` to the bytes that it was made from.

/// The bytes that one object stands for.
inline std::string bytesOfJson(rapidjson::Value const& object) {
    std::string bytes;
    if (object.HasMember("size")) {
        BlockHeader const header = {object["size"].GetUint(), static_cast<std::uint16_t>(object["type"].GetUint()),
                                    static_cast<std::uint16_t>(object["format"].GetUint())};
        unsigned char packed[BlockHeader::bytes];
        header.store(packed);
        bytes.assign(packed, packed + sizeof packed);
    }
    auto const addDigits = [&](char const* member) {
        if (object.HasMember(member)) {
            Bytes const more = fromHex({object[member].GetString(), object[member].GetStringLength()});
            bytes.append(more.begin(), more.end());
        }
    };
    addDigits("hex");
    if (object.HasMember("children")) {
        for (rapidjson::Value const& child : object["children"].GetArray()) {
            bytes += bytesOfJson(child);
        }
    }
    addDigits("rest");
    return bytes;
}

/// The same of a whole output, a line for each object. A line that is none stands for itself.
inline std::string bytesOfJsonLines(std::string const& lines) {
    constexpr auto flags = rapidjson::kParseValidateEncodingFlag | rapidjson::kParseIterativeFlag;
    std::string bytes;
    for (std::size_t begin = 0, end; begin < lines.size(); begin = end + 1) {
        end = std::min(lines.find('\n', begin), lines.size());
        rapidjson::Document line;
        line.Parse<flags>(&lines[begin], end - begin);
        bool const isObject = !line.HasParseError() && line.IsObject();
        bytes += isObject ? bytesOfJson(line) : "no object: " + lines.substr(begin, end - begin);
    }
    return bytes;
}

#endif
