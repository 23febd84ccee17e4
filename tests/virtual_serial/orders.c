// What tests order of a port.
#include "tests/virtual_serial/port.h"

static ULONG count_pending(const struct port* port, ULONG kind) {
  ULONG count = 0;
  for (const LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = link->Flink)
    count += CONTAINING_RECORD(link, struct request, link)->kind == kind;
  return count;
}

static ULONG count_all_pending(const struct port* port) {
  ULONG count = 0;
  for (const LIST_ENTRY* link = port->pending.Flink; link != &port->pending; link = link->Flink)
    ++count;
  return count;
}

static NTSTATUS reset(struct port* port) {
  finish_all(port, 0, STATUS_CANCELLED, TRUE);
  reset_line(port);
  return STATUS_SUCCESS;
}

static NTSTATUS add_fault(struct port* port, const struct virtual_serial_fault* fault) {
  if (port->fault_count == RTL_NUMBER_OF(port->faults))
    return STATUS_INSUFFICIENT_RESOURCES;
  port->faults[port->fault_count++] = *fault;
  return STATUS_SUCCESS;
}

static NTSTATUS set_connected(struct port* port, BOOLEAN connected) {
  port->connected = connected;
  if (!connected)
    finish_all(port, 0, STATUS_DEVICE_NOT_CONNECTED, FALSE);
  return STATUS_SUCCESS;
}

static NTSTATUS happen(struct port* port, const struct virtual_serial_incident* incident) {
  port->errors |= incident->errors;
  raise_events(port, incident->events);
  return STATUS_SUCCESS;
}

static NTSTATUS give_state(const struct port* port, struct virtual_serial_state* state) {
  state->open_handles = port->open_handles;
  state->pending_reads = count_pending(port, REQUEST_READ);
  state->pending_writes = count_pending(port, REQUEST_WRITE);
  state->pending_controls = count_all_pending(port) - state->pending_reads - state->pending_writes;
  state->wait_mask = port->wait_mask;
  state->outputs = port->outputs;
  return STATUS_SUCCESS;
}

static ULONG take_journal(struct port* port, void* buffer, ULONG capacity) {
  const ULONG size = min(port->entry_count * (ULONG)sizeof(port->journal[0]), capacity);
  RtlCopyMemory(buffer, port->journal, size);
  port->entry_count = 0;
  return size;
}

static NTSTATUS carry_out_locked(struct port* port, ULONG order, void* buffer, ULONG* size,
                                 ULONG capacity) {
  const ULONG input_size = *size;
  *size = 0;
  switch (order) {
    case ORDER_RESET:
      port->connected = TRUE;
      return reset(port);
    case ORDER_RECEIVE:
      receive(port, buffer, input_size);
      return STATUS_SUCCESS;
    case ORDER_RELEASE:
      release_held(port);
      return STATUS_SUCCESS;
    case ORDER_TAKE_SENT:
      *size = byte_queue_take(&port->sent, buffer, capacity);
      return STATUS_SUCCESS;
    case ORDER_TAKE_JOURNAL:
      *size = take_journal(port, buffer, capacity);
      return STATUS_SUCCESS;
    case ORDER_FAULT:
      return input_size < sizeof(struct virtual_serial_fault) ? STATUS_BUFFER_TOO_SMALL
                                                              : add_fault(port, buffer);
    case ORDER_INCIDENT:
      return input_size < sizeof(struct virtual_serial_incident) ? STATUS_BUFFER_TOO_SMALL
                                                                 : happen(port, buffer);
    case ORDER_GET_STATE:
      if (capacity < sizeof(struct virtual_serial_state))
        return STATUS_BUFFER_TOO_SMALL;
      *size = sizeof(struct virtual_serial_state);
      return give_state(port, buffer);
    default:
      break;
  }

  if (input_size < sizeof(ULONG))
    return STATUS_BUFFER_TOO_SMALL;
  const ULONG value = *(const ULONG*)buffer;
  switch (order) {
    case ORDER_CONNECT:
      return set_connected(port, value != 0);
    case ORDER_LOOP_BACK:
      port->loops_back = value != 0;
      break;
    case ORDER_MODEM_INPUTS:
      port->inputs_by_order = value;
      break;
    default:
      return STATUS_INVALID_DEVICE_REQUEST;
  }
  update_inputs(port);
  return STATUS_SUCCESS;
}

NTSTATUS carry_out(struct port* port, ULONG order, void* buffer, ULONG* size, ULONG capacity) {
  enter();
  NTSTATUS status = carry_out_locked(port, order, buffer, size, capacity);
  settle(port);
  const BOOLEAN connected = port->connected;
  leave();
  if (status == STATUS_SUCCESS && (order == ORDER_CONNECT || order == ORDER_RESET))
    status = set_name(port, connected);
  return status;
}
