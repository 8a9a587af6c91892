#include "zelqplatform/memdebug_service.h"

#include <cstring>

char* zelqmemdebug_strdup(char const* text, char const*, int) {
    return text == nullptr ? nullptr : strdup(text);
}
