// A virtual serial port: its settings, its line, and the requests that wait for something.
#pragma once

// Before ntddser.h, which uses its types.
#include <ntddk.h>

#include <ntddser.h>

#include "tests/virtual_serial/orders.h"

// Bytes in the order of their arrival; those without room are lost.
struct queue {
  ULONG size;
  UCHAR bytes[0x100000];
};

#define SETTINGS 5

struct port {
  ULONG number;  // constant

  // Guarded by the driver's lock.
  struct virtual_serial_line line;
  ULONG open_handles;
  LIST_ENTRY pending;  // struct request, in the order of their arrival
  UCHAR settings[SETTINGS][sizeof(SERIAL_TIMEOUTS)];
  struct queue received;
  struct queue sent;
  ULONG outputs;
  ULONG inputs;
  ULONG wait_mask;
  ULONG events;  // those of the mask that have happened since the last wait
  ULONG errors;
  ULONG fault_count;
  struct virtual_serial_fault faults[8];
  ULONG entry_count;
  struct virtual_serial_entry journal[128];
};

#define PORT_COUNT 2
extern struct port ports[PORT_COUNT];

// A read, write or control of a port.
struct request {
  LIST_ENTRY link;  // in the port's pending requests
  struct port* port;
  IRP* irp;
  IO_STACK_LOCATION* stack;
  ULONG kind;
  ULONG limit;        // of the bytes to move
  ULONG done;         // bytes moved so far
  ULONGLONG started;  // when it became the first of the reads, in milliseconds; 0 before
  BOOLEAN held;
  BOOLEAN ignores_cancel;
  BOOLEAN finished;
};

// requests.c: what is pending. Between enter() and leave() the ports belong to the caller; all
// functions below are called there.
void enter(void);
void leave(void);

// STATUS_PENDING, or the status with which the caller completes the request itself.
NTSTATUS submit(struct request* request);
void finish(struct request* request, NTSTATUS status);
// Ends what is pending of one kind, or of all kinds with 0.
void finish_all(struct port* port, ULONG kind, NTSTATUS status, BOOLEAN even_held_for_good);
void release_held(struct port* port);
// Carries on what may have got what it waits for.
void settle(struct port* port);
struct request* first_pending(struct port* port, ULONG kind);  // none that is held

// line.c: the line between the driver and its far end.
void reset_line(struct port* port);
void receive(struct port* port, const UCHAR* bytes, ULONG size);
ULONG take(struct queue* queue, UCHAR* bytes, ULONG size);  // gives the number of bytes taken
void raise_events(struct port* port, ULONG events);
void update_inputs(struct port* port);
// Goes on with the request: STATUS_PENDING, or the status with which it ends.
NTSTATUS advance(struct request* request);

// orders.c: carries out an order; `size` is that of the input, and becomes that of the output.
NTSTATUS carry_out(struct port* port, ULONG code, void* buffer, ULONG* size, ULONG capacity);
