// The kernel drivers: their images, their services, and when each is installed, replaced or enabled. Files
// are real, services and registry are not.
#include "tests/kit/scripted_computer.h"
#include "tests/kit/varnel_test.h"

#include <filesystem>

class Drivers : public VarnelTest {
  protected:
    ScriptedComputer computer;
    const std::string kestrinKey = "SYSTEM\\CurrentControlSet\\Services\\Kestrin";
    const std::string carriedPath = "system32\\drivers\\kestrin.sys";

    Drivers() { privates::getPathName(); }

    static bool isStaged(const std::string& file) { return std::filesystem::exists(file + ".tmp"); }
    Lines asks() { return calls({"IsServiceEnabled", "EnableService", "CreateServiceA", "DeleteService"}); }
    std::string moveOf(const std::string& file) const {
        return "MoveFileExA(" + file + ".tmp, " + file + ", 9)";
    }
    void moveFails() {
        on<"MoveFileExA">([](LPCSTR, LPCSTR, DWORD) {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        });
    }
    static std::string creation(const std::string& name, int start, const std::string& path) {
        return "CreateServiceA(" + name + ", " + name + ", 0, 1, " + std::to_string(start) + ", 1, " + path +
               ", null, null, null, null)";
    }
};

TEST_CASE_METHOD(Drivers, "the carried images are driver files with their versions") {
    struct Case {
        std::string resource;
        WORD machine;
        unsigned long long version;
    };
    constexpr unsigned long long four = 4ULL << 48;
    const Case c = GENERATE(Case{"#106", IMAGE_FILE_MACHINE_I386, four | 4},
                            Case{"#108", IMAGE_FILE_MACHINE_I386, four | 5},
                            Case{"#109", IMAGE_FILE_MACHINE_AMD64, four | 5});
    const std::string path = computer.systemFolder + "\\image.sys";
    ScriptedComputer::writeFile(path, std::string(1'000'000, 'x'));
    CHECK(privates::copyDriverFromResource(c.resource, path));
    const std::string bytes = ScriptedComputer::readFile(path);
    REQUIRE(bytes.size() > sizeof(IMAGE_DOS_HEADER));
    CHECK(bytes.size() < 1'000'000);
    const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(bytes.data());
    const auto& headers = *reinterpret_cast<const IMAGE_NT_HEADERS32*>(bytes.data() + dos.e_lfanew);
    CHECK(headers.FileHeader.Machine == c.machine);
    CHECK(headers.OptionalHeader.Subsystem == IMAGE_SUBSYSTEM_NATIVE);
    CHECK(GetFileVersion(path) == c.version);
    CHECK(log() == Lines{});
}

TEST_CASE_METHOD(Drivers, "an image that cannot be written out") {
    const std::string path = computer.systemFolder + "\\image.sys";
    SECTION("is not carried") {
        CHECK_FALSE(privates::copyDriverFromResource("#107", path));
        CHECK(log() == Lines{});
        CHECK(calls() == Lines{});
    }
    SECTION("cannot be loaded") {
        Faults::plan(Fault{"LoadResource", 1, false});
        CHECK_FALSE(privates::copyDriverFromResource("#106", path));
        CHECK(log() == Lines{"2 LoadResource(#106) fail, error 8"});
    }
    SECTION("has no place") {
        CHECK_FALSE(privates::copyDriverFromResource("#106", "Z:\\no\\such\\folder\\x.sys"));
        CHECK(log() == Lines{"2 CreateFile(Z:\\no\\such\\folder\\x.sys) fail, error 3"});
    }
    SECTION("is written in part, which nobody asks about") {
        Faults::plan(Fault{"WriteFile", 1, false});
        CHECK(privates::copyDriverFromResource("#106", path));
        CHECK(log() == Lines{});
    }
}

TEST_CASE_METHOD(Drivers, "a service is created, with a path that suits its start") {
    const std::string file = computer.kestrinFile();
    const DWORD start = GENERATE(as<DWORD>(), SERVICE_BOOT_START, SERVICE_DEMAND_START);
    CHECK(privates::installDriver("Kestrin", file.c_str(), start));
    CHECK(calls() == Lines{"OpenSCManagerA(null, null, 3)",
                           creation("Kestrin", static_cast<int>(start),
                                    start == 0 ? "system32\\drivers\\KESTRIN.SYS" : file)});
    CHECK_FALSE(privates::installDriver("Kestrin", file.c_str(), start));
    CHECK(log() == Lines{"2 CreateService(Kestrin) fail, error 1073"});
    Faults::plan(Fault{"OpenSCManagerA", 1, false});
    CHECK_FALSE(privates::installDriver("Kestrin", file.c_str(), start));
    CHECK(logged(2, "OpenSCManager fail, error 8"));
}

