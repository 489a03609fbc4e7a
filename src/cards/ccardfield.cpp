#include "ombrel/cards/ccardfield.h"

#include <atomic>
#include <mutex>

#include "ombrel/cards/field_catalogue.h"
#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

namespace {

constexpr std::string_view kLabelNotAllowed = "Only additional Email or Phone fields may contain user labels";

// "Phone 1".."Phone 6" style names: the prefix, then one digit 1..6.
bool IsNumberedName(std::string_view name, std::string_view prefix) {
  return name.size() == prefix.size() + 1 && name.starts_with(prefix) && name.back() >= '1' && name.back() <= '6';
}

std::shared_ptr<CDictionary> NumberedNames(std::string_view prefix) {
  auto names = std::make_shared<CDictionary>();
  for (char n = '1'; n <= '6'; ++n) names->AddItem(std::string(prefix) + n);
  return names;
}

// Levels travel as unsigned 8-bit values; anything that does not fit is an
// overflow of the conversion, before any step of SetData runs.
uint8_t ToLevel(int32_t level) {
  if (level < 0 || level > 255) RaiseOverflow();
  return static_cast<uint8_t>(level);
}

}  // namespace

const CDictionary& ExtraPhoneFieldNames() {
  static const std::shared_ptr<CDictionary> names = NumberedNames("Phone ");
  return *names;
}

const CDictionary& ExtraEmailFieldNames() {
  static const std::shared_ptr<CDictionary> names = NumberedNames("Email ");
  return *names;
}

// Same answer as the dictionaries, without a lookup: every field asks this
// when it is set, and the search sets millions of fields.
bool IsExtraPhoneFieldName(std::string_view name) { return IsNumberedName(name, "Phone "); }
bool IsExtraEmailFieldName(std::string_view name) { return IsNumberedName(name, "Email "); }

std::array<std::string, 29> CCardField::MakeCatalogueNameStrings() {
  std::array<std::string, 29> out;
  for (size_t i = 0; i < kStandardFieldNames.size(); ++i) out[i] = std::string(kStandardFieldNames[i]);
  return out;  // the last one stays empty
}

namespace {

struct NamePool {
  static constexpr size_t kCapacity = 0xFF - 29;  // the numbers between kFirstPooled and kOwnName
  std::mutex adding;
  std::array<std::atomic<const std::string*>, kCapacity> names{};
  std::atomic<size_t> count{0};

  // The position of name among the first n, or -1.
  int32_t Find(std::string_view name, size_t n) const {
    for (size_t i = 0; i < n; ++i)
      if (*names[i].load(std::memory_order_acquire) == name) return static_cast<int32_t>(i);
    return -1;
  }
};

NamePool& Pool() {
  static NamePool* pool = new NamePool();  // never destroyed: fields may outlive static destruction
  return *pool;
}

}  // namespace

CCardField* CCardField::SharedEmpties() {
  // One array, so that telling a shared field apart is a range check; never
  // destroyed, as cards may outlive static destruction.
  static CCardField* fields = [] {
    auto* made = new CCardField[kSharedEmpties];
    for (size_t i = 0; i < kStandardFieldNames.size(); ++i) made[2 * i].nameIndex_ = static_cast<uint8_t>(i);
    return made;
  }();
  return fields;
}

const CCardField& CCardField::SharedEmpty(uint8_t nameIndex, bool readOnlyType) {
  return SharedEmpties()[2 * size_t{nameIndex} + (readOnlyType ? 1 : 0)];
}

bool CCardField::IsSharedEmpty(const CCardField& field) {
  const CCardField* fields = SharedEmpties();
  return &field >= fields && &field < fields + kSharedEmpties;
}

