// The port counts of the remote-access server: read from the registry, set there or through the router.
#include "tests/kit/scripted_computer.h"
#include "tests/kit/scripted_router.h"
#include "tests/kit/varnel_test.h"

using namespace scripted_router;

class ServerPorts : public VarnelTest {
  protected:
    ScriptedComputer computer;
    Lines lookedUp;
    const std::string pptpKey = std::string(computer.adapterClass) + "\\0001";
    const std::string l2tpKey = std::string(computer.adapterClass) + "\\0002";

    ServerPorts() {
        router = {};
        on<"GetProcAddress">([this](HMODULE, LPCSTR name) -> FARPROC {
            lookedUp.push_back(name);
            return find(name);
        });
    }

    void have(bool win6, DWORD max, DWORD wan, DWORD l2tp) {
        privates::isWin6Plus = win6;
        computer.setMiniport("0001", "ms_pptpminiport", max, wan);
        computer.setMiniport("0002", "ms_l2tpminiport", 0, l2tp);
    }
    std::vector<DWORD> counts() {
        std::vector<DWORD> numbers(3);
        CHECK(privates::getCurrentPptpPorts(&numbers[0], &numbers[1], &numbers[2]));
        return numbers;
    }
    std::vector<DWORD> readFrom(const std::string& key, bool result) {
        std::vector<DWORD> numbers = {7, 8, 9};
        CHECK(privates::getWanEndPointsFromRegistry(key, &numbers[0], &numbers[1], &numbers[2]) == result);
        return numbers;
    }
    std::string noKey(const std::string& key) { return "2 RegOpenKeyEx " + key + " failed, error 2"; }
};

TEST_CASE_METHOD(ServerPorts, "before Windows 6 both counts are written when either is short") {
    struct Case {
        DWORD max, wan;
        std::vector<DWORD> after;
    };
    const Case c = GENERATE(Case{32, 5, {32, 10, 5}}, Case{64, 9, {32, 10, 5}}, Case{31, 12, {32, 10, 5}},
                            Case{64, 12, {64, 12, 5}}, Case{32, 10, {32, 10, 5}});
    have(false, c.max, c.wan, 5);
    CHECK(privates::chgWanEndPoints());
    CHECK(counts() == c.after);
    const bool changed = c.after[0] != c.max || c.after[1] != c.wan;
    CHECK(calls({"RegSet"}) == (changed ? Lines{"RegSetValueExA(MaxWanEndpoints, 0, 4, 4)",
                                                "RegSetValueExA(WanEndpoints, 0, 4, 4)"}
                                        : Lines{}));
    CHECK(router.calls == Lines{});
    CHECK(log() == Lines{});
}

TEST_CASE_METHOD(ServerPorts, "since Windows 6 the router gets three ports, running or not") {
    const bool running = GENERATE(true, false);
    const std::string kind = running ? admin : config;
    router.running = running;
    have(true, 1, 2, 5);
    SECTION("accepted") {
        router.setCode = GENERATE(as<DWORD>(), 0, ERROR_SUCCESS_REBOOT_REQUIRED);
        CHECK(privates::chgWanEndPoints());
        CHECK(log() == Lines{});
        CHECK(trace() ==
              Lines{"1 ==>>VARNEL::setPptpPorts()\n", "1 <<== VARNEL::setPptpPorts(),period = 0(ms)\n"});
    }
    SECTION("refused") {
        router.setCode = 5;
        CHECK(privates::chgWanEndPoints()); // the functions were there
        CHECK(log() == Lines{running ? "2 MprAdminServerSetInfo failed, error 1722"
                                     : "2 MprConfigServerSetInfo failed, error 1722"});
    }
    CHECK(router.calls ==
          Lines{"running?", kind + " connect", kind + " set 1 3 1 5 1", kind + " disconnect"});
    CHECK(counts() == std::vector<DWORD>{1, 2, 5});
}

TEST_CASE_METHOD(ServerPorts, "a router that cannot be reached is not disconnected from") {
    router.running = GENERATE(true, false);
    router.connectCode = GENERATE(as<DWORD>(), 5, ERROR_SUCCESS_REBOOT_REQUIRED);
    have(true, 1, 2, 5);
    CHECK(privates::chgWanEndPoints());
    CHECK(router.calls == Lines{"running?", router.running ? "admin connect" : "config connect"});
    CHECK(log() == Lines{router.running ? "2 MprAdminServerConnect failed, error 1722"
                                        : "2 MprConfigServerConnect failed, error 1722"});
}

