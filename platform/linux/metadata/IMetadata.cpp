#include "zebcam/metadata/IMetadata.h"

namespace NSCam {
namespace {

template <typename T>
struct ItemTraits;

#define ZEBCAM_ITEM_TRAITS(T, kind, member)                                 \
  template <>                                                               \
  struct ItemTraits<T> {                                                    \
    static constexpr IMetadata::ItemType kType = IMetadata::ItemType::kind; \
    template <typename U>                                                   \
    static T get(U const& item) {                                           \
      return item.member;                                                   \
    }                                                                       \
    template <typename U>                                                   \
    static void set(U& item, T value) {                                     \
      item.member = value;                                                  \
    }                                                                       \
  };
ZEBCAM_ITEM_TRAITS(uint8_t, U8, u8)
ZEBCAM_ITEM_TRAITS(int32_t, I32, i32)
ZEBCAM_ITEM_TRAITS(int64_t, I64, i64)
ZEBCAM_ITEM_TRAITS(float, F32, f32)
ZEBCAM_ITEM_TRAITS(double, F64, f64)
#undef ZEBCAM_ITEM_TRAITS

}  // namespace

IMetadata::IEntry::IEntry(Tag_t tag) : mTag(tag) {}

IMetadata::Tag_t IMetadata::IEntry::tag() const { return mTag; }

bool IMetadata::IEntry::isEmpty() const { return mItems.empty(); }

size_t IMetadata::IEntry::count() const { return mItems.size(); }

IMetadata::ItemType IMetadata::IEntry::type() const { return mType; }

template <typename T>
void IMetadata::IEntry::push_back(T const& item, Type2Type<T>) {
  if (mType != ItemType::None && mType != ItemTraits<T>::kType) {
    return;
  }
  mType = ItemTraits<T>::kType;
  Item slot{};
  ItemTraits<T>::set(slot, item);
  mItems.push_back(slot);
}

template <typename T>
bool IMetadata::IEntry::tryItemAt(size_t index, T& value) const {
  if (mType != ItemTraits<T>::kType || index >= mItems.size()) {
    return false;
  }
  value = ItemTraits<T>::get(mItems[index]);
  return true;
}

template <typename T>
T IMetadata::IEntry::itemAt(size_t index, Type2Type<T>) const {
  T value{};
  tryItemAt(index, value);
  return value;
}

bool IMetadata::isEmpty() const { return mEntries.empty(); }

size_t IMetadata::count() const { return mEntries.size(); }

int IMetadata::update(Tag_t tag, IEntry const& entry) {
  IEntry& slot = mEntries.insert_or_assign(tag, entry).first->second;
  slot.mTag = tag;
  return 0;
}

IMetadata::IEntry IMetadata::entryFor(Tag_t tag) const {
  auto it = mEntries.find(tag);
  return it == mEntries.end() ? IEntry(tag) : it->second;
}

int IMetadata::remove(Tag_t tag) { return mEntries.erase(tag) == 1 ? 0 : -1; }

void IMetadata::clear() { mEntries.clear(); }

IMetadata::IEntry const* IMetadata::findEntry(Tag_t tag) const {
  auto it = mEntries.find(tag);
  return it == mEntries.end() ? nullptr : &it->second;
}

template <typename T>
bool IMetadata::getEntry(IMetadata const* meta, Tag_t tag, T& value, size_t index) {
  if (meta == nullptr) {
    return false;
  }
  IEntry const* entry = meta->findEntry(tag);
  return entry != nullptr && entry->tryItemAt(index, value);
}

template <typename T>
void IMetadata::setEntry(IMetadata* meta, Tag_t tag, T const& value) {
  if (meta == nullptr) {
    return;
  }
  IEntry entry(tag);
  entry.push_back(value, Type2Type<T>());
  meta->mEntries.insert_or_assign(tag, std::move(entry));
}

#define ZEBCAM_METADATA_INSTANTIATE(T)                                       \
  template void IMetadata::IEntry::push_back<T>(T const&, Type2Type<T>);     \
  template T IMetadata::IEntry::itemAt<T>(size_t, Type2Type<T>) const;       \
  template bool IMetadata::IEntry::tryItemAt<T>(size_t, T&) const;           \
  template bool IMetadata::getEntry<T>(IMetadata const*, Tag_t, T&, size_t); \
  template void IMetadata::setEntry<T>(IMetadata*, Tag_t, T const&);
ZEBCAM_METADATA_INSTANTIATE(uint8_t)
ZEBCAM_METADATA_INSTANTIATE(int32_t)
ZEBCAM_METADATA_INSTANTIATE(int64_t)
ZEBCAM_METADATA_INSTANTIATE(float)
ZEBCAM_METADATA_INSTANTIATE(double)
#undef ZEBCAM_METADATA_INSTANTIATE

}  // namespace NSCam
