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
  if (void* p = std::malloc(size == 0 ? 1 : size)) {
    return p;
  }
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }

TEST(IMetadata, EntriesAreTyped) {
  IMetadata meta;
  IMetadata::setEntry<uint8_t>(&meta, 1, 200);
  IMetadata::setEntry<int64_t>(&meta, 2, -7);
  uint8_t u8 = 0;
  int32_t i32 = 42;
  int64_t i64 = 0;
  EXPECT_TRUE(IMetadata::getEntry(&meta, 1, u8));
  EXPECT_EQ(u8, 200);
  EXPECT_TRUE(IMetadata::getEntry(&meta, 2, i64));
  EXPECT_EQ(i64, -7);
  // Another type, another index, another tag or no metadata: false, value untouched.
  EXPECT_FALSE(IMetadata::getEntry(&meta, 1, i32));
  EXPECT_FALSE(IMetadata::getEntry(&meta, 2, i32));
  EXPECT_FALSE(IMetadata::getEntry(&meta, 1, u8, 1));
  EXPECT_FALSE(IMetadata::getEntry(&meta, 3, i32));
  EXPECT_FALSE(IMetadata::getEntry<int32_t>(nullptr, 1, i32));
  EXPECT_EQ(i32, 42);
  EXPECT_EQ(meta.entryFor(1).itemAt(0, Type2Type<int32_t>()), 0);
  EXPECT_EQ(meta.entryFor(1).itemAt(0, Type2Type<uint8_t>()), 200);

  IMetadata::IEntry mixed(9);
  mixed.push_back(1.5f, Type2Type<float>());
  mixed.push_back(2, Type2Type<int32_t>());  // refused: the entry holds floats
  mixed.push_back(2.5f, Type2Type<float>());
  EXPECT_EQ(mixed.count(), 2u);
  EXPECT_EQ(mixed.itemAt(1, Type2Type<float>()), 2.5f);
  EXPECT_EQ(mixed.itemAt(1, Type2Type<double>()), 0.0);
}

TEST(IMetadata, UpdateEntryForRemoveAndCopy) {
  IMetadata meta;
  IMetadata::IEntry pairs(0);
  for (int32_t item : {3, 1, 7, 0}) {
    pairs.push_back(item, Type2Type<int32_t>());
  }
  EXPECT_EQ(meta.update(0xC0150009, pairs), 0);
  IMetadata::IEntry stored = meta.entryFor(0xC0150009);
  EXPECT_EQ(stored.tag(), 0xC0150009u);
  EXPECT_EQ(stored.count(), 4u);
  int32_t item = 0;
  EXPECT_TRUE(IMetadata::getEntry(&meta, 0xC0150009, item, 2));
  EXPECT_EQ(item, 7);
  IMetadata copy = meta;
  IMetadata::setEntry<int32_t>(&copy, 0xC0150009, 5);
  EXPECT_EQ(copy.entryFor(0xC0150009).count(), 1u);
  EXPECT_EQ(meta.entryFor(0xC0150009).count(), 4u);

  IMetadata::IEntry absent = meta.entryFor(77);
  EXPECT_TRUE(absent.isEmpty());
  EXPECT_EQ(absent.tag(), 77u);
  EXPECT_EQ(meta.remove(0xC0150009), 0);
  EXPECT_EQ(meta.remove(0xC0150009), -1);
  EXPECT_TRUE(meta.isEmpty());
  copy.clear();
  EXPECT_EQ(copy.count(), 0u);
}

TEST(IMetadata, GetEntryNeverAllocates) {
  IMetadata meta;
  for (uint32_t tag = 0; tag < 64; ++tag) {
    IMetadata::setEntry<int32_t>(&meta, tag * 3, static_cast<int32_t>(tag));
  }
  size_t const before = gAllocations.load();
  int64_t sum = 0;
  for (uint32_t tag = 0; tag < 256; ++tag) {
    int32_t value = 0;
    int64_t wrong = 0;
    IMetadata::getEntry(&meta, tag, value);
    IMetadata::getEntry(&meta, tag, wrong);
    sum += value;
  }
  EXPECT_EQ(gAllocations.load(), before);
  EXPECT_EQ(sum, 63 * 64 / 2);
}
