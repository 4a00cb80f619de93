// Where phonebook files are.
#include "Varnel.h"
#include "fields.h"
#include "log_line.h"
#include "outside/Helper.h"

#include <shlobj.h>

namespace {

constexpr char privatePhoneBookName[] = "pptp.pbk";
constexpr char publicPhoneBookTail[] = "Microsoft\\Network\\Connections\\Pbk\\rasphone.pbk";

// None for an id with a zero inside, which would be taken for the peer whose id ends there.
std::string privatePhoneBook(const std::string& id) {
    if (id.find('\0') != std::string::npos)
        return {};
    return GetPrivateConfigPathName(id.c_str(), privatePhoneBookName);
}

} // namespace

void VARNEL::getPublicPhoneBook() {
    publicPhoneBook.clear();
    char folder[MAX_PATH] = {};
    if (SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT,
                         folder) != S_OK) {
        const DWORD error = GetLastError();
        LOG_LINE(2, "SHGetFolderPath(CSIDL_COMMON_APPDATA) fail, error " + int2stru(error));
        return;
    }
    std::string path = textOfField(folder);
    if (path.empty())
        return;
    if (path.back() != '\\')
        path += '\\';
    path += publicPhoneBookTail;
    if (path.size() >= MAX_PATH) {
        LOG_LINE(2, "PublicPhoneBook path too long: " + path);
        return;
    }
    publicPhoneBook = path;
    LOG_LINE(3, "PublicPhoneBook " + publicPhoneBook);
}

std::string VARNEL::getPhoneBook(const std::string& id, bool usePublicPhoneBook) {
    return usePublicPhoneBook ? publicPhoneBook : privatePhoneBook(id);
}

bool VARNEL::removePhoneBook(const std::string& id) {
    if (id.empty())
        return false;
    if (isWin6Plus)
        return true;
    return DeleteFileA(privatePhoneBook(id).c_str()) != FALSE;
}
