#include "zebcam/metadata/IMetadata.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

using NSCam::IMetadata;
using NSCam::Type2Type;

namespace {
std::atomic<size_t> gAllocations{0};
}  // namespace

// Counts every allocation of the process, the platform library's included.
void* operator new(size_t size) {
  ++gAllocations;
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }

TEST(IMetadata, EntriesAreTyped) {
  IMetadata meta;
  IMetadata::setEntry<uint8_t>(&meta, 1, 200);
  IMetadata::IEntry pairs(0);
  for (int32_t item : {3, 1, 7, 0}) pairs.push_back(item, Type2Type<int32_t>());
  pairs.push_back(int64_t{9}, Type2Type<int64_t>());  // refused: the entry holds int32
  EXPECT_EQ(meta.update(2, pairs), 0);
  EXPECT_EQ(meta.entryFor(2).tag(), 2u);
  EXPECT_EQ(meta.entryFor(2).count(), 4u);
  uint8_t u8 = 0;
  int32_t i32 = 42;
  EXPECT_TRUE(IMetadata::getEntry(&meta, 1, u8));
  EXPECT_EQ(u8, 200);
  EXPECT_TRUE(IMetadata::getEntry(&meta, 2, i32, 2));
  EXPECT_EQ(i32, 7);
  // Another type, index or tag, or no metadata, fails like a missing tag.
  i32 = 42;
  EXPECT_FALSE(IMetadata::getEntry(&meta, 1, i32));
  EXPECT_FALSE(IMetadata::getEntry(&meta, 2, i32, 4));
  EXPECT_FALSE(IMetadata::getEntry(&meta, 3, i32));
  EXPECT_FALSE(IMetadata::getEntry<int32_t>(nullptr, 1, i32));
  EXPECT_EQ(i32, 42);
  EXPECT_EQ(meta.entryFor(1).itemAt(0, Type2Type<int32_t>()), 0);
  EXPECT_TRUE(meta.entryFor(3).isEmpty());
  EXPECT_EQ(meta.remove(2), 0);
  EXPECT_EQ(meta.remove(2), -1);
  EXPECT_EQ(meta.count(), 1u);
}

TEST(IMetadata, GetEntryNeverAllocates) {
  IMetadata meta;
  for (int32_t tag = 0; tag < 64; ++tag) IMetadata::setEntry<int32_t>(&meta, tag * 3, tag);
  size_t const before = gAllocations.load();
  int64_t sum = 0;
  for (uint32_t tag = 0; tag < 256; ++tag) {
    int32_t value = 0;
    int64_t wrong = 0;
    IMetadata::getEntry(&meta, tag, value);
    IMetadata::getEntry(&meta, tag, wrong);
    sum += value + wrong;
  }
  EXPECT_EQ(gAllocations.load(), before);
  EXPECT_EQ(sum, 63 * 64 / 2);
}
