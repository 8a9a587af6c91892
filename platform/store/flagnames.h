#ifndef ZELQ_STORE_FLAGNAMES_H
#define ZELQ_STORE_FLAGNAMES_H

#include <cstdint>

#include "zelqplatform/errorlog_service.h"

namespace zelq {

struct FlagName {
    std::uint16_t bit;
    char const* name;
};

// The names reach the disk, in this order. XLOG_ERROR is missing: it is the severity.
constexpr FlagName flagNames[] = {
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

}  // namespace zelq

#endif
