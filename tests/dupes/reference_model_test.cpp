// CDupeSearch against the plain reference model on random stores built to
// hit the hard cases: equal tags, cards without first or last name, shared
// e-mails in other case or with blanks, families sharing an e-mail, exact
// copies, compatible and conflicting variants, front images. The stores are
// read value by value, through a scan, and as SQLite files in one pass or in parts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "dupes/dupes_internal.h"
#include "dupes/reference_model.h"
#include "dupes/search_state.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/dupe_search.h"
#include "ombrel/foundation/cstring.h"
#include "support/cards.h"
#include "support/fake_card_store.h"
#include "support/scratch_dir.h"

namespace ombrel {
namespace {

using Strings = std::vector<std::string>;

class Random {
 public:
  explicit Random(uint32_t seed) : engine_(seed) {}
  // 0 .. n-1 (modulo keeps the sequence the same on every standard library).
  int Below(int n) { return static_cast<int>(engine_() % static_cast<uint32_t>(n)); }
  bool Chance(int percent) { return Below(100) < percent; }
  template <class T>
  const T& Pick(const std::vector<T>& items) {
    return items[static_cast<size_t>(Below(static_cast<int>(items.size())))];
  }

 private:
  std::mt19937 engine_;
};

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

struct Person { std::string first, last, email, title, company, phone; };

// A company's card without a person, as a crowd of them makes it: words
// from a small stock split over a few fields (a short word now and then,
// last too), a mailbox many share or none. Some copy an earlier one, or
// differ from it by a word or two.
FakeCardStore::Values CompanyCard(Random& rnd, const std::vector<FakeCardStore::Values>& earlier) {
  static const Strings stock = {"acme",   "globex", "initech", "umbrella", "north", "south", "tower", "plaza",
                                "suite",  "street", "avenue",  "floor",    "park",  "lane",  "berlin", "paris",
                                "12345",  "67890",  "sales",   "service",  "gmbh",  "corp",  "of",     "at",
                                "5",      "ab",     "x",       "ÉTÉ",      "Ünion", "Tower", "PLAZA",  "lager"};
  static const Strings mailboxes = {"", "", "info@acme.com", "INFO@acme.com ", "kontakt@globex.de", "office@x.eu"};
  const std::vector<std::string> fields = {"Company", "Address", "Notes", "Other"};
  FakeCardStore::Values v;
  if (!earlier.empty() && rnd.Chance(55)) {
    v = earlier[static_cast<size_t>(rnd.Below(static_cast<int>(earlier.size())))];
    if (rnd.Chance(40)) return v;  // the same card scanned again
    // A word or two read otherwise, added or lost, or another mailbox.
    for (int change = 1 + rnd.Below(2); change > 0; --change) {
      std::string& text = v[rnd.Pick(fields)];
      const int what = rnd.Below(4);
      if (what == 0) text += " " + rnd.Pick(stock);
      else if (what == 1) text = text.substr(0, text.rfind(' ') == std::string::npos ? 0 : text.rfind(' '));
      else if (what == 2) text = rnd.Pick(stock) + " " + text;
      else v["Email"] = rnd.Pick(mailboxes);
    }
  } else {
    for (const std::string& field : fields) {
      if (rnd.Chance(30)) continue;
      std::string text;
      for (int w = rnd.Below(5); w >= 0; --w) text += (text.empty() ? "" : rnd.Chance(10) ? "\r\n" : " ") + rnd.Pick(stock);
      v[field] = text;
    }
    v["Email"] = rnd.Pick(mailboxes);
  }
  std::erase_if(v, [](const auto& entry) { return CString::TrimText(entry.second).empty(); });
  return v;
}

// A store of n cards. A few people, whose cards vary in the ways that
// matter to the search; some cards copy earlier ones exactly; some have no
// name at all (most of them when crowded, and those company cards).
std::shared_ptr<FakeCardStore> RandomStore(uint32_t seed, int n, bool crowded = false) {
  Random rnd(seed);
  const Strings firsts = {"John", "Jane", "Ann", "Bob", "Mary Ann", "Li"};
  const Strings lasts = {"Smith", "Smyth", "Lee", "van Dijk", "O'Neil", "'t Hooft", "Ng"};
  const Strings titles = {"CEO", "CTO", "Sales", "Engineer"};
  const Strings companies = {"Acme Corp", "Acme Corporation", "Globex", "Initech"};
  const Strings words = {"north", "south", "tower", "plaza", "suite", "main",
                         "street", "avenue", "floor", "park", "at", "to"};
  const Strings categories = {"Clients", "Golf", "Suppliers", "Clients, Golf"};
  const Strings namelessEmails = {"info@acme.com", "INFO@acme.com", "sales@globex.com"};

  std::vector<Person> people(static_cast<size_t>(std::max(2, n / 4)));
  for (Person& person : people) {
    person.first = rnd.Pick(firsts);
    person.last = rnd.Pick(lasts);
    std::string local = person.first.substr(0, person.first.find(' ')) + "." + person.last;
    std::erase_if(local, [](char c) { return c == ' ' || c == '\''; });
    // Some families share one address.
    person.email = rnd.Chance(25) ? "family." + person.last.substr(person.last.size() - 2) + "@home.net"
                                  : Upper(local.substr(0, 1)) + local.substr(1) + "@x.com";
    person.title = rnd.Pick(titles);
    person.company = rnd.Pick(companies);
    person.phone = "555 0" + std::to_string(100 + rnd.Below(900));
  }

  auto store = std::make_shared<FakeCardStore>();
  store->logCalls = false;
  std::vector<int32_t> ids;
  for (int i = 0; i < n; ++i) ids.push_back(static_cast<int32_t>(i * 3 + 1 + rnd.Below(3)));
  for (int i = n - 1; i > 0; --i) std::swap(ids[static_cast<size_t>(i)], ids[static_cast<size_t>(rnd.Below(i + 1))]);

  std::vector<FakeCardStore::Values> made;
  for (int i = 0; i < n; ++i) {
    FakeCardStore::Values v;
    auto put = [&](const std::string& name, const std::string& value) {
      if (!value.empty()) v[name] = value;
    };
    auto someWords = [&](int count) {
      std::string text;
      for (int w = 0; w < count; ++w) text += (w ? " " : "") + rnd.Pick(words);
      return text;
    };
    int kind = rnd.Below(100);
    if (crowded && kind < 70) {
      v = CompanyCard(rnd, made);
    } else if (kind < 10 && !made.empty()) {
      v = made[static_cast<size_t>(rnd.Below(static_cast<int>(made.size())))];  // an exact copy
    } else if (kind < 25) {
      // No name at all: only content and maybe a shared e-mail.
      if (rnd.Chance(40)) put("Email", rnd.Pick(namelessEmails));
      if (rnd.Chance(70)) put("Company", rnd.Pick(companies));
      if (rnd.Chance(70)) put("Address", someWords(3 + rnd.Below(6)));
      if (rnd.Chance(30)) put("Notes", someWords(2 + rnd.Below(4)));
      if (rnd.Chance(30)) put("Phone", "555 0" + std::to_string(100 + rnd.Below(5)));
    } else {
      const Person& person = rnd.Pick(people);
      std::string first = person.first, last = person.last, email = person.email;
      int f = rnd.Below(100);
      if (f < 8) first.clear();
      else if (f < 15) first = Upper(first);
      else if (f < 20) first = " " + first + " ";
      else if (f < 25) first = rnd.Pick(firsts);
      int l = rnd.Below(100);
      if (l < 7) last.clear();
      else if (l < 15) last = Upper(last);
      int e = rnd.Below(100);
      if (e < 10) email = Upper(email);
      else if (e < 20) email = "  " + email + " ";
      else if (e < 30) email.clear();
      else if (e < 35) email = rnd.Pick(people).email;
      put("First Name", first);
      put("Last Name", last);
      std::string name = CString::TrimText(CString::TrimText(first) + " " + last);
      if (!last.empty() && rnd.Chance(10)) name = CString::TrimText(first) + "  " + last;  // blanks inside
      put("Name", name);
      put("Email", email);
      int t = rnd.Below(100);
      put("Title", t < 50 ? person.title : t < 75 ? "" : rnd.Pick(titles));
      put("Company", rnd.Chance(70) ? person.company : "");
      int ph = rnd.Below(100);
      put("Phone", ph < 60 ? person.phone : ph < 80 ? "" : "555 0999");
      if (rnd.Chance(20)) {
        put("Phone 1", person.phone);
        put("Phone 1.Label", rnd.Chance(50) ? "Work" : "Home");
      }
      if (rnd.Chance(30)) put("Categories", rnd.Pick(categories));
      if (rnd.Chance(15)) put("Address", someWords(4 + rnd.Below(4)));
      // The field test leaves the dates out, not the field after them.
      if (rnd.Chance(40)) put("Creation Date", "2024-0" + std::to_string(1 + rnd.Below(9)) + "-1" + std::to_string(rnd.Below(10)));
      if (rnd.Chance(15)) put("Solvane Status", rnd.Chance(50) ? "1" : "2");
    }
    made.push_back(v);
    int32_t id = ids[static_cast<size_t>(i)];
    store->AddCard(id, v);
    if (rnd.Chance(20)) store->frontDib[id] = 100 + id;
  }
  return store;
}

template <class T>
std::vector<std::shared_ptr<T>> FromList(const CList& list) {
  std::vector<std::shared_ptr<T>> items;
  for (int32_t i = 1; i <= list.GetNumItems(); ++i) items.push_back(list.GetItemAs<T>(i));
  return items;
}

model::Cards Clones(const model::Cards& cards) {
  model::Cards copies;
  for (const auto& card : cards) copies.push_back(card->Clone());
  return copies;
}

CList ToList(const model::Cards& cards) {
  CList list;
  for (const auto& card : cards) list.AddItem(card);
  return list;
}

TEST(ReferenceModelTest, SearchMatchesTheModelOnRandomStores) {
#if defined(__SANITIZE_ADDRESS__)
  constexpr int kStores = 60;  // instrumented builds run the same kinds of store, fewer of them
#else
  constexpr int kStores = 240;
#endif
  const RestoreSearchState restore;
  const ScratchDir dir("ombrel-model");
  const char* kinds[] = {"", ", scanned", ", in SQLite", ", in SQLite read in parts"};
  int mismatches = 0;
  // What the stores exercised, so that a generator gone dull is noticed.
  int sets[4] = {0, 0, 0, 0}, dupes[4] = {0, 0, 0, 0}, namelessSets = 0, crowdedNameless = 0, newPrimaries = 0,
      multiDupeSets = 0, scanned = 0;

  for (uint32_t seed = 1; seed <= kStores && mismatches < 3; ++seed) {
    Random sizes(seed * 7919);
    // Every tenth store is crowded with hundreds of cards without a name.
    const bool crowded = seed % 10 == 0;
    const int n = crowded ? 200 + sizes.Below(300) : 10 + (sizes.Below(100) < 80 ? sizes.Below(60) : sizes.Below(291));
    auto fake = RandomStore(seed, n, crowded);
    const uint32_t kind = seed % 4;
    fake->offersScan = kind == 1;
    dupes_internal::PartScanThreshold() = kind == 3 ? 0 : restore.threshold;
    CardStoreMgr() = std::make_shared<CCardStoreMgr>();
    CardStoreMgr()->SetCardStore(kind < 2 ? fake : InSqlite(*fake, (dir / std::to_string(seed)).string()));
    SCOPED_TRACE("seed " + std::to_string(seed) + ", " + std::to_string(n) + " cards" + kinds[kind]);
    std::string got, want;

    // The suspects, in order, with their tags.
    CDupeSearch search;
    auto suspects = search.GetSuspectCards();
    ASSERT_TRUE(suspects);
    const model::Cards realSuspects = FromList<CCard>(*suspects), modelSuspects = model::GetSuspectCards();
    got += TaggedIds(*suspects);
    want += TaggedIds(ToList(modelSuspects));
    scanned += fake->scans > 0;

    // Sorting every card of the store: many equal tags, nameless cards.
    model::Cards all;
    for (int32_t i = 0; i < CardStoreMgr()->GetNumberOfCards(); ++i)
      all.push_back(model::LoadCard(CardStoreMgr()->GetCardID(i)));
    model::Cards allToo = Clones(all);
    CList list = ToList(all);
    search.SortCards(list);
    model::SortCards(allToo);
    got += TaggedIds(list);
    want += TaggedIds(ToList(allToo));

    std::map<int32_t, size_t> sortedAt;
    model::Cards sorted = Clones(modelSuspects);
    model::SortCards(sorted);
    for (size_t i = 0; i < sorted.size(); ++i) sortedAt[sorted[i]->GetCardID()] = i;

    // Each type groups its own copy of the suspects (grouping changes tags);
    // the first works on the cards exactly as GetSuspectCards gave them.
    const model::Cards realCopies[] = {{}, Clones(realSuspects), Clones(realSuspects)};
    std::string modelled;
    for (int32_t type : {EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE}) {
      CList cards = type == EXACT_DUPE ? *suspects : ToList(realCopies[type - 1]);
      auto found = FromList<CDupeSet>(*CDupeSearch().FindDupes(type, cards));
      auto modelSets = model::FindDupes(type, Clones(modelSuspects));
      got += model::DumpSets(found);
      modelled += model::DumpSets(modelSets);

      sets[type] += static_cast<int>(found.size());
      for (const auto& set : found) {
        dupes[type] += set->GetDupes().GetNumItems();
        crowdedNameless += crowded && set->GetPrimaryCard()->GetFieldText("Name").Value().empty();
        namelessSets += set->GetPrimaryCard()->GetFieldText("Name").Value().empty();
        multiDupeSets += set->GetDupes().GetNumItems() > 1;
      }
      // A dupe sorted before its primary: a candidate replaced the first card.
      for (const auto& set : modelSets) {
        size_t primaryAt = sortedAt[set->GetPrimaryCard()->GetCardID()];
        for (int32_t i = 1; i <= set->GetDupes().GetNumItems(); ++i)
          if (sortedAt[set->GetDupes().GetItemAs<CCard>(i)->GetCardID()] < primaryAt) {
            ++newPrimaries;
            break;
          }
      }
    }
    want += modelled;

    // The command line's way: every type in one pass over the store.
    got += "in one pass:\n";
    want += "in one pass:\n" + modelled;
    CDupeSearch()
        .FindDupesInStore({EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE},
                          [&](int32_t, std::shared_ptr<CList> found) {
                            got += found ? model::DumpSets(FromList<CDupeSet>(*found)) : "stopped\n";
                            // A set fresh from the search has nothing to save.
                            for (const auto& set : found ? FromList<CDupeSet>(*found) : std::vector<std::shared_ptr<CDupeSet>>{})
                              if (set->DupeSetNeedsSaving()) got += "needs saving: " + set->ToStr() + "\n";
                          });
    EXPECT_EQ(got, want);
    mismatches += got != want;
  }

  EXPECT_GT(sets[EXACT_DUPE], kStores * 2);
  EXPECT_GT(dupes[COMPATIBLE_DUPE], dupes[EXACT_DUPE]);
  EXPECT_GT(dupes[CONFLICT_DUPE], dupes[COMPATIBLE_DUPE]);
  EXPECT_GT(namelessSets, kStores);
  EXPECT_GT(crowdedNameless, kStores * 3);
  EXPECT_GT(multiDupeSets, kStores * 2);
  EXPECT_GT(newPrimaries, kStores * 2);
  EXPECT_EQ(scanned, kStores / 4);
}

}  // namespace
}  // namespace ombrel
