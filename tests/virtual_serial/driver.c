// A driver of serial ports that exist only in memory, and of the devices through which tests order
// them about. Made for Wine: it trusts its callers.
#include <wchar.h>

#include "tests/virtual_serial/port.h"

// Each name is followed by the port's number.
#define PORT_DEVICE L"\\Device\\VirtualSerialPort"
#define PORT_LINK L"\\DosDevices\\COM"
#define ORDERS_DEVICE L"\\Device\\VirtualSerialOrders"
#define ORDERS_LINK L"\\DosDevices\\" VIRTUAL_SERIAL_NAME

DRIVER_INITIALIZE DriverEntry;

struct port ports[PORT_COUNT];
static BOOLEAN stopping;
static PVOID clock_thread;

// What a device object stands for: a port, or the place where orders about it are taken.
struct device {
  struct port* port;
  BOOLEAN takes_orders;
};

struct device_name {
  WCHAR text[40];
  UNICODE_STRING string;
};

static void make_name(struct device_name* name, const WCHAR* prefix, ULONG number) {
  _snwprintf(name->text, RTL_NUMBER_OF(name->text), L"%ls%lu", prefix, number);
  RtlInitUnicodeString(&name->string, name->text);
}

// The port's name, by which it can be opened.
static NTSTATUS set_name(struct port* port, const WCHAR* link_prefix, const WCHAR* device_prefix,
                         BOOLEAN present) {
  struct device_name link;
  struct device_name device;
  make_name(&link, link_prefix, port->number);
  make_name(&device, device_prefix, port->number);
  IoDeleteSymbolicLink(&link.string);
  return present ? IoCreateSymbolicLink(&link.string, &device.string) : STATUS_SUCCESS;
}

static NTSTATUS complete(IRP* irp, NTSTATUS status, ULONG_PTR information) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = information;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

static void record(struct port* port, ULONG kind, ULONG size, const void* data, ULONG data_size) {
  if (port->entry_count == RTL_NUMBER_OF(port->journal))
    return;
  struct virtual_serial_entry* const entry = &port->journal[port->entry_count++];
  RtlZeroMemory(entry, sizeof(*entry));
  entry->kind = kind;
  entry->size = size;
  entry->data_size = min(data_size, sizeof(entry->data));
  RtlCopyMemory(entry->data, data, entry->data_size);
}

