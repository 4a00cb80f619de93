#pragma once

#include <stdexcept>

// A command or one of its arguments is wrong; the text says what to put right, in UTF-8.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};
