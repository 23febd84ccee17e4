// What tests order of a port.
#include "tests/virtual_serial/port.h"

struct order {
  void* buffer;
  ULONG input_size;
  ULONG capacity;  // of the buffer, for output
  ULONG output_size;
};

static ULONG value_of(const struct order* order) {
  return *(const ULONG*)order->buffer;
}

static NTSTATUS reset(struct port* port, struct order* order) {
  UNREFERENCED_PARAMETER(order);
  port->connected = TRUE;
  finish_all(port, 0, STATUS_CANCELLED, TRUE);
  reset_line(port);
  return STATUS_SUCCESS;
}

static NTSTATUS connect(struct port* port, struct order* order) {
  port->connected = value_of(order) != 0;
  if (!port->connected)
    finish_all(port, 0, STATUS_DEVICE_NOT_CONNECTED, FALSE);
  return STATUS_SUCCESS;
}

static NTSTATUS loop_back(struct port* port, struct order* order) {
  port->loops_back = value_of(order) != 0;
  update_inputs(port);
  return STATUS_SUCCESS;
}

static NTSTATUS set_modem_inputs(struct port* port, struct order* order) {
  port->inputs_by_order = value_of(order);
  update_inputs(port);
  return STATUS_SUCCESS;
}

static NTSTATUS happen(struct port* port, struct order* order) {
  const struct virtual_serial_incident* const incident = order->buffer;
  port->errors |= incident->errors;
  raise_events(port, incident->events);
  return STATUS_SUCCESS;
}

static NTSTATUS receive_bytes(struct port* port, struct order* order) {
  receive(port, order->buffer, order->input_size);
  return STATUS_SUCCESS;
}

static NTSTATUS take_sent(struct port* port, struct order* order) {
  order->output_size = byte_queue_take(&port->sent, order->buffer, order->capacity);
  return STATUS_SUCCESS;
}

static NTSTATUS add_fault(struct port* port, struct order* order) {
  const struct virtual_serial_fault* const fault = order->buffer;
  if (port->fault_count == RTL_NUMBER_OF(port->faults))
    return STATUS_INSUFFICIENT_RESOURCES;
  port->faults[port->fault_count++] = *fault;
  return STATUS_SUCCESS;
}

static NTSTATUS release(struct port* port, struct order* order) {
  UNREFERENCED_PARAMETER(order);
  release_held(port);
  return STATUS_SUCCESS;
}

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

static NTSTATUS give_state(struct port* port, struct order* order) {
  struct virtual_serial_state* const state = order->buffer;
  state->open_handles = port->open_handles;
  state->pending_reads = count_pending(port, REQUEST_READ);
  state->pending_writes = count_pending(port, REQUEST_WRITE);
  state->pending_controls = count_all_pending(port) - state->pending_reads - state->pending_writes;
  state->outputs = port->outputs;
  order->output_size = sizeof(*state);
  return STATUS_SUCCESS;
}

static NTSTATUS take_journal(struct port* port, struct order* order) {
  order->output_size = min(port->entry_count * (ULONG)sizeof(port->journal[0]), order->capacity);
  RtlCopyMemory(order->buffer, port->journal, order->output_size);
  port->entry_count = 0;
  return STATUS_SUCCESS;
}

static const struct {
  ULONG code;
  ULONG least_input;
  ULONG least_capacity;
  NTSTATUS (*carry_out)(struct port* port, struct order* order);
} orders[] = {
    {ORDER_RESET, 0, 0, reset},
    {ORDER_CONNECT, sizeof(ULONG), 0, connect},
    {ORDER_LOOP_BACK, sizeof(ULONG), 0, loop_back},
    {ORDER_MODEM_INPUTS, sizeof(ULONG), 0, set_modem_inputs},
    {ORDER_INCIDENT, sizeof(struct virtual_serial_incident), 0, happen},
    {ORDER_RECEIVE, 0, 0, receive_bytes},
    {ORDER_TAKE_SENT, 0, 0, take_sent},
    {ORDER_FAULT, sizeof(struct virtual_serial_fault), 0, add_fault},
    {ORDER_RELEASE, 0, 0, release},
    {ORDER_GET_STATE, 0, sizeof(struct virtual_serial_state), give_state},
    {ORDER_TAKE_JOURNAL, 0, 0, take_journal},
};

static NTSTATUS carry_out_locked(struct port* port, ULONG code, struct order* order) {
  for (ULONG i = 0; i < RTL_NUMBER_OF(orders); ++i) {
    if (orders[i].code != code)
      continue;
    if (order->input_size < orders[i].least_input || order->capacity < orders[i].least_capacity)
      return STATUS_BUFFER_TOO_SMALL;
    const NTSTATUS status = orders[i].carry_out(port, order);
    settle(port);
    return status;
  }
  return STATUS_INVALID_DEVICE_REQUEST;
}

NTSTATUS carry_out(struct port* port, ULONG code, void* buffer, ULONG* size, ULONG capacity) {
  struct order order = {buffer, *size, capacity, 0};
  enter();
  const NTSTATUS status = carry_out_locked(port, code, &order);
  const BOOLEAN connected = port->connected;
  leave();
  *size = order.output_size;
  // Names are not changed under the lock.
  if (status == STATUS_SUCCESS && (code == ORDER_CONNECT || code == ORDER_RESET))
    return set_name(port, connected);
  return status;
}
