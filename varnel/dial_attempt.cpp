// One asynchronous dial, turned into a call that waits for its end.
#include "Varnel.h"
#include "call_trace.h"
#include "log_line.h"
#include "module_instance.h"
#include "outside/Helper.h"
#include "ras_queries.h"

#include <raserror.h>

namespace {

constexpr DWORD notifierTypeRasDialFunc2 = 2;

// An attempt is registered for as long as somebody waits for it; later notifications find nothing.
class Registration {
  public:
    Registration(DIALUP_CALLBACK& attempts, unsigned int id)
        : registry(attempts), callbackId(id), item(registry.addItem(callbackId)) {}
    ~Registration() { registry.removeItem(callbackId); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    const DIALUP_CALLBACK::ITEM& attempt() const { return *item; }

  private:
    DIALUP_CALLBACK& registry;
    const unsigned int callbackId;
    const boost::shared_ptr<DIALUP_CALLBACK::ITEM> item;
};

// A dial goes on in the service after its time limit, and notifies even then: the library may not be gone.
void stayLoaded() {
    HMODULE self = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCSTR>(moduleInstance), &self);
}

DWORD waitForEnd(const DIALUP_CALLBACK::ITEM& attempt, DWORD timeout) {
    switch (WaitForSingleObject(attempt.hEvent, timeout)) {
    case WAIT_OBJECT_0:
        return attempt.error;
    case WAIT_TIMEOUT:
        LOG_LINE(2, "dialUp3 TIMEOUT");
        return 0;
    default:
        const DWORD error = GetLastError();
        LOG_LINE(2, "dialUp3 WaitForSingleObject fail, error " + int2stru(error));
        return error;
    }
}

void logPppAddress(HRASCONN conn) {
    if (const std::optional<std::string> address = pppAddress(conn))
        LOG_LINE(3, "Dial success, got pptp ip " + *address);
    else
        LOG_LINE(2, "Dial success, but can't get ppp ip");
}

} // namespace

DWORD VARNEL::dialUp3(const std::string& phoneBook, RASDIALPARAMSA& dialParams, DWORD timeout,
                      HRASCONN* conn) {
    const CallTrace trace("VARNEL::dialUp3", "", __LINE__, 3);
    stayLoaded();
    const long callbackId = getCallbackIdIndex();
    dialParams.dwCallbackId = static_cast<ULONG_PTR>(static_cast<LONG_PTR>(callbackId));

    DWORD result = 0;
    {
        const Registration registration(callback, static_cast<unsigned int>(dialParams.dwCallbackId));
        result = RasDialA(nullptr, phoneBookArgument(phoneBook), &dialParams, notifierTypeRasDialFunc2,
                          reinterpret_cast<LPVOID>(&rasDialFunc2), conn);
        if (result == 0)
            result = waitForEnd(registration.attempt(), timeout);
        else
            LOG_LINE(2, "RasDial fail, error " + int2stru(result));
    }
    if (result == 0)
        logPppAddress(*conn);
    return result;
}
