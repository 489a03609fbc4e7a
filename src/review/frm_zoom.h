// A card image enlarged in a resizable window of its own. The review keeps
// one per shown image; the rectangle of the field the user has selected is
// outlined on the scan, so the recognised text can be checked against it.
#pragma once

#include <QDialog>
#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <functional>
#include <string>

#include "review/cimage.h"

namespace ombrel::ui {

// The picture box: the image scaled to its size, the outline on top.
class ZoomPicture final : public QWidget {
 public:
  explicit ZoomPicture(CImage& image, QWidget* parent = nullptr);
  // A rectangle in image pixels; empty for none.
  void SetHighlight(const QRect& imageRect);
  QRect Highlight() const { return highlight_; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  CImage& image_;
  QRect highlight_;
};

class frmZoom final : public QDialog {
  Q_OBJECT
 public:
  explicit frmZoom(QWidget* owner = nullptr);

  // The key the review keeps this window under, and what to tell it on close.
  void SetKey(const std::string& key, std::function<void(const std::string&)> onClose);
  const std::string& Key() const { return key_; }
  void SetPicture(const QImage& picture);
  void SetHighlight(const QRect& imageRect) { picZoom->SetHighlight(imageRect); }
  void ResizePicture();
  bool HasNoImage() const { return noImage_; }
  const CImage& Image() const { return image_; }

  ZoomPicture* picZoom;
  QLabel* lblNoImage;
  QPushButton* cmdClose;
  QFrame* FrameCover;

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  // Esc closes the window as its close box does.
  void reject() override { close(); }

 private:
  CImage image_;
  std::string key_;
  std::function<void(const std::string&)> onClose_;
  bool noImage_ = true;
  bool resizing_ = false;
};

}  // namespace ombrel::ui
