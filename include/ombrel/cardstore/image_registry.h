// ImageRegistry: turns the 32-bit image handles that stores hand out back
// into images. A store that keeps real images (the SQLite card database)
// registers each image it hands out and receives, through SetCardDIB and
// SetBackDIB, handles that it resolves here. The rest of the system passes
// handles through without looking inside.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace ombrel {

struct StoredImage {
  std::string format;  // "png", "jpeg" or "bmp"
  std::vector<uint8_t> bytes;
};

class ImageRegistry {
 public:
  static ImageRegistry& Instance();

  // Registers an image and answers its new handle (always > 0).
  int32_t Register(StoredImage image);
  // The image behind a handle, or null when the handle is unknown.
  std::shared_ptr<const StoredImage> Get(int32_t handle) const;
  void Release(int32_t handle);
  size_t Size() const;

  // "png", "jpeg", "bmp" from the bytes' signature; empty when unknown.
  static std::string DetectFormat(const std::vector<uint8_t>& bytes);
  // Decodes the image through (PNG and JPEG by their libraries, BMP by its
  // headers and sizes) and answers why it cannot be shown, empty when it can;
  // format receives DetectFormat's answer. Pictures of more than 30,000
  // pixels a side or 100 million in all are refused too.
  static std::string CheckDecodes(const std::vector<uint8_t>& bytes, std::string& format);

 private:
  mutable std::mutex mutex_;
  int32_t next_ = 1;
  std::unordered_map<int32_t, std::shared_ptr<const StoredImage>> images_;
};

}  // namespace ombrel
