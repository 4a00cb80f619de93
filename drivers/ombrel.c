// The DNS-filter driver, service "Ombrel": started on demand, before Windows Vista.
//
// This build filters nothing. It has the shape of a TDI filter, but makes no device and attaches to none, so
// that no request reaches it, and it can be unloaded at any time.
#include <ntddk.h>
#include <tdikrnl.h>

static DRIVER_UNLOAD unload;
static DRIVER_DISPATCH refuse;

static LARGE_INTEGER loadedAt;

static void NTAPI unload(DRIVER_OBJECT* driver) {
    const LONGLONG ticks = KeQueryPerformanceCounter(NULL).QuadPart - loadedAt.QuadPart;
    UNREFERENCED_PARAMETER(driver);
    DbgPrint("Ombrel: unloaded, %I64d ticks after it was loaded\n", ticks);
}

// A TDI filter meets its requests as user requests, too; whichever it is, it is refused.
static NTSTATUS NTAPI refuse(DEVICE_OBJECT* device, IRP* irp) {
    const NTSTATUS mapped = TdiMapUserRequest(device, irp, IoGetCurrentIrpStackLocation(irp));
    irp->IoStatus.Status = NT_SUCCESS(mapped) ? STATUS_NOT_SUPPORTED : STATUS_INVALID_DEVICE_REQUEST;
    irp->IoStatus.Information = 0;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return NT_SUCCESS(mapped) ? STATUS_NOT_SUPPORTED : STATUS_INVALID_DEVICE_REQUEST;
}

DRIVER_INITIALIZE DriverEntry;

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registryPath) {
    UNREFERENCED_PARAMETER(registryPath);
    driver->DriverUnload = unload;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = refuse;
    loadedAt = KeQueryPerformanceCounter(NULL);
    DbgPrint("Ombrel: loaded\n");
    return STATUS_SUCCESS;
}
