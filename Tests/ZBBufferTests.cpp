// Fixed buffers and the ring of recent bytes.
#include <gtest/gtest.h>

#include "ZBBuffer.h"

#include <string>

namespace {

std::string copyOut(ZBCircularBuffer *ring, uint32_t size, int32_t *result) {
  std::string out(size, '\0');
  *result = ZBCircularBufferCopyBytes(ring, out.data(), size);
  out.resize(*result > 0 ? static_cast<size_t>(*result) : 0);
  return out;
}

TEST(ZBCircularBuffer, KeepsTheNewestBytesOldestFirst) {
  ZBCircularBuffer *ring = ZBCircularBufferCreate(16);
  int32_t result = 0;
  EXPECT_EQ("", copyOut(ring, 16, &result));
  EXPECT_EQ(0, result);

  ZBCircularBufferEnqueue(ring, "0123456789", 10);
  EXPECT_EQ("0123456789", copyOut(ring, 16, &result));
  ZBCircularBufferEnqueue(ring, "abcdefghij", 10);
  EXPECT_EQ("456789abcdefghij", copyOut(ring, 16, &result));
  EXPECT_EQ(16, result);
  EXPECT_EQ("", copyOut(ring, 8, &result));
  EXPECT_EQ(-16, result);
  EXPECT_EQ("456789abcdefghij", copyOut(ring, 100, &result));

  // One write longer than the ring leaves its last bytes.
  ZBCircularBufferEnqueue(ring, "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789", 36);
  EXPECT_EQ("UVWXYZ0123456789", copyOut(ring, 16, &result));
  ZBCircularBufferEnqueue(ring, "", 0);
  EXPECT_EQ("UVWXYZ0123456789", copyOut(ring, 16, &result));
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
