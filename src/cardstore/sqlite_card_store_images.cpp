// Card images: stored as the bytes they were imported as, in their own table
// so that scanning card rows never drags image data along. Handles come from
// the process-wide ImageRegistry.
#include "cardstore/sqlite_card_store_internal.h"

namespace ombrel::sqlite_store {

namespace {

const char* SideName(ImageSide side) { return side == ImageSide::kFront ? "front" : "back"; }

}  // namespace

void ImageTable::EnsureLoaded() {
  if (valid_) return;
  std::vector<int32_t> sides[2];
  {
    StatementUse use(c_.St().selectImageSides);
    while (use->Step()) {
      int64_t id = use->Int(0), side = use->Int(1);
      // Rows no card could own are never asked about.
      if (id >= 1 && id <= INT32_MAX && (side == 0 || side == 1)) sides[side].push_back(static_cast<int32_t>(id));
    }
  }
  sides_[0].Assign(sides[0]);
  sides_[1].Assign(sides[1]);
  valid_ = true;
}

void ImageTable::Invalidate() {
  valid_ = false;
  sides_[0].Clear();
  sides_[1].Clear();
  handles_.clear();
}

void ImageTable::Forget(int32_t cardId) {
  sides_[0].Erase(cardId);
  sides_[1].Erase(cardId);
  handles_.erase({cardId, 0});
  handles_.erase({cardId, 1});
}

void ImageTable::Store(int32_t cardId, ImageSide side, const StoredImage& image) {
  std::string detected = ImageRegistry::DetectFormat(image.bytes);
  if (detected.empty() || detected != image.format) {
    Fail(CSqliteCardStore::kStatusBadArgument, std::string("the ") + SideName(side) +
                                                   " image is not a PNG, JPEG or BMP image of the format it claims (\"" +
                                                   image.format + "\")");
  }
  StatementUse use(c_.St().upsertImage);
  use->BindInt(1, cardId);
  use->BindInt(2, static_cast<int>(side));
  use->BindText(3, image.format);
  use->BindBlob(4, std::string_view(reinterpret_cast<const char*>(image.bytes.data()), image.bytes.size()));
  use->Step();
  if (valid_) sides_[static_cast<int>(side)].Insert(cardId);
}

void ImageTable::Remove(int32_t cardId, ImageSide side) {
  StatementUse use(c_.St().deleteImage);
  use->BindInt(1, cardId);
  use->BindInt(2, static_cast<int>(side));
  use->Step();
  sides_[static_cast<int>(side)].Erase(cardId);
  handles_.erase({cardId, static_cast<int>(side)});
}

int32_t ImageTable::Handle(int32_t cardId, ImageSide side) {
  auto key = std::make_pair(cardId, static_cast<int>(side));
  auto& registry = ImageRegistry::Instance();
  // Hand out the same handle again while it is alive, so repeated reads do
  // not fill the registry with copies.
  if (auto it = handles_.find(key); it != handles_.end()) {
    if (registry.Get(it->second)) return it->second;
    handles_.erase(it);
  }
  // Not worth loading the image sets for, but they spare a query once there.
  if (valid_ && !sides_[static_cast<int>(side)].Contains(cardId)) return 0;
  StatementUse use(c_.St().selectImage);
  use->BindInt(1, cardId);
  use->BindInt(2, static_cast<int>(side));
  if (!use->Step()) return 0;
  StoredImage image;
  image.format = std::string(use->Text(0));
  std::string_view data = use->Blob(1);
  image.bytes.assign(data.begin(), data.end());
  int32_t handle = registry.Register(std::move(image));
  handles_[key] = handle;
  return handle;
}

bool ImageTable::Has(int32_t cardId, ImageSide side) {
  EnsureLoaded();
  return sides_[static_cast<int>(side)].Contains(cardId);
}

namespace {

int32_t GetImageHandle(CSqliteCardStore::Impl& s, int32_t cardId, ImageSide side) {
  s.RequireCard(cardId);
  return s.images.Handle(cardId, side);
}

void SetImageFromHandle(CSqliteCardStore::Impl& s, int32_t cardId, ImageSide side, int32_t handle) {
  WriteTransaction tx(s);
  s.RequireCard(cardId);
  if (handle == 0) {
    s.images.Remove(cardId, side);
  } else {
    auto image = ImageRegistry::Instance().Get(handle);
    if (!image) Fail(CSqliteCardStore::kStatusBadArgument, "unknown image handle " + std::to_string(handle));
    s.images.Store(cardId, side, *image);
    s.images.Remember(cardId, side, handle);
  }
  tx.Commit();
}

bool HasImage(CSqliteCardStore::Impl& s, int32_t cardId, ImageSide side) {
  s.RequireCard(cardId);
  return s.images.Has(cardId, side);
}

}  // namespace

}  // namespace ombrel::sqlite_store

namespace ombrel {

using namespace sqlite_store;

Status CSqliteCardStore::GetCardDIB(int32_t cardId, int32_t& dib) {
  dib = 0;
  return impl_->Run("GetCardDIB", cardId, [&] {
    dib = GetImageHandle(*impl_, cardId, ImageSide::kFront);
  });
}

Status CSqliteCardStore::GetBackDIB(int32_t cardId, int32_t& dib) {
  dib = 0;
  return impl_->Run("GetBackDIB", cardId, [&] {
    dib = GetImageHandle(*impl_, cardId, ImageSide::kBack);
  });
}

Status CSqliteCardStore::SetCardDIB(int32_t cardId, int32_t dib) {
  return impl_->Run("SetCardDIB", cardId, [&] {
    SetImageFromHandle(*impl_, cardId, ImageSide::kFront, dib);
  });
}

Status CSqliteCardStore::SetBackDIB(int32_t cardId, int32_t dib) {
  return impl_->Run("SetBackDIB", cardId, [&] {
    SetImageFromHandle(*impl_, cardId, ImageSide::kBack, dib);
  });
}

Status CSqliteCardStore::HasFrontImage(int32_t cardId, bool& answer) {
  answer = false;
  return impl_->Run("HasFrontImage", cardId, [&] {
    answer = HasImage(*impl_, cardId, ImageSide::kFront);
  });
}

Status CSqliteCardStore::HasBackImage(int32_t cardId, bool& answer) {
  answer = false;
  return impl_->Run("HasBackImage", cardId, [&] {
    answer = HasImage(*impl_, cardId, ImageSide::kBack);
  });
}

Status CSqliteCardStore::GetImage(int32_t cardId, ImageSide side, StoredImage& image, bool& present) {
  present = false;
  image = {};
  return impl_->Run("GetImage", cardId, [&] {
    Impl& s = *impl_;
    s.RequireCard(cardId);
    StatementUse use(s.conn.St().selectImage);
    use->BindInt(1, cardId);
    use->BindInt(2, static_cast<int>(side));
    if (!use->Step()) return;
    image.format = std::string(use->Text(0));
    std::string_view data = use->Blob(1);
    image.bytes.assign(data.begin(), data.end());
    present = true;
  });
}

}  // namespace ombrel
