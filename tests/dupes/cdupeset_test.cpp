#include "ombrel/dupes/cdupeset.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/foundation/cdictionary.h"
#include "ombrel/foundation/crectangle.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "support/error_text.h"
#include "support/fake_card_store.h"

namespace ombrel {
namespace {

using Texts = std::vector<std::pair<std::string, std::string>>;

std::shared_ptr<CCard> Card(int32_t id, const Texts& texts = {}) {
  auto card = std::make_shared<CCard>();
  card->SetCardId(id);
  for (const auto& [name, text] : texts) card->SetData(name, text, "", nullptr, 100, 100, false, false);
  return card;
}

std::shared_ptr<CCard> Named(int32_t id, const std::string& name) { return Card(id, {{"Name", name}}); }

// Card IDs of a list of cards, e.g. "2 3 4".
std::string Ids(const CList& cards) {
  std::string out;
  for (int32_t i = 1; i <= cards.GetNumItems(); ++i) {
    if (i > 1) out += " ";
    out += std::to_string(cards.GetItemAs<CCard>(i)->GetCardID());
  }
  return out;
}

// "primary | dupes | recycle bin", by card ID.
std::string Layout(const CDupeSet& set) {
  return std::to_string(set.GetPrimaryCard()->GetCardID()) + " | " + Ids(set.GetDupes()) + " | " +
         Ids(set.GetRecycleBin());
}

std::shared_ptr<CDupeSet> SetOf(int32_t type, const std::vector<std::shared_ptr<CCard>>& cards) {
  auto set = std::make_shared<CDupeSet>();
  set->Init(cards.front(), type);
  for (size_t i = 1; i < cards.size(); ++i) set->AddDupe(cards[i]);
  return set;
}

struct Shown {
  std::string text;
  int style;
  std::string title;
};

class RecordingPrompt final : public IPrompt {
 public:
  int MessageBox(const std::string& text, int style, const std::string& title) override {
    shown.push_back({text, style, title});
    return msgbox::kAnswerOk;
  }
  std::vector<Shown> shown;
};

// Sets that talk to a store: a fake store behind the shared manager, and a
// prompt that records what would have been shown.
class DupeSetStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    savedMgr_ = CardStoreMgr();
    savedAppName_ = AppName();
    AppName() = "Ombrel";
    store_ = std::make_shared<FakeCardStore>();
    CardStoreMgr() = std::make_shared<CCardStoreMgr>();
    CardStoreMgr()->SetCardStore(store_);
    prompt_ = std::make_shared<RecordingPrompt>();
    SetPrompt(prompt_);
  }
  void TearDown() override {
    CardStoreMgr() = savedMgr_;
    AppName() = savedAppName_;
    SetPrompt(nullptr);
  }

  std::string Log() const {
    std::string out;
    for (const auto& call : store_->calls) out += call + "\n";
    return out;
  }

  std::shared_ptr<FakeCardStore> store_;
  std::shared_ptr<RecordingPrompt> prompt_;

 private:
  std::shared_ptr<CCardStoreMgr> savedMgr_;
  std::string savedAppName_;
};

// ---------------------------------------------------------------------------
// Building a set

