// The system's network list, in memory: what it tells of each network, and what it refuses.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <netlistmgr.h>

#include <string>
#include <vector>

namespace network_list {

// A network as the system tells of it, and what it refuses.
struct Net {
    std::wstring name;
    int category = NLM_NETWORK_CATEGORY_PUBLIC;
    bool nameFails = false, categoryFails = false, setFails = false, networkFails = false;
    bool nameIsNull = false, connectionIsNull = false, networkIsNull = false; // in calls that succeed
};

struct Script {
    std::vector<Net> nets;
    HRESULT end = S_FALSE; // of Next, behind the last one
    bool enumerationFails = false;
    std::vector<std::string> calls;
    long objects = 0; // not yet released
    long texts = 0;   // not yet freed
};
inline Script script;

// From here on the library meets this network list; `script` starts anew.
void install();

} // namespace network_list
