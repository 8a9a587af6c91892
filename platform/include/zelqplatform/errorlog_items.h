#ifndef ZELQPLATFORM_ERRORLOG_ITEMS_H
#define ZELQPLATFORM_ERRORLOG_ITEMS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

// What the items mean with which a microcode log is recorded. The log makes them, the error-log service
// and whoever shows records look into them. All of it reaches disk and other processes: never change it.

/// Log class of the microcode logs that programs build.
constexpr unsigned char xlog_microcode_class = 10;

/// Ids of the items that a microcode log makes itself; a program's own items may have them too.
enum xlog_item : std::uint8_t {
    XLOG_ITEM_FIRST_TEXT = 0xE0,  ///< texts get the numbers from here on: the log's own, then secondary codes
    XLOG_ITEM_LAST_TEXT = 0xEC,
    XLOG_ITEM_THREAD_TRACE = 237,  ///< snapshots of a trace, rows of text
    XLOG_ITEM_PROCESS_TRACE = 238,
    XLOG_ITEM_SYSTEM_TRACE = 239,
    XLOG_ITEM_ERROR_CODE = 240,  ///< error id and reason, see xlog_error_code
};

/// What the item with the secondary reference codes begins with; then each code on a line of its own,
/// a line end before it.
constexpr char xlog_secondary_heading[] = "Secondary Reference Codes:\n";

/// Between the backtrace of a log that came out of a block and that of the process which rebuilt it.
constexpr char xlog_deserialized_heading[] = "\nDeserialized\n";

/// What the first line of a backtrace begins with. A log's text item is its text, a line end, and the
/// backtrace unless that is omitted.
constexpr char xlog_first_frame[] = "#0  0x";

/// Error id and reason as the bytes of an XLOG_ITEM_ERROR_CODE item, in the host's byte order.
struct xlog_error_code {
    static constexpr std::size_t bytes = 6;

    std::uint16_t id;
    std::int32_t reason;

    void store(unsigned char* item) const {
        std::memcpy(item, &id, sizeof id);
        std::memcpy(item + sizeof id, &reason, sizeof reason);
    }
    static xlog_error_code load(void const* item) {
        xlog_error_code code = {};
        std::memcpy(&code.id, item, sizeof code.id);
        std::memcpy(&code.reason, static_cast<unsigned char const*>(item) + sizeof code.id, sizeof code.reason);
        return code;
    }
};

/// Characters of a reference code, without a closing zero byte.
constexpr std::size_t xlog_reference_code_size = 17;

/// Writes a reference code as people quote it, "A0420022 00000018": class, type, error id and error
/// reason in upper-case hexadecimal digits. The class of microcode logs reads A0. Writes no zero byte.
inline void xlog_put_reference_code(char (&text)[xlog_reference_code_size], unsigned char logClass,
                                    unsigned char logType, xlog_error_code code) {
    char* end = text;
    auto const put = [&end](std::uint32_t number, int digits) {
        while (digits-- > 0) {
            *end++ = "0123456789ABCDEF"[number >> 4 * digits & 0xF];
        }
    };
    put(logClass == xlog_microcode_class ? 0xA0 : logClass, 2);
    put(logType, 2);
    put(code.id, 4);
    *end++ = ' ';
    put(static_cast<std::uint32_t>(code.reason), 8);
}

#endif