TEST_CASE_METHOD(ServerPorts, "since Windows 6 three ports are enough") {
    have(true, 1, GENERATE(as<DWORD>(), 3, 5), 5);
    CHECK(privates::chgWanEndPoints());
    CHECK(router.calls == Lines{});
    CHECK(trace() == Lines{});
}

TEST_CASE_METHOD(ServerPorts, "the router's library is loaded once, found whole, and let go once") {
    have(true, 1, 3, 5);
    CHECK(privates::chgWanEndPoints());
    Lines names;
    for (const auto& [name, function] : functions)
        names.push_back(name);
    CHECK(lookedUp == names);
    CHECK(calls({"LoadLibrary"}) == Lines{"LoadLibraryA(" + computer.systemFolder + "\\mprapi.dll)"});
    CHECK(timesCalled<"FreeLibrary">() == 1);
}

TEST_CASE_METHOD(ServerPorts, "a router's library that is not there, or lacks a function, is never called") {
    have(true, 1, 2, 5);
    Lines expected;
    unsigned int freed = 0;
    SECTION("system folder") {
        Faults::plan(Fault{"GetSystemDirectoryA", 1, false});
        expected = {"2 GetSystemDirectory failed, error 8"};
    }
    SECTION("library") {
        Faults::plan(Fault{"LoadLibraryA", 1, false});
        expected = {"2 LoadLibrary " + computer.systemFolder + "\\mprapi.dll failed, error 8"};
    }
    SECTION("a function") {
        const long nth = GENERATE(1, 5, 9);
        Faults::plan(Fault{"GetProcAddress", nth, false});
        freed = 1;
    }
    CHECK_FALSE(privates::chgWanEndPoints());
    CHECK(router.calls == Lines{});
    CHECK(timesCalled<"FreeLibrary">() == freed);
    expected.push_back("2 setPptpPorts: the functions of mprapi.dll are not loaded");
    CHECK(log() == expected);
}

TEST_CASE_METHOD(ServerPorts, "counts that are not all there are left as they are") {
    have(GENERATE(false, true), 1, 2, 5);
    Lines expected;
    SECTION("no key of adapters") {
        computer.registry.keys.clear();
        expected = {noKey(computer.adapterClass)};
    }
    SECTION("no adapters") {
        computer.registry.keys = {{computer.adapterClass, {}}};
    }
    SECTION("adapters are not counted") {
        Faults::plan(Fault{"RegQueryInfoKeyA", 1, false});
    }
    SECTION("no L2TP") {
        computer.registry.keys.erase(l2tpKey);
    }
    SECTION("no ports of L2TP") {
        computer.setMiniport("0002", "ms_l2tpminiport", 0, 0);
    }
    SECTION("no count of PPTP") {
        computer.registry.keys[pptpKey].erase("WanEndpoints");
    }
    CHECK(privates::chgWanEndPoints()); // the functions were there
    CHECK(calls({"RegSet"}) == Lines{});
    CHECK(router.calls == Lines{});
    CHECK(log() == expected);
    CHECK(trace() == Lines{});
}

TEST_CASE_METHOD(ServerPorts,
                 "an adapter whose name cannot be read is passed over, and the walk ends early") {
    computer.setMiniport("0000", "pci\\ven_8086", 0, 0);
    computer.setMiniport("0003", "ms_pptpminiport", 1, 1);
    Faults::plan(Fault{"RegEnumKeyExA", 1, false});
    CHECK(counts() == std::vector<DWORD>{32, 10, 5});
    CHECK(calls({"RegOpenKeyExA(" + pptpKey}).size() == 1);
    CHECK(calls({"RegOpenKeyExA(" + std::string(computer.adapterClass) + "\\0000"}) == Lines{});
    CHECK(calls({"RegOpenKeyExA(" + std::string(computer.adapterClass) + "\\0003"}) == Lines{});
    CHECK(privates::setPptpPorts(false, 40, 20, 0));
    CHECK(counts() == std::vector<DWORD>{40, 20, 5});
    CHECK(readFrom(std::string(computer.adapterClass) + "\\0003", true) == std::vector<DWORD>{1, 1, 9});
}

