// Dials, look-ups and hang-ups through the shipped program and library.
#include "tests/end_to_end/host_kit.h"

#include <catch2/catch.hpp>
#include <fmt/format.h>

#include <deque>

using Catch::Contains;
using Catch::Matches;

namespace {

// A peer at 10.0.0.1 that knows the user harbor and behaves as given.
std::string harbor(const std::string& more = "") {
    return fmt::format("[10.0.0.1]\naccount=harbor:{}\nlatency=50\n{}\n", goodPassword, more);
}

constexpr const char* dialHarbor = "dial harbor 10.0.0.1";
const std::string typedPassword = std::string(goodPassword) + "\n";

} // namespace

TEST_CASE("each end of a dial is told in words and by the exit code") {
    struct Case {
        const char* name;
        std::string peers;
        std::string arguments;
        int exitCode;
        const char* output; // a pattern
    };
    const Case cases[] = {
        {"accepted", harbor(), dialHarbor, 0, R"(harbor: connected, entry "harbor #0", \d+\.\d s\n)"},
        {"wrong password", "[10.0.0.1]\naccount=harbor:another\n", dialHarbor, 4,
         "harbor: not connected: error 691, the user name or password was refused\n"},
        {"unreachable", "", dialHarbor, 4,
         "harbor: not connected: error 800, no VPN tunnel could be made to the peer\n"},
        {"disconnected while dialling", harbor("behaviour=disconnects"), dialHarbor, 4,
         "harbor: not connected: error 617, the connection was ended during the dial\n"},
        {"busy, then connected under the next entry name", harbor("behaviour=busy 1"), dialHarbor, 0,
         R"(harbor: connected, entry "harbor #1", \d+\.\d s\n)"},
        {"no answer", harbor("behaviour=never-answers"), dialHarbor, 3,
         R"(harbor: not confirmed: no error, but after 1\d\.\d s none of the first three active connections is its own\n)"},
        {"a success that the status denies", harbor("behaviour=denies 629"), dialHarbor, 4,
         "harbor: not connected: error 756, [^\n]+\n"},
        {"a denied success in the phonebook of all users", harbor("behaviour=denies 629"),
         "dial harbor 10.0.0.1 --public", 4,
         "harbor: not connected: error 629, the peer ended the connection\n"},
        {"no service", "[service]\nrunning=no\n", dialHarbor, 8,
         "harbor: not connected: error 711, the service that manages connections cannot start\n"},
    };
    struct Started {
        const Case& expected;
        World world;
        HostRun run;
        explicit Started(const Case& given)
            : expected(given), world(given.peers), run(world.start(given.arguments, typedPassword)) {}
    };
    std::deque<Started> started;
    for (const Case& each : cases)
        started.emplace_back(each);
    for (Started& each : started) {
        INFO(each.expected.name);
        const Outcome outcome = each.run.finish();
        CHECK(outcome.exitCode == each.expected.exitCode);
        CHECK_THAT(outcome.output, Matches(each.expected.output));
        CHECK(each.world.filesWith(goodPassword).empty());
    }
}

TEST_CASE("a dial writes a PPTP entry and a log of what it did, and keeps the password to itself") {
    const World world(harbor());
    const auto passwordFile =
        world.write("harbor.password", "\xEF\xBB\xBF" + std::string(goodPassword) + "\r\nnot this\r\n");
    const Outcome dialled =
        world.run(fmt::format("{} --password-file \"{}\"", dialHarbor, passwordFile.string()));
    REQUIRE(dialled.exitCode == 0);
    CHECK(dialled.messages == "harbor: dialling 10.0.0.1\n");

    const std::string phonebook = world.phonebookOf("harbor");
    for (const char* line :
         {"[harbor #0]", "PhoneNumber=10.0.0.1", "Type=2", "VpnStrategy=1", "DataEncryption=256"})
        CHECK_THAT(phonebook, Contains(std::string(line) + "\r\n"));
    const std::string log = world.log();
    for (const char* text : {"==>>VARNEL::dialUp(harbor ip 10.0.0.1)", "RasSetEntryDialParams SUCCESS",
                             "Dial success, got pptp ip ", "harbor #0 RasDial must success",
                             "pptp dial return 0,time ", "<<== VARNEL::dialUp(harbor ip 10.0.0.1),period = "})
        CHECK_THAT(log, Contains(text));
    CHECK(world.filesWith(goodPassword).empty());
    CHECK_FALSE(world.filesWith("harbor #0").empty()); // so they are searched

    CHECK(world.run("hangup harbor").exitCode == 0);
    CHECK(world.run(fmt::format("{} --no-encryption", dialHarbor), typedPassword).exitCode == 0);
    CHECK_THAT(world.phonebookOf("harbor"), Contains("DataEncryption=8\r\n"));
}

TEST_CASE("a connection outlives the program that made it, and any other finds it and hangs it up") {
    const World world(harbor());
    REQUIRE(world.run(dialHarbor, typedPassword).exitCode == 0);

    const Outcome found = world.run("entry HARBOR");
    CHECK(found.output == "HARBOR: entry \"harbor #0\"\n");
    CHECK(found.exitCode == 0);
    const Outcome hungUp = world.run("hangup harbor");
    CHECK(hungUp.output == "harbor: hung up\n");
    CHECK(hungUp.exitCode == 0);
    CHECK(world.phonebookOf("harbor").empty());

    const Outcome sought = world.run("entry harbor");
    CHECK_THAT(sought.output, Contains("harbor: no entry"));
    CHECK(sought.exitCode == 10);
    const Outcome again = world.run("hangup harbor");
    CHECK_THAT(again.output, Contains("harbor: nothing to hang up"));
    CHECK(again.exitCode == 10);
}

TEST_CASE("a session dials two peers at the same time and tells each outcome once") {
    const World world("[10.0.0.1]\nlatency=300\n[10.0.0.2]\nlatency=300\n");
    world.write("two.password", typedPassword);
    const auto script = world.write("two.txt", "# Two peers\r\n"
                                               "dial harbor 10.0.0.1 &\r\n"
                                               "\r\n"
                                               "dial tower \"10.0.0.2\" &\r\n"
                                               "wait\r\n"
                                               "entry tower\r\n");
    const Outcome outcome = world.run(fmt::format("session --password-file \"{}\" \"{}\"",
                                                  (world.folder / "two.password").string(), script.string()));
    CHECK(outcome.exitCode == 0);
    CHECK(outcome.messages == "harbor: dialling 10.0.0.1\ntower: dialling 10.0.0.2\nwaiting for 2 dials\n");
    CHECK_THAT(outcome.output, Matches("# Two peers\n"
                                       "> dial harbor 10.0.0.1 &\n"
                                       "\n"
                                       "> dial tower \"10.0.0.2\" &\n"
                                       "> wait\n"
                                       "(harbor|tower): connected, entry \"\\1 #0\", \\d+\\.\\d s\n"
                                       "(harbor|tower): connected, entry \"\\2 #0\", \\d+\\.\\d s\n"
                                       "> entry tower\n"
                                       "tower: entry \"tower #0\"\n"));
    const std::string log = world.log();
    CHECK(log.find("==>>VARNEL::dialUp(tower") < log.find("<<== VARNEL::dialUp(harbor"));
}
