// Orders from a test to the virtual serial ports. Shared by the driver, in C, and the tests.
//
// The ports are the ends of two null modems, and any program may open them. Orders are device
// controls: either end takes them, and they apply to the first. Only the second null modem reports
// the line status and settings of one end to the other.
#pragma once

#include <stdint.h>

// Device control codes: CTL_CODE(FILE_DEVICE_UNKNOWN, 0x800, METHOD_BUFFERED, FILE_ANY_ACCESS) and
// the next one.
enum virtual_serial_order {
  ORDER_SET_UP = 0x222000,    // in: virtual_serial_setup; ends held requests
  ORDER_GET_STATE = 0x222004  // out: virtual_serial_state
};

enum modem_output { OUTPUT_DTR = 1, OUTPUT_RTS = 2, OUTPUT_BREAK = 4 };

// The kind of a request; for a device control it is the control code.
enum request_kind { REQUEST_ANY, REQUEST_READ, REQUEST_WRITE, REQUEST_HELD };

struct virtual_serial_setup {
  uint32_t anew;          // ends every request of both ports and resets their bytes and settings
  uint32_t vanished;      // removes the port's name; fails its pending and its later requests
  uint32_t loops_back;    // a loopback plug joins TX to RX, DTR to DSR and DCD, and RTS to CTS
  uint32_t faults;        // the number of requests that the fault strikes
  uint32_t fault_kind;    // the kind of those requests
  uint32_t fault_status;  // their NTSTATUS; 0: they are held, even if they are cancelled
  uint32_t inputs;        // modem status bits in addition to those that the far end drives
  uint32_t events;        // raised now; bits of a wait mask
};

struct virtual_serial_state {
  uint32_t open_handles;
  uint32_t pending;  // requests
  uint32_t outputs;
  uint32_t wait_mask;
  uint32_t purged;  // flags of all purges since the last set-up with `anew`
  uint32_t baud_rate;
  uint8_t line_control[4];  // stop bits, parity, data bits
  uint32_t breaks;          // begun since the last set-up with `anew`
};
