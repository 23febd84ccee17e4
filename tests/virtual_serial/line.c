// The line: bytes, modem lines, and the events that they make.
#include "tests/virtual_serial/port.h"

static const struct settings initial_settings = {.baud_rate = {9600},
                                                 .line_control = {STOP_BIT_1, NO_PARITY, 8},
                                                 .chars = {.XonChar = 0x11, .XoffChar = 0x13},
                                                 .handflow = {.XonLimit = 2048, .XoffLimit = 512}};

static void clear_input(struct port* port) {
  port->received.size = 0;
  port->wait_mask = 0;
  port->events = 0;
  port->errors = 0;
  RtlZeroMemory(&port->statistics, sizeof(port->statistics));
}

void reset_line(struct port* port) {
  port->settings = initial_settings;
  port->loops_back = FALSE;
  port->stopped_by_xoff = FALSE;
  port->sent.size = 0;
  port->outputs = 0;
  port->inputs_by_order = 0;
  port->inputs = 0;
  port->fault_count = 0;
  port->entry_count = 0;
  clear_input(port);
}

// The settings stay as the last user of the port left them.
void open_line(struct port* port) {
  clear_input(port);
  port->stopped_by_xoff = FALSE;
}

void raise_events(struct port* port, ULONG events) {
  port->events |= events & port->wait_mask;
}

void receive(struct port* port, const UCHAR* bytes, ULONG size) {
  const ULONG kept = byte_queue_put(&port->received, bytes, size);
  port->statistics.ReceivedCount += kept;
  if (kept != 0)
    raise_events(port, SERIAL_EV_RXCHAR);
  if (kept != size) {
    port->errors |= SERIAL_ERROR_QUEUEOVERRUN;
    raise_events(port, SERIAL_EV_ERR);
  }
}

void transmit(struct port* port, const UCHAR* bytes, ULONG size) {
  port->statistics.TransmittedCount += size;
  if (port->loops_back)
    receive(port, bytes, size);
  else
    byte_queue_put(&port->sent, bytes, size);
  raise_events(port, SERIAL_EV_TXEMPTY);
}

static ULONG looped_inputs(ULONG outputs) {
  return ((outputs & OUTPUT_DTR) ? INPUT_DSR | INPUT_DCD : 0u) |
         ((outputs & OUTPUT_RTS) ? INPUT_CTS : 0u);
}

void update_inputs(struct port* port) {
  const ULONG before = port->inputs;
  port->inputs = port->loops_back ? looped_inputs(port->outputs) : port->inputs_by_order;
  const ULONG changed = before ^ port->inputs;
  if (changed & INPUT_CTS)
    raise_events(port, SERIAL_EV_CTS);
  if (changed & INPUT_DSR)
    raise_events(port, SERIAL_EV_DSR);
  if (changed & INPUT_DCD)
    raise_events(port, SERIAL_EV_RLSD);
  // A UART tells of a ring when it ends.
  if (changed & before & INPUT_RING)
    raise_events(port, SERIAL_EV_RING);
}

void set_outputs(struct port* port, ULONG outputs) {
  const ULONG risen = outputs & ~port->outputs;
  port->outputs = outputs;
  update_inputs(port);
  if (port->loops_back && (risen & OUTPUT_BREAK))
    raise_events(port, SERIAL_EV_BREAK);
}

static IO_STACK_LOCATION* stack_of(const struct request* request) {
  return IoGetCurrentIrpStackLocation(request->irp);
}

static BOOLEAN returns_what_is_there(const SERIAL_TIMEOUTS* timeouts) {
  return timeouts->ReadIntervalTimeout == MAXULONG && timeouts->ReadTotalTimeoutMultiplier == 0 &&
         timeouts->ReadTotalTimeoutConstant == 0;
}

static BOOLEAN returns_on_first_byte(const SERIAL_TIMEOUTS* timeouts) {
  return timeouts->ReadIntervalTimeout == MAXULONG &&
         timeouts->ReadTotalTimeoutMultiplier == MAXULONG;
}

static ULONGLONG read_deadline(const struct request* request, ULONG wanted) {
  const SERIAL_TIMEOUTS* const timeouts = &request->port->settings.timeouts;
  const ULONG multiplier =
      returns_on_first_byte(timeouts) ? 0 : timeouts->ReadTotalTimeoutMultiplier;
  const ULONG interval =
      timeouts->ReadIntervalTimeout == MAXULONG ? 0 : timeouts->ReadIntervalTimeout;
  const ULONGLONG total = (ULONGLONG)multiplier * wanted + timeouts->ReadTotalTimeoutConstant;
  ULONGLONG deadline = total != 0 ? request->started + total : NEVER;
  if (interval != 0 && request->done != 0)
    deadline = min(deadline, request->last_byte + interval);
  return deadline;
}

NTSTATUS advance_read(struct request* request) {
  struct port* const port = request->port;
  const struct request* const first = first_pending(port, REQUEST_READ);
  if (first && first != request)
    return STATUS_PENDING;
  const ULONGLONG now = milliseconds();
  if (request->started == 0)
    request->started = now;

  const ULONG wanted = min(stack_of(request)->Parameters.Read.Length, request->limit);
  UCHAR* const buffer = request->irp->AssociatedIrp.SystemBuffer;
  const ULONG taken =
      byte_queue_take(&port->received, buffer + request->done, wanted - request->done);
  request->done += taken;
  if (taken != 0)
    request->last_byte = now;

  const SERIAL_TIMEOUTS* const timeouts = &port->settings.timeouts;
  if (request->done == wanted || returns_what_is_there(timeouts) ||
      (request->done != 0 && returns_on_first_byte(timeouts)))
    return STATUS_SUCCESS;
  request->deadline = read_deadline(request, wanted);
  return now >= request->deadline ? STATUS_TIMEOUT : STATUS_PENDING;
}

NTSTATUS advance_write(struct request* request) {
  if (request->port->stopped_by_xoff)
    return STATUS_PENDING;
  request->done = min(stack_of(request)->Parameters.Write.Length, request->limit);
  transmit(request->port, request->irp->AssociatedIrp.SystemBuffer, request->done);
  return STATUS_SUCCESS;
}
