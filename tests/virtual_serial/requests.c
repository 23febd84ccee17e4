// Requests that wait: their cancellation, their deadlines, and their completion outside the lock.
#include "tests/virtual_serial/port.h"

static KSPIN_LOCK lock;
static KIRQL irql_outside;    // the rest is guarded by lock
static LIST_ENTRY completed;  // IRPs to complete when the lock is left
static ULONGLONG alarm;       // when the clock's thread wakes up by itself
static BOOLEAN stopping;

static KEVENT clock_changed;
static PVOID clock_thread;

static struct request* request_of(LIST_ENTRY* link) {
  return CONTAINING_RECORD(link, struct request, link);
}

static ULONGLONG earliest_deadline(void) {
  ULONGLONG earliest = NEVER;
  for (ULONG i = 0; i < PORT_COUNT; ++i) {
    LIST_ENTRY* const pending = &ports[i].pending;
    for (LIST_ENTRY* link = pending->Flink; link != pending; link = link->Flink)
      earliest = min(earliest, request_of(link)->deadline);
  }
  return earliest;
}

void enter(void) {
  KIRQL irql;
  KeAcquireSpinLock(&lock, &irql);
  irql_outside = irql;
}

void leave(void) {
  LIST_ENTRY ours;
  InitializeListHead(&ours);
  while (!IsListEmpty(&completed))
    InsertTailList(&ours, RemoveHeadList(&completed));
  const BOOLEAN wake_clock = stopping || earliest_deadline() < alarm;
  KeReleaseSpinLock(&lock, irql_outside);

  if (wake_clock)
    KeSetEvent(&clock_changed, IO_NO_INCREMENT, FALSE);
  while (!IsListEmpty(&ours)) {
    IRP* const irp = CONTAINING_RECORD(RemoveHeadList(&ours), IRP, Tail.Overlay.ListEntry);
    IoCompleteRequest(irp, IO_NO_INCREMENT);
  }
}

static void NTAPI run_clock(void* context) {
  UNREFERENCED_PARAMETER(context);
  for (;;) {
    enter();
    for (ULONG i = 0; i < PORT_COUNT; ++i)
      settle(&ports[i]);
    alarm = earliest_deadline();
    const BOOLEAN ends = stopping;
    const ULONGLONG now = milliseconds();
    LARGE_INTEGER wait;  // negative: from now on, in units of 100 ns
    wait.QuadPart = alarm > now ? -(LONGLONG)(min(alarm - now, 1000000) * 10000) : 0;
    leave();
    if (ends)
      break;
    KeWaitForSingleObject(&clock_changed, Executive, KernelMode, FALSE, &wait);
  }
  PsTerminateSystemThread(STATUS_SUCCESS);
}

NTSTATUS start_requests(void) {
  KeInitializeSpinLock(&lock);
  KeInitializeEvent(&clock_changed, SynchronizationEvent, FALSE);
  InitializeListHead(&completed);
  stopping = FALSE;
  HANDLE thread;
  NTSTATUS status =
      PsCreateSystemThread(&thread, THREAD_ALL_ACCESS, NULL, NULL, NULL, run_clock, NULL);
  if (!NT_SUCCESS(status))
    return status;
  status = ObReferenceObjectByHandle(thread, SYNCHRONIZE, NULL, KernelMode, &clock_thread, NULL);
  ZwClose(thread);
  return status;
}

void stop_requests(void) {
  enter();
  stopping = TRUE;
  for (ULONG i = 0; i < PORT_COUNT; ++i)
    finish_all(&ports[i], 0, STATUS_DEVICE_NOT_CONNECTED, TRUE);
  leave();
  KeWaitForSingleObject(clock_thread, Executive, KernelMode, FALSE, NULL);
  ObDereferenceObject(clock_thread);
}

static void hand_back(struct request* request) {
  InsertTailList(&completed, &request->irp->Tail.Overlay.ListEntry);
  ExFreePool(request);
}

void finish(struct request* request, NTSTATUS status) {
  RemoveEntryList(&request->link);
  request->finished = TRUE;
  request->irp->IoStatus.Status = status;
  request->irp->IoStatus.Information = request->done;
  // Without its routine the cancellation has begun: it hands the request back with this outcome.
  if (request->ignores_cancel || IoSetCancelRoutine(request->irp, NULL))
    hand_back(request);
}