// The settings stay as the last user of the port left them.
static NTSTATUS NTAPI dispatch_open(DEVICE_OBJECT* object, IRP* irp) {
  const struct device* const device = object->DeviceExtension;
  struct port* const port = device->port;
  const BOOLEAN opens = IoGetCurrentIrpStackLocation(irp)->MajorFunction == IRP_MJ_CREATE;
  enter();
  if (!device->takes_orders && opens) {
    ++port->open_handles;
    port->received.size = port->wait_mask = port->events = port->errors = 0;
  } else if (!device->takes_orders) {
    --port->open_handles;
    record(port, REQUEST_CLOSE, 0, NULL, 0);
  }
  leave();
  return complete(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS submit_recorded(const struct device* device, IRP* irp, ULONG kind, ULONG size,
                                ULONG data_size) {
  struct request request = {.port = device->port,
                            .irp = irp,
                            .stack = IoGetCurrentIrpStackLocation(irp),
                            .kind = kind,
                            .limit = MAXULONG};
  enter();
  record(request.port, kind, size, irp->AssociatedIrp.SystemBuffer, data_size);
  const NTSTATUS status = submit(&request);
  leave();
  return status == STATUS_PENDING ? status : complete(irp, status, request.done);
}

static NTSTATUS NTAPI dispatch_transfer(DEVICE_OBJECT* object, IRP* irp) {
  const IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
  const BOOLEAN reads = stack->MajorFunction == IRP_MJ_READ;
  return submit_recorded(object->DeviceExtension, irp, reads ? REQUEST_READ : REQUEST_WRITE,
                         reads ? stack->Parameters.Read.Length : stack->Parameters.Write.Length, 0);
}

static NTSTATUS NTAPI dispatch_control(DEVICE_OBJECT* object, IRP* irp) {
  const struct device* const device = object->DeviceExtension;
  const IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
  const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
  ULONG size = stack->Parameters.DeviceIoControl.InputBufferLength;
  if (!device->takes_orders)
    return submit_recorded(device, irp, code, size, size);
  enter();
  NTSTATUS status = carry_out(device->port, code, irp->AssociatedIrp.SystemBuffer, &size,
                              stack->Parameters.DeviceIoControl.OutputBufferLength);
  const BOOLEAN present = !device->port->line.vanished;
  leave();
  // Names are not changed under the lock.
  if (status == STATUS_SUCCESS && (code == ORDER_LINE || code == ORDER_RESET))
    status = set_name(device->port, PORT_LINK, PORT_DEVICE, present);
  return complete(irp, status, size);
}

// Ends the reads whose time is over.
static void NTAPI run_clock(void* context) {
  UNREFERENCED_PARAMETER(context);
  LARGE_INTEGER tick = {.QuadPart = -100000};  // 10 ms from now
  while (!stopping) {
    KeDelayExecutionThread(KernelMode, FALSE, &tick);
    enter();
    for (ULONG i = 0; i < PORT_COUNT; ++i)
      settle(&ports[i]);
    leave();
  }
  PsTerminateSystemThread(STATUS_SUCCESS);
}

static NTSTATUS start_clock(void) {
  HANDLE thread;
  NTSTATUS status =
      PsCreateSystemThread(&thread, THREAD_ALL_ACCESS, NULL, NULL, NULL, run_clock, NULL);
  if (!NT_SUCCESS(status))
    return status;
  status = ObReferenceObjectByHandle(thread, SYNCHRONIZE, NULL, KernelMode, &clock_thread, NULL);
  ZwClose(thread);
  return status;
}

static NTSTATUS create_device(DRIVER_OBJECT* driver, struct port* port, const WCHAR* prefix,
                              const WCHAR* link, BOOLEAN takes_orders) {
  struct device_name name;
  make_name(&name, prefix, port->number);
  DEVICE_OBJECT* object;
  const NTSTATUS status = IoCreateDevice(driver, sizeof(struct device), &name.string,
                                         FILE_DEVICE_SERIAL_PORT, 0, FALSE, &object);
  if (!NT_SUCCESS(status))
    return status;
  *(struct device*)object->DeviceExtension = (struct device){port, takes_orders};
  object->Flags |= DO_BUFFERED_IO;
  object->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
  return set_name(port, link, prefix, TRUE);
}

static void NTAPI unload(DRIVER_OBJECT* driver) {
  stopping = TRUE;
  enter();
  for (ULONG i = 0; i < PORT_COUNT; ++i)
    finish_all(&ports[i], 0, STATUS_DEVICE_NOT_CONNECTED, TRUE);
  leave();
  KeWaitForSingleObject(clock_thread, Executive, KernelMode, FALSE, NULL);
  ObDereferenceObject(clock_thread);
  for (ULONG i = 0; i < PORT_COUNT; ++i) {
    set_name(&ports[i], PORT_LINK, PORT_DEVICE, FALSE);
    set_name(&ports[i], ORDERS_LINK, ORDERS_DEVICE, FALSE);
  }
  while (driver->DeviceObject)
    IoDeleteDevice(driver->DeviceObject);
}

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registry_path) {
  UNREFERENCED_PARAMETER(registry_path);
  driver->MajorFunction[IRP_MJ_CREATE] = dispatch_open;
  driver->MajorFunction[IRP_MJ_CLOSE] = dispatch_open;
  driver->MajorFunction[IRP_MJ_READ] = dispatch_transfer;
  driver->MajorFunction[IRP_MJ_WRITE] = dispatch_transfer;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = dispatch_control;
  driver->DriverUnload = unload;
  NTSTATUS status = STATUS_SUCCESS;
  for (ULONG i = 0; i < PORT_COUNT && NT_SUCCESS(status); ++i) {
    ports[i].number = VIRTUAL_SERIAL_FIRST_PORT + i;
    InitializeListHead(&ports[i].pending);
    reset_line(&ports[i]);
    status = create_device(driver, &ports[i], PORT_DEVICE, PORT_LINK, FALSE);
    if (NT_SUCCESS(status))
      status = create_device(driver, &ports[i], ORDERS_DEVICE, ORDERS_LINK, TRUE);
  }
  return NT_SUCCESS(status) ? start_clock() : status;
}
