#include "ombrel/cardstore/ccardstoremgr.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/cards/field_catalogue.h"
#include "ombrel/cardstore/cmemorycardstore.h"
#include "ombrel/foundation/error.h"
#include "support/cards.h"
#include "support/error_text.h"
#include "support/fake_card_store.h"

namespace ombrel {
namespace {

// One manager wrapper, called the way the rest of the system calls it.
struct Wrapper {
  std::string member;
  std::function<void(CCardStoreMgr&)> call;
  std::string failure;  // its own message; "" for the lenient GetValue
};

const std::vector<Wrapper> kWrappers = {
    {"Connect", [](CCardStoreMgr& m) { m.Connect(); }, "Failed to connect properly to card store"},
    {"Disconnect", [](CCardStoreMgr& m) { m.Disconnect(); }, "Failed to disconnect properly from card store"},
    {"GetNumberOfCards", [](CCardStoreMgr& m) { m.GetNumberOfCards(); }, "Failed to get number of cards"},
    {"GetCardID", [](CCardStoreMgr& m) { m.GetCardID(0); }, "Failed to get cardId for card: 0"},
    {"CardExists", [](CCardStoreMgr& m) { m.CardExists(12); }, "Failed to find if card exist for cardID: 12"},
    {"GetCardDIB", [](CCardStoreMgr& m) { m.GetCardDIB(12); }, "Failed to get card image for card: 12"},
    {"GetBackDIB", [](CCardStoreMgr& m) { m.GetBackDIB(12); }, "Failed to get back image for card: 12"},
    {"SetCardDIB", [](CCardStoreMgr& m) { m.SetCardDIB(12, 3); }, "Failed to set card image for card: 12"},
    {"SetBackDIB", [](CCardStoreMgr& m) { m.SetBackDIB(12, 3); }, "Failed to set back image for card: 12"},
    {"HasFrontImage", [](CCardStoreMgr& m) { m.HasFrontImage(12); },
     "Failed to find out if front image exists for card: 12"},
    {"HasBackImage", [](CCardStoreMgr& m) { m.HasBackImage(12); },
     "Failed to find out if back image exists for card: 12"},
    {"GetLabels", [](CCardStoreMgr& m) { m.GetLabels("Phone"); }, "Failed to get labels for: Phone"},
    {"GetCustomFields", [](CCardStoreMgr& m) { m.GetCustomFields(); }, "Failed to get list of custom fields"},
    {"GetCategories", [](CCardStoreMgr& m) { m.GetCategories(); }, "Failed to get categories"},
    {"PutValue", [](CCardStoreMgr& m) { m.PutValue(12, "Title", "CEO"); },
     "Failed to put value for card with ID: 12 and field name: Title"},
    {"DeleteCard", [](CCardStoreMgr& m) { m.DeleteCard(12); }, "Failed to delete card with ID: 12"},
    {"BeginUpdate", [](CCardStoreMgr& m) { m.BeginUpdate(); }, "Failed to Begin Updates"},
    {"CommitUpdate", [](CCardStoreMgr& m) { m.CommitUpdate(); }, "Failed to Commit Updates"},
    {"AbortUpdate", [](CCardStoreMgr& m) { m.AbortUpdate(); }, "Failed to Abort Updates"},
    {"GetValue", [](CCardStoreMgr& m) { m.GetValue(12, "Title"); }, ""},
    {"GetCard", [](CCardStoreMgr& m) { m.GetCard(12); }, "Failed to get list of custom fields"},
};

// A manager over a fake store holding card 12.
struct Managed {
  std::shared_ptr<FakeCardStore> store = std::make_shared<FakeCardStore>();
  CCardStoreMgr mgr;
  Managed() {
    store->AddCard(12, {{"Name", "Ann Lee"}, {"Title", "CEO"}});
    mgr.SetCardStore(store);
  }
};

// Without a store every wrapper raises the same error. A failing call
// raises the wrapper's message and the store's last error as a trap; a store
// answering non-zero even on success fails the same way.
TEST(CCardStoreMgrTest, FailureRaisesItsOwnMessageThenTheStoresLastError) {
  CCardStoreMgr none;
  for (const Wrapper& w : kWrappers) {
    EXPECT_EQ(ErrorText([&] { w.call(none); }), "Cardstore object has not been set") << w.member;
    Managed failing, odd;
    failing.store->Fail(w.member == "GetCard" ? "GetCustomFields" : w.member, 5, "locked");
    odd.store->successStatus = -1;
    odd.store->lastError = "odd store";
    EXPECT_EQ(TrapText([&] { w.call(failing.mgr); }), w.failure.empty() ? "no trap" : w.failure + "\r\nlocked");
    EXPECT_EQ(failing.store->CallCount("GetLastError"), w.failure.empty() ? 0 : 1) << w.member;
    EXPECT_EQ(TrapText([&] { w.call(odd.mgr); }), w.failure.empty() ? "no trap" : w.failure + "\r\nodd store");
  }
  EXPECT_EQ(none.GetLastError(), "");
}

TEST(CCardStoreMgrTest, CardExistsAsksTwiceAndBelievesTheSecondAnswer) {
  Managed m;
  EXPECT_TRUE(m.mgr.CardExists(12));
  EXPECT_EQ(m.store->calls, (std::vector<std::string>{"CardExists 12", "CardExists 12"}));
  m.store->Fail("CardExists", 1, "first answer lost").Times(1);
  EXPECT_TRUE(m.mgr.CardExists(12));
  m.store->calls.clear();
  m.store->Fail("CardExists", 0, "").Times(1);  // the first call "succeeds" without answering
  m.store->Fail("CardExists", 7, "gone");
  EXPECT_EQ(ErrorText([&] { m.mgr.CardExists(12); }), "Failed to find if card exist for cardID: 12\r\ngone");
  EXPECT_EQ(m.store->CallCount("CardExists"), 2);
  m.store->SetValue(12, "Title", "  CEO ");
  EXPECT_EQ(m.mgr.GetValue(12, "Title"), "  CEO ");  // values come raw; only card reading trims
}

// The missing-member error names the member; a store without GetLastError
// fails only when a failure needs its text. The in-memory store keeps no
// error text and declares no custom fields.
TEST(CCardStoreMgrTest, AStoreWithoutAMemberFailsOnlyWhenItIsCalled) {
  auto missing = [](const std::function<void()>& f) -> std::string {
    try {
      f();
    } catch (const Error& e) {
      if (e.Number() != kMissingMemberErrorNumber) return "wrong error: " + e.Description();
      for (const char* member : {"GetLastError", "GetCustomFields", "HasBackImage"})
        if (e.Description().find(member) != std::string::npos) return member;
      return "other member: " + e.Description();
    }
    return "<no error>";
  };
  Managed m;
  m.store->Lack("GetLastError");
  m.store->Lack("HasBackImage");
  EXPECT_EQ(m.mgr.GetNumberOfCards(), 1);
  EXPECT_EQ(missing([&] { m.mgr.HasBackImage(12); }), "HasBackImage");
  m.store->Fail("DeleteCard", 2, "in use");
  EXPECT_EQ(missing([&] { m.mgr.DeleteCard(12); }), "GetLastError");

  auto memory = std::make_shared<CMemoryCardStore>();
  memory->AddCard(MakeCard(4));
  CCardStoreMgr mgr;
  mgr.SetCardStore(memory);
  EXPECT_EQ(missing([&] { mgr.GetNumberOfCards(); }), "GetLastError");  // the store answers -1
  EXPECT_EQ(missing([&] { mgr.DeleteCard(99); }), "GetLastError");
  EXPECT_EQ(missing([&] { mgr.GetLastError(); }), "GetLastError");
  EXPECT_EQ(missing([&] { mgr.GetCustomFields(); }), "GetCustomFields");
  EXPECT_EQ(missing([&] { mgr.GetCard(4); }), "GetCustomFields");
  EXPECT_EQ(mgr.GetCardID(0), 4);
  EXPECT_EQ(mgr.GetValue(4, "Name.Rectangle"), "");
}

// A store holding every value a card reader asks for.
class CardReadingTest : public ::testing::Test {
 protected:
  void SetUp() override { mgr_.SetCardStore(store_); }
  std::shared_ptr<FakeCardStore> store_ = std::make_shared<FakeCardStore>();
  CCardStoreMgr mgr_;
};

// What a read gave: each field holding a text or label ("Title=Manager
// T:20,L:10,W:100,H:40 90/80 O-": levels OCR/CAT, then O and C for the
// suspect answers), the last name and the read-only fields; or the error.
std::string Brief(const std::function<std::shared_ptr<CCard>()>& read) {
  try {
    auto card = read();
    std::string out;
    for (int32_t i = 1; i <= card->NumFields(); ++i) {
      const CCardField& f = card->FieldAt(i);
      if (!f.HasText() && f.Label().empty()) continue;
      out += f.Name() + "=" + f.Text() + (f.Label().empty() ? "" : " [" + f.Label() + "]") + " " + f.GetRect().ToStr() +
             " " + std::to_string(f.GetOcrConfLevel()) + "/" + std::to_string(f.GetCatConfLevel()) + " " +
             (f.IsOcrSuspect() ? "O" : "-") + (f.IsCatSuspect() ? "C" : "-") + (f.IsReadOnlyType() ? " RO" : "") + "; ";
    }
    return out + "last " + card->GetLastName();
  } catch (const Error& e) {
    return "error " + e.Description();
  }
}

// A scan's values over a lookup, offering no preparation: read name by name.
struct LookedUpValues : ICardValues {
  std::function<std::string(std::string_view)> find;
  std::string Get(std::string_view name) const override { return find(name); }
};

// The fields with text, position=text[label], of a card or of what ReadCard
// read of one.
std::string FieldsWithText(const CCard& card) {
  std::string out;
  for (int32_t i = 1; i <= card.NumFields(); ++i)
    if (card.FieldAt(i).HasText()) out += std::to_string(i) + "=" + card.FieldAt(i).Text() + "[" + card.FieldAt(i).Label() + "];";
  return out;
}
std::string FieldsWithText(const CCardStoreMgr::ReadFields& read) {
  std::string out;
  for (size_t k = 0; k < read.Size(); ++k)
    out += std::to_string(read.Position(k)) + "=" + std::string(read.Text(k)) + "[" + std::string(read.Label(k)) + "];";
  return out;
}

// GetCard, both BuildCards and ReadCard read the same cards and raise the
// same errors, ReadCard while reading (its card is built later); the
// BuildCards ask for the same values; the value reader gets an empty value
// to fill every time, so one that appends reads right.
TEST_F(CardReadingTest, EveryWayOfReadingGivesTheSameCardOrError) {
  struct Case { std::string customFields; FakeCardStore::Values values; std::string expected; };
  const std::string title = "Title=Manager ";
  const std::string noRect = "T:0,L:0,W:0,H:0 ";
  const std::vector<Case> cases = {
      {"", {{"Title.Rectangle", " 10  20 110 60 "}}, title + "T:20,L:10,W:100,H:40 100/100 --; last "},
      {"", {{"Title.Rectangle", "10 20 5 40"}}, title + noRect + "100/100 --; last "},
      {"", {{"Title.Rectangle", "+10 0020 1e2 60.5"}}, title + "T:20,L:10,W:90,H:40 100/100 --; last "},
      {"", {{"Title.Rectangle", "999999999 0 1000000000 -1.5e0"}}, title + noRect + "100/100 --; last "},
      {"", {{"Title.Rectangle", "999999999 0 1000000000 3"}}, title + "T:0,L:999999999,W:1,H:3 100/100 --; last "},
      {"", {{"Title.Rectangle", "10 20 30"}},
       "error Failed to get field data for field: Title\r\nIncorrect rectangle information: 10 20 30"},
      {"", {{"Title.Rectangle", "a 2 3 4"}},
       "error Failed to get field data for field: Title\r\nCannot convert string: a to number in \"Title.Rectangle\": a 2 3 4"},
      {"", {{"Title.Rectangle", "99999999999 2 3 4"}},
       "error Failed to get field data for field: Title\r\nOverflow in \"Title.Rectangle\": 99999999999 2 3 4"},
      // A width, or an area, beyond 32 bits fails the field there, not later where the card is built.
      {"", {{"Title.Rectangle", "-5 0 2147483647 1"}},
       "error Failed to get field data for field: Title\r\nOverflow in \"Title.Rectangle\": -5 0 2147483647 1"},
      {"", {{"Title.Rectangle", "0 0 2147483647 2147483647"}},
       "error Failed to get field data for field: Title\r\nOverflow in \"Title.Rectangle\": 0 0 2147483647 2147483647"},
      {"", {{"Title.Confidence Levels", "150 -3"}}, title + noRect + "100/100 --; last "},
      {"", {{"Title.Confidence Levels", "101 0"}}, title + noRect + "100/0 --; last "},
      {"", {{"Title.Confidence Levels", "099 2147483647"}}, title + noRect + "99/100 --; last "},
      {"", {{"Title.Confidence Levels", "-0 +7"}}, title + noRect + "0/7 --; last "},
      {"", {{"Title.Confidence Levels", "80"}},
       "error Failed to get field data for field: Title\r\nIncorrect confidence levels: 80"},
      {"", {{"Title.Confidence Levels", "2147483648 1"}},
       "error Failed to get field data for field: Title\r\nOverflow in \"Title.Confidence Levels\": 2147483648 1"},
      {"", {{"Title.Suspect Info", "1 0"}}, title + noRect + "100/100 O-; last "},
      {"", {{"Title.Suspect Info", "0x1"}}, title + noRect + "100/100 -C; last "},
      {"", {{"Title.Suspect Info", ""}}, title + noRect + "100/100 --; last "},
      {"", {{"Title.Suspect Info", "1\xC3\xA9" "0"}}, title + noRect + "100/100 O-; last "},  // three characters
      {"", {{"Title.Suspect Info", "10"}},
       "error Failed to get field data for field: Title\r\nIncorrect suspect info: 10"},
      {"", {{"Title.Suspect Info", "0 2"}},
       "error Failed to get field data for field: Title\r\nIncorrect suspect info: 0 2"},
      // A whole card: geometry only where it belongs, hidden custom fields not read.
      {"Nickname\tTEXT\tVISIBLE\tREADWRITE\r\nSecret\tTEXT\tHIDDEN\tREADWRITE\r\nBadge\tTEXT\tVISIBLE\tREADONLY",
       {{"Name", " Ann  Lee "}, {"Name.Rectangle", "10 20 110 60"}, {"Name.Confidence Levels", "90 80"},
        {"Name.Suspect Info", "0 1"}, {"Phone 1", "555"}, {"Phone 1.Label", "Work"}, {"Email 3", "a@b.c"},
        {"Email 3.Label", "Private"}, {"Notes", "met"}, {"Notes.Rectangle", "1 1 9 9"}, {"Categories", "A, B"},
        {"Verified", "Yes"}, {"Nickname", "Annie"}, {"Secret", "hidden"}, {"Badge", "B-17"},
        {"Badge.Suspect Info", "1 0"}, {"Last Name", " Lee "}},
       "Name=Ann  Lee T:20,L:10,W:100,H:40 90/80 -C; " + title + noRect + "100/100 --; Phone 1=555 [Work] " + noRect +
           "100/100 --; Email 3=a@b.c [Private] " + noRect + "100/100 --; Verified=Yes " + noRect +
           "100/100 --; Notes=met " + noRect + "100/100 --; Categories=A, B " + noRect + "100/100 --; Nickname=Annie " +
           noRect + "100/100 --; Badge=B-17 " + noRect + "100/100 O- RO; last Lee"},
      {"", {{"Name", "John Smyth"}, {"Last Name", "Smith"}},
       "error Name field does not contain given last name: Smith"},
      {"Nickname\tTEXT", {}, "error List index out of range: 3"},
      {"Nickname\tTEXT\tVISIBLE", {}, "error List index out of range: 4"},
      // Only visible text fields are read.
      {"Nickname\tNUMBER\tVISIBLE", {{"Nickname", "N"}}, title + noRect + "100/100 --; last "},
      {"Nickname\tTEXT\tHIDDEN", {{"Nickname", "N"}}, title + noRect + "100/100 --; last "},
      {"\r\n\r\nNickname\tTEXT\tVISIBLE\tREADWRITE\r\n\r\n", {{"Nickname", "N"}},
       title + noRect + "100/100 --; Nickname=N " + noRect + "100/100 --; last "},
      {"Title\tTEXT\tVISIBLE\tREADWRITE", {}, "error HashTable already contains key: Title"},
      {"", {{"Email 2", "a@b.c"}, {"Email 2.Rectangle", "5 5 1 1 1"}},
       "error Failed to get field data for field: Email 2\r\nIncorrect rectangle information: 5 5 1 1 1"},
      {"Nick\tTEXT\tVISIBLE\tRW", {{"Nick", "N"}, {"Nick.Suspect Info", "yes"}},
       "error Failed to get field data for field: Nick\r\nIncorrect suspect info: yes"},
  };
  // The whole card, for comparing the ways of reading.
  auto full = [](const std::function<std::shared_ptr<CCard>()>& read) {
    try {
      auto card = read();
      std::string got = card->ToStr() + card->GetLastName();
      for (int32_t i = 1; i <= card->NumFields(); ++i) got += card->FieldAt(i).IsReadOnlyType() ? "R" : "-";
      return got;
    } catch (const Error& e) {
      return "error " + e.Description();
    }
  };
  int32_t id = 0;
  for (const Case& c : cases) {
    store_->customFields = c.customFields;
    FakeCardStore::Values values = c.values;
    values.emplace("Title", " Manager\t");
    store_->AddCard(++id, values);
    SCOPED_TRACE(std::to_string(id) + ": " + c.expected);
    EXPECT_EQ(Brief([&] { return mgr_.GetCard(id); }), c.expected);
    if (!c.expected.starts_with("error")) {
      EXPECT_EQ(mgr_.GetCard(id)->GetStoredCardId(), id);
    }
    auto find = [&](std::string_view name) { return store_->FindValue(id, std::string(name)).value_or(""); };
    std::vector<std::string> askedByGetter, askedByReader;
    const std::string viaGetCard = full([&] { return mgr_.GetCard(id); });
    EXPECT_EQ(full([&] {
                return mgr_.BuildCard(id, c.customFields, [&](const std::string& name) {
                  askedByGetter.push_back(name);
                  return find(name);
                });
              }),
              viaGetCard);
    EXPECT_EQ(full([&] {
                return mgr_.BuildCard(id, c.customFields, [&](std::string_view name, std::string& value) {
                  askedByReader.emplace_back(name);
                  value += find(name);
                });
              }),
              viaGetCard);
    EXPECT_EQ(askedByReader, askedByGetter);

    std::shared_ptr<const CCardStoreMgr::ReadFields> read;
    std::string readBeforeBuilt;
    EXPECT_EQ(full([&] {
                LookedUpValues values;
                values.find = find;
                auto card = mgr_.ReadCard(id, c.customFields, values, &read);
                readBeforeBuilt = FieldsWithText(*read) + (card->IsPending() ? " pending " : " built ") +
                                  std::to_string(card->GetCardID()) + " " + card->GetLastName();
                return card;
              }),
              viaGetCard);
    if (!c.expected.starts_with("error")) {
      auto built = mgr_.GetCard(id);
      EXPECT_EQ(readBeforeBuilt, FieldsWithText(*built) + " pending " + std::to_string(id) + " " + built->GetLastName());
    } else {
      EXPECT_EQ(readBeforeBuilt, "") << "raised while reading, not when built";
    }
  }
}

// A reader's own error is wrapped only while it reads a field's data.
TEST_F(CardReadingTest, AFailingValueReadIsWrappedWithTheFieldNameOnlyForFieldData) {
  store_->AddCard(5, {{"Title", "CEO"}});
  store_->Lack("GetValue");
  EXPECT_EQ(ErrorText([&] { mgr_.GetCard(5); }),
            "Failed to get field data for field: Name\r\nObject doesn't support this property or method: GetValue");
  const std::vector<std::pair<std::string, std::string>> failures = {
      {"Title", "Failed to get field data for field: Title\r\nno Title"},
      {"Phone 2.Confidence Levels", "Failed to get field data for field: Phone 2\r\nno Phone 2.Confidence Levels"},
      {"Phone 2.Label", "no Phone 2.Label"},
      {"Last Name", "no Last Name"},
  };
  for (const auto& [failing, expected] : failures) {
    EXPECT_EQ(ErrorText([&] {
                mgr_.BuildCard(1, "", [&](std::string_view name, std::string& value) {
                  if (name == failing) RaiseTrap("no " + failing);
                  if (name == "Title" || name == "Phone 2") value = "x";
                });
              }),
              expected);
  }
}

TEST_F(CardReadingTest, ValuesAreAskedForInOrderAndOnlyWhenNeeded) {
  store_->customFields = "Nickname\tTEXT\tVISIBLE\tREADWRITE";
  store_->AddCard(3, {{"Phone 1", "555"}, {"Notes", "n"}, {"Phone 2.Label", "never asked"}});
  mgr_.GetCard(3);
  std::vector<std::string> expected = {"GetCustomFields"};
  for (auto name : kStandardFieldNames) {
    expected.push_back("GetValue 3 " + std::string(name));
    if (name == "Phone 1")
      for (const char* suffix : {".Rectangle", ".Confidence Levels", ".Suspect Info", ".Label"})
        expected.push_back("GetValue 3 Phone 1" + std::string(suffix));
  }
  expected.push_back("GetValue 3 Nickname");
  expected.push_back("GetValue 3 Last Name");
  EXPECT_EQ(store_->calls, expected);
}

}  // namespace
}  // namespace ombrel
