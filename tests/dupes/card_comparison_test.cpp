// Membership rules of a dupe set: CompareCards step by step, the word test,
// IsDupe, ShouldBecomePrimary and AddCardIfDupe.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "dupes/comparison.h"
#include "support/cards.h"
#include "support/error_text.h"
#include "support/store_fixture.h"

namespace ombrel {
namespace {

using Texts = std::vector<FieldValue>;

struct CardShape { std::string last; std::string tag; Texts texts; };

std::shared_ptr<CCard> Shaped(int32_t id, const CardShape& shape) {
  auto card = MakeCard(id, shape.texts);
  card->SetLastName(shape.last);
  card->tag = shape.tag;
  return card;
}

bool Compare(int32_t type, const CardShape& a, const CardShape& b) {
  auto card1 = Shaped(1, a), card2 = Shaped(2, b);
  CDupeSet set;
  set.Init(card1, type);
  return set.CompareCards(card1.get(), card2.get());
}

const CardShape kJohn{"Smith", "Smith,John", {{"Name", "John Smith"}, {"Email", "john@x.com"}, {"Title", "CEO"}}};

CardShape With(CardShape shape, const std::string& name, const std::string& text, const std::string& label = "") {
  std::erase_if(shape.texts, [&](const FieldValue& v) { return v.name == name; });
  shape.texts.push_back({name, text, label});
  return shape;
}

TEST(CardComparisonTest, CompareCardsStepByStepForEveryType) {
  struct Case {
    std::string what;
    CardShape a, b;
    std::string answers;  // exact, compatible, conflict
  };
  const CardShape nameless{"", ",", {{"Company", "Acme"}, {"Phone", "555 1000"}}};
  const CardShape acme1{"", "", {{"Company", "Acme Corp"}, {"Solvane Status", "A"}}};
  const CardShape acme2{"", "", {{"Company", "Acme Corp"}, {"Solvane Status", "B"}}};
  const CardShape john1 = With(kJohn, "Phone 1", "555", "Work");
  const std::vector<Case> cases = {
      {"identical named cards", kJohn, kJohn, "E=yes C=yes X=yes"},
      {"last names Smith and Smyth", kJohn, {"Smyth", "Smith,John", With(kJohn, "Name", "John Smyth").texts},
       "E=no C=no X=no"},
      {"same family, other first name, other e-mail", kJohn,
       {"Smith", "Smith,Jane", With(kJohn, "Email", "jane@x.com").texts}, "E=no C=no X=no"},
      {"same family, other first name, same e-mail", kJohn, {"Smith", "Smith,Jon", kJohn.texts}, "E=no C=yes X=yes"},
      {"same family, other first name, e-mail in other case", kJohn,
       {"Smith", "Smith,Jon", With(kJohn, "Email", "  JOHN@X.com ").texts}, "E=no C=no X=yes"},
      {"one last name missing, tags differ", kJohn, {"", ",John", {}}, "E=no C=yes X=yes"},
      {"same tag, other e-mail", kJohn, With(kJohn, "Email", "j.smith@x.com"), "E=no C=no X=yes"},
      {"same tag, one e-mail missing", kJohn, With(kJohn, "Email", ""), "E=no C=yes X=yes"},
      {"only the dates differ", With(With(kJohn, "Creation Date", "2001"), "Modified Date", "2002"),
       With(With(kJohn, "Creation Date", "2011"), "Modified Date", "2012"), "E=yes C=yes X=yes"},
      {"only the verification status differs", With(kJohn, "Solvane Status", "A"), With(kJohn, "Solvane Status", "B"),
       "E=no C=no X=yes"},
      {"only a label differs", john1, With(kJohn, "Phone 1", "555", "Home"), "E=no C=no X=yes"},
      {"a label on one card only", john1, With(kJohn, "Phone 1", "555"), "E=no C=yes X=yes"},
      {"a title on one card only", kJohn, With(kJohn, "Title", ""), "E=no C=yes X=yes"},
      {"different titles", kJohn, With(kJohn, "Title", "CTO"), "E=no C=no X=yes"},
      {"different categories", With(kJohn, "Categories", "Golf"), With(kJohn, "Categories", "Clients"),
       "E=no C=yes X=yes"},
      {"different Verified", With(kJohn, "Verified", "Yes"), With(kJohn, "Verified", "No"), "E=no C=no X=yes"},
      {"search-loaded nameless cards, other values", nameless,
       {"", ",", {{"Company", "Other Inc"}, {"Phone", "555 2000"}}}, "E=no C=no X=yes"},
      {"search-loaded nameless cards, compatible values", nameless, {"", ",", {{"Company", "Acme"}}},
       "E=no C=yes X=yes"},
      {"empty tags, same text and data, status differs", acme1, acme2, "E=yes C=yes X=yes"},
      {"the same two cards with tags ','", {"", ",", acme1.texts}, {"", ",", acme2.texts}, "E=no C=no X=yes"},
      {"empty tags, text in other case, same e-mail", {"", "", {{"Company", "ACME Corp"}, {"Email", "a@acme.com"}}},
       {"", "", {{"Company", "acme corp"}, {"Email", "A@acme.com"}}}, "E=no C=no X=yes"},
      {"empty tags, other text, same e-mail", {"", "", {{"Company", "Acme"}, {"Email", "a@acme.com"}}},
       {"", "", {{"Title", "Boss"}, {"Email", "a@acme.com"}}}, "E=no C=yes X=yes"},
      {"empty tags, other text, other e-mail, enough words",
       {"", "", {{"Address", "alpha bravo charlie delta echo foxtrot golf"}, {"Email", "a@x.com"}}},
       {"", "", {{"Address", "alpha bravo charlie delta echo foxtrot hotel"}, {"Email", "b@x.com"}}},
       "E=no C=no X=yes"},
      {"empty tags, other text, no e-mail, enough words", {"", "", {{"Address", "alpha bravo charlie delta echo"}}},
       {"", "", {{"Company", "Echo"}, {"Notes", "alpha bravo charlie delta"}}}, "E=no C=yes X=yes"},
      {"one tag empty, same data", {"Smith", "Smith,John", {{"Name", "John Smith"}}},
       {"", "", {{"Name", "John Smith"}}}, "E=no C=yes X=yes"},
      {"one tag empty, other text, other e-mail, too few words", kJohn,
       {"", "", {{"Company", "Acme"}, {"Email", "other@x.com"}}}, "E=no C=no X=no"},
  };
  std::string got, want;
  auto yn = [](bool v) { return v ? "yes" : "no"; };
  for (const Case& c : cases) {
    got += c.what + ": E=" + yn(Compare(EXACT_DUPE, c.a, c.b)) + " C=" + yn(Compare(COMPATIBLE_DUPE, c.a, c.b)) +
           " X=" + yn(Compare(CONFLICT_DUPE, c.a, c.b)) + "\n";
    want += c.what + ": " + c.answers + "\n";
  }
  EXPECT_EQ(got, want);
}

// The word test alone: cards with empty tags and no names, the words of each
// in a different field so that content equality never decides.
TEST(CardComparisonTest, WordTestCountsWordsWithItsQuirks) {
  struct Case { std::string what; Texts a, b; bool passes; };
  const std::vector<Case> cases = {
      {"4 long words each, all equal", {{"Address", "alpha bravo charlie delta"}},
       {{"Notes", "alpha bravo charlie delta"}}, true},
      {"5 against 7 words, 2 unmatched", {{"Address", "alpha bravo charlie delta echo"}},
       {{"Notes", "alpha bravo charlie delta echo foxtrot golf"}}, false},
      {"5 against 6 words, 1 unmatched", {{"Address", "alpha bravo charlie delta echo"}},
       {{"Notes", "alpha bravo charlie delta echo foxtrot"}}, true},
      {"5 against 5 words, 2 unmatched", {{"Address", "alpha bravo charlie delta echo"}},
       {{"Notes", "alpha bravo charlie hotel india"}}, false},
      {"a short word inside is dropped", {{"Address", "alpha of bravo charlie"}},
       {{"Notes", "alpha bravo charlie delta"}}, false},
      {"a short final word is kept", {{"Address", "alpha bravo charlie ab"}}, {{"Notes", "alpha bravo charlie xy"}},
       true},
      {"a short word ending a field is dropped", {{"Company", "alpha bravo ab"}, {"Address", "charlie"}},
       {{"Notes", "alpha bravo charlie delta"}}, false},
      {"words split on tabs and line breaks", {{"Address", "alpha\tbravo"}, {"Other", "charlie delta"}},
       {{"Notes", "alpha bravo charlie delta"}}, true},
      {"a repeated word matches once", {{"Address", "alpha alpha alpha bravo charlie"}},
       {{"Notes", "alpha bravo charlie delta"}}, false},
      {"length counts characters, not bytes", {{"Address", "\xC3\xA9t\xC3\xA9 alpha bravo charlie"}},
       {{"Notes", "\xC3\xA9t\xC3\xA9 alpha bravo charlie"}}, false},
      {"4-character words are long", {{"Address", "alfa brav char delt"}}, {{"Notes", "alfa brav char delt"}}, true},
  };
  std::string got, want;
  for (const Case& c : cases) {
    got += c.what + (Compare(CONFLICT_DUPE, {"", "", c.a}, {"", "", c.b}) ? ": pass\n" : ": fail\n");
    want += c.what + (c.passes ? ": pass\n" : ": fail\n");
  }
  EXPECT_EQ(got, want);
  // The search's index of words relies on this: more words never allow fewer misses.
  for (size_t n = 0; n < 1000; ++n) EXPECT_LE(dupes_internal::AllowedMisses(n), dupes_internal::AllowedMisses(n + 1)) << n;
}

TEST(CardComparisonTest, EmptySetsUnknownTypesAndMissingCardsAreRefused) {
  CDupeSet empty;
  EXPECT_EQ(ErrorText([&] { empty.IsDupe(*Shaped(1, kJohn)); }), "DupeSet is empty");
  EXPECT_EQ(ErrorText([&] { empty.ShouldBecomePrimary(*Shaped(1, kJohn)); }), "Dupe set does not have primary card");
  for (int32_t type : {0, 4}) {
    CDupeSet set;
    set.Init(Shaped(1, kJohn), type);
    const std::string unknown = "Unknown dupe type: " + std::to_string(type);
    EXPECT_EQ(ErrorText([&] { set.IsDupe(*Shaped(2, kJohn)); }), unknown);
    EXPECT_EQ(ErrorText([&] { set.ShouldBecomePrimary(*Shaped(2, kJohn)); }), unknown);
    EXPECT_EQ(ErrorText([&] { set.AddCardIfDupe(Shaped(2, kJohn)); }), unknown);
    EXPECT_EQ(set.GetNumberOfCards(), 1);
  }
  // Offering no card must fail like comparing with one; run apart so that a
  // crash shows as a failure of this test alone.
  EXPECT_EXIT(
      {
        CDupeSet set;
        set.Init(Shaped(1, kJohn), CONFLICT_DUPE);
        std::string error = ErrorText([&] { set.AddCardIfDupe(nullptr); });
        bool refused = error == "Cannot compare cards: one of the given cards is empty" && set.GetNumberOfCards() == 1;
        std::_Exit(refused ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

// Cards known to the fake store, which answers whether they have a front image.
class CardComparisonStoreTest : public StoreFixture {
 protected:
  std::shared_ptr<CCard> StoredCard(int32_t id, const CardShape& shape, bool frontImage) {
    store_->AddCard(id);
    if (frontImage) store_->frontDib[id] = 1000 + id;
    return Shaped(id, shape);
  }
};

TEST_F(CardComparisonStoreTest, ShouldBecomePrimaryByImageThenByContent) {
  // The primary: two fields, a long text. The candidates: more fields with
  // less text, fewer fields with more text, the same content.
  const CardShape primary{"", "", {{"Name", "Jonathan Smithers"}, {"Address", "1200 Long Boulevard Springfield"}}};
  const CardShape candidates[] = {
      {"", "", {{"Name", "J Smithers"}, {"Verified", "No"}, {"Categories", "Golf"}}},
      {"", "", {{"Name", "Jonathan Smithers of 1200 Long Boulevard Springfield, Illinois"}}},
      primary,
  };
  std::string dump;
  int32_t nextId = 1;
  for (int32_t type : {EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE}) {
    for (const char* images : {"--", "-C", "P-", "PC"}) {
      dump += std::to_string(type) + " " + images + ":";
      for (const CardShape& candidate : candidates) {
        CDupeSet set;
        set.Init(StoredCard(nextId++, primary, images[0] == 'P'), type);
        dump += set.ShouldBecomePrimary(*StoredCard(nextId++, candidate, images[1] == 'C')) ? " yes" : " no";
      }
      dump += "\n";
    }
    if (type == EXACT_DUPE) {
      EXPECT_EQ(store_->CallCount("HasFrontImage"), 0);
    }
  }
  EXPECT_EQ(dump,
            "1 --: no no no\n1 -C: no no no\n1 P-: no no no\n1 PC: no no no\n"
            "2 --: yes no no\n2 -C: yes yes yes\n2 P-: yes no no\n2 PC: yes no no\n"
            "3 --: no yes no\n3 -C: yes yes yes\n3 P-: no yes no\n3 PC: no yes no\n");
}

TEST_F(CardComparisonStoreTest, AddCardIfDupeMakesACandidateWithAnImageThePrimary) {
  const CardShape ann{"Lee", "Lee,Ann", {{"Name", "Ann Lee"}, {"Company", "Acme"}}};
  CDupeSet set;
  set.Init(StoredCard(1, ann, false), COMPATIBLE_DUPE);
  EXPECT_TRUE(set.AddCardIfDupe(StoredCard(2, ann, false)));
  EXPECT_FALSE(set.AddCardIfDupe(StoredCard(3, With(ann, "Company", "Other"), true)));
  EXPECT_TRUE(set.AddCardIfDupe(StoredCard(4, ann, true)));
  // More content, no image: still beats a primary with an image.
  EXPECT_TRUE(set.AddCardIfDupe(StoredCard(5, With(ann, "Title", "CEO"), false)));
  // An image wins back over content.
  EXPECT_TRUE(set.AddCardIfDupe(StoredCard(6, ann, true)));
  EXPECT_EQ(Layout(set), "6 | 2 1 4 5 | ");
  EXPECT_FALSE(set.DupeSetNeedsSaving());  // the new primary's snapshot is taken when it is made primary
}

TEST_F(CardComparisonStoreTest, AStoreFailureWhileChoosingThePrimaryLeavesTheSetUnchanged) {
  const CardShape ann{"Lee", "Lee,Ann", {{"Name", "Ann Lee"}}};
  CDupeSet set;
  set.Init(StoredCard(1, ann, false), CONFLICT_DUPE);
  auto candidate = StoredCard(2, With(ann, "Title", "CEO"), true);
  store_->Fail("HasFrontImage", 3, "offline").ForCard(2);
  EXPECT_EQ(ErrorText([&] { set.AddCardIfDupe(candidate); }),
            "Failed to find out if front image exists for card: 2\r\noffline");
  EXPECT_EQ(set.GetNumberOfCards(), 1);
  EXPECT_EQ(set.GetPrimaryCard()->GetCardID(), 1);
}

}  // namespace
}  // namespace ombrel
