// The library's static state.
#include "Varnel.h"

#include <boost/asio/detail/winsock_init.hpp>

namespace {

// Starts Windows Sockets 2.0 for as long as the library is loaded. A failure shows later, when a socket is
// asked for: throwing here would leave the host with an unexplained load error.
const boost::asio::detail::winsock_init<2, 0> windowsSockets(false);

} // namespace

const DWORD VARNEL::MaxWanEndPoints = 32;
const DWORD VARNEL::WanEndPoints = 10;
DIALUP_CALLBACK VARNEL::callback;
volatile long VARNEL::callbackIdIndex = 0;
bool VARNEL::isWin6Plus = false;
bool VARNEL::onlyClient = false;
char VARNEL::pathNameKestrin[260] = {};
char VARNEL::pathNameOmbrel[260] = {};
void (*VARNEL::pptpsrvDialDownCallback)(const std::string&) = nullptr;
std::string VARNEL::publicPhoneBook;
SOCKET VARNEL::s1723 = INVALID_SOCKET;