TEST(CDupeSetTest, InitAddDupeAndCounts) {
  CDupeSet empty;
  EXPECT_EQ(empty.GetNumberOfCards(), 0);
  EXPECT_EQ(ErrorText([&] { empty.AddDupe(Named(2, "B")); }),
            "Cannot add dupe in DupeSet because primary card has not been set");
  EXPECT_EQ(ErrorText([&] { empty.SetPrimaryCard(nullptr); }), "Cannot set as primary empty card");
  EXPECT_EQ(ErrorText([&] { empty.Init(nullptr, EXACT_DUPE); }), "Cannot set as primary empty card");

  CDupeSet set;
  set.Init(Named(1, "A"), CONFLICT_DUPE);
  EXPECT_EQ(set.GetType(), CONFLICT_DUPE);
  EXPECT_EQ(set.GetNumberOfCards(), 1);
  set.AddDupe(Named(2, "B"));
  set.AddDupe(Named(3, "C"), 0);
  set.AddDupe(Named(4, "D"), 1);  // before the first
  set.AddDupe(Named(5, "E"), 3);  // before the third
  EXPECT_EQ(Layout(set), "1 | 4 2 5 3 | ");
  EXPECT_EQ(set.GetNumberOfCards(), 5);

  // Init again starts a new dupes list.
  set.Init(Named(9, "Z"), EXACT_DUPE);
  EXPECT_EQ(Layout(set), "9 |  | ");
  EXPECT_EQ(set.GetNumberOfCards(), 1);
}

TEST(CDupeSetTest, CloneCopiesCardsAndTypeButNotTheRecycleBin) {
  auto a = Named(1, "Ann Lee");
  auto b = Named(2, "Ann  Lee");
  auto c = Named(3, "A. Lee");
  a->tag = "Lee,Ann";
  auto set = SetOf(COMPATIBLE_DUPE, {a, b, c});
  set->DeleteDupe(c);

  auto copy = set->Clone();
  EXPECT_EQ(copy->GetType(), COMPATIBLE_DUPE);
  EXPECT_EQ(Layout(*copy), "1 | 2 | ");
  EXPECT_NE(copy->GetPrimaryCard(), a);
  EXPECT_NE(copy->GetDupes().GetItemAs<CCard>(1), b);
  EXPECT_EQ(copy->GetPrimaryCard()->tag, "Lee,Ann");
  EXPECT_EQ(copy->ToStr(), "Dupe set type: COMPATIBLE_DUPE\r\nNumber of cards in dupe set: 2\r\n"
                           "Primary card: Ann Lee\r\nDupe 1: Ann  Lee\r\n");
  EXPECT_FALSE(copy->DupeSetNeedsSaving());

  // The clone is independent of the original.
  copy->GetPrimaryCard()->SetData("Title", "CEO", "", nullptr, 100, 100, false, false);
  copy->DeleteDupe(copy->GetDupes().GetItemAs<CCard>(1));
  EXPECT_EQ(a->FieldText("Title"), "");
  EXPECT_EQ(Layout(*set), "1 | 2 | 3");
}

// ---------------------------------------------------------------------------
// Delete, undelete, merge

TEST(CDupeSetTest, DeleteAllFillsTheRecycleBinLastFirstAndUndeleteAppends) {
  auto set = SetOf(CONFLICT_DUPE, {Named(1, "P"), Named(2, "A"), Named(3, "B"), Named(4, "C")});
  auto b = set->GetDupes().GetItemAs<CCard>(2);
  set->DeleteDupe(b);
  EXPECT_EQ(Layout(*set), "1 | 2 4 | 3");
  set->UndeleteDupe(b);
  EXPECT_EQ(Layout(*set), "1 | 2 4 3 | ");

  set->DeleteAllDupes();
  EXPECT_EQ(Layout(*set), "1 |  | 3 4 2");
  EXPECT_EQ(set->GetNumberOfCards(), 1);
  set->UndeleteDupe(b);
  EXPECT_EQ(Layout(*set), "1 | 3 | 4 2");
}

