// The host killed at any moment of preparing its computer and of dialling, and started again: nothing stays
// half done. For a computer before Windows Vista, where the most is to be undone.
#include "outside/Helper.h"
#include "tests/campaigns/campaign.h"
#include "tests/end_to_end/computer_kit.h"
#include "tests/end_to_end/host_kit.h"

#include <catch2/catch.hpp>
#include <fmt/format.h>

#include <array>
#include <random>

namespace fs = std::filesystem;

namespace {

constexpr const char* peers =
    "[service]\nhang-up-linger=0\n[10.0.0.1]\naccount=harbor:{0}\n[10.0.0.2]\naccount=north:{0}\n";
const std::string init = "init --ombrel\n";
const std::string dials = "dial harbor 10.0.0.1 &\ndial north 10.0.0.2 --public &\nwait\n";
constexpr unsigned long long oldVersion = (4ULL << 48) | 4;
constexpr unsigned long long carriedVersion = (4ULL << 48) | 5;
constexpr DWORD longestWait = 60'000; // ms

// An operation of the library, in which the host is killed.
struct Target {
    std::string commands;
    std::string operation;
    DWORD duration = 0; // ms
    int struck = 0;     // how often it was under way when the host died
};

class KilledHost {
  public:
    KilledHost()
        : world(fmt::format(peers, goodPassword)),
          session(fmt::format("session --password-file \"{}\"",
                              world.write("all.password", goodPassword).string())),
          driver(systemFolder() / "Drivers" / "Ombrel.SYS"), staged(driver.string() + ".tmp") {}
    ~KilledHost() { uninstallDriver("Ombrel", driver); }
    KilledHost(const KilledHost&) = delete;
    KilledHost& operator=(const KilledHost&) = delete;

    // How long the operation takes when nobody disturbs it.
    void measure(Target& target) {
        makeComputer(target);
        HostRun run = world.start(session, target.commands);
        waitFor("==>>" + target.operation);
        const DWORD start = GetTickCount();
        waitFor("<<== " + target.operation);
        target.duration = GetTickCount() - start;
        run.finish();
    }

    void killIn(Target& target, DWORD delay) {
        makeComputer(target);
        HostRun run = world.start(session, target.commands);
        waitFor("==>>" + target.operation);
        Sleep(delay);
        run.kill();
        const std::string log = world.log();
        if (log.find("<<== " + target.operation) == log.npos)
            ++target.struck;
    }

    void checkWhatIsLeft() const {
        CHECK(canBind(1723));
        CHECK(isReadable(world.phonebookOf("harbor")));
        CHECK(isReadable(textOf(phonebookOfAllUsers())));
        const unsigned long long version = GetFileVersion(driver.string());
        CHECK((version == oldVersion || version == carriedVersion));
    }

    void checkSecondStart() const {
        const Outcome second = world.run(session, init + dials);
        INFO(second.output << second.messages);
        CHECK(second.exitCode == 0);
        CHECK(GetFileVersion(driver.string()) == carriedVersion);
        CHECK_FALSE(fs::exists(staged));
        CHECK(entriesOf("harbor", world.phonebookOf("harbor")) == 1);
        CHECK(entriesOf("north", textOf(phonebookOfAllUsers())) == 1);
        CHECK(count(second.output, ": connected, entry") == 2);
        CHECK(canBind(1723));
    }

  private:
    // The computer as the host finds it: the entries and connections of the run before, and for init an older
    // driver.
    void makeComputer(const Target& target) {
        if (target.commands == init) {
            uninstallDriver("Ombrel", driver);
            writeDriver(driver, 4);
        }
        fs::remove(world.folder / "varnel.log");
    }

    void waitFor(const std::string& text) const {
        const DWORD start = GetTickCount();
        while (world.log().find(text) == std::string::npos) {
            if (GetTickCount() - start > longestWait)
                throw std::runtime_error("the host never logged " + text);
            Sleep(1);
        }
    }

    // Whole lines, each of which is a section, a key with its value, or empty.
    static bool isReadable(const std::string& phonebook) {
        std::istringstream lines(phonebook);
        for (std::string line; std::getline(lines, line);)
            if (!line.ends_with('\r') || (line != "\r" && line.front() != '[' && line.find('=') == line.npos))
                return false;
        return phonebook.empty() || phonebook.ends_with('\n');
    }

    static std::size_t entriesOf(const std::string& id, const std::string& phonebook) {
        return count("\n" + phonebook, "\n[" + id + " #");
    }

    const World world;
    const std::string session;
    const fs::path driver;
    const fs::path staged;
};

} // namespace

TEST_CASE("a host that is killed at any moment starts again as if nothing had been") {
    const Campaign campaign("kills");
    const int kills = campaign.soak ? 200 : 50;
    std::mt19937 random(campaign.seed);
    KilledHost host;
    std::array targets = {Target{init, "VARNEL::init("}, Target{init + dials, "VARNEL::dialUp(harbor"},
                          Target{init + dials, "VARNEL::dialUp(north"}};
    host.checkSecondStart();
    for (Target& target : targets)
        host.measure(target);
    for (int kill = 0; kill < kills; ++kill) {
        Target& target = targets[random() % targets.size()];
        const DWORD delay = static_cast<DWORD>(random() % (target.duration + 1));
        INFO("kill " << kill << ", " << delay << " ms into " << target.operation);
        host.killIn(target, delay);
        host.checkWhatIsLeft();
        host.checkSecondStart();
    }
    campaign.report(fmt::format("{} hosts killed, {} in init and {} in a dial", kills, targets[0].struck,
                                targets[1].struck + targets[2].struck));
}
