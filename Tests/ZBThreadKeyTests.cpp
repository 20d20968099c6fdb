// Thread keys: the 512-key limit and slot reuse, values that go stale when
// their key is deleted, per-thread values, destructor passes at thread exit,
// and the table that cannot be made.
#include <gtest/gtest.h>

#include "ZBTestSupport.h"

#include "ZBBaseAllocator.h"
#include "ZBLog.h"
#include "ZBThread.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr ZBThreadKey kFirstKey = 251;
constexpr ZBThreadKey kLastKey = 762;

using zbtest::onOtherThread;

int marker[8];

} // namespace

TEST(ZBThreadKeyTest, AllKeysCanBeTakenAndTheLowestFreeSlotIsReused) {
  std::vector<ZBThreadKey> keys;
  const std::string before = zbtest::logRing();
  for (int attempt = 0; attempt <= 512; ++attempt) {
    const ZBThreadKey key = ZBThreadKeyCreate(nullptr);
    if (key == -1)
      break;
    keys.push_back(key);
  }
  ASSERT_FALSE(keys.empty());
  EXPECT_EQ(-1, ZBThreadKeyCreate(nullptr));
  // One warning per refusal: the one that ended the loop and the one above.
  const char *const kWarning = "ZBThreadKeyCreate: WARNING: Depleted ZBThreadKeys";
  EXPECT_EQ(zbtest::occurrences(before, kWarning) + 2,
            zbtest::occurrences(zbtest::logRing(), kWarning));
  // Lowest slot first, up to the last key; the library's own keys, if any,
  // were made at load and so come before these.
  EXPECT_GE(keys.front(), kFirstKey);
  EXPECT_EQ(keys.end(), std::adjacent_find(keys.begin(), keys.end(), std::greater_equal<>()))
      << "slots are handed out lowest first";
  EXPECT_EQ(kLastKey, keys.back());

  const ZBThreadKey middle = keys[keys.size() / 2];
  const ZBThreadKey late = keys[keys.size() - 3];
  EXPECT_EQ(0, ZBThreadKeyDelete(late));
  EXPECT_EQ(0, ZBThreadKeyDelete(middle));
  EXPECT_EQ(ZBErrorInvalidHandle, ZBThreadKeyDelete(middle));
  EXPECT_EQ(middle, ZBThreadKeyCreate(nullptr));
  EXPECT_EQ(late, ZBThreadKeyCreate(nullptr));
  for (ZBThreadKey key : keys)
    EXPECT_EQ(0, ZBThreadKeyDelete(key));
}

// Callers' ZBThreadGetSpecific(key) and ZBThreadSetSpecific(key, value) may
// be the header's inline forms; the exported functions, reached through
// their addresses, must see the same values, on a thread that has no table
// yet (its first call makes it) as on one that has.
TEST(ZBThreadKeyTest, InlineAndExportedFormsShareValues) {
#ifdef ZB_THREAD_KEY_INLINE_LOOKUP
  EXPECT_LT(_gZBThreadKeyState.tableSlot, 64u) << "the inline lookups are in use";
#endif
  using Get = void *(*)(ZBThreadKey);
  using Set = ZBError (*)(ZBThreadKey, const void *);
  const Get inlineGet = [](ZBThreadKey key) { return ZBThreadGetSpecific(key); };
  const Set inlineSet = [](ZBThreadKey key, const void *value) {
    return ZBThreadSetSpecific(key, value);
  };
  const struct {
    Set set;
    Get get;
  } rows[] = {{inlineSet, &ZBThreadGetSpecific},
              {&ZBThreadSetSpecific, inlineGet},
              {inlineSet, inlineGet},
              {&ZBThreadSetSpecific, &ZBThreadGetSpecific}};
  const ZBThreadKey key = ZBThreadKeyCreate(nullptr);
  ASSERT_NE(-1, key);
  const uint32_t index = static_cast<uint32_t>(key - kFirstKey);
  EXPECT_EQ(1u, _gZBThreadKeyState.generations[index] % 2) << "odd while in use";
  for (size_t row = 0; row < std::size(rows); ++row) {
    SCOPED_TRACE(row);
    const auto &form = rows[row];
    auto check = [&form, key, row] {
      EXPECT_EQ(0, form.set(key, &marker[row]));
      EXPECT_EQ(&marker[row], form.get(key));
      EXPECT_EQ(nullptr, form.get(kFirstKey - 1));
      EXPECT_EQ(nullptr, form.get(kLastKey + 1));
      EXPECT_EQ(ZBErrorInvalidHandle, form.set(kLastKey + 1, &marker[row]));
    };
    onOtherThread(check);
    check();
  }
  EXPECT_EQ(0, ZBThreadKeyDelete(key));
  EXPECT_EQ(0u, _gZBThreadKeyState.generations[index] % 2) << "even once deleted";
  for (const auto &form : rows)
    EXPECT_EQ(nullptr, form.get(key));
}

TEST(ZBThreadKeyTest, ValuesOutsideTheKeyRangeAreRefused) {
  for (ZBThreadKey key : {kFirstKey - 1, kLastKey + 1, -1, 0, INT_MIN, INT_MAX}) {
    EXPECT_EQ(ZBErrorInvalidHandle, ZBThreadKeyDelete(key)) << key;
    EXPECT_EQ(ZBErrorInvalidHandle, ZBThreadSetSpecific(key, &marker[0])) << key;
    EXPECT_EQ(nullptr, ZBThreadGetSpecific(key)) << key;
  }
}

