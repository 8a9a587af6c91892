#ifndef ZELQPLATFORM_ERRORLOG_SERVICE_H
#define ZELQPLATFORM_ERRORLOG_SERVICE_H

#include <cstddef>
#include <cstdint>

#include "zelqplatform/api.h"

/// One piece of data of a record. Entries form a chain; the service keeps no pointer into it.
struct xlog_detail_entry {
    std::uint32_t size;  ///< bytes at `data`
    std::uint8_t id;     ///< tells what the bytes are
    std::uint8_t reserved[3];
    void const* data;
    xlog_detail_entry* next;  ///< null in the last entry
};

/// What a caller fills to have one log recorded. All integers are in the host's byte order.
struct xlog_record_interface {
    std::uint16_t attributes;  ///< flags, see the table below
    std::uint8_t logClass;
    std::uint8_t logType;
    std::uint16_t user;
    std::uint8_t reserved[5];    ///< zero
    char eventName[12];          ///< no zero byte when all 12 characters are used
    char logId[2049];            ///< zero-terminated
    xlog_detail_entry* details;  ///< first entry, or null
};

/// Bits of `xlog_record_interface::attributes` that the service knows by name. They reach the
/// disk: never renumber them.
enum xlog_attribute : std::uint16_t {
    XLOG_COMPONENT_LOG_ONLY = 0x0001,
    XLOG_COMPONENT_LOG_BOTH = 0x0002,
    XLOG_OMIT_BACKTRACE = 0x0040,
    XLOG_ERROR = 0x0100,  ///< severity error; informational without it
    XLOG_STANDARD_BLOCK = 0x0200,
    XLOG_MODIFY_BLOCK = 0x0400,
    XLOG_REBOOT_SYSTEM = 0x1000,
    XLOG_OMIT_THREAD_TRACE = 0x2000,
    XLOG_OMIT_PROCESS_TRACE = 0x4000,
    XLOG_OMIT_SYSTEM_TRACE = 0x8000,
};

/// A flag's name in records.
struct xlog_attribute_name {
    std::uint16_t bit;
    char const* name;
};

/// The names that records have for the bits that are set in `attributes`, in their order on disk; the
/// severity has a field of its own there. Never change a name.
constexpr xlog_attribute_name xlog_attribute_names[] = {
    {XLOG_COMPONENT_LOG_ONLY, "component_log_only"},
    {XLOG_COMPONENT_LOG_BOTH, "component_log_both"},
    {XLOG_OMIT_BACKTRACE, "omit_backtrace"},
    {XLOG_STANDARD_BLOCK, "standard_block"},
    {XLOG_MODIFY_BLOCK, "modify_block"},
    {XLOG_REBOOT_SYSTEM, "reboot_system"},
    {XLOG_OMIT_THREAD_TRACE, "omit_thread_trace"},
    {XLOG_OMIT_PROCESS_TRACE, "omit_process_trace"},
    {XLOG_OMIT_SYSTEM_TRACE, "omit_system_trace"},
};

/// Results of xlog_record(). The second integer (crc) is the errno of the failing call, 0 with
/// XLOG_OK. Never renumber them: they stand in traces.
enum xlog_result {
    XLOG_OK = 0,            ///< on disk
    XLOG_NO_RECORD = 1,     ///< the record pointer is null; crc EINVAL
    XLOG_NO_MEMORY = 2,     ///< no memory to render the record; crc ENOMEM
    XLOG_NO_FOLDER = 3,     ///< the state folder is missing, or not safe to use
    XLOG_NO_STORE = 4,      ///< the store file cannot be opened, or is no regular file
    XLOG_NO_LOCK = 5,       ///< the store stayed locked by another program for too long, or cannot be locked
    XLOG_WRITE_FAILED = 6,  ///< nothing of the record is in the store
    XLOG_SYNC_FAILED = 7,   ///< the record may or may not survive a crash of the machine
};

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(offsetof(xlog_detail_entry, size) == 0);
static_assert(offsetof(xlog_detail_entry, id) == 4);
static_assert(offsetof(xlog_detail_entry, reserved) == 5);
static_assert(offsetof(xlog_detail_entry, data) == 8);
static_assert(offsetof(xlog_detail_entry, next) == 12);
static_assert(sizeof(xlog_detail_entry) == 16);
static_assert(offsetof(xlog_record_interface, attributes) == 0);
static_assert(offsetof(xlog_record_interface, logClass) == 2);
static_assert(offsetof(xlog_record_interface, logType) == 3);
static_assert(offsetof(xlog_record_interface, user) == 4);
static_assert(offsetof(xlog_record_interface, reserved) == 6);
static_assert(offsetof(xlog_record_interface, eventName) == 11);
static_assert(offsetof(xlog_record_interface, logId) == 23);
static_assert(offsetof(xlog_record_interface, details) == 2072);
static_assert(sizeof(xlog_record_interface) == 2076);
#endif

extern "C" {

/// Records one log in the error-log store of the calling user. When it returns XLOG_OK the record
/// is on disk; otherwise the store holds either the whole record or nothing of it, never a piece.
///
/// `crc` receives the second integer of the result and may be null. The call keeps errno, may be
/// made from several threads and processes at once, may block while another program writes, and
/// is not safe in a signal handler.
ZELQ_API int xlog_record(xlog_record_interface* record, int* crc);

/// Describes the calling thread's stack, one line a frame, innermost first: number, address,
/// demangled function with offset, base name of the module with the address as linked.
///
///     #0  0x565561f9  readText(char const*)+0x29  [readfiles+0x11f9]
///     #1  0x565562a0  main+0x40  [readfiles+0x12a0]
///
/// The addresses are those that calls return to; one less lies within the call, and is what finds
/// its source line. What cannot be told is "??" or missing. At most 256 frames are described; then
/// a last line says that there are more. `frames` innermost frames are left out (a negative number
/// counts as 0), this function's own not counted.
///
/// Stores in `*text` a zero-terminated text, without a newline at its end, that the caller releases
/// with free(), and its length in `*length` (may be null). Returns 0; or, with null in `*text`,
/// ENODATA when no frame is left, ENOMEM without memory, EINVAL when `text` is null.
///
/// Lines are remembered: the first backtrace from a place may read files, later ones cost little
/// more than the addresses alone. Keeps errno, may be called from several threads and in forked
/// children; not safe in a signal handler.
ZELQ_API int xlog_get_backtrace(char** text, int frames, int* length);
}

#endif
