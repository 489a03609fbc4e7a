#include "dupes/reference_model.h"

#include <map>
#include <set>
#include <utility>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "support/fake_card_store.h"
#include "support/scratch_dir.h"

namespace ombrel {

std::shared_ptr<ICardStore> InSqlite(const FakeCardStore& fake, const std::string& path) {
  std::shared_ptr<CSqliteCardStore> sqlite = CSqliteCardStore::Open(path);
  const StoredImage png{"png", PngBytes()};
  EXPECT_EQ(sqlite->BeginUpdate(), 0);
  for (int32_t id : fake.CardOrder()) {
    const FakeCardStore::Values& v = fake.ValuesOf(id);
    EXPECT_EQ(sqlite->AddCard(id, CardValueList(v.begin(), v.end()), fake.frontDib.count(id) ? &png : nullptr), 0)
        << sqlite->GetLastError();
  }
  EXPECT_EQ(sqlite->CommitUpdate(), 0);
  return sqlite;
}

namespace model {

namespace {

std::string Trim(const std::string& text) { return CString::TrimText(text); }
CCardStoreMgr& Mgr() { return *CardStoreMgr(); }

}  // namespace

std::shared_ptr<CCard> LoadCard(int32_t cardId) {
  auto card = Mgr().GetCard(cardId);
  if (card) card->tag = Trim(card->GetLastName() + "," + Mgr().GetValue(cardId, "First Name"));
  return card;
}

Cards GetSuspectCards() {
  std::map<std::string, int32_t> nameTable, emailTable, lastEmailTable;
  Cards suspects;  // in insertion order, with a lookup by the ID's text
  std::set<std::string> suspectKeys;
  auto addSuspect = [&](int32_t id) {
    std::string key = std::to_string(id);
    Trap(suspectKeys.count(key) != 0, "HashTable already contains key: " + key);
    suspects.push_back(LoadCard(id));
    suspectKeys.insert(key);
  };

  const int32_t total = Mgr().GetNumberOfCards();
  for (int32_t i = 1; i <= total; ++i) {
    const int32_t id = Mgr().GetCardID(i - 1);
    auto key = [&](const char* name) { return CString::LowerText(Trim(Mgr().GetValue(id, name))); };
    const std::string first = key("First Name"), last = key("Last Name"), email = key("Email");
    const std::string fullName = Trim(first + " " + last);
    const std::string lastEmail = !last.empty() && !email.empty() ? last + " " + email : "";

    bool suspect = false, hasPartner = false;
    int32_t partner = 0;
    auto lookUp = [&](const std::map<std::string, int32_t>& table, const std::string& text) {
      auto it = table.find(text);
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
    if (!fullName.empty()) nameTable.emplace(fullName, id);  // the first card of a key stays
    if (!email.empty()) emailTable.emplace(email, id);
    if (!lastEmail.empty()) lastEmailTable.emplace(lastEmail, id);

    if (suspect) {
      addSuspect(id);
      if ((!fullName.empty() || !email.empty()) && hasPartner && !suspectKeys.count(std::to_string(partner)))
        addSuspect(partner);
    }
  }
  Trap(suspects.size() != suspectKeys.size(), "Failed to identify correctly the duplicate cards");
  return suspects;
}

void SortCards(Cards& cards) {
  Cards out;
  for (; !cards.empty(); cards.pop_back()) {
    std::shared_ptr<CCard> card = cards.back();
    if (card->tag.empty()) card->tag.assign(1, ',');
    const std::string& k = card->tag;
    // Positions are 1-based, as in the list the algorithm was written for.
    int32_t at = 1, low = 1, high = static_cast<int32_t>(out.size());
    while (!out.empty()) {
      Trap(low > high, "Insertion sort failed");
      const int32_t probe = RoundHalfEven(low + (high - low) / 2.0);
      const std::string& p = out[probe - 1]->tag;
      if (k == p || (k < p && probe == low)) {
        at = probe;
        break;
      }
      if (k > p && probe == high) {
        at = probe + 1;
        break;
      }
      if (k < p) high = probe - 1;
      else low = probe + 1;
    }
    out.insert(out.begin() + (at - 1), card);
  }
  for (size_t pos = 1; pos < out.size(); ++pos) {
    Trap(out[pos - 1]->tag > out[pos]->tag, "Sorting problem at index: " + std::to_string(pos));
    if (out[pos - 1]->tag == ",") out[pos - 1]->tag = "";
  }
  cards = std::move(out);
}

Sets FindDupes(int32_t dupeType, Cards cards) {
  if (cards.empty()) return {};
  SortCards(cards);
  Sets named, nameless;
  for (size_t i = 0; i < cards.size();) {
    std::shared_ptr<CCard> card = cards[i];
    const std::string last = card->GetLastName(), email = card->GetFieldText("Email").Value();
    auto set = std::make_shared<CDupeSet>();
    set->Init(card, dupeType);
    for (size_t j = i + 1; j < cards.size();) {
      std::shared_ptr<CCard> other = cards[j];
      const std::string otherLast = other->GetLastName();
      if (!last.empty() && !otherLast.empty() && last != otherLast) break;
      const std::string otherEmail = other->GetFieldText("Email").Value();
      if (((email == otherEmail && !email.empty()) || card->tag == other->tag) && set->AddCardIfDupe(other))
        cards.erase(cards.begin() + static_cast<std::ptrdiff_t>(j));  // j now names the next card
      else
        ++j;
    }
    if (set->GetNumberOfCards() < 2) {
      ++i;
      continue;
    }
    (set->GetPrimaryCard()->GetFieldText("Name").Value().empty() ? nameless : named).push_back(set);
    cards.erase(cards.begin() + static_cast<std::ptrdiff_t>(i));
  }
  named.insert(named.end(), nameless.begin(), nameless.end());
  return named;
}

std::string DumpSets(const Sets& sets) {
  std::string out;
  for (const auto& set : sets) {
    out += std::to_string(set->GetType()) + " " + std::to_string(set->GetPrimaryCard()->GetCardID()) + ":";
    for (int32_t i = 1; i <= set->GetDupes().GetNumItems(); ++i)
      out += " " + std::to_string(set->GetDupes().GetItemAs<CCard>(i)->GetCardID());
    out += "\n";
  }
  return out;
}

}  // namespace model

}  // namespace ombrel