TEST(CDupeSetTest, DeleteAndUndeleteRefuseCardsThatAreNotThere) {
  auto primary = Named(1, "P");
  auto dupe = Named(2, "A");
  auto stranger = Named(3, "X");
  auto set = SetOf(EXACT_DUPE, {primary, dupe});
  // No recycle bin yet, then one that lacks the card.
  EXPECT_EQ(ErrorText([&] { set->UndeleteDupe(dupe); }), "Cannot find given dupe in the recycle bin");
  EXPECT_EQ(ErrorText([&] { set->DeleteDupe(stranger); }), "Cannot find given dupe in the dupe list");
  EXPECT_EQ(ErrorText([&] { set->DeleteDupe(primary); }), "Cannot find given dupe in the dupe list");
  set->DeleteDupe(dupe);
  EXPECT_EQ(ErrorText([&] { set->DeleteDupe(dupe); }), "Cannot find given dupe in the dupe list");
  EXPECT_EQ(ErrorText([&] { set->UndeleteDupe(stranger); }), "Cannot find given dupe in the recycle bin");
  // A card equal in every value is still another card.
  EXPECT_EQ(ErrorText([&] { set->UndeleteDupe(Named(2, "A")); }), "Cannot find given dupe in the recycle bin");
  EXPECT_EQ(ErrorText([&] { set->MergeDupe(dupe); }), "Dupe list does not contain given dupe");
  EXPECT_EQ(Layout(*set), "1 |  | 2");
}

TEST(CDupeSetTest, MergeFillsOnlyEmptyFieldsKeepsThePrimarysLabelAndMergesCategories) {
  CRectangle rect(20, 10, 100, 25);
  auto primary = Card(1, {{"Name", "John Smith"}, {"Company", "Acme"}, {"Categories", "Clients, Golf"}});
  primary->SetData("Phone 1", "", "Work", nullptr, 100, 100, false, false);
  primary->SetData("Phone 3", "555 0003", "Home", nullptr, 100, 100, false, false);
  auto dupe = Card(2, {{"Name", "J. Smith"},
                       {"Company", "Acme Corporation"},
                       {"Title", "CEO"},
                       {"Categories", "Golf, Suppliers"},
                       {"Notes", ""}});
  dupe->SetData("Phone 1", "555 0001", "Mobile", &rect, 80, 90, true, false);
  dupe->SetData("Phone 2", "555 0002", "Fax", nullptr, 100, 100, false, false);
  dupe->SetData("Phone 3", "", "Other", nullptr, 100, 100, false, false);
  auto set = SetOf(COMPATIBLE_DUPE, {primary, dupe});

  set->MergeDupe(dupe);
  EXPECT_EQ(Layout(*set), "1 |  | 2");
  const CCard& merged = *set->GetPrimaryCard();
  // A non-empty primary text always wins; an empty one takes the dupe's.
  EXPECT_EQ(merged.FieldText("Name"), "John Smith");
  EXPECT_EQ(merged.FieldText("Company"), "Acme");
  EXPECT_EQ(merged.FieldText("Title"), "CEO");
  EXPECT_EQ(merged.FieldText("Categories"), "Clients, Golf, Suppliers");
  // The dupe's field comes with its geometry and levels, under the primary's label.
  std::string taken = dupe->GetField("Phone 1")->ToStr();
  taken.replace(taken.find("LABEL:Mobile"), 12, "LABEL:Work");
  EXPECT_EQ(merged.GetField("Phone 1")->ToStr(), taken);
  EXPECT_EQ(merged.GetField("Phone 1")->GetOcrConfLevel(), 80);
  EXPECT_EQ(merged.GetField("Phone 1")->GetRect().ToStr(), rect.ToStr());
  EXPECT_EQ(merged.GetField("Phone 2")->Text(), "555 0002");
  EXPECT_EQ(merged.GetField("Phone 2")->Label(), "");
  EXPECT_EQ(merged.GetField("Phone 3")->Text(), "555 0003");
  EXPECT_EQ(merged.GetField("Phone 3")->Label(), "Home");
  // The dupe itself is not changed by the merge.
  EXPECT_EQ(dupe->FieldText("Categories"), "Golf, Suppliers");
}

