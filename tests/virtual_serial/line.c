// The line: bytes, modem lines, the events that they make, and the controls of a serial port.
#include "tests/virtual_serial/port.h"

static const struct {
  ULONG set;
  ULONG get;
  ULONG size;
} kept_settings[SETTINGS] = {
    {IOCTL_SERIAL_SET_TIMEOUTS, IOCTL_SERIAL_GET_TIMEOUTS, sizeof(SERIAL_TIMEOUTS)},
    {IOCTL_SERIAL_SET_BAUD_RATE, IOCTL_SERIAL_GET_BAUD_RATE, sizeof(SERIAL_BAUD_RATE)},
    {IOCTL_SERIAL_SET_LINE_CONTROL, IOCTL_SERIAL_GET_LINE_CONTROL, sizeof(SERIAL_LINE_CONTROL)},
    {IOCTL_SERIAL_SET_CHARS, IOCTL_SERIAL_GET_CHARS, sizeof(SERIAL_CHARS)},
    {IOCTL_SERIAL_SET_HANDFLOW, IOCTL_SERIAL_GET_HANDFLOW, sizeof(SERIAL_HANDFLOW)},
};

static const struct {
  ULONG code;
  ULONG on;
  ULONG off;
} output_controls[] = {
    {IOCTL_SERIAL_SET_DTR, OUTPUT_DTR, 0},        {IOCTL_SERIAL_CLR_DTR, 0, OUTPUT_DTR},
    {IOCTL_SERIAL_SET_RTS, OUTPUT_RTS, 0},        {IOCTL_SERIAL_CLR_RTS, 0, OUTPUT_RTS},
    {IOCTL_SERIAL_SET_BREAK_ON, OUTPUT_BREAK, 0}, {IOCTL_SERIAL_SET_BREAK_OFF, 0, OUTPUT_BREAK},
};

void reset_line(struct port* port) {
  RtlZeroMemory(&port->line, sizeof(port->line));
  RtlZeroMemory(port->settings, sizeof(port->settings));
  *(ULONG*)port->settings[1] = 9600;
  port->settings[2][2] = 8;  // data bits
  port->outputs = port->inputs = port->wait_mask = port->events = port->errors = 0;
  port->received.size = port->sent.size = 0;
  port->fault_count = port->entry_count = 0;
}

static ULONG put(struct queue* queue, const UCHAR* bytes, ULONG size) {
  const ULONG count = min(size, (ULONG)sizeof(queue->bytes) - queue->size);
  RtlCopyMemory(queue->bytes + queue->size, bytes, count);
  queue->size += count;
  return count;
}

ULONG take(struct queue* queue, UCHAR* bytes, ULONG size) {
  const ULONG count = min(size, queue->size);
  RtlCopyMemory(bytes, queue->bytes, count);
  queue->size -= count;
  RtlMoveMemory(queue->bytes, queue->bytes + count, queue->size);
  return count;
}

void raise_events(struct port* port, ULONG events) {
  port->events |= events & port->wait_mask;
}

void receive(struct port* port, const UCHAR* bytes, ULONG size) {
  if (put(&port->received, bytes, size) != size) {
    port->errors |= SERIAL_ERROR_QUEUEOVERRUN;
    raise_events(port, SERIAL_EV_ERR);
  }
  raise_events(port, SERIAL_EV_RXCHAR);
}

void update_inputs(struct port* port) {
  static const ULONG changes[][2] = {
      {INPUT_CTS, SERIAL_EV_CTS}, {INPUT_DSR, SERIAL_EV_DSR}, {INPUT_DCD, SERIAL_EV_RLSD}};
  const ULONG before = port->inputs;
  port->inputs = port->line.inputs;
  if (port->line.loops_back)
    port->inputs = ((port->outputs & OUTPUT_DTR) ? INPUT_DSR | INPUT_DCD : 0u) |
                   ((port->outputs & OUTPUT_RTS) ? INPUT_CTS : 0u);
  for (ULONG i = 0; i < RTL_NUMBER_OF(changes); ++i)
    raise_events(port, ((before ^ port->inputs) & changes[i][0]) ? changes[i][1] : 0);
  // A UART tells of a ring when it ends.
  raise_events(port, (before & ~port->inputs & INPUT_RING) ? SERIAL_EV_RING : 0);
}

static void set_outputs(struct port* port, ULONG outputs) {
  const ULONG risen = outputs & ~port->outputs;
  port->outputs = outputs;
  update_inputs(port);
  if (port->line.loops_back && (risen & OUTPUT_BREAK))
    raise_events(port, SERIAL_EV_BREAK);
}

static NTSTATUS take_input(const struct request* request, void* value, ULONG size) {
  if (request->stack->Parameters.DeviceIoControl.InputBufferLength < size)
    return STATUS_BUFFER_TOO_SMALL;
  RtlCopyMemory(value, request->irp->AssociatedIrp.SystemBuffer, size);
  return STATUS_SUCCESS;
}

static NTSTATUS give_output(struct request* request, const void* value, ULONG size) {
  if (request->stack->Parameters.DeviceIoControl.OutputBufferLength < size)
    return STATUS_BUFFER_TOO_SMALL;
  request->done = min(size, request->limit);
  RtlCopyMemory(request->irp->AssociatedIrp.SystemBuffer, value, request->done);
  return STATUS_SUCCESS;
}

