// Requests that wait, and their cancellation.
#include "tests/virtual_serial/port.h"

static KSPIN_LOCK lock;
static KIRQL irql_outside;  // guarded by lock

static struct request* request_of(LIST_ENTRY* link) {
  return CONTAINING_RECORD(link, struct request, link);
}

void enter(void) {
  KIRQL irql;
  KeAcquireSpinLock(&lock, &irql);
  irql_outside = irql;
}

void leave(void) {
  KeReleaseSpinLock(&lock, irql_outside);
}

static void hand_back(struct request* request) {
  IoCompleteRequest(request->irp, IO_NO_INCREMENT);
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
  if (!request->finished)
    finish(request, STATUS_CANCELLED);
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
  if (request->port->line.vanished)
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
    const NTSTATUS status = request->held ? STATUS_PENDING : advance(request);
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
