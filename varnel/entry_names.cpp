// The names of the peers' entries: a peer's id in lower case, and a number.
#include "Varnel.h"
#include "outside/Helper.h"

#include <mutex>

namespace {

constexpr char suffixMark[] = " #";

// The suffix number that the entry names of each peer carry, by
// lower-case id. Several threads may dial at once.
std::map<std::string, int> entrySuffixIndex;
std::mutex entrySuffixLock;

std::string lowCase(std::string text) {
    Convert2LowCase(text);
    return text;
}

} // namespace

std::string VARNEL::getEntryNameWithSuffix(const std::string& id, bool advance) {
    const std::string key = lowCase(id);
    const std::scoped_lock locked(entrySuffixLock);
    int& index = entrySuffixIndex[key];
    if (advance)
        ++index;
    return key + suffixMark + int2strd(index);
}

bool VARNEL::matchId(const std::string& entryName, const std::string& id) {
    const std::string name = lowCase(entryName);
    const std::string key = lowCase(id);
    if (!name.starts_with(key))
        return false;
    const std::string rest = name.substr(key.size());
    return rest.empty() || rest.starts_with(suffixMark);
}
