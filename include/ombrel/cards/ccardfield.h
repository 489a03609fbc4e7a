// CCardField: one field of a card held in memory: its name, its text, where
// that text lies on the front image, how confident recognition was about the
// characters (OCR) and about the field they were put in (CAT), whether it
// flagged them as doubtful, and, for the additional Phone/Email fields, the
// label the user gave the field.
//
// The duplicate search keeps a few hundred thousand cards of about thirty
// fields each in memory, so a field is kept lean: its text, the rectangle
// inline with a presence flag, a few bytes of levels and flags, and a
// catalogue name as its position in the catalogue. A name outside the
// catalogue and the user label, which few fields have, live in a separate
// block made on demand. An empty text or label stands for "none"; the
// getters never answer none (GetText gives an empty CString, GetRect an
// empty CRectangle).
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "ombrel/foundation/cdictionary.h"
#include "ombrel/foundation/crectangle.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/object.h"

namespace ombrel {

class CCard;

// The additional fields "Phone 1".."Phone 6" and "Email 1".."Email 6", built
// once on first use. "Phone", "Fax" and "Email" are standard, not additional.
const CDictionary& ExtraPhoneFieldNames();
const CDictionary& ExtraEmailFieldNames();
bool IsExtraPhoneFieldName(std::string_view name);
bool IsExtraEmailFieldName(std::string_view name);

class CCardField final : public CObject {
 public:
  CCardField() = default;
  CCardField(const CCardField& other);
  CCardField(CCardField&& other) noexcept = default;
  CCardField& operator=(const CCardField& other);
  CCardField& operator=(CCardField&& other) noexcept = default;
  ~CCardField() override = default;

  std::string_view ClassName() const override { return "CCardField"; }

  // Steps run in order and a failing check leaves the earlier ones done: the
  // name is stored first, the levels and suspect flags only once every check
  // has passed. Levels are 8-bit values (a level outside 0..255 is an
  // overflow, as converting it would be); above 100 is refused by name.
  void SetData(const std::string& fieldName, const std::string& text, const std::string& userLabel,
               const CRectangle* rect, int32_t ocrConfLevel, int32_t catConfLevel, bool ocrSuspect, bool catSuspect);
  // Takes the OCR flag through IsOcrSuspect(), so a copy of an empty "Name"
  // or "Company" carries a set flag; that is intended.
  void Copy(const CCardField& field);
  std::shared_ptr<CCardField> Clone() const;

  void SetFieldName(const std::string& fieldName);
  void SetUserLabel(const std::string& userLabel);
  void SetRect(const CRectangle* rect);  // null, or a zero area, means none
  void SetText(const std::string& text);  // trimmed; empty means none
  void SetText(std::string&& text);       // the same, taking the text over
  // Adds the names of a ", "-joined category list that are not present yet.
  // Merging into an empty field keeps a leading ", " (", A"): that quirk is
  // what the stored data has always looked like, so it stays.
  void MergeCategories(const std::string& categories);

  bool IsExtraField() const { return IsExtraPhoneField() || IsExtraEmailField(); }
  bool IsExtraPhoneField() const { return IsExtraPhoneFieldName(Name()); }
  bool IsExtraEmailField() const { return IsExtraEmailFieldName(Name()); }

  CString GetFieldName() const { return CString(Name()); }
  CString GetUserLabel() const { return CString(Label()); }
  CString GetText() const { return CString(text_); }
  CRectangle GetRect() const;

  // Allocation-free views for hot loops.
  const std::string& Name() const {
    if (nameIndex_ <= kNoName) return CatalogueNameStrings()[nameIndex_];
    if (nameIndex_ != kOwnName) return PooledName(nameIndex_);
    return extras_ ? *extras_->name : CatalogueNameStrings()[kNoName];  // a moved-from field has no extras
  }
  const std::string& Text() const { return text_; }
  // The name's position in the catalogue (kStandardFieldNames), -1 for any
  // other name: a catalogue name is always kept as its position.
  int32_t CatalogueIndex() const { return nameIndex_ < kNoName ? nameIndex_ : -1; }
  const std::string& Label() const { return extras_ ? extras_->label : CatalogueNameStrings()[kNoName]; }
  bool HasRect() const { return hasRect_; }

