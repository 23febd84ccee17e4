// A driver of serial ports that exist only in memory, and of the devices through which tests order
// them about.
#include <wchar.h>

#include "tests/virtual_serial/port.h"

// Each name is followed by the port's number.
#define PORT_DEVICE L"\\Device\\VirtualSerialPort"
#define PORT_LINK L"\\DosDevices\\COM"
#define ORDERS_DEVICE L"\\Device\\VirtualSerialOrders"
#define ORDERS_LINK L"\\DosDevices\\" VIRTUAL_SERIAL_NAME

DRIVER_INITIALIZE DriverEntry;

struct port ports[PORT_COUNT];

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

ULONGLONG milliseconds(void) {
  LARGE_INTEGER frequency;
  const LARGE_INTEGER now = KeQueryPerformanceCounter(&frequency);
  return (ULONGLONG)now.QuadPart / ((ULONGLONG)frequency.QuadPart / 1000);
}

NTSTATUS set_name(struct port* port, BOOLEAN present) {
  struct device_name link;
  struct device_name device;
  make_name(&link, PORT_LINK, port->number);
  make_name(&device, PORT_DEVICE, port->number);
  IoDeleteSymbolicLink(&link.string);
  return present ? IoCreateSymbolicLink(&link.string, &device.string) : STATUS_SUCCESS;
}

static NTSTATUS complete(IRP* irp, NTSTATUS status, ULONG_PTR information) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = information;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

static NTSTATUS NTAPI dispatch_open(DEVICE_OBJECT* object, IRP* irp) {
  const struct device* const device = object->DeviceExtension;
  struct port* const port = device->port;
  const BOOLEAN opens = IoGetCurrentIrpStackLocation(irp)->MajorFunction == IRP_MJ_CREATE;
  if (!device->takes_orders) {
    enter();
    record(port, opens ? REQUEST_OPEN : REQUEST_CLOSE, 0, NULL, 0);
    if (opens) {
      ++port->open_handles;
      open_line(port);
    } else {
      --port->open_handles;
    }
    leave();
  }
  return complete(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS submit_recorded(struct request* request, ULONG size, ULONG data_size) {
  enter();
  record(request->port, request->kind, size, request->irp->AssociatedIrp.SystemBuffer, data_size);
  const NTSTATUS status = submit(request);
  leave();
  return status == STATUS_PENDING ? status : complete(request->irp, status, request->done);
}

static struct request make_request(const struct device* device, IRP* irp, ULONG kind) {
  const struct request request = {
      .port = device->port, .irp = irp, .kind = kind, .limit = MAXULONG, .deadline = NEVER};
  return request;
}

static NTSTATUS NTAPI dispatch_transfer(DEVICE_OBJECT* object, IRP* irp) {
  const struct device* const device = object->DeviceExtension;
  if (device->takes_orders)
    return complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
  const IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
  const BOOLEAN reads = stack->MajorFunction == IRP_MJ_READ;
  struct request request = make_request(device, irp, reads ? REQUEST_READ : REQUEST_WRITE);
  return submit_recorded(&request,
                         reads ? stack->Parameters.Read.Length : stack->Parameters.Write.Length, 0);
}

static NTSTATUS NTAPI dispatch_control(DEVICE_OBJECT* object, IRP* irp) {
  const struct device* const device = object->DeviceExtension;
  const IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
  const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
  ULONG size = stack->Parameters.DeviceIoControl.InputBufferLength;
  if (device->takes_orders) {
    const NTSTATUS status = carry_out(device->port, code, irp->AssociatedIrp.SystemBuffer, &size,
                                      stack->Parameters.DeviceIoControl.OutputBufferLength);
    return complete(irp, status, size);
  }
  struct request request = make_request(device, irp, code);
  return submit_recorded(&request, size, size);
}

static NTSTATUS create_device(DRIVER_OBJECT* driver, struct port* port, const WCHAR* prefix,
                              BOOLEAN takes_orders) {
  struct device_name name;
  make_name(&name, prefix, port->number);
  DEVICE_OBJECT* object;
  const NTSTATUS status = IoCreateDevice(driver, sizeof(struct device), &name.string,
                                         FILE_DEVICE_SERIAL_PORT, 0, FALSE, &object);
  if (!NT_SUCCESS(status))
    return status;
  struct device* const device = object->DeviceExtension;
  device->port = port;
  device->takes_orders = takes_orders;
  object->Flags |= DO_BUFFERED_IO;
  object->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
  return STATUS_SUCCESS;
}

static NTSTATUS create_port(DRIVER_OBJECT* driver, struct port* port) {
  struct device_name link;
  struct device_name orders;
  make_name(&link, ORDERS_LINK, port->number);
  make_name(&orders, ORDERS_DEVICE, port->number);
  NTSTATUS status = byte_queue_create(&port->received);
  if (NT_SUCCESS(status))
    status = byte_queue_create(&port->sent);
  if (NT_SUCCESS(status))
    status = create_device(driver, port, PORT_DEVICE, FALSE);
  if (NT_SUCCESS(status))
    status = create_device(driver, port, ORDERS_DEVICE, TRUE);
  if (NT_SUCCESS(status))
    status = IoCreateSymbolicLink(&link.string, &orders.string);
  if (NT_SUCCESS(status))
    status = set_name(port, TRUE);
  return status;
}

static void delete_ports(DRIVER_OBJECT* driver) {
  for (ULONG i = 0; i < PORT_COUNT; ++i) {
    struct device_name link;
    make_name(&link, ORDERS_LINK, ports[i].number);
    IoDeleteSymbolicLink(&link.string);
    set_name(&ports[i], FALSE);
    byte_queue_destroy(&ports[i].received);
    byte_queue_destroy(&ports[i].sent);
  }
  while (driver->DeviceObject)
    IoDeleteDevice(driver->DeviceObject);
}

static void NTAPI unload(DRIVER_OBJECT* driver) {
  stop_requests();
  delete_ports(driver);
}

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registry_path) {
  UNREFERENCED_PARAMETER(registry_path);
  driver->MajorFunction[IRP_MJ_CREATE] = dispatch_open;
  driver->MajorFunction[IRP_MJ_CLOSE] = dispatch_open;
  driver->MajorFunction[IRP_MJ_READ] = dispatch_transfer;
  driver->MajorFunction[IRP_MJ_WRITE] = dispatch_transfer;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = dispatch_control;
  driver->DriverUnload = unload;

  for (ULONG i = 0; i < PORT_COUNT; ++i) {
    ports[i].number = VIRTUAL_SERIAL_FIRST_PORT + i;
    ports[i].connected = TRUE;
    InitializeListHead(&ports[i].pending);
    reset_line(&ports[i]);
  }
  NTSTATUS status = STATUS_SUCCESS;
  for (ULONG i = 0; i < PORT_COUNT && NT_SUCCESS(status); ++i)
    status = create_port(driver, &ports[i]);
  if (NT_SUCCESS(status))
    status = start_requests();
  if (!NT_SUCCESS(status))
    delete_ports(driver);
  return status;
}
