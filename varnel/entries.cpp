// The peers' entries in phonebooks: how they are written, found and removed.
#include "Varnel.h"
#include "call_trace.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "owners.h"
#include "ras_records.h"

#include <algorithm>

#include <raserror.h>

namespace {

constexpr int maxEnumerations = 5;

constexpr DWORD encryptedOptions = RASEO_RequireEncryptedPw | RASEO_RequireMsEncryptedPw |
                                   RASEO_RequireDataEncryption | RASEO_RequireMsCHAP2;
constexpr DWORD plainOptions = RASEO_Custom | RASEO_RequireCHAP;
static_assert(encryptedOptions == 0x20001C00 && plainOptions == 0x08100000);

RASENTRYA pptpEntry(unsigned long ip, bool requireEncryption) {
    RASENTRYA entry = {};
    entry.dwSize = rasEntrySize;
    entry.dwfOptions = requireEncryption ? encryptedOptions : plainOptions;
    copyToField(entry.szLocalPhoneNumber, ip2string(ip));
    entry.dwfNetProtocols = RASNP_Ip;
    entry.dwFramingProtocol = RASFP_Ppp;
    copyToField(entry.szDeviceType, RASDT_Vpn);
    entry.dwIdleDisconnectSeconds = RASIDS_Disabled;
    entry.dwType = RASET_Vpn;
    entry.dwEncryptionType = requireEncryption ? ET_Require : ET_Optional;
    entry.dwVpnStrategy = VS_PptpOnly;
    return entry;
}

// Stores the user name with an entry and removes the password stored there, if any.
DWORD storeUserName(const std::string& phoneBook, const std::string& entryName, const std::string& id) {
    RASDIALPARAMSA params = {};
    params.dwSize = rasDialParamsSize;
    copyToField(params.szEntryName, entryName);
    copyToField(params.szUserName, id);
    return RasSetEntryDialParamsA(phoneBookArgument(phoneBook), &params, TRUE);
}

// One enumeration into a buffer of `size` bytes, which becomes the size wanted when that was too small.
DWORD enumerateEntries(const std::string& phoneBook, DWORD& size, std::list<RASENTRYNAMEA>& entries) {
    const DWORD room = std::max(size, rasEntryNameSize);
    const Owner<HeapBlock> block(HeapAlloc(GetProcessHeap(), 0, room));
    if (!block)
        return ERROR_NOT_ENOUGH_MEMORY;
    auto* const names = static_cast<RASENTRYNAMEA*>(block.get());
    names->dwSize = rasEntryNameSize;
    DWORD count = 0;
    size = room;
    const DWORD error = RasEnumEntriesA(nullptr, phoneBookArgument(phoneBook), names, &size, &count);
    if (error == 0)
        entries.assign(names, names + std::min(count, room / rasEntryNameSize));
    return error;
}

} // namespace

std::pair<std::string, std::string> VARNEL::createEntry(INFO* info, bool usePublicPhoneBook,
                                                        bool requireEncryption) {
    std::string unused;
    if (info == nullptr || info->id.empty() || !CheckIdFormat(nullptr, info->id, nullptr, nullptr, &unused) ||
        info->ip == 0)
        return {};
    RASENTRYA entry = pptpEntry(info->ip, requireEncryption);
    const std::string phoneBook = getPhoneBook(info->id, usePublicPhoneBook);
    std::string entryName = getCurrentEntryName(phoneBook, info->id);
    if (entryName.empty())
        entryName = getEntryNameWithSuffix(info->id, false);
    if (entryName.size() > RAS_MaxEntryName || info->id.size() > UNLEN)
        return {};
    const std::string place = phoneBook + ":" + entryName;

    DWORD error = RasSetEntryPropertiesA(phoneBookArgument(phoneBook), entryName.c_str(), &entry,
                                         rasEntrySize, nullptr, 0);
    if (error != 0) {
        LOG_LINE(2, "RasSetEntryProperties fail " + place + " error " + int2stru(error));
        return {};
    }
    error = storeUserName(phoneBook, entryName, info->id);
    if (error != 0) {
        LOG_LINE(2, "RasSetEntryDialParams fail " + place + " error " + int2stru(error));
        return {};
    }
    LOG_LINE(3, "RasSetEntryDialParams SUCCESS " + place);
    return {phoneBook, entryName};
}

std::list<RASENTRYNAMEA> VARNEL::getAllEntries(const std::string& phoneBook) {
    std::list<RASENTRYNAMEA> entries;
    if (!phoneBook.empty() && !IsFileExist(phoneBook.c_str()))
        return entries;
    DWORD size = rasEntryNameSize;
    DWORD error = ERROR_BUFFER_TOO_SMALL;
    for (int attempts = maxEnumerations; attempts > 0 && error == ERROR_BUFFER_TOO_SMALL; --attempts)
        error = enumerateEntries(phoneBook, size, entries);
    if (error != 0)
        LOG_LINE(2, "RasEnumEntries failed: error " + int2stru(error));
    return entries;
}

std::string VARNEL::getCurrentEntryName(const std::string& phoneBook, const std::string& id) {
    for (const RASENTRYNAMEA& entry : getAllEntries(phoneBook)) {
        std::string name = textOfField(entry.szEntryName);
        if (matchId(name, id))
            return name;
    }
    return {};
}

bool VARNEL::removeEntry(const std::string& phoneBook, const std::string& entryName) {
    if (entryName.empty())
        return false;
    if (isWin6Plus)
        return true;
    const CallTrace trace("VARNEL::removeEntry", phoneBook + ":" + entryName, __LINE__, 3);
    const DWORD error = RasDeleteEntryA(phoneBookArgument(phoneBook), entryName.c_str());
    if (error != 0)
        LOG_LINE(2, "RasDeleteEntry fail " + phoneBook + ":" + entryName + " error " + int2stru(error));
    return error == 0;
}

void VARNEL::removeEntries(const std::list<std::string>& ids) {
    if (ids.empty() || isWin6Plus)
        return;
    for (const RASENTRYNAMEA& entry : getAllEntries("")) {
        const std::string name = textOfField(entry.szEntryName);
        const std::string phoneBook = textOfField(entry.szPhonebookPath);
        for (const std::string& id : ids) {
            if (matchId(name, id)) {
                removeEntry(phoneBook, name);
                break;
            }
        }
    }
}
