// Orders of a test to the virtual serial ports. Shared by the driver, in C, and by the tests.
//
// The ports are the ends of two null modems, and serve any program. Orders are device controls of either
// end, and about the first one. The second null modem tells its ends about each other.
#pragma once

#include <stdint.h>

// Codes of device controls, as CTL_CODE(FILE_DEVICE_UNKNOWN, 0x800, METHOD_BUFFERED, FILE_ANY_ACCESS)
// and the next one.
enum virtual_serial_order {
  ORDER_SET_UP = 0x222000,    // in: virtual_serial_setup. Requests that are held end.
  ORDER_GET_STATE = 0x222004  // out: virtual_serial_state
};

enum modem_output { OUTPUT_DTR = 1, OUTPUT_RTS = 2, OUTPUT_BREAK = 4 };

// A kind of request; a device control is the kind of its code.
enum request_kind { REQUEST_ANY, REQUEST_READ, REQUEST_WRITE, REQUEST_HELD };

struct virtual_serial_setup {
  uint32_t anew;          // every request of both ports ends, and bytes and settings are forgotten
  uint32_t vanished;      // the port's name, its pending requests, and all that comes later
  uint32_t loops_back;    // a plug joins TX with RX, DTR with DSR and DCD, and RTS with CTS
  uint32_t faults;        // so many requests suffer it
  uint32_t fault_kind;    // of the requests that it strikes
  uint32_t fault_status;  // with which they end; 0: they are held, whoever cancels them
  uint32_t inputs;        // bits of the modem status besides those that the far end makes
  uint32_t events;        // that happen now, as in a wait mask
};

struct virtual_serial_state {
  uint32_t open_handles;
  uint32_t pending;  // requests
  uint32_t outputs;
  uint32_t wait_mask;
  uint32_t purged;  // by all purges since it was set up anew
  uint32_t baud_rate;
  uint8_t line_control[4];  // stop bits, parity, data bits
};
