// The DNS-filter driver, service "Ombrel": started on demand, before Windows Vista.
//
// This build filters nothing. It listens for the coming and going of network addresses, as a filter must to know where
// to attach, and does nothing with what it hears; it can be unloaded at any time.
#include <ntddk.h>
#include <tdikrnl.h>

static DRIVER_UNLOAD unload;

static HANDLE notifications; // null when the system gave none
static LARGE_INTEGER loadedAt;

static void NTAPI addressArrived(PTA_ADDRESS address, PUNICODE_STRING device, PTDI_PNP_CONTEXT context) {
    UNREFERENCED_PARAMETER(address);
    UNREFERENCED_PARAMETER(device);
    UNREFERENCED_PARAMETER(context);
}

static void registerForAddresses(void) {
    static const WCHAR clientName[] = L"Ombrel";
    TDI_CLIENT_INTERFACE_INFO client;
    UNICODE_STRING name;

    RtlInitUnicodeString(&name, clientName);
    RtlZeroMemory(&client, sizeof client);
    client.MajorTdiVersion = TDI_CURRENT_MAJOR_VERSION;
    client.MinorTdiVersion = TDI_CURRENT_MINOR_VERSION;
    client.ClientName = &name;
    client.AddAddressHandlerV2 = addressArrived;
    client.DelAddressHandlerV2 = addressArrived;
    if (!NT_SUCCESS(TdiRegisterPnPHandlers(&client, sizeof client, &notifications)))
        notifications = NULL;
}

static void NTAPI unload(DRIVER_OBJECT* driver) {
    const LONGLONG ticks = KeQueryPerformanceCounter(NULL).QuadPart - loadedAt.QuadPart;
    UNREFERENCED_PARAMETER(driver);
    if (notifications != NULL)
        TdiDeregisterPnPHandlers(notifications);
    DbgPrint("Ombrel: unloaded, %I64d ticks after it was loaded\n", ticks);
}

DRIVER_INITIALIZE DriverEntry;

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registryPath) {
    UNREFERENCED_PARAMETER(registryPath);
    driver->DriverUnload = unload;
    loadedAt = KeQueryPerformanceCounter(NULL);
    registerForAddresses();
    DbgPrint("Ombrel: loaded\n");
    return STATUS_SUCCESS;
}