TEST_CASE_METHOD(Drivers, "a service is stopped and deleted, if it will stop") {
    struct Case {
        DWORD stopError;
        std::vector<DWORD> states;
        bool result;
        Lines lines;
        unsigned int queries;
    };
    const Case c = GENERATE(Case{0, {1}, true, {}, 1}, Case{0, {3, 3, 1}, true, {}, 3},
                            Case{0, {4}, false, {"2 Kestrin Status.dwCurrentState 4"}, 1},
                            Case{0, {3}, false, {"2 Kestrin Status.dwCurrentState 3"}, 301},
                            Case{1062, {1}, true, {"2 ControlService(Kestrin) fail, error 1062"}, 0});
    computer.services["Kestrin"];
    computer.stopError = c.stopError;
    computer.states = c.states;
    CHECK(privates::removeDriver("Kestrin") == c.result);
    CHECK(computer.services.contains("Kestrin") == !c.result);
    CHECK(log() == c.lines);
    CHECK(timesCalled<"QueryServiceStatus">() == c.queries);
    CHECK(clock.passed() == c.queries * 100);
    CHECK(calls({"Open"}) == Lines{"OpenSCManagerA(null, null, 1)", "OpenServiceA(Kestrin, 65572)"});
}

TEST_CASE_METHOD(Drivers, "a service that cannot be removed") {
    struct Case {
        std::string failing;
        bool exists;
        bool result;
        Lines lines;
    };
    const Case c = GENERATE(Case{"", false, true, {}},
                            Case{"OpenSCManagerA", true, false, {"2 OpenSCManager fail, error 8"}},
                            Case{"OpenServiceA", true, false, {"2 OpenService(Kestrin) fail, error 8"}},
                            Case{"QueryServiceStatus", true, false, {"2 Kestrin Status.dwCurrentState 3"}},
                            Case{"DeleteService", true, false, {}});
    if (c.exists)
        computer.services["Kestrin"];
    if (!c.failing.empty())
        Faults::plan(Fault{c.failing, 1, false});
    CHECK(privates::removeDriver("Kestrin") == c.result);
    CHECK(log() == c.lines);
    CHECK(computer.services.contains("Kestrin") == c.exists);
}

TEST_CASE_METHOD(Drivers, "a redirect driver that starts elsewhere, or not with the kernel, is put right") {
    struct Case {
        ScriptedRegistry::Value path;
        DWORD start;
        Lines lines;
        std::string failing = {};
        long nth = 1;
    };
    using R = ScriptedRegistry;
    const std::string setPath = "3 set kestrin imagepath success";
    const std::string setStart = "3 set kestrin start success";
    const Case c = GENERATE_COPY(
        Case{R::text("SYSTEM32\\Drivers\\KESTRIN.SYS"), 0, {}},
        Case{R::text("C:\\kestrin.sys"), 0, {setPath}}, Case{R::text(carriedPath), 4, {setStart}},
        Case{R::text(carriedPath), 3, {setStart}}, Case{R::text(carriedPath + "x"), 1, {setPath, setStart}},
        Case{{REG_SZ, carriedPath}, 0, {}}, Case{{REG_SZ, std::string(260, 'x')}, 0, {setPath}},
        Case{{REG_SZ, std::string(261, 'x')}, 3, {"2 Get kestrin imagepath fail, error 234"}},
        Case{R::text("x"), 3, {"2 Get kestrin imagepath fail, error 8"}, "RegQueryValueExA"},
        Case{R::text("x"), 3, {"2 set kestrin imagepath fail, error 8"}, "RegSetValueExA"},
        Case{R::text("x"), 3, {setPath, "2 Get kestrin start fail, error 8"}, "RegQueryValueExA", 2},
        Case{R::text(carriedPath), 3, {"2 set kestrin start fail, error 8"}, "RegSetValueExA"});
    computer.registry.keys[kestrinKey] = {{"ImagePath", c.path}, {"Start", R::number(c.start)}};
    if (!c.failing.empty())
        Faults::plan(Fault{c.failing, c.nth, false});
    privates::chkKestrinStartTypeToBoot();
    CHECK(log() == c.lines);
    const auto& values = computer.registry.keys[kestrinKey];
    const auto set = [&c](const std::string& line) {
        return std::find(c.lines.begin(), c.lines.end(), line) != c.lines.end();
    };
    const R::Value path = {REG_EXPAND_SZ, {carriedPath.c_str(), carriedPath.size() + 1}};
    CHECK(values.at("ImagePath") == (set(setPath) ? path : c.path));
    CHECK(values.at("Start") == R::number(set(setStart) ? 0 : c.start));
}

