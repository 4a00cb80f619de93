#pragma once

// Clears the lock of the system's phonebook code, the mutex "RasPbFile", when a thread that has ended still
// owns it. Never waits. There is no such mutex while no program uses phonebooks.
void chkRasPbFile();
