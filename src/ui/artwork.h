// The product's pictures, painted in code so they stay sharp at any scale:
// the wizard's side bar (one picture per step), the window icon, the icon of
// the delete-dupes question.
#pragma once

#include <QCursor>
#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <QRect>
#include <QWidget>
#include <string>

namespace ombrel::ui {

inline constexpr int kSideBarSteps = 5;

// Paints step's picture (1..5) into rect.
void PaintSideBar(QPainter& painter, const QRectF& rect, int step);
// The same as a picture of that size in device-independent pixels.
QPixmap SideBarPicture(int step, QSize size, qreal devicePixelRatio);

QIcon AppIcon();
// A card with a question mark: the delete-dupes question's icon.
QPixmap QuestionPicture(int size, qreal devicePixelRatio);

// The review's pointers over a dupe's value: an arrow, with a plus while
// Ctrl is held (the value is then added, not copied); and the magnifier.
QCursor ArrowPointer(bool plus);
QCursor MagnifierPointer();
// The picture of the button that makes a dupe the primary card, with its
// word in the interface language ("de", "fr", "es"; English otherwise).
QPixmap SendPicture(const std::string& language, int height, qreal devicePixelRatio);
// Small button pictures.
enum class ButtonPicture { kUndo, kRedo, kMagnifier, kDelete, kPrevious, kNext };
QIcon ButtonIcon(ButtonPicture picture);

// A picture box that paints one of the side bar's pictures at its own size.
class SideBarView final : public QWidget {
 public:
  explicit SideBarView(QWidget* parent = nullptr);
  void SetStep(int step);
  int Step() const { return step_; }
  QSize sizeHint() const override { return {164, 360}; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  int step_ = 1;
};

}  // namespace ombrel::ui