uint8_t CCardField::PoolName(std::string_view name) {
  static_assert(NamePool::kCapacity == kOwnName - kFirstPooled);
  NamePool& pool = Pool();
  // Readers only ever see names already published by the count.
  int32_t found = pool.Find(name, pool.count.load(std::memory_order_acquire));
  if (found < 0) {
    std::lock_guard<std::mutex> lock(pool.adding);
    const size_t n = pool.count.load(std::memory_order_relaxed);
    found = pool.Find(name, n);
    if (found < 0) {
      if (n == NamePool::kCapacity) return kOwnName;
      pool.names[n].store(new std::string(name), std::memory_order_release);
      // The name's shared empty fields are ready before anyone can see its number.
      const auto number = static_cast<uint8_t>(kFirstPooled + n);
      for (bool readOnlyType : {false, true}) {
        CCardField& empty = SharedEmpties()[2 * size_t{number} + (readOnlyType ? 1 : 0)];
        empty.nameIndex_ = number;
        empty.readOnlyType_ = readOnlyType;
      }
      pool.count.store(n + 1, std::memory_order_release);
      found = static_cast<int32_t>(n);
    }
  }
  return static_cast<uint8_t>(kFirstPooled + found);
}

const std::string& CCardField::PooledName(uint8_t number) {
  return *Pool().names[number - kFirstPooled].load(std::memory_order_acquire);
}

CCardField::Extras CCardField::CopyOf(const Extras& extras) {
  return {extras.label, extras.name ? std::make_unique<std::string>(*extras.name) : nullptr};
}

CCardField::CCardField(const CCardField& other)
    : CObject(other),
      text_(other.text_),
      extras_(other.extras_ ? std::make_unique<Extras>(CopyOf(*other.extras_)) : nullptr),
      rectTop_(other.rectTop_),
      rectLeft_(other.rectLeft_),
      rectWidth_(other.rectWidth_),
      rectHeight_(other.rectHeight_),
      nameIndex_(other.nameIndex_),
      ocrConfLevel_(other.ocrConfLevel_),
      catConfLevel_(other.catConfLevel_),
      hasRect_(other.hasRect_),
      ocrSuspect_(other.ocrSuspect_),
      catSuspect_(other.catSuspect_),
      readOnlyType_(other.readOnlyType_) {}

CCardField& CCardField::operator=(const CCardField& other) {
  if (this != &other) *this = CCardField(other);
  return *this;
}

void CCardField::SetName(std::string_view name) {
  int32_t index = StandardFieldIndex(name);
  if (index >= 0) {
    nameIndex_ = static_cast<uint8_t>(index);
  } else if (name.empty()) {
    nameIndex_ = kNoName;
  } else {
    if (!extras_) extras_ = std::make_unique<Extras>();
    if (extras_->name) extras_->name->assign(name);
    else extras_->name = std::make_unique<std::string>(name);
    nameIndex_ = kOwnName;
  }
}

void CCardField::SetData(const std::string& fieldName, const std::string& text, const std::string& userLabel,
                         const CRectangle* rect, int32_t ocrConfLevel, int32_t catConfLevel, bool ocrSuspect,
                         bool catSuspect) {
  uint8_t ocr = ToLevel(ocrConfLevel);
  uint8_t cat = ToLevel(catConfLevel);
  SetName(fieldName);
  if (!userLabel.empty() && !IsExtraField()) RaiseTrap(kLabelNotAllowed);
  SetText(text);
  SetUserLabel(userLabel);
  SetRect(rect);
  if (ocr > 100) RaiseTrap("OCR confidence level " + std::to_string(ocr) + " is out of expected range 0-100");
  if (cat > 100) RaiseTrap("CAT confidence level " + std::to_string(cat) + " is out of expected range 0-100");
  ocrConfLevel_ = ocr;
  catConfLevel_ = cat;
  ocrSuspect_ = ocrSuspect;
  catSuspect_ = catSuspect;
}

void CCardField::SetValues(std::string&& text, const std::string& userLabel, const CRectangle* rect,
                           int32_t ocrConfLevel, int32_t catConfLevel, bool ocrSuspect, bool catSuspect) {
  // The same checks, raising the same first error, as SetData with the
  // field's own name.
  uint8_t ocr = ToLevel(ocrConfLevel);
  uint8_t cat = ToLevel(catConfLevel);
  if (!userLabel.empty() && !IsExtraField()) RaiseTrap(kLabelNotAllowed);
  if (ocr > 100) RaiseTrap("OCR confidence level " + std::to_string(ocr) + " is out of expected range 0-100");
  if (cat > 100) RaiseTrap("CAT confidence level " + std::to_string(cat) + " is out of expected range 0-100");
  SetText(std::move(text));
  SetUserLabel(userLabel);
  SetRect(rect);
  ocrConfLevel_ = ocr;
  catConfLevel_ = cat;
  ocrSuspect_ = ocrSuspect;
  catSuspect_ = catSuspect;
}

