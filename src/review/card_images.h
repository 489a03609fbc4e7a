// The card images the review shows: where a card's image comes from, each
// image decoded once, and thumbnails scaled on demand for the size a cell
// has (kept for the few sizes in use, never a full-size copy per cell).
#pragma once

#include <QImage>
#include <QPixmap>
#include <QSize>
#include <cstdint>
#include <list>
#include <map>
#include <utility>

namespace ombrel::ui {

class CardImages {
 public:
  // The handle of a card's front (kind 1) or back (kind 2) image; 0 for none.
  // A card the store no longer has shows no image.
  int32_t Handle(int32_t cardId, int32_t imageKind);
  // The image behind a handle, decoded the first time; null for none.
  QImage Image(int32_t handle);
  // The image fitted into box (device-independent pixels), for a screen of
  // that pixel ratio; null for none.
  QPixmap Thumbnail(int32_t handle, QSize box, qreal devicePixelRatio);
  // Forgets which handle each card had (the store may hand out others).
  void ForgetHandles() { handles_.clear(); }

 private:
  static constexpr size_t kDecodedKept = 48;
  static constexpr size_t kThumbnailsKept = 96;
  std::map<std::pair<int32_t, int32_t>, int32_t> handles_;
  // Most recently used first.
  std::list<std::pair<int32_t, QImage>> decoded_;
  struct ThumbKey {
    int32_t handle;
    int w, h;
    int dpr;
    bool operator==(const ThumbKey&) const = default;
  };
  std::list<std::pair<ThumbKey, QPixmap>> thumbnails_;
};

}  // namespace ombrel::ui
