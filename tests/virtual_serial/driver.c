// A driver of serial ports that exist only in memory. Written for Wine: it trusts its callers and
// stays loaded until Wine's services end.
#include "tests/virtual_serial/port.h"

DRIVER_INITIALIZE DriverEntry;

struct port ports[PORT_COUNT];
static KSPIN_LOCK lock;

static const struct {
  const WCHAR *device, *link;
} names[PORT_COUNT] = {
    {L"\\Device\\VirtualSerial0", L"\\DosDevices\\" VIRTUAL_SERIAL_PORT},
    {L"\\Device\\VirtualSerial1", L"\\DosDevices\\" VIRTUAL_SERIAL_FAR_PORT},
    {L"\\Device\\VirtualSerial2", L"\\DosDevices\\" VIRTUAL_SERIAL_LOCAL_PORT},
    {L"\\Device\\VirtualSerial3", L"\\DosDevices\\" VIRTUAL_SERIAL_PROGRAM_PORT}};

static void finish(struct request* request, NTSTATUS status) {
  RemoveEntryList(&request->link);
  --request->port->state.pending;
  request->irp->IoStatus.Status = status;
  request->irp->IoStatus.Information = request->done;
  IoCompleteRequest(request->irp, IO_NO_INCREMENT);
  ExFreePool(request);
}

void finish_all(struct port* port, ULONG kind, NTSTATUS status) {
  LIST_ENTRY* next;
  for (LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = next) {
    next = link->Flink;
    struct request* const request = CONTAINING_RECORD(link, struct request, link);
    if (kind != REQUEST_ANY && kind != (request->held ? REQUEST_HELD : request->kind))
      continue;
    if (kind == IOCTL_SERIAL_WAIT_ON_MASK) {  // a new mask ends the wait, without events
      *(ULONG*)request->irp->AssociatedIrp.SystemBuffer = 0;
      request->done = sizeof(ULONG);
    }
    finish(request, status);
  }
}

// Completes the first request that is ready to; false if there is none.
static BOOLEAN settle_one(struct port* port) {
  ULONG waiting[REQUEST_HELD] = {0};  // reads and writes that precede the request
  for (LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = link->Flink) {
    struct request* const request = CONTAINING_RECORD(link, struct request, link);
    if (request->held)
      continue;
    const BOOLEAN waits = request->kind < REQUEST_HELD && waiting[request->kind]++ != 0;
    if (waits && !request->irp->Cancel)
      continue;
    const NTSTATUS status = request->irp->Cancel ? STATUS_CANCELLED : advance(request);
    if (status == STATUS_PENDING)
      continue;
    finish(request, status);
    return TRUE;
  }
  return FALSE;
}

// Advances the requests of all ports until none can complete; one may enable another.
static void settle(void) {
  for (ULONG i = 0; i < PORT_COUNT;)
    i = settle_one(&ports[i]) ? 0 : i + 1;
}

static void submit(struct request* request) {
  struct virtual_serial_setup* const setup = &request->port->setup;
  InsertTailList(&request->port->pending, &request->link);
  ++request->port->state.pending;
  const BOOLEAN strikes = setup->faults != 0 &&
                          (setup->fault_kind == REQUEST_ANY || setup->fault_kind == request->kind);
  setup->faults -= strikes;
  request->held = strikes && setup->fault_status == 0;
  if (setup->vanished)
    finish(request, STATUS_DEVICE_NOT_CONNECTED);
  else if (strikes && !request->held)
    finish(request, (NTSTATUS)setup->fault_status);
}

static void set_up(struct port* port, const struct virtual_serial_setup* setup) {
  finish_all(port, REQUEST_HELD, STATUS_CANCELLED);
  for (ULONG i = 0; setup->anew && i < 2; ++i) {
    finish_all(&port[i], REQUEST_ANY, STATUS_CANCELLED);
    reset_line(&port[i]);
  }
  port->setup = *setup;
  port->events |= setup->events & port->state.wait_mask;
  if (setup->vanished)
    finish_all(port, REQUEST_ANY, STATUS_DEVICE_NOT_CONNECTED);
}

// Creates or removes the name by which programs open the device.
static NTSTATUS set_name(ULONG index, BOOLEAN exists) {
  UNICODE_STRING device, link;
  RtlInitUnicodeString(&device, names[index].device);
  RtlInitUnicodeString(&link, names[index].link);
  IoDeleteSymbolicLink(&link);
  return exists ? IoCreateSymbolicLink(&link, &device) : STATUS_SUCCESS;
}

// Must not be called with the lock held.
static void hide(struct port* port, BOOLEAN hides) {
  if (port->is_hidden != hides)
    set_name((ULONG)(port - ports), !hides);
  port->is_hidden = hides;
}

