// CRectangle: where a field's text lies on the scanned card image: top,
// left, width and height as signed 32-bit numbers, width and height never
// negative. Its one-line text form is "T:10,L:20,W:300,H:40", and ParseStr
// reads exactly that form back.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ombrel/foundation/object.h"

namespace ombrel {

class CRectangle final : public CObject {
 public:
  CRectangle() = default;
  CRectangle(int32_t top, int32_t left, int32_t width, int32_t height) { Initialize(top, left, width, height); }

  std::string_view ClassName() const override { return "CRectangle"; }

  void Initialize(int32_t top, int32_t left, int32_t width, int32_t height);
  void SetCorners(int32_t left, int32_t top, int32_t right, int32_t bottom);
  bool Equals(const CRectangle& other) const;
  std::string ToStr() const override;
  void ParseStr(const std::string& text);
  void Copy(const CRectangle& other);
  std::shared_ptr<CRectangle> Clone() const { return std::make_shared<CRectangle>(*this); }
  int32_t GetTop() const { return top_; }
  int32_t GetLeft() const { return left_; }
  int32_t GetRight() const;
  int32_t GetBottom() const;
  int32_t GetWidth() const { return width_; }
  int32_t GetHeight() const { return height_; }
  int32_t GetArea() const;
  CRectangle GetIntersection(const CRectangle& other) const;
  bool Contains(const CRectangle& other) const;

 private:
  int32_t top_ = 0;
  int32_t left_ = 0;
  int32_t width_ = 0;
  int32_t height_ = 0;
};

}  // namespace ombrel
