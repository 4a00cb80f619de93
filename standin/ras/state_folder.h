// Where the computer's remote-access state lies. The environment is asked each time: a process may change it.
#pragma once

#include <string>

namespace standin {

// The folder of the connection table and, unless said otherwise, peers.ini: environment variable
// STANDIN_RAS_FOLDER, else StandinRas in the folder of data common to all users. No backslash ends it.
std::string stateFolder();

// The file that describes the peers: environment variable STANDIN_RAS_PEERS, else the folder's peers.ini.
std::string peersPath();

// The phonebook of all users and that of the current user, whether or not they exist.
std::string allUsersPhonebook();
std::string userPhonebook();

// The full path of `path`, as all parts of the stand-in compare and show it.
std::string fullPath(const std::string& path);

// Creates `folder` and those above it, as far as they are missing and that is possible.
void createFolders(const std::string& folder);

} // namespace standin
