// Clearing what an earlier run of the host left behind.
#include "Varnel.h"
#include "call_trace.h"
#include "fields.h"
#include "outside/Helper.h"
#include "owners.h"

#include <optional>

namespace {

bool isPeerFolder(const WIN32_FIND_DATAA& found, const std::string& name) {
    return (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
           CheckIdFormat(nullptr, name, nullptr, nullptr, nullptr);
}

// The peers that have a folder in the working folder, in the order found; nothing when the search broke off.
std::optional<std::list<std::string>> findPeers() {
    std::string pattern = GetWorkingPath();
    if (pattern.empty())
        return std::nullopt;
    if (pattern.back() != '\\')
        pattern += '\\';
    pattern += '*';
    if (pattern.size() >= MAX_PATH)
        return std::nullopt;

    WIN32_FIND_DATAA found = {};
    const Owner<FileSearch> search(FindFirstFileA(pattern.c_str(), &found));
    if (!search)
        return std::nullopt;
    std::list<std::string> ids;
    do {
        const std::string name = textOfField(found.cFileName);
        if (isPeerFolder(found, name))
            ids.push_back(name);
    } while (FindNextFileA(search.get(), &found) != FALSE);
    if (GetLastError() != ERROR_NO_MORE_FILES)
        return std::nullopt;
    return ids;
}

} // namespace

bool VARNEL::clearAllEntry() {
    if (onlyClient)
        return true;
    const CallTrace trace("VARNEL::clearAllEntry", "", __LINE__, 1);
    const std::optional<std::list<std::string>> ids = findPeers();
    if (!ids)
        return false;
    for (const std::string& id : *ids) {
        dialDown(id);
        removePhoneBook(id);
    }
    removeEntries(*ids);
    return true;
}
