// A virtual serial port: its settings, its line and its pending requests.
#pragma once

// Before ntddser.h, which uses its types.
#include <ntddk.h>

#include <ntddser.h>

#include "tests/virtual_serial/orders.h"

enum { PORT_COUNT = 4, QUEUE_SIZE = 0x100000 };

// Guarded by the driver's lock.
struct port {
  struct virtual_serial_setup setup;
  struct virtual_serial_state state;
  LIST_ENTRY pending;  // struct request, in the order of their arrival
  UCHAR settings[5][sizeof(SERIAL_TIMEOUTS)];
  BOOLEAN is_hidden;
  UCHAR escape;  // introduces reports on the other end among the bytes; 0: no reports
  ULONG events;  // events of the mask that have occurred since the last wait
  ULONG received_size;
  UCHAR received[QUEUE_SIZE + 1000];  // with room for reports
};

extern struct port ports[PORT_COUNT];

static inline struct port* first_of_pair(struct port* port) {
  return port - ((port - ports) & 1);
}

// A read, write or control of a port, from its arrival to its completion.
struct request {
  LIST_ENTRY link;  // in the port's pending requests
  struct port* port;
  IRP* irp;
  IO_STACK_LOCATION* stack;
  ULONG kind;
  ULONG done;         // bytes moved so far
  ULONGLONG started;  // when it became the first pending read, in milliseconds; 0 before that
  BOOLEAN held;
};

// In driver.c. Completes the pending requests of one kind.
void finish_all(struct port* port, ULONG kind, NTSTATUS status);

// In line.c. Advances the request; returns STATUS_PENDING or the status with which it completes.
NTSTATUS advance(struct request* request);
void reset_line(struct port* port);