static void NTAPI cancel_request(DEVICE_OBJECT* device, IRP* irp) {
  UNREFERENCED_PARAMETER(device);
  IoReleaseCancelSpinLock(irp->CancelIrql);
  enter();
  struct request* const request = irp->Tail.Overlay.DriverContext[0];
  struct port* const port = request->port;
  if (!request->finished) {
    record(port, REQUEST_CANCEL, 0, &request->kind, sizeof(request->kind));
    finish(request, STATUS_CANCELLED);
  }
  hand_back(request);
  settle(port);
  leave();
}

static void allow_cancel(struct request* request) {
  request->ignores_cancel = FALSE;
  IoSetCancelRoutine(request->irp, cancel_request);
  if (request->irp->Cancel)
    finish(request, STATUS_CANCELLED);
}

static NTSTATUS make_pending(const struct request* request) {
  struct request* const pending = ExAllocatePool(NonPagedPool, sizeof(*pending));
  if (!pending)
    return STATUS_INSUFFICIENT_RESOURCES;
  *pending = *request;
  pending->irp->Tail.Overlay.DriverContext[0] = pending;
  IoMarkIrpPending(pending->irp);
  InsertTailList(&pending->port->pending, &pending->link);
  if (!pending->ignores_cancel)
    allow_cancel(pending);
  return STATUS_PENDING;
}

static NTSTATUS advance(struct request* request) {
  switch (request->kind) {
    case REQUEST_READ:
      return advance_read(request);
    case REQUEST_WRITE:
      return advance_write(request);
    default:
      return advance_control(request);
  }
}

// Applies the first fault that strikes this kind of request.
static NTSTATUS suffer_fault(struct request* request) {
  struct port* const port = request->port;
  for (ULONG i = 0; i < port->fault_count; ++i) {
    struct virtual_serial_fault* const fault = &port->faults[i];
    if (fault->kind != request->kind || fault->count == 0)
      continue;
    if (fault->count != FAULT_ALL)
      --fault->count;
    if (fault->effect == FAULT_FAIL)
      return (NTSTATUS)fault->value;
    if (fault->effect == FAULT_CUT)
      request->limit = fault->value;
    request->ignores_cancel = fault->effect == FAULT_HOLD_FOR_GOOD;
    request->held = request->ignores_cancel || fault->effect == FAULT_HOLD;
    break;
  }
  return STATUS_SUCCESS;
}

NTSTATUS submit(struct request* request) {
  if (!request->port->connected)
    return STATUS_DEVICE_NOT_CONNECTED;
  NTSTATUS status = suffer_fault(request);
  if (status != STATUS_SUCCESS)
    return status;
  status = request->held ? STATUS_PENDING : advance(request);
  settle(request->port);
  return status == STATUS_PENDING ? make_pending(request) : status;
}

// One step of settle(); each may change the list.
static BOOLEAN settle_one(struct port* port) {
  for (LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = link->Flink) {
    struct request* const request = request_of(link);
    if (request->held)
      continue;
    const NTSTATUS status = advance(request);
    if (status == STATUS_PENDING)
      continue;
    finish(request, status);
    return TRUE;
  }
  return FALSE;
}

void settle(struct port* port) {
  while (settle_one(port)) {
  }
}

void finish_all(struct port* port, ULONG kind, NTSTATUS status, BOOLEAN even_held_for_good) {
  LIST_ENTRY* next;
  for (LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = next) {
    next = link->Flink;
    struct request* const request = request_of(link);
    if ((kind == 0 || request->kind == kind) && (even_held_for_good || !request->ignores_cancel))
      finish(request, status);
  }
}

void release_held(struct port* port) {
  LIST_ENTRY* next;
  for (LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = next) {
    next = link->Flink;
    struct request* const request = request_of(link);
    request->held = FALSE;
    if (request->ignores_cancel)
      allow_cancel(request);
  }
  settle(port);
}

struct request* first_pending(struct port* port, ULONG kind) {
  for (LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = link->Flink) {
    if (request_of(link)->kind == kind && !request_of(link)->held)
      return request_of(link);
  }
  return NULL;
}

void record(struct port* port, ULONG kind, ULONG size, const void* data, ULONG data_size) {
  if (port->entry_count == RTL_NUMBER_OF(port->journal))
    return;
  struct virtual_serial_entry* const entry = &port->journal[port->entry_count++];
  RtlZeroMemory(entry, sizeof(*entry));
  entry->kind = kind;
  entry->size = size;
  entry->data_size = min(data_size, sizeof(entry->data));
  RtlCopyMemory(entry->data, data, entry->data_size);
}
