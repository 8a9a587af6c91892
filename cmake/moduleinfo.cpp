// What a binary found in the field tells about itself: `strings` on the file, or a look at the
// section, gives its origin without debug information. __DATE__ and __TIME__ follow
// SOURCE_DATE_EPOCH, so that a build can be repeated to the last bit.

#include "zelqplatform/api.h"

#define MODULE_INFO(name, KEY, text)                                                               \
    extern "C" ZELQ_API const char __yutilmoduleinfo__##name[];                                    \
    __attribute__((section(".common_module_info"), used)) const char __yutilmoduleinfo__##name[] = \
        "@@MODULE_INFO_" #KEY "_BEGIN@@" text "@@MODULE_INFO_" #KEY "_END@@"

MODULE_INFO(copyright, COPYRIGHT, "Copyright 2026 the zelqcood developers");
MODULE_INFO(driver, DRIVER, "Unknown");
MODULE_INFO(builddata, BUILDDATA, "Module " ZELQCOOD_FILE_NAME " was built on " __DATE__ " at " __TIME__);
MODULE_INFO(builddir, BUILDDIR, ZELQCOOD_BUILD_DIR);
MODULE_INFO(summary, SUMMARY, "Unknown " ZELQCOOD_BUILD_DIR);
