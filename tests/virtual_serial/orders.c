// What tests order of a port.
#include "tests/virtual_serial/port.h"

static void set_line(struct port* port, const struct virtual_serial_line* line) {
  port->line = *line;
  port->errors |= line->errors;
  if (line->vanished)
    finish_all(port, 0, STATUS_DEVICE_NOT_CONNECTED, FALSE);
  update_inputs(port);
  raise_events(port, line->events);
}

static struct virtual_serial_state state_of(const struct port* port) {
  struct virtual_serial_state state = {.open_handles = port->open_handles,
                                       .outputs = port->outputs};
  for (const LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = link->Flink) {
    const ULONG kind = CONTAINING_RECORD(link, struct request, link)->kind;
    ++*(kind == REQUEST_READ    ? &state.pending_reads
        : kind == REQUEST_WRITE ? &state.pending_writes
                                : &state.pending_controls);
  }
  return state;
}

NTSTATUS carry_out(struct port* port, ULONG code, void* buffer, ULONG* size, ULONG capacity) {
  const ULONG input_size = *size;
  *size = 0;
  switch (code) {
    case ORDER_RESET:
      finish_all(port, 0, STATUS_CANCELLED, TRUE);
      reset_line(port);
      break;
    case ORDER_LINE:
      set_line(port, buffer);
      break;
    case ORDER_RECEIVE:
      receive(port, buffer, input_size);
      break;
    case ORDER_TAKE_SENT:
      *size = take(&port->sent, buffer, capacity);
      break;
    case ORDER_FAULT:
      if (port->fault_count == RTL_NUMBER_OF(port->faults))
        return STATUS_INSUFFICIENT_RESOURCES;
      port->faults[port->fault_count++] = *(const struct virtual_serial_fault*)buffer;
      break;
    case ORDER_RELEASE:
      release_held(port);
      break;
    case ORDER_GET_STATE:
      *(struct virtual_serial_state*)buffer = state_of(port);
      *size = sizeof(struct virtual_serial_state);
      break;
    case ORDER_TAKE_JOURNAL:
      *size = port->entry_count * (ULONG)sizeof(port->journal[0]);
      RtlCopyMemory(buffer, port->journal, *size);
      port->entry_count = 0;
      break;
    default:
      return STATUS_INVALID_DEVICE_REQUEST;
  }
  settle(port);
  return STATUS_SUCCESS;
}
