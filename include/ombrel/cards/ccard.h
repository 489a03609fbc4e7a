// CCard: one business card held in memory: its card ID in the store, its
// fields by name, the contact's last name, and the values other parts attach
// to it (the search's sort key, replacement image IDs from the review).
//
// A new card carries the 28 standard fields in catalogue order, so every part
// can address any standard field without testing for it; the card store
// manager appends the database's custom fields. A non-standard card starts
// empty and grows a field whenever one is set.
//
// Fields are stored as copies: SetField and SetData never share the caller's
// object, so nothing outside the card edits a field behind its back.
//
// A new card's fields are shared: each table entry refers to one empty field
// per name that every card starts with. A card makes its own copy of a field
// when the field is handed out for changing (GetField, GetFieldAt) or set; the
// fields a card is built with share one allocation (OwnFieldsAt). So the
// table's items are for reading only: change a field through the card.
//
// A card read ahead of use (Deferred) knows its ID, last name and tag at
// once and fills its fields from its source when anything first asks for
// them, whichever thread that is: a search reads every suspect but most of
// them are never looked at field by field (a listing of the sets needs no
// more than their IDs).
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "ombrel/cards/ccardfield.h"
#include "ombrel/foundation/cdictionary.h"
#include "ombrel/foundation/chashtable.h"
#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/cstring.h"

namespace ombrel {

class CCard final : public CObject {
 public:
  // A field the database declares beyond the catalogue.
  struct CustomField {
    std::string name;
    bool readOnly = false;
  };

  CCard();  // the 28 catalogue fields, empty
  // The catalogue fields followed by these, added as AddField adds them
  // (a repeated name raises the same error).
  explicit CCard(std::span<const CustomField> customFields);
  // A copy of a card with fields to come has them.
  CCard(const CCard& other);
  CCard& operator=(const CCard&) = delete;

  // What a deferred card's fields come from.
  class Source {
   public:
    virtual ~Source() = default;
    // The card in full, with the deferred card's ID and last name; called
    // once, under a lock that other fills share (so it must not ask another
    // deferred card for its fields).
    virtual std::shared_ptr<CCard> Build() const = 0;
  };
  // A card with that ID (stored ID too) and last name whose fields are
  // source's card's, built when first asked for. The source stays with the
  // card for its life: what it holds may be viewed by whoever made it.
  static std::shared_ptr<CCard> Deferred(int32_t cardId, std::string lastName, std::shared_ptr<const Source> source);
  // Whether the fields are still to come.
  bool IsPending() const { return pending_.load(std::memory_order_acquire); }
  // Only Deferred can make the key for the empty shell it fills in.
  class ShellKey {
    friend class CCard;
    ShellKey() = default;
  };
  explicit CCard(ShellKey) {}

  std::string_view ClassName() const override { return "CCard"; }

  std::string tag;                    // the duplicate search's sort key
  std::shared_ptr<CLong> frontImage;  // replacement front image ID; null keeps the card's own
  std::shared_ptr<CLong> backImage;

