// The keys below HKEY_LOCAL_MACHINE, in memory. Paths and names are matched without regard to case.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <map>
#include <string>

class ScriptedRegistry {
  public:
    struct CaseLess {
        bool operator()(const std::string& one, const std::string& other) const {
            return _stricmp(one.c_str(), other.c_str()) < 0;
        }
    };
    struct Value {
        DWORD type = REG_NONE;
        std::string data;
        bool operator==(const Value&) const = default;
    };
    using Key = std::map<std::string, Value, CaseLess>;

    ScriptedRegistry();
    ScriptedRegistry(const ScriptedRegistry&) = delete;
    ScriptedRegistry& operator=(const ScriptedRegistry&) = delete;

    std::map<std::string, Key, CaseLess> keys; // by path

    // A text with its end, a number.
    static Value text(const std::string& text) { return {REG_SZ, {text.c_str(), text.size() + 1}}; }
    static Value number(DWORD number) {
        return {REG_DWORD, {reinterpret_cast<const char*>(&number), sizeof number}};
    }

  private:
    std::string pathOf(HKEY key) const { return opened.at(key); }
    LSTATUS open(HKEY root, const std::string& path, REGSAM access, PHKEY key);
    LSTATUS query(HKEY key, const std::string& name, BYTE* data, DWORD* size);
    std::string childOf(HKEY key, DWORD index) const;

    ULONG_PTR lastHandle = 0x5000;
    std::map<HKEY, std::string> opened;
};