void CCardField::Copy(const CCardField& field) {
  CRectangle rect = field.GetRect();
  SetData(field.Name(), field.text_, field.Label(), field.hasRect_ ? &rect : nullptr, field.ocrConfLevel_,
          field.catConfLevel_, field.IsOcrSuspect(), field.IsCatSuspect());
  readOnlyType_ = field.readOnlyType_;
}

std::shared_ptr<CCardField> CCardField::Clone() const {
  auto clone = std::make_shared<CCardField>();
  clone->Copy(*this);
  return clone;
}

void CCardField::SetFieldName(const std::string& fieldName) {
  SetName(fieldName);
  if (!Label().empty() && !IsExtraField()) RaiseTrap(kLabelNotAllowed);
}

void CCardField::SetUserLabel(const std::string& userLabel) {
  if (userLabel.empty()) {
    if (extras_) extras_->label.clear();
    return;
  }
  if (!IsExtraField()) RaiseTrap(kLabelNotAllowed);
  if (!extras_) extras_ = std::make_unique<Extras>();
  extras_->label = userLabel;
}

void CCardField::SetRect(const CRectangle* rect) {
  if (rect == nullptr || rect->GetArea() == 0) {
    hasRect_ = false;
    rectTop_ = rectLeft_ = rectWidth_ = rectHeight_ = 0;
    return;
  }
  rectTop_ = rect->GetTop();
  rectLeft_ = rect->GetLeft();
  rectWidth_ = rect->GetWidth();
  rectHeight_ = rect->GetHeight();
  hasRect_ = true;
}

namespace {

// Most texts arrive trimmed already; only those with blanks at an end need work.
bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool NeedsTrim(const std::string& text) { return !text.empty() && (IsBlank(text.front()) || IsBlank(text.back())); }

}  // namespace

void CCardField::SetText(const std::string& text) {
  if (NeedsTrim(text)) text_ = CString::TrimText(text);
  else text_ = text;
}

void CCardField::SetText(std::string&& text) {
  if (NeedsTrim(text)) text_ = CString::TrimText(text);
  else text_ = std::move(text);
}

void CCardField::MergeCategories(const std::string& categories) {
  if (Name() != "Categories") RaiseTrap("Only the Categories field can merge categories");
  std::string merged = ", " + text_ + ", ";
  auto incoming = CString(CString::ReplaceAll(categories, ", ", ",")).GetTokens(",", false);
  for (int32_t i = 1; i <= incoming->GetNumItems(); ++i) {
    const std::string& name = incoming->GetItemAs<CString>(i)->Value();
    if (merged.find(", " + name + ", ") == std::string::npos) merged += name + ", ";
  }
  CString result(std::move(merged));
  result.ReplaceFront(", ", "").ReplaceEnd(", ", "");
  SetText(result.Value());
}

CRectangle CCardField::GetRect() const {
  if (!hasRect_) return CRectangle();
  return CRectangle(rectTop_, rectLeft_, rectWidth_, rectHeight_);
}

bool CCardField::IsOcrSuspect() const {
  return ocrSuspect_ || (text_.empty() && (Name() == "Name" || Name() == "Company"));
}

bool CCardField::IsReadOnly() const {
  const std::string& name = Name();
  return readOnlyType_ || name == "Creation Date" || name == "Modified Date" || name == "Solvane Status";
}

void CCardField::AppendDump(std::string& out) const {
  out += "FIELD:";
  out += Name();
  if (extras_ && !extras_->label.empty()) {
    out += " LABEL:";
    out += extras_->label;
  }
  out += " TEXT:";
  out += text_;
  out += " RECT:";
  out += GetRect().ToStr();
  out += " OCR_CONF:";
  out += std::to_string(ocrConfLevel_);
  out += " CAT_CONF:";
  out += std::to_string(catConfLevel_);
  out += ocrSuspect_ ? " OCR_SUSP:True" : " OCR_SUSP:False";
  out += catSuspect_ ? " CAT_SUSP:True" : " CAT_SUSP:False";
}

std::string CCardField::ToStr() const {
  std::string out;
  AppendDump(out);
  return out;
}

}  // namespace ombrel
