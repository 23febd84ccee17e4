// The line: bytes, modem lines, the events that they raise, and the controls of a serial port.
#include "tests/virtual_serial/port.h"

static const struct {
  ULONG set, get, size;
} kept_settings[] = {
    {IOCTL_SERIAL_SET_TIMEOUTS, IOCTL_SERIAL_GET_TIMEOUTS, sizeof(SERIAL_TIMEOUTS)},
    {IOCTL_SERIAL_SET_BAUD_RATE, IOCTL_SERIAL_GET_BAUD_RATE, sizeof(SERIAL_BAUD_RATE)},
    {IOCTL_SERIAL_SET_LINE_CONTROL, IOCTL_SERIAL_GET_LINE_CONTROL, sizeof(SERIAL_LINE_CONTROL)},
    {IOCTL_SERIAL_SET_CHARS, IOCTL_SERIAL_GET_CHARS, sizeof(SERIAL_CHARS)},
    {IOCTL_SERIAL_SET_HANDFLOW, IOCTL_SERIAL_GET_HANDFLOW, sizeof(SERIAL_HANDFLOW)},
};

// Outputs, with the modem status and the events that they cause at the other end.
static const struct {
  ULONG on, off, output, status, events;
} signals[] = {
    {IOCTL_SERIAL_SET_DTR, IOCTL_SERIAL_CLR_DTR, OUTPUT_DTR, 0xA0, SERIAL_EV_DSR | SERIAL_EV_RLSD},
    {IOCTL_SERIAL_SET_RTS, IOCTL_SERIAL_CLR_RTS, OUTPUT_RTS, 0x10, SERIAL_EV_CTS},
    {IOCTL_SERIAL_SET_BREAK_ON, IOCTL_SERIAL_SET_BREAK_OFF, OUTPUT_BREAK, 0, SERIAL_EV_BREAK},
};

static struct port* far_end(struct port* port) {
  struct port* const first = first_of_pair(port);
  return port->setup.loops_back ? port : first + (port == first);
}

void reset_line(struct port* port) {
  RtlZeroMemory(port, FIELD_OFFSET(struct port, state));
  RtlZeroMemory(port->settings, sizeof(port->settings));
  *(ULONG*)port->settings[0] = MAXULONG;  // reads return at once with what has arrived
  *(ULONG*)port->settings[1] = 9600;
  port->settings[2][2] = 8;  // data bits
  port->state.outputs = port->state.wait_mask = port->state.purged = port->state.breaks = 0;
  port->received_size = port->escape = 0;
}

// Writes the line status, baud rate and line control of the other end to `out`: 14 bytes.
static ULONG tell(struct port* port, UCHAR escape, UCHAR* out) {
  const struct port* const other = far_end(port);
  const UCHAR* const rate = other->settings[1];
  const UCHAR* const line = other->settings[2];  // stop bits, parity, data bits
  const UCHAR told[] = {escape,  2,       other->state.outputs & OUTPUT_BREAK ? 0x10 : 0,
                        escape,  16,      rate[0],
                        rate[1], rate[2], rate[3],
                        escape,  17,      line[2],
                        line[1], line[0]};
  RtlCopyMemory(out, told, sizeof(told));
  return sizeof(told);
}

static void tell_change(struct port* port) {
  if (port->escape != 0)
    port->received_size += tell(port, port->escape, port->received + port->received_size);
}

static NTSTATUS give(struct request* request, const void* value, ULONG size) {
  request->done = min(size, request->stack->Parameters.DeviceIoControl.OutputBufferLength);
  RtlCopyMemory(request->irp->AssociatedIrp.SystemBuffer, value, request->done);
  return STATUS_SUCCESS;
}

// IOCTL_SERIAL_LSRMST_INSERT with "c0c" and options, of which only the one that clears the input is
// implemented. The first null modem, like most serial ports, knows the request but not this form.
static NTSTATUS begin_telling(struct request* request, UCHAR* buffer) {
  struct port* const port = request->port;
  if (first_of_pair(port) == ports)
    return STATUS_SUCCESS;
  port->escape = buffer[0];
  if (buffer[8] & 2)
    port->received_size = 0;
  request->done = tell(port, port->escape, buffer);
  return STATUS_SUCCESS;
}

// The end of a break raises no event.
static NTSTATUS set_outputs(struct port* port, ULONG outputs) {
  const ULONG changes = (port->state.outputs ^ outputs) & (outputs | ~(ULONG)OUTPUT_BREAK);
  struct port* const other = far_end(port);
  port->state.outputs = outputs;
  port->state.breaks += (changes & OUTPUT_BREAK) != 0;
  tell_change(other);
  for (ULONG i = 0; i < RTL_NUMBER_OF(signals); ++i) {
    if (changes & signals[i].output)
      other->events |= signals[i].events & other->state.wait_mask;
  }
  return STATUS_SUCCESS;
}

static NTSTATUS wait_on_mask(struct request* request) {
  const ULONG events = request->port->events;
  request->port->events = 0;
  return events == 0 ? STATUS_PENDING : give(request, &events, sizeof(events));
}

static void purge(struct port* port, ULONG what) {
  port->state.purged |= what;
  if (what & SERIAL_PURGE_RXABORT)
    finish_all(port, REQUEST_READ, STATUS_CANCELLED);
  if (what & SERIAL_PURGE_RXCLEAR)
    port->received_size = 0;
}

