#include "ombrel/dupes/cdupeset.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "support/cards.h"
#include "support/error_text.h"
#include "support/store_fixture.h"

namespace ombrel {

// Reaches the private per-type step through an explicit instantiation (which
// may name a private member): its error cannot come through the public entry.
using MatchFn = void (CDupeSet::*)(const std::string&);
MatchFn MatchOneType();
template <MatchFn Member>
struct ExposeMatch {
  friend MatchFn MatchOneType() { return Member; }
};
template struct ExposeMatch<&CDupeSet::DoSemanticallyMatchExtraFields>;

namespace {

std::shared_ptr<CCard> Named(int32_t id, const std::string& name) { return MakeCard(id, {{"Name", name}}); }
std::shared_ptr<CCard> Dupe(CDupeSet& set, int32_t position) { return set.GetDupes().GetItemAs<CCard>(position); }

TEST(CDupeSetTest, AddDupeNeedsAPrimaryAndInsertsAtTheGivenPosition) {
  CDupeSet set;
  EXPECT_EQ(set.GetNumberOfCards(), 0);
  EXPECT_EQ(ErrorText([&] { set.AddDupe(Named(2, "B")); }),
            "Cannot add dupe in DupeSet because primary card has not been set");
  EXPECT_EQ(ErrorText([&] { set.Init(nullptr, EXACT_DUPE); }), "Cannot set as primary empty card");
  set.Init(Named(1, "A"), CONFLICT_DUPE);
  set.AddDupe(Named(2, "B"));
  set.AddDupe(Named(3, "C"), 0);
  set.AddDupe(Named(4, "D"), 1);  // before the first
  set.AddDupe(Named(5, "E"), 3);  // before the third
  EXPECT_EQ(Layout(set), "1 | 4 2 5 3 | ");
  EXPECT_EQ(set.GetNumberOfCards(), 5);
  set.Init(Named(9, "Z"), EXACT_DUPE);  // starts a new dupes list
  EXPECT_EQ(Layout(set), "9 |  | ");
}

TEST(CDupeSetTest, CloneLeavesTheRecycleBinAndCountingSkipsRecycledCards) {
  auto a = Named(1, "Ann Lee");
  auto set = SetOf(COMPATIBLE_DUPE, {a, Named(2, "Ann  Lee"), MakeCard(3)});
  set->DeleteDupe(Dupe(*set, 2));
  auto copy = set->Clone();  // new cards, same type, no recycle bin
  EXPECT_EQ(Layout(*copy), "1 | 2 | ");
  EXPECT_NE(copy->GetPrimaryCard(), a);
  EXPECT_EQ(set->ToStr(), "Dupe set type: COMPATIBLE_DUPE\r\nNumber of cards in dupe set: 2\r\n"
                          "Primary card: Ann Lee\r\nDupe 1: Ann  Lee\r\n");
  copy->DeleteAllDupes();
  EXPECT_EQ(Layout(*set), "1 | 2 | 3");
  EXPECT_EQ(SetOf(4, {Named(4, "X")})->ToStr().substr(0, 21), "Unknown dupe set type");

  CList sets;
  sets.AddItem(set);
  sets.AddItem(SetOf(EXACT_DUPE, {Named(5, "A"), Named(6, "A"), Named(7, "A")}));
  EXPECT_EQ(CountDuplicateCards(sets), 3);  // recycled cards are not counted
}

TEST(CDupeSetTest, DeleteAllFillsTheRecycleBinLastFirstAndUndeleteAppends) {
  auto set = SetOf(CONFLICT_DUPE, {Named(1, "P"), Named(2, "A"), Named(3, "B"), Named(4, "C")});
  auto b = Dupe(*set, 2);
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

TEST(CDupeSetTest, DeleteUndeleteAndMergeRefuseCardsThatAreNotThere) {
  auto primary = Named(1, "P");
  auto dupe = Named(2, "A");
  auto set = SetOf(EXACT_DUPE, {primary, dupe});
  EXPECT_EQ(ErrorText([&] { set->UndeleteDupe(dupe); }), "Cannot find given dupe in the recycle bin");  // no bin yet
  EXPECT_EQ(ErrorText([&] { set->DeleteDupe(primary); }), "Cannot find given dupe in the dupe list");
  set->DeleteDupe(dupe);
  EXPECT_EQ(ErrorText([&] { set->DeleteDupe(dupe); }), "Cannot find given dupe in the dupe list");
  // A card equal in every value is still another card.
  EXPECT_EQ(ErrorText([&] { set->UndeleteDupe(Named(2, "A")); }), "Cannot find given dupe in the recycle bin");
  EXPECT_EQ(ErrorText([&] { set->MergeDupe(dupe); }), "Dupe list does not contain given dupe");
  EXPECT_EQ(Layout(*set), "1 |  | 2");
}

TEST(CDupeSetTest, MergeFillsOnlyEmptyFieldsKeepsThePrimarysLabelAndMergesCategories) {
  CRectangle rect(20, 10, 100, 25);
  auto primary = MakeCard(1, {{"Name", "John Smith"}, {"Company", "Acme"}, {"Categories", "Clients, Golf"},
                              {"Phone 1", "", "Work"}, {"Phone 3", "555 0003", "Home"}});
  auto dupe = MakeCard(2, {{"Name", "J. Smith"}, {"Company", "Acme Corporation"}, {"Title", "CEO"},
                           {"Categories", "Golf, Suppliers"}, {"Notes", ""}, {"Phone 2", "555 0002", "Fax"},
                           {"Phone 3", "", "Other"}});
  dupe->SetData("Phone 1", "555 0001", "Mobile", &rect, 80, 90, true, false);
  auto set = SetOf(COMPATIBLE_DUPE, {primary, dupe});

  set->MergeDupe(dupe);
  EXPECT_EQ(Layout(*set), "1 |  | 2");
  const CCard& merged = *set->GetPrimaryCard();
  // A non-empty primary text always wins; an empty one takes the dupe's.
  EXPECT_EQ(merged.FieldText("Name") + "|" + merged.FieldText("Company") + "|" + merged.FieldText("Title") + "|" +
                merged.FieldText("Categories"),
            "John Smith|Acme|CEO|Clients, Golf, Suppliers");
  // The dupe's field comes with its geometry and levels, under the primary's label.
  std::string taken = dupe->GetField("Phone 1")->ToStr();
  taken.replace(taken.find("LABEL:Mobile"), 12, "LABEL:Work");
  EXPECT_EQ(merged.GetField("Phone 1")->ToStr(), taken);
  EXPECT_EQ(merged.GetField("Phone 2")->Text() + "|" + merged.GetField("Phone 2")->Label() + "|" +
                merged.GetField("Phone 3")->Text() + "|" + merged.GetField("Phone 3")->Label(),
            "555 0002||555 0003|Home");
  EXPECT_EQ(dupe->FieldText("Categories"), "Golf, Suppliers");  // the dupe itself is not changed
}

TEST(CDupeSetTest, NeedsSavingFollowsTheRecycleBinAndThePrimarysSignature) {
  auto primary = MakeCard(1, {{"Name", "John Smith"}, {"Phone 1", "555"}});
  auto dupe = Named(2, "John Smith");
  auto set = SetOf(CONFLICT_DUPE, {primary, dupe});
  std::string dump;
  auto note = [&](const std::string& what) { dump += what + ": " + (set->DupeSetNeedsSaving() ? "yes\n" : "no\n"); };
  note("fresh");
  set->DeleteDupe(dupe);
  note("dupe deleted");
  set->UndeleteDupe(dupe);
  SetText(*primary, "Title", "CEO");
  note("title set");
  SetText(*primary, "Title", "");
  note("title cleared again");
  primary->GetField("Phone 2")->SetUserLabel("Home");
  note("label on an empty field");
  primary->GetField("Phone 1")->SetUserLabel("Work");
  note("label on a filled field");
  primary->GetField("Phone 1")->SetUserLabel("");
  for (const char* name : {"Modified Date", "Creation Date", "Solvane Status"}) SetText(*primary, name, "x");
  note("bookkeeping values changed");
  primary->SetData("Phone 1", "555", "", nullptr, 40, 40, true, true);
  note("only levels and flags changed");
  primary->SetCardId(7);
  note("card ID changed");
  EXPECT_EQ(dump,
            "fresh: no\ndupe deleted: yes\ntitle set: yes\ntitle cleared again: no\nlabel on an empty field: no\n"
            "label on a filled field: yes\nbookkeeping values changed: no\nonly levels and flags changed: no\n"
            "card ID changed: yes\n");
}

// Sets over cards read from the fake store, whose calls are the log.
class DupeSetStoreTest : public StoreFixture {
 protected:
  std::shared_ptr<CDupeSet> StoredSet(int32_t type, const std::vector<int32_t>& ids) {
    std::vector<std::shared_ptr<CCard>> cards;
    for (int32_t id : ids) cards.push_back(CardStoreMgr()->GetCard(id));
    return SetOf(type, cards);
  }
  std::string Log() const { return store_->Log(); }
};

TEST_F(DupeSetStoreTest, CommitOfAnUnchangedSetOpensTheImageAndDeletionBracketsOnly) {
  for (int32_t id : {1, 2}) store_->AddCard(id, {{"Name", "Ann Lee"}});
  auto set = StoredSet(EXACT_DUPE, {1, 2});
  store_->calls.clear();
  set->CommitToDatabase();
  EXPECT_EQ(Log(), "CardExists 1\nCardExists 1\nBeginUpdate\nCommitUpdate\nBeginUpdate\nCommitUpdate\n");
  EXPECT_TRUE(store_->HasCard(2));
  EXPECT_EQ(prompt_->shown, "");
}

TEST_F(DupeSetStoreTest, CommitWritesFieldsThenImagesThenDeletionsEachInItsOwnBracket) {
  store_->customFields = "Nickname\tTEXT\tVISIBLE\tREADWRITE";
  store_->AddCard(1, {{"Name", "John Smith"}, {"Phone 1", "555 0001"}, {"Phone 1.Label", "Work"},
                      {"Phone 1.Rectangle", "10 20 110 45"}, {"Phone 1.Confidence Levels", "80 90"},
                      {"Notes", "met at the fair"}, {"Modified Date", "2001-02-03"}});
  for (int32_t id : {2, 3, 4}) store_->AddCard(id, {{"Name", "John Smith"}, {"Title", "CEO"}});
  store_->frontDib[3] = 333;
  store_->backDib[4] = 444;
  auto set = StoredSet(CONFLICT_DUPE, {1, 2, 3, 4});
  set->MergeDupe(Dupe(*set, 1));  // card 2 brings the title
  set->DeleteDupe(Dupe(*set, 2));  // card 4
  set->GetPrimaryCard()->frontImage = std::make_shared<CLong>(3);
  set->GetPrimaryCard()->backImage = std::make_shared<CLong>(4);
  store_->calls.clear();

  set->CommitToDatabase();
  // Field writes are counted, not listed: a value, rectangle and levels per field, a label per extra field.
  std::string rest;
  for (const auto& call : store_->calls)
    if (!call.starts_with("PutValue ")) rest += call + "\n";
  EXPECT_NE(Log().find("PutValue 1 Nickname\n"), std::string::npos);
  EXPECT_EQ(store_->CallCount("PutValue"), 84);
  EXPECT_EQ(rest,
            "CardExists 1\nCardExists 1\nBeginUpdate\nCommitUpdate\n"
            "BeginUpdate\nGetCardDIB 3\nSetCardDIB 1\nGetBackDIB 4\nSetBackDIB 1\nCommitUpdate\n"
            "BeginUpdate\nCardExists 4\nCardExists 4\nDeleteCard 4\nCardExists 2\nCardExists 2\nDeleteCard 2\n"
            "CommitUpdate\n");
  std::string values;
  for (const char* name : {"Title", "Phone 1.Label", "Phone 1.Rectangle", "Name.Confidence Levels", "Notes.Rectangle",
                           "Modified Date"})
    values += std::string(name) + "=" + store_->FindValue(1, name).value_or("<none>") + "\n";
  EXPECT_EQ(values,
            "Title=CEO\nPhone 1.Label=Work\nPhone 1.Rectangle=10 20 110 45\nName.Confidence Levels=100 100\n"
            "Notes.Rectangle=<none>\nModified Date=2001-02-03\n");
  EXPECT_EQ(std::to_string(store_->frontDib[1]) + " " + std::to_string(store_->backDib[1]), "333 444");
  EXPECT_EQ(Layout(*set), "1 | 3 | ");
  EXPECT_FALSE(set->DupeSetNeedsSaving());
}

TEST_F(DupeSetStoreTest, CommitOfADeletedContactWarnsRestoresTheDupesAndWritesNothing) {
  for (int32_t id : {1, 2, 3, 4}) store_->AddCard(id, {{"Name", "Ann Lee"}});
  auto set = StoredSet(CONFLICT_DUPE, {1, 2, 3, 4});
  SetText(*set->GetPrimaryCard(), "Title", "CEO");
  set->DeleteDupe(Dupe(*set, 1));
  set->DeleteDupe(Dupe(*set, 2));
  EXPECT_EQ(Layout(*set), "1 | 3 | 2 4");
  CardStoreMgr()->DeleteCard(1);
  store_->calls.clear();

  set->CommitToDatabase();
  EXPECT_EQ(Log(), "CardExists 1\nCardExists 1\n");
  EXPECT_EQ(prompt_->shown,
            "WARNING: contact 'Ann Lee' has been deleted from the database.\r\n"
            "         Changes for this contact will be ignored. [Ombrel]\n");
  EXPECT_EQ(Layout(*set), "1 | 3 2 4 | ");
  EXPECT_TRUE(store_->HasCard(2));
}

// A failing write aborts its bracket and ends the commit with the manager's error; later brackets stay unopened.
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
      // A refused commit is aborted too, or the next BeginUpdate would be refused as nested.
      {"commit of the fields", [](FakeCardStore& s) { s.Fail("CommitUpdate", 5, "database is locked").Times(1); },
       "Failed to Commit Updates\r\ndatabase is locked", "CommitUpdate\nGetLastError\nAbortUpdate\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    store_ = std::make_shared<FakeCardStore>();
    CardStoreMgr()->SetCardStore(store_);
    for (int32_t id : {1, 2, 3}) store_->AddCard(id, {{"Name", "Ann Lee"}});
    store_->frontDib[3] = 33;
    auto set = StoredSet(CONFLICT_DUPE, {1, 2, 3});
    SetText(*set->GetPrimaryCard(), "Title", "CEO");
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

// A set may be without a primary (its count is then 0). The operations that
// need the primary must raise, as using any unset object does, rather than
// crash; each runs apart so that a crash fails only its own case.
TEST(CDupeSetTest, OperationsThatNeedThePrimaryRaiseOnASetWithoutOne) {
  for (auto operation : {+[](CDupeSet& s) { s.ToStr(); }, +[](CDupeSet& s) { s.DupeSetNeedsSaving(); },
                         +[](CDupeSet& s) { s.CommitToDatabase(); }}) {
    EXPECT_EXIT(
        {
          CDupeSet set;
          std::_Exit(ErrorText([&] { operation(set); }) == "<no error>" ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
  }
}

// Lining up the labels of the additional Phone and Email fields across the
// cards of a dupe set (SemanticallyMatchExtraFields).
// Every phone, fax and e-mail field holding a text or label: "1: Phone 1=555 [Work];".
std::string PhonesAndEmails(const CDupeSet& set) {
  std::vector<std::shared_ptr<CCard>> cards{set.GetPrimaryCard()};
  for (int32_t i = 1; i <= set.GetDupes().GetNumItems(); ++i) cards.push_back(set.GetDupes().GetItemAs<CCard>(i));
  std::string out;
  for (const auto& card : cards) {
    out += std::to_string(card->GetCardID()) + ":";
    for (int32_t i = 1; i <= card->NumFields(); ++i) {
      const CCardField& f = card->FieldAt(i);
      if (f.Name().rfind("Phone", 0) && f.Name().rfind("Email", 0) && f.Name() != "Fax") continue;
      if (f.Text().empty() && f.Label().empty()) continue;
      out += " " + f.Name() + "=" + f.Text() + (f.Label().empty() ? "" : " [" + f.Label() + "]") + ";";
    }
    out += "\n";
  }
  return out;
}

std::string Matched(const std::vector<std::shared_ptr<CCard>>& cards) {
  auto set = SetOf(CONFLICT_DUPE, cards);
  set->SemanticallyMatchExtraFields();
  return PhonesAndEmails(*set);
}

TEST(ExtraFieldMatchingTest, LabelsAreSharedAcrossTheSet) {
  struct Case { std::vector<std::shared_ptr<CCard>> cards; std::string expected; };
  const std::vector<Case> cases = {
      // A known value takes its label (compared loosely); the first card that labels it decides.
      {{MakeCard(1, {{"Phone 1", "555-0001", "Work"}, {"Phone 2", "555-0002", "Home"},
                     {"Email 1", "Ann@X.com", "Office"}}),
        MakeCard(2, {{"Phone 3", "(555) 0002", ""}, {"Email 4", "  ann@x.COM", ""}}),
        MakeCard(3, {{"Phone 1", "555 0001", "Mobile"}}), MakeCard(4, {{"Phone 6", "5550001", ""}})},
       "1: Phone 1=555-0001 [Work]; Phone 2=555-0002 [Home]; Email 1=Ann@X.com [Office];\n"
       "2: Phone 3=(555) 0002 [Home]; Email 4=ann@x.COM [Office];\n3: Phone 1=555 0001 [Mobile];\n"
       "4: Phone 6=5550001 [Work];\n"},
      // An unknown value takes the first gathered label its card does not use.
      {{MakeCard(1, {{"Phone 1", "111", "Work"}}), MakeCard(2, {{"Phone 1", "222", "Home"}}),
        MakeCard(3, {{"Phone 1", "333", "Work"}, {"Phone 2", "444", ""}, {"Phone 3", "555", ""}})},
       "1: Phone 1=111 [Work];\n2: Phone 1=222 [Home];\n3: Phone 1=333 [Work]; Phone 2=444 [Home]; Phone 3=555;\n"},
      // Fields are served in field order: an earlier unknown value takes a later value's label.
      {{MakeCard(1, {{"Phone 1", "555 0001", "Work"}, {"Phone 2", "555 0003", "Fax"}}),
        MakeCard(2, {{"Phone 1", "555 0002", ""}, {"Phone 2", "555 0001", ""}})},
       "1: Phone 1=555 0001 [Work]; Phone 2=555 0003 [Fax];\n2: Phone 1=555 0002 [Work]; Phone 2=555 0001 [Fax];\n"},
      // A label stands on one field per card.
      {{MakeCard(1, {{"Phone 1", "111", "Work"}, {"Phone 2", "222", "Work"}, {"Phone 3", "333", "Work"}}),
        MakeCard(2, {{"Phone 1", "444", "Home"}})},
       "1: Phone 1=111 [Work]; Phone 2=222 [Home]; Phone 3=333;\n2: Phone 1=444 [Home];\n"},
      // Empty fields, standard fields and the other type are left alone.
      {{MakeCard(1, {{"Phone 1", "111", "Work"}, {"Email 1", "a@x.com", ""}}),
        MakeCard(2, {{"Phone", "111", ""}, {"Fax", "999", ""}, {"Email", "b@x.com", ""}, {"Phone 2", "", ""},
                 {"Phone 3", "", "Old"}, {"Email 2", "c@x.com", ""}})},
       "1: Phone 1=111 [Work]; Email 1=a@x.com;\n"
       "2: Phone=111; Fax=999; Phone 3= [Old]; Email=b@x.com; Email 2=c@x.com;\n"},
  };
  for (size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(Matched(cases[i].cards), cases[i].expected) << "case " << i;
}

// The matching runs once per set; its per-type step knows only Phone and Email.
TEST(ExtraFieldMatchingTest, RunsOncePerSetForPhoneAndEmailOnly) {
  auto primary = MakeCard(1, {{"Phone 1", "111", ""}});
  auto set = SetOf(CONFLICT_DUPE, {primary, MakeCard(2, {{"Phone 1", "111", ""}})});
  set->SemanticallyMatchExtraFields();
  primary->GetField("Phone 1")->SetUserLabel("Work");
  set->SemanticallyMatchExtraFields();
  EXPECT_EQ(ErrorText([&] { ((*set).*MatchOneType())("Fax"); }), "Unknown field type: Fax");
  EXPECT_EQ(PhonesAndEmails(*set), "1: Phone 1=111 [Work];\n2: Phone 1=111;\n");
  ((*set).*MatchOneType())("Phone");
  EXPECT_EQ(PhonesAndEmails(*set), "1: Phone 1=111 [Work];\n2: Phone 1=111 [Work];\n");
}

}  // namespace
}  // namespace ombrel
