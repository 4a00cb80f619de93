// A host of Varnel: prepares the computer, dials a peer, says which entry serves it, and hangs up.
#include <winsock2.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <varnel/Varnel.h>

namespace {

// The library tells of every hang-up, on the thread that hung up.
void hungUp(const std::string& id) {
    std::cout << id << ": hung up" << std::endl;
}

bool prepare() {
    std::wstring message; // for the user, in the system's language
    if (VARNEL::init(hungUp, false, false, false, true, false, message))
        return true;
    std::cerr << "The computer is not ready; the log tells why." << std::endl;
    std::wcerr << message;
    return false;
}

bool dial(const std::string& id, const std::string& password, DWORD address) {
    // The entry goes into the phonebook of all users; a peer's own would need the peer's folder.
    const DWORD result = VARNEL::dialUp(id, password, true, true, address);
    if (result == VARNEL::incomplete)
        std::cerr << "An id and a password are needed." << std::endl;
    else if (result == VARNEL::unfit)
        std::cerr << id << " is no peer's id, or the entry could not be written." << std::endl;
    else if (result != VARNEL::dialled)
        std::cerr << id << ": not connected, error " << result << std::endl;
    return result == VARNEL::dialled;
}

} // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::cerr << "usage: sample ID ADDRESS, with the password on standard input" << std::endl;
        return 2;
    }
    const std::string id = arguments[1];
    const DWORD address = ntohl(inet_addr(arguments[2]));
    std::string password;
    std::getline(std::cin, password);

    bool served = false;
    if (prepare() && dial(id, password, address)) {
        const std::string entry = VARNEL::getCurrentEntryNameById(id);
        served = !entry.empty();
        std::cout << id << (served ? ": served by entry " : ": still dialling") << entry << std::endl;
        VARNEL::dialDown(id);
    }
    VARNEL::clean();
    return served ? EXIT_SUCCESS : EXIT_FAILURE;
}
