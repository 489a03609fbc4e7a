#include "ombrel/cardstore/ccardstoremgr.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "ombrel/cards/field_catalogue.h"
#include "ombrel/cardstore/cmemorycardstore.h"
#include "ombrel/foundation/error.h"
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

const std::vector<Wrapper>& Wrappers() {
  static const std::vector<Wrapper> wrappers = {
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
  return wrappers;
}

std::shared_ptr<FakeCardStore> StoreWithCard12() {
  auto store = std::make_shared<FakeCardStore>();
  store->AddCard(12, {{"Name", "Ann Lee"}, {"Title", "CEO"}});
  return store;
}

TEST(CCardStoreMgrTest, EveryWrapperNeedsAStore) {
  CCardStoreMgr mgr;
  for (const Wrapper& w : Wrappers())
    EXPECT_EQ(ErrorText([&] { w.call(mgr); }), "Cardstore object has not been set") << w.member;
  EXPECT_EQ(mgr.GetLastError(), "");
}

TEST(CCardStoreMgrTest, FailureRaisesItsOwnMessageThenTheStoresLastError) {
  for (const Wrapper& w : Wrappers()) {
    auto store = StoreWithCard12();
    store->Fail(w.member == "GetCard" ? "GetCustomFields" : w.member, 5, "locked");
    CCardStoreMgr mgr;
    mgr.SetCardStore(store);
    std::string expected = w.failure.empty() ? "<no error>" : w.failure + "\r\nlocked";
    try {
      w.call(mgr);
      EXPECT_EQ("<no error>", expected) << w.member;
    } catch (const Error& e) {
      EXPECT_EQ(e.Description(), expected) << w.member;
      EXPECT_EQ(e.Number(), kTrapErrorNumber) << w.member;
      EXPECT_EQ(e.Source(), "TRAP") << w.member;
    }
    EXPECT_EQ(store->CallCount("GetLastError"), w.failure.empty() ? 0 : 1) << w.member;
    // A store answering non-zero even on success fails the same way.
    auto odd = StoreWithCard12();
    odd->successStatus = -1;
    odd->lastError = "odd store";
    mgr.SetCardStore(odd);
    EXPECT_EQ(ErrorText([&] { w.call(mgr); }), w.failure.empty() ? "<no error>" : w.failure + "\r\nodd store");
  }
}

TEST(CCardStoreMgrTest, WrappersHandBackTheStoresAnswers) {
  auto store = std::make_shared<FakeCardStore>();
  store->AddCard(30);
  store->AddCard(10, {{"Title", "  CEO "}});
  store->frontDib[10] = 77;
  store->backDib[30] = 88;
  store->categories = "A, B";
  CCardStoreMgr mgr;
  mgr.SetCardStore(store);
  std::string answers = std::to_string(mgr.GetNumberOfCards()) + " " + std::to_string(mgr.GetCardID(0)) + " " +
                        std::to_string(mgr.GetCardID(1)) + " " + std::to_string(mgr.GetCardDIB(10)) + " " +
                        std::to_string(mgr.GetBackDIB(30)) + " " + std::to_string(mgr.HasFrontImage(10)) +
                        std::to_string(mgr.HasFrontImage(30)) + std::to_string(mgr.HasBackImage(30)) +
                        std::to_string(mgr.CardExists(10)) + std::to_string(mgr.CardExists(11)) + " " +
                        mgr.GetCategories() + "|" + mgr.GetValue(10, "Title") + "|";
  EXPECT_EQ(answers, "2 30 10 77 88 10110 A, B|  CEO |");  // values come raw; only card reading trims

  EXPECT_TRUE(mgr.BeginUpdate());
  mgr.PutValue(10, "Title", "CTO");
  mgr.SetCardDIB(10, 5);
  mgr.DeleteCard(30);
  EXPECT_TRUE(mgr.CommitUpdate());
  EXPECT_EQ(store->FindValue(10, "Title"), "CTO");
  EXPECT_EQ(store->frontDib[10], 5);
  EXPECT_FALSE(store->HasCard(30));
}

TEST(CCardStoreMgrTest, GetValueReadsAFailureAsEmptyText) {
  auto store = StoreWithCard12();
  store->Fail("GetValue", 3, "no such value").ForField("Title");
  CCardStoreMgr mgr;
  mgr.SetCardStore(store);
  EXPECT_EQ(mgr.GetValue(12, "Title") + "|" + mgr.GetValue(12, "Name") + "|" + mgr.GetValue(99, "Name"), "|Ann Lee|");
  EXPECT_EQ(store->CallCount("GetLastError"), 0);
}

TEST(CCardStoreMgrTest, CardExistsAsksTwiceAndBelievesTheSecondAnswer) {
  auto store = StoreWithCard12();
  CCardStoreMgr mgr;
  mgr.SetCardStore(store);
  EXPECT_TRUE(mgr.CardExists(12));
  EXPECT_EQ(store->calls, (std::vector<std::string>{"CardExists 12", "CardExists 12"}));

  store->Fail("CardExists", 1, "first answer lost").Times(1);
  EXPECT_TRUE(mgr.CardExists(12));

  store->calls.clear();
  store->Fail("CardExists", 0, "").Times(1);  // the first call "succeeds" without answering
  store->Fail("CardExists", 7, "gone");
  EXPECT_EQ(ErrorText([&] { mgr.CardExists(12); }), "Failed to find if card exist for cardID: 12\r\ngone");
  EXPECT_EQ(store->CallCount("CardExists"), 2);
}

TEST(CCardStoreMgrTest, AStoreWithoutAMemberFailsOnlyWhenItIsCalled) {
  auto store = StoreWithCard12();
  store->Lack("GetLastError");
  store->Lack("HasBackImage");
  CCardStoreMgr mgr;
  mgr.SetCardStore(store);
  EXPECT_EQ(mgr.GetNumberOfCards(), 1);
  try {
    mgr.HasBackImage(12);
    ADD_FAILURE() << "no error";
  } catch (const Error& e) {
    EXPECT_EQ(e.Number(), kMissingMemberErrorNumber);
    EXPECT_NE(e.Description().find("HasBackImage"), std::string::npos) << e.Description();
  }
  store->Fail("DeleteCard", 2, "in use");
  EXPECT_NE(ErrorText([&] { mgr.DeleteCard(12); }).find("GetLastError"), std::string::npos);
}

// The in-memory store keeps no error text and declares no custom fields.
TEST(CCardStoreMgrTest, OnTheMemoryStoreFailuresEndInTheMissingGetLastError) {
  auto memory = std::make_shared<CMemoryCardStore>();
  auto card = std::make_shared<CCard>();
  card->SetCardId(4);
  memory->AddCard(card);
  CCardStoreMgr mgr;
  mgr.SetCardStore(memory);

  auto missing = [&](const std::function<void()>& f) -> std::string {
    try {
      f();
    } catch (const Error& e) {
      if (e.Number() != kMissingMemberErrorNumber) return "wrong error: " + e.Description();
      for (const char* member : {"GetLastError", "GetCustomFields"})
        if (e.Description().find(member) != std::string::npos) return member;
      return "other member: " + e.Description();
    }
    return "<no error>";
  };
  EXPECT_EQ(missing([&] { mgr.GetNumberOfCards(); }), "GetLastError");  // the store answers -1
  EXPECT_EQ(missing([&] { mgr.DeleteCard(99); }), "GetLastError");
  EXPECT_EQ(missing([&] { mgr.GetCardID(1); }), "GetLastError");
  EXPECT_EQ(missing([&] { mgr.GetLastError(); }), "GetLastError");
  EXPECT_EQ(missing([&] { mgr.GetCustomFields(); }), "GetCustomFields");
  EXPECT_EQ(missing([&] { mgr.GetCard(4); }), "GetCustomFields");
  EXPECT_EQ(missing([&] { mgr.GetCardID(0); }), "<no error>");
  EXPECT_EQ(mgr.GetCardID(0), 4);
  EXPECT_EQ(mgr.GetValue(4, "Name.Rectangle"), "");
}

// A store holding every value a card reader asks for.
class CardReadingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    store_ = std::make_shared<FakeCardStore>();
    mgr_.SetCardStore(store_);
  }

  std::string ReadError(int32_t id) {
    return ErrorText([&] { mgr_.GetCard(id); });
  }

  std::shared_ptr<FakeCardStore> store_;
  CCardStoreMgr mgr_;
};