TEST_CASE_METHOD(Drivers, "without the redirect driver's key nothing is put right, nor logged") {
    privates::chkKestrinStartTypeToBoot();
    CHECK(log() == Lines{});
    CHECK(calls({"Reg"}) == Lines{"RegOpenKeyExA(" + kestrinKey + ", 0, 131103)"});
}

TEST_CASE_METHOD(Drivers, "a newer redirect driver replaces file and service") {
    const bool exists = GENERATE(false, true);
    const bool works = GENERATE(true, false);
    computer.carriedVersion = 5;
    const std::string file = computer.kestrinFile();
    if (exists)
        computer.services["Kestrin"];
    on<"EnableService">([works](const char*, unsigned long) { return works; });
    const bool moves = GENERATE(true, false);
    if (!moves)
        moveFails();
    CHECK(privates::tryinstallDriverAndLaunchKestrin() == works);
    CHECK(calls({"MoveFile"}) == Lines{moveOf(file)});
    Lines expected = {"IsServiceEnabled(Kestrin)"};
    if (exists)
        expected.push_back("DeleteService()");
    expected.push_back(creation("Kestrin", 0, "system32\\drivers\\KESTRIN.SYS"));
    expected.push_back("EnableService(Kestrin, 0)");
    CHECK(asks() == expected);
    CHECK(log() == Lines{"1 Need to update kestrin driver", "1 Try to install Kestrin " + file});
    CHECK(trace().front() == "1 ==>>VARNEL::tryinstallDriverAndLaunchKestrin()\n");
    if (moves)
        CHECK(GetFileVersion(file) == ((4ULL << 48) | 4));
}

TEST_CASE_METHOD(Drivers, "an enabled redirect driver of the same or a newer version gets the carried file") {
    computer.carriedVersion = GENERATE(as<unsigned long long>(), 3, 4);
    computer.services["Kestrin"];
    const std::string file = computer.kestrinFile();
    ScriptedComputer::writeFile(file, "old");
    Lines expected = {"3 doesnot need to update kestrin driver", "3 Kestrin has enabled"};
    SECTION("moves") {
        CHECK(privates::tryinstallDriverAndLaunchKestrin());
        CHECK(ScriptedComputer::readFile(file).starts_with("MZ"));
        CHECK_FALSE(isStaged(file));
    }
    SECTION("does not move") {
        moveFails();
        CHECK(privates::tryinstallDriverAndLaunchKestrin());
        expected.push_back("2 MoveFileEx fail " + file + ".tmp->" + file + " fail, error 5");
        CHECK(isStaged(file));
    }
    CHECK(log() == expected);
    CHECK(calls({"MoveFile"}) == Lines{moveOf(file)});
    CHECK(asks() == Lines{"IsServiceEnabled(Kestrin)"});
}

TEST_CASE_METHOD(Drivers,
                 "a redirect driver that is disabled or not there is enabled, and gets the file then") {
    const bool exists = GENERATE(true, false);
    const bool works = GENERATE(true, false);
    const bool moves = GENERATE(true, false);
    const std::string file = computer.kestrinFile();
    if (exists)
        computer.services["Kestrin"].enabled = false;
    on<"EnableService">([works](const char*, unsigned long) { return works; });
    if (!moves)
        moveFails();
    CHECK(privates::tryinstallDriverAndLaunchKestrin() == works);
    Lines lines = {"3 doesnot need to update kestrin driver"};
    Lines expected = {"IsServiceEnabled(Kestrin)"};
    if (!exists) {
        lines.push_back("1 Try to install Kestrin " + file);
        expected.push_back(creation("Kestrin", 0, "system32\\drivers\\KESTRIN.SYS"));
    }
    lines.push_back("1 Try to enable Kestrin");
    expected.push_back(exists ? "EnableService(Kestrin, 2)" : "EnableService(Kestrin, 0)");
    if (!works)
        lines.push_back("2 Enable Kestrin fail");
    else if (!moves)
        lines.push_back("2 MoveFileEx fail " + file + ".tmp->" + file + " fail, error 5");
    CHECK(log() == lines);
    CHECK(asks() == expected);
    CHECK(calls({"MoveFile"}) == (works ? Lines{moveOf(file)} : Lines{}));
    CHECK_FALSE(isStaged(file));
    CHECK((ScriptedComputer::readFile(file) == "none") == !(works && moves));
}

