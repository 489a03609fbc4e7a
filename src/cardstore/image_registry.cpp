#include "ombrel/cardstore/image_registry.h"

namespace ombrel {

ImageRegistry& ImageRegistry::Instance() {
  static ImageRegistry registry;
  return registry;
}

int32_t ImageRegistry::Register(StoredImage image) {
  std::lock_guard lock(mutex_);
  int32_t handle = next_++;
  images_[handle] = std::make_shared<const StoredImage>(std::move(image));
  return handle;
}

std::shared_ptr<const StoredImage> ImageRegistry::Get(int32_t handle) const {
  std::lock_guard lock(mutex_);
  auto it = images_.find(handle);
  return it == images_.end() ? nullptr : it->second;
}

void ImageRegistry::Release(int32_t handle) {
  std::lock_guard lock(mutex_);
  images_.erase(handle);
}

size_t ImageRegistry::Size() const {
  std::lock_guard lock(mutex_);
  return images_.size();
}

std::string ImageRegistry::DetectFormat(const std::vector<uint8_t>& b) {
  if (b.size() >= 8 && b[0] == 0x89 && b[1] == 'P' && b[2] == 'N' && b[3] == 'G') return "png";
  if (b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF) return "jpeg";
  if (b.size() >= 2 && b[0] == 'B' && b[1] == 'M') return "bmp";
  return "";
}

}  // namespace ombrel
