#include "ombrel/cardstore/ccardstoremgr.h"

#include <array>
#include <span>
#include <atomic>
#include <string_view>
#include <vector>

#include "ombrel/cards/field_catalogue.h"
#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/cstring.h"

namespace ombrel {

namespace {

constexpr std::string_view kCrLf = "\r\n";

// One field's stored data with the defaults of a value that is absent.
struct FieldData {
  std::string text;
  int32_t left = 0;
  int32_t top = 0;
  int32_t right = 0;
  int32_t bottom = 0;
  int32_t ocrLevel = 100;
  int32_t catLevel = 100;
  bool ocrSuspect = false;
  bool catSuspect = false;
};

// Fields whose geometry and levels are never read: their text is not
// something recognition found on the card.
bool SkipsGeometry(std::string_view name) {
  return name == "Notes" || name == "Categories" || name == "Verified" || name == "Solvane Status" ||
         name == "Creation Date" || name == "Modified Date";
}

// Splits on blanks as CString::GetTokens does (runs of blanks give no empty
// tokens) into at most N tokens; answers the full count, so a caller can
// tell "too many" without the extra tokens being kept.
template <size_t N>
size_t SplitOnBlanks(std::string_view text, std::array<std::string_view, N>& tokens) {
  size_t count = 0;
  size_t pos = 0;
  const size_t size = text.size();
  while (pos < size) {
    while (pos < size && text[pos] == ' ') ++pos;
    if (pos == size) break;
    size_t start = pos;
    while (pos < size && text[pos] != ' ') ++pos;
    if (count < N) tokens[count] = text.substr(start, pos - start);
    ++count;
  }
  return count;
}

// CString::ToLong's answer; plain digits, the usual case, are read directly.
int32_t ToInt(std::string_view token) {
  if (token.empty() || token.size() > 9) return CString(token).ToLong();
  int32_t n = 0;
  for (char c : token) {
    if (c < '0' || c > '9') return CString(token).ToLong();
    n = n * 10 + (c - '0');
  }
  return n;
}

// The N numbers of a text that is N blank-separated runs of at most nine
// plain digits, the way nearly every stored rectangle and level looks; false
// for anything else, which SplitOnBlanks and ToInt then read (and report)
// as usual. Where it answers, it answers what they would.
template <size_t N>
bool ReadPlainNumbers(std::string_view text, std::array<int32_t, N>& numbers) {
  const char* p = text.data();
  const char* const end = p + text.size();
  for (int32_t& number : numbers) {
    while (p != end && *p == ' ') ++p;
    const char* const start = p;
    int32_t n = 0;
    while (p != end && *p >= '0' && *p <= '9') {
      if (p - start == 9) return false;  // ten digits or more: the general way, before any overflow
      n = n * 10 + (*p++ - '0');
    }
    if (p == start || (p != end && *p != ' ')) return false;
    number = n;
  }
  while (p != end && *p == ' ') ++p;
  return p == end;
}

// The N numbers of a rectangle or levels value; error heads the message for
// a value of another count.
template <size_t N>
std::array<int32_t, N> ReadNumbers(std::string_view value, std::string_view error) {
  std::array<int32_t, N> numbers;
  if (ReadPlainNumbers(value, numbers)) return numbers;
  std::array<std::string_view, N> tokens;
  if (SplitOnBlanks(value, tokens) != N) RaiseTrap(std::string(error) + std::string(value));
  for (size_t k = 0; k < N; ++k) numbers[k] = ToInt(tokens[k]);
  return numbers;
}

// Characters, not bytes: a multi-byte middle character still makes three.
size_t CountCharacters(std::string_view text) {
  size_t n = 0;
  for (char c : text)
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++n;
  return n;
}

// The plan's k-th value through read, which may answer a view of scratch
// (arriving empty as promised) or of values it holds itself.
template <class Read>
std::string_view ReadValue(const Read& read, const std::vector<std::string>& names, size_t k, std::string& scratch) {
  scratch.clear();
  return read(names[k], k, scratch);
}

// The rectangle a field takes from its stored corners: width and height
// from them (both 0 when either is negative), its area a 32-bit number too.
CRectangle RectangleOf(const FieldData& data) {
  int32_t width = CheckedSub(data.right, data.left);
  int32_t height = CheckedSub(data.bottom, data.top);
  if (width < 0 || height < 0) width = height = 0;
  CRectangle rect(data.top, data.left, width, height);
  rect.GetArea();
  return rect;
}

// A field's reading failed: raised with the field's name. A failure of the
// numbers of valueName (an overflow, a token that is no number) is told
// with that value; the rules' own messages already end with it.
[[noreturn]] [[gnu::noinline]] void RaiseFieldFailure(const std::string& name, const Error& e,
                                                     const std::string* valueName, std::string_view value) {
  std::string reason = e.Description();
  if (valueName && !reason.starts_with("Incorrect ")) reason += " in \"" + *valueName + "\": " + std::string(value);
  RaiseTrap("Failed to get field data for field: " + name + std::string(kCrLf) + reason);
}

// Reads one field's data into data and its rectangle (as the card takes it:
// left, top, width and height) into rect; names[first] is the field's name,
// followed by its rectangle, levels and suspect info. False for a field
// without text, whose other values are never read (data and rect are then
// left as they were). scratch is a buffer kept from field to field.
template <class Read>
bool ReadFieldData(const std::vector<std::string>& names, size_t first, const Read& read, FieldData& data,
                   CRectangle& rect, std::string& scratch) {
  const std::string& name = names[first];
  const std::string* numbersOf = nullptr;  // the value whose numbers are being worked out
  std::string_view value;
  try {
    const std::string_view text = CString::TrimmedView(ReadValue(read, names, first, scratch));
    if (text.empty()) return false;
    data = FieldData{std::move(data.text)};
    data.text.assign(text);
    if (SkipsGeometry(name)) {
      rect = CRectangle();
      return true;
    }

    value = ReadValue(read, names, first + 1, scratch);
    numbersOf = &names[first + 1];
    if (!value.empty()) {
      const auto numbers = ReadNumbers<4>(value, "Incorrect rectangle information: ");
      data.left = numbers[0];
      data.top = numbers[1];
      data.right = numbers[2];
      data.bottom = numbers[3];
    }
    rect = RectangleOf(data);
    numbersOf = nullptr;

    value = ReadValue(read, names, first + 2, scratch);
    numbersOf = &names[first + 2];
    if (!value.empty()) {
      const auto numbers = ReadNumbers<2>(value, "Incorrect confidence levels: ");
      data.ocrLevel = numbers[0];
      data.catLevel = numbers[1];
    }
    numbersOf = nullptr;

    value = ReadValue(read, names, first + 3, scratch);
    if (!value.empty()) {
      const auto bad = [&] { RaiseTrap("Incorrect suspect info: " + std::string(value)); };
      if (CountCharacters(value) != 3) bad();
      if (value.front() == '1') data.ocrSuspect = true;
      else if (value.front() != '0') bad();
      if (value.back() == '1') data.catSuspect = true;
      else if (value.back() != '0') bad();
    }
  } catch (const Error& e) {
    RaiseFieldFailure(name, e, numbersOf, value);
  }
  return true;
}

int32_t ClampLevel(int32_t level) { return level < 0 || level > 100 ? 100 : level; }

// One field with text as read and checked, before it becomes the card's.
struct Filled {
  int32_t position = 0;
  FieldData data;
  std::string label;
  CRectangle rect;
};

// A card's values read and checked: its fields with text (the first
// positions.size() of filled) and its last name. Kept per thread and reused
// from card to card, so the buffers keep their room.
struct ReadState {
  std::vector<Filled> filled;
  std::vector<int32_t> positions;
  std::string lastName;
};

// Reads every field of a card with that many fields, in order, and the last
// name, raising what the values' checks raise.
template <class Read>
ReadState& ReadAll(const std::vector<std::string>& names, int32_t fieldCount, const Read& read) {
  thread_local ReadState state;
  state.positions.clear();
  std::string scratch;
  for (int32_t i = 1; i <= fieldCount; ++i) {
    const size_t first = static_cast<size_t>(i - 1) * CCardStoreMgr::kNamesPerField;
    const std::string& name = names[first];
    if (state.filled.size() == state.positions.size()) state.filled.emplace_back();
    Filled& field = state.filled[state.positions.size()];
    FieldData& data = field.data;
    if (!ReadFieldData(names, first, read, data, field.rect, scratch)) continue;

    field.label.clear();
    if (IsExtraPhoneFieldName(name) || IsExtraEmailFieldName(name))
      field.label.assign(ReadValue(read, names, first + 4, scratch));
    field.position = i;
    state.positions.push_back(i);
  }
  state.lastName.assign(CString::TrimmedView(ReadValue(read, names, names.size() - 1, scratch)));
  return state;
}

// A card of that empty card's fields and that ID, with the fields read at
// positions made its own in one allocation, each then set by set(card, k)
// for the k-th position, and last its last name: how every read card is put
// together. The card is the caller's alone until it is returned.
template <class Set>
std::shared_ptr<CCard> AssembleCard(const CCard& emptyCard, int32_t cardId, std::span<const int32_t> positions,
                                    const Set& set, const std::string& lastName) {
  auto card = std::make_shared<CCard>(emptyCard);
  card->SetCardId(cardId);
  card->SetStoredCardId(cardId);
  card->OwnFieldsAt(positions);
  for (size_t k = 0; k < positions.size(); ++k) set(*card, k);
  card->SetLastName(lastName);
  return card;
}

// A scan's values through the names of a plan, prepared once per thread.
const PreparedNamesReader& ReaderFor(const ICardValues& values, const std::vector<std::string>& names, uint64_t serial) {
  thread_local PreparedNamesReader reader;
  reader.Use(values, names, serial);
  return reader;
}

}  // namespace

std::shared_ptr<CCardStoreMgr>& CardStoreMgr() {
  static std::shared_ptr<CCardStoreMgr> manager;
  return manager;
}

ICardStore& CCardStoreMgr::Store() const {
  if (!cardStore_) RaiseTrap("Cardstore object has not been set");
  return *cardStore_;
}

void CCardStoreMgr::RaiseFailure(const std::string& message) {
  RaiseTrap(message + std::string(kCrLf) + cardStore_->GetLastError());
}

bool CCardStoreMgr::Connect() {
  if (Store().Connect() != 0) RaiseFailure("Failed to connect properly to card store");
  return true;
}

bool CCardStoreMgr::Disconnect() {
  if (Store().Disconnect() != 0) RaiseFailure("Failed to disconnect properly from card store");
  return true;
}

int32_t CCardStoreMgr::GetNumberOfCards() {
  int32_t count = 0;
  if (Store().GetNumberOfCards(count) != 0) RaiseFailure("Failed to get number of cards");
  return count;
}

int32_t CCardStoreMgr::GetCardID(int32_t cardIndex) {
  int32_t cardId = 0;
  if (Store().GetCardID(cardIndex, cardId) != 0)
    RaiseFailure("Failed to get cardId for card: " + std::to_string(cardIndex));
  return cardId;
}

bool CCardStoreMgr::CardExists(int32_t cardId) {
  ICardStore& store = Store();
  bool discarded = false;
  store.CardExists(cardId, discarded);
  bool answer = false;
  if (store.CardExists(cardId, answer) != 0)
    RaiseFailure("Failed to find if card exist for cardID: " + std::to_string(cardId));
  return answer;
}

int32_t CCardStoreMgr::GetCardDIB(int32_t cardId) {
  int32_t dib = 0;
  if (Store().GetCardDIB(cardId, dib) != 0) RaiseFailure("Failed to get card image for card: " + std::to_string(cardId));
  return dib;
}

int32_t CCardStoreMgr::GetBackDIB(int32_t cardId) {
  int32_t dib = 0;
  if (Store().GetBackDIB(cardId, dib) != 0) RaiseFailure("Failed to get back image for card: " + std::to_string(cardId));
  return dib;
}

void CCardStoreMgr::SetCardDIB(int32_t cardId, int32_t dib) {
  if (Store().SetCardDIB(cardId, dib) != 0) RaiseFailure("Failed to set card image for card: " + std::to_string(cardId));
}

void CCardStoreMgr::SetBackDIB(int32_t cardId, int32_t dib) {
  if (Store().SetBackDIB(cardId, dib) != 0) RaiseFailure("Failed to set back image for card: " + std::to_string(cardId));
}

bool CCardStoreMgr::HasFrontImage(int32_t cardId) {
  bool answer = false;
  if (Store().HasFrontImage(cardId, answer) != 0)
    RaiseFailure("Failed to find out if front image exists for card: " + std::to_string(cardId));
  return answer;
}

bool CCardStoreMgr::HasBackImage(int32_t cardId) {
  bool answer = false;
  if (Store().HasBackImage(cardId, answer) != 0)
    RaiseFailure("Failed to find out if back image exists for card: " + std::to_string(cardId));
  return answer;
}

std::string CCardStoreMgr::GetLabels(const std::string& labelType) {
  std::string labels;
  if (Store().GetLabels(labelType, labels) != 0) RaiseFailure("Failed to get labels for: " + labelType);
  return labels;
}

std::string CCardStoreMgr::GetCustomFields() {
  std::string fields;
  if (Store().GetCustomFields(fields) != 0) RaiseFailure("Failed to get list of custom fields");
  return fields;
}

std::string CCardStoreMgr::GetCategories() {
  std::string categories;
  if (Store().GetCategories(categories) != 0) RaiseFailure("Failed to get categories");
  return categories;
}

std::string CCardStoreMgr::GetValue(int32_t cardId, const std::string& fieldName) {
  std::string value;
  if (Store().GetValue(cardId, fieldName, value) != 0) return {};
  return value;
}

void CCardStoreMgr::PutValue(int32_t cardId, const std::string& fieldName, const std::string& value) {
  if (Store().PutValue(cardId, fieldName, value) != 0)
    RaiseFailure("Failed to put value for card with ID: " + std::to_string(cardId) + " and field name: " + fieldName);
}

void CCardStoreMgr::DeleteCard(int32_t cardId) {
  if (Store().DeleteCard(cardId) != 0) RaiseFailure("Failed to delete card with ID: " + std::to_string(cardId));
}

bool CCardStoreMgr::BeginUpdate() {
  if (Store().BeginUpdate() != 0) RaiseFailure("Failed to Begin Updates");
  return true;
}

bool CCardStoreMgr::CommitUpdate() {
  if (Store().CommitUpdate() != 0) RaiseFailure("Failed to Commit Updates");
  return true;
}

bool CCardStoreMgr::AbortUpdate() {
  if (Store().AbortUpdate() != 0) RaiseFailure("Failed to Abort Updates");
  return true;
}

std::string CCardStoreMgr::GetLastError() { return cardStore_ ? cardStore_->GetLastError() : std::string(); }

CCardStoreMgr::Snapshot CCardStoreMgr::HoldSnapshot() {
  ICardStore& store = Store();
  if (!store.OffersSnapshot()) return Snapshot();
  if (store.BeginSnapshot() != 0) RaiseFailure("Failed to begin a consistent read");
  return Snapshot(cardStore_);
}

CCardStoreMgr::Snapshot::~Snapshot() {
  // Ending a read cannot lose anything: a failure here has nothing to report.
  if (store_) store_->EndSnapshot();
}

std::shared_ptr<CCard> CCardStoreMgr::GetCard(int32_t cardId) {
  auto plan = PlanCustomFields(GetCustomFields());
  // GetValue's leniency, reading into the caller's buffer.
  return Build(cardId, *plan, [this, cardId](const std::string& name, size_t, std::string& scratch) -> std::string_view {
    if (Store().GetValue(cardId, name, scratch) != 0) scratch.clear();
    return scratch;
  });
}

std::shared_ptr<const CCardStoreMgr::CustomFieldPlan> CCardStoreMgr::PlanCustomFields(const std::string& customFields) {
  // A plan follows from the text alone, so each thread keeps the last one it
  // made: threads building cards at once then share nothing, not even a lock.
  thread_local std::shared_ptr<const CustomFieldPlan> last;
  if (last && last->text == customFields) return last;
  static std::atomic<uint64_t> lastSerial{0};
  auto plan = std::make_shared<CustomFieldPlan>();
  plan->text = customFields;
  plan->serial = ++lastSerial;
  try {
    auto lines = CString(customFields).GetTokens(kCrLf, false);
    for (int32_t i = 1; i <= lines->GetNumItems(); ++i) {
      auto tokens = lines->GetItemAs<CString>(i)->GetTokens("\t", false);
      const std::string& type = tokens->GetItemAs<CString>(2)->Value();
      const std::string& visibility = tokens->GetItemAs<CString>(3)->Value();
      if (type == "TEXT" && visibility != "HIDDEN") {
        const std::string& access = tokens->GetItemAs<CString>(4)->Value();
        plan->fields.push_back({tokens->GetItemAs<CString>(1)->Value(), access == "READONLY"});
      }
    }
  } catch (const Error& e) {
    plan->error = e;
  }
  auto addField = [&](const std::string& name) {
    for (std::string_view suffix : {std::string_view(), kRectangleSuffix, kConfidenceLevelsSuffix, kSuspectInfoSuffix,
                                    kLabelSuffix}) {
      plan->valueNames.push_back(name + std::string(suffix));
    }
  };
  for (std::string_view name : kStandardFieldNames) addField(std::string(name));
  for (const CCard::CustomField& field : plan->fields) addField(field.name);
  plan->valueNames.emplace_back(kFirstNameValue);
  plan->valueNames.emplace_back(kLastNameValue);
  try {
    plan->emptyCard = std::make_shared<CCard>(plan->fields);
  } catch (...) {
    plan->emptyCardError = std::current_exception();  // raised where a card would have been made
  }
  last = std::move(plan);
  return last;
}

std::shared_ptr<CCard> CCardStoreMgr::BuildCard(int32_t cardId, const std::string& customFields,
                                                const std::function<std::string(const std::string& name)>& getValue) {
  auto plan = PlanCustomFields(customFields);
  return Build(cardId, *plan, [&](const std::string& name, size_t, std::string& scratch) -> std::string_view {
    scratch = getValue(name);
    return scratch;
  });
}

std::shared_ptr<CCard> CCardStoreMgr::BuildCard(int32_t cardId, const std::string& customFields,
                                                const ValueReader& readValue) {
  auto plan = PlanCustomFields(customFields);
  return Build(cardId, *plan, [&](const std::string& name, size_t, std::string& scratch) -> std::string_view {
    readValue(name, scratch);
    return scratch;
  });
}

std::shared_ptr<CCard> CCardStoreMgr::BuildCard(int32_t cardId, const std::string& customFields,
                                                const ICardValues& values) {
  auto plan = PlanCustomFields(customFields);
  // A scan builds card after card from the same values object and plan.
  const PreparedNamesReader& reader = ReaderFor(values, plan->valueNames, plan->serial);
  return Build(cardId, *plan, [&](const std::string&, size_t k, std::string& scratch) { return reader.View(k, scratch); });
}

// A card read ahead, as its fields are to be set (ReadFields) with its last
// name: what its deferred card is built from.
class CCardStoreMgr::ReadValues final : public ReadFields, public CCard::Source {
 public:
  ReadValues(std::shared_ptr<const CustomFieldPlan> plan, int32_t cardId, const ReadState& state)
      : plan_(std::move(plan)), cardId_(cardId), lastName_(state.lastName) {
    const size_t n = state.positions.size();
    size_t size = 0;
    for (size_t k = 0; k < n; ++k) size += state.filled[k].data.text.size() + state.filled[k].label.size();
    fields_.reserve(n);
    texts_.reserve(size);
    for (size_t k = 0; k < n; ++k) {
      const Filled& f = state.filled[k];
      texts_ += f.data.text;
      const auto textEnd = static_cast<uint32_t>(texts_.size());
      texts_ += f.label;
      fields_.push_back({f.rect.GetTop(), f.rect.GetLeft(), f.rect.GetWidth(), f.rect.GetHeight(), textEnd,
                         static_cast<uint32_t>(texts_.size()), f.position,
                         static_cast<uint8_t>(ClampLevel(f.data.ocrLevel)),
                         static_cast<uint8_t>(ClampLevel(f.data.catLevel)), f.data.ocrSuspect, f.data.catSuspect});
    }
  }

