#include "dupes/reference_model.h"

#include <map>
#include <set>
#include <utility>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"

namespace ombrel {
namespace model {

namespace {

std::string Trim(const std::string& text) { return CString::TrimText(text); }
std::string Lower(const std::string& text) { return CString::LowerText(text); }

CCardStoreMgr& Mgr() { return *CardStoreMgr(); }

}  // namespace

std::shared_ptr<CCard> LoadCard(int32_t cardId) {
  auto card = Mgr().GetCard(cardId);
  if (card) card->tag = Trim(card->GetLastName() + "," + Mgr().GetValue(cardId, "First Name"));
  return card;
}

Cards GetSuspectCards() {
  std::map<std::string, int32_t> nameTable, emailTable, lastEmailTable;
  // The suspects table: insertion order plus a lookup by the ID's text.
  std::vector<std::pair<std::string, std::shared_ptr<CCard>>> suspects;
  std::set<std::string> suspectKeys;
  auto addSuspect = [&](int32_t id) {
    std::string key = std::to_string(id);
    Trap(suspectKeys.count(key) != 0, "HashTable already contains key: " + key);
    suspects.emplace_back(key, LoadCard(id));
    suspectKeys.insert(key);
  };

  const int32_t total = Mgr().GetNumberOfCards();
  for (int32_t i = 1; i <= total; ++i) {
    const int32_t id = Mgr().GetCardID(i - 1);
    const std::string first = Lower(Trim(Mgr().GetValue(id, "First Name")));
    const std::string last = Lower(Trim(Mgr().GetValue(id, "Last Name")));
    const std::string email = Lower(Trim(Mgr().GetValue(id, "Email")));

    const std::string fullName = Trim(first + " " + last);
    const std::string lastEmail = !last.empty() && !email.empty() ? last + " " + email : "";

    bool suspect = false;
    bool hasPartner = false;
    int32_t partner = 0;
    auto lookUp = [&](const std::map<std::string, int32_t>& table, const std::string& key) {
      auto it = table.find(key);
      if (it == table.end()) return false;
      suspect = hasPartner = true;
      partner = it->second;
      return true;
    };
    if (!fullName.empty()) {
      if (!lookUp(nameTable, fullName) && !lastEmail.empty()) lookUp(lastEmailTable, lastEmail);
    } else if (email.empty()) {
      suspect = true;  // no name and no e-mail: always a suspect, with no partner
    } else {
      lookUp(emailTable, email);
    }

    if (!fullName.empty() && !nameTable.count(fullName)) nameTable[fullName] = id;
    if (!email.empty() && !emailTable.count(email)) emailTable[email] = id;
    if (!lastEmail.empty() && !lastEmailTable.count(lastEmail)) lastEmailTable[lastEmail] = id;

    if (suspect) {
      addSuspect(id);
      if ((!fullName.empty() || !email.empty()) && hasPartner && !suspectKeys.count(std::to_string(partner)))
        addSuspect(partner);
    }
  }

  Cards list;
  for (const auto& [key, card] : suspects) list.push_back(card);
  Trap(list.size() != suspectKeys.size(), "Failed to identify correctly the duplicate cards");
  return list;
}

void SortCards(Cards& cards) {
  Cards out;
  while (!cards.empty()) {
    std::shared_ptr<CCard> card = cards.back();
    if (card->tag.empty()) card->tag.assign(1, ',');
    const std::string& k = card->tag;
    const int32_t n = static_cast<int32_t>(out.size());
    if (n == 0) {
      out.push_back(card);
    } else {
      // Positions are 1-based, as in the list the algorithm was written for.
      int32_t low = 1, high = n;
      while (true) {
        Trap(low > high, "Insertion sort failed");
        const int32_t probe = RoundHalfEven(low + (high - low) / 2.0);
        const std::string& p = out[probe - 1]->tag;
        if (k == p) {
          out.insert(out.begin() + (probe - 1), card);
          break;
        }
        if (k < p) {
          if (probe == low) {
            out.insert(out.begin() + (probe - 1), card);
            break;
          }
          high = probe - 1;
        } else {
          if (probe == high) {
            out.insert(out.begin() + probe, card);
            break;
          }
          low = probe + 1;
        }
      }
    }
    cards.pop_back();
  }
  const int32_t count = static_cast<int32_t>(out.size());
  for (int32_t pos = 1; pos <= count - 1; ++pos) {
    Trap(out[pos - 1]->tag > out[pos]->tag, "Sorting problem at index: " + std::to_string(pos));
    if (out[pos - 1]->tag == ",") out[pos - 1]->tag = "";
  }
  cards = std::move(out);
}

Sets FindDupes(int32_t dupeType, Cards cards) {
  if (cards.empty()) return {};
  SortCards(cards);
  Sets named, nameless;
  size_t i = 0;  // item i + 1
  while (i < cards.size()) {
    std::shared_ptr<CCard> card = cards[i];
    const std::string last = card->GetLastName();
    const std::string email = card->GetFieldText("Email").Value();
    auto set = std::make_shared<CDupeSet>();
    set->Init(card, dupeType);

    size_t j = i + 1;
    while (j < cards.size()) {
      std::shared_ptr<CCard> other = cards[j];
      const std::string otherLast = other->GetLastName();
      if (!last.empty() && !otherLast.empty() && last != otherLast) break;
      const std::string otherEmail = other->GetFieldText("Email").Value();
      if (((email == otherEmail && !email.empty()) || card->tag == other->tag) && set->AddCardIfDupe(other)) {
        cards.erase(cards.begin() + static_cast<std::ptrdiff_t>(j));  // j now names the next card
        continue;
      }
      ++j;
    }

    if (set->GetNumberOfCards() < 2) {
      ++i;
      continue;
    }
    if (!set->GetPrimaryCard()->GetFieldText("Name").Value().empty()) named.push_back(set);
    else nameless.push_back(set);
    cards.erase(cards.begin() + static_cast<std::ptrdiff_t>(i));
  }
  named.insert(named.end(), nameless.begin(), nameless.end());
  return named;
}

std::string DumpSets(const Sets& sets) {
  std::string out;
  for (const auto& set : sets) {
    out += std::to_string(set->GetType());
    out += ' ';
    out += std::to_string(set->GetPrimaryCard()->GetCardID());
    out += ':';
    for (int32_t i = 1; i <= set->GetDupes().GetNumItems(); ++i) {
      out += ' ';
      out += std::to_string(set->GetDupes().GetItemAs<CCard>(i)->GetCardID());
    }
    out += '\n';
  }
  return out;
}

}  // namespace model

namespace {

// One card's values, read through the store's own GetValue.
class StoreValues final : public ICardValues {
 public:
  StoreValues(ICardStore& store, int32_t id) : store_(store), id_(id) {}
  std::string Get(std::string_view name) const override {
    std::string value;
    if (store_.GetValue(id_, std::string(name), value) != 0) value.clear();
    return value;
  }

 private:
  ICardStore& store_;
  int32_t id_;
};

}  // namespace

Status ScanningStore::ScanCards(const std::function<bool(int32_t cardId, const ICardValues& values)>& visit) {
  ++scans;
  int32_t count = 0;
  if (Status s = inner_->GetNumberOfCards(count); s != 0) return s;
  for (int32_t i = 0; i < count; ++i) {
    int32_t id = 0;
    if (Status s = inner_->GetCardID(i, id); s != 0) return s;
    if (!visit(id, StoreValues(*inner_, id))) break;
  }
  return 0;
}

}  // namespace ombrel
