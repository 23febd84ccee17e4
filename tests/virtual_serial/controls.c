// The device controls of a serial port.
#include "tests/virtual_serial/port.h"

static IO_STACK_LOCATION* stack_of(const struct request* request) {
  return IoGetCurrentIrpStackLocation(request->irp);
}

static NTSTATUS take_input(const struct request* request, void* value, ULONG size) {
  if (stack_of(request)->Parameters.DeviceIoControl.InputBufferLength < size)
    return STATUS_BUFFER_TOO_SMALL;
  RtlCopyMemory(value, request->irp->AssociatedIrp.SystemBuffer, size);
  return STATUS_SUCCESS;
}

static NTSTATUS give_output(struct request* request, const void* value, ULONG size) {
  if (stack_of(request)->Parameters.DeviceIoControl.OutputBufferLength < size)
    return STATUS_BUFFER_TOO_SMALL;
  request->done = min(size, request->limit);
  RtlCopyMemory(request->irp->AssociatedIrp.SystemBuffer, value, request->done);
  return STATUS_SUCCESS;
}

static NTSTATUS give_number(struct request* request, ULONG value) {
  return give_output(request, &value, sizeof(value));
}

// The settings that a driver only keeps.
static const struct setting {
  ULONG set;
  ULONG get;
  ULONG offset;
  ULONG size;
} kept_settings[] = {
    {IOCTL_SERIAL_SET_BAUD_RATE, IOCTL_SERIAL_GET_BAUD_RATE,
     FIELD_OFFSET(struct settings, baud_rate), sizeof(SERIAL_BAUD_RATE)},
    {IOCTL_SERIAL_SET_LINE_CONTROL, IOCTL_SERIAL_GET_LINE_CONTROL,
     FIELD_OFFSET(struct settings, line_control), sizeof(SERIAL_LINE_CONTROL)},
    {IOCTL_SERIAL_SET_TIMEOUTS, IOCTL_SERIAL_GET_TIMEOUTS, FIELD_OFFSET(struct settings, timeouts),
     sizeof(SERIAL_TIMEOUTS)},
    {IOCTL_SERIAL_SET_CHARS, IOCTL_SERIAL_GET_CHARS, FIELD_OFFSET(struct settings, chars),
     sizeof(SERIAL_CHARS)},
    {IOCTL_SERIAL_SET_HANDFLOW, IOCTL_SERIAL_GET_HANDFLOW, FIELD_OFFSET(struct settings, handflow),
     sizeof(SERIAL_HANDFLOW)},
};

static BOOLEAN is_possible(const struct settings* settings) {
  const SERIAL_LINE_CONTROL* const line = &settings->line_control;
  const SERIAL_TIMEOUTS* const timeouts = &settings->timeouts;
  return settings->baud_rate.BaudRate != 0 && line->WordLength >= 5 && line->WordLength <= 8 &&
         line->Parity <= SPACE_PARITY && line->StopBits <= STOP_BITS_2 &&
         !(timeouts->ReadIntervalTimeout == MAXULONG &&
           timeouts->ReadTotalTimeoutConstant == MAXULONG);
}

// DTR and RTS follow a new handshake. Under flow control they are on while there is room for more
// bytes, and there always is.
static void apply_handflow(struct port* port) {
  const SERIAL_HANDFLOW* const handflow = &port->settings.handflow;
  const ULONG dtr = handflow->ControlHandShake & SERIAL_DTR_MASK;
  const ULONG rts = handflow->FlowReplace & SERIAL_RTS_MASK;
  ULONG outputs = port->outputs & ~(ULONG)(OUTPUT_DTR | OUTPUT_RTS);
  outputs |= dtr != 0 ? OUTPUT_DTR : 0u;
  outputs |= rts != 0 ? OUTPUT_RTS : 0u;
  set_outputs(port, outputs);
}

static NTSTATUS keep_setting(struct request* request, const struct setting* setting) {
  struct settings changed = request->port->settings;
  const NTSTATUS status = take_input(request, (UCHAR*)&changed + setting->offset, setting->size);
  if (status != STATUS_SUCCESS)
    return status;
  if (!is_possible(&changed))
    return STATUS_INVALID_PARAMETER;
  request->port->settings = changed;
  if (setting->set == IOCTL_SERIAL_SET_HANDFLOW)
    apply_handflow(request->port);
  return STATUS_SUCCESS;
}

static NTSTATUS set_wait_mask(struct request* request) {
  struct port* const port = request->port;
  const NTSTATUS status = take_input(request, &port->wait_mask, sizeof(port->wait_mask));
  if (status != STATUS_SUCCESS)
    return status;
  port->events &= port->wait_mask;
  struct request* const wait = first_pending(port, IOCTL_SERIAL_WAIT_ON_MASK);
  if (wait && wait != request)
    finish(wait, give_number(wait, 0));
  return STATUS_SUCCESS;
}

static NTSTATUS wait_on_mask(struct request* request) {
  struct port* const port = request->port;
  const struct request* const wait = first_pending(port, IOCTL_SERIAL_WAIT_ON_MASK);
  if (port->wait_mask == 0 || (wait && wait != request))
    return STATUS_INVALID_PARAMETER;
  if (port->events == 0)
    return STATUS_PENDING;
  const NTSTATUS status = give_number(request, port->events);
  if (status == STATUS_SUCCESS)
    port->events = 0;
  return status;
}

static NTSTATUS purge(struct request* request) {
  struct port* const port = request->port;
  ULONG what;
  const NTSTATUS status = take_input(request, &what, sizeof(what));
  if (status != STATUS_SUCCESS)
    return status;
  if (what & SERIAL_PURGE_TXABORT)
    finish_all(port, REQUEST_WRITE, STATUS_CANCELLED, FALSE);
  if (what & SERIAL_PURGE_RXABORT)
    finish_all(port, REQUEST_READ, STATUS_CANCELLED, FALSE);
  if (what & SERIAL_PURGE_RXCLEAR)
    port->received.size = 0;
  return STATUS_SUCCESS;
}

