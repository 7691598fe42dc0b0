#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace NSCam {

template <typename T>
struct Type2Type {
  using type = T;
};

// Tag id to a typed list of items. An entry holds one item type; reading it as
// another type fails exactly like a missing tag.
class IMetadata {
 public:
  using Tag_t = uint32_t;

  enum class ItemType : uint8_t { None, U8, I32, I64, F32, F64 };

  class IEntry {
   public:
    explicit IEntry(Tag_t tag = 0xFFFFFFFF);
    Tag_t tag() const;
    bool isEmpty() const;
    size_t count() const;
    ItemType type() const;

    // An item of another type than the entry's first item is refused.
    template <typename T>
    void push_back(T const& item, Type2Type<T>);
    // T{} when absent or of another type.
    template <typename T>
    T itemAt(size_t index, Type2Type<T>) const;
    // false (value untouched) when absent or of another type.
    template <typename T>
    bool tryItemAt(size_t index, T& value) const;

   private:
    friend class IMetadata;
    union Item {
      uint8_t u8;
      int32_t i32;
      int64_t i64;
      float f32;
      double f64;
    };
    Tag_t mTag;
    ItemType mType = ItemType::None;
    std::vector<Item> mItems;
  };

  bool isEmpty() const;
  size_t count() const;
  // Insert or replace; 0 on success.
  int update(Tag_t tag, IEntry const& entry);
  // An empty entry when absent.
  IEntry entryFor(Tag_t tag) const;
  // 0 when removed, -1 when absent.
  int remove(Tag_t tag);
  void clear();
  // Read-only view of one entry, nullptr when absent. Never allocates.
  IEntry const* findEntry(Tag_t tag) const;

  // Item `index` of `tag`; false (value untouched) when absent or of another
  // type. Never allocates.
  template <typename T>
  static bool getEntry(IMetadata const* meta, Tag_t tag, T& value, size_t index = 0);
  // Replaces `tag` by one item.
  template <typename T>
  static void setEntry(IMetadata* meta, Tag_t tag, T const& value);

 private:
  std::map<Tag_t, IEntry> mEntries;
};

#define ZEBCAM_METADATA_EXTERN(T)                                                   \
  extern template void IMetadata::IEntry::push_back<T>(T const&, Type2Type<T>);     \
  extern template T IMetadata::IEntry::itemAt<T>(size_t, Type2Type<T>) const;       \
  extern template bool IMetadata::IEntry::tryItemAt<T>(size_t, T&) const;           \
  extern template bool IMetadata::getEntry<T>(IMetadata const*, Tag_t, T&, size_t); \
  extern template void IMetadata::setEntry<T>(IMetadata*, Tag_t, T const&);
ZEBCAM_METADATA_EXTERN(uint8_t)
ZEBCAM_METADATA_EXTERN(int32_t)
ZEBCAM_METADATA_EXTERN(int64_t)
ZEBCAM_METADATA_EXTERN(float)
ZEBCAM_METADATA_EXTERN(double)
#undef ZEBCAM_METADATA_EXTERN

}  // namespace NSCam
