#include "switchedservices.h"

#include <dlfcn.h>
#include <cerrno>

#include "zelqplatform/errorlog_service.h"

namespace {

template <class Function>
Function* service(char const* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int xlog_record(xlog_record_interface* record, int* crc) {
    static auto* const store = service<decltype(xlog_record)>("xlog_record");
    if (isStoreUsed) {
        return store(record, crc);
    }
    *crc = 0;
    return XLOG_OK;
}

int xlog_get_backtrace(char** text, int frames, int* length) {
    static auto* const take = service<decltype(xlog_get_backtrace)>("xlog_get_backtrace");
    if (isBacktraceTaken) {
        return take(text, frames, length);
    }
    *text = nullptr;
    *length = 0;
    return ENODATA;
}