  int32_t GetOcrConfLevel() const { return ocrConfLevel_; }
  int32_t GetCatConfLevel() const { return catConfLevel_; }
  bool HasText() const { return !text_.empty(); }
  // An empty "Name" or "Company" always counts as doubtful.
  bool IsOcrSuspect() const;
  bool IsCatSuspect() const { return catSuspect_; }
  bool OcrSuspectFlag() const { return ocrSuspect_; }

  void MakeReadOnly() { readOnlyType_ = true; }
  bool IsReadOnlyType() const { return readOnlyType_; }
  // The database's flag, or one of the dates and the verification status,
  // which the user never edits.
  bool IsReadOnly() const;

  // "FIELD:Name[ LABEL:x] TEXT:... RECT:T:..,L:..,W:..,H:.. OCR_CONF:n CAT_CONF:n OCR_SUSP:True CAT_SUSP:False"
  // with the stored flags, not IsOcrSuspect().
  std::string ToStr() const override;
  // The same dump appended to out, so a card builds its own without temporaries.
  void AppendDump(std::string& out) const;

 private:
  friend class CCard;

  // What few fields have; made when first needed and kept from then on, so
  // the references Name() and Label() hand out stay valid.
  struct Extras {
    std::string label;                  // the user label, empty for none
    std::unique_ptr<std::string> name;  // a name outside the catalogue
  };
  // nameIndex_ is a catalogue position, kNoName for the empty name, a
  // pooled name's number (from kFirstPooled) or kOwnName for a name kept in
  // extras_.
  static constexpr uint8_t kNoName = 28;
  static constexpr uint8_t kFirstPooled = 29;
  static constexpr uint8_t kOwnName = 0xFF;
  // Names outside the catalogue that many cards share, a database's custom
  // fields, are kept once for the whole process and never freed; a field
  // refers to its name there by number. PoolName answers the number of a
  // name other than a catalogue one or the empty one, pooling it first when
  // new, or kOwnName once the pool is full.
  static uint8_t PoolName(std::string_view name);
  static const std::string& PooledName(uint8_t number);
  // The catalogue names followed by the empty name (which doubles as the
  // empty label), as strings the getters can hand out.
  static const std::array<std::string, 29>& CatalogueNameStrings() {
    static const std::array<std::string, 29> names = MakeCatalogueNameStrings();
    return names;
  }
  static std::array<std::string, 29> MakeCatalogueNameStrings();

  // The empty field a card starts with under a catalogue or pooled name
  // (nameIndex_ below kOwnName), of the database's read-only type or not:
  // one object for the whole process, which every card refers to until it
  // changes that field and makes its own copy. Never changed itself.
  static const CCardField& SharedEmpty(uint8_t nameIndex, bool readOnlyType);
  static bool IsSharedEmpty(const CCardField& field);
  static constexpr size_t kSharedEmpties = 2 * 256;  // plain and read-only per name number
  static CCardField* SharedEmpties();

  static Extras CopyOf(const Extras& extras);
  void SetName(std::string_view name);
  // SetData's steps after the name, for a field whose name is right already;
  // the text is taken over. Every check runs before anything changes.
  void SetValues(std::string&& text, const std::string& userLabel, const CRectangle* rect, int32_t ocrConfLevel,
                 int32_t catConfLevel, bool ocrSuspect, bool catSuspect);

  // A field stored in a card is always a copy; storing a fresh field in
  // place of a copy must leave it exactly as Copy would (see Copy).
  void NormaliseAsCopy() { ocrSuspect_ = IsOcrSuspect(); }

  std::string text_;
  std::unique_ptr<Extras> extras_;
  int32_t rectTop_ = 0;
  int32_t rectLeft_ = 0;
  int32_t rectWidth_ = 0;
  int32_t rectHeight_ = 0;
  uint8_t nameIndex_ = kNoName;
  uint8_t ocrConfLevel_ = 100;
  uint8_t catConfLevel_ = 100;
  bool hasRect_ = false;
  bool ocrSuspect_ = false;
  bool catSuspect_ = false;
  bool readOnlyType_ = false;
};

}  // namespace ombrel