TEST_CASE_METHOD(Drivers,
                 "the filter driver: the image of this Windows, and the file only when it is newer") {
    computer.is64 = GENERATE(false, true);
    computer.carriedVersion = GENERATE(as<unsigned long long>(), 4, 5);
    const bool newer = computer.carriedVersion == 5;
    const std::string file = computer.ombrelFile();
    ScriptedComputer::writeFile(file, "old");
    std::string wanted;
    before<"MoveFileExA">([&](LPCSTR from, LPCSTR, DWORD) { wanted = ScriptedComputer::readFile(from); });
    std::string resource;
    before<"FindResourceA">([&](HMODULE, LPCSTR name, LPCSTR) { resource = name; });
    const bool works = GENERATE(true, false);
    on<"EnableService">([works](const char*, unsigned long) { return works; });
    CHECK(privates::tryinstallDriverAndLaunchOmbrel() == works);
    CHECK(resource == (computer.is64 ? "#109" : "#108"));
    CHECK(calls({"MoveFile"}) == (newer ? Lines{moveOf(file)} : Lines{}));
    CHECK(ScriptedComputer::readFile(file) == (newer ? wanted : "old"));
    CHECK_FALSE(isStaged(file));
    CHECK(asks() ==
          Lines{"IsServiceEnabled(Ombrel)", creation("Ombrel", 3, file), "EnableService(Ombrel, 0)"});
    CHECK(log() == Lines{});
    CHECK(trace().front() == "1 ==>>VARNEL::tryinstallDriverAndLaunchOmbrel()\n");
}

TEST_CASE_METHOD(Drivers, "a filter driver that is there is never created again, nor removed") {
    const bool enabled = GENERATE(true, false);
    computer.carriedVersion = 5;
    computer.services["Ombrel"].enabled = enabled;
    moveFails();
    CHECK(privates::tryinstallDriverAndLaunchOmbrel());
    CHECK(asks() == (enabled ? Lines{"IsServiceEnabled(Ombrel)"}
                             : Lines{"IsServiceEnabled(Ombrel)", "EnableService(Ombrel, 0)"}));
    CHECK(isStaged(computer.ombrelFile()));
    CHECK(log() == Lines{});
}

TEST_CASE_METHOD(Drivers, "a driver whose path did not fit is not touched") {
    privates::pathNameKestrin[0] = privates::pathNameOmbrel[0] = '\0';
    CHECK_FALSE(privates::tryinstallDriverAndLaunchKestrin());
    CHECK_FALSE(privates::tryinstallDriverAndLaunchOmbrel());
    CHECK(calls({"CreateFile", "DeleteFile", "MoveFile", "EnableService", "CreateService"}) == Lines{});
}

TEST_CASE_METHOD(Drivers, "uninstalling takes the files, and the service of the redirect driver alone") {
    const bool there = GENERATE(true, false);
    computer.services["Kestrin"];
    computer.services["Ombrel"];
    if (there) {
        ScriptedComputer::writeFile(computer.kestrinFile(), "x");
        ScriptedComputer::writeFile(computer.ombrelFile(), "x");
    }
    privates::uninstallDriverAndDeleteKestrin();
    privates::uninstallDriverAndDeleteSOmbrel();
    CHECK(ScriptedComputer::readFile(computer.kestrinFile()) == "none");
    CHECK(ScriptedComputer::readFile(computer.ombrelFile()) == "none");
    CHECK_FALSE(computer.services.contains("Kestrin"));
    CHECK(computer.services.contains("Ombrel"));
    CHECK(calls({"DeleteFileA"}).size() == (there ? 2 : 0));
    CHECK(log() == Lines{});
    CHECK(trace() == Lines{});
    CHECK_FALSE(privates::setKestrinChgPort(there));
}
