// Orders of a test to a virtual serial port. Shared by the driver, in C, and by the tests.
#pragma once

#include <stdint.h>

// The device that takes the orders about COMn is \\.\VirtualSerialn.
#define VIRTUAL_SERIAL_NAME L"VirtualSerial"

// As CTL_CODE(FILE_DEVICE_UNKNOWN, 0x800 + number, METHOD_BUFFERED, FILE_ANY_ACCESS).
#define VIRTUAL_SERIAL_ORDER(number) (0x220000 + ((0x800 + (number)) << 2))

enum virtual_serial_order {
  // Ends every request, forgets all faults, bytes and settings; the device is there and has no plug.
  ORDER_RESET = VIRTUAL_SERIAL_ORDER(0),
  // In: virtual_serial_line.
  ORDER_LINE = VIRTUAL_SERIAL_ORDER(1),
  // In: the bytes that arrive at the port.
  ORDER_RECEIVE = VIRTUAL_SERIAL_ORDER(2),
  // Out: the bytes that the port has sent, which are then forgotten.
  ORDER_TAKE_SENT = VIRTUAL_SERIAL_ORDER(3),
  // In: virtual_serial_fault. Faults of one kind of request strike in the order of these orders.
  ORDER_FAULT = VIRTUAL_SERIAL_ORDER(4),
  // Requests that are held go on as though they had just come.
  ORDER_RELEASE = VIRTUAL_SERIAL_ORDER(5),
  // Out: virtual_serial_state.
  ORDER_GET_STATE = VIRTUAL_SERIAL_ORDER(6),
  // Out: virtual_serial_entry for each request since the last time, the oldest first, as far as the
  // driver's memory goes.
  ORDER_TAKE_JOURNAL = VIRTUAL_SERIAL_ORDER(7)
};

// The bits of a modem status.
enum modem_input { INPUT_CTS = 0x10, INPUT_DSR = 0x20, INPUT_RING = 0x40, INPUT_DCD = 0x80 };

enum modem_output { OUTPUT_DTR = 1, OUTPUT_RTS = 2, OUTPUT_BREAK = 4 };

// A kind of request; a device control is the kind of its code.
enum request_kind { REQUEST_CLOSE = 1, REQUEST_READ, REQUEST_WRITE };

struct virtual_serial_line {
  uint32_t vanished;    // the device's name, its pending requests, and all that comes later
  uint32_t loops_back;  // a plug joins TX with RX, DTR with DSR and DCD, and RTS with CTS
  uint32_t inputs;      // modem_input, where there is no plug
  uint32_t events;      // that happen now, as in a wait mask
  uint32_t errors;      // that happen now, as in the port's status
};

enum fault_effect {
  FAULT_FAIL,          // ends at once with the NTSTATUS `value`
  FAULT_CUT,           // ends well after at most `value` bytes
  FAULT_HOLD,          // pends until it is released or cancelled
  FAULT_HOLD_FOR_GOOD  // pends until it is released, whoever cancels it
};

#define FAULT_ALL 0xFFFFFFFFu

struct virtual_serial_fault {
  uint32_t kind;   // of the requests that it strikes
  uint32_t count;  // so many of them, or FAULT_ALL
  uint32_t effect;
  uint32_t value;
};

struct virtual_serial_state {
  uint32_t open_handles;
  uint32_t pending_reads;
  uint32_t pending_writes;
  uint32_t pending_controls;
  uint32_t outputs;
};

struct virtual_serial_entry {
  uint32_t kind;
  uint32_t size;  // of what is read or written, or of a control's input
  uint32_t data_size;
  uint8_t data[24];  // the start of a control's input
};
