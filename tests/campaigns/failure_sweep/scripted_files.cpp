#include "scripted_files.h"

#include "tests/kit/imports.h"

namespace {

constexpr std::size_t smallestImage = 1'000; // bytes

} // namespace

ScriptedFiles::ScriptedFiles(const ScriptedComputer& computer, ScriptedRas& ras) {
    answerForFiles(computer, ras);
    answerForSearches();
}

void ScriptedFiles::answerForFiles(const ScriptedComputer& computer, ScriptedRas& ras) {
    on<"CreateFileA">([this](LPCSTR path, const auto&...) {
        const auto handle = reinterpret_cast<HANDLE>(++lastHandle);
        opened[handle] = path;
        contents[path].clear();
        return handle;
    });
    on<"WriteFile">([this](HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED) {
        *written = size;
        return write(file, bytes, size);
    });
    on<"CloseHandle">(
        [this](HANDLE handle) -> WINBOOL { return opened.erase(handle) != 0 ? TRUE : CloseHandle(handle); });
    on<"DeleteFileA">([this, &ras, folder = computer.systemFolder](LPCSTR path) -> WINBOOL {
        SetLastError(ERROR_FILE_NOT_FOUND);
        const bool isDriver = std::string(path).starts_with(folder);
        return (isDriver ? contents.erase(path) : ras.phoneBooks.erase(path)) != 0;
    });
    on<"IsFileExist">([this, &ras](const char* path) { return has(path) || ras.phoneBooks.contains(path); });
    on<"MoveFileExA">([this](LPCSTR from, LPCSTR to, DWORD) { return move(from, to); });
    on<"GetFileVersion">([this](const std::string& path) { return version(path); });
}

void ScriptedFiles::answerForSearches() {
    on<"FindFirstFileA">([this](LPCSTR, LPWIN32_FIND_DATAA found) {
        const auto search = reinterpret_cast<HANDLE>(++lastHandle);
        searches[search] = 0;
        findNext(search, found);
        return search;
    });
    on<"FindNextFileA">([this](HANDLE search, LPWIN32_FIND_DATAA found) { return findNext(search, found); });
    on<"FindClose">([this](HANDLE search) -> WINBOOL { return searches.erase(search) != 0; });
}

WINBOOL ScriptedFiles::write(HANDLE file, LPCVOID bytes, DWORD size) {
    if (bytes == nullptr) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    contents[opened.at(file)].assign(static_cast<const char*>(bytes), size);
    return TRUE;
}

WINBOOL ScriptedFiles::move(const std::string& from, const std::string& to) {
    const auto found = contents.find(from);
    if (found == contents.end()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    contents[to] = std::move(found->second);
    contents.erase(from);
    return TRUE;
}

// Beside the peers' folders there are the two that every folder has.
WINBOOL ScriptedFiles::findNext(HANDLE search, LPWIN32_FIND_DATAA found) {
    const std::size_t position = searches.at(search)++;
    if (position >= peerFolders.size() + 2) {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    *found = {};
    found->dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    const std::string name = position == 0 ? "." : position == 1 ? ".." : peerFolders[position - 2];
    name.copy(found->cFileName, sizeof found->cFileName - 1);
    return TRUE;
}

unsigned long long ScriptedFiles::version(const std::string& path) const {
    if (!isWhole(path))
        return 0;
    const std::string& bytes = contents.at(path);
    return bytes == older ? 3 : bytes == newer ? 5 : 4;
}

bool ScriptedFiles::isWhole(const std::string& path) const {
    const auto found = contents.find(path);
    if (found == contents.end())
        return false;
    const std::string& bytes = found->second;
    return bytes == older || bytes == same || bytes == newer ||
           (bytes.starts_with("MZ") && bytes.size() >= smallestImage);
}
