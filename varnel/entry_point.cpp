#include "module_instance.h"

HINSTANCE moduleInstance = nullptr;

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH)
        moduleInstance = instance;
    return TRUE;
}
