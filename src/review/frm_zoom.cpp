#include "review/frm_zoom.h"

#include <QCloseEvent>
#include <QPainter>
#include <QResizeEvent>

#include "ombrel/foundation/messages.h"
#include "ui/artwork.h"
#include "ui/forms.h"
#include "ui/handlers.h"
#include "ui/help.h"

namespace ombrel::ui {

namespace {
constexpr int kMarginTwips = 100;
constexpr int kMinimumTwips = 3000;
}  // namespace

ZoomPicture::ZoomPicture(CImage& image, QWidget* parent) : QWidget(parent), image_(image) {}

void ZoomPicture::SetHighlight(const QRect& imageRect) {
  highlight_ = imageRect;
  update();
}

void ZoomPicture::paintEvent(QPaintEvent*) {
  const QImage& picture = image_.Picture();
  if (picture.isNull()) return;
  QPainter p(this);
  p.setRenderHint(QPainter::SmoothPixmapTransform);
  p.drawImage(rect(), picture);
  if (highlight_.isEmpty()) return;
  const double sx = width() / static_cast<double>(picture.width());
  const double sy = height() / static_cast<double>(picture.height());
  const QRectF shown(highlight_.x() * sx, highlight_.y() * sy, highlight_.width() * sx, highlight_.height() * sy);
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(QPen(QColor(0xe0, 0x3a, 0x1e), 2.5));
  p.setBrush(QColor(0xff, 0xd2, 0x3f, 60));
  p.drawRoundedRect(shown.adjusted(-3, -3, 3, 3), 3, 3);
}

frmZoom::frmZoom(QWidget* owner) : QDialog(owner) {
  setObjectName("frmZoom");
  RegisterForm(this);
  setAttribute(Qt::WA_DeleteOnClose);
  setModal(false);
  setWindowIcon(AppIcon());
  setWindowTitle(QString::fromStdString(AppName()));
  setWindowFlag(Qt::WindowContextHelpButtonHint, false);
  setWindowFlag(Qt::WindowMinMaxButtonsHint, true);
  InstallHelpKey(this, help_context::kZoom);

  picZoom = new ZoomPicture(image_, this);
  picZoom->setObjectName("picZoom");
  image_.Initialize(picZoom);
  lblNoImage = new QLabel(QString::fromStdString(GetResString(407)), this);
  lblNoImage->setObjectName("lblNoImage");
  lblNoImage->setAccessibleName(lblNoImage->text());
  cmdClose = new QPushButton(QString::fromStdString(GetResString(906)), this);
  cmdClose->setObjectName("cmdClose");
  cmdClose->setAccessibleName(cmdClose->text().remove('&'));
  cmdClose->setDefault(true);
  FrameCover = new QFrame(this);
  FrameCover->setObjectName("FrameCover");
  FrameCover->setAutoFillBackground(true);
  FrameCover->hide();
  setMinimumSize(TwipsToPixels(kMinimumTwips), TwipsToPixels(kMinimumTwips));
  resize(TwipsToPixels(7200), TwipsToPixels(5400));
  connect(cmdClose, &QPushButton::clicked, this, [this] { Guarded([this] { close(); }); });
  SetPicture(QImage());
}

void frmZoom::SetKey(const std::string& key, std::function<void(const std::string&)> onClose) {
  key_ = key;
  onClose_ = std::move(onClose);
}

void frmZoom::SetPicture(const QImage& picture) {
  picZoom->setAccessibleName(windowTitle());
  noImage_ = picture.isNull();
  image_.SetPicture(picture);
  lblNoImage->setVisible(noImage_);
  picZoom->setVisible(!noImage_);
  ResizePicture();
}

void frmZoom::ResizePicture() {
  const int margin = TwipsToPixels(kMarginTwips);
  const QSize button = cmdClose->sizeHint();
  const int buttonTop = height() - margin - button.height();
  cmdClose->setGeometry((width() - button.width()) / 2, buttonTop, button.width(), button.height());
  const QSize label = lblNoImage->sizeHint();
  lblNoImage->setGeometry((width() - label.width()) / 2, (buttonTop - label.height()) / 2, label.width(),
                          label.height());
  const QRect area(margin, margin, width() - 2 * margin, buttonTop - 2 * margin);
  if (noImage_ || area.width() <= 0 || area.height() <= 0) return;
  const int tppX = image_.TwipsPerPixelX(), tppY = image_.TwipsPerPixelY();
  image_.Resize(area.width() * tppX, area.height() * tppY, true, true);
  // Centred in the area it was fitted into.
  picZoom->move(area.left() + (area.width() - picZoom->width()) / 2,
                area.top() + (area.height() - picZoom->height()) / 2);
}

void frmZoom::resizeEvent(QResizeEvent* event) {
  QDialog::resizeEvent(event);
  if (resizing_ || isMinimized()) return;
  resizing_ = true;
  FrameCover->setGeometry(rect());
  FrameCover->show();
  const int least = TwipsToPixels(kMinimumTwips);
  if (width() < least || height() < least) resize(std::max(width(), least), std::max(height(), least));
  ResizePicture();
  FrameCover->hide();
  resizing_ = false;
}

void frmZoom::closeEvent(QCloseEvent* event) {
  if (onClose_) {
    auto onClose = std::move(onClose_);
    Guarded([&] { onClose(key_); });
  }
  QDialog::closeEvent(event);
}

}  // namespace ombrel::ui
