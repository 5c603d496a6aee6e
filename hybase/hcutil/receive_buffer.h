// Memory that packets are received into. Large buffers are mappings of their own and go back to the
// system, whatever malloc keeps for later.
#ifndef HYBASE_HCUTIL_RECEIVE_BUFFER_H
#define HYBASE_HCUTIL_RECEIVE_BUFFER_H

// Room for `size` bytes and a spare one; null when memory is short. A `size` below 0 counts as 0.
char* NewReceiveBuffer(int size);

// `size`: what the buffer was made or last resized with.
void DeleteReceiveBuffer(char* buffer, int size);

// Keeps the first `kept` bytes. Null when memory is short; the buffer is then as it was.
char* ResizeReceiveBuffer(char* buffer, int size, int new_size, int kept);

#endif
