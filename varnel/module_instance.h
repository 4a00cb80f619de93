#pragma once

#include <windows.h>

// The library's own module, whose resources carry the driver images. Set once, when the library is loaded.
extern HINSTANCE moduleInstance;
