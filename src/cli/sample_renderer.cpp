#include "cli/sample_renderer.h"

#include <QBuffer>
#include <QImage>
#include <QPainter>

namespace ombrel::cli::sample {

const CardRenderer::Font& CardRenderer::FontFor(const FontStyle& style) {
  auto key = std::make_tuple(style.pixelSize, style.bold, style.italic);
  auto it = fonts_.find(key);
  if (it == fonts_.end()) {
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(style.pixelSize);
    font.setBold(style.bold);
    font.setItalic(style.italic);
    it = fonts_.emplace(key, Font{font, QFontMetrics(font)}).first;
  }
  return it->second;
}

TextBox CardRenderer::Measure(const std::string& text, const FontStyle& style) {
  const QFontMetrics& m = FontFor(style).metrics;
  return {m.horizontalAdvance(QString::fromStdString(text)), m.height(), m.ascent()};
}

std::vector<uint8_t> CardRenderer::RenderPng(const SampleCard& card) {
  QImage image(kCardWidth, kCardHeight, QImage::Format_RGB32);
  QColor accent(QRgb(card.accent));
  image.fill(QColor(251, 250, 246));
  {
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    p.fillRect(0, 0, 14, kCardHeight, accent);
    // Logo block with the company's initials.
    QRect logo(kCardWidth - 104, 22, 68, 68);
    p.fillRect(logo, accent);
    FontStyle logoStyle{28, true, false};
    p.setFont(FontFor(logoStyle).font);
    p.setPen(Qt::white);
    p.drawText(logo, Qt::AlignCenter, QString::fromStdString(card.logo));
    p.setPen(QPen(accent.lighter(150), 1.5));
    p.drawLine(30, card.rule, kCardWidth - 30, card.rule);

    for (const DrawnText& d : card.drawn) {
      p.setFont(FontFor(d.font).font);
      // Captions (no field) are decoration in grey; field texts in ink.
      p.setPen(d.field.empty()        ? QColor(120, 120, 120)
               : d.field == "Company" ? accent.darker(120)
                                      : QColor(34, 34, 34));
      p.drawText(QPoint(d.left, d.top + d.box.ascent), QString::fromStdString(d.text));
    }
  }
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, "PNG", 40);  // quality 40: smaller than the default, still quick
  return {bytes.begin(), bytes.end()};
}

}  // namespace ombrel::cli::sample