TEST_F(CardReadingTest, SuffixedValueFormats) {
  // Expected: rect|ocr cat|ocrSusp catSusp of the Title dump, or the error after the wrapper.
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {".Rectangle", " 10  20 110 60 ", "T:20,L:10,W:100,H:40|100 100|False False"},
      {".Rectangle", "10 20 5 40", "T:0,L:0,W:0,H:0|100 100|False False"},
      {".Rectangle", "+10 0020 1e2 60.5", "T:20,L:10,W:90,H:40|100 100|False False"},
      {".Rectangle", "999999999 0 1000000000 -1.5e0", "T:0,L:0,W:0,H:0|100 100|False False"},
      {".Rectangle", "999999999 0 1000000000 3", "T:0,L:999999999,W:1,H:3|100 100|False False"},
      {".Rectangle", "10 20 30", "!Incorrect rectangle information: 10 20 30"},
      {".Rectangle", "a 2 3 4", "!Cannot convert string: a to number"},
      {".Rectangle", "99999999999 2 3 4", "!Overflow"},
      {".Confidence Levels", "150 -3", "T:0,L:0,W:0,H:0|100 100|False False"},
      {".Confidence Levels", "101 0", "T:0,L:0,W:0,H:0|100 0|False False"},
      {".Confidence Levels", "099 2147483647", "T:0,L:0,W:0,H:0|99 100|False False"},
      {".Confidence Levels", "-0 +7", "T:0,L:0,W:0,H:0|0 7|False False"},
      {".Confidence Levels", "80", "!Incorrect confidence levels: 80"},
      {".Confidence Levels", "2147483648 1", "!Overflow"},
      {".Suspect Info", "1 0", "T:0,L:0,W:0,H:0|100 100|True False"},
      {".Suspect Info", "0x1", "T:0,L:0,W:0,H:0|100 100|False True"},
      {".Suspect Info", "", "T:0,L:0,W:0,H:0|100 100|False False"},
      {".Suspect Info", "10", "!Incorrect suspect info: 10"},
      {".Suspect Info", "0 2", "!Incorrect suspect info: 0 2"},
  };
  int32_t id = 0;
  for (const auto& [suffix, value, want] : cases) {
    store_->AddCard(++id, {{"Title", " Manager\t"}, {"Title" + suffix, value}});
    std::string expected = "Failed to get field data for field: Title\r\n" + want.substr(1);
    if (want[0] != '!') {
      size_t bar1 = want.find('|'), bar2 = want.rfind('|'), sp1 = want.find(' ', bar1), sp2 = want.find(' ', bar2);
      expected = "FIELD:Title TEXT:Manager RECT:" + want.substr(0, bar1) + " OCR_CONF:" +
                 want.substr(bar1 + 1, sp1 - bar1 - 1) + " CAT_CONF:" + want.substr(sp1 + 1, bar2 - sp1 - 1) +
                 " OCR_SUSP:" + want.substr(bar2 + 1, sp2 - bar2 - 1) + " CAT_SUSP:" + want.substr(sp2 + 1);
    }
    std::string got;
    std::string error = ErrorText([&] { got = mgr_.GetCard(id)->GetField("Title")->ToStr(); });
    EXPECT_EQ(error == "<no error>" ? got : error, expected) << suffix << " '" << value << "'";
  }
}

