// The port-redirect driver, service "Kestrin": the kernel loads it at boot on 32-bit Windows.
//
// This build redirects nothing. It is the image that the library carries, installs and updates: it loads,
// answers no requests, owns nothing, and can be unloaded at any time.
#include <ntddk.h>

static DRIVER_UNLOAD unload;

static void NTAPI unload(DRIVER_OBJECT* driver) {
    UNREFERENCED_PARAMETER(driver);
    DbgPrint("Kestrin: unloaded\n");
}

DRIVER_INITIALIZE DriverEntry;

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registryPath) {
    UNREFERENCED_PARAMETER(registryPath);
    driver->DriverUnload = unload;
    DbgPrint("Kestrin: loaded\n");
    return STATUS_SUCCESS;
}
