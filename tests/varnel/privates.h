// The library's private operations and data, by name. They are exported, so their addresses are there for the
// asking; an explicit instantiation may name what is private.
#pragma once

#include "varnel/Varnel.h"

#include <boost/shared_ptr.hpp>

#include <windows.h>
#include <ras.h>

namespace privates {

template<class Tag, typename Tag::Type Member>
struct Access {
    friend typename Tag::Type memberOf(Tag) { return Member; }
};

#define PRIVATE_MEMBER(owner, name, ...)                                                                     \
    struct name##Tag {                                                                                       \
        using Type = std::type_identity_t<__VA_ARGS__>*;                                                     \
        friend Type memberOf(name##Tag);                                                                     \
    };                                                                                                       \
    template struct Access<name##Tag, &owner::name>;                                                         \
    inline auto& name = *memberOf(name##Tag{});

PRIVATE_MEMBER(DIALUP_CALLBACK, items, std::map<unsigned int, boost::shared_ptr<DIALUP_CALLBACK::ITEM>>)
PRIVATE_MEMBER(VARNEL, callbackIdIndex, volatile long)
PRIVATE_MEMBER(VARNEL, isWin6Plus, bool)
PRIVATE_MEMBER(VARNEL, onlyClient, bool)
PRIVATE_MEMBER(VARNEL, publicPhoneBook, std::string)
PRIVATE_MEMBER(VARNEL, pptpsrvDialDownCallback, void (*)(const std::string&))

// Those that no public operation leads to, or that a public one does not show.
__declspec(dllimport) std::string getStateString(RASCONNSTATE) __asm__(
    "_ZN6VARNEL14getStateStringB5cxx11E15tagRASCONNSTATE"); // the header declares it for the library alone
PRIVATE_MEMBER(VARNEL, dialUp2, DWORD(const std::string&, const std::string&, bool, bool, DWORD))
PRIVATE_MEMBER(VARNEL, removePhoneBook, bool(const std::string&))
PRIVATE_MEMBER(VARNEL, dialDownSameIp, bool(DWORD))
PRIVATE_MEMBER(VARNEL, getAllActiveEntry, std::list<std::string>())
PRIVATE_MEMBER(VARNEL, getEntryStatus, bool(const std::string&))
PRIVATE_MEMBER(VARNEL, uninstallDriverAndDeleteKestrin, void())
PRIVATE_MEMBER(VARNEL, uninstallDriverAndDeleteSOmbrel, void())
PRIVATE_MEMBER(VARNEL, setKestrinChgPort, bool(bool))
PRIVATE_MEMBER(VARNEL, setLocation, bool(const std::string&))
PRIVATE_MEMBER(VARNEL, chgWanEndPoints, bool())

} // namespace privates
