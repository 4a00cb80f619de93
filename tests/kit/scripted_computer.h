// A computer in memory, as the library prepares it: Windows' generation, registry, services, TCP port 1723.
// Only its system folder and its working folder are real ones, made for this test alone, unless a test says
// that it has files of its own.
#pragma once

#include "scripted_registry.h"

#include <map>
#include <string>
#include <vector>

class ScriptedComputer {
  public:
    enum class Folders { Real, None };
    // 32-bit Windows XP with both miniports at their wanted counts, all services enabled, the port free.
    explicit ScriptedComputer(Folders folders = Folders::Real);
    ~ScriptedComputer();
    ScriptedComputer(const ScriptedComputer&) = delete;
    ScriptedComputer& operator=(const ScriptedComputer&) = delete;

    static constexpr char adapterClass[] =
        "SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E972-E325-11CE-BFC1-08002bE10318}";
    static constexpr char winLogon[] = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\WinLogon";

    bool chinese = false;
    bool win6 = false;
    bool is64 = false;
    bool win2K = false;
    bool winXP = true;

    struct Service {
        bool enabled = true;
        bool canBeEnabled = true;
        DWORD refusesToStop = 0; // how often
    };
    std::map<std::string, Service> services;
    // How a driver's service answers: to the request to stop, and then when asked for its state.
    DWORD stopError = 0;
    std::vector<DWORD> states = {SERVICE_STOPPED}; // the last one holds

    // Of the drivers' files.
    unsigned long long installedVersion = 4;
    unsigned long long carriedVersion = 4;

    DWORD portTakenFor = 0; // that many more bindings fail
    DWORD portHolder = 0;
    std::wstring portHolderName;

    ScriptedRegistry registry;

    void setMiniport(const std::string& key, const std::string& deviceId, DWORD max, DWORD count);

    const std::string systemFolder;
    const std::string peersFolder;
    std::string kestrinFile() const { return systemFolder + "\\Drivers\\KESTRIN.SYS"; }
    std::string ombrelFile() const { return systemFolder + "\\Drivers\\Ombrel.SYS"; }
    void makePeerFolder(const std::string& name) const;
    static void writeFile(const std::string& path, const std::string& bytes);
    static std::string readFile(const std::string& path); // "none" when there is none

  private:
    void answerForSystem();
    void answerForServices();
    void answerForDrivers();
    void answerForPort();

    const std::string folder;
    const Folders folders;
    ULONG_PTR lastHandle = 0x7000;
    std::map<SC_HANDLE, std::string> opened;
};
