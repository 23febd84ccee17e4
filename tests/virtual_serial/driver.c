// A driver of serial ports that exist only in memory, and of the device through which tests order
// them about. Made for Wine: it trusts its callers.
#include "tests/virtual_serial/port.h"

DRIVER_INITIALIZE DriverEntry;
NTSTATUS NTAPI ZwWaitForSingleObject(HANDLE object, BOOLEAN alertable, LARGE_INTEGER* timeout);

struct port ports[2];
static KSPIN_LOCK
    lock;  // nobody has it while a request is being completed but the one that does so
static BOOLEAN stopping;
static BOOLEAN present = TRUE;  // the first port's name
static HANDLE clock_thread;

// The ports, and last the device that takes the orders.
static const WCHAR* const devices[] = {L"\\Device\\VirtualSerial0", L"\\Device\\VirtualSerial1",
                                       L"\\Device\\VirtualSerialOrders"};
static const WCHAR* const links[] = {L"\\DosDevices\\" VIRTUAL_SERIAL_PORT,
                                     L"\\DosDevices\\" VIRTUAL_SERIAL_FAR_PORT,
                                     L"\\DosDevices\\" VIRTUAL_SERIAL_NAME};

static void hand_back(struct request* request) {
  IoCompleteRequest(request->irp, IO_NO_INCREMENT);
  ExFreePool(request);
}

static void finish(struct request* request, NTSTATUS status) {
  RemoveEntryList(&request->link);
  --request->port->state.pending;
  request->finished = TRUE;
  request->irp->IoStatus.Status = status;
  request->irp->IoStatus.Information = request->done;
  // Without its routine the cancellation has begun: it hands the request back with this outcome.
  if (request->held || IoSetCancelRoutine(request->irp, NULL))
    hand_back(request);
}

void finish_all(struct port* port, ULONG kind, NTSTATUS status) {
  LIST_ENTRY* next;
  for (LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = next) {
    next = link->Flink;
    struct request* const request = CONTAINING_RECORD(link, struct request, link);
    if (kind != REQUEST_ANY && kind != (request->held ? REQUEST_HELD : request->kind))
      continue;
    if (kind == IOCTL_SERIAL_WAIT_ON_MASK) {  // a new mask: it ends without events
      *(ULONG*)request->irp->AssociatedIrp.SystemBuffer = 0;
      request->done = sizeof(ULONG);
    }
    finish(request, status);
  }
}

// Finishes the first request that can go on; false when there is none.
static BOOLEAN settle_one(struct port* port) {
  BOOLEAN reads = FALSE;
  for (LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = link->Flink) {
    struct request* const request = CONTAINING_RECORD(link, struct request, link);
    if (request->held || (reads && request->kind == REQUEST_READ))
      continue;
    reads |= request->kind == REQUEST_READ;
    const NTSTATUS status = advance(request);
    if (status == STATUS_PENDING)
      continue;
    finish(request, status);
    return TRUE;
  }
  return FALSE;
}

// Carries on what may have got what it waits for, at either end.
static void settle(void) {
  while (settle_one(&ports[0]) || settle_one(&ports[1])) {
  }
}

static void NTAPI cancel_request(DEVICE_OBJECT* device, IRP* irp) {
  UNREFERENCED_PARAMETER(device);
  KIRQL irql;
  IoReleaseCancelSpinLock(irp->CancelIrql);
  KeAcquireSpinLock(&lock, &irql);
  struct request* const request = irp->Tail.Overlay.DriverContext[0];
  if (!request->finished)
    finish(request, STATUS_CANCELLED);
  hand_back(request);
  settle();
  KeReleaseSpinLock(&lock, irql);
}

static void submit(struct request* request) {
  struct virtual_serial_setup* const setup = &request->port->setup;
  InsertTailList(&request->port->pending, &request->link);
  ++request->port->state.pending;
  const BOOLEAN strikes = setup->faults != 0 &&
                          (setup->fault_kind == REQUEST_ANY || setup->fault_kind == request->kind);
  setup->faults -= strikes;
  request->held = strikes && setup->fault_status == 0;
  if (!request->held)
    IoSetCancelRoutine(request->irp, cancel_request);
  if (setup->vanished)
    finish(request, STATUS_DEVICE_NOT_CONNECTED);
  else if (strikes && !request->held)
    finish(request, (NTSTATUS)setup->fault_status);
  else if (!request->held && request->irp->Cancel)
    finish(request, STATUS_CANCELLED);
}

static void set_up(const struct virtual_serial_setup* setup) {
  finish_all(&ports[0], REQUEST_HELD, STATUS_CANCELLED);
  for (ULONG i = 0; setup->anew && i < RTL_NUMBER_OF(ports); ++i) {
    finish_all(&ports[i], REQUEST_ANY, STATUS_CANCELLED);
    reset_line(&ports[i]);
  }
  ports[0].setup = *setup;
  ports[0].events |= setup->events & ports[0].state.wait_mask;
  if (setup->vanished)
    finish_all(&ports[0], REQUEST_ANY, STATUS_DEVICE_NOT_CONNECTED);
}

