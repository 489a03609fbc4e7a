// Lining up the labels of the additional Phone and Email fields across the
// cards of one dupe set, so that the same number or address carries the same
// label on every card and merging never leaves a labelled field beside an
// unlabelled twin.
//
// The rule, for one field type ("Phone" or "Email"):
//  1. Gather the distinct labels of that type's additional fields over the
//     set (primary first, then the dupes in order), first seen first.
//  2. Remember which label each labelled value carries; values are compared
//     loosely: phone numbers by their digits, e-mail addresses trimmed and
//     lower-cased. The first card that labels a value decides.
//  3. Per card, in field order: a label that already stands on an earlier
//     field of the same card is taken off the later field (one label, one
//     field per card). Then every additional field with text but no label
//     gets the label its value carries elsewhere in the set, or else the
//     first gathered label that this card does not use yet. Fields left
//     without a free label stay unlabelled; empty fields are never touched.
#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ombrel/cards/ccard.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

namespace {

std::string ComparableValue(const std::string& fieldType, const std::string& text) {
  if (fieldType == "Phone") {
    std::string digits;
    for (char c : text)
      if (c >= '0' && c <= '9') digits.push_back(c);
    return digits.empty() ? CString::TrimText(text) : digits;
  }
  return CString::LowerText(CString::TrimText(text));
}

bool IsExtraOfType(const CCardField& f, const std::string& fieldType) {
  return fieldType == "Phone" ? f.IsExtraPhoneField() : f.IsExtraEmailField();
}

}  // namespace

void CDupeSet::DoSemanticallyMatchExtraFields(const std::string& fieldType) {
  Trap(fieldType != "Phone" && fieldType != "Email", "Unknown field type: " + fieldType);
  if (!primary_) return;
  std::vector<std::shared_ptr<CCard>> cards{primary_};
  for (int32_t i = 1; i <= dupes_->GetNumItems(); ++i) cards.push_back(dupes_->GetItemAs<CCard>(i));

  std::vector<std::string> labels;
  for (const auto& card : cards) {
    auto found = card->GetUserLabels(fieldType);
    for (int32_t i = 1; i <= found->GetNumItems(); ++i) {
      const std::string& label = found->GetItemAs<CString>(i)->Value();
      if (std::find(labels.begin(), labels.end(), label) == labels.end()) labels.push_back(label);
    }
  }
  if (labels.empty()) return;

  std::map<std::string, std::string> labelOfValue;
  for (const auto& card : cards) {
    for (int32_t i = 1; i <= card->NumFields(); ++i) {
      const CCardField& f = card->FieldAt(i);
      if (!IsExtraOfType(f, fieldType) || !f.HasText() || f.Label().empty()) continue;
      labelOfValue.emplace(ComparableValue(fieldType, f.Text()), f.Label());
    }
  }

  for (const auto& card : cards) {
    std::set<std::string> used;
    std::vector<std::shared_ptr<CCardField>> unlabelled;
    for (int32_t i = 1; i <= card->NumFields(); ++i) {
      const CCardField& stored = card->FieldAt(i);
      if (!IsExtraOfType(stored, fieldType) || !stored.HasText()) continue;
      auto field = card->GetFieldAt(i);
      if (!field->Label().empty() && used.insert(field->Label()).second) continue;
      field->SetUserLabel("");
      unlabelled.push_back(field);
    }
    for (const auto& field : unlabelled) {
      std::string label;
      auto known = labelOfValue.find(ComparableValue(fieldType, field->Text()));
      if (known != labelOfValue.end() && !used.count(known->second)) {
        label = known->second;
      } else {
        for (const std::string& candidate : labels)
          if (!used.count(candidate)) {
            label = candidate;
            break;
          }
      }
      if (label.empty()) continue;
      field->SetUserLabel(label);
      used.insert(label);
    }
  }
}

}  // namespace ombrel
