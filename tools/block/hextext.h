#ifndef ZELQ_TOOLS_BLOCK_HEXTEXT_H
#define ZELQ_TOOLS_BLOCK_HEXTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace zelq {

/// True when the bytes can be text that people read: printable ASCII, tabs and line ends. No block of
/// the system can, since the format in its header has control bytes.
bool isPlainText(std::string_view bytes);

/// What a text of hexadecimal digits stands for.
struct HexText {
    std::string bytes;
    std::string fault;  ///< why it cannot be read, with its line; empty when it can
};

/// Reads bytes from their hexadecimal digits, in one of these forms:
///
///     56000000 0280 01 00                           words of two digits a byte; 0x and commas count as blanks
///     00000000: 5600 0000 0280 0100  V.......       an offset with a colon; two blanks end the bytes
///     00000000  56 00 00 00 02 80 01 00  |V.......| an offset and two blanks; | or > ends the bytes
///
/// In the second form other text may stand before the offset. A line "*" repeats the row before it up
/// to the next offset. Offsets are checked. At most `most` bytes are read.
HexText parseHexText(std::string_view text, std::size_t most);

}  // namespace zelq

#endif
