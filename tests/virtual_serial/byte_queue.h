// Bytes in the order of their arrival, in memory of a fixed size.
#pragma once

#include <ntddk.h>

struct byte_queue {
  UCHAR* bytes;
  ULONG first;
  ULONG size;
};

#define BYTE_QUEUE_CAPACITY 0x100000u

NTSTATUS byte_queue_create(struct byte_queue* queue);
void byte_queue_destroy(struct byte_queue* queue);

// Both move as many bytes as there is room or content for, and return their number.
ULONG byte_queue_put(struct byte_queue* queue, const UCHAR* bytes, ULONG size);
ULONG byte_queue_take(struct byte_queue* queue, UCHAR* bytes, ULONG size);
