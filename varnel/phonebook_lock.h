#pragma once

// Clears the lock of the system's phonebook code when a thread that has ended still owns it. Never waits.
void chkRasPbFile();