static ULONG bytes_to_send(struct port* port) {
  ULONG size = 0;
  for (LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = link->Flink) {
    const struct request* const request = CONTAINING_RECORD(link, struct request, link);
    if (request->kind == REQUEST_WRITE)
      size += stack_of(request)->Parameters.Write.Length;
  }
  return size;
}

static NTSTATUS give_status(struct request* request) {
  struct port* const port = request->port;
  SERIAL_STATUS answer = {0};
  answer.Errors = port->errors;
  answer.HoldReasons = port->stopped_by_xoff ? SERIAL_TX_WAITING_FOR_XON : 0;
  answer.AmountInInQueue = port->received.size;
  answer.AmountInOutQueue = bytes_to_send(port);
  const NTSTATUS status = give_output(request, &answer, sizeof(answer));
  if (status == STATUS_SUCCESS)
    port->errors = 0;
  return status;
}

static NTSTATUS give_properties(struct request* request) {
  SERIAL_COMMPROP properties = {0};
  properties.PacketLength = sizeof(properties);
  properties.PacketVersion = 2;
  properties.ServiceMask = SERIAL_SP_SERIALCOMM;
  properties.MaxBaud = SERIAL_BAUD_USER;
  properties.ProvSubType = SERIAL_SP_RS232;
  properties.ProvCapabilities = SERIAL_PCF_DTRDSR | SERIAL_PCF_RTSCTS | SERIAL_PCF_CD |
                                SERIAL_PCF_XONXOFF | SERIAL_PCF_TOTALTIMEOUTS |
                                SERIAL_PCF_INTTIMEOUTS;
  properties.SettableParams = SERIAL_SP_PARITY | SERIAL_SP_BAUD | SERIAL_SP_DATABITS |
                              SERIAL_SP_STOPBITS | SERIAL_SP_HANDSHAKING;
  properties.SettableBaud = SERIAL_BAUD_USER | SERIAL_BAUD_9600 | SERIAL_BAUD_115200;
  properties.SettableData = SERIAL_DATABITS_7 | SERIAL_DATABITS_8;
  properties.SettableStopParity = SERIAL_STOPBITS_10 | SERIAL_STOPBITS_20 | SERIAL_PARITY_NONE |
                                  SERIAL_PARITY_ODD | SERIAL_PARITY_EVEN;
  properties.CurrentRxQueue = BYTE_QUEUE_CAPACITY;
  return give_output(request, &properties, sizeof(properties));
}

static NTSTATUS send_at_once(struct request* request) {
  UCHAR byte;
  const NTSTATUS status = take_input(request, &byte, sizeof(byte));
  if (status == STATUS_SUCCESS)
    transmit(request->port, &byte, sizeof(byte));
  return status;
}

static const struct {
  ULONG code;
  ULONG on;
  ULONG off;
} output_controls[] = {
    {IOCTL_SERIAL_SET_DTR, OUTPUT_DTR, 0},        {IOCTL_SERIAL_CLR_DTR, 0, OUTPUT_DTR},
    {IOCTL_SERIAL_SET_RTS, OUTPUT_RTS, 0},        {IOCTL_SERIAL_CLR_RTS, 0, OUTPUT_RTS},
    {IOCTL_SERIAL_SET_BREAK_ON, OUTPUT_BREAK, 0}, {IOCTL_SERIAL_SET_BREAK_OFF, 0, OUTPUT_BREAK},
};

static NTSTATUS set_xoff(struct port* port, BOOLEAN stopped) {
  port->stopped_by_xoff = stopped;
  return STATUS_SUCCESS;
}

NTSTATUS advance_control(struct request* request) {
  struct port* const port = request->port;
  for (ULONG i = 0; i < RTL_NUMBER_OF(kept_settings); ++i) {
    const struct setting* const setting = &kept_settings[i];
    if (request->kind == setting->set)
      return keep_setting(request, setting);
    if (request->kind == setting->get)
      return give_output(request, (UCHAR*)&port->settings + setting->offset, setting->size);
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
    case IOCTL_SERIAL_GET_WAIT_MASK:
      return give_number(request, port->wait_mask);
    case IOCTL_SERIAL_WAIT_ON_MASK:
      return wait_on_mask(request);
    case IOCTL_SERIAL_GET_DTRRTS:
      return give_number(request, port->outputs & (OUTPUT_DTR | OUTPUT_RTS));
    case IOCTL_SERIAL_GET_MODEMSTATUS:
      return give_number(request, port->inputs);
    case IOCTL_SERIAL_GET_COMMSTATUS:
      return give_status(request);
    case IOCTL_SERIAL_GET_PROPERTIES:
      return give_properties(request);
    case IOCTL_SERIAL_GET_STATS:
      return give_output(request, &port->statistics, sizeof(port->statistics));
    case IOCTL_SERIAL_CLEAR_STATS:
      RtlZeroMemory(&port->statistics, sizeof(port->statistics));
      return STATUS_SUCCESS;
    case IOCTL_SERIAL_PURGE:
      return purge(request);
    case IOCTL_SERIAL_IMMEDIATE_CHAR:
      return send_at_once(request);
    case IOCTL_SERIAL_SET_XOFF:
      return set_xoff(port, TRUE);
    case IOCTL_SERIAL_SET_XON:
      return set_xoff(port, FALSE);
    case IOCTL_SERIAL_SET_QUEUE_SIZE:
      return STATUS_SUCCESS;
    default:
      return STATUS_INVALID_DEVICE_REQUEST;
  }
}