TEST_F(CardReadingTest, AWholeCardInOneDump) {
  store_->customFields =
      "Nickname\tTEXT\tVISIBLE\tREADWRITE\r\n"
      "Secret\tTEXT\tHIDDEN\tREADWRITE\r\n"
      "Badge\tTEXT\tVISIBLE\tREADONLY";
  store_->AddCard(7, {{"Name", "Ann  Lee"}, {"Name.Rectangle", "10 20 110 60"}, {"Name.Confidence Levels", "90 80"},
                      {"Name.Suspect Info", "0 1"}, {"Phone 1", "555"}, {"Phone 1.Label", "Work"},
                      {"Email 3", "ann@example.com"}, {"Email 3.Label", "Private"}, {"Notes", "met at fair"},
                      {"Categories", "A, B"}, {"Verified", "Yes"}, {"Nickname", "Annie"}, {"Secret", "hidden"},
                      {"Badge", "B-17"}, {"Badge.Suspect Info", "1 0"}, {"Last Name", " Lee "}});
  auto card = mgr_.GetCard(7);
  std::string dump;
  for (int32_t i = 1; i <= card->NumFields(); ++i) {
    const CCardField& f = card->FieldAt(i);
    if (f.HasText() || f.Name() == "Company" || i > 28)
      dump += f.ToStr() + (f.IsReadOnlyType() ? " [read-only]" : "") + "\n";
  }
  EXPECT_EQ(dump,
            "FIELD:Name TEXT:Ann  Lee RECT:T:20,L:10,W:100,H:40 OCR_CONF:90 CAT_CONF:80 OCR_SUSP:False CAT_SUSP:True\n"
            "FIELD:Company TEXT: RECT:T:0,L:0,W:0,H:0 OCR_CONF:100 CAT_CONF:100 OCR_SUSP:False CAT_SUSP:False\n"
            "FIELD:Phone 1 LABEL:Work TEXT:555 RECT:T:0,L:0,W:0,H:0 OCR_CONF:100 CAT_CONF:100 OCR_SUSP:False CAT_SUSP:False\n"
            "FIELD:Email 3 LABEL:Private TEXT:ann@example.com RECT:T:0,L:0,W:0,H:0 OCR_CONF:100 CAT_CONF:100 "
            "OCR_SUSP:False CAT_SUSP:False\n"
            "FIELD:Verified TEXT:Yes RECT:T:0,L:0,W:0,H:0 OCR_CONF:100 CAT_CONF:100 OCR_SUSP:False CAT_SUSP:False\n"
            "FIELD:Notes TEXT:met at fair RECT:T:0,L:0,W:0,H:0 OCR_CONF:100 CAT_CONF:100 OCR_SUSP:False CAT_SUSP:False\n"
            "FIELD:Categories TEXT:A, B RECT:T:0,L:0,W:0,H:0 OCR_CONF:100 CAT_CONF:100 OCR_SUSP:False CAT_SUSP:False\n"
            "FIELD:Nickname TEXT:Annie RECT:T:0,L:0,W:0,H:0 OCR_CONF:100 CAT_CONF:100 OCR_SUSP:False CAT_SUSP:False\n"
            "FIELD:Badge TEXT:B-17 RECT:T:0,L:0,W:0,H:0 OCR_CONF:100 CAT_CONF:100 OCR_SUSP:True CAT_SUSP:False "
            "[read-only]\n");
  EXPECT_EQ(card->NumFields(), 30);
  EXPECT_EQ(card->GetStoredCardId(), 7);
  EXPECT_EQ(card->GetLastName(), "Lee");
  EXPECT_TRUE(card->IsVerified());
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

TEST_F(CardReadingTest, ReadingFailures) {
  struct Case {
    std::string customFields;
    FakeCardStore::Values values;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"", {{"Name", "John Smyth"}, {"Last Name", "Smith"}}, "Name field does not contain given last name: Smith"},
      {"", {{"Name", "John Smith"}, {"Last Name", "Smith"}}, "<no error>"},
      {"Nickname\tTEXT", {}, "List index out of range: 3"},
      {"Nickname\tTEXT\tVISIBLE", {}, "List index out of range: 4"},
      {"Nickname\tNUMBER\tVISIBLE", {}, "<no error>"},
      {"Nickname\tTEXT\tHIDDEN", {}, "<no error>"},
      {"\r\n\r\nNickname\tTEXT\tVISIBLE\tREADWRITE\r\n\r\n", {}, "<no error>"},
      {"Title\tTEXT\tVISIBLE\tREADWRITE", {}, "HashTable already contains key: Title"},
      {"", {{"Email 2", "a@b.c"}, {"Email 2.Rectangle", "5 5 1 1 1"}},
       "Failed to get field data for field: Email 2\r\nIncorrect rectangle information: 5 5 1 1 1"},
      {"Nick\tTEXT\tVISIBLE\tRW", {{"Nick", "N"}, {"Nick.Suspect Info", "yes"}},
       "Failed to get field data for field: Nick\r\nIncorrect suspect info: yes"},
  };
  int32_t id = 100;
  for (const Case& c : cases) {
    ++id;
    store_->customFields = c.customFields;
    store_->AddCard(id, c.values);
    EXPECT_EQ(ReadError(id), c.expected) << c.customFields;
  }
}

