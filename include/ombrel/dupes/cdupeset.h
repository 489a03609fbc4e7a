// CDupeSet: one group of cards found to describe the same contact: the
// primary card that survives, its dupes in the order they joined, and a
// recycle bin of dupes the user removed (deleted from the store on commit).
//
// The set's type decides how strict membership is: EXACT_DUPE (every
// compared value identical), COMPATIBLE_DUPE (no field holds two different
// non-empty values, against every card of the set) or CONFLICT_DUPE (names
// and content agree, values may differ). AddCardIfDupe is the search's entry;
// merge, delete, undelete and commit are the review's and the database
// actions'. Store access goes through the shared CardStoreMgr().
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/object.h"

namespace ombrel {

class CCard;

enum DupeType : int32_t { EXACT_DUPE = 1, COMPATIBLE_DUPE = 2, CONFLICT_DUPE = 3 };

class CDupeSet final : public CObject {
 public:
  CDupeSet();
  std::string_view ClassName() const override { return "CDupeSet"; }

  void Init(std::shared_ptr<CCard> primary, int32_t type);
  // The same for a caller that knows SignatureHash(*primary) already, as the
  // duplicate search does for every card that may head a set.
  void Init(std::shared_ptr<CCard> primary, int32_t type, uint64_t primarySignatureHash);
  std::shared_ptr<CDupeSet> Clone() const;
  int32_t GetNumberOfCards() const;
  std::shared_ptr<CCard> GetPrimaryCard() const { return primary_; }
  // The primary without copying the reference; null when there is none.
  const CCard* PrimaryCard() const { return primary_.get(); }
  CList& GetDupes() { return *dupes_; }
  const CList& GetDupes() const { return *dupes_; }
  // The recycle bin (empty list when nothing was removed).
  const CList& GetRecycleBin() const;
  int32_t GetType() const { return type_; }
  void SetPrimaryCard(std::shared_ptr<CCard> card);
  void AddDupe(std::shared_ptr<CCard> card, int32_t position = 0);
  bool AddCardIfDupe(const std::shared_ptr<CCard>& card);
  void DeleteDupe(const std::shared_ptr<CCard>& dupe);
  void UndeleteDupe(const std::shared_ptr<CCard>& dupe);
  void DeleteAllDupes();
  void MergeDupe(const std::shared_ptr<CCard>& dupe);
  void MergeAllDupes();
  bool DupeSetNeedsSaving() const;
  void CommitToDatabase();
  void SemanticallyMatchExtraFields();
  std::string ToStr() const override;

  // Membership rules.
  bool CompareCards(const CCard* card1, const CCard* card2) const;
  bool IsDupe(const CCard& card) const;
  bool ShouldBecomePrimary(const CCard& card) const;

  // The data signature compared to notice edits: the card ID, then label and
  // text of every field but the store's bookkeeping dates and status.
  static std::string DataSignature(const CCard& card);
  // A 64-bit hash of DataSignature(card).
  static uint64_t SignatureHash(const CCard& card);

 private:
  void DoSemanticallyMatchExtraFields(const std::string& fieldType);
  CList& RecycleBin();
  void WritePrimaryFields(int32_t id);
  void SaveImage(int32_t id, int kind);

  std::shared_ptr<CCard> primary_;
  std::shared_ptr<CList> dupes_;
  int32_t type_ = 0;
  bool extraFieldsMatched_ = false;
  std::shared_ptr<CList> recycleBin_;
  uint64_t primarySnapshot_ = 0;  // SignatureHash of the primary when last set or saved
};

// The number of cards that are duplicates of some primary: the sum over the
// sets of their card count minus one.
int32_t CountDuplicateCards(const CList& dupeSets);

}  // namespace ombrel
