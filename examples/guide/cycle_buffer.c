// Samples from one thread to another through a byte ring that is never more than half full.
#include <qiv/cycle_buffer.h>
#include <qiv/system.h>
#include <qiv/thread.h>
#include <stdio.h>
#include <string.h>

enum { kCapacity = 256, kMostStored = kCapacity / 2, kSamples = 500 };

// What the reader has: the samples so far, and where in the ring it stands.
struct Record {
  unsigned int samples[kSamples];
  size_t bytes;
  size_t position;
};

static unsigned int SampleAt(unsigned int time) { return time * time % 1000; }

// There is one writer, so what is stored only shrinks between the look and the write.
static void WriteWhenHalfFree(QIV_HANDLE buffer, unsigned int sample) {
  unsigned int stored = 0;
  while (QIV_CycleBufferValue(buffer, &stored) != QIV_OK || stored + sizeof sample > kMostStored ||
         QIV_CycleBufferWrite(buffer, &sample, sizeof sample) != QIV_OK) {
    QIV_Sleep(1);
  }
}

static void* Measure(void* buffer) {
  for (unsigned int time = 0; time < kSamples; ++time) WriteWhenHalfFree(buffer, SampleAt(time));
  return NULL;
}

// The reader's callback. What reaches beyond the end of the ring was never written.
static void Append(char* data, int length, void* user) {
  struct Record* const record = user;
  const size_t toTheEnd = kCapacity - record->position;
  const size_t given = (size_t)length;
  const size_t written = given < toTheEnd ? given : toTheEnd;
  if (written > sizeof record->samples - record->bytes) return;
  memcpy((char*)record->samples + record->bytes, data, written);
  record->bytes += written;
  record->position = (record->position + written) % kCapacity;
}

int main(void) {
  static struct Record record;
  QIV_HANDLE buffer = NULL;
  if (QIV_CycleBufferInit(&buffer, kCapacity, Append, &record) != QIV_OK) return 1;
  const unsigned int writer = QIV_Thread_Create(Measure, buffer, 0, 0, 0, 0);
  if (writer == QIV_INVALID_ID) return 1;
  while (record.bytes < sizeof record.samples) {
    if (QIV_CycleBufferRead(buffer) != QIV_OK) QIV_Sleep(1);  // nothing there yet
  }
  QIV_Thread_Wait(writer);
  QIV_CycleBufferDestroy(buffer);

  unsigned int right = 0;
  for (unsigned int time = 0; time < kSamples; ++time) {
    if (record.samples[time] == SampleAt(time)) ++right;
  }
  printf("%u of %d samples arrived\n", right, kSamples);
  return right == kSamples ? 0 : 1;
}
