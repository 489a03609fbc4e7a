#include "ombrel/cards/ccard.h"

#include "foundation/utf8.h"

#include <algorithm>
#include <array>
#include <functional>
#include <mutex>
#include <string_view>
#include <vector>

#include "ombrel/cards/field_catalogue.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"

namespace ombrel {

namespace {

constexpr std::string_view kCrLf = "\r\n";

std::shared_ptr<CCardField> NewEmptyField(const std::string& name) {
  // Equal to SetData(name, "", "", none, 100, 100, false, false) on a new field.
  auto field = std::make_shared<CCardField>();
  field->SetFieldName(name);
  return field;
}

bool IsStoreBookkeeping(std::string_view name) {
  return name == "Creation Date" || name == "Modified Date" || name == "Solvane Status";
}

constexpr size_t kCatalogueSize = kStandardFieldNames.size();

// Whether the text contains part once CString::RemoveWhiteSpace has taken the
// white space out of both, without making those copies.
bool ContainsIgnoringWhiteSpace(std::string_view text, std::string_view part) {
  auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  // Compare part's kept characters against the text's from every kept start.
  auto matchesAt = [&](size_t start) {
    size_t t = start;
    for (char c : part) {
      if (isSpace(c)) continue;
      while (t < text.size() && isSpace(text[t])) ++t;
      if (t == text.size() || text[t] != c) return false;
      ++t;
    }
    return true;
  };
  for (size_t start = 0; start < text.size(); ++start)
    if (!isSpace(text[start]) && matchesAt(start)) return true;
  return matchesAt(text.size());  // a part of white space only is found even in an empty text
}

}  // namespace

const CHashTable::StaticKeys& CCard::CatalogueKeys() {
  static const CHashTable::StaticKeys keys(
      std::span<const std::string>(CCardField::CatalogueNameStrings().data(), kCatalogueSize));
  return keys;
}

CCard::CCard() : CCard(std::span<const CustomField>()) {}

CCard::CCard(std::span<const CustomField> customFields) {
  fields_.RestrictType("CCardField");
  fields_.Reserve(static_cast<int32_t>(kCatalogueSize + customFields.size()));
  // Every field starts as the shared empty one under its name: most fields
  // of a card stay empty, and a card makes its own only for those it sets.
  std::array<ObjectRef, kCatalogueSize> catalogue = SharedCatalogueRefs();
  fields_.AddItemsWithStaticKeys(CatalogueKeys(), catalogue);
  for (const CustomField& custom : customFields) {
    const std::string& name = custom.name;
    // A database's custom fields recur on every card: their names are
    // pooled, and the table refers to the pooled string.
    const uint8_t pooled =
        name.empty() || StandardFieldIndex(name) >= 0 ? CCardField::kOwnName : CCardField::PoolName(name);
    if (pooled != CCardField::kOwnName) {
      fields_.AddItemWithStaticKey(CCardField::PooledName(pooled),
                                   SharedRef(CCardField::SharedEmpty(pooled, custom.readOnly)));
    } else {
      AddField(name, custom.readOnly);
    }
  }
}

CCard::CCard(const CCard& other)
    : CObject(other),
      tag(other.tag),
      frontImage(other.frontImage),
      backImage(other.backImage),
      fields_((other.Settle(), other.fields_)),
      lastName_(other.lastName_),
      cachedDumpHash_(other.cachedDumpHash_),
      cardId_(other.cardId_),
      storedCardId_(other.storedCardId_),
      hasCardId_(other.hasCardId_),
      hasStoredCardId_(other.hasStoredCardId_),
      nonStandard_(other.nonStandard_),
      hasCachedDump_(other.hasCachedDump_),
      cachedConfLevel_(other.cachedConfLevel_) {}

std::shared_ptr<CCard> CCard::Deferred(int32_t cardId, std::string lastName, std::shared_ptr<const Source> source) {
  Trap(!source, "A deferred card needs a source");
  auto card = std::make_shared<CCard>(ShellKey());
  card->SetCardId(cardId);
  card->SetStoredCardId(cardId);
  card->lastName_ = std::move(lastName);
  card->source_ = std::move(source);
  card->pending_.store(true, std::memory_order_release);
  return card;
}

void CCard::Fill() const {
  // Fills are rare and happen once a card: one lock serves them all, and
  // the fields are whole before any other thread sees the card settled.
  static std::mutex fillLock;
  std::lock_guard<std::mutex> lock(fillLock);
  if (!pending_.load(std::memory_order_relaxed)) return;
  std::shared_ptr<CCard> full = source_->Build();
  Trap(!full || full->IsPending(), "A deferred card's source gave no card");
  fields_ = std::move(full->fields_);
  // The source built the card this one stands for: nothing else differs.
  const_cast<CCard*>(this)->nonStandard_ = full->nonStandard_;
  pending_.store(false, std::memory_order_release);
}

const std::array<ObjectRef, CCard::kCatalogueFields>& CCard::SharedCatalogueRefs() {
  static_assert(kCatalogueFields == kCatalogueSize);
  static const std::array<ObjectRef, kCatalogueFields> refs = [] {
    std::array<ObjectRef, kCatalogueFields> out;
    for (size_t i = 0; i < kCatalogueFields; ++i)
      out[i] = SharedRef(CCardField::SharedEmpty(static_cast<uint8_t>(i), false));
    return out;
  }();
  return refs;
}

ObjectRef CCard::SharedRef(const CCardField& shared) {
  // A reference that owns nothing: the shared fields live as long as the
  // process, and copying such a reference touches no shared counter, which
  // two threads building cards would otherwise fight over.
  return ObjectRef(ObjectRef(), const_cast<CCardField*>(&shared));
}

CCardField& CCard::OwnFieldAt(int32_t position) const {
  Settle();
  const ObjectRef& item = fields_.IndexedItemRef(position);
  auto& field = static_cast<CCardField&>(*item);
  // Already the card's own (the usual case): no reference to copy.
  if (!CCardField::IsSharedEmpty(field)) return field;
  return *Own(item, fields_.GetIndexedKey(position));
}

void CCard::OwnFieldsAt(std::span<const int32_t> positions) {
  Settle();
  size_t shared = 0;
  for (int32_t position : positions) shared += CCardField::IsSharedEmpty(FieldAt(position)) ? 1 : 0;
  if (shared == 0) return;
  // One block for them all; each table entry shares its ownership.
  auto block = std::make_shared<CCardField[]>(shared);
  size_t next = 0;
  for (int32_t position : positions) {
    const CCardField& field = FieldAt(position);
    if (!CCardField::IsSharedEmpty(field)) continue;
    CCardField& own = block[next++];
    own.nameIndex_ = field.nameIndex_;
    own.readOnlyType_ = field.readOnlyType_;
    fields_.SetIndexedItem(position, ObjectRef(block, &own));
  }
}

void CCard::MakeNonStandardCard() {
  Settle();
  fields_ = CHashTable();
  fields_.RestrictType("CCardField");
  nonStandard_ = true;
}

std::shared_ptr<CCard> CCard::Clone() const {
  Settle();
  auto card = std::make_shared<CCard>();
  if (nonStandard_) card->MakeNonStandardCard();
  // The same catalogue slots: the new card's own fields, which nobody holds
  // yet, become the copies.
  std::vector<int32_t> sameSlots;
  for (int32_t i = 1; i <= std::min(NumFields(), card->NumFields()); ++i)
    if (&card->fields_.GetIndexedKey(i) == &fields_.GetIndexedKey(i)) sameSlots.push_back(i);
  card->OwnFieldsAt(sameSlots);
  for (int32_t i = 1; i <= fields_.GetNumItems(); ++i) {
    const std::string& name = fields_.GetIndexedKey(i);
    if (i <= card->NumFields() && &card->fields_.GetIndexedKey(i) == &name) {
      card->OwnFieldAt(i).Copy(FieldAt(i));
      continue;
    }
    auto clone = FieldAt(i).Clone();
    if (card->fields_.Contains(name)) card->fields_.SetItem(name, std::move(clone));
    else card->fields_.AddItem(name, std::move(clone));
  }
  card->SetCardId(GetCardID());
  if (hasStoredCardId_) card->SetStoredCardId(storedCardId_);
  card->tag = tag;
  card->SetLastName(lastName_);
  if (frontImage) card->frontImage = frontImage->Clone();
  if (backImage) card->backImage = backImage->Clone();
  return card;
}

void CCard::AddField(const std::string& fieldName, bool readOnly) {
  Settle();
  auto field = NewEmptyField(fieldName);
  if (readOnly) field->MakeReadOnly();
  fields_.AddItem(fieldName, std::move(field));
}

void CCard::SetData(const std::string& fieldName, const std::string& text, const std::string& userLabel,
                    const CRectangle* rect, int32_t ocrConfLevel, int32_t catConfLevel, bool ocrSuspect,
                    bool catSuspect) {
  auto field = std::make_shared<CCardField>();
  field->SetData(fieldName, text, userLabel, rect, ocrConfLevel, catConfLevel, ocrSuspect, catSuspect);
  // The new field is ours alone, so it can be stored as the copy SetField
  // would make; that saves an allocation per field while reading cards.
  StoreField(std::move(field), true);
}

void CCard::SetDataInPlace(int32_t position, std::string&& text, const std::string& userLabel, const CRectangle* rect,
                           int32_t ocrConfLevel, int32_t catConfLevel, bool ocrSuspect, bool catSuspect) {
  Settle();
  const std::string& key = fields_.GetIndexedKey(position);
  CCardField& field = OwnFieldAt(position);
  if (&field.Name() != &key && field.Name() != key) {  // a catalogue field shares its key's string
    // Renamed behind the card's back: SetData makes it right.
    SetData(key, text, userLabel, rect, ocrConfLevel, catConfLevel, ocrSuspect, catSuspect);
    return;
  }
  field.SetValues(std::move(text), userLabel, rect, ocrConfLevel, catConfLevel, ocrSuspect, catSuspect);
  field.NormaliseAsCopy();
  if (key == "Name") lastName_.clear();
}

void CCard::SetField(const CCardField& field) { StoreField(field.Clone(), false); }

void CCard::StoreField(std::shared_ptr<CCardField> field, bool keepReadOnlyType) {
  Settle();
  field->NormaliseAsCopy();
  std::string key = field->Name();
  auto existing = FindField(key);
  if (!existing) {
    if (!nonStandard_) RaiseTrap("Card cannot set unknown field: " + key);
    AddField(key, false);
  } else if (keepReadOnlyType && existing->IsReadOnlyType()) {
    field->MakeReadOnly();
  }
  fields_.SetItem(key, std::move(field));
  if (key == "Name") lastName_.clear();
}

const std::string& CCard::TableKey(const std::string& name) {
  const auto& catalogue = CCardField::CatalogueNameStrings();
  // A field's own Name() is often the catalogue's string already.
  uintptr_t offset = reinterpret_cast<uintptr_t>(&name) - reinterpret_cast<uintptr_t>(catalogue.data());
  if (offset < kCatalogueSize * sizeof(std::string)) return name;
  int32_t position = StandardFieldIndex(name);
  return position < 0 ? name : catalogue[position];
}

const CCardField* CCard::FindFieldPtr(const std::string& name) const {
  Settle();
  const ObjectRef* item = fields_.FindItem(TableKey(name));
  return item ? static_cast<const CCardField*>(item->get()) : nullptr;
}

std::shared_ptr<CCardField> CCard::FindField(const std::string& name) const {
  Settle();
  const ObjectRef* item = fields_.FindItem(TableKey(name));
  return item ? std::static_pointer_cast<CCardField>(*item) : nullptr;
}

void CCard::SetCardId(int32_t cardId) {
  cardId_ = cardId;
  hasCardId_ = true;
}

int32_t CCard::GetCardID() const {
  if (!hasCardId_) RaiseTrap("Missing card ID");
  return cardId_;
}

void CCard::SetStoredCardId(int32_t id) {
  storedCardId_ = id;
  hasStoredCardId_ = true;
}

int32_t CCard::GetStoredCardId() const {
  if (!hasStoredCardId_) RaiseTrap("Missing stored card ID");
  return storedCardId_;
}

void CCard::SetLastName(const std::string& lastName) {
  Settle();
  if (!nonStandard_) CheckLastName(FieldText("Name"), lastName);
  lastName_ = lastName;
}

void CCard::CheckLastName(std::string_view nameText, const std::string& lastName) {
  if (!lastName.empty() && !ContainsIgnoringWhiteSpace(nameText, lastName))
    RaiseTrap("Name field does not contain given last name: " + lastName);
}

void CCard::SetVerified(int16_t val) {
  if (val != 0 && val != 1) RaiseTrap("Unknown value for \"Verified\" field: " + std::to_string(val));
  GetField("Verified")->SetText(val == 1 ? "Yes" : "No");
}

bool CCard::IsVerified() const { return FieldText("Verified") == "Yes"; }

bool CCard::IsFieldEmpty(const std::string& fieldName) const {
  const CCardField* field = FindFieldPtr(fieldName);
  if (!field) RaiseTrap("Unknown field name: " + fieldName);
  return !field->HasText();
}

std::shared_ptr<CCardField> CCard::GetField(const std::string& fieldName) const {
  Settle();
  const std::string& key = TableKey(fieldName);
  const ObjectRef* item = fields_.FindItem(key);
  if (!item) RaiseTrap("Card does not contain unknown field: " + fieldName);
  return Own(*item, key);
}

std::shared_ptr<CCardField> CCard::GetFieldAt(int32_t position) const {
  Settle();
  return Own(fields_.IndexedItemRef(position), fields_.GetIndexedKey(position));
}

std::shared_ptr<CCardField> CCard::Own(const ObjectRef& item, const std::string& key) const {
  if (!CCardField::IsSharedEmpty(static_cast<const CCardField&>(*item))) return std::static_pointer_cast<CCardField>(item);
  auto own = std::make_shared<CCardField>(static_cast<const CCardField&>(*item));
  fields_.SetItem(key, own);
  return own;
}

const CCardField& CCard::FieldNamed(const std::string& fieldName) const {
  const CCardField* field = FindFieldPtr(fieldName);
  if (!field) RaiseTrap("Card does not contain unknown field: " + fieldName);
  return *field;
}

const std::string& CCard::FieldText(const std::string& fieldName) const {
  return FieldNamed(fieldName).Text();  // the table keeps the field alive
}

CString CCard::GetFieldText(const std::string& fieldName) const { return CString(FieldText(fieldName)); }


std::string CCard::GetFreeExtraPhoneField() const {
  const CDictionary& names = ExtraPhoneFieldNames();
  for (int32_t i = 1; i <= names.GetNumItems(); ++i) {
    std::string name = names.GetItem(i);
    if (IsFieldEmpty(name)) return name;
  }
  return {};
}

std::string CCard::GetFreeExtraEmailField() const {
  const CDictionary& names = ExtraEmailFieldNames();
  for (int32_t i = 1; i <= names.GetNumItems(); ++i) {
    std::string name = names.GetItem(i);
    if (IsFieldEmpty(name)) return name;
  }
  return {};
}

std::shared_ptr<CList> CCard::GetUserLabels(const std::string& fieldType) const {
  if (fieldType != "Phone" && fieldType != "Email") RaiseTrap("Unknown field type: " + fieldType);
  auto labels = std::make_shared<CList>();
  for (int32_t i = 1; i <= NumFields(); ++i) {
    const CCardField& field = FieldAt(i);
    if (field.Name().starts_with(fieldType) && !field.Label().empty())
      labels->AddItem(std::make_shared<CString>(field.Label()));
  }
  return labels;
}

void CCard::GetSuspectInfo(int32_t& numOcrSuspects, int32_t& numCatSuspects, int32_t& confLevel) {
  Settle();
  if (IsVerified()) {
    confLevel = 5;
  } else {
    for (int32_t i = 1; i <= NumFields(); ++i) {
      const CCardField& field = FieldAt(i);
      if (field.IsOcrSuspect()) numOcrSuspects = CheckedAdd(numOcrSuspects, 1);
      if (field.IsCatSuspect()) numCatSuspects = CheckedAdd(numCatSuspects, 1);
    }
    auto& mgr = CardStoreMgr();
    if (!mgr) RaiseObjectNotSet();
    CString certainty(mgr->GetValue(GetCardID(), std::string(kCertaintyValue)));
    if (certainty.Value().empty()) RaiseTrap("Cannot retrieve card confidence level from the database");
    int32_t value = certainty.ToLong();
    if (value < 0 || value > 100) RaiseTrap("Unexpected card confidence level: " + std::to_string(value));
    confLevel = RoundHalfEven(value * 5.0 / 100.0);
  }
  if (confLevel < 0 || confLevel > 5) RaiseTrap("Confidence level out of range");
}

int32_t CCard::GetConfLevel() {
  Settle();
  uint64_t hash = std::hash<std::string>{}(ToStr());
  if (!hasCachedDump_ || hash != cachedDumpHash_) {
    // The dump is remembered before the level is computed: a failed
    // computation keeps the old level for this dump.
    hasCachedDump_ = true;
    cachedDumpHash_ = hash;
    int32_t numOcr = 0;
    int32_t numCat = 0;
    GetSuspectInfo(numOcr, numCat, cachedConfLevel_);
  }
  return cachedConfLevel_;
}

bool CCard::IsTextFieldName(const std::string& name) {
  return name != "Categories" && name != "Verified" && !IsStoreBookkeeping(name);
}

bool CCard::InTextByPlace(const CCardField& field) {
  // Every name kept out of the text is a catalogue name: those are told by position.
  static const std::array<bool, kCatalogueSize> inText = [] {
    std::array<bool, kCatalogueSize> out{};
    for (size_t i = 0; i < kCatalogueSize; ++i) out[i] = IsTextFieldName(std::string(kStandardFieldNames[i]));
    return out;
  }();
  const int32_t index = field.CatalogueIndex();
  return index < 0 || inText[static_cast<size_t>(index)];
}

std::string CCard::GetText() const {
  Settle();
  std::string out;
  for (int32_t i = 1; i <= NumFields(); ++i) AppendTextOf(FieldAt(i), FieldAt(i).Text(), out);
  return out;
}

void CCard::AppendTextOf(const CCardField& field, std::string_view text, std::string& out) {
  if (text.empty() || !InTextByPlace(field)) return;
  out += text;
  out += kCrLf;
}

void CCard::AppendUserDataOf(const CCardField& field, std::string_view text, std::string_view label, std::string& out) {
  if (IsStoreBookkeeping(field.Name())) return;
  out += label;
  out += '\t';
  out += text;
  out += kCrLf;
}

size_t CCard::TextLengthOf(const CCardField& field) { return TextLengthOf(field, field.Text()); }

size_t CCard::TextLengthOf(const CCardField& field, std::string_view text) {
  return !text.empty() && InTextByPlace(field) ? utf8::CountCodePoints(text) + kCrLf.size() : 0;
}

int32_t CCard::TextLength() const {
  Settle();
  size_t length = 0;
  for (int32_t i = 1; i <= NumFields(); ++i) length += TextLengthOf(FieldAt(i));
  return static_cast<int32_t>(length);
}

std::string CCard::GetAllUserModifiableData() const {
  Settle();
  std::string out;
  for (int32_t i = 1; i <= NumFields(); ++i) AppendUserDataOf(FieldAt(i), FieldAt(i).Text(), FieldAt(i).Label(), out);
  return out;
}

std::string CCard::ToStr() const {
  Settle();
  std::string out;
  out.reserve(static_cast<size_t>(NumFields()) * 96);
  for (int32_t i = 1; i <= NumFields(); ++i) {
    FieldAt(i).AppendDump(out);
    out += kCrLf;
  }
  return out;
}

}  // namespace ombrel