TEST(ZBThreadKeyTest, EachThreadSeesItsOwnValue) {
  const ZBThreadKey key = ZBThreadKeyCreate(nullptr);
  ASSERT_NE(-1, key);
  EXPECT_EQ(nullptr, ZBThreadGetSpecific(key));
  ASSERT_EQ(0, ZBThreadSetSpecific(key, &marker[0]));
  onOtherThread([key] {
    EXPECT_EQ(nullptr, ZBThreadGetSpecific(key));
    EXPECT_EQ(0, ZBThreadSetSpecific(key, &marker[1]));
    EXPECT_EQ(&marker[1], ZBThreadGetSpecific(key));
  });
  EXPECT_EQ(&marker[0], ZBThreadGetSpecific(key));
  EXPECT_EQ(0, ZBThreadSetSpecific(key, nullptr));
  EXPECT_EQ(nullptr, ZBThreadGetSpecific(key));
  EXPECT_EQ(0, ZBThreadKeyDelete(key));
}

TEST(ZBThreadKeyTest, ValuesOfADeletedKeyStayHiddenWhenItsSlotIsReused) {
  const ZBThreadKey key = ZBThreadKeyCreate(nullptr);
  ASSERT_NE(-1, key);
  ASSERT_EQ(0, ZBThreadSetSpecific(key, &marker[0]));

  std::atomic<int> step{0};
  std::thread other([&] {
    ZBThreadSetSpecific(key, &marker[1]);
    step = 1;
    while (step != 2)
      std::this_thread::yield();
    EXPECT_EQ(nullptr, ZBThreadGetSpecific(key)) << "the other thread's value is stale";
  });
  while (step != 1)
    std::this_thread::yield();
  ASSERT_EQ(0, ZBThreadKeyDelete(key));
  EXPECT_EQ(nullptr, ZBThreadGetSpecific(key));
  const ZBThreadKey reused = ZBThreadKeyCreate(nullptr);
  EXPECT_EQ(key, reused) << "the freed slot is the lowest free one";
  EXPECT_EQ(nullptr, ZBThreadGetSpecific(reused));
  step = 2;
  other.join();

  ASSERT_EQ(0, ZBThreadSetSpecific(reused, &marker[2]));
  EXPECT_EQ(&marker[2], ZBThreadGetSpecific(reused));
  EXPECT_EQ(0, ZBThreadKeyDelete(reused));
}

namespace {

ZBThreadKey gRearmingKey;
std::atomic<int> gRearmingCalls;
std::atomic<int> gPlainCalls;
void *gPlainValue;

// Stores a value again every time, so only the pass limit stops it.
void rearm(void *value) {
  ++gRearmingCalls;
  ZBThreadSetSpecific(gRearmingKey, value);
}

void countPlain(void *value) {
  ++gPlainCalls;
  gPlainValue = value;
}

} // namespace

TEST(ZBThreadKeyTest, DestructorsRunAtThreadExitInAtMostFourPasses) {
  gRearmingKey = ZBThreadKeyCreate(rearm);
  const ZBThreadKey plain = ZBThreadKeyCreate(countPlain);
  const ZBThreadKey unset = ZBThreadKeyCreate(countPlain);
  const ZBThreadKey deleted = ZBThreadKeyCreate(countPlain);
  ASSERT_NE(-1, gRearmingKey);
  ASSERT_NE(-1, deleted);
  gRearmingCalls = 0;
  gPlainCalls = 0;

  onOtherThread([&] {
    ZBThreadSetSpecific(gRearmingKey, &marker[0]);
    ZBThreadSetSpecific(plain, &marker[1]);
    ZBThreadSetSpecific(unset, nullptr);
    ZBThreadSetSpecific(deleted, &marker[2]);
    ZBThreadKeyDelete(deleted);
  });
  EXPECT_EQ(4, gRearmingCalls.load());
  EXPECT_EQ(1, gPlainCalls.load()) << "null and stale values have no destructor call";
  EXPECT_EQ(&marker[1], gPlainValue);

  // A thread that never touched a key has nothing to destroy.
  onOtherThread([] {});
  EXPECT_EQ(4, gRearmingCalls.load());
  for (ZBThreadKey key : {gRearmingKey, plain, unset})
    EXPECT_EQ(0, ZBThreadKeyDelete(key));
}

namespace {

void *failingCalloc(size_t, size_t) { return nullptr; }
void *failingMalloc(size_t) { return nullptr; }

} // namespace

TEST(ZBThreadKeyTest, AThreadWhoseTableCannotBeMadeGetsNoMemory) {
  const ZBThreadKey key = ZBThreadKeyCreate(nullptr);
  ASSERT_NE(-1, key);
  onOtherThread([key] {
    // The table is made on a thread's first use of a key; this thread has
    // not used one yet.
    const ZBBaseAllocator saved = gZBBaseAllocator;
    gZBBaseAllocator.calloc = failingCalloc;
    gZBBaseAllocator.malloc = failingMalloc;
    const ZBError setResult = ZBThreadSetSpecific(key, &marker[0]);
    void *const got = ZBThreadGetSpecific(key);
    gZBBaseAllocator = saved;
    EXPECT_EQ(ZBErrorNoMemory, setResult);
    EXPECT_EQ(nullptr, got);
    EXPECT_EQ(0, ZBThreadSetSpecific(key, &marker[0])) << "made once memory is back";
    EXPECT_EQ(&marker[0], ZBThreadGetSpecific(key));
  });
  EXPECT_EQ(0, ZBThreadKeyDelete(key));
}
