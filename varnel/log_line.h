#pragma once

#include "outside/Log.h"

// What every record of the library names as its source file.
inline constexpr char logFile[] = ".\\Varnel";

// Writes one record; `text` is evaluated only when the level is wanted.
#define LOG_LINE(recordLevel, text)                                                                          \
    do {                                                                                                     \
        if (LOG::level >= (recordLevel))                                                                     \
            LOG::prints((recordLevel), logFile, __LINE__, (text));                                           \
    } while (false)
