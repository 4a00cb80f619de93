// Copies of Log.dll that are loaded for one test, the environment they find, and the files they write.
#pragma once

#include "outside/Log.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

inline constexpr char LevelName[] = "_ZN3LOG5levelE";
inline constexpr char PrintName[] = "_ZN3LOG5printEiPKclS1_z";
inline constexpr char PrintsName[] =
    "_ZN3LOG6printsEiPKclRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE";

inline fs::path modulePath(const wchar_t* module) {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(GetModuleHandleW(module), path, MAX_PATH);
    return path;
}

class TestFolder {
  public:
    TestFolder() : path(fs::temp_directory_path() / ("log_test." + std::to_string(GetCurrentProcessId()))) {
        fs::remove_all(path);
        fs::create_directories(path);
    }
    ~TestFolder() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }

    const fs::path path;
};

class Environment {
  public:
    Environment(const wchar_t* n, const std::wstring& value) : name(n) {
        SetEnvironmentVariableW(name, value.c_str());
    }
    ~Environment() { SetEnvironmentVariableW(name, nullptr); }

  private:
    const wchar_t* name;
};

// A copy of Log.dll, loaded afresh with the settings beside it and unloaded again.
class LogCopy {
  public:
    explicit LogCopy(const fs::path& folder, const std::string& settings = {}) {
        const fs::path dll = folder / "Log.dll";
        fs::copy_file(modulePath(L"Log.dll"), dll, fs::copy_options::overwrite_existing);
        if (!settings.empty())
            std::ofstream(folder / "Log.ini") << "[log]\n" << settings;
        module = LoadLibraryW(dll.c_str());
        REQUIRE(module);
        level = at<long*>(LevelName);
        print = at<decltype(&LOG::print)>(PrintName);
        prints = at<decltype(&LOG::prints)>(PrintsName);
        REQUIRE((level && print && prints));
        REQUIRE(level != &LOG::level);
    }
    ~LogCopy() { FreeLibrary(module); }

    void write(const std::string& text, int recordLevel = 1) const {
        prints(recordLevel, ".\\Test", 7, text);
    }

    long* level;
    decltype(&LOG::print) print;
    decltype(&LOG::prints) prints;
    HMODULE module;

  private:
    template<typename T>
    T at(const char* name) const {
        return reinterpret_cast<T>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    }
};

// Without what follows the last line end, which goes into `rest`.
inline std::vector<std::string> linesOf(const fs::path& file, std::string& rest) {
    std::ifstream in(file, std::ios::binary);
    std::vector<std::string> lines;
    for (; std::getline(in, rest) && !in.eof(); lines.push_back(rest)) {
        REQUIRE(rest.ends_with('\r'));
        rest.pop_back();
    }
    return lines;
}

inline std::vector<std::string> linesOf(const fs::path& file) {
    std::string rest;
    const auto lines = linesOf(file, rest);
    REQUIRE(rest.empty());
    return lines;
}

inline std::string lastLineOf(const fs::path& file) {
    const auto lines = linesOf(file);
    return lines.empty() ? std::string() : lines.back();
}

// What stands behind the place of a record.
inline std::string textOf(const std::string& record) {
    return record.substr(record.find(") ") + 2);
}