static NTSTATUS set_wait_mask(struct request* request) {
  struct port* const port = request->port;
  const ULONG none = 0;
  const NTSTATUS status = take_input(request, &port->wait_mask, sizeof(port->wait_mask));
  struct request* const wait = first_pending(port, IOCTL_SERIAL_WAIT_ON_MASK);
  port->events &= port->wait_mask;
  if (status == STATUS_SUCCESS && wait)
    finish(wait, give_output(wait, &none, sizeof(none)));
  return status;
}

static NTSTATUS wait_on_mask(struct request* request) {
  struct port* const port = request->port;
  const struct request* const wait = first_pending(port, IOCTL_SERIAL_WAIT_ON_MASK);
  if (port->wait_mask == 0 || (wait && wait != request))
    return STATUS_INVALID_PARAMETER;
  if (port->events == 0)
    return STATUS_PENDING;
  const ULONG events = port->events;
  port->events = 0;
  return give_output(request, &events, sizeof(events));
}

static NTSTATUS purge(struct request* request) {
  ULONG what = 0;
  const NTSTATUS status = take_input(request, &what, sizeof(what));
  if (what & SERIAL_PURGE_TXABORT)
    finish_all(request->port, REQUEST_WRITE, STATUS_CANCELLED, FALSE);
  if (what & SERIAL_PURGE_RXABORT)
    finish_all(request->port, REQUEST_READ, STATUS_CANCELLED, FALSE);
  if (what & SERIAL_PURGE_RXCLEAR)
    request->port->received.size = 0;
  return status;
}

static NTSTATUS give_status(struct request* request) {
  struct port* const port = request->port;
  const SERIAL_STATUS answer = {.Errors = port->errors, .AmountInInQueue = port->received.size};
  port->errors = 0;
  return give_output(request, &answer, sizeof(answer));
}

static NTSTATUS advance_control(struct request* request) {
  struct port* const port = request->port;
  for (ULONG i = 0; i < SETTINGS; ++i) {
    if (request->kind == kept_settings[i].set)
      return take_input(request, port->settings[i], kept_settings[i].size);
    if (request->kind == kept_settings[i].get)
      return give_output(request, port->settings[i], kept_settings[i].size);
  }
  for (ULONG i = 0; i < RTL_NUMBER_OF(output_controls); ++i) {
    if (request->kind != output_controls[i].code)
      continue;
    set_outputs(port, (port->outputs | output_controls[i].on) & ~output_controls[i].off);
    return STATUS_SUCCESS;
  }
  switch (request->kind) {
    case IOCTL_SERIAL_SET_WAIT_MASK:
      return set_wait_mask(request);
    case IOCTL_SERIAL_WAIT_ON_MASK:
      return wait_on_mask(request);
    case IOCTL_SERIAL_GET_MODEMSTATUS:
      return give_output(request, &port->inputs, sizeof(port->inputs));
    case IOCTL_SERIAL_GET_COMMSTATUS:
      return give_status(request);
    case IOCTL_SERIAL_PURGE:
      return purge(request);
    default:
      return STATUS_INVALID_DEVICE_REQUEST;
  }
}

static ULONGLONG milliseconds(void) {
  LARGE_INTEGER frequency;
  const LARGE_INTEGER now = KeQueryPerformanceCounter(&frequency);
  return (ULONGLONG)now.QuadPart / ((ULONGLONG)frequency.QuadPart / 1000);
}

// Read time-outs: at once, on the first byte, or after a time in all; none between two bytes.
static NTSTATUS advance_read(struct request* request) {
  struct port* const port = request->port;
  const SERIAL_TIMEOUTS* const timeouts = (const void*)port->settings[0];
  const struct request* const first = first_pending(port, REQUEST_READ);
  if (first && first != request)
    return STATUS_PENDING;
  if (request->started == 0)
    request->started = milliseconds();
  const ULONG wanted = min(request->stack->Parameters.Read.Length, request->limit);
  UCHAR* const buffer = request->irp->AssociatedIrp.SystemBuffer;
  request->done += take(&port->received, buffer + request->done, wanted - request->done);

  const BOOLEAN at_first = timeouts->ReadIntervalTimeout == MAXULONG;
  const ULONG multiplier = at_first ? 0 : timeouts->ReadTotalTimeoutMultiplier;
  const ULONGLONG total = (ULONGLONG)multiplier * wanted + timeouts->ReadTotalTimeoutConstant;
  if (request->done == wanted || (at_first && (request->done != 0 || total == 0)))
    return STATUS_SUCCESS;
  return total != 0 && milliseconds() >= request->started + total ? STATUS_TIMEOUT : STATUS_PENDING;
}

static NTSTATUS advance_write(struct request* request) {
  struct port* const port = request->port;
  const UCHAR* const bytes = request->irp->AssociatedIrp.SystemBuffer;
  request->done = min(request->stack->Parameters.Write.Length, request->limit);
  if (port->line.loops_back)
    receive(port, bytes, request->done);
  else
    put(&port->sent, bytes, request->done);
  return STATUS_SUCCESS;
}

NTSTATUS advance(struct request* request) {
  if (request->kind == REQUEST_READ)
    return advance_read(request);
  return request->kind == REQUEST_WRITE ? advance_write(request) : advance_control(request);
}
