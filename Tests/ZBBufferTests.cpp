// Fixed buffers and the ring of recent bytes.
#include <gtest/gtest.h>

#include "ZBBuffer.h"

#include <cstring>
#include <string>

namespace {

std::string copyOut(ZBCircularBuffer *ring, uint32_t size, int32_t *result) {
  std::string out(size, '\0');
  *result = ZBCircularBufferCopyBytes(ring, out.data(), size);
  out.resize(*result > 0 ? static_cast<size_t>(*result) : 0);
  return out;
}

TEST(ZBCircularBuffer, KeepsTheNewestBytesOldestFirst) {
  // Each row writes its bytes (if any), then copies into `size` bytes. A
  // destination smaller than the capacity gets minus the capacity, however
  // little the ring holds.
  const struct {
    const char *written;
    uint32_t size;
    int32_t result;
    const char *copied;
  } steps[] = {
      {nullptr, 16, 0, ""},
      {nullptr, 15, -16, ""},
      {"0123456789", 16, 10, "0123456789"},
      {nullptr, 12, -16, ""},
      {nullptr, 10, -16, ""},
      {"abcdefghij", 16, 16, "456789abcdefghij"},
      {nullptr, 8, -16, ""},
      {nullptr, 100, 16, "456789abcdefghij"},
      // One write longer than the ring leaves its last bytes.
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789", 16, 16, "UVWXYZ0123456789"},
      {"", 16, 16, "UVWXYZ0123456789"},
  };
  ZBCircularBuffer *ring = ZBCircularBufferCreate(16);
  for (const auto &step : steps) {
    if (step.written != nullptr)
      ZBCircularBufferEnqueue(ring, step.written, static_cast<uint32_t>(std::strlen(step.written)));
    int32_t result = 0;
    EXPECT_EQ(step.copied, copyOut(ring, step.size, &result)) << step.size;
    EXPECT_EQ(step.result, result) << step.size;
  }
  ZBCircularBufferFree(ring);
}

TEST(ZBCircularBuffer, ExactlyFullAfterOneWrapPoint) {
  ZBCircularBuffer *ring = ZBCircularBufferCreate(4);
  ZBCircularBufferEnqueue(ring, "wxyz", 4);
  int32_t result = 0;
  EXPECT_EQ("wxyz", copyOut(ring, 4, &result));
  ZBCircularBufferEnqueue(ring, "1", 1);
  EXPECT_EQ("xyz1", copyOut(ring, 4, &result));
  ZBCircularBufferFree(ring);
}

TEST(ZBBuffer, AppendAndReplaceWithinCapacity) {
  ZBBuffer *buffer = ZBBufferCreate(8);
  ASSERT_NE(nullptr, buffer);
  EXPECT_EQ(0u, ZBBufferGetLength(buffer));
  ZBBufferAppendBytes(buffer, "abc", 3);
  ZBBufferAppendBytes(buffer, "defgh", 5);
  EXPECT_EQ(8u, ZBBufferGetLength(buffer));
  EXPECT_EQ("abcdefgh", std::string(reinterpret_cast<char *>(ZBBufferGetBytes(buffer)), 8));
  ZBBufferSetBytes(buffer, "xy", 2);
  EXPECT_EQ(2u, ZBBufferGetLength(buffer));
  EXPECT_EQ("xy", std::string(reinterpret_cast<char *>(ZBBufferGetBytes(buffer)), 2));
  ZBBufferSetBytes(buffer, "12345678", 8);
  EXPECT_EQ(8u, ZBBufferGetLength(buffer));
  ZBBufferFree(buffer);
  ZBBufferFree(nullptr);
}

TEST(ZBBufferDeathTest, WritingPastTheCapacityIsFatal) {
  ZBBuffer *buffer = ZBBufferCreate(4);
  ZBBufferAppendBytes(buffer, "abc", 3);
  EXPECT_DEATH(ZBBufferAppendBytes(buffer, "de", 2), "");
  EXPECT_DEATH(ZBBufferSetBytes(buffer, "abcde", 5), "");
  ZBBufferFree(buffer);
}

} // namespace