TEST(CDupeSetTest, MergeAllTakesTheLastDupeFirst) {
  auto set = SetOf(CONFLICT_DUPE, {Card(1, {{"Name", "P"}}), Card(2, {{"Name", "A"}, {"Title", "First"}}),
                                   Card(3, {{"Name", "B"}, {"Title", "Second"}, {"Categories", "X"}}),
                                   Card(4, {{"Name", "C"}, {"Categories", "Y, X"}})});
  set->MergeAllDupes();
  EXPECT_EQ(Layout(*set), "1 |  | 4 3 2");
  EXPECT_EQ(set->GetPrimaryCard()->FieldText("Title"), "Second");
  EXPECT_EQ(set->GetPrimaryCard()->FieldText("Categories"), "Y, X");
}

// ---------------------------------------------------------------------------
// DupeSetNeedsSaving

TEST(CDupeSetTest, NeedsSavingFollowsTheRecycleBinAndThePrimarysSignature) {
  auto primary = Card(1, {{"Name", "John Smith"}, {"Phone 1", "555"}});
  auto dupe = Named(2, "John Smith");
  auto set = SetOf(CONFLICT_DUPE, {primary, dupe});
  std::vector<std::pair<std::string, bool>> steps;
  auto note = [&](const std::string& what) { steps.emplace_back(what, set->DupeSetNeedsSaving()); };

  note("fresh");
  set->DeleteDupe(dupe);
  note("dupe deleted");
  set->UndeleteDupe(dupe);
  note("undeleted");
  primary->SetData("Title", "CEO", "", nullptr, 100, 100, false, false);
  note("title set");
  primary->SetData("Title", "", "", nullptr, 100, 100, false, false);
  note("title cleared again");
  primary->GetField("Phone 2")->SetUserLabel("Home");
  note("label on an empty field");
  primary->GetField("Phone 1")->SetUserLabel("Work");
  note("label on a filled field");
  primary->GetField("Phone 1")->SetUserLabel("");
  note("label removed");
  primary->SetData("Modified Date", "2024-01-01", "", nullptr, 100, 100, false, false);
  primary->SetData("Creation Date", "2023-01-01", "", nullptr, 100, 100, false, false);
  primary->SetData("Solvane Status", "OK", "", nullptr, 100, 100, false, false);
  note("bookkeeping values changed");
  primary->SetData("Phone 1", "555", "", nullptr, 40, 40, true, true);
  note("only levels and flags changed");
  primary->SetCardId(7);
  note("card ID changed");

  std::string dump;
  for (const auto& [what, needs] : steps) dump += what + ": " + (needs ? "yes" : "no") + "\n";
  EXPECT_EQ(dump,
            "fresh: no\n"
            "dupe deleted: yes\n"
            "undeleted: no\n"
            "title set: yes\n"
            "title cleared again: no\n"
            "label on an empty field: no\n"
            "label on a filled field: yes\n"
            "label removed: no\n"
            "bookkeeping values changed: no\n"
            "only levels and flags changed: no\n"
            "card ID changed: yes\n");
}

TEST_F(DupeSetStoreTest, NeedsSavingWhenThePrimaryNoLongerStandsForTheCardItWasReadAs) {
  store_->AddCard(5, {{"Name", "Ann Lee"}});
  auto card = CardStoreMgr()->GetCard(5);
  auto set = SetOf(CONFLICT_DUPE, {card, Named(6, "Ann Lee")});
  EXPECT_FALSE(set->DupeSetNeedsSaving());

  // The snapshot is taken with the new ID, so only the store identity tells.
  card->SetCardId(8);
  set->SetPrimaryCard(card);
  EXPECT_TRUE(set->DupeSetNeedsSaving());
  card->SetCardId(5);
  set->SetPrimaryCard(card);
  EXPECT_FALSE(set->DupeSetNeedsSaving());
}

// ---------------------------------------------------------------------------
// CommitToDatabase