// The name by which a program finds the device.
static NTSTATUS set_name(ULONG index, BOOLEAN exists) {
  UNICODE_STRING device, link;
  RtlInitUnicodeString(&device, devices[index]);
  RtlInitUnicodeString(&link, links[index]);
  IoDeleteSymbolicLink(&link);
  return exists ? IoCreateSymbolicLink(&link, &device) : STATUS_SUCCESS;
}

// An order, and the opening and closing of a port, end at once.
static void carry_out(struct port* port, IRP* irp, const IO_STACK_LOCATION* stack) {
  void* const buffer = irp->AssociatedIrp.SystemBuffer;
  if (port && stack->MajorFunction == IRP_MJ_CREATE) {
    ++port->state.open_handles;
    port->received_size = port->state.wait_mask = port->events = 0;
  } else if (port) {
    --port->state.open_handles;
  } else if (stack->MajorFunction != IRP_MJ_DEVICE_CONTROL) {
    return;
  } else if (stack->Parameters.DeviceIoControl.IoControlCode == ORDER_SET_UP) {
    set_up(buffer);
  } else {
    irp->IoStatus.Information = sizeof(ports[0].state);
    RtlCopyMemory(buffer, &ports[0].state, sizeof(ports[0].state));
  }
}

static NTSTATUS NTAPI dispatch(DEVICE_OBJECT* object, IRP* irp) {
  struct port* const port = *(struct port**)object->DeviceExtension;
  IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
  const UCHAR major = stack->MajorFunction;
  KIRQL irql;
  if (!port || major == IRP_MJ_CREATE || major == IRP_MJ_CLOSE) {
    irp->IoStatus.Information = 0;
    KeAcquireSpinLock(&lock, &irql);
    carry_out(port, irp, stack);
    KeReleaseSpinLock(&lock, irql);
    if (present == ports[0].setup.vanished)  // not under the lock
      set_name(0, present = !present);
    irp->IoStatus.Status = STATUS_SUCCESS;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return STATUS_SUCCESS;
  }
  struct request* const request = ExAllocatePool(NonPagedPool, sizeof(*request));
  *request = (struct request){.port = port, .irp = irp, .stack = stack};
  request->kind = major == IRP_MJ_READ    ? REQUEST_READ
                  : major == IRP_MJ_WRITE ? REQUEST_WRITE
                                          : stack->Parameters.DeviceIoControl.IoControlCode;
  irp->Tail.Overlay.DriverContext[0] = request;
  IoMarkIrpPending(irp);
  KeAcquireSpinLock(&lock, &irql);
  submit(request);
  settle();
  KeReleaseSpinLock(&lock, irql);
  return STATUS_PENDING;
}

// Ends the reads whose time is over.
static void NTAPI run_clock(void* context) {
  UNREFERENCED_PARAMETER(context);
  LARGE_INTEGER tick = {.QuadPart = -100000};  // 10 ms from now
  KIRQL irql;
  while (!stopping) {
    KeDelayExecutionThread(KernelMode, FALSE, &tick);
    KeAcquireSpinLock(&lock, &irql);
    settle();
    KeReleaseSpinLock(&lock, irql);
  }
  PsTerminateSystemThread(STATUS_SUCCESS);
}

static void NTAPI unload(DRIVER_OBJECT* driver) {
  stopping = TRUE;
  ZwWaitForSingleObject(clock_thread, FALSE, NULL);
  ZwClose(clock_thread);
  set_up(&(struct virtual_serial_setup){.anew = 1});
  for (ULONG i = 0; i < RTL_NUMBER_OF(links); ++i)
    set_name(i, FALSE);
  while (driver->DeviceObject)
    IoDeleteDevice(driver->DeviceObject);
}

static NTSTATUS create_device(DRIVER_OBJECT* driver, ULONG index) {
  UNICODE_STRING name;
  DEVICE_OBJECT* object;
  RtlInitUnicodeString(&name, devices[index]);
  const NTSTATUS status = IoCreateDevice(driver, sizeof(struct port*), &name,
                                         FILE_DEVICE_SERIAL_PORT, 0, FALSE, &object);
  if (!NT_SUCCESS(status))
    return status;
  *(struct port**)object->DeviceExtension = index < RTL_NUMBER_OF(ports) ? &ports[index] : NULL;
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
  driver->DriverUnload = unload;
  NTSTATUS status = STATUS_SUCCESS;
  for (ULONG i = 0; i < RTL_NUMBER_OF(ports); ++i)
    InitializeListHead(&ports[i].pending);
  set_up(&(struct virtual_serial_setup){.anew = 1});
  for (ULONG i = 0; i < RTL_NUMBER_OF(devices) && NT_SUCCESS(status); ++i)
    status = create_device(driver, i);
  return NT_SUCCESS(status) ? PsCreateSystemThread(&clock_thread, THREAD_ALL_ACCESS, NULL, NULL,
                                                   NULL, run_clock, NULL)
                            : status;
}