TEST_CASE_METHOD(ServerPorts, "counts are written to no key but a PPTP miniport's") {
    computer.registry.keys.erase(pptpKey);
    const auto before = computer.registry.keys;
    CHECK_FALSE(privates::setPptpPorts(false, 32, 10, 5));
    CHECK(computer.registry.keys == before);
    CHECK_FALSE(privates::setWanEndpointsToRegistry(pptpKey, 32, 10));
    CHECK(log() == Lines{noKey(pptpKey)});
    computer.registry.keys.erase(computer.adapterClass);
    CHECK_FALSE(privates::setPptpPorts(false, 32, 10, 5));
    CHECK(log() == Lines{noKey(pptpKey), noKey(computer.adapterClass)});
}

TEST_CASE_METHOD(ServerPorts, "of two counts the first stays written when the second cannot be") {
    const long nth = GENERATE(1, 2);
    Faults::plan(Fault{"RegSetValueExA", nth, false});
    CHECK_FALSE(privates::setWanEndpointsToRegistry(pptpKey, 40, 20));
    CHECK(readFrom(pptpKey, true) == std::vector<DWORD>{nth == 1 ? 32u : 40u, 10, 9});
    CHECK(timesCalled<"RegSetValueExA">() == static_cast<unsigned int>(nth));
    CHECK(log() == Lines{});
}

TEST_CASE_METHOD(ServerPorts, "an adapter is known by its device id, in any case and whole") {
    using R = ScriptedRegistry;
    struct Case {
        R::Value id;
        bool result;
        std::vector<DWORD> numbers;
    };
    const std::string pptp = "ms_pptpminiport";
    const Case c = GENERATE_COPY(
        Case{R::text("MS_PPTPMINIPORT"), true, {1, 2, 9}}, Case{R::text("Ms_L2tpMiniport"), true, {7, 8, 2}},
        Case{R::text("pci\\ven_8086"), true, {7, 8, 9}}, Case{R::text(pptp + "2"), true, {7, 8, 9}},
        Case{{REG_SZ, pptp}, true, {1, 2, 9}}, Case{R::text(std::string(79, 'x')), true, {7, 8, 9}},
        Case{{REG_SZ, std::string(80, 'x')}, false, {7, 8, 9}},
        Case{R::text(std::string(80, 'x')), false, {7, 8, 9}});
    computer.setMiniport("0001", "", 1, 2);
    computer.registry.keys[pptpKey]["MatchingDeviceId"] = c.id;
    CHECK(readFrom(pptpKey, c.result) == c.numbers);
    const bool written = privates::setWanEndpointsToRegistry(pptpKey, 3, 4);
    CHECK(written == (c.numbers[0] == 1));
    CHECK(log() == Lines{});
}

TEST_CASE_METHOD(ServerPorts, "counts of any type are the first four bytes; what is missing stays") {
    auto& values = computer.registry.keys[pptpKey];
    SECTION("a text") {
        values["WanEndpoints"] = ScriptedRegistry::text("12345");
        CHECK(readFrom(pptpKey, true) == std::vector<DWORD>{32, 0x34333231, 9});
    }
    SECTION("a short one, after a long one") {
        values["MaxWanEndpoints"] = ScriptedRegistry::text("xxxxxxxx");
        values["WanEndpoints"] = {REG_BINARY, "\x05"};
        CHECK(readFrom(pptpKey, true) == std::vector<DWORD>{0x78787878, 5, 9});
    }
    SECTION("the second missing") {
        values.erase("WanEndpoints");
        CHECK(readFrom(pptpKey, false) == std::vector<DWORD>{32, 8, 9});
    }
    SECTION("the first missing") {
        values.erase("MaxWanEndpoints");
        CHECK(readFrom(pptpKey, false) == std::vector<DWORD>{7, 8, 9});
    }
    SECTION("that of L2TP missing") {
        computer.registry.keys[l2tpKey].erase("WanEndpoints");
        CHECK(readFrom(l2tpKey, false) == std::vector<DWORD>{7, 8, 9});
    }
    SECTION("the device id missing") {
        values.erase("MatchingDeviceId");
        CHECK(readFrom(pptpKey, false) == std::vector<DWORD>{7, 8, 9});
        CHECK_FALSE(privates::setWanEndpointsToRegistry(pptpKey, 1, 1));
    }
    CHECK(log() == Lines{});
}
