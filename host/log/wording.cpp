#include "log/wording.h"

#include "meanings.h"

namespace logs {

Wording wordingOf(unsigned code) {
    const std::string described = describe(code); // "error 691, ..."
    const std::size_t comma = described.find(", ");
    return {"", comma == described.npos ? "" : described.substr(comma + 2), "", adviceOn(code)};
}

} // namespace logs
