#include "ombrel/foundation/crectangle.h"

#include <algorithm>
#include <limits>

#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

void CRectangle::Initialize(int32_t top, int32_t left, int32_t width, int32_t height) {
  if (width < 0 || height < 0)
    RaiseTrap("Rectangles cannot have negative dimensions:" + std::to_string(width) + ", " + std::to_string(height));
  top_ = top;
  left_ = left;
  width_ = width;
  height_ = height;
}

void CRectangle::SetCorners(int32_t left, int32_t top, int32_t right, int32_t bottom) {
  Initialize(top, left, CheckedSub(right, left), CheckedSub(bottom, top));
}

bool CRectangle::Equals(const CRectangle& other) const {
  return top_ == other.top_ && left_ == other.left_ && width_ == other.width_ && height_ == other.height_;
}

std::string CRectangle::ToStr() const {
  return "T:" + std::to_string(top_) + ",L:" + std::to_string(left_) + ",W:" + std::to_string(width_) +
         ",H:" + std::to_string(height_);
}

void CRectangle::ParseStr(const std::string& text) {
  try {
    CString s(text);
    int32_t top = s.GetRightFrom("T:").GetLeftFrom(",").ToLong();
    int32_t left = s.GetRightFrom("L:").GetLeftFrom(",").ToLong();
    int32_t width = s.GetRightFrom("W:").GetLeftFrom(",").ToLong();
    int32_t height = s.GetRightFrom("H:").ToLong();
    Initialize(top, left, width, height);
  } catch (const Error&) {
    RaiseTrap("Cannot initialize rectangle by parsing the string: " + text);
  }
}

void CRectangle::Copy(const CRectangle& other) { *this = other; }

int32_t CRectangle::GetRight() const { return CheckedAdd(left_, width_); }
int32_t CRectangle::GetBottom() const { return CheckedAdd(top_, height_); }

int32_t CRectangle::GetArea() const {
  int64_t area = static_cast<int64_t>(width_) * height_;
  if (area > std::numeric_limits<int32_t>::max()) RaiseOverflow();
  return static_cast<int32_t>(area);
}

CRectangle CRectangle::GetIntersection(const CRectangle& other) const {
  int64_t left = std::max<int64_t>(left_, other.left_);
  int64_t top = std::max<int64_t>(top_, other.top_);
  int64_t right = std::min<int64_t>(static_cast<int64_t>(left_) + width_, static_cast<int64_t>(other.left_) + other.width_);
  int64_t bottom = std::min<int64_t>(static_cast<int64_t>(top_) + height_, static_cast<int64_t>(other.top_) + other.height_);
  if (right <= left || bottom <= top) {
    // No overlap: an empty rectangle at the would-be corner.
    return CRectangle(static_cast<int32_t>(top), static_cast<int32_t>(left), 0, 0);
  }
  return CRectangle(static_cast<int32_t>(top), static_cast<int32_t>(left), static_cast<int32_t>(right - left),
                    static_cast<int32_t>(bottom - top));
}

bool CRectangle::Contains(const CRectangle& other) const {
  int64_t r = static_cast<int64_t>(left_) + width_, b = static_cast<int64_t>(top_) + height_;
  int64_t orr = static_cast<int64_t>(other.left_) + other.width_, ob = static_cast<int64_t>(other.top_) + other.height_;
  return other.left_ >= left_ && other.top_ >= top_ && orr <= r && ob <= b;
}

}  // namespace ombrel
