#ifndef ZELQPLATFORM_MEMDEBUG_SERVICE_H
#define ZELQPLATFORM_MEMDEBUG_SERVICE_H

#include "zelqplatform/api.h"

extern "C" {

/// A copy of the text that the caller releases with free(); null when `text` is null or there is no
/// memory. Source name and line tell a memory debugger that takes this function's place who asked;
/// this build does not use them.
ZELQ_API char* zelqmemdebug_strdup(char const* text, char const* sourceName, int line);
}

#endif
