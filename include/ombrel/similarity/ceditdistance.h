// CEditDistance: the result of a Levenshtein comparison between two texts
// (character by character) or two lists (element by element, usually
// words): the number of edits, split into modifications, insertions and
// deletions, and the operations string of ".", "M", "I", "D" letters that
// turns the first operand into the second, one letter per aligned position.
// Unit costs; ties in the trace back prefer the diagonal, then a deletion.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/object.h"

namespace ombrel {

class CList;

class CEditDistance final : public CObject {
 public:
  std::string_view ClassName() const override { return "CEditDistance"; }

  void Initialize(int32_t numEdit, int32_t numModify, int32_t numInsert, int32_t numDelete,
                  std::shared_ptr<CString> operations);
  std::shared_ptr<CEditDistance> Clone() const;
  bool Equals(const CEditDistance& other) const;
  void Check() const;
  std::string ToStr() const override;
  void ParseStr(const CString& text);
  void Add(const CEditDistance& other);
  void Subtract(const CEditDistance& other);
  int32_t GetNumEdit() const { return numEdit_; }
  int32_t GetNumInsert() const { return numInsert_; }
  int32_t GetNumDelete() const { return numDelete_; }
  int32_t GetNumModify() const { return numModify_; }
  std::shared_ptr<CString> GetOperations() const;
  bool HasOperations() const { return operations_ != nullptr; }
  void Calculate(const CList& list1, const CList& list2);
  void CalculateStr(const std::string& s1, const std::string& s2);

 private:
  void Combine(const CEditDistance& other, int32_t (*op)(int32_t, int32_t));
  template <class Equal>
  void Compute(int32_t n, int32_t m, Equal equal);

  int32_t numEdit_ = 0;
  int32_t numModify_ = 0;
  int32_t numInsert_ = 0;
  int32_t numDelete_ = 0;
  std::shared_ptr<CString> operations_;
};

}  // namespace ombrel
