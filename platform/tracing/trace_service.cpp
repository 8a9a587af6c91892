#include "zelqplatform/trace_service.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/text.h"
#include "tracing/ring.h"

namespace {

using zelq::ProcessRing;

constexpr std::size_t bytesPerRow = 32;
constexpr std::size_t offsetDigitsMax = 8;  // a quarter of the largest ring dumps 8 MiB
// A row is: label, blank, offset, ": ", three characters a byte, blank, the characters in bars.
constexpr std::size_t labelMax = zelq::ringLineMax - 1 - offsetDigitsMax - 2 - 3 * bytesPerRow - 1 - bytesPerRow - 2;

char* appendRow(char* to, unsigned long offset, unsigned char const* bytes, std::size_t count) {
    *to++ = ' ';
    to = zelq::putHexDigits(to, offset, offset < 0x10000 ? 4 : static_cast<int>(offsetDigitsMax));
    *to++ = ':';
    *to++ = ' ';
    char* const blanks = to;
    for (std::size_t i = 0; i < count; ++i) {
        to = zelq::putHexDigits(to, bytes[i], 2);
        *to++ = ' ';
    }
    std::size_t const hexWidth = 3 * bytesPerRow + 1;  // a short row's characters stand below the others'
    std::memset(to, ' ', hexWidth - 3 * count);
    to = blanks + hexWidth;
    *to++ = '|';
    for (std::size_t i = 0; i < count; ++i) {
        *to++ = zelq::isPrintableAscii(bytes[i]) ? static_cast<char>(bytes[i]) : '.';
    }
    *to++ = '|';
    return to;
}

inline int writeText(unsigned int handle, char const* line) {
    ProcessRing* const ring = zelq::processRing();
    return line != nullptr && ring != nullptr ? zelq::writeLine(*ring, handle, line) : 0;
}

}  // namespace

int xtr_trace(char const* line) {
    return writeText(0, line);
}

int xtr_trace_cb(unsigned int handle, char const* line) {
    return writeText(handle, line);
}

int xtr_dump_bytes_cb(unsigned int handle, char const* label, void const* data, unsigned long length) {
    ProcessRing* const ring = zelq::processRing();
    if (ring == nullptr) {
        return 0;
    }
    char line[zelq::ringTextSize];
    std::size_t const labelLength = label != nullptr ? strnlen(label, labelMax) : 0;
    if (labelLength != 0) {
        std::memcpy(line, label, labelLength);
    }
    char* const behindLabel = line + labelLength;
    std::size_t const room = static_cast<std::size_t>(line + sizeof line - behindLabel);
    auto const write = [&](char* end) {
        *end = '\0';
        zelq::writeLine(*ring, handle, line);
    };

    write(behindLabel + std::snprintf(behindLabel, room, " %lu bytes", length));
    if (data == nullptr) {
        return 0;
    }
    auto const* const bytes = static_cast<unsigned char const*>(data);
    std::uint64_t const quarter = (ring->slotMask + 1) / 4;
    std::uint64_t const rows = length / bytesPerRow + (length % bytesPerRow != 0);
    // The first line counts, and the last one when something is left out.
    unsigned long const shown = rows < quarter ? length : static_cast<unsigned long>((quarter - 2) * bytesPerRow);
    for (unsigned long offset = 0; offset < shown; offset += bytesPerRow) {
        std::size_t const count = std::min<std::size_t>(bytesPerRow, shown - offset);
        write(appendRow(behindLabel, offset, bytes + offset, count));
    }
    if (shown < length) {
        write(behindLabel + std::snprintf(behindLabel, room, " %lu bytes left out", length - shown));
    }
    return 0;
}
