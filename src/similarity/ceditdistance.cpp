#include "ombrel/similarity/ceditdistance.h"

#include <algorithm>
#include <vector>

#include "foundation/utf8.h"
#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

namespace {
int32_t CountLetter(const std::string& ops, char letter) {
  return static_cast<int32_t>(std::count(ops.begin(), ops.end(), letter));
}
}  // namespace

void CEditDistance::Initialize(int32_t numEdit, int32_t numModify, int32_t numInsert, int32_t numDelete,
                               std::shared_ptr<CString> operations) {
  numEdit_ = numEdit;
  numModify_ = numModify;
  numInsert_ = numInsert;
  numDelete_ = numDelete;
  operations_ = std::move(operations);
  Check();
}

std::shared_ptr<CEditDistance> CEditDistance::Clone() const {
  auto copy = std::make_shared<CEditDistance>();
  copy->Initialize(numEdit_, numModify_, numInsert_, numDelete_, operations_);
  return copy;
}

bool CEditDistance::Equals(const CEditDistance& other) const {
  return numEdit_ == other.numEdit_ && numModify_ == other.numModify_ && numInsert_ == other.numInsert_ &&
         numDelete_ == other.numDelete_;
}

void CEditDistance::Check() const {
  int64_t sum = static_cast<int64_t>(numModify_) + numInsert_ + numDelete_;
  if (numEdit_ != sum) RaiseTrap("CEditDistance check failed: Edits <> Modify + Insert + Delete\r\n" + ToStr());
  if (!operations_) return;
  const std::string& ops = operations_->Value();
  Trap(CountLetter(ops, 'M') != numModify_, "CEditDistance check failed: numModify does not agree with operations string");
  Trap(CountLetter(ops, 'I') != numInsert_, "CEditDistance check failed: numInsert does not agree with operations string");
  Trap(CountLetter(ops, 'D') != numDelete_, "CEditDistance check failed: numDelete does not agree with operations string");
}

std::string CEditDistance::ToStr() const {
  return "E:" + std::to_string(numEdit_) + ", M:" + std::to_string(numModify_) + ", I:" + std::to_string(numInsert_) +
         ", D:" + std::to_string(numDelete_);
}

void CEditDistance::ParseStr(const CString& text) {
  try {
    numEdit_ = text.GetRightFrom("E:").GetLeftFrom(",").ToLong();
    numModify_ = text.GetRightFrom("M:").GetLeftFrom(",").ToLong();
    numInsert_ = text.GetRightFrom("I:").GetLeftFrom(",").ToLong();
    numDelete_ = text.GetRightFrom("D:").ToLong();
    Check();
  } catch (const Error& e) {
    RaiseTrap("Cannot initialize CEditDistance by parsing the string: " + text.Value() + "\r\n" + e.Description());
  }
}

void CEditDistance::Combine(const CEditDistance& other, int32_t (*op)(int32_t, int32_t)) {
  // Every sum is checked before any count changes, so an overflow leaves this object as it was.
  other.Check();
  int32_t e = op(numEdit_, other.numEdit_);
  int32_t m = op(numModify_, other.numModify_);
  int32_t i = op(numInsert_, other.numInsert_);
  int32_t d = op(numDelete_, other.numDelete_);
  numEdit_ = e, numModify_ = m, numInsert_ = i, numDelete_ = d;
  operations_.reset();
}

void CEditDistance::Add(const CEditDistance& other) { Combine(other, CheckedAdd); }
void CEditDistance::Subtract(const CEditDistance& other) { Combine(other, CheckedSub); }

std::shared_ptr<CString> CEditDistance::GetOperations() const {
  Trap(!operations_, "Edit operations have not been calculated");
  return operations_;
}

