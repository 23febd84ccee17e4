// A virtual serial port: its settings, its line, and the requests that wait for something.
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
  UCHAR escape;  // introduces what is told of the other end among the bytes; 0: nothing is told
  ULONG events;  // those of the mask that have happened since the last wait
  ULONG received_size;
  UCHAR received[QUEUE_SIZE + 1000];  // with room for what is told
};

extern struct port ports[PORT_COUNT];

static inline struct port* first_of_pair(struct port* port) {
  return port - ((port - ports) & 1);
}

// A read, write or control of a port, from its arrival to its end.
struct request {
  LIST_ENTRY link;  // in the port's pending requests
  struct port* port;
  IRP* irp;
  IO_STACK_LOCATION* stack;
  ULONG kind;
  ULONG done;         // bytes moved so far
  ULONGLONG started;  // when it became the first of the reads, in milliseconds; 0 before
  BOOLEAN held;
};

// driver.c. Ends what is pending of one kind.
void finish_all(struct port* port, ULONG kind, NTSTATUS status);

// line.c. Goes on with the request: STATUS_PENDING, or the status with which it ends.
NTSTATUS advance(struct request* request);
void reset_line(struct port* port);