  void MakeNonStandardCard();
  // A deep copy; the last name goes through SetLastName so its check runs
  // again. The card must have an ID.
  std::shared_ptr<CCard> Clone() const;
  // Adds an empty field; raises when the name is present already.
  void AddField(const std::string& fieldName, bool readOnly);
  // Sets a field from values (checked as CCardField::SetData checks them). A
  // field the database declares read-only stays read-only. On failure the
  // card is unchanged.
  void SetData(const std::string& fieldName, const std::string& text, const std::string& userLabel,
               const CRectangle* rect, int32_t ocrConfLevel, int32_t catConfLevel, bool ocrSuspect, bool catSuspect);
  // SetData under the key at a position (1-based, table order), with the same
  // checks, errors and result, but written into the stored field itself and
  // taking the text over: for a card being built, whose fields nobody else
  // holds yet. On failure the card is unchanged.
  void SetDataInPlace(int32_t position, std::string&& text, const std::string& userLabel, const CRectangle* rect,
                      int32_t ocrConfLevel, int32_t catConfLevel, bool ocrSuspect, bool catSuspect);
  void SetCardId(int32_t cardId);
  int32_t GetCardID() const;  // raises "Missing card ID" when unset
  bool HasCardId() const { return hasCardId_; }
  // The ID of the stored card this card was read as (set when the manager
  // builds it, copied by Clone); lets a dupe set notice a primary whose store
  // identity changed.
  void SetStoredCardId(int32_t id);
  bool HasStoredCardId() const { return hasStoredCardId_; }
  int32_t GetStoredCardId() const;
  const std::string& GetLastName() const { return lastName_; }
  // On a standard card the "Name" text must contain the last name (white
  // space ignored); an empty last name always passes.
  void SetLastName(const std::string& lastName);
  // What SetLastName raises on a standard card whose "Name" text is nameText.
  static void CheckLastName(std::string_view nameText, const std::string& lastName);
  void SetVerified(int16_t val);  // 1 "Yes", 0 "No"
  bool IsVerified() const;
  // Stores a copy of field under its name; setting "Name" forgets the last name.
  void SetField(const CCardField& field);
  bool IsFieldEmpty(const std::string& fieldName) const;
  bool IsStandardFieldName(const std::string& fieldName) const {
    Settle();
    return fields_.Contains(fieldName);
  }
  // The card's field table, for reading only: its fields come out const.
  // Every new card shares its empty fields with all others until it changes
  // one, so a field is changed only through the card (GetField, SetData),
  // which makes it the card's own first.
  class FieldTable {
   public:
    explicit FieldTable(const CHashTable& table) : table_(table) {}
    bool Contains(const std::string& name) const { return table_.Contains(name); }
    int32_t GetNumItems() const { return table_.GetNumItems(); }
    const std::string& GetIndexedKey(int32_t position) const { return table_.GetIndexedKey(position); }
    std::shared_ptr<CList> GetKeys() const { return table_.GetKeys(); }
    // Raises as the table does for a missing name or position.
    const CCardField& Field(const std::string& name) const {
      return static_cast<const CCardField&>(*table_.GetItem(name));
    }
    const CCardField& FieldAt(int32_t position) const {
      return static_cast<const CCardField&>(*table_.GetIndexedItem(position));
    }

   private:
    const CHashTable& table_;
  };
  FieldTable GetFields() const {
    Settle();
    return FieldTable(fields_);
  }
  // The stored field itself, not a copy, free to be changed: a shared empty
  // field is first replaced by the card's own. So, though const, this is a
  // change to the card as far as other threads are concerned.
  std::shared_ptr<CCardField> GetField(const std::string& fieldName) const;
  // The same by position (1-based, table order).
  std::shared_ptr<CCardField> GetFieldAt(int32_t position) const;
  // The stored field for reading, with GetField's check.
  const CCardField& FieldNamed(const std::string& fieldName) const;
  // For a card being built: the fields at these positions (1-based, table
  // order) become the card's own in one allocation, ready for SetDataInPlace.
  void OwnFieldsAt(std::span<const int32_t> positions);
  // The first empty "Phone 1".."Phone 6" ("Email 1".."Email 6"); empty when all are used.
  std::string GetFreeExtraPhoneField() const;
  std::string GetFreeExtraEmailField() const;
  // The non-empty labels of the fields whose names start with fieldType
  // ("Phone" or "Email"), in table order, as a CList of CString.
  std::shared_ptr<CList> GetUserLabels(const std::string& fieldType) const;
  // Adds the card's OCR and CAT suspect counts to the counters and sets
  // confLevel 0..5 from the stored "Certainty" (5 for a verified card).
  void GetSuspectInfo(int32_t& numOcrSuspects, int32_t& numCatSuspects, int32_t& confLevel);
  // The level of GetSuspectInfo, recomputed only when the card's dump changed.
  int32_t GetConfLevel();
  CString GetFieldText(const std::string& fieldName) const;
  const std::string& FieldText(const std::string& fieldName) const;  // no copy, same checks as GetField
  int32_t NumFields() const {
    Settle();
    return fields_.GetNumItems();
  }
  const CCardField& FieldAt(int32_t position) const {  // 1-based, table order
    Settle();
    return StoredFieldAt(position);
  }
  // Every text that says something about the contact, one per line (CR LF).
  std::string GetText() const;
  // The length of GetText in characters, without making it.
  int32_t TextLength() const;
  // What one field adds to that length: its text's characters and the line
  // end, or 0 when the field is not part of GetText.
  static size_t TextLengthOf(const CCardField& field);
  // The same for a field of that name and place holding text.
  static size_t TextLengthOf(const CCardField& field, std::string_view text);
  // Whether a field of that name with text is part of GetText.
  static bool IsTextFieldName(const std::string& name);
  // "label TAB text CR LF" for every field the user may edit, empty ones
  // included: equal results mean equal user-editable data.
  std::string GetAllUserModifiableData() const;
  // What a field of that name and place, with that text (and label), adds
  // to GetText and to GetAllUserModifiableData: for fields read elsewhere.
  static void AppendTextOf(const CCardField& field, std::string_view text, std::string& out);
  static void AppendUserDataOf(const CCardField& field, std::string_view text, std::string_view label,
                               std::string& out);
  // The field dumps, each followed by CR LF. The card ID is not part of it.
  std::string ToStr() const override;

