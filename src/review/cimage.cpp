#include "review/cimage.h"

#include "ombrel/cardstore/image_registry.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"

namespace ombrel {

namespace {
constexpr int kInvalidPictureErrorNumber = 481;
}  // namespace

void CImage::Initialize(QWidget* pixBox) {
  box_ = pixBox;
  if (box_) {
    controlWidth_ = box_->width() * TwipsPerPixelX();
    controlHeight_ = box_->height() * TwipsPerPixelY();
  }
}

void CImage::SetPicture(const QImage& picture) {
  picture_ = picture;
  width_ = picture.isNull() ? 0 : picture.width();
  height_ = picture.isNull() ? 0 : picture.height();
  if (box_) box_->update();
}

void CImage::LoadFile(const QString& fileName) {
  QImage image;
  // The runtime's own error for a file that holds no picture.
  if (!image.load(fileName)) throw Error(kInvalidPictureErrorNumber, "CImage", "Invalid picture: " + fileName.toStdString());
  SetPicture(image);
}

void CImage::SetDIB(int32_t dib) {
  QImage image;
  if (auto stored = ImageRegistry::Instance().Get(dib))
    image.loadFromData(stored->bytes.data(), static_cast<int>(stored->bytes.size()));
  SetPicture(image);
}

int32_t CImage::TwipsPerPixelX() const {
  const int dpi = box_ ? box_->logicalDpiX() : 96;
  return dpi > 0 ? RoundHalfEven(1440.0 / dpi) : 15;
}

int32_t CImage::TwipsPerPixelY() const {
  const int dpi = box_ ? box_->logicalDpiY() : 96;
  return dpi > 0 ? RoundHalfEven(1440.0 / dpi) : 15;
}

int32_t CImage::TwipsToPixelsX(int32_t x) const { return RoundHalfEven(x * width_ / controlWidth_); }
int32_t CImage::TwipsToPixelsY(int32_t y) const { return RoundHalfEven(y * height_ / controlHeight_); }

// A whole number of screen pixels: the remainder goes to the nearer one, an
// exact half down.
int32_t CImage::ToScreenPixels(int32_t t, int32_t p) {
  const int32_t r = t % p;
  if (r == 0) return t;
  return 2 * r > p ? t - r + p : t - r;
}

int32_t CImage::PixelsToTwipsX(int32_t x) const {
  return ToScreenPixels(RoundHalfEven(x * static_cast<double>(controlWidth_) / width_), TwipsPerPixelX());
}

int32_t CImage::PixelsToTwipsY(int32_t y) const {
  return ToScreenPixels(RoundHalfEven(y * static_cast<double>(controlHeight_) / height_), TwipsPerPixelY());
}

void CImage::Resize(int32_t width, int32_t height, bool keepAspectRatio, bool favorReduce) {
  if (keepAspectRatio && height_ != 0) {
    const double a = width_ / height_;
    const double b = static_cast<double>(width) / height;
    if (b > a) {
      if (favorReduce) width = static_cast<int32_t>(height * a + 0.5);
      else height = static_cast<int32_t>(width / a + 0.5);
    } else {
      if (favorReduce) height = static_cast<int32_t>(width / a + 0.5);
      else width = static_cast<int32_t>(height * a + 0.5);
    }
  }
  controlWidth_ = width;
  controlHeight_ = height;
  if (box_) {
    box_->resize(width / TwipsPerPixelX(), height / TwipsPerPixelY());
    box_->update();
  }
}

}  // namespace ombrel
