// The library's private operations and data, by name. They are exported, so their addresses are there for the
// asking; an explicit instantiation may name what is private.
#pragma once

#include "varnel/Varnel.h"

namespace privates {

template<class TAG, typename TAG::Type MEMBER>
struct Access {
    friend typename TAG::Type memberOf(TAG) { return MEMBER; }
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

#define PRIVATE_OPERATION(name, result, ...)                                                                 \
    using name##Type = result(__VA_ARGS__);                                                                  \
    PRIVATE_MEMBER(name, name##Type, VARNEL::name)

PRIVATE_MEMBER(items, Attempts, DIALUP_CALLBACK::items)
PRIVATE_MEMBER(callbackIdIndex, volatile long, VARNEL::callbackIdIndex)
PRIVATE_MEMBER(isWin6Plus, bool, VARNEL::isWin6Plus)
PRIVATE_MEMBER(onlyClient, bool, VARNEL::onlyClient)
PRIVATE_MEMBER(publicPhoneBook, std::string, VARNEL::publicPhoneBook)
PRIVATE_MEMBER(pptpsrvDialDownCallback, HostsFunction, VARNEL::pptpsrvDialDownCallback)

// Those that no public operation leads to, or that a public one does not show.
PRIVATE_OPERATION(getStateString, std::string, RASCONNSTATE)
PRIVATE_OPERATION(dialUp2, DWORD, const std::string&, const std::string&, bool, bool, DWORD)
PRIVATE_OPERATION(dialDownSameIp, bool, DWORD)
PRIVATE_OPERATION(getAllActiveEntry, std::list<std::string>)
PRIVATE_OPERATION(getEntryStatus, bool, const std::string&)
PRIVATE_OPERATION(uninstallDriverAndDeleteKestrin, void)
PRIVATE_OPERATION(uninstallDriverAndDeleteSOmbrel, void)
PRIVATE_OPERATION(setKestrinChgPort, bool, bool)
PRIVATE_OPERATION(setLocation, bool, const std::string&)
PRIVATE_OPERATION(chgWanEndPoints, bool)

} // namespace privates
