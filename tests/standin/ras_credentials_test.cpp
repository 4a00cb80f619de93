// The user names and passwords stored with entries.
#include "tests/standin/ras_kit.h"

#include <catch2/catch.hpp>

#include <cstring>
#include <filesystem>

using namespace standin_test;

namespace {

struct Stored {
    std::string user;
    std::string domain;
    std::string password;
    bool hasPassword;

    bool operator==(const Stored&) const = default;
};

const std::string handleText(16, '*');

void store(const Computer& computer, const std::string& user, const std::string& password,
           BOOL removes = FALSE, const char* domain = "") {
    RASDIALPARAMSA params = dialParams("a", user, password);
    std::strcpy(params.szDomain, domain);
    REQUIRE(RasSetEntryDialParamsA(computer.phonebook().c_str(), &params, removes) == 0);
}

Stored stored(const Computer& computer, const std::string& entry = "a") {
    RASDIALPARAMSA params;
    std::memset(&params, 'x', sizeof params);
    params.dwSize = dialParamsSize;
    std::strcpy(params.szEntryName, entry.c_str());
    BOOL hasPassword = -1;
    REQUIRE(RasGetEntryDialParamsA(computer.phonebook().c_str(), &params, &hasPassword) == 0);
    CHECK(std::string(params.szPhoneNumber).empty());
    return {params.szUserName, params.szDomain, params.szPassword, hasPassword != FALSE};
}

DWORD outcomeWith(const Computer& computer, const std::string& password) {
    Dial dial(computer, dialParams("a", "user", password));
    return dial.waitForEnd().back().second;
}

} // namespace

TEST_CASE("an entry has no credentials until some are stored") {
    const Computer computer;
    computer.addEntry("a");
    CHECK(stored(computer) == Stored{"", "", "", false});
    store(computer, "Node7", "", TRUE);
    CHECK(stored(computer) == Stored{"Node7", "", "", false});
}

TEST_CASE("a password is stored only when asked for, and never given back") {
    const Computer computer("[10.1.1.1]\naccount = user:open sesame\n");
    computer.addEntry("a");
    store(computer, "user", "open sesame", FALSE, "HOME");
    CHECK(stored(computer) == Stored{"user", "HOME", handleText, true});
    for (const auto& file : std::filesystem::directory_iterator(computer.path("")))
        if (file.path().filename() != "peers.ini")
            CHECK(readText(file.path().string()).find("open sesame") == std::string::npos);

    CHECK(outcomeWith(computer, handleText) == 0);
    CHECK(outcomeWith(computer, "") == ERROR_AUTHENTICATION_FAILURE);
    store(computer, "user", "", TRUE);
    CHECK(stored(computer) == Stored{"user", "HOME", "", false});
    CHECK(outcomeWith(computer, handleText) == ERROR_AUTHENTICATION_FAILURE);
}

TEST_CASE("what is not given leaves what is stored") {
    const Computer computer("[10.1.1.1]\naccount = user:old\naccount = user:new\n");
    computer.addEntry("a");
    store(computer, "user", "old", FALSE, "HOME");
    SECTION("no user: user and password stay") {
        store(computer, "", "other");
        CHECK(stored(computer) == Stored{"user", "HOME", handleText, true});
        CHECK(outcomeWith(computer, handleText) == 0);
    }
    SECTION("the handle of the password: it stays") {
        store(computer, "user", handleText);
        CHECK(outcomeWith(computer, handleText) == 0);
    }
    SECTION("an empty password is one") {
        store(computer, "user", "");
        CHECK(stored(computer).hasPassword);
        CHECK(outcomeWith(computer, handleText) == ERROR_AUTHENTICATION_FAILURE);
    }
    SECTION("a new password takes its place") {
        computer.describe("[10.1.1.1]\naccount = user:new\n");
        store(computer, "user", "new");
        CHECK(outcomeWith(computer, handleText) == 0);
    }
}

TEST_CASE("credentials go with their entry") {
    const Computer computer;
    computer.addEntry("a");
    store(computer, "user", "secret");
    computer.addEntry("a", "10.2.2.2");
    CHECK(stored(computer).user == "user");
    REQUIRE(RasRenameEntryA(computer.phonebook().c_str(), "a", "b") == 0);
    CHECK(stored(computer, "b").hasPassword);
    computer.addEntry("a");
    CHECK(stored(computer) == Stored{"", "", "", false});

    REQUIRE(RasDeleteEntryA(computer.phonebook().c_str(), "b") == 0);
    CHECK(readText(computer.path("credentials.dat")).find("user") == std::string::npos);
}

TEST_CASE("wrong records of dial parameters are refused") {
    const Computer computer;
    computer.addEntry("a");
    const std::string path = computer.phonebook();
    RASDIALPARAMSA params = dialParams("b");
    BOOL hasPassword = FALSE;
    CHECK(RasSetEntryDialParamsA(path.c_str(), &params, TRUE) == ERROR_CANNOT_FIND_PHONEBOOK_ENTRY);
    CHECK(RasGetEntryDialParamsA(path.c_str(), &params, &hasPassword) == ERROR_CANNOT_FIND_PHONEBOOK_ENTRY);
    CHECK(RasSetEntryDialParamsA(path.c_str(), nullptr, TRUE) == ERROR_BUFFER_INVALID);
    CHECK(RasGetEntryDialParamsA(path.c_str(), nullptr, &hasPassword) == ERROR_BUFFER_INVALID);
    CHECK(RasGetEntryDialParamsA(path.c_str(), &params, nullptr) == ERROR_BUFFER_INVALID);
    params = dialParams("a", "line\nend");
    CHECK(RasSetEntryDialParamsA(path.c_str(), &params, TRUE) == ERROR_INVALID_PARAMETER);
    params.dwSize = 1060;
    CHECK(RasSetEntryDialParamsA(path.c_str(), &params, TRUE) == ERROR_INVALID_SIZE);
    CHECK(RasGetEntryDialParamsA(path.c_str(), &params, &hasPassword) == ERROR_INVALID_SIZE);
}
