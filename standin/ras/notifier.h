// The caller's function that is told how a dial goes, in one of its three forms.
#pragma once

#include <windows.h>
#include <ras.h>

namespace standin {

class Notifier {
  public:
    // None: the dial is synchronous.
    Notifier() = default;
    // `type` is 0, 1 or 2, for RasDialFunc, RasDialFunc1 and RasDialFunc2.
    Notifier(DWORD notifierType, void* notifierFunction, ULONG_PTR dialCallbackId)
        : type(notifierType), function(notifierFunction), callbackId(dialCallbackId) {}

    explicit operator bool() const { return function != nullptr; }

    // Calls the function; false when it wants no more calls.
    bool tell(HRASCONN handle, RASCONNSTATE state, DWORD error) const {
        constexpr DWORD onlySubEntry = 1;
        switch (type) {
        case 0:
            reinterpret_cast<RASDIALFUNC>(function)(WM_RASDIALEVENT, state, error);
            return true;
        case 1:
            reinterpret_cast<RASDIALFUNC1>(function)(handle, WM_RASDIALEVENT, state, error, 0);
            return true;
        default:
            return reinterpret_cast<RASDIALFUNC2>(function)(callbackId, onlySubEntry, handle, WM_RASDIALEVENT,
                                                            state, error, 0) != 0;
        }
    }

  private:
    DWORD type = 0;
    void* function = nullptr;
    ULONG_PTR callbackId = 0;
};

} // namespace standin
