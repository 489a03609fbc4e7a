// Lining up the labels of the additional Phone and Email fields across the
// cards of a dupe set (SemanticallyMatchExtraFields).
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ombrel/cards/ccard.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

// The per-type step is private and the public entry only ever passes
// "Phone" and "Email". An explicit instantiation may name a private member
// (access is not checked there), which lets the test reach the one error the
// public entry cannot produce.
using MatchFn = void (CDupeSet::*)(const std::string&);
MatchFn MatchOneType();
template <MatchFn Member>
struct ExposeMatch {
  friend MatchFn MatchOneType() { return Member; }
};
template struct ExposeMatch<&CDupeSet::DoSemanticallyMatchExtraFields>;

namespace {

struct Value {
  std::string field, text, label;
};

std::shared_ptr<CCard> Card(int32_t id, const std::vector<Value>& values) {
  auto card = std::make_shared<CCard>();
  card->SetCardId(id);
  for (const Value& v : values) card->SetData(v.field, v.text, v.label, nullptr, 100, 100, false, false);
  return card;
}

std::shared_ptr<CDupeSet> SetOf(const std::vector<std::shared_ptr<CCard>>& cards) {
  auto set = std::make_shared<CDupeSet>();
  set->Init(cards.front(), CONFLICT_DUPE);
  for (size_t i = 1; i < cards.size(); ++i) set->AddDupe(cards[i]);
  return set;
}

// Every phone and e-mail field that holds a text or a label, card by card:
// "1: Phone 1=555 [Work]".
std::string Dump(const CDupeSet& set) {
  std::vector<std::shared_ptr<CCard>> cards{set.GetPrimaryCard()};
  for (int32_t i = 1; i <= set.GetDupes().GetNumItems(); ++i) cards.push_back(set.GetDupes().GetItemAs<CCard>(i));
  std::string out;
  for (const auto& card : cards) {
    out += std::to_string(card->GetCardID()) + ":";
    for (int32_t i = 1; i <= card->NumFields(); ++i) {
      const CCardField& f = card->FieldAt(i);
      bool kind = f.Name().rfind("Phone", 0) == 0 || f.Name().rfind("Email", 0) == 0 || f.Name() == "Fax";
      if (!kind || (f.Text().empty() && f.Label().empty())) continue;
      out += " " + f.Name() + "=" + f.Text() + (f.Label().empty() ? "" : " [" + f.Label() + "]") + ";";
    }
    out += "\n";
  }
  return out;
}

std::string Matched(const std::vector<std::shared_ptr<CCard>>& cards) {
  auto set = SetOf(cards);
  set->SemanticallyMatchExtraFields();
  return Dump(*set);
}

TEST(ExtraFieldMatchingTest, WithoutAnyLabelNothingChanges) {
  EXPECT_EQ(Matched({Card(1, {{"Phone 1", "555 0001", ""}, {"Email 1", "a@x.com", ""}}),
                     Card(2, {{"Phone 2", "555 0001", ""}, {"Phone", "555 0009", ""}})}),
            "1: Phone 1=555 0001; Email 1=a@x.com;\n"
            "2: Phone=555 0009; Phone 2=555 0001;\n");
}

TEST(ExtraFieldMatchingTest, AValueTakesTheLabelItCarriesElsewhereComparedLoosely) {
  EXPECT_EQ(Matched({Card(1, {{"Phone 1", "555-0001", "Work"}, {"Phone 2", "555-0002", "Home"},
                              {"Email 1", "Ann@X.com", "Office"}}),
                     Card(2, {{"Phone 3", "(555) 0002", ""}, {"Email 4", "  ann@x.COM", ""}}),
                     // The first card that labels a value decides.
                     Card(3, {{"Phone 1", "555 0001", "Mobile"}}), Card(4, {{"Phone 6", "5550001", ""}})}),
            "1: Phone 1=555-0001 [Work]; Phone 2=555-0002 [Home]; Email 1=Ann@X.com [Office];\n"
            "2: Phone 3=(555) 0002 [Home]; Email 4=ann@x.COM [Office];\n"
            "3: Phone 1=555 0001 [Mobile];\n"
            "4: Phone 6=5550001 [Work];\n");
}

TEST(ExtraFieldMatchingTest, AnUnknownValueTakesTheFirstGatheredLabelTheCardDoesNotUse) {
  EXPECT_EQ(Matched({Card(1, {{"Phone 1", "111", "Work"}}), Card(2, {{"Phone 1", "222", "Home"}}),
                     Card(3, {{"Phone 1", "333", "Work"}, {"Phone 2", "444", ""}, {"Phone 3", "555", ""},
                              {"Phone 4", "666", ""}})}),
            "1: Phone 1=111 [Work];\n"
            "2: Phone 1=222 [Home];\n"
            "3: Phone 1=333 [Work]; Phone 2=444 [Home]; Phone 3=555; Phone 4=666;\n");
}

// Fields are served in field order, so an earlier unknown value can take the
// label that a later field's value carries; the later one then gets another.
TEST(ExtraFieldMatchingTest, FieldsAreServedInFieldOrder) {
  EXPECT_EQ(Matched({Card(1, {{"Phone 1", "555 0001", "Work"}, {"Phone 2", "555 0003", "Fax"}}),
                     Card(2, {{"Phone 1", "555 0002", ""}, {"Phone 2", "555 0001", ""}})}),
            "1: Phone 1=555 0001 [Work]; Phone 2=555 0003 [Fax];\n"
            "2: Phone 1=555 0002 [Work]; Phone 2=555 0001 [Fax];\n");
}

TEST(ExtraFieldMatchingTest, ALabelStandsOnOneFieldPerCard) {
  EXPECT_EQ(Matched({Card(1, {{"Phone 1", "111", "Work"}, {"Phone 2", "222", "Work"}, {"Phone 3", "333", "Work"}}),
                     Card(2, {{"Phone 1", "444", "Home"}})}),
            "1: Phone 1=111 [Work]; Phone 2=222 [Home]; Phone 3=333;\n"
            "2: Phone 1=444 [Home];\n");
}

TEST(ExtraFieldMatchingTest, EmptyFieldsStandardFieldsAndTheOtherTypeAreLeftAlone) {
  EXPECT_EQ(Matched({Card(1, {{"Phone 1", "111", "Work"}, {"Email 1", "a@x.com", ""}}),
                     Card(2, {{"Phone", "111", ""},
                              {"Fax", "999", ""},
                              {"Email", "b@x.com", ""},
                              {"Phone 2", "", ""},
                              {"Phone 3", "", "Old"},
                              {"Email 2", "c@x.com", ""}})}),
            "1: Phone 1=111 [Work]; Email 1=a@x.com;\n"
            "2: Phone=111; Fax=999; Phone 3= [Old]; Email=b@x.com; Email 2=c@x.com;\n");
}

TEST(ExtraFieldMatchingTest, RunsOncePerSet) {
  auto primary = Card(1, {{"Phone 1", "111", ""}});
  auto dupe = Card(2, {{"Phone 1", "111", ""}});
  auto set = SetOf({primary, dupe});
  set->SemanticallyMatchExtraFields();
  primary->GetField("Phone 1")->SetUserLabel("Work");
  set->SemanticallyMatchExtraFields();
  EXPECT_EQ(Dump(*set), "1: Phone 1=111 [Work];\n2: Phone 1=111;\n");

  // A clone is a new set and matches again.
  auto copy = set->Clone();
  copy->SemanticallyMatchExtraFields();
  EXPECT_EQ(Dump(*copy), "1: Phone 1=111 [Work];\n2: Phone 1=111 [Work];\n");
}

TEST(ExtraFieldMatchingTest, OnlyPhoneAndEmailAreKnownTypes) {
  auto set = SetOf({Card(1, {{"Phone 1", "111", "Work"}}), Card(2, {{"Phone 1", "111", ""}})});
  std::string error = "<no error>";
  try {
    ((*set).*MatchOneType())("Fax");
  } catch (const Error& e) {
    error = e.Description();
  }
  EXPECT_EQ(error, "Unknown field type: Fax");
  EXPECT_EQ(Dump(*set), "1: Phone 1=111 [Work];\n2: Phone 1=111;\n");
  ((*set).*MatchOneType())("Phone");
  EXPECT_EQ(Dump(*set), "1: Phone 1=111 [Work];\n2: Phone 1=111 [Work];\n");
}

}  // namespace
}  // namespace ombrel