// The writes of one card's fields, in field order: every catalogue field but
// the three the store keeps for itself, then the custom fields.
std::string FieldWrites(int32_t id, const std::vector<std::string>& customFields) {
  std::vector<std::string> names = {
      "Name",    "Title",   "Company", "Address", "2nd Address", "Phone",      "Fax",           "Phone 1",
      "Phone 2", "Phone 3", "Phone 4", "Phone 5", "Phone 6",     "Email",      "Web Page",      "Email 1",
      "Email 2", "Email 3", "Email 4", "Email 5", "Email 6",     "Other",      "Verified",      "Notes",
      "Categories", "Creation Date", "Modified Date", "Solvane Status"};
  names.insert(names.end(), customFields.begin(), customFields.end());
  std::string out;
  for (const std::string& name : names) {
    if (name == "Creation Date" || name == "Modified Date" || name == "Solvane Status") continue;
    std::string put = "PutValue " + std::to_string(id) + " " + name;
    out += put + "\n";
    bool extra = (name.rfind("Phone ", 0) == 0 || name.rfind("Email ", 0) == 0) && name.size() == 7;
    if (extra) out += put + ".Label\n";
    if (name != "Notes" && name != "Verified" && name != "Categories")
      out += put + ".Rectangle\n" + put + ".Confidence Levels\n";
  }
  return out;
}

TEST_F(DupeSetStoreTest, CommitOfAnUnchangedSetOpensTheImageAndDeletionBracketsOnly) {
  store_->AddCard(1, {{"Name", "Ann Lee"}});
  store_->AddCard(2, {{"Name", "Ann Lee"}});
  auto set = SetOf(EXACT_DUPE, {CardStoreMgr()->GetCard(1), CardStoreMgr()->GetCard(2)});
  store_->calls.clear();
  set->CommitToDatabase();
  EXPECT_EQ(Log(),
            "CardExists 1\nCardExists 1\n"
            "BeginUpdate\nCommitUpdate\n"
            "BeginUpdate\nCommitUpdate\n");
  EXPECT_TRUE(store_->HasCard(2));
  EXPECT_TRUE(prompt_->shown.empty());
}

