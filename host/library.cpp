#include "library.h"

#include "connections.h"
#include "console.h"
#include "interruption.h"
#include "outside/Helper.h"
#include "text.h"
#include "varnel/Varnel.h"

#include <fmt/format.h>

#include <mutex>
#include <set>

namespace {

struct {
    std::mutex lock;
    Console* console = nullptr;
    std::set<std::string> connected = {}; // in lower case
} told;

// Called by the library on the thread that hung up.
void onHangUp(const std::string& id) {
    const std::lock_guard hold(told.lock);
    if (!told.connected.contains(lowCase(id)) || activeConnections().has(id))
        return;
    told.connected.erase(lowCase(id));
    told.console->message(utf8FromAnsi(id) + ": hung up (told by the library)");
}

// Every line of a text for a person, whose line ends are Windows'.
void showMessage(const std::wstring& message, Console& console) {
    std::string text = unicode2utf8(message);
    std::erase(text, '\r');
    if (!text.empty())
        console.message(text);
}

} // namespace

bool Library::init(const Wishes& wishes, Console& console) {
    life = wishes.onlyClient ? Life::onlyDials : Life::prepared;
    std::wstring message;
    const Uninterruptible running;
    const bool ready = VARNEL::init(onHangUp, wishes.kestrin, wishes.ombrel, wishes.anyAddress,
                                    wishes.onlyClient, wishes.disableRemoteAccess, message);
    showMessage(message, console);
    return ready;
}

bool Library::initForDialling(Console& console) {
    if (life != Life::none)
        return true;
    const bool ready = init({.onlyClient = true}, console);
    life = Life::leastInit;
    return ready;
}

void Library::clean() {
    const Uninterruptible running;
    VARNEL::clean();
    life = Life::none;
}

ToldHangUps::ToldHangUps(Console& console) {
    const std::lock_guard hold(told.lock);
    told.console = &console;
    for (const auto& connection : activeConnections().list)
        told.connected.insert(connection.peer);
}

ToldHangUps::~ToldHangUps() {
    const std::lock_guard hold(told.lock);
    told.connected.clear();
}