  const std::string& LastName() const { return lastName_; }

  std::shared_ptr<CCard> Build() const override {
    std::vector<int32_t> positions;
    positions.reserve(fields_.size());
    for (const Field& f : fields_) positions.push_back(f.position);
    return AssembleCard(*plan_->emptyCard, cardId_, positions, [&](CCard& card, size_t k) {
      const Field& f = fields_[k];
      const CRectangle rect(f.top, f.left, f.width, f.height);
      card.SetDataInPlace(f.position, std::string(Text(k)), std::string(Label(k)), &rect, f.ocrLevel, f.catLevel,
                          f.ocrSuspect, f.catSuspect);
    }, lastName_);
  }

 private:
  std::shared_ptr<const CustomFieldPlan> plan_;
  int32_t cardId_;
  std::string lastName_;
};

bool CCardStoreMgr::ReadFields::SameAs(const ReadFields& other) const {
  if (fields_.size() != other.fields_.size() || texts_ != other.texts_) return false;
  for (size_t k = 0; k < fields_.size(); ++k) {
    const Field& a = fields_[k];
    const Field& b = other.fields_[k];
    if (a.position != b.position || a.textEnd != b.textEnd || a.labelEnd != b.labelEnd) return false;
  }
  return true;
}

void CCardStoreMgr::RaisePlanErrors(const CustomFieldPlan& plan) {
  if (plan.emptyCardError) std::rethrow_exception(plan.emptyCardError);
  if (plan.error) throw *plan.error;
}

std::shared_ptr<CCard> CCardStoreMgr::ReadCard(int32_t cardId, const std::string& customFields,
                                               const ICardValues& values, std::shared_ptr<const ReadFields>* fields) {
  auto plan = PlanCustomFields(customFields);
  RaisePlanErrors(*plan);
  const PreparedNamesReader& reader = ReaderFor(values, plan->valueNames, plan->serial);
  const ReadState& state = ReadAll(plan->valueNames, plan->emptyCard->NumFields(),
                                   [&](const std::string&, size_t k, std::string& scratch) { return reader.View(k, scratch); });
  // The one check left to setting the fields: the name holds the last name.
  std::string_view nameText;
  constexpr int32_t kNamePosition = StandardFieldIndex("Name") + 1;
  for (size_t k = 0; k < state.positions.size(); ++k)
    if (state.positions[k] == kNamePosition) nameText = state.filled[k].data.text;
  CCard::CheckLastName(nameText, state.lastName);

  auto read = std::make_shared<const ReadValues>(plan, cardId, state);
  std::string lastName = read->LastName();
  if (fields) *fields = read;
  return CCard::Deferred(cardId, std::move(lastName), std::move(read));
}

std::shared_ptr<const CCard> CCardStoreMgr::Layout(const std::string& customFields) {
  auto plan = PlanCustomFields(customFields);
  RaisePlanErrors(*plan);
  return plan->emptyCard;
}

template <class Read>
std::shared_ptr<CCard> CCardStoreMgr::Build(int32_t cardId, const CustomFieldPlan& plan, const Read& read) {
  RaisePlanErrors(plan);
  // Every field is read and checked first, in order, so that the fields with
  // text can then become the card's own in one allocation; a field's text
  // moves into the card.
  ReadState& state = ReadAll(plan.valueNames, plan.emptyCard->NumFields(), read);
  return AssembleCard(*plan.emptyCard, cardId, state.positions, [&](CCard& card, size_t k) {
    Filled& field = state.filled[k];
    FieldData& data = field.data;
    card.SetDataInPlace(field.position, std::move(data.text), field.label, &field.rect, ClampLevel(data.ocrLevel),
                        ClampLevel(data.catLevel), data.ocrSuspect, data.catSuspect);
  }, state.lastName);
}

}  // namespace ombrel
