// A virtual serial port: its settings, its line, and the requests that wait for something.
#pragma once

// Before ntddser.h, which uses its types.
#include <ntddk.h>

#include <ntddser.h>

#include "tests/virtual_serial/byte_queue.h"
#include "tests/virtual_serial/orders.h"

#define NEVER MAXULONGLONG

struct settings {
  SERIAL_BAUD_RATE baud_rate;
  SERIAL_LINE_CONTROL line_control;
  SERIAL_TIMEOUTS timeouts;
  SERIAL_CHARS chars;
  SERIAL_HANDFLOW handflow;
};

struct port {
  ULONG number;  // constant

  // Guarded by the driver's lock.
  BOOLEAN connected;
  BOOLEAN loops_back;
  BOOLEAN stopped_by_xoff;
  ULONG open_handles;
  LIST_ENTRY pending;  // struct request, in the order of their arrival
  struct settings settings;
  struct byte_queue received;
  struct byte_queue sent;
  ULONG outputs;
  ULONG inputs_by_order;
  ULONG inputs;
  ULONG wait_mask;
  ULONG events;  // those of the mask that have happened since the last wait
  ULONG errors;
  SERIALPERF_STATS statistics;
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
  ULONG kind;
  ULONG limit;          // of the bytes to move
  ULONG done;           // bytes moved so far
  ULONGLONG started;    // when it became the first of the reads, in milliseconds; 0 before
  ULONGLONG last_byte;  // when the last byte came
  ULONGLONG deadline;   // or NEVER
  BOOLEAN held;
  BOOLEAN ignores_cancel;
  BOOLEAN finished;
};

// requests.c: what is pending. Between enter() and leave() the ports belong to the caller; leave()
// completes the requests that were finished in between.
NTSTATUS start_requests(void);
void stop_requests(void);  // after it nothing may be submitted
void enter(void);
void leave(void);

// The functions below are called between the two.

// STATUS_PENDING, or the status with which the caller completes the request itself.
NTSTATUS submit(struct request* request);
void finish(struct request* request, NTSTATUS status);
// Ends what is pending of one kind, or of all kinds with 0.
void finish_all(struct port* port, ULONG kind, NTSTATUS status, BOOLEAN even_held_for_good);
void release_held(struct port* port);
// Carries on what may have got what it waits for.
void settle(struct port* port);
struct request* first_pending(struct port* port, ULONG kind);  // none that is held
void record(struct port* port, ULONG kind, ULONG size, const void* data, ULONG data_size);

// line.c: what happens on the line and between the driver and its far end.
void reset_line(struct port* port);
void open_line(struct port* port);
void receive(struct port* port, const UCHAR* bytes, ULONG size);
void transmit(struct port* port, const UCHAR* bytes, ULONG size);
void raise_events(struct port* port, ULONG events);
void set_outputs(struct port* port, ULONG outputs);
void update_inputs(struct port* port);
NTSTATUS advance_read(struct request* request);
NTSTATUS advance_write(struct request* request);

// controls.c
NTSTATUS advance_control(struct request* request);

// orders.c: carries out one order at a time, outside of enter() and leave(). `size` is that of the
// input in `buffer`, and becomes that of the output.
NTSTATUS carry_out(struct port* port, ULONG code, void* buffer, ULONG* size, ULONG capacity);

// driver.c: the port's name, by which it can be opened.
NTSTATUS set_name(struct port* port, BOOLEAN present);
ULONGLONG milliseconds(void);
