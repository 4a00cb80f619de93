// How the remote-access service reports the progress of a dial attempt.
#include "Varnel.h"
#include "call_trace.h"
#include "log_line.h"
#include "outside/Helper.h"
#include "ras_queries.h"

#include <algorithm>
#include <iterator>

#include <raserror.h>

namespace {

constexpr DWORD keepNotifying = 1;
constexpr DWORD stopNotifying = 0;

struct StateText {
    long state;
    const char* text;
};

constexpr StateText stateTexts[] = {
    {0, "Opening port..."},
    {1, "Port opened."},
    {2, "Connecting device..."},
    {3, "Device connected."},
    {4, "All devices connected."},
    {5, "Authenticating..."},
    {6, "Authentication notify."},
    {7, "Retrying authentication..."},
    {8, "Authentication callback..."},
    {9, "Change password..."},
    {10, "Projection phase started..."},
    {11, "Negoting speed..."},
    {12, "Authentication acknowledge..."},
    {13, "Retrying Authentication..."},
    {14, "Authentication complete."},
    {15, "Preparing for callback..."},
    {16, "Waiting for modem reset..."},
    {17, "Waiting for callback..."},
    {18, "Projection completed."},
    {19, "Starting authentication..."},
    {20, "Callback complete."},
    {21, "Login to the network."},
    {22, "Subentry connected."},
    {23, "Subentry disconnected."},
    {0x1000, "In Paused state: Interactive mode."},
    {0x1001, "In Paused state: Retry Authentication..."},
    {0x1002, "In Paused state: Callback set by Caller."},
    {0x1003, "In Paused state: Password has expired..."},
    {0x2000, "Connection completed."},
    {0x2001, "Disconnecting..."},
};

std::string stateText(RASCONNSTATE state) {
    const auto known =
        std::find_if(std::begin(stateTexts), std::end(stateTexts),
                     [state](const StateText& entry) { return entry.state == static_cast<long>(state); });
    if (known != std::end(stateTexts))
        return known->text;
    return "Unknown Status=" + int2stru(static_cast<unsigned long>(state));
}

void logNotification(DWORD callbackId, RASCONNSTATE state, DWORD error, DWORD error2) {
    if (error == 0 && error2 == 0)
        LOG_LINE(3, "rasDialFunc2: callback id " + int2stru(callbackId) + ", state " + stateText(state) +
                        ", error 0, erro2 0");
    else
        LOG_LINE(2, "rasDialFunc2: callback id " + int2stru(callbackId) + ", state " + stateText(state) +
                        ", error " + int2stru(error) + ", error2 " + int2stru(error2));
}

void logOutcome(RASCONNSTATE state, DWORD error) {
    if (error != 0) {
        const std::string text = errorText<256>(error);
        LOG_LINE(2, "Error: " + int2stru(error) + " - " + text);
    } else if (state == RASCS_Connected) {
        LOG_LINE(3, "Connection completed.");
    } else if (state == RASCS_Disconnected) {
        LOG_LINE(3, "Disconnecting...");
    }
}

bool endsAttempt(RASCONNSTATE state, DWORD error) {
    return error != 0 || state == RASCS_Connected || state == RASCS_Disconnected;
}

void recordNotification(DIALUP_CALLBACK::ITEM& item, HRASCONN hConn, RASCONNSTATE state, DWORD error,
                        DWORD error2) {
    const bool disconnected = error == 0 && state == RASCS_Disconnected;
    item.error = disconnected ? ERROR_ALREADY_DISCONNECTING : error;
    item.error2 = error2;
    item.hConn = hConn;
}

// Wakes the dialling thread when its attempt has ended; the notifier's answer.
DWORD settleAttempt(DIALUP_CALLBACK::ITEM& item, RASCONNSTATE state, DWORD error) {
    if (!endsAttempt(state, error))
        return keepNotifying;
    SetEvent(item.hEvent);
    return stopNotifying;
}

// The outcome without a record, for want of memory.
DWORD settleUnlogged(DIALUP_CALLBACK& registry, DWORD callbackId, HRASCONN hConn, RASCONNSTATE state,
                     DWORD error, DWORD error2) {
    const boost::shared_ptr<DIALUP_CALLBACK::ITEM> item = registry.findItem(callbackId);
    if (!item)
        return stopNotifying;
    recordNotification(*item, hConn, state, error, error2);
    return settleAttempt(*item, state, error);
}

} // namespace

long VARNEL::getCallbackIdIndex() {
    const long index = InterlockedIncrement(&callbackIdIndex);
    return index != 0 ? index : InterlockedIncrement(&callbackIdIndex);
}

std::string VARNEL::getStateString(RASCONNSTATE state) {
    return stateText(state);
}

// Runs on a thread of the service, into which no exception may pass. When a record cannot be built for want
// of memory, the attempt still gets its outcome.
DWORD CALLBACK VARNEL::rasDialFunc2(DWORD callbackId, DWORD, HRASCONN hConn, unsigned int, RASCONNSTATE state,
                                    DWORD error, DWORD error2) {
    try {
        const CallTrace trace("VARNEL::rasDialFunc2", int2stru(callbackId), __LINE__, 3);
        logNotification(callbackId, state, error, error2);
        const boost::shared_ptr<DIALUP_CALLBACK::ITEM> item = callback.findItem(callbackId);
        if (!item) {
            LOG_LINE(2, "Can't find item, callbackid " + int2stru(callbackId));
            return stopNotifying;
        }
        recordNotification(*item, hConn, state, error, error2);
        logOutcome(state, error);
        return settleAttempt(*item, state, error);
    } catch (...) {
        return settleUnlogged(callback, callbackId, hConn, state, error, error2);
    }
}
