#pragma once

#include "outside/Log.h"

// What every record of the library names as its source.
inline constexpr char sourceName[] = ".\\Varnel";

// Writes one record; `text` is evaluated only when the level is wanted.
#define LOG_LINE(recordLevel, text)                                                                          \
    do {                                                                                                     \
        if (LOG::level >= (recordLevel))                                                                     \
            LOG::prints((recordLevel), sourceName, __LINE__, (text));                                        \
    } while (false)
