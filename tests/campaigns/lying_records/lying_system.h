// A system whose every answer to the library is a lie within the bounds of the buffers it is given; what the
// library asks of it is held against what it may ask.
#pragma once

#include "tests/campaigns/lies.h"
#include "tests/kit/virtual_clock.h"

class LyingRas {
  public:
    LyingRas(Lies& lies, VirtualClock& clock);
    LyingRas(const LyingRas&) = delete;
    LyingRas& operator=(const LyingRas&) = delete;

  private:
    DWORD enumerateConnections(LPRASCONNA first, LPDWORD size, LPDWORD count);
    DWORD enumerateEntries(LPRASENTRYNAMEA first, LPDWORD size, LPDWORD count);
    DWORD setProperties(LPCSTR name, LPRASENTRYA entry, DWORD size);
    DWORD setDialParams(LPRASDIALPARAMSA params);
    DWORD getDialParams(LPRASDIALPARAMSA params);
    DWORD rename(LPCSTR oldName, LPCSTR newName);
    DWORD remove(LPCSTR name);
    DWORD dial(LPRASDIALPARAMSA params, LPVOID notifier, LPHRASCONN conn);
    DWORD hangUp(HRASCONN conn);
    DWORD status(LPRASCONNSTATUSA record);
    DWORD projection(LPRASPPPIPA record, LPDWORD size);
    DWORD errorString(LPSTR text, DWORD room);

    Lies& lies;
    VirtualClock& clock;
};

class LyingComputer {
  public:
    explicit LyingComputer(Lies& lies);
    ~LyingComputer();
    LyingComputer(const LyingComputer&) = delete;
    LyingComputer& operator=(const LyingComputer&) = delete;

  private:
    void lieAboutFolders();
    void lieAboutFiles();
    void lieAboutRegistry();
    void lieAboutServices();
    void lieAboutRouter();
    void lieAboutNetworks();
    void lieAboutPort();

    bool yes() { return lies.code({ERROR_ACCESS_DENIED}) == 0; }
    // Windows' way to say no.
    WINBOOL agree();
    template<class HANDLE_TYPE>
    HANDLE_TYPE handleOr(HANDLE_TYPE none) {
        return agree() != FALSE ? reinterpret_cast<HANDLE_TYPE>(++lastHandle) : none;
    }
    WINBOOL findFile(LPWIN32_FIND_DATAA found);
    LSTATUS queryValue(LPCSTR name, LPBYTE data, LPDWORD size);

    Lies& lies;
    ULONG_PTR lastHandle = 0x7000;
};
