// CCardStoreMgr: the only way the rest of the system talks to a card store.
// It turns the store's statuses into raised errors with readable messages
// (its own text, CR LF, then the store's GetLastError() text) and assembles
// whole CCard objects from the many text values a store offers per card.
//
//   CardStoreMgr() = std::make_shared<CCardStoreMgr>();
//   CardStoreMgr()->SetCardStore(store);
//   CardStoreMgr()->Connect();
//   auto card = CardStoreMgr()->GetCard(CardStoreMgr()->GetCardID(0));
//
// Every wrapper raises "Cardstore object has not been set" while no store is
// set. GetValue is deliberately lenient: a value the store cannot give reads
// as empty text.
//
// Threads: BuildCard (both forms) may be called from several threads at once,
// for different cards, each with a reader of its own. Every other member
// talks to the store and is as thread-safe as the store is, which for the
// stores here means not at all; SetCardStore must not run alongside anything.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/icardstore.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

class CCardStoreMgr {
 public:
  void SetCardStore(std::shared_ptr<ICardStore> cardStoreObj) { cardStore_ = std::move(cardStoreObj); }
  std::shared_ptr<ICardStore> GetCardStore() const { return cardStore_; }

  bool Connect();
  bool Disconnect();
  int32_t GetNumberOfCards();
  int32_t GetCardID(int32_t cardIndex);
  // Asks the store twice in a row and believes only the second answer; hosts
  // have always been called this way, so the double call stays.
  bool CardExists(int32_t cardId);
  int32_t GetCardDIB(int32_t cardId);
  int32_t GetBackDIB(int32_t cardId);
  void SetCardDIB(int32_t cardId, int32_t dib);
  void SetBackDIB(int32_t cardId, int32_t dib);
  bool HasFrontImage(int32_t cardId);
  bool HasBackImage(int32_t cardId);
  std::string GetLabels(const std::string& labelType);
  std::string GetCustomFields();
  std::string GetCategories();
  std::string GetValue(int32_t cardId, const std::string& fieldName);  // failure reads as ""
  void PutValue(int32_t cardId, const std::string& fieldName, const std::string& value);
  void DeleteCard(int32_t cardId);
  bool BeginUpdate();
  bool CommitUpdate();
  bool AbortUpdate();
  // Runs body(*this) inside an update bracket. A failure inside, or of the
  // commit itself, aborts the bracket so none stays open, and travels on with
  // its own message whatever the abort answers.
  template <class Body>
  void WithinUpdate(Body body) {
    BeginUpdate();
    try {
      body(*this);
      CommitUpdate();
    } catch (...) {
      try {
        AbortUpdate();
      } catch (...) {
      }
      throw;
    }
  }
  // The store's last error text; empty while no store is set.
  std::string GetLastError();

  // While alive, a store that offers snapshots answers every read from one
  // state (ICardStore::BeginSnapshot); with any other store it does nothing.
  // Reads of many calls that must agree (the duplicate search) hold one.
  class Snapshot {
   public:
    Snapshot() = default;
    explicit Snapshot(std::shared_ptr<ICardStore> store) : store_(std::move(store)) {}
    Snapshot(Snapshot&& other) noexcept : store_(std::move(other.store_)) {}
    Snapshot& operator=(Snapshot&&) = delete;
    ~Snapshot();

   private:
    std::shared_ptr<ICardStore> store_;
  };
  // Raises "Failed to begin a consistent read" and the store's text when the
  // store cannot begin one.
  Snapshot HoldSnapshot();

  // Reads a whole card: the standard fields, the custom fields the store
  // declares, each filled field's label, rectangle, levels and suspect flags,
  // and the last name. Raises when the store's data is malformed; never
  // leaves a partial card with the caller.
  std::shared_ptr<CCard> GetCard(int32_t cardId);
  // Builds a card exactly as GetCard does, but from values already read (a
  // scan) and a custom-field text read once for many cards; GetCard is this
  // with the store's GetValue and GetCustomFields.
  std::shared_ptr<CCard> BuildCard(int32_t cardId, const std::string& customFields,
                                   const std::function<std::string(const std::string& name)>& getValue);
  // How the faster BuildCard reads a value: value arrives empty and is to be
  // set to the named value's text (left empty when the card has none). The
  // name is valid only during the call.
  using ValueReader = std::function<void(std::string_view name, std::string& value)>;
  // The same card as the BuildCard above, without a new string per value name
  // or value.
  std::shared_ptr<CCard> BuildCard(int32_t cardId, const std::string& customFields, const ValueReader& readValue);
  // The same card read from a scan's values; values that can prepare the
  // names read card after card are asked to (ICardValues::Prepare).
  std::shared_ptr<CCard> BuildCard(int32_t cardId, const std::string& customFields, const ICardValues& values);

