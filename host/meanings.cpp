#include "meanings.h"

#include "text.h"

#include <fmt/format.h>

#include <windows.h>

#include <algorithm>
#include <iterator>

namespace {

struct Meaning {
    unsigned long code;
    const char* words;
    const char* advice;
};

constexpr const char* waitAndRetry = "wait a minute and dial again";
constexpr const char* askOwner = "the owner of the peer's server must put the account right";
constexpr const char* checkAddress = "check the address, and that the peer's server runs and can be reached";
constexpr const char* checkFirewall =
    "a firewall on the way must let TCP port 1723 and the GRE protocol through";
constexpr const char* startService =
    "the service RasMan must run (net start RasMan); where it does, restart it or see what it says";
constexpr const char* seeLog = "the log says more (--log-level 3 --log-file FILE)";
constexpr const char* compareSettings =
    "the settings of the two sides do not fit each other; try --no-encryption";

constexpr Meaning meanings[] = {
    {ERROR_INVALID_PARAMETER, "no phonebook entry could be prepared",
     "the phonebook and its folder must be there for this user to write"},
    {602, "the port is already open", waitAndRetry},
    {608, "the VPN device does not exist", "install the device \"WAN Miniport (PPTP)\" again"},
    {609, "the VPN device's type does not exist", "install the device \"WAN Miniport (PPTP)\" again"},
    {617, "the connection was ended during the dial", waitAndRetry},
    {618, "the port is not open", waitAndRetry},
    {619, "the port was closed before the connection stood", checkFirewall},
    {621, "the phonebook cannot be opened", "check the rights on the phonebook's file"},
    {622, "the phonebook cannot be loaded", "check the rights on the phonebook's file"},
    {623, "the phonebook has no such entry", seeLog},
    {624, "the phonebook cannot be written", "check the rights on the phonebook's file"},
    {628, "the peer ended the connection before it stood", waitAndRetry},
    {629, "the peer ended the connection", waitAndRetry},
    {631, "the connection was ended by a person", ""},
    {632, "the service does not know the size of a record", seeLog},
    {633, "no free VPN port",
     "hang up a connection; a dial that was never answered keeps its port until its program ends"},
    {635, "an unknown error of the service", seeLog},
    {645, "an internal error of the authentication", waitAndRetry},
    {646, "the account may not be used at this hour", askOwner},
    {647, "the account is disabled", askOwner},
    {648, "the account's password has expired", askOwner},
    {649, "the account has no right to dial in", askOwner},
    {650, "the peer's server does not answer", checkAddress},
    {651, "the VPN device reported an error", waitAndRetry},
    {665, "the device is not ready", waitAndRetry},
    {668, "the connection was lost", waitAndRetry},
    {676, "the peer is busy", waitAndRetry},
    {678, "the peer does not answer", checkAddress},
    {691, "the user name or password was refused",
     "the id is the user name; give the password of its account"},
    {703, "the service wanted to ask a person", seeLog},
    {711, "the service that manages connections cannot start", startService},
    {718, "the peer's answer took too long", checkFirewall},
    {720, "no protocol could be agreed on with the peer", compareSettings},
    {721, "the peer does not answer in the tunnel", checkFirewall},
    {731, "the protocol is not configured", compareSettings},
    {733, "the peer does not support the network protocol", compareSettings},
    {734, "the PPP link was ended", compareSettings},
    {741, "this computer does not support the encryption asked for", compareSettings},
    {742, "the peer does not support the encryption asked for", compareSettings},
    {749, "the address is not valid", "check the address"},
    {756, "the connection is already being dialled, or did not last", waitAndRetry},
    {769, "the address cannot be reached", checkAddress},
    {770, "the peer rejected the connection", askOwner},
    {800, "no VPN tunnel could be made to the peer", checkAddress},
    {806, "the tunnel's control connection stands, but its data does not pass", checkFirewall},
    {807, "the tunnel was interrupted", waitAndRetry},
    {809, "nothing on the way to the peer answers", checkFirewall},
    {812, "the two sides' rules of authentication do not fit", compareSettings},
    {868, "the peer's name cannot be resolved", "check the address"},
    {ERROR_SERVICE_DISABLED, "a service that dialling needs is disabled", startService},
    {ERROR_SERVICE_DOES_NOT_EXIST, "a service that dialling needs is not installed", startService},
    {ERROR_SERVICE_NOT_ACTIVE, "a service that dialling needs does not run", startService},
    {RPC_S_SERVER_UNAVAILABLE, "the remote-access service does not answer", startService},
};

constexpr unsigned long firstRasCode = 600;
constexpr unsigned long lastRasCode = 899;
constexpr unsigned long serviceCodes[] = {711, ERROR_SERVICE_DISABLED, ERROR_SERVICE_DOES_NOT_EXIST,
                                          ERROR_SERVICE_NOT_ACTIVE, RPC_S_SERVER_UNAVAILABLE};

const Meaning* find(unsigned long code) {
    const auto found = std::ranges::find(meanings, code, &Meaning::code);
    return found == std::end(meanings) ? nullptr : found;
}

std::string meaningOf(unsigned long code) {
    if (const Meaning* meaning = find(code))
        return meaning->words;
    if (code >= firstRasCode && code <= lastRasCode)
        return "an error of the remote-access service";
    const std::string message = systemMessage(code);
    return message.empty() ? "an unknown error" : message;
}

} // namespace

std::string describe(unsigned long code) {
    return fmt::format("error {}, {}", code, meaningOf(code));
}

std::string adviceOn(unsigned long code) {
    const Meaning* meaning = find(code);
    return meaning ? meaning->advice : seeLog;
}

ExitCode exitCodeOf(unsigned long code) {
    return std::ranges::count(serviceCodes, code) != 0 ? ExitCode::serviceMissing : ExitCode::notConnected;
}
