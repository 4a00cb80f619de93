// The files and folders of a scripted computer, in memory: its drivers, and the folders of its peers.
#pragma once

#include "tests/kit/scripted_computer.h"
#include "tests/kit/scripted_ras.h"

#include <map>
#include <string>
#include <vector>

class ScriptedFiles {
  public:
    ScriptedFiles(const ScriptedComputer& computer, ScriptedRas& ras);
    ScriptedFiles(const ScriptedFiles&) = delete;
    ScriptedFiles& operator=(const ScriptedFiles&) = delete;

    // Contents of a driver's file, by which its version is told; the carried images are as `same`.
    static constexpr char older[] = "driver 3";
    static constexpr char same[] = "driver 4";
    static constexpr char newer[] = "driver 5";

    std::map<std::string, std::string, ScriptedRegistry::CaseLess> contents; // by path
    std::vector<std::string> peerFolders;

    bool has(const std::string& path) const { return contents.contains(path); }
    // A driver's file that Windows could load: one of the three, or a carried image to its end.
    bool isWhole(const std::string& path) const;

  private:
    void answerForFiles(const ScriptedComputer& computer, ScriptedRas& ras);
    void answerForSearches();
    WINBOOL write(HANDLE file, LPCVOID bytes, DWORD size);
    WINBOOL move(const std::string& from, const std::string& to);
    WINBOOL findNext(HANDLE search, LPWIN32_FIND_DATAA found);
    unsigned long long version(const std::string& path) const;

    ULONG_PTR lastHandle = 0x9000'0000;
    std::map<HANDLE, std::string> opened;
    std::map<HANDLE, std::size_t> searches; // by handle, the position
};