TEST_F(CardReadingTest, AFailingValueReadIsWrappedWithTheFieldName) {
  store_->AddCard(5, {{"Title", "CEO"}});
  store_->Lack("GetValue");
  EXPECT_EQ(ReadError(5),
            "Failed to get field data for field: Name\r\nObject doesn't support this property or method: GetValue");
}

// GetCard and both BuildCards read the same cards, ask for the same values
// and raise the same errors; the value reader gets an empty value to fill
// every time, so one that appends reads right. A reader's own error is
// wrapped only while it reads a field's data.
TEST_F(CardReadingTest, EveryWayOfReadingAgrees) {
  struct Case {
    std::string customFields;
    FakeCardStore::Values values;
  };
  const std::vector<Case> cases = {
      {"Badge\tTEXT\tVISIBLE\tREADONLY\r\nRoom\tTEXT\tVISIBLE\tREADWRITE",
       {{"Name", " Ann Lee "}, {"Name.Rectangle", "10 20 110 60"}, {"Name.Suspect Info", "0 1"}, {"Phone 1", "555"},
        {"Phone 1.Label", "Work"}, {"Badge", "B-17"}, {"Room", "12"}, {"Last Name", " Lee "}}},
      {"", {{"Name", "John Smyth"}, {"Last Name", "Smith"}}},
      {"Title\tTEXT\tVISIBLE\tREADWRITE", {}},
      {"", {{"Fax", "1"}, {"Fax.Rectangle", "1 2 3"}}},
      {"", {{"Fax", "1"}, {"Fax.Suspect Info", "1 2"}}},
  };
  auto outcome = [](const std::function<std::shared_ptr<CCard>()>& read) {
    try {
      auto card = read();
      std::string got = card->ToStr() + card->GetLastName();
      for (int32_t i = 1; i <= card->NumFields(); ++i) got += card->FieldAt(i).IsReadOnlyType() ? "R" : "-";
      return got;
    } catch (const Error& e) {
      return "error " + e.Description();
    }
  };
  int32_t id = 40;
  for (const Case& c : cases) {
    store_->customFields = c.customFields;
    store_->AddCard(++id, c.values);
    auto find = [&](std::string_view name) { return store_->FindValue(id, std::string(name)).value_or(""); };
    std::vector<std::string> askedByGetter, askedByReader;
    std::string viaGetCard = outcome([&] { return mgr_.GetCard(id); });
    EXPECT_EQ(outcome([&] {
                return mgr_.BuildCard(id, c.customFields, [&](const std::string& name) {
                  askedByGetter.push_back(name);
                  return find(name);
                });
              }),
              viaGetCard);
    EXPECT_EQ(outcome([&] {
                return mgr_.BuildCard(id, c.customFields, [&](std::string_view name, std::string& value) {
                  askedByReader.emplace_back(name);
                  value += find(name);
                });
              }),
              viaGetCard);
    EXPECT_EQ(askedByReader, askedByGetter) << id;
  }

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

}  // namespace
}  // namespace ombrel
