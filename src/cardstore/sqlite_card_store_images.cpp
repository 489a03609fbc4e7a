// Card images: stored as the bytes they were imported as, in their own table
// so that scanning card rows never drags image data along. Handles come from
// the process-wide ImageRegistry.
#include "cardstore/sqlite_card_store_internal.h"

namespace ombrel {

using namespace sqlite_store;

namespace {

const char* SideName(ImageSide side) { return side == ImageSide::kFront ? "front" : "back"; }

void RequireCard(CSqliteCardStore::Impl& s, int32_t cardId) {
  if (!s.CardRowExists(cardId)) Fail(CSqliteCardStore::kStatusUnknownCard, "no such card");
}

}  // namespace

void CSqliteCardStore::Impl::StoreImage(int32_t cardId, ImageSide side, const StoredImage* image) {
  std::string detected = ImageRegistry::DetectFormat(image->bytes);
  if (detected.empty() || detected != image->format) {
    Fail(kStatusBadArgument, std::string("the ") + SideName(side) +
                                 " image is not a PNG, JPEG or BMP image of the format it claims (\"" + image->format +
                                 "\")");
  }
  StatementUse use(st_->upsertImage);
  use->BindInt(1, cardId);
  use->BindInt(2, static_cast<int>(side));
  use->BindText(3, image->format);
  use->BindBlob(4, std::string_view(reinterpret_cast<const char*>(image->bytes.data()), image->bytes.size()));
  use->Step();
  if (imagesValid_) images_[static_cast<int>(side)].Insert(cardId);
}

int32_t CSqliteCardStore::Impl::GetImageHandle(int32_t cardId, ImageSide side) {
  RequireCard(*this, cardId);
  auto key = std::make_pair(cardId, static_cast<int>(side));
  auto& registry = ImageRegistry::Instance();
  // Hand out the same handle again while it is alive, so repeated reads do
  // not fill the registry with copies.
  if (auto it = handles_.find(key); it != handles_.end()) {
    if (registry.Get(it->second)) return it->second;
    handles_.erase(it);
  }
  // Not worth loading the image sets for, but they spare a query once there.
  if (imagesValid_ && !images_[static_cast<int>(side)].Contains(cardId)) return 0;
  StatementUse use(st_->selectImage);
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

bool CSqliteCardStore::Impl::HasImage(int32_t cardId, ImageSide side) {
  RequireCard(*this, cardId);
  EnsureImagesLoaded();
  return images_[static_cast<int>(side)].Contains(cardId);
}

void CSqliteCardStore::Impl::SetImageFromHandle(int32_t cardId, ImageSide side, int32_t handle) {
  WriteTransaction tx(*this);
  RequireCard(*this, cardId);
  auto key = std::make_pair(cardId, static_cast<int>(side));
  if (handle == 0) {
    StatementUse use(st_->deleteImage);
    use->BindInt(1, cardId);
    use->BindInt(2, static_cast<int>(side));
    use->Step();
    images_[static_cast<int>(side)].Erase(cardId);
    handles_.erase(key);
  } else {
    auto image = ImageRegistry::Instance().Get(handle);
    if (!image) Fail(kStatusBadArgument, "unknown image handle " + std::to_string(handle));
    StoreImage(cardId, side, image.get());
    handles_[key] = handle;
  }
  tx.Commit();
}

Status CSqliteCardStore::GetCardDIB(int32_t cardId, int32_t& dib) {
  dib = 0;
  return impl_->Run("GetCardDIB", cardId, [&] {
    impl_->RequireConnected();
    dib = impl_->GetImageHandle(cardId, ImageSide::kFront);
  });
}

Status CSqliteCardStore::GetBackDIB(int32_t cardId, int32_t& dib) {
  dib = 0;
  return impl_->Run("GetBackDIB", cardId, [&] {
    impl_->RequireConnected();
    dib = impl_->GetImageHandle(cardId, ImageSide::kBack);
  });
}

Status CSqliteCardStore::SetCardDIB(int32_t cardId, int32_t dib) {
  return impl_->Run("SetCardDIB", cardId, [&] {
    impl_->RequireConnected();
    impl_->SetImageFromHandle(cardId, ImageSide::kFront, dib);
  });
}

Status CSqliteCardStore::SetBackDIB(int32_t cardId, int32_t dib) {
  return impl_->Run("SetBackDIB", cardId, [&] {
    impl_->RequireConnected();
    impl_->SetImageFromHandle(cardId, ImageSide::kBack, dib);
  });
}

Status CSqliteCardStore::HasFrontImage(int32_t cardId, bool& answer) {
  answer = false;
  return impl_->Run("HasFrontImage", cardId, [&] {
    impl_->RequireConnected();
    answer = impl_->HasImage(cardId, ImageSide::kFront);
  });
}

Status CSqliteCardStore::HasBackImage(int32_t cardId, bool& answer) {
  answer = false;
  return impl_->Run("HasBackImage", cardId, [&] {
    impl_->RequireConnected();
    answer = impl_->HasImage(cardId, ImageSide::kBack);
  });
}

Status CSqliteCardStore::GetImage(int32_t cardId, ImageSide side, StoredImage& image, bool& present) {
  present = false;
  image = {};
  return impl_->Run("GetImage", cardId, [&] {
    Impl& s = *impl_;
    s.RequireConnected();
    RequireCard(s, cardId);
    StatementUse use(s.st_->selectImage);
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