template <class Equal>
void CEditDistance::Compute(int32_t n, int32_t m, Equal equal) {
  numEdit_ = numModify_ = numInsert_ = numDelete_ = 0;
  operations_ = std::make_shared<CString>();
  if (n == 0) {
    numInsert_ = numEdit_ = m;
    operations_->SetValue(std::string(m, 'I'));
    return;
  }
  if (m == 0) {
    numDelete_ = numEdit_ = n;
    operations_->SetValue(std::string(n, 'D'));
    return;
  }
  const size_t w = static_cast<size_t>(m) + 1;
  std::vector<int32_t> d((static_cast<size_t>(n) + 1) * w);
  auto at = [&](int32_t i, int32_t j) -> int32_t& { return d[static_cast<size_t>(i) * w + j]; };
  for (int32_t j = 0; j <= m; ++j) at(0, j) = j;
  for (int32_t i = 1; i <= n; ++i) {
    at(i, 0) = at(i - 1, 0) + 1;
    for (int32_t j = 1; j <= m; ++j) {
      int32_t diag = at(i - 1, j - 1) + (equal(i, j) ? 0 : 1);
      int32_t up = at(i - 1, j) + 1;
      int32_t left = at(i, j - 1) + 1;
      at(i, j) = std::min({diag, up, left});
    }
  }
  numEdit_ = at(n, m);

  // Trace back, collecting letters in reverse; the string reads forward once reversed.
  std::string ops;
  ops.reserve(static_cast<size_t>(std::max(n, m)) + 1);
  int32_t i = n, j = m;
  int32_t current = numEdit_;
  while (i >= 1 && j >= 1) {
    int32_t a = at(i - 1, j - 1), b = at(i - 1, j), c = at(i, j - 1);
    int32_t v = std::min({a, b, c});
    if (v == a) {
      ops.push_back(v == current ? '.' : 'M');
      --i, --j;
    } else if (v == b) {
      ++numDelete_;
      ops.push_back('D');
      --i;
    } else {
      ++numInsert_;
      ops.push_back('I');
      --j;
    }
    current = v;
  }
  if (j == 0 && i >= 1) {
    numDelete_ += i;
    ops.append(static_cast<size_t>(i), 'D');
  }
  if (i == 0 && j >= 1) {
    numInsert_ += j;
    ops.append(static_cast<size_t>(j), 'I');
  }
  std::reverse(ops.begin(), ops.end());
  operations_->SetValue(std::move(ops));
  numModify_ = numEdit_ - numDelete_ - numInsert_;
  Check();
}

void CEditDistance::CalculateStr(const std::string& s1, const std::string& s2) {
  std::u32string a = utf8::Decode(s1), b = utf8::Decode(s2);
  Compute(static_cast<int32_t>(a.size()), static_cast<int32_t>(b.size()),
          [&](int32_t i, int32_t j) { return a[i - 1] == b[j - 1]; });
}

void CEditDistance::Calculate(const CList& list1, const CList& list2) {
  int32_t n = list1.GetNumItems(), m = list2.GetNumItems();
  Trap(n < 0 || m < 0, "Given lists cannot have negative length!");
  // Copy the items out once: the comparison touches every pair.
  std::vector<ObjectRef> a, b;
  a.reserve(n), b.reserve(m);
  for (int32_t i = 1; i <= n; ++i) a.push_back(list1.GetItem(i));
  for (int32_t j = 1; j <= m; ++j) b.push_back(list2.GetItem(j));
  Compute(n, m, [&](int32_t i, int32_t j) {
    auto s1 = std::dynamic_pointer_cast<CString>(a[i - 1]);
    auto s2 = std::dynamic_pointer_cast<CString>(b[j - 1]);
    if (s1 && s2) return s1->Equals(*s2);
    if (auto e1 = std::dynamic_pointer_cast<CEditDistance>(a[i - 1]))
      if (auto e2 = std::dynamic_pointer_cast<CEditDistance>(b[j - 1])) return e1->Equals(*e2);
    RaiseMissingMember("Equals");
  });
}

// The edit-distance operations of CString live here, next to the algorithm.
std::shared_ptr<CEditDistance> CString::GetCharEditDistance(std::string_view other) const {
  auto result = std::make_shared<CEditDistance>();
  if (value_ != other) {
    result->CalculateStr(value_, std::string(other));
  } else {
    result->Initialize(0, 0, 0, 0, std::make_shared<CString>(std::string(static_cast<size_t>(Length()), '.')));
  }
  return result;
}

std::shared_ptr<CEditDistance> CString::GetWordEditDistance(std::string_view other) const {
  auto result = std::make_shared<CEditDistance>();
  // Equal texts deliberately give no operations string, unlike the character distance.
  if (value_ == other) return result;
  constexpr std::string_view kDelims = " \t\r\n";
  auto words1 = GetTokens(kDelims, false);
  auto words2 = CString(std::string(other)).GetTokens(kDelims, false);
  result->Calculate(*words1, *words2);
  return result;
}

}  // namespace ombrel