 private:
  // Stores a field the card owns already (a fresh object nobody else holds),
  // normalised as a copy would be; keepReadOnlyType carries over the
  // database's read-only type of the field it replaces.
  void StoreField(std::shared_ptr<CCardField> field, bool keepReadOnlyType);
  // The stored field, or null.
  std::shared_ptr<CCardField> FindField(const std::string& name) const;
  // The same without copying the reference.
  const CCardField* FindFieldPtr(const std::string& name) const;
  const CCardField& StoredFieldAt(int32_t position) const {
    // The table takes nothing but fields.
    return static_cast<const CCardField&>(*fields_.IndexedItemRef(position));
  }
  // The card's own field at a position, or under key for the item found there.
  CCardField& OwnFieldAt(int32_t position) const;
  std::shared_ptr<CCardField> Own(const ObjectRef& item, const std::string& key) const;

  static constexpr size_t kCatalogueFields = 28;
  // The catalogue's shared empty fields, as the table's items.
  static const std::array<ObjectRef, kCatalogueFields>& SharedCatalogueRefs();
  static ObjectRef SharedRef(const CCardField& shared);

  // Whether a field of that name and place with text is part of GetText.
  static bool InTextByPlace(const CCardField& field);
  // The catalogue names as the table's keys.
  static const CHashTable::StaticKeys& CatalogueKeys();
  // The catalogue's own string for a catalogue name, which the table finds
  // at once, else the name itself.
  static const std::string& TableKey(const std::string& name);

  // Mutable as a shared field is replaced by the card's own when handed out
  // for changing, by const members too.
  mutable CHashTable fields_;
  // A deferred card's fields are still to come from source_, which Fill
  // builds under a lock; every member that reads or changes the fields
  // settles first.
  mutable std::atomic<bool> pending_{false};
  mutable std::shared_ptr<const Source> source_;
  void Settle() const {
    if (pending_.load(std::memory_order_acquire)) [[unlikely]]
      Fill();
  }
  void Fill() const;
  std::string lastName_;
  // The level is cached against the dump it was computed for; a hash of the
  // dump stands for the dump itself so cached cards do not carry it.
  uint64_t cachedDumpHash_ = 0;
  int32_t cardId_ = 0;
  int32_t storedCardId_ = 0;
  bool hasCardId_ = false;
  bool hasStoredCardId_ = false;
  bool nonStandard_ = false;
  bool hasCachedDump_ = false;
  int32_t cachedConfLevel_ = 0;
};

}  // namespace ombrel
