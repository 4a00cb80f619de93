#include "phonebook_file.h"

#include "outside/Helper.h"
#include "text.h"

#include <windows.h>

#include <fstream>
#include <memory>

#include <shlobj.h>

namespace {

constexpr std::string_view addressKey = "PhoneNumber=";

// Opened and let go of; the code of a failure.
unsigned long openingError(const std::filesystem::path& path, DWORD access) {
    HANDLE const file =
        CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError();
    CloseHandle(file);
    return ERROR_SUCCESS;
}

} // namespace

Phonebook readPhonebook(const std::filesystem::path& file) {
    Phonebook phonebook{.error = openingError(file, GENERIC_READ)};
    std::error_code unknown;
    if (phonebook.error == 0 && std::filesystem::is_directory(file, unknown))
        phonebook.error = ERROR_ACCESS_DENIED;
    if (phonebook.error == ERROR_PATH_NOT_FOUND)
        phonebook.error = ERROR_FILE_NOT_FOUND;
    if (phonebook.error != 0)
        return phonebook;
    std::ifstream lines(file, std::ios::binary);
    for (std::string line; std::getline(lines, line);) {
        if (line.ends_with('\r'))
            line.pop_back();
        if (line.starts_with('[') && line.ends_with(']'))
            phonebook.entries.push_back({line.substr(1, line.size() - 2), ""});
        else if (line.starts_with(addressKey) && !phonebook.entries.empty())
            phonebook.entries.back().address = line.substr(addressKey.size());
    }
    return phonebook;
}

std::filesystem::path privatePhonebook(const std::string& id) {
    return wideFromAnsi(GetPrivateConfigPathName(id.c_str(), "pptp.pbk"));
}

std::filesystem::path publicPhonebook() {
    wchar_t folder[MAX_PATH] = L"";
    SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder);
    return std::filesystem::path(folder) / L"Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk";
}

unsigned long writable(const std::filesystem::path& path) {
    std::error_code unknown;
    return openingError(path, std::filesystem::is_directory(path, unknown)
                                  ? FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY
                                  : GENERIC_WRITE);
}
