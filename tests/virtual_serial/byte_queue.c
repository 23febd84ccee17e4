#include "tests/virtual_serial/byte_queue.h"

NTSTATUS byte_queue_create(struct byte_queue* queue) {
  queue->first = 0;
  queue->size = 0;
  queue->bytes = ExAllocatePool(NonPagedPool, BYTE_QUEUE_CAPACITY);
  return queue->bytes ? STATUS_SUCCESS : STATUS_INSUFFICIENT_RESOURCES;
}

void byte_queue_destroy(struct byte_queue* queue) {
  if (queue->bytes)
    ExFreePool(queue->bytes);
  queue->bytes = NULL;
}

ULONG byte_queue_put(struct byte_queue* queue, const UCHAR* bytes, ULONG size) {
  const ULONG count = min(size, BYTE_QUEUE_CAPACITY - queue->size);
  const ULONG end = (queue->first + queue->size) % BYTE_QUEUE_CAPACITY;
  const ULONG until_wrap = min(count, BYTE_QUEUE_CAPACITY - end);
  RtlCopyMemory(queue->bytes + end, bytes, until_wrap);
  RtlCopyMemory(queue->bytes, bytes + until_wrap, count - until_wrap);
  queue->size += count;
  return count;
}

ULONG byte_queue_take(struct byte_queue* queue, UCHAR* bytes, ULONG size) {
  const ULONG count = min(size, queue->size);
  const ULONG until_wrap = min(count, BYTE_QUEUE_CAPACITY - queue->first);
  RtlCopyMemory(bytes, queue->bytes + queue->first, until_wrap);
  RtlCopyMemory(bytes + until_wrap, queue->bytes, count - until_wrap);
  queue->first = (queue->first + count) % BYTE_QUEUE_CAPACITY;
  queue->size -= count;
  return count;
}