TEST_F(DupeSetStoreTest, CommitWritesFieldsThenImagesThenDeletionsEachInItsOwnBracket) {
  store_->customFields = "Nickname\tTEXT\tVISIBLE\tREADWRITE";
  store_->AddCard(1, {{"Name", "John Smith"},
                      {"Phone 1", "555 0001"},
                      {"Phone 1.Label", "Work"},
                      {"Phone 1.Rectangle", "10 20 110 45"},
                      {"Phone 1.Confidence Levels", "80 90"},
                      {"Notes", "met at the fair"},
                      {"Modified Date", "2001-02-03"}});
  for (int32_t id : {2, 3, 4}) store_->AddCard(id, {{"Name", "John Smith"}, {"Title", "CEO"}});
  store_->frontDib[3] = 333;
  store_->backDib[4] = 444;
  auto set = SetOf(CONFLICT_DUPE, {CardStoreMgr()->GetCard(1), CardStoreMgr()->GetCard(2),
                                   CardStoreMgr()->GetCard(3), CardStoreMgr()->GetCard(4)});
  auto primary = set->GetPrimaryCard();
  auto card4 = set->GetDupes().GetItemAs<CCard>(3);
  set->MergeDupe(set->GetDupes().GetItemAs<CCard>(1));  // card 2 brings the title
  set->DeleteDupe(card4);
  primary->frontImage = std::make_shared<CLong>(3);
  primary->backImage = std::make_shared<CLong>(4);
  store_->calls.clear();

  set->CommitToDatabase();
  EXPECT_EQ(Log(), "CardExists 1\nCardExists 1\n"
                   "BeginUpdate\n" +
                       FieldWrites(1, {"Nickname"}) +
                       "CommitUpdate\n"
                       "BeginUpdate\n"
                       "GetCardDIB 3\nSetCardDIB 1\n"
                       "GetBackDIB 4\nSetBackDIB 1\n"
                       "CommitUpdate\n"
                       "BeginUpdate\n"
                       "CardExists 4\nCardExists 4\nDeleteCard 4\n"
                       "CardExists 2\nCardExists 2\nDeleteCard 2\n"
                       "CommitUpdate\n");

  std::string values;
  for (const char* name : {"Name", "Title", "Phone 1", "Phone 1.Label", "Phone 1.Rectangle",
                           "Phone 1.Confidence Levels", "Phone 2.Label", "Name.Rectangle", "Name.Confidence Levels",
                           "Notes", "Notes.Rectangle", "Nickname", "Modified Date"}) {
    auto value = store_->FindValue(1, name);
    values += std::string(name) + "=" + (value ? *value : "<none>") + "\n";
  }
  EXPECT_EQ(values,
            "Name=John Smith\n"
            "Title=CEO\n"
            "Phone 1=555 0001\n"
            "Phone 1.Label=Work\n"
            "Phone 1.Rectangle=10 20 110 45\n"
            "Phone 1.Confidence Levels=80 90\n"
            "Phone 2.Label=\n"
            "Name.Rectangle=0 0 0 0\n"
            "Name.Confidence Levels=100 100\n"
            "Notes=met at the fair\n"
            "Notes.Rectangle=<none>\n"
            "Nickname=\n"
            "Modified Date=2001-02-03\n");
  EXPECT_EQ(store_->frontDib[1], 333);
  EXPECT_EQ(store_->backDib[1], 444);
  EXPECT_FALSE(store_->HasCard(2));
  EXPECT_TRUE(store_->HasCard(3));
  EXPECT_FALSE(store_->HasCard(4));
  EXPECT_EQ(Layout(*set), "1 | 3 | ");
  EXPECT_FALSE(set->DupeSetNeedsSaving());

  // A second commit finds nothing left to write.
  store_->calls.clear();
  primary->frontImage.reset();
  primary->backImage.reset();
  set->CommitToDatabase();
  EXPECT_EQ(Log(), "CardExists 1\nCardExists 1\nBeginUpdate\nCommitUpdate\nBeginUpdate\nCommitUpdate\n");
}

TEST_F(DupeSetStoreTest, CommitSkipsRecycledCardsThatAreGoneAlready) {
  for (int32_t id : {1, 2, 3}) store_->AddCard(id, {{"Name", "Ann Lee"}});
  auto set = SetOf(CONFLICT_DUPE, {CardStoreMgr()->GetCard(1), CardStoreMgr()->GetCard(2),
                                   CardStoreMgr()->GetCard(3)});
  set->DeleteAllDupes();
  CardStoreMgr()->DeleteCard(3);
  store_->calls.clear();
  set->CommitToDatabase();
  EXPECT_EQ(Log(),
            "CardExists 1\nCardExists 1\n"
            "BeginUpdate\nCommitUpdate\n"
            "BeginUpdate\n"
            "CardExists 2\nCardExists 2\nDeleteCard 2\n"
            "CardExists 3\nCardExists 3\n"
            "CommitUpdate\n");
  EXPECT_EQ(Layout(*set), "1 |  | ");
}

TEST_F(DupeSetStoreTest, CommitOfADeletedContactWarnsRestoresTheDupesAndWritesNothing) {
  for (int32_t id : {1, 2, 3, 4}) store_->AddCard(id, {{"Name", "Ann Lee"}});
  auto set = SetOf(CONFLICT_DUPE, {CardStoreMgr()->GetCard(1), CardStoreMgr()->GetCard(2),
                                   CardStoreMgr()->GetCard(3), CardStoreMgr()->GetCard(4)});
  set->GetPrimaryCard()->SetData("Title", "CEO", "", nullptr, 100, 100, false, false);
  set->DeleteDupe(set->GetDupes().GetItemAs<CCard>(1));
  set->DeleteDupe(set->GetDupes().GetItemAs<CCard>(2));
  EXPECT_EQ(Layout(*set), "1 | 3 | 2 4");
  CardStoreMgr()->DeleteCard(1);
  store_->calls.clear();

  set->CommitToDatabase();
  EXPECT_EQ(Log(), "CardExists 1\nCardExists 1\n");
  ASSERT_EQ(prompt_->shown.size(), 1u);
  EXPECT_EQ(prompt_->shown[0].text,
            "WARNING: contact 'Ann Lee' has been deleted from the database.\r\n"
            "         Changes for this contact will be ignored.");
  EXPECT_EQ(prompt_->shown[0].title, "Ombrel");
  EXPECT_EQ(Layout(*set), "1 | 3 2 4 | ");
  EXPECT_TRUE(store_->HasCard(2));
  EXPECT_TRUE(store_->HasCard(4));
}

