// The network settings: public networks made private, connections kept over a log-off.
#include "tests/kit/scripted_computer.h"
#include "tests/kit/scripted_networks.h"
#include "tests/kit/varnel_test.h"

#include <cwchar>

using network_list::Net;
using network_list::script;

class Location : public VarnelTest {
  protected:
    Location() {
        network_list::install();
        privates::isWin6Plus = true;
    }
    ~Location() {
        CHECK(script.objects == 0);
        CHECK(script.texts == 0);
        CHECK(timesCalled<"CoUninitialize">() == timesCalled<"CoInitialize">());
    }
    static std::vector<int> categories() {
        std::vector<int> all;
        for (const Net& net : script.nets)
            all.push_back(net.category);
        return all;
    }
};

TEST_CASE_METHOD(Location, "networks whose name contains the text, in any case, become private if public") {
    script.nets = {{L"My N\u00c9T one"}, {L"other"}, {L"n\u00e9t", 1}, {L"n\u00e9t", 2}, {L"n\u00e9t", 3}};
    CHECK(privates::setLocation("N\xc3\xa9t"));
    CHECK(categories() == std::vector<int>{1, 0, 1, 2, 3});
    const std::string net = "n\xc3\xa9t";
    CHECK(log() == Lines{"1 GetCategory my " + net + " one,NLM_NETWORK_CATEGORY_PUBLIC",
                         "1 SetCategory(NLM_NETWORK_CATEGORY_PRIVATE) success my " + net + " one",
                         "1 GetCategory " + net + ",NLM_NETWORK_CATEGORY_PRIVATE",
                         "1 GetCategory " + net + ",NLM_NETWORK_CATEGORY_DOMAIN_AUTHENTICATED"});
    CHECK(trace().front() == "1 ==>>VARNEL::setLocation(N\xc3\xa9t)\n");
    CHECK(calls({"Co"}) == Lines{"CoInitialize()", "CoUninitialize()"});
}

TEST_CASE_METHOD(Location, "an empty text is part of every name") {
    script.nets = {{L"a"}, {L""}};
    CHECK(privates::setLocation(""));
    CHECK(categories() == std::vector<int>{1, 1});
}

TEST_CASE_METHOD(Location, "without a network of that name the answer is no") {
    if (GENERATE(false, true))
        script.nets = {{L"other", 1}};
    CHECK_FALSE(privates::setLocation("net"));
    CHECK(log() == Lines{});
}

TEST_CASE_METHOD(Location, "before Windows 6 nothing is asked") {
    privates::isWin6Plus = false;
    CHECK(privates::setLocation("net"));
    CHECK(calls() == Lines{});
    CHECK(trace() == Lines{});
    CHECK(timesCalled<"CoCreateInstance">() == 0);
}

TEST_CASE_METHOD(Location, "what the network list refuses") {
    bool result = false;
    Lines lines;
    SECTION("itself") {
        Faults::plan(Fault{"CoCreateInstance", 1, false});
        lines = {"2 CoCreateInstance fail"};
    }
    SECTION("its connections") {
        script.enumerationFails = true;
        lines = {"2 GetNetworkConnections fail"};
    }
    SECTION("the next connection") {
        script.end = E_FAIL;
        result = GENERATE(false, true);
        if (result) {
            script.nets = {{L"net", 1}};
            lines = {"1 GetCategory net,NLM_NETWORK_CATEGORY_PRIVATE"};
        }
        lines.push_back("2 GetNetworkConnections fail");
    }
    SECTION("a connection's network: the later ones are not visited") {
        script.nets = {{L"net", 1}, {.name = L"net", .networkFails = true}, {L"net"}};
        result = true;
        lines = {"1 GetCategory net,NLM_NETWORK_CATEGORY_PRIVATE", "2 GetNetwork fail"};
    }
    SECTION("a name: that network is passed over") {
        script.nets = {{.name = L"net", .nameFails = true}, {L"net", 2}};
        result = true;
        lines = {"1 GetCategory net,NLM_NETWORK_CATEGORY_DOMAIN_AUTHENTICATED"};
    }
    SECTION("a category: it counts as public; and the change") {
        script.nets = {{.name = L"net", .category = 2, .categoryFails = true, .setFails = true}, {L"net", 1}};
        result = true;
        lines = {"1 GetCategory net,NLM_NETWORK_CATEGORY_PUBLIC", "2 SetCategory fail net",
                 "1 GetCategory net,NLM_NETWORK_CATEGORY_PRIVATE"};
    }
    CHECK(privates::setLocation("net") == result);
    CHECK(log() == lines);
}

TEST_CASE("a thread that has COM in another mode keeps it") {
    REQUIRE(CoInitializeEx(nullptr, COINIT_MULTITHREADED) == S_OK);
    {
        VarnelTest test;
        privates::isWin6Plus = true;
        on<"CoCreateInstance">([](REFCLSID, LPUNKNOWN, DWORD, REFIID, LPVOID*) { return E_FAIL; });
        CHECK_FALSE(privates::setLocation("net"));
        CHECK(timesCalled<"CoInitialize">() == 1);
        CHECK(timesCalled<"CoUninitialize">() == 0);
    }
    CHECK(CoInitializeEx(nullptr, COINIT_MULTITHREADED) == S_FALSE);
    CoUninitialize();
    CoUninitialize();
}

class KeptConnections : public VarnelTest {
  protected:
    ScriptedRegistry registry;
    using R = ScriptedRegistry;
    const std::string key = ScriptedComputer::winLogon;
    const std::string name = "KeepRasConnections";
};

TEST_CASE_METHOD(KeptConnections, "connections are kept over a log-off, unless they are already") {
    struct Case {
        std::optional<R::Value> before;
        bool written;
    };
    const Case c = GENERATE_COPY(Case{R::text("1"), false}, Case{R::Value{REG_BINARY, {"1\0xyz", 5}}, false},
                                 Case{R::Value{REG_SZ, "1"}, false}, Case{R::text("0"), true},
                                 Case{R::text("11"), true}, Case{std::nullopt, true},
                                 Case{R::Value{REG_SZ, std::string("1\0aaaaaaaaaa", 11)}, true},
                                 Case{R::Value{REG_SZ, std::string(10, '1')}, true});
    registry.keys[key];
    if (c.before)
        registry.keys[key][name] = *c.before;
    privates::addKeepRasConnections();
    const R::Value wanted = {REG_SZ, {"1\0\0\0\0\0\0\0\0\0", 10}};
    CHECK(registry.keys[key][name] == (c.written ? wanted : *c.before));
    CHECK(log() == (c.written ? Lines{"3 set KeepRasConnections to 1 success"} : Lines{}));
    CHECK(trace() == Lines{});
}

TEST_CASE_METHOD(KeptConnections, "a registry that refuses, or Windows 6, leaves the log-off as it is") {
    registry.keys[key];
    Lines lines;
    SECTION("no key") {
        registry.keys.clear();
        lines = {"2 RegOpenKeyEx CurrentVersion\\WinLogon fail, error 2"};
    }
    SECTION("no write") {
        Faults::plan(Fault{"RegSetValueExA", 1, false});
        lines = {"2 set KeepRasConnections to 1 fail, error 8"};
    }
    SECTION("Windows 6") {
        privates::isWin6Plus = true;
    }
    privates::addKeepRasConnections();
    CHECK(log() == lines);
    CHECK(registry.keys[key].empty());
    if (privates::isWin6Plus)
        CHECK(calls() == Lines{});
}
