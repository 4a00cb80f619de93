#include "peer_folders.h"

#include "outside/Helper.h"
#include "owners.h"
#include "text.h"

#include <fmt/format.h>

#include <windows.h>

#include <filesystem>

#include <shlobj.h>

#include <stdexcept>

namespace fs = std::filesystem;

namespace {

constexpr const char* phonebookName = "pptp.pbk";

std::string utf8(const fs::path& path) {
    return unicode2utf8(path.wstring());
}

// A std::runtime_error tells of a path that does not fit, which the library would not make either.
fs::path phonebookOf(const std::string& id) {
    const std::string path = GetPrivateConfigPathName(id.c_str(), phonebookName);
    if (path.empty())
        throw std::runtime_error(
            fmt::format("the working folder \"{}\" leaves no room for a phonebook in 259 characters",
                        utf8FromAnsi(GetWorkingPath())));
    return fs::absolute(wideFromAnsi(path));
}

bool isKnownPeer(const WIN32_FIND_DATAW& found, std::string& id) {
    const auto name = toAnsi(unicode2utf8(found.cFileName));
    id = name.value_or("");
    return (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && id.find('#') == id.npos &&
           CheckIdFormat(nullptr, id, nullptr, nullptr, nullptr);
}

// The phonebook may not be there yet.
void checkPhonebook(const fs::path& phonebook) {
    const Handle file(noneIfInvalid(CreateFileW(phonebook.c_str(), GENERIC_READ | GENERIC_WRITE,
                                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                                nullptr, OPEN_EXISTING, 0, nullptr)));
    const DWORD error = GetLastError();
    if (!file && error != ERROR_FILE_NOT_FOUND)
        throw std::runtime_error(
            fmt::format("the phonebook \"{}\" cannot be written: {}", utf8(phonebook), systemMessage(error)));
}

} // namespace

KnownPeers knownPeers() {
    const fs::path folder = wideFromAnsi(GetWorkingPath());
    KnownPeers known;
    WIN32_FIND_DATAW found;
    const Search search(noneIfInvalid(FindFirstFileW((folder / L"*").c_str(), &found)));
    if (search) {
        do {
            if (std::string id; isKnownPeer(found, id))
                known.ids.insert(id);
        } while (FindNextFileW(search.get(), &found));
    }
    const DWORD error = GetLastError();
    std::error_code unknown;
    known.isThere = search || fs::exists(folder, unknown);
    if (known.isThere && error != ERROR_NO_MORE_FILES)
        known.error = error;
    return known;
}

bool makeFolder(const std::string& id) {
    const fs::path phonebook = phonebookOf(id);
    const fs::path folder = phonebook.parent_path();
    const int error = SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
    if (error != ERROR_SUCCESS && error != ERROR_ALREADY_EXISTS && error != ERROR_FILE_EXISTS)
        throw std::runtime_error(fmt::format("the folder \"{}\" cannot be made: {}", utf8(folder),
                                             systemMessage(static_cast<DWORD>(error))));
    checkPhonebook(phonebook);
    return error == ERROR_SUCCESS;
}

std::string removeFolder(const std::string& id) {
    const fs::path phonebook = phonebookOf(id);
    const fs::path folder = phonebook.parent_path();
    std::error_code error;
    for (const auto& found : fs::directory_iterator(folder, error))
        if (_wcsicmp(found.path().filename().c_str(), phonebook.filename().c_str()) != 0)
            return fmt::format("there is more than a phonebook in \"{}\"", utf8(folder));
    if ((!DeleteFileW(phonebook.c_str()) && GetLastError() != ERROR_FILE_NOT_FOUND) ||
        !RemoveDirectoryW(folder.c_str())) {
        const DWORD code = GetLastError();
        return fmt::format("\"{}\" cannot be removed: {}", utf8(folder), systemMessage(code));
    }
    return {};
}

std::string phonebookLeft(const std::string& id) {
    const std::string path = GetPrivateConfigPathName(id.c_str(), phonebookName);
    return !IsWin6Plus() && IsFileExist(path.c_str()) ? utf8FromAnsi(path) : std::string();
}