// A failing write inside a bracket aborts that bracket and ends the commit
// with the manager's error; the later brackets are not opened.
TEST_F(DupeSetStoreTest, AFailingWriteAbortsItsBracketAndEndsTheCommit) {
  struct Case {
    std::string what;
    std::function<void(FakeCardStore&)> fault;
    std::string error;
    std::string logTail;  // the log from the failing call on
  };
  const std::vector<Case> cases = {
      {"field write", [](FakeCardStore& s) { s.Fail("PutValue", 5, "locked").ForField("Title.Rectangle"); },
       "Failed to put value for card with ID: 1 and field name: Title.Rectangle\r\nlocked",
       "PutValue 1 Title.Rectangle\nGetLastError\nAbortUpdate\n"},
      {"image", [](FakeCardStore& s) { s.Fail("SetCardDIB", 2, "disk full"); },
       "Failed to set card image for card: 1\r\ndisk full", "SetCardDIB 1\nGetLastError\nAbortUpdate\n"},
      {"deletion", [](FakeCardStore& s) { s.Fail("DeleteCard", 3, "in use").ForCard(2); },
       "Failed to delete card with ID: 2\r\nin use", "DeleteCard 2\nGetLastError\nAbortUpdate\n"},
      {"begin of the fields", [](FakeCardStore& s) { s.Fail("BeginUpdate", 4, "read only").Times(1); },
       "Failed to Begin Updates\r\nread only", "BeginUpdate\nGetLastError\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    store_ = std::make_shared<FakeCardStore>();
    CardStoreMgr()->SetCardStore(store_);
    for (int32_t id : {1, 2, 3}) store_->AddCard(id, {{"Name", "Ann Lee"}});
    store_->frontDib[3] = 33;
    auto set = SetOf(CONFLICT_DUPE, {CardStoreMgr()->GetCard(1), CardStoreMgr()->GetCard(2),
                                     CardStoreMgr()->GetCard(3)});
    set->GetPrimaryCard()->SetData("Title", "CEO", "", nullptr, 100, 100, false, false);
    set->GetPrimaryCard()->frontImage = std::make_shared<CLong>(3);
    set->DeleteAllDupes();
    c.fault(*store_);
    store_->calls.clear();

    EXPECT_EQ(ErrorText([&] { set->CommitToDatabase(); }), c.error);
    std::string log = Log();
    size_t failing = log.find(c.logTail.substr(0, c.logTail.find('\n')));
    ASSERT_NE(failing, std::string::npos) << log;
    EXPECT_EQ(log.substr(failing), c.logTail);
    EXPECT_FALSE(store_->inUpdate);
    EXPECT_TRUE(store_->HasCard(3)) << "a later bracket ran";
  }
}

// A commit that the store refuses must not leave the bracket open: the
// store would refuse the next BeginUpdate as nested.
TEST_F(DupeSetStoreTest, AFailedCommitIsAbortedSoNoBracketStaysOpen) {
  for (int32_t id : {1, 2}) store_->AddCard(id, {{"Name", "Ann Lee"}});
  auto set = SetOf(CONFLICT_DUPE, {CardStoreMgr()->GetCard(1), CardStoreMgr()->GetCard(2)});
  set->GetPrimaryCard()->SetData("Title", "CEO", "", nullptr, 100, 100, false, false);
  store_->Fail("CommitUpdate", 5, "database is locked").Times(1);
  store_->calls.clear();

  EXPECT_EQ(ErrorText([&] { set->CommitToDatabase(); }), "Failed to Commit Updates\r\ndatabase is locked");
  std::string log = Log();
  EXPECT_EQ(log.substr(log.find("CommitUpdate")), "CommitUpdate\nGetLastError\nAbortUpdate\n");
  EXPECT_FALSE(store_->inUpdate);
}

// A set may be without a primary (its count is then 0). The operations that
// need the primary must raise, as using any unset object does, rather than
// crash; each runs apart so that a crash fails only its own case.
TEST_F(DupeSetStoreTest, OperationsThatNeedThePrimaryRaiseOnASetWithoutOne) {
  const std::vector<std::pair<std::string, std::function<void(CDupeSet&)>>> operations = {
      {"ToStr", [](CDupeSet& s) { s.ToStr(); }},
      {"DupeSetNeedsSaving", [](CDupeSet& s) { s.DupeSetNeedsSaving(); }},
      {"CommitToDatabase", [](CDupeSet& s) { s.CommitToDatabase(); }},
  };
  for (const auto& [name, operation] : operations) {
    EXPECT_EXIT(
        {
          CDupeSet set;
          try {
            operation(set);
          } catch (const Error&) {
            std::_Exit(0);
          }
          std::_Exit(1);
        },
        ::testing::ExitedWithCode(0), "")
        << name;
  }
}

// ---------------------------------------------------------------------------
// Text dump and counting

TEST(CDupeSetTest, ToStrNamesTheTypeTheCountAndEveryCard) {
  auto set = SetOf(EXACT_DUPE, {Named(1, "Ann Lee"), Named(2, "Ann Lee (2)"), Card(3)});
  EXPECT_EQ(set->ToStr(),
            "Dupe set type: EXACT_DUPE\r\n"
            "Number of cards in dupe set: 3\r\n"
            "Primary card: Ann Lee\r\n"
            "Dupe 1: Ann Lee (2)\r\n"
            "Dupe 2: \r\n");
  set->DeleteAllDupes();
  EXPECT_EQ(set->ToStr(), "Dupe set type: EXACT_DUPE\r\nNumber of cards in dupe set: 1\r\nPrimary card: Ann Lee\r\n");

  std::string heads;
  for (int32_t type : {int32_t{CONFLICT_DUPE}, 0, 4}) {
    CDupeSet other;
    other.Init(Named(1, "X"), type);
    std::string dump = other.ToStr();
    heads += dump.substr(0, dump.find("\r\n")) + "\n";
  }
  EXPECT_EQ(heads, "Dupe set type: CONFLICT_DUPE\nUnknown dupe set type\nUnknown dupe set type\n");
}

TEST(CDupeSetTest, CountDuplicateCardsSumsTheDupesOfEverySet) {
  CList sets;
  EXPECT_EQ(CountDuplicateCards(sets), 0);
  sets.AddItem(SetOf(EXACT_DUPE, {Named(1, "A"), Named(2, "A")}));
  sets.AddItem(SetOf(COMPATIBLE_DUPE, {Named(3, "B"), Named(4, "B"), Named(5, "B")}));
  sets.AddItem(SetOf(CONFLICT_DUPE, {Named(6, "C")}));
  EXPECT_EQ(CountDuplicateCards(sets), 3);
  // Recycled cards are no longer counted.
  sets.GetItemAs<CDupeSet>(2)->DeleteDupe(sets.GetItemAs<CDupeSet>(2)->GetDupes().GetItemAs<CCard>(1));
  EXPECT_EQ(CountDuplicateCards(sets), 2);
}

}  // namespace
}  // namespace ombrel
