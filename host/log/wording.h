// What a code means, for those who show a log.
#pragma once

#include <string>

namespace logs {

struct Wording {
    std::string name;
    std::string meaning;
    std::string causes;
    std::string advice;
};

Wording wordingOf(unsigned code);

} // namespace logs
