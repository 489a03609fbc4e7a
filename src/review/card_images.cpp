#include "review/card_images.h"

#include <cmath>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/cmemorycardstore.h"
#include "ombrel/cardstore/image_registry.h"
#include "review/review_session.h"

namespace ombrel::ui {

int32_t CardImages::Handle(int32_t cardId, int32_t imageKind) {
  const auto key = std::make_pair(cardId, imageKind);
  if (auto it = handles_.find(key); it != handles_.end()) return it->second;
  int32_t handle = 0;
  try {
    if (auto& mgr = CardStoreMgr()) {
      handle = imageKind == kFrontImageKind ? mgr->GetCardDIB(cardId) : mgr->GetBackDIB(cardId);
      // The in-memory store never hands an image back through the contract;
      // the pictures a host gave it (the merge dialog's) are its own handles.
      if (handle == 0 && imageKind == kFrontImageKind)
        if (auto* memory = dynamic_cast<CMemoryCardStore*>(mgr->GetCardStore().get()))
          handle = memory->RememberedFrontImage(cardId);
    }
  } catch (...) {
    handle = 0;
  }
  handles_[key] = handle;
  return handle;
}

QImage CardImages::Image(int32_t handle) {
  if (handle == 0) return {};
  for (auto it = decoded_.begin(); it != decoded_.end(); ++it) {
    if (it->first != handle) continue;
    decoded_.splice(decoded_.begin(), decoded_, it);
    return decoded_.front().second;
  }
  QImage image;
  if (auto stored = ImageRegistry::Instance().Get(handle))
    image.loadFromData(stored->bytes.data(), static_cast<int>(stored->bytes.size()));
  decoded_.emplace_front(handle, image);
  if (decoded_.size() > kDecodedKept) decoded_.pop_back();
  return image;
}

QPixmap CardImages::Thumbnail(int32_t handle, QSize box, qreal devicePixelRatio) {
  if (handle == 0 || box.isEmpty()) return {};
  const ThumbKey key{handle, box.width(), box.height(), static_cast<int>(std::lround(devicePixelRatio * 100))};
  for (auto it = thumbnails_.begin(); it != thumbnails_.end(); ++it) {
    if (!(it->first == key)) continue;
    thumbnails_.splice(thumbnails_.begin(), thumbnails_, it);
    return thumbnails_.front().second;
  }
  const QImage image = Image(handle);
  if (image.isNull()) return {};
  QPixmap thumb = QPixmap::fromImage(
      image.scaled(box * devicePixelRatio, Qt::KeepAspectRatio, Qt::SmoothTransformation));
  thumb.setDevicePixelRatio(devicePixelRatio);
  thumbnails_.emplace_front(key, thumb);
  if (thumbnails_.size() > kThumbnailsKept) thumbnails_.pop_back();
  return thumb;
}

}  // namespace ombrel::ui