// Carries out the opening or closing of a port, or an order; these complete at once. False for any
// other request.
static BOOLEAN carry_out(struct port* port, IRP* irp, ULONG major, ULONG code) {
  void* const buffer = irp->AssociatedIrp.SystemBuffer;
  struct port* const first = first_of_pair(port);
  if (major == IRP_MJ_CREATE) {
    ++port->state.open_handles;
    port->received_size = port->state.wait_mask = port->events = port->escape = 0;
  } else if (major == IRP_MJ_CLOSE) {
    --port->state.open_handles;
  } else if (major == IRP_MJ_DEVICE_CONTROL && code == ORDER_SET_UP) {
    set_up(first, buffer);
  } else if (major == IRP_MJ_DEVICE_CONTROL && code == ORDER_GET_STATE) {
    irp->IoStatus.Information = sizeof(first->state);
    RtlCopyMemory(buffer, &first->state, sizeof(first->state));
    RtlCopyMemory(&((struct virtual_serial_state*)buffer)->baud_rate, first->settings[1], 4);
    RtlCopyMemory(((struct virtual_serial_state*)buffer)->line_control, first->settings[2], 3);
  } else {
    return FALSE;
  }
  return TRUE;
}

static NTSTATUS NTAPI dispatch(DEVICE_OBJECT* object, IRP* irp) {
  struct port* const port = *(struct port**)object->DeviceExtension;
  struct port* const first = first_of_pair(port);
  const struct virtual_serial_setup* const setup = irp->AssociatedIrp.SystemBuffer;
  IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
  const UCHAR major = stack->MajorFunction;
  const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
  KIRQL irql;
  irp->IoStatus.Information = 0;
  // Before the requests fail: a program that then opens the port again does not find it.
  if (major == IRP_MJ_DEVICE_CONTROL && code == ORDER_SET_UP && setup->vanished)
    hide(first, TRUE);
  KeAcquireSpinLock(&lock, &irql);
  const BOOLEAN done = carry_out(port, irp, major, code);
  KeReleaseSpinLock(&lock, irql);
  if (done) {
    hide(first, first->setup.vanished != 0);
    irp->IoStatus.Status = STATUS_SUCCESS;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return STATUS_SUCCESS;
  }
  struct request* const request = ExAllocatePool(NonPagedPool, sizeof(*request));
  *request = (struct request){.port = port, .irp = irp, .stack = stack};
  request->kind = major == IRP_MJ_READ    ? REQUEST_READ
                  : major == IRP_MJ_WRITE ? REQUEST_WRITE
                                          : code;
  IoMarkIrpPending(irp);
  KeAcquireSpinLock(&lock, &irql);
  submit(request);
  settle();
  KeReleaseSpinLock(&lock, irql);
  return STATUS_PENDING;
}

// Completes the reads that have timed out and the requests that have been cancelled.
static void NTAPI run_clock(void* context) {
  UNREFERENCED_PARAMETER(context);
  LARGE_INTEGER tick = {.QuadPart = -100000};  // 10 ms from now
  KIRQL irql;
  for (;;) {
    KeDelayExecutionThread(KernelMode, FALSE, &tick);
    KeAcquireSpinLock(&lock, &irql);
    settle();
    KeReleaseSpinLock(&lock, irql);
  }
}

static NTSTATUS create_device(DRIVER_OBJECT* driver, ULONG index) {
  UNICODE_STRING name;
  DEVICE_OBJECT* object;
  RtlInitUnicodeString(&name, names[index].device);
  const NTSTATUS status = IoCreateDevice(driver, sizeof(struct port*), &name,
                                         FILE_DEVICE_SERIAL_PORT, 0, FALSE, &object);
  if (!NT_SUCCESS(status))
    return status;
  InitializeListHead(&ports[index].pending);
  reset_line(&ports[index]);
  *(struct port**)object->DeviceExtension = &ports[index];
  object->Flags |= DO_BUFFERED_IO;
  object->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
  return set_name(index, TRUE);
}

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registry_path) {
  UNREFERENCED_PARAMETER(registry_path);
  static const UCHAR majors[] = {IRP_MJ_CREATE, IRP_MJ_CLOSE, IRP_MJ_READ, IRP_MJ_WRITE,
                                 IRP_MJ_DEVICE_CONTROL};
  for (ULONG i = 0; i < RTL_NUMBER_OF(majors); ++i)
    driver->MajorFunction[majors[i]] = dispatch;
  NTSTATUS status = STATUS_SUCCESS;
  HANDLE clock_thread;
  for (ULONG i = 0; i < PORT_COUNT && NT_SUCCESS(status); ++i)
    status = create_device(driver, i);
  return NT_SUCCESS(status) ? PsCreateSystemThread(&clock_thread, THREAD_ALL_ACCESS, NULL, NULL,
                                                   NULL, run_clock, NULL)
                            : status;
}