enum { GREATEST_BAUD_RATE = 4000000 };

static NTSTATUS advance_setting(const struct request* request, const UCHAR* input) {
  struct port* const port = request->port;
  for (ULONG i = 0; i < RTL_NUMBER_OF(signals); ++i) {
    if (request->kind == signals[i].on)
      return set_outputs(port, port->state.outputs | signals[i].output);
    if (request->kind == signals[i].off)
      return set_outputs(port, port->state.outputs & ~signals[i].output);
  }
  for (ULONG i = 0; i < RTL_NUMBER_OF(kept_settings); ++i) {
    if (request->kind != kept_settings[i].set)
      continue;
    if (request->kind == IOCTL_SERIAL_SET_BAUD_RATE && *(const ULONG*)input > GREATEST_BAUD_RATE)
      return STATUS_INVALID_PARAMETER;
    RtlCopyMemory(port->settings[i], input, kept_settings[i].size);
    tell_change(far_end(port));
    return STATUS_SUCCESS;
  }
  return STATUS_INVALID_DEVICE_REQUEST;
}

static NTSTATUS advance_control(struct request* request) {
  struct port* const port = request->port;
  UCHAR* const buffer = request->irp->AssociatedIrp.SystemBuffer;
  const SERIAL_STATUS status = {.AmountInInQueue = port->received_size};
  ULONG modem_status = port->setup.inputs;
  for (ULONG i = 0; i < RTL_NUMBER_OF(signals); ++i)
    modem_status |= far_end(port)->state.outputs & signals[i].output ? signals[i].status : 0;
  for (ULONG i = 0; i < RTL_NUMBER_OF(kept_settings); ++i) {
    if (request->kind == kept_settings[i].get)
      return give(request, port->settings[i], kept_settings[i].size);
  }
  switch (request->kind) {
    case IOCTL_SERIAL_SET_WAIT_MASK:
      finish_all(port, IOCTL_SERIAL_WAIT_ON_MASK, STATUS_SUCCESS);
      port->state.wait_mask = *(ULONG*)buffer;
      port->events = 0;
      return STATUS_SUCCESS;
    case IOCTL_SERIAL_WAIT_ON_MASK:
      return wait_on_mask(request);
    case IOCTL_SERIAL_GET_MODEMSTATUS:
      return give(request, &modem_status, sizeof(modem_status));
    case IOCTL_SERIAL_GET_COMMSTATUS:
      return give(request, &status, sizeof(status));
    case IOCTL_SERIAL_LSRMST_INSERT:
      return begin_telling(request, buffer);
    case IOCTL_SERIAL_PURGE:
      purge(port, *(ULONG*)buffer);
      return STATUS_SUCCESS;
    default:
      return advance_setting(request, buffer);
  }
}

static ULONGLONG milliseconds(void) {
  LARGE_INTEGER frequency;
  const LARGE_INTEGER now = KeQueryPerformanceCounter(&frequency);
  return (ULONGLONG)now.QuadPart / ((ULONGLONG)frequency.QuadPart / 1000);
}

// A read completes at once, with the first bytes, or after a total time, as its time-outs say.
static NTSTATUS advance_read(struct request* request) {
  struct port* const port = request->port;
  const SERIAL_TIMEOUTS* const timeouts = (const void*)port->settings[0];
  const ULONG wanted = request->stack->Parameters.Read.Length;
  const ULONG count = min(wanted - request->done, port->received_size);
  UCHAR* const buffer = request->irp->AssociatedIrp.SystemBuffer;
  RtlCopyMemory(buffer + request->done, port->received, count);
  request->done += count;
  port->received_size -= count;
  RtlMoveMemory(port->received, port->received + count, port->received_size);

  const BOOLEAN at_first = timeouts->ReadIntervalTimeout == MAXULONG;
  const ULONG limit = timeouts->ReadTotalTimeoutConstant;
  if (request->started == 0)
    request->started = milliseconds();
  if (request->done == wanted || (at_first && (request->done != 0 || limit == 0)))
    return STATUS_SUCCESS;
  return limit != 0 && milliseconds() >= request->started + limit ? STATUS_TIMEOUT : STATUS_PENDING;
}

// A write that does not fit pends until there is room for the rest.
static NTSTATUS advance_write(struct request* request) {
  struct port* const port = far_end(request->port);
  const ULONG wanted = request->stack->Parameters.Write.Length;
  const ULONG before = request->done;
  const UCHAR* const buffer = request->irp->AssociatedIrp.SystemBuffer;
  while (request->done < wanted && port->received_size < QUEUE_SIZE) {
    const UCHAR byte = buffer[request->done++];
    port->received[port->received_size++] = byte;
    if (port->escape != 0 && byte == port->escape)
      port->received[port->received_size++] = 0;
  }
  if (request->done != before)
    port->events |= SERIAL_EV_RXCHAR & port->state.wait_mask;
  return request->done == wanted ? STATUS_SUCCESS : STATUS_PENDING;
}

NTSTATUS advance(struct request* request) {
  if (request->kind == REQUEST_READ)
    return advance_read(request);
  return request->kind == REQUEST_WRITE ? advance_write(request) : advance_control(request);
}
