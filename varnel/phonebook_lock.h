#pragma once

// Clears the lock of the system's phonebook code, the mutex "RasPbFile", when a thread that has ended still
// owns it. Never waits. The service makes the mutex, so there is none before its first use of a phonebook.
void chkRasPbFile();
