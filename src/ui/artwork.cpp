#include "ui/artwork.h"

#include <QApplication>
#include <QFontMetrics>
#include <QLinearGradient>
#include <QPainterPath>
#include <QRadialGradient>
#include <cmath>

namespace ombrel::ui {

namespace {

const QColor kInk(0x33, 0x3d, 0x4a);
const QColor kLine(0xc3, 0xcb, 0xd6);
const QColor kGood(0x2e, 0x9e, 0x5b);
const QColor kMerge(0x1f, 0x8f, 0xb0);
const QColor kWarn(0xe0, 0x8a, 0x1e);

enum class Symbol { kEquals, kPlus, kBang, kCheck, kQuestion };

// A business card: white, rounded, a soft shadow, a logo square and lines
// of "text"; highlight (a line index, -1 none) is drawn in the accent colour.
void DrawCard(QPainter& p, const QRectF& r, const QColor& accent, int lines, int highlight = -1,
              qreal fill = 1.0) {
  p.save();
  const qreal radius = r.height() * 0.07;
  p.setPen(Qt::NoPen);
  for (int i = 3; i >= 1; --i) {
    p.setBrush(QColor(0, 0, 0, 18));
    p.drawRoundedRect(r.translated(i * 0.8, i * 1.2), radius, radius);
  }
  p.setBrush(Qt::white);
  p.setPen(QPen(QColor(0xd8, 0xdd, 0xe4), r.height() * 0.01));
  p.drawRoundedRect(r, radius, radius);
  const qreal m = r.height() * 0.12;
  const QRectF logo(r.left() + m, r.top() + m, r.height() * 0.22, r.height() * 0.22);
  p.setPen(Qt::NoPen);
  p.setBrush(accent);
  p.drawRoundedRect(logo, logo.width() * 0.2, logo.width() * 0.2);
  // The name line beside the logo, then the lines below.
  const qreal lineH = r.height() * 0.07;
  p.setBrush(kInk);
  p.drawRoundedRect(QRectF(logo.right() + m * 0.6, logo.top() + logo.height() * 0.15,
                           (r.width() - logo.width() - 3 * m) * 0.8, lineH * 1.2),
                    lineH * 0.6, lineH * 0.6);
  static const qreal lengths[] = {0.55, 0.75, 0.45, 0.65, 0.5, 0.7};
  const qreal top = logo.bottom() + m * 0.9;
  const qreal step = (r.bottom() - m * 0.8 - top) / std::max(lines, 1);
  for (int i = 0; i < lines; ++i) {
    const bool lit = i == highlight;
    if (i >= std::ceil(lines * fill)) break;
    p.setBrush(lit ? accent : kLine);
    const qreal w = (r.width() - 2 * m) * lengths[i % 6];
    p.drawRoundedRect(QRectF(r.left() + m, top + i * step, w, lineH), lineH / 2, lineH / 2);
  }
  p.restore();
}

void DrawBadge(QPainter& p, const QPointF& c, qreal radius, const QColor& color, Symbol symbol) {
  p.save();
  p.setPen(Qt::NoPen);
  p.setBrush(QColor(0, 0, 0, 40));
  p.drawEllipse(c + QPointF(radius * 0.06, radius * 0.1), radius, radius);
  QRadialGradient g(c - QPointF(radius * 0.3, radius * 0.3), radius * 1.6);
  g.setColorAt(0, color.lighter(125));
  g.setColorAt(1, color);
  p.setBrush(g);
  p.setPen(QPen(Qt::white, radius * 0.12));
  p.drawEllipse(c, radius, radius);
  QPen pen(Qt::white, radius * 0.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
  p.setPen(pen);
  p.setBrush(Qt::NoBrush);
  const qreal s = radius * 0.45;
  switch (symbol) {
    case Symbol::kEquals:
      p.drawLine(QPointF(c.x() - s, c.y() - s * 0.4), QPointF(c.x() + s, c.y() - s * 0.4));
      p.drawLine(QPointF(c.x() - s, c.y() + s * 0.4), QPointF(c.x() + s, c.y() + s * 0.4));
      break;
    case Symbol::kPlus:
      p.drawLine(QPointF(c.x() - s, c.y()), QPointF(c.x() + s, c.y()));
      p.drawLine(QPointF(c.x(), c.y() - s), QPointF(c.x(), c.y() + s));
      break;
    case Symbol::kBang:
      p.drawLine(QPointF(c.x(), c.y() - s * 1.1), QPointF(c.x(), c.y() + s * 0.25));
      p.drawPoint(QPointF(c.x(), c.y() + s * 0.95));
      break;
    case Symbol::kCheck: {
      QPainterPath path;
      path.moveTo(c.x() - s, c.y());
      path.lineTo(c.x() - s * 0.25, c.y() + s * 0.7);
      path.lineTo(c.x() + s * 1.05, c.y() - s * 0.7);
      p.drawPath(path);
      break;
    }
    case Symbol::kQuestion: {
      QPainterPath path;
      path.moveTo(c.x() - s * 0.6, c.y() - s * 0.5);
      path.cubicTo(c.x() - s * 0.6, c.y() - s * 1.3, c.x() + s * 0.8, c.y() - s * 1.3, c.x() + s * 0.6, c.y() - s * 0.4);
      path.cubicTo(c.x() + s * 0.45, c.y() + s * 0.05, c.x(), c.y() - s * 0.05, c.x(), c.y() + s * 0.35);
      p.drawPath(path);
      p.drawPoint(QPointF(c.x(), c.y() + s * 1.0));
      break;
    }
  }
  p.restore();
}

void DrawMagnifier(QPainter& p, const QPointF& c, qreal radius) {
  p.save();
  QPen handle(QColor(0x5b, 0x3a, 0x1e), radius * 0.38, Qt::SolidLine, Qt::RoundCap);
  p.setPen(handle);
  const QPointF dir(std::cos(M_PI / 4), std::sin(M_PI / 4));
  p.drawLine(c + dir * radius * 1.05, c + dir * radius * 2.1);
  p.setPen(QPen(QColor(0xe9, 0xee, 0xf3), radius * 0.22));
  QRadialGradient glass(c - QPointF(radius * 0.35, radius * 0.35), radius * 1.3);
  glass.setColorAt(0, QColor(255, 255, 255, 170));
  glass.setColorAt(1, QColor(180, 220, 255, 90));
  p.setBrush(glass);
  p.drawEllipse(c, radius, radius);
  p.restore();
}

// A card of width w centred at c, turned by angle degrees.
void DrawCardAt(QPainter& p, const QPointF& c, qreal w, qreal angle, const QColor& accent, int lines,
                int highlight = -1, qreal fill = 1.0) {
  p.save();
  p.translate(c);
  p.rotate(angle);
  const qreal h = w * 0.6;
  DrawCard(p, QRectF(-w / 2, -h / 2, w, h), accent, lines, highlight, fill);
  p.restore();
}

void DrawArrowDown(QPainter& p, const QPointF& from, const QPointF& to, qreal width) {
  p.save();
  p.setPen(QPen(QColor(255, 255, 255, 220), width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  p.drawLine(from, to);
  p.drawLine(to, to + QPointF(-width * 1.6, -width * 1.6));
  p.drawLine(to, to + QPointF(width * 1.6, -width * 1.6));
  p.restore();
}

}  // namespace

void PaintSideBar(QPainter& p, const QRectF& r, int step) {
  p.save();
  p.setRenderHint(QPainter::Antialiasing);
  p.setClipRect(r);
  QLinearGradient bg(r.topLeft(), r.bottomRight());
  bg.setColorAt(0, QColor(0x1b, 0x3a, 0x5c));
  bg.setColorAt(1, QColor(0x23, 0x7a, 0x86));
  p.fillRect(r, bg);
  // Soft light bands give the panel some depth.
  p.setPen(Qt::NoPen);
  for (int i = 0; i < 4; ++i) {
    p.setBrush(QColor(255, 255, 255, 10 + 4 * i));
    QPainterPath band;
    const qreal y = r.top() + r.height() * (0.15 + 0.22 * i);
    band.moveTo(r.left(), y);
    band.cubicTo(r.left() + r.width() * 0.4, y - r.width() * 0.3, r.left() + r.width() * 0.7, y + r.width() * 0.3,
                 r.right(), y - r.width() * 0.1);
    band.lineTo(r.right(), y + r.width() * 0.05);
    band.cubicTo(r.left() + r.width() * 0.7, y + r.width() * 0.42, r.left() + r.width() * 0.4, y - r.width() * 0.18,
                 r.left(), y + r.width() * 0.12);
    band.closeSubpath();
    p.drawPath(band);
  }

  const qreal w = r.width() * 0.62;
  const QPointF c(r.center().x(), r.top() + std::min(r.height() * 0.36, r.width() * 1.25));
  const QColor blue(0x2f, 0x6f, 0xc0);
  switch (step) {
    case 1:
      DrawCardAt(p, c + QPointF(-w * 0.12, -w * 0.18), w, -14, QColor(0x8e, 0x5b, 0xc8), 4);
      DrawCardAt(p, c + QPointF(w * 0.1, -w * 0.05), w, 9, kMerge, 4);
      DrawCardAt(p, c + QPointF(0, w * 0.12), w, -2, blue, 4);
      DrawMagnifier(p, c + QPointF(w * 0.28, w * 0.3), w * 0.2);
      break;
    case 2:
      DrawCardAt(p, c + QPointF(-w * 0.08, -w * 0.12), w, -6, blue, 4);
      DrawCardAt(p, c + QPointF(w * 0.08, w * 0.1), w, 4, blue, 4);
      DrawBadge(p, c + QPointF(w * 0.42, w * 0.36), w * 0.17, kGood, Symbol::kEquals);
      break;
    case 3:
      DrawCardAt(p, c + QPointF(-w * 0.3, -w * 0.32), w * 0.62, -6, kMerge, 4, -1, 0.5);
      DrawCardAt(p, c + QPointF(w * 0.3, -w * 0.32), w * 0.62, 6, kMerge, 4, 3);
      DrawArrowDown(p, c + QPointF(0, -w * 0.12), c + QPointF(0, w * 0.08), w * 0.05);
      DrawCardAt(p, c + QPointF(0, w * 0.36), w, 0, kMerge, 4, 3);
      DrawBadge(p, c + QPointF(w * 0.44, w * 0.58), w * 0.15, kMerge, Symbol::kPlus);
      break;
    case 4:
      DrawCardAt(p, c + QPointF(-w * 0.1, -w * 0.14), w, -8, blue, 4, 1);
      DrawCardAt(p, c + QPointF(w * 0.1, w * 0.1), w, 5, kWarn, 4, 2);
      DrawBadge(p, c + QPointF(w * 0.42, w * 0.38), w * 0.17, kWarn, Symbol::kBang);
      break;
    default:
      DrawCardAt(p, c, w * 1.05, -3, kGood, 4);
      DrawBadge(p, c + QPointF(w * 0.44, w * 0.3), w * 0.19, kGood, Symbol::kCheck);
      break;
  }

  // Where the user is: one dot per step, the current one lit.
  const qreal dot = std::max<qreal>(3.0, r.width() * 0.025);
  const qreal gap = dot * 4.2;
  const QPointF first(r.center().x() - gap * (kSideBarSteps - 1) / 2.0, r.bottom() - dot * 7);
  for (int i = 1; i <= kSideBarSteps; ++i) {
    p.setBrush(i == step ? QColor(255, 255, 255) : QColor(255, 255, 255, 80));
    const qreal radius = i == step ? dot * 1.35 : dot;
    p.drawEllipse(first + QPointF(gap * (i - 1), 0), radius, radius);
  }
  p.restore();
}

QPixmap SideBarPicture(int step, QSize size, qreal devicePixelRatio) {
  QPixmap pixmap(size * devicePixelRatio);
  pixmap.setDevicePixelRatio(devicePixelRatio);
  pixmap.fill(Qt::transparent);
  QPainter p(&pixmap);
  PaintSideBar(p, QRectF(QPointF(0, 0), QSizeF(size)), step);
  return pixmap;
}

QIcon AppIcon() {
  QIcon icon;
  for (int size : {16, 24, 32, 48, 64, 128, 256}) {
    QPixmap pm(size, size);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    const qreal w = size * 0.78;
    const QPointF c(size * 0.5, size * 0.5);
    DrawCardAt(p, c + QPointF(-size * 0.06, -size * 0.1), w, -10, QColor(0x2f, 0x6f, 0xc0), size >= 32 ? 3 : 1);
    DrawCardAt(p, c + QPointF(size * 0.06, size * 0.1), w, 6, kMerge, size >= 32 ? 3 : 1);
    if (size >= 24) DrawBadge(p, QPointF(size * 0.76, size * 0.74), size * 0.16, kGood, Symbol::kEquals);
    p.end();
    icon.addPixmap(pm);
  }
  return icon;
}

QPixmap QuestionPicture(int size, qreal devicePixelRatio) {
  QPixmap pm(QSize(size, size) * devicePixelRatio);
  pm.setDevicePixelRatio(devicePixelRatio);
  pm.fill(Qt::transparent);
  QPainter p(&pm);
  p.setRenderHint(QPainter::Antialiasing);
  DrawCardAt(p, QPointF(size * 0.42, size * 0.45), size * 0.78, -6, QColor(0x2f, 0x6f, 0xc0), 3);
  DrawBadge(p, QPointF(size * 0.7, size * 0.68), size * 0.24, kMerge, Symbol::kQuestion);
  return pm;
}

namespace {

QPixmap Canvas(int w, int h, qreal dpr) {
  QPixmap pm(QSize(w, h) * dpr);
  pm.setDevicePixelRatio(dpr);
  pm.fill(Qt::transparent);
  return pm;
}

void DrawPointerArrow(QPainter& p) {
  QPainterPath arrow;
  arrow.moveTo(1, 1);
  arrow.lineTo(1, 17);
  arrow.lineTo(5, 13);
  arrow.lineTo(8, 20);
  arrow.lineTo(11, 19);
  arrow.lineTo(8, 12);
  arrow.lineTo(13, 12);
  arrow.closeSubpath();
  p.setPen(QPen(Qt::white, 1.2));
  p.setBrush(Qt::black);
  p.drawPath(arrow);
}

}  // namespace

QCursor ArrowPointer(bool plus) {
  QPixmap pm = Canvas(32, 32, 1.0);
  QPainter p(&pm);
  p.setRenderHint(QPainter::Antialiasing);
  DrawPointerArrow(p);
  // A small card: the value goes into the primary card.
  p.setPen(QPen(QColor(0x33, 0x3d, 0x4a), 1));
  p.setBrush(Qt::white);
  p.drawRoundedRect(QRectF(14.5, 17.5, 13, 9), 1.5, 1.5);
  p.drawLine(QPointF(17, 21), QPointF(25, 21));
  p.drawLine(QPointF(17, 23.5), QPointF(23, 23.5));
  if (plus) {
    p.setPen(Qt::NoPen);
    p.setBrush(kGood);
    p.drawEllipse(QPointF(26, 14), 5.5, 5.5);
    p.setPen(QPen(Qt::white, 2, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(QPointF(23.5, 14), QPointF(28.5, 14));
    p.drawLine(QPointF(26, 11.5), QPointF(26, 16.5));
  }
  p.end();
  return QCursor(pm, 1, 1);
}

QCursor MagnifierPointer() {
  QPixmap pm = Canvas(32, 32, 1.0);
  QPainter p(&pm);
  p.setRenderHint(QPainter::Antialiasing);
  DrawMagnifier(p, QPointF(11, 11), 8);
  p.setPen(QPen(QColor(0x33, 0x3d, 0x4a), 1.5));
  p.setBrush(Qt::NoBrush);
  p.drawEllipse(QPointF(11, 11), 8, 8);
  p.setPen(QPen(QColor(0x33, 0x3d, 0x4a), 1.6, Qt::SolidLine, Qt::RoundCap));
  p.drawLine(QPointF(7, 11), QPointF(15, 11));
  p.drawLine(QPointF(11, 7), QPointF(11, 15));
  p.end();
  return QCursor(pm, 11, 11);
}

QPixmap SendPicture(const std::string& language, int height, qreal dpr) {
  QString word = "Use";
  if (language == "de") word = "Verwenden";
  else if (language == "fr") word = "Utiliser";
  else if (language == "es") word = "Usar";
  // The word as large as the other buttons' captions.
  QFont font = QApplication::font();
  font.setBold(true);
  const QFontMetrics metrics(font);
  const int arrow = height;
  const int width = arrow + metrics.horizontalAdvance(word) + height / 3;
  QPixmap pm = Canvas(width, height, dpr);
  QPainter p(&pm);
  p.setRenderHint(QPainter::Antialiasing);
  // An arrow to the left: this card's data goes over to the primary card.
  const qreal h = height;
  QPainterPath path;
  path.moveTo(h * 0.08, h * 0.5);
  path.lineTo(h * 0.5, h * 0.12);
  path.lineTo(h * 0.5, h * 0.34);
  path.lineTo(h * 0.92, h * 0.34);
  path.lineTo(h * 0.92, h * 0.66);
  path.lineTo(h * 0.5, h * 0.66);
  path.lineTo(h * 0.5, h * 0.88);
  path.closeSubpath();
  QLinearGradient g(0, 0, 0, h);
  g.setColorAt(0, kMerge.lighter(120));
  g.setColorAt(1, kMerge.darker(110));
  p.setPen(Qt::NoPen);
  p.setBrush(g);
  p.drawPath(path);
  p.setFont(font);
  p.setPen(QColor(0x1d, 0x3a, 0x55));
  p.drawText(QRect(arrow + height / 6, 0, width - arrow - height / 6, height), Qt::AlignVCenter | Qt::AlignLeft,
             word);
  return pm;
}

QIcon ButtonIcon(ButtonPicture picture) {
  QIcon icon;
  for (int size : {16, 24, 32, 48}) {
    QPixmap pm = Canvas(size, size, 1.0);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    const qreal s = size;
    QPen pen(QColor(0x2b, 0x4e, 0x72), s * 0.12, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    switch (picture) {
      case ButtonPicture::kUndo:
      case ButtonPicture::kRedo: {
        p.save();
        if (picture == ButtonPicture::kRedo) {
          p.translate(s, 0);
          p.scale(-1, 1);
        }
        QPainterPath path;
        path.moveTo(s * 0.3, s * 0.38);
        path.lineTo(s * 0.62, s * 0.38);
        path.cubicTo(s * 0.95, s * 0.38, s * 0.95, s * 0.82, s * 0.62, s * 0.82);
        path.lineTo(s * 0.4, s * 0.82);
        p.drawPath(path);
        p.drawLine(QPointF(s * 0.3, s * 0.38), QPointF(s * 0.46, s * 0.22));
        p.drawLine(QPointF(s * 0.3, s * 0.38), QPointF(s * 0.46, s * 0.54));
        p.restore();
        break;
      }
      case ButtonPicture::kMagnifier:
        DrawMagnifier(p, QPointF(s * 0.4, s * 0.4), s * 0.26);
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(QColor(0x2b, 0x4e, 0x72), s * 0.08));
        p.drawEllipse(QPointF(s * 0.4, s * 0.4), s * 0.26, s * 0.26);
        break;
      case ButtonPicture::kDelete: {
        p.setPen(QPen(QColor(0xb0, 0x3a, 0x2e), s * 0.09, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawLine(QPointF(s * 0.2, s * 0.26), QPointF(s * 0.8, s * 0.26));
        p.drawLine(QPointF(s * 0.4, s * 0.26), QPointF(s * 0.44, s * 0.14));
        p.drawLine(QPointF(s * 0.44, s * 0.14), QPointF(s * 0.56, s * 0.14));
        p.drawLine(QPointF(s * 0.56, s * 0.14), QPointF(s * 0.6, s * 0.26));
        QPainterPath bin;
        bin.moveTo(s * 0.27, s * 0.32);
        bin.lineTo(s * 0.32, s * 0.86);
        bin.lineTo(s * 0.68, s * 0.86);
        bin.lineTo(s * 0.73, s * 0.32);
        p.drawPath(bin);
        p.drawLine(QPointF(s * 0.43, s * 0.42), QPointF(s * 0.44, s * 0.76));
        p.drawLine(QPointF(s * 0.57, s * 0.42), QPointF(s * 0.56, s * 0.76));
        break;
      }
      case ButtonPicture::kPrevious:
      case ButtonPicture::kNext: {
        const qreal dir = picture == ButtonPicture::kNext ? 1 : -1;
        const qreal cx = s * 0.5;
        p.drawLine(QPointF(cx - dir * s * 0.12, s * 0.22), QPointF(cx + dir * s * 0.16, s * 0.5));
        p.drawLine(QPointF(cx + dir * s * 0.16, s * 0.5), QPointF(cx - dir * s * 0.12, s * 0.78));
        break;
      }
    }
    p.end();
    icon.addPixmap(pm);
  }
  return icon;
}

SideBarView::SideBarView(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_OpaquePaintEvent);
  setMinimumWidth(120);
}

void SideBarView::SetStep(int step) {
  if (step == step_) return;
  step_ = step;
  update();
}

void SideBarView::paintEvent(QPaintEvent*) {
  QPainter p(this);
  PaintSideBar(p, QRectF(rect()), step_);
}

}  // namespace ombrel::ui
