#include "ombrel/dupes/dupe_search.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <unordered_map>
#include <unordered_set>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/icardstore.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"
#include "dupes/dupes_internal.h"
#include "dupes/key_table.h"

namespace ombrel {

using dupes_internal::Clock;
using dupes_internal::Mgr;
using dupes_internal::SecondsSince;

namespace {

// The store behind the manager when it can be read in one pass, else null.
ICardStore* ScanningStore() {
  auto& mgr = CardStoreMgr();
  if (!mgr) return nullptr;
  auto store = mgr->GetCardStore();
  return store && store->OffersScan() ? store.get() : nullptr;
}

void Scan(ICardStore& store, const std::function<bool(int32_t, const ICardValues&)>& visit) {
  if (store.ScanCards(visit) != 0) RaiseTrap("Failed to read cards\r\n" + store.GetLastError());
}

// Trimmed and lower-cased into out; plain ASCII takes the short way.
void NormalizeKey(std::string_view raw, std::string& out) {
  size_t b = raw.find_first_not_of(" \t\r\n");
  if (b == std::string_view::npos) {
    out.clear();
    return;
  }
  size_t e = raw.find_last_not_of(" \t\r\n");
  std::string_view t = raw.substr(b, e - b + 1);
  out.assign(t);
  for (char& c : out) {
    if (static_cast<unsigned char>(c) >= 0x80) {
      out = CString::LowerText(t);
      return;
    }
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
}

std::string Tag(const CCard& card, const std::string& firstName) {
  return CString::TrimText(card.GetLastName() + "," + firstName);
}

}  // namespace

bool ShouldShowProgress(int64_t elapsedSeconds, int32_t done, int32_t total) {
  return (elapsedSeconds > 1 && done < 0.8 * total) || elapsedSeconds >= 3;
}

CDupeSearch::CDupeSearch(ISearchProgress* progress) : progress_(progress) {}

void CDupeSearch::StopSearch() { stopped_ = true; }

bool CDupeSearch::UpdateProgress(int32_t resourceId, int32_t done, int32_t total) {
  if (stopped_) return false;
  if (progress_ && !progress_->UpdateProgress(resourceId, done, total)) stopped_ = true;
  return !stopped_;
}

void CDupeSearch::SetActionText(int32_t dupeType) {
  int32_t id = search_text::kActionOther;
  if (dupeType == EXACT_DUPE) id = search_text::kActionExact;
  else if (dupeType == COMPATIBLE_DUPE) id = search_text::kActionCompatible;
  else if (dupeType == CONFLICT_DUPE) id = search_text::kActionConflict;
  if (progress_) {
    progress_->SetActionText(id);
    progress_->UpdateProgress(search_text::kReadingCards, 0, 0);
  }
}

std::shared_ptr<CCard> CDupeSearch::LoadCard(int32_t cardId) {
  try {
    CCardStoreMgr& mgr = Mgr();
    auto card = mgr.GetCard(cardId);
    if (card) card->tag = Tag(*card, mgr.GetValue(cardId, "First Name"));
    return card;
  } catch (...) {
    failedCardId_ = cardId;
    throw;
  }
}

std::shared_ptr<CList> CDupeSearch::GetAllCards() {
  CCardStoreMgr& mgr = Mgr();
  auto named = std::make_shared<CList>();
  auto nameless = std::make_shared<CList>();
  int32_t total = mgr.GetNumberOfCards();
  auto place = [&](std::shared_ptr<CCard> card) {
    (card->FieldText("Name").empty() ? nameless : named)->AddItem(std::move(card));
  };
  if (ICardStore* store = ScanningStore()) {
    std::string customFields = mgr.GetCustomFields();
    int32_t i = 0;
    Scan(*store, [&](int32_t id, const ICardValues& values) {
      if (++i > total || !UpdateProgress(search_text::kReadingCards, i, total)) return false;
      try {
        auto card = mgr.BuildCard(id, customFields,
                                  [&](std::string_view name, std::string& value) { value = values.Get(name); });
        card->tag = Tag(*card, values.Get("First Name"));
        place(std::move(card));
      } catch (...) {
        failedCardId_ = id;
        throw;
      }
      return true;
    });
  } else {
    for (int32_t i = 1; i <= total; ++i) {
      if (!UpdateProgress(search_text::kReadingCards, i, total)) break;
      place(LoadCard(mgr.GetCardID(i - 1)));
    }
  }
  nameless->Append(*named);
  return nameless;
}

std::vector<int32_t> CDupeSearch::FindSuspectIds(int32_t total) {
  // The three key tables hold the first card seen with each key.
  const size_t expected = static_cast<size_t>(std::max(total, 0));
  KeyTable byName(expected), byEmail(expected), byLastEmail(expected);
  std::vector<int32_t> suspects;
  std::unordered_set<int32_t> present;

  auto add = [&](int32_t id) {
    Trap(!present.insert(id).second, "HashTable already contains key: " + std::to_string(id));
    suspects.push_back(id);
  };
  std::string first, last, email, fullName, lastEmail;
  auto process = [&](int32_t id, std::string_view rawFirst, std::string_view rawLast, std::string_view rawEmail) {
    NormalizeKey(rawFirst, first);
    NormalizeKey(rawLast, last);
    NormalizeKey(rawEmail, email);
    // first and last are trimmed, so trimming "first last" only drops the blank when one is empty.
    fullName.assign(first);
    if (!first.empty() && !last.empty()) fullName += ' ';
    fullName += last;
    lastEmail.clear();
    if (!last.empty() && !email.empty()) lastEmail.append(last).append(1, ' ').append(email);

    bool suspect = false;
    int32_t partner = 0;
    auto lookup = [&](const KeyTable& table, const std::string& key) {
      const int32_t* found = table.Find(key);
      if (!found) return false;
      partner = *found;
      return true;
    };
    if (!fullName.empty()) {
      suspect = lookup(byName, fullName) || (!lastEmail.empty() && lookup(byLastEmail, lastEmail));
    } else {
      // No name and no e-mail: nothing to pair it by, so it is always looked at.
      suspect = email.empty() || lookup(byEmail, email);
    }
    if (!fullName.empty()) byName.Emplace(fullName, id);
    if (!email.empty()) byEmail.Emplace(email, id);
    if (!lastEmail.empty()) byLastEmail.Emplace(lastEmail, id);

    if (suspect) {
      add(id);
      if ((!fullName.empty() || !email.empty()) && !present.count(partner)) add(partner);
    }
  };

  if (ICardStore* store = ScanningStore()) {
    int32_t i = 0;
    Scan(*store, [&](int32_t id, const ICardValues& values) {
      if (++i > total || !UpdateProgress(search_text::kReadingCards, i, total)) return false;
      process(id, values.Get("First Name"), values.Get("Last Name"), values.Get("Email"));
      return true;
    });
  } else {
    CCardStoreMgr& mgr = Mgr();
    for (int32_t i = 1; i <= total; ++i) {
      if (!UpdateProgress(search_text::kReadingCards, i, total)) break;
      int32_t id = mgr.GetCardID(i - 1);
      process(id, mgr.GetValue(id, "First Name"), mgr.GetValue(id, "Last Name"), mgr.GetValue(id, "Email"));
    }
  }
  return suspects;
}

std::shared_ptr<CList> CDupeSearch::LoadSuspects(const std::vector<int32_t>& ids) {
  auto list = std::make_shared<CList>();
  std::vector<std::shared_ptr<CCard>> cards(ids.size());
  ICardStore* store = ScanningStore();
  if (store && !ids.empty()) {
    // One pass over the store builds the suspects wherever they lie; an error
    // is raised for the first failing card in suspect order, as reading them
    // one by one would.
    std::unordered_map<int32_t, size_t> slot;
    slot.reserve(ids.size());
    for (size_t k = 0; k < ids.size(); ++k) slot.emplace(ids[k], k);
    std::vector<std::exception_ptr> errors(ids.size());
    CCardStoreMgr& mgr = Mgr();
    std::string customFields = mgr.GetCustomFields();
    int32_t loaded = 0;
    int32_t wanted = static_cast<int32_t>(ids.size());
    Scan(*store, [&](int32_t id, const ICardValues& values) {
      auto it = slot.find(id);
      if (it == slot.end()) return true;
      if (!UpdateProgress(search_text::kLoadingSuspects, ++loaded, wanted)) return false;
      try {
        auto card = mgr.BuildCard(id, customFields,
                                  [&](std::string_view name, std::string& value) { value = values.Get(name); });
        card->tag = Tag(*card, values.Get("First Name"));
        cards[it->second] = std::move(card);
      } catch (...) {
        errors[it->second] = std::current_exception();
      }
      return loaded < wanted;
    });
    if (stopped_) return nullptr;
    for (size_t k = 0; k < ids.size(); ++k) {
      if (errors[k]) {
        failedCardId_ = ids[k];
        std::rethrow_exception(errors[k]);
      }
      if (!cards[k]) cards[k] = LoadCard(ids[k]);  // not met by the scan: read it alone
    }
  } else {
    for (size_t k = 0; k < ids.size(); ++k) {
      if (!UpdateProgress(search_text::kLoadingSuspects, static_cast<int32_t>(k + 1), static_cast<int32_t>(ids.size())))
        return nullptr;
      cards[k] = LoadCard(ids[k]);
    }
  }
  for (auto& card : cards) list->AddItem(std::move(card));
  return list;
}

std::shared_ptr<CList> CDupeSearch::GetSuspectCards() {
  auto start = Clock::now();
  int32_t total = Mgr().GetNumberOfCards();
  std::vector<int32_t> ids = FindSuspectIds(total);
  timings_.suspects += SecondsSince(start);
  if (stopped_) return nullptr;
  start = Clock::now();
  auto list = LoadSuspects(ids);
  timings_.loading += SecondsSince(start);
  if (stopped_ || !list) return nullptr;
  Trap(list->GetNumItems() != static_cast<int32_t>(ids.size()), "Failed to identify correctly the duplicate cards");
  return list;
}

}  // namespace ombrel
