// The library's private operations and data, by name. They are exported, so their addresses are there for the
// asking; an explicit instantiation may name what is private.
#pragma once

#include "varnel/Varnel.h"

namespace privates {

template<class Tag, typename Tag::Type Member>
struct Access {
    friend typename Tag::Type memberOf(Tag) { return Member; }
};

#define PRIVATE_MEMBER(alias, type, ...)                                                                     \
    struct alias##Tag {                                                                                      \
        using Type = type*;                                                                                  \
        friend Type memberOf(alias##Tag);                                                                    \
    };                                                                                                       \
    template struct Access<alias##Tag, &__VA_ARGS__>;                                                        \
    inline type& alias = *memberOf(alias##Tag{});

using HostsFunction = void (*)(const std::string&);
using Attempts = std::map<unsigned int, boost::shared_ptr<DIALUP_CALLBACK::ITEM>>;
using EntryPlace = std::pair<std::string, std::string>;
using EntryNames = std::list<RASENTRYNAMEA>;
using Texts = std::list<std::string>;
using DialParams = RASDIALPARAMSA;
using DriverPath = char[260];

#define PRIVATE_OPERATION(name, result, ...)                                                                 \
    using name##Type = result(__VA_ARGS__);                                                                  \
    PRIVATE_MEMBER(name, name##Type, VARNEL::name)

PRIVATE_MEMBER(items, Attempts, DIALUP_CALLBACK::items)
PRIVATE_MEMBER(itemsLock, boost::recursive_mutex, DIALUP_CALLBACK::itemsLock)
PRIVATE_MEMBER(callbackIdIndex, volatile long, VARNEL::callbackIdIndex)
PRIVATE_MEMBER(isWin6Plus, bool, VARNEL::isWin6Plus)
PRIVATE_MEMBER(onlyClient, bool, VARNEL::onlyClient)
PRIVATE_MEMBER(publicPhoneBook, std::string, VARNEL::publicPhoneBook)
PRIVATE_MEMBER(pptpsrvDialDownCallback, HostsFunction, VARNEL::pptpsrvDialDownCallback)
PRIVATE_MEMBER(pathNameKestrin, DriverPath, VARNEL::pathNameKestrin)
PRIVATE_MEMBER(pathNameOmbrel, DriverPath, VARNEL::pathNameOmbrel)
PRIVATE_MEMBER(s1723, SOCKET, VARNEL::s1723)

PRIVATE_OPERATION(getPathName, void)
PRIVATE_OPERATION(getCallbackIdIndex, long)
PRIVATE_OPERATION(rasDialFunc2, DWORD, DWORD, DWORD, HRASCONN, unsigned int, RASCONNSTATE, DWORD, DWORD)
PRIVATE_OPERATION(getStateString, std::string, RASCONNSTATE)
PRIVATE_OPERATION(dialUp3, DWORD, const std::string&, DialParams&, DWORD, HRASCONN*)
PRIVATE_OPERATION(dialUp2, DWORD, const std::string&, const std::string&, bool, bool, DWORD)
PRIVATE_OPERATION(getPublicPhoneBook, void)
PRIVATE_OPERATION(getPhoneBook, std::string, const std::string&, bool)
PRIVATE_OPERATION(removePhoneBook, bool, const std::string&)
PRIVATE_OPERATION(createEntry, EntryPlace, VARNEL::INFO*, bool, bool)
PRIVATE_OPERATION(getEntryNameWithSuffix, std::string, const std::string&, bool)
PRIVATE_OPERATION(getAllEntries, EntryNames, const std::string&)
PRIVATE_OPERATION(getCurrentEntryName, std::string, const std::string&, const std::string&)
PRIVATE_OPERATION(matchId, bool, const std::string&, const std::string&)
PRIVATE_OPERATION(removeEntry, bool, const std::string&, const std::string&)
PRIVATE_OPERATION(removeEntries, void, const Texts&)
PRIVATE_OPERATION(clearAllEntry, bool)
PRIVATE_OPERATION(dialDownSameIp, bool, DWORD)
PRIVATE_OPERATION(dialDownAllPptp, bool)
PRIVATE_OPERATION(getAllActiveEntry, Texts)
PRIVATE_OPERATION(getEntryStatus, bool, const std::string&)
PRIVATE_OPERATION(loadMprFunctions, bool)
PRIVATE_OPERATION(setPptpPorts, bool, bool, DWORD, DWORD, DWORD)
PRIVATE_OPERATION(getCurrentPptpPorts, bool, DWORD*, DWORD*, DWORD*)
PRIVATE_OPERATION(setWanEndpointsToRegistry, bool, const std::string&, DWORD, DWORD)
PRIVATE_OPERATION(getWanEndPointsFromRegistry, bool, const std::string&, DWORD*, DWORD*, DWORD*)
PRIVATE_OPERATION(chgWanEndPoints, bool)
PRIVATE_OPERATION(bind1723, bool, DWORD, bool)
PRIVATE_OPERATION(close1723, bool)
PRIVATE_OPERATION(copyDriverFromResource, bool, const std::string&, const std::string&)
PRIVATE_OPERATION(installDriver, bool, const char*, const char*, DWORD)
PRIVATE_OPERATION(removeDriver, bool, const char*)
PRIVATE_OPERATION(tryinstallDriverAndLaunchKestrin, bool)
PRIVATE_OPERATION(chkKestrinStartTypeToBoot, void)
PRIVATE_OPERATION(uninstallDriverAndDeleteKestrin, void)
PRIVATE_OPERATION(setKestrinChgPort, bool, bool)
PRIVATE_OPERATION(tryinstallDriverAndLaunchOmbrel, bool)
PRIVATE_OPERATION(uninstallDriverAndDeleteSOmbrel, void)
PRIVATE_OPERATION(setLocation, bool, const std::string&)
PRIVATE_OPERATION(addKeepRasConnections, void)

// The hang-up by handle shares its name with the public one by peer id.
using hangUpType = bool(HRASCONN, const std::string&);
PRIVATE_MEMBER(hangUp, hangUpType, VARNEL::dialDown)

} // namespace privates
