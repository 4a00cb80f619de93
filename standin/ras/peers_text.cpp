#include "standin/ras/peers_text.h"

#include <charconv>
#include <stdexcept>

namespace standin {
namespace {

using Kind = Behaviour::Kind;

constexpr unsigned largestDialCount = 1'000'000;

struct StateName {
    const char* name;
    RASCONNSTATE state;
};

constexpr StateName stateNames[] = {
    {"OpenPort", RASCS_OpenPort},
    {"PortOpened", RASCS_PortOpened},
    {"ConnectDevice", RASCS_ConnectDevice},
    {"DeviceConnected", RASCS_DeviceConnected},
    {"AllDevicesConnected", RASCS_AllDevicesConnected},
    {"Authenticate", RASCS_Authenticate},
    {"AuthNotify", RASCS_AuthNotify},
    {"Authenticated", RASCS_Authenticated},
    {"AuthProject", RASCS_AuthProject},
    {"Projected", RASCS_Projected},
    {"Connected", RASCS_Connected},
};

// The words of a behaviour, taken one by one.
class Words {
  public:
    explicit Words(std::string_view words) : rest(trimmed(words)) {}

    bool isEmpty() const { return rest.empty(); }

    std::string_view take() {
        const std::string_view word = rest.substr(0, rest.find_first_of(" \t"));
        rest = trimmed(rest.substr(word.size()));
        return word;
    }

    bool takeIf(std::string_view word) {
        Words ahead = *this;
        if (ahead.take() != word)
            return false;
        *this = ahead;
        return true;
    }

    void expect(std::string_view word) {
        if (!takeIf(word))
            complain(quoted(word) + " is missing before " + quoted(rest));
    }

    unsigned number(unsigned smallest, unsigned largest) { return numberOf(take(), smallest, largest); }
    DWORD code() { return number(1, largestCode); }
    DWORD codeOr(DWORD otherwise) { return isEmpty() ? otherwise : code(); }

  private:
    std::string_view rest;
};

RASCONNSTATE stateNamed(std::string_view name) {
    for (const StateName& each : stateNames)
        if (name == each.name)
            return each.state;
    complain("unknown state " + quoted(name));
}

void readFails(Words& words, Behaviour& behaviour) {
    behaviour.code = words.code();
    words.expect("at");
    behaviour.state = stateNamed(words.take());
    if (words.isEmpty())
        return;
    behaviour.times = words.number(1, largestDialCount);
    words.expect("times");
}

struct BehaviourName {
    const char* name;
    Kind kind;
    void (*readRest)(Words&, Behaviour&);
};

void readNothing(Words&, Behaviour&) {}

constexpr BehaviourName behaviourNames[] = {
    {"accepts", Kind::accepts, readNothing},
    {"refuses", Kind::refuses, readNothing},
    {"never-answers", Kind::neverAnswers, readNothing},
    {"disconnects", Kind::disconnects, readNothing},
    {"unreachable", Kind::unreachable,
     [](Words& words, Behaviour& behaviour) { behaviour.code = words.codeOr(ERROR_AUTOMATIC_VPN_FAILED); }},
    {"denies", Kind::denies,
     [](Words& words, Behaviour& behaviour) { behaviour.code = words.codeOr(ERROR_REMOTE_DISCONNECTION); }},
    {"drops", Kind::drops,
     [](Words& words, Behaviour& behaviour) {
         words.expect("after");
         behaviour.milliseconds = words.number(1, largestTime);
         words.takeIf("ms");
     }},
    {"busy", Kind::busy,
     [](Words& words, Behaviour& behaviour) {
         behaviour.times = words.number(1, largestDialCount);
         behaviour.isNotified = words.takeIf("notified");
     }},
    {"no-port", Kind::noPort,
     [](Words& words, Behaviour& behaviour) {
         behaviour.times = words.takeIf("always") ? 0 : words.number(1, largestDialCount);
     }},
    {"fails", Kind::fails, readFails},
};

} // namespace

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

void complain(const std::string& what) {
    throw std::invalid_argument(what);
}

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

unsigned numberOf(std::string_view text, unsigned smallest, unsigned largest) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < smallest || number > largest)
        complain(quoted(text) + " is not a number from " + std::to_string(smallest) + " to " +
                 std::to_string(largest));
    return number;
}

bool truthOf(std::string_view text) {
    if (text != "yes" && text != "no")
        complain(quoted(text) + " is neither yes nor no");
    return text == "yes";
}

Behaviour behaviourOf(std::string_view text) {
    Words words(text);
    const std::string_view name = words.take();
    for (const BehaviourName& each : behaviourNames) {
        if (name != each.name)
            continue;
        Behaviour behaviour;
        behaviour.kind = each.kind;
        behaviour.fingerprint = hashOf(text);
        each.readRest(words, behaviour);
        if (!words.isEmpty())
            complain("unexpected " + quoted(words.take()) + " in the behaviour");
        return behaviour;
    }
    complain("unknown behaviour " + quoted(name));
}

} // namespace standin
