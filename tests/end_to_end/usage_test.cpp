// What the program says and returns when it is used wrongly, and how a session goes on.
#include "tests/end_to_end/host_kit.h"

#include <catch2/catch.hpp>
#include <fmt/format.h>

#include <deque>

using Catch::Contains;
using Catch::StartsWith;

TEST_CASE("a wrong command line says what is wrong and does nothing") {
    struct Case {
        std::string arguments;
        std::string input;
        std::string message;
    };
    const Case cases[] = {
        {"dail harbor 10.0.0.1", "x", "dail"},
        {"dial harbor", "x", "ADDRESS is required"},
        {"dial harbor 10.0.0.1 secret", "x", "secret"},
        {"dial harbor harbor.example", "x", "\"harbor.example\" is no address"},
        {"dial harbor 10.1", "x", "\"10.1\" is no address"},
        {"dial harbor 10.0.0.1.5", "x", "is no address"},
        {"dial harbor 10.0.0.256", "x", "is no address"},
        {"dial harbor 10.0.0.010", "x", "is no address"},
        {"dial harbor 10.0..1", "x", "is no address"},
        {"dial harbor 0.0.0.0", "x", "the address of no server"},
        {"dial .. 10.0.0.1", "x", "\"..\" is no peer id"},
        {"dial \"n\xC3\xB8rd havn\" 10.0.0.1", "x", "\"n\xC3\xB8rd havn\" is no peer id"},
        {"dial \"harbor #3\" 10.0.0.1", "x", "the peer's id is \"harbor\""},
        {"dial harbor 10.0.0.1", "\n", "the password is empty"},
        {"dial harbor 10.0.0.1", std::string(257, 'p'), "the password is longer than 256 characters"},
        {"dial harbor 10.0.0.1 --password-file C:\\nowhere", "x", "\"C:\\nowhere\" cannot be opened"},
        {"--log-level 4 entry harbor", "", "--log-level"},
        {"session C:\\nowhere", "", "the script \"C:\\nowhere\" cannot be opened"},
    };
    const World world("[10.0.0.1]\n");
    std::deque<HostRun> runs;
    for (const Case& each : cases)
        runs.push_back(world.start(each.arguments, each.input));
    for (const Case& each : cases) {
        INFO(each.arguments);
        const Outcome outcome = runs.front().finish();
        runs.pop_front();
        CHECK(outcome.exitCode == 2);
        CHECK_THAT(outcome.messages, StartsWith("varnel-host: ") && Contains(each.message));
        CHECK(outcome.output.empty());
    }
    CHECK_FALSE(std::filesystem::exists(world.folder / "working"));
}

TEST_CASE("help and version are results") {
    const World world("");
    const Outcome help = world.run("dial --help");
    CHECK(help.exitCode == 0);
    CHECK_THAT(help.output,
               Contains("Usage: varnel-host dial") && Contains("--password-file") && Contains("Exit codes:"));
    const Outcome version = world.run("--version");
    CHECK(version.exitCode == 0);
    CHECK_THAT(version.output, StartsWith("varnel-host ") && Contains(", Varnel.dll "));
}

TEST_CASE("a session goes on after a failed line and ends with the code of the first one") {
    const World world("[10.0.0.1]\naccount=harbor:another\n[10.0.0.2]\n");
    const auto passwordFile = world.write("all.password", goodPassword).string();
    const std::string script = fmt::format("dial harbor 10.0.0.1 --password-file \"{0}\" &\n"
                                           "dail tower 10.0.0.2\n"
                                           "dial tower 10.0.0.2\n"
                                           "dial tower 10.0.0.2 --password-file \"{0}\n"
                                           "entry harbor &\n"
                                           "help dial\n"
                                           "dial tower 10.0.0.2 --password-file \"{0}\"\n",
                                           passwordFile);

    SECTION("read from standard input") {
        const Outcome outcome = world.run("", script + "quit\nentry harbor\n");
        CHECK(outcome.exitCode == 4);
        for (const char* message : {"standard input:2: there is no command \"dail\"",
                                    "standard input:3: a dial in a script needs --password-file",
                                    "standard input:4: a quoted word does not end",
                                    "standard input:5: entry cannot run in the background",
                                    "standard input:1: the first of 5 failed commands"})
            CHECK_THAT(outcome.messages, Contains(message));
        CHECK_THAT(outcome.output, Contains("Usage: dial [OPTIONS] ID ADDRESS") &&
                                       Contains("harbor: not connected: error 691") &&
                                       Contains("tower: connected, entry \"tower #0\"") &&
                                       !Contains("> entry harbor\n"));
    }
    SECTION("stopped by its first failure") {
        const auto file = world.write("script.txt", script.substr(script.find('\n') + 1)).string();
        const Outcome outcome = world.run("session --stop-on-error \"" + file + "\"");
        CHECK(outcome.exitCode == 2);
        CHECK_THAT(outcome.messages, Contains("script.txt:1: there is no command \"dail\""));
        CHECK(outcome.output == "> dail tower 10.0.0.2\n");
    }
}

TEST_CASE("the log goes where it is told and holds what it is told") {
    const World world("");
    const auto file = world.folder / "elsewhere.log";
    const std::string toFile = fmt::format("--log-file \"{}\" entry harbor", file.string());
    CHECK(world.run("--log-level 0 " + toFile).exitCode == 10);
    CHECK(textOf(file).empty());
    CHECK(world.run("--log-level 3 " + toFile).exitCode == 10);
    CHECK_THAT(textOf(file), Contains("==>>VARNEL::getCurrentEntryNameById(harbor)"));
    CHECK_THAT(world.run("--log-file - entry harbor").messages,
               Contains("VARNEL::getCurrentEntryNameById(harbor)"));
}
