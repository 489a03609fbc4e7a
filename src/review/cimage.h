// CImage: one card image shown in a picture control, and the conversions
// between the control's coordinates (twips) and the image's own pixels (the
// unit of a field's rectangle on the scan).
#pragma once

#include <QImage>
#include <QString>
#include <QWidget>
#include <cstdint>

namespace ombrel {

class CImage {
 public:
  // The control the picture is shown in; its size, in twips, is what the
  // conversions scale by.
  void Initialize(QWidget* pixBox);
  // The picture (a null image for none); its size is the image's in pixels.
  void SetPicture(const QImage& picture);
  void LoadFile(const QString& fileName);
  // An image a card store handed out, by its handle (0 or unknown: none).
  void SetDIB(int32_t dib);

  int32_t TwipsToPixelsX(int32_t x) const;
  int32_t TwipsToPixelsY(int32_t y) const;
  int32_t PixelsToTwipsX(int32_t x) const;
  int32_t PixelsToTwipsY(int32_t y) const;
  // Sizes the control (twips): with keepAspectRatio the image's shape is
  // kept, fitting inside the box with favorReduce, covering it without.
  void Resize(int32_t width, int32_t height, bool keepAspectRatio, bool favorReduce);

  const QImage& Picture() const { return picture_; }
  double ImageWidth() const { return width_; }
  double ImageHeight() const { return height_; }
  int32_t ControlWidth() const { return controlWidth_; }  // twips
  int32_t ControlHeight() const { return controlHeight_; }
  // Twips per screen pixel, from the screen's logical resolution.
  int32_t TwipsPerPixelX() const;
  int32_t TwipsPerPixelY() const;

 private:
  static int32_t ToScreenPixels(int32_t twips, int32_t twipsPerPixel);
  QWidget* box_ = nullptr;
  QImage picture_;
  double width_ = 0;
  double height_ = 0;
  int32_t controlWidth_ = 0;
  int32_t controlHeight_ = 0;
};

}  // namespace ombrel
