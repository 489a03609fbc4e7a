// Draws sample cards as business-card pictures with QPainter, offscreen.
// The same font metrics lay the cards out, so every ".Rectangle" value is
// where its text is on the picture. Needs a QGuiApplication.
#pragma once

#include <QFont>
#include <QFontMetrics>
#include <map>
#include <tuple>
#include <vector>

#include "cli/sample_generator.h"

namespace ombrel::cli::sample {

class CardRenderer : public TextMeasure {
 public:
  TextBox Measure(const std::string& text, const FontStyle& font) override;
  // The card as PNG bytes, kCardWidth x kCardHeight.
  std::vector<uint8_t> RenderPng(const SampleCard& card);

 private:
  struct Font {
    QFont font;
    QFontMetrics metrics;
  };
  const Font& FontFor(const FontStyle& style);
  std::map<std::tuple<int, bool, bool>, Font> fonts_;
};

}  // namespace ombrel::cli::sample
