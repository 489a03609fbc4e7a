// Lining up the labels of the additional Phone and Email fields across the
// cards of a dupe set (SemanticallyMatchExtraFields).
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/cards.h"
#include "support/error_text.h"

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

std::shared_ptr<CCard> Card(int32_t id, const std::vector<FieldValue>& values) { return MakeCard(id, values); }
std::shared_ptr<CDupeSet> SetOf(const std::vector<std::shared_ptr<CCard>>& cards) {
  return ombrel::SetOf(CONFLICT_DUPE, cards);
}

// Every phone, fax and e-mail field holding a text or label: "1: Phone 1=555 [Work];".
std::string Dump(const CDupeSet& set) {
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
  auto set = SetOf(cards);
  set->SemanticallyMatchExtraFields();
  return Dump(*set);
}

TEST(ExtraFieldMatchingTest, LabelsAreSharedAcrossTheSet) {
  struct Case { std::vector<std::shared_ptr<CCard>> cards; std::string expected; };
  const std::vector<Case> cases = {
      // A known value takes its label (compared loosely); the first card that labels it decides.
      {{Card(1, {{"Phone 1", "555-0001", "Work"}, {"Phone 2", "555-0002", "Home"}, {"Email 1", "Ann@X.com", "Office"}}),
        Card(2, {{"Phone 3", "(555) 0002", ""}, {"Email 4", "  ann@x.COM", ""}}),
        Card(3, {{"Phone 1", "555 0001", "Mobile"}}), Card(4, {{"Phone 6", "5550001", ""}})},
       "1: Phone 1=555-0001 [Work]; Phone 2=555-0002 [Home]; Email 1=Ann@X.com [Office];\n"
       "2: Phone 3=(555) 0002 [Home]; Email 4=ann@x.COM [Office];\n3: Phone 1=555 0001 [Mobile];\n"
       "4: Phone 6=5550001 [Work];\n"},
      // An unknown value takes the first gathered label its card does not use.
      {{Card(1, {{"Phone 1", "111", "Work"}}), Card(2, {{"Phone 1", "222", "Home"}}),
        Card(3, {{"Phone 1", "333", "Work"}, {"Phone 2", "444", ""}, {"Phone 3", "555", ""}})},
       "1: Phone 1=111 [Work];\n2: Phone 1=222 [Home];\n3: Phone 1=333 [Work]; Phone 2=444 [Home]; Phone 3=555;\n"},
      // Fields are served in field order: an earlier unknown value takes a later value's label.
      {{Card(1, {{"Phone 1", "555 0001", "Work"}, {"Phone 2", "555 0003", "Fax"}}),
        Card(2, {{"Phone 1", "555 0002", ""}, {"Phone 2", "555 0001", ""}})},
       "1: Phone 1=555 0001 [Work]; Phone 2=555 0003 [Fax];\n2: Phone 1=555 0002 [Work]; Phone 2=555 0001 [Fax];\n"},
      // A label stands on one field per card.
      {{Card(1, {{"Phone 1", "111", "Work"}, {"Phone 2", "222", "Work"}, {"Phone 3", "333", "Work"}}),
        Card(2, {{"Phone 1", "444", "Home"}})},
       "1: Phone 1=111 [Work]; Phone 2=222 [Home]; Phone 3=333;\n2: Phone 1=444 [Home];\n"},
      // Empty fields, standard fields and the other type are left alone.
      {{Card(1, {{"Phone 1", "111", "Work"}, {"Email 1", "a@x.com", ""}}),
        Card(2, {{"Phone", "111", ""}, {"Fax", "999", ""}, {"Email", "b@x.com", ""}, {"Phone 2", "", ""},
                 {"Phone 3", "", "Old"}, {"Email 2", "c@x.com", ""}})},
       "1: Phone 1=111 [Work]; Email 1=a@x.com;\n"
       "2: Phone=111; Fax=999; Phone 3= [Old]; Email=b@x.com; Email 2=c@x.com;\n"},
  };
  for (size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(Matched(cases[i].cards), cases[i].expected) << "case " << i;
}

TEST(ExtraFieldMatchingTest, RunsOncePerSet) {
  auto primary = Card(1, {{"Phone 1", "111", ""}});
  auto dupe = Card(2, {{"Phone 1", "111", ""}});
  auto set = SetOf({primary, dupe});
  set->SemanticallyMatchExtraFields();
  primary->GetField("Phone 1")->SetUserLabel("Work");
  set->SemanticallyMatchExtraFields();
  EXPECT_EQ(Dump(*set), "1: Phone 1=111 [Work];\n2: Phone 1=111;\n");
}

TEST(ExtraFieldMatchingTest, OnlyPhoneAndEmailAreKnownTypes) {
  auto set = SetOf({Card(1, {{"Phone 1", "111", "Work"}}), Card(2, {{"Phone 1", "111", ""}})});
  EXPECT_EQ(ErrorText([&] { ((*set).*MatchOneType())("Fax"); }), "Unknown field type: Fax");
  EXPECT_EQ(Dump(*set), "1: Phone 1=111 [Work];\n2: Phone 1=111;\n");
  ((*set).*MatchOneType())("Phone");
  EXPECT_EQ(Dump(*set), "1: Phone 1=111 [Work];\n2: Phone 1=111 [Work];\n");
}

}  // namespace
}  // namespace ombrel
