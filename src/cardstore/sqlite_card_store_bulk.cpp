// Whole-database paths of the card store: adding cards in bulk, scans in
// one SELECT, the label survey, and the database's custom fields and
// categories.
#include <set>

#include "cardstore/sqlite_card_store_internal.h"
#include "ombrel/cards/field_catalogue.h"

namespace ombrel {

using namespace sqlite_store;

namespace {

bool HasControlChars(std::string_view s) {
  for (char c : s) {
    if (static_cast<unsigned char>(c) < 0x20) return true;
  }
  return false;
}

}  // namespace

void CSqliteCardStore::Impl::AddCard(int32_t cardId, const CardValueList& values, const StoredImage* front,
                                     const StoredImage* back) {
  if (cardId <= 0) {
    Fail(kStatusBadArgument, "card ID " + std::to_string(cardId) + " is out of range (1 to 2147483647)");
  }
  std::vector<CodedValue> coded;
  coded.reserve(values.size());
  std::vector<int32_t> seen;
  seen.reserve(values.size());
  for (const auto& [name, text] : values) {
    int32_t index = names.ResolveOrFail(name);
    for (int32_t s : seen) {
      if (s == index) {
        Fail(kStatusBadArgument, "value \"" + names.Name(index) + "\" is given twice");
      }
    }
    seen.push_back(index);
    if (!text.empty()) coded.push_back({names.EnsureCode(index), text});
  }
  std::string blob;
  EncodeValues(coded, blob);
  try {
    StatementUse use(conn.St().insertCard);
    use->BindInt(1, cardId);
    use->BindBlob(2, blob);
    use->Step();
  } catch (const Failure&) {
    if (sqlite3_extended_errcode(conn.Db()) == SQLITE_CONSTRAINT_UNIQUE) {
      Fail(kStatusBadArgument, "card ID " + std::to_string(cardId) + " already exists");
    }
    throw;
  }
  if (front) images.Store(cardId, ImageSide::kFront, *front);
  if (back) images.Store(cardId, ImageSide::kBack, *back);
  order.Added(cardId);
}

Status CSqliteCardStore::AddCard(int32_t cardId, const CardValueList& values, const StoredImage* front,
                                 const StoredImage* back) {
  return impl_->Run("AddCard", cardId, [&] {
    WriteTransaction tx(*impl_);
    impl_->AddCard(cardId, values, front, back);
    tx.Commit();
  });
}

Status CSqliteCardStore::AddCardWithNextId(const CardValueList& values, const StoredImage* front,
                                           const StoredImage* back, int32_t& cardId) {
  return impl_->Run("AddCard", [&] {
    Impl& s = *impl_;
    WriteTransaction tx(s);
    int64_t next = 1;
    {
      StatementUse use(s.conn.St().maxId);
      if (use->Step() && !use->IsNull(0)) next = use->Int(0) + 1;
    }
    if (next > INT32_MAX) Fail(kStatusBadArgument, "no free card ID above 2147483647");
    s.AddCard(static_cast<int32_t>(next), values, front, back);
    tx.Commit();
    cardId = static_cast<int32_t>(next);
  });
}

Status CSqliteCardStore::DefineCustomFields(const std::vector<CustomFieldDef>& fields) {
  return impl_->Run("DefineCustomFields", [&] {
    Impl& s = *impl_;
    s.conn.RequireOpen();
    for (const auto& f : fields) {
      // The tokens travel as one tab-separated line each.
      if (f.name.empty() || HasControlChars(f.name) || HasControlChars(f.type) || HasControlChars(f.visibility) ||
          HasControlChars(f.access) || f.type.empty() || f.visibility.empty() || f.access.empty()) {
        Fail(kStatusBadArgument, "custom field \"" + f.name +
                                     "\": name, type, visibility and access must be non-empty and hold no tab or "
                                     "line break");
      }
      if (IsStandardFieldName(f.name) || f.name == kFirstNameValue || f.name == kLastNameValue ||
          f.name == kCertaintyValue) {
        Fail(kStatusBadArgument, "custom field \"" + f.name + "\" would hide the value of that name");
      }
    }
    WriteTransaction tx(s);
    Statement upsert(s.conn.Db(),
                     "INSERT INTO custom_fields (name, type, visibility, access) VALUES (?1, ?2, ?3, ?4) "
                     "ON CONFLICT (name) DO UPDATE SET type = excluded.type, visibility = excluded.visibility, "
                     "access = excluded.access");
    for (const auto& f : fields) {
      StatementUse use(upsert);
      use->BindText(1, f.name);
      use->BindText(2, f.type);
      use->BindText(3, f.visibility);
      use->BindText(4, f.access);
      use->Step();
    }
    s.names.CustomFieldsChanged();  // names resolve anew once the fields are read back
    tx.Commit();
  });
}

Status CSqliteCardStore::DefineCategories(const std::vector<std::string>& categories) {
  return impl_->Run("DefineCategories", [&] {
    Impl& s = *impl_;
    s.conn.RequireOpen();
    for (const auto& c : categories) {
      // A card's categories are one text joined by ", ", so a comma would split a name.
      if (c.empty() || HasControlChars(c) || c.find(',') != std::string::npos) {
        Fail(kStatusBadArgument, "category \"" + c + "\" must be non-empty and hold no comma or line break");
      }
    }
    WriteTransaction tx(s);
    Statement insert(s.conn.Db(), "INSERT OR IGNORE INTO categories (name) VALUES (?1)");
    for (const auto& c : categories) {
      StatementUse use(insert);
      use->BindText(1, c);
      use->Step();
    }
    tx.Commit();
  });
}

Status CSqliteCardStore::ListCustomFields(std::vector<CustomFieldDef>& fields) {
  fields.clear();
  return impl_->Run("GetCustomFields", [&] {
    impl_->ReadyToRead();
    StatementUse use(impl_->conn.St().selectCustom);
    while (use->Step()) {
      fields.push_back(
          {std::string(use->Text(0)), std::string(use->Text(1)), std::string(use->Text(2)), std::string(use->Text(3))});
    }
  });
}

Status CSqliteCardStore::ListCategories(std::vector<std::string>& categories) {
  categories.clear();
  return impl_->Run("GetCategories", [&] {
    impl_->ReadyToRead();
    StatementUse use(impl_->conn.St().selectCategories);
    while (use->Step()) categories.emplace_back(use->Text(0));
  });
}

Status CSqliteCardStore::ScanCards(const std::function<bool(int32_t, const ICardValues&)>& visit) {
  return impl_->Run("ScanCards", [&] {
    Impl& s = *impl_;
    s.ReadyToRead();
    s.card.Flush();  // the scan reads the rows
    // Its own statement: the visitor may call back into the store.
    Statement scan(s.conn.Db(), "SELECT id, vals FROM cards ORDER BY ord");
    ScanValues values(s.names);
    while (scan.Step()) {
      auto id = static_cast<int32_t>(scan.Int(0));
      values.Show(id, scan.Blob(1));
      if (!visit(id, values)) break;
    }
  });
}

Status CSqliteCardStore::ScanRecords(const std::function<bool(const CardRecordView&)>& visit) {
  return impl_->Run("ScanRecords", [&] {
    Impl& s = *impl_;
    s.ReadyToRead();
    s.card.Flush();
    Statement scan(s.conn.Db(),
                   "SELECT c.id, c.vals, "
                   "EXISTS (SELECT 1 FROM images i WHERE i.card_id = c.id AND i.side = 0), "
                   "EXISTS (SELECT 1 FROM images i WHERE i.card_id = c.id AND i.side = 1) "
                   "FROM cards c ORDER BY c.ord");
    DecodedCard card;
    CardRecordView view;
    while (scan.Step()) {
      view.id = static_cast<int32_t>(scan.Int(0));
      s.names.Decode(view.id, scan.Blob(1), card);
      view.values.clear();
      for (size_t i = 0; i < card.values.size(); ++i) {
        view.values.emplace_back(s.names.Name(card.canonIndex[i]), card.values[i].text);
      }
      view.hasFront = scan.Int(2) != 0;
      view.hasBack = scan.Int(3) != 0;
      if (!visit(view)) break;
    }
  });
}

Status CSqliteCardStore::GetLabels(const std::string& labelType, std::string& labels) {
  labels.clear();
  return impl_->Run("GetLabels", [&] {
    Impl& s = *impl_;
    s.conn.RequireOpen();
    if (labelType != "Phone" && labelType != "Email") {
      Fail(kStatusBadArgument, "unknown label type \"" + labelType + "\" (Phone or Email)");
    }
    s.ReadyToRead();
    s.card.Flush();
    std::vector<int32_t> wanted;
    for (int n = 1; n <= 6; ++n) {
      wanted.push_back(s.names.Intern(labelType + " " + std::to_string(n) + std::string(kLabelSuffix)));
    }
    std::set<std::string, std::less<>> found;
    Statement scan(s.conn.Db(), "SELECT id, vals FROM cards");
    DecodedCard card;
    while (scan.Step()) {
      s.names.Decode(static_cast<int32_t>(scan.Int(0)), scan.Blob(1), card);
      for (int32_t w : wanted) {
        std::string_view label = card.Find(w);
        if (!label.empty() && !found.count(label)) found.emplace(label);
      }
    }
    for (const auto& label : found) {
      if (!labels.empty()) labels += "\r\n";
      labels += label;
    }
  });
}

}  // namespace ombrel