  // Value names a field is read by: its text, rectangle, levels, suspect
  // info and label.
  static constexpr size_t kNamesPerField = 5;

  // The fields with text of a card ReadCard read, in table order (each by
  // its position, 1-based), as its deferred card keeps them (whether built
  // since or not).
  class ReadFields {
   public:
    size_t Size() const { return fields_.size(); }
    int32_t Position(size_t k) const { return fields_[k].position; }
    std::string_view Text(size_t k) const { return Piece(k == 0 ? 0 : fields_[k - 1].labelEnd, fields_[k].textEnd); }
    std::string_view Label(size_t k) const { return Piece(fields_[k].textEnd, fields_[k].labelEnd); }
    // Whether both hold the same fields with the same texts and labels.
    bool SameAs(const ReadFields& other) const;

   protected:
    ReadFields() = default;
    ~ReadFields() = default;
    struct Field {
      int32_t top = 0, left = 0, width = 0, height = 0;  // the rectangle, as plain numbers
      uint32_t textEnd = 0;
      uint32_t labelEnd = 0;
      int32_t position = 0;
      uint8_t ocrLevel = 100;
      uint8_t catLevel = 100;
      bool ocrSuspect = false;
      bool catSuspect = false;
    };
    // The texts and labels one after the other.
    std::string_view Piece(uint32_t begin, uint32_t end) const { return std::string_view(texts_).substr(begin, end - begin); }
    std::vector<Field> fields_;
    std::string texts_;
  };
  // The card BuildCard builds from a scan's values, every value read and
  // checked now (raising what BuildCard raises) but the fields built only
  // when first asked for (CCard::Deferred). fields, when given, receives the
  // card's fields with text as the card keeps them.
  std::shared_ptr<CCard> ReadCard(int32_t cardId, const std::string& customFields, const ICardValues& values,
                                  std::shared_ptr<const ReadFields>* fields = nullptr);
  // The empty card every card of that custom-field text starts as: the
  // fields' names, keys and order of ReadCard's cards. Raises what reading
  // a card with that text raises first.
  std::shared_ptr<const CCard> Layout(const std::string& customFields);

 private:
  // The custom-field text split into the fields it declares, kept for the
  // last text seen: a scan passes the same text for every card. A malformed
  // line is remembered with its error, raised once the fields before it
  // have been added, as a line-by-line reading would.
  struct CustomFieldPlan {
    std::string text;
    std::vector<CCard::CustomField> fields;
    std::optional<Error> error;
    // Every value name a card is read by: for each field in table order its
    // text, rectangle, levels, suspect info and label (kNamesPerField from
    // the field's position), then the first name and the last name. The
    // card does not hold the first name, but those who build cards from a
    // scan read it with the card (the search's sort key): named here, a
    // store that decodes only the names asked for keeps it too.
    std::vector<std::string> valueNames;
    uint64_t serial = 0;  // unique to this plan in the process
    // The empty card of these fields, which every card starts as a copy of
    // (adding the fields anew would check every name against the table for
    // every card), or what making it raised.
    std::shared_ptr<const CCard> emptyCard;
    std::exception_ptr emptyCardError;
  };

  ICardStore& Store() const;
  [[noreturn]] void RaiseFailure(const std::string& message);
  // The plan of that text, made anew only when it is not the text this
  // thread asked for last; held by the caller, it outlives a newer one.
  static std::shared_ptr<const CustomFieldPlan> PlanCustomFields(const std::string& customFields);
  // The one body of GetCard and the BuildCards; read(name, k, scratch)
  // answers the value of the plan's valueNames[k] (which is name), as a view
  // of scratch, which arrives empty, or of values the reader holds itself.
  template <class Read>
  static std::shared_ptr<CCard> Build(int32_t cardId, const CustomFieldPlan& plan, const Read& read);
  // The plan's errors, raised where a card would be made.
  static void RaisePlanErrors(const CustomFieldPlan& plan);
  // What a card ReadCard read is built from.
  class ReadValues;

  std::shared_ptr<ICardStore> cardStore_;
};

// The component's one shared manager, replaced on each connect. Null until set.
std::shared_ptr<CCardStoreMgr>& CardStoreMgr();

}  // namespace ombrel
