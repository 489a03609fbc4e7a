// Membership rules of a dupe set: CompareCards step by step, the word test,
// IsDupe, ShouldBecomePrimary and AddCardIfDupe.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/error.h"
#include "support/error_text.h"
#include "support/fake_card_store.h"

namespace ombrel {
namespace {

using Texts = std::vector<std::pair<std::string, std::string>>;

struct CardShape {
  std::string last;
  std::string tag;
  Texts texts;
  Texts labels = {};
};

std::shared_ptr<CCard> MakeCard(int32_t id, const CardShape& shape) {
  auto card = std::make_shared<CCard>();
  card->SetCardId(id);
  for (const auto& [name, text] : shape.texts) card->SetData(name, text, "", nullptr, 100, 100, false, false);
  for (const auto& [name, label] : shape.labels) card->GetField(name)->SetUserLabel(label);
  card->SetLastName(shape.last);
  card->tag = shape.tag;
  return card;
}

bool Compare(int32_t type, const CardShape& a, const CardShape& b) {
  auto card1 = MakeCard(1, a);
  auto card2 = MakeCard(2, b);
  CDupeSet set;
  set.Init(card1, type);
  return set.CompareCards(card1.get(), card2.get());
}

// "E=yes C=no X=yes": the answer of each type, exact, compatible, conflict.
std::string Answers(const CardShape& a, const CardShape& b) {
  auto yn = [](bool v) { return v ? "yes" : "no"; };
  return std::string("E=") + yn(Compare(EXACT_DUPE, a, b)) + " C=" + yn(Compare(COMPATIBLE_DUPE, a, b)) +
         " X=" + yn(Compare(CONFLICT_DUPE, a, b));
}

const CardShape kJohn{"Smith", "Smith,John", {{"Name", "John Smith"}, {"Email", "john@x.com"}, {"Title", "CEO"}}};

CardShape With(CardShape shape, const std::string& name, const std::string& text) {
  for (auto& [n, t] : shape.texts)
    if (n == name) {
      t = text;
      return shape;
    }
  shape.texts.emplace_back(name, text);
  return shape;
}

TEST(CardComparisonTest, CompareCardsStepByStepForEveryType) {
  struct Case {
    std::string what;
    CardShape a, b;
  };
  const CardShape nameless1{"", ",", {{"Company", "Acme"}, {"Phone", "555 1000"}}};
  const CardShape acme1{"", "", {{"Company", "Acme Corp"}, {"Solvane Status", "A"}}};
  const CardShape acme2{"", "", {{"Company", "Acme Corp"}, {"Solvane Status", "B"}}};
  const std::vector<Case> cases = {
      {"identical named cards", kJohn, kJohn},
      {"last names Smith and Smyth", kJohn,
       {"Smyth", "Smith,John", {{"Name", "John Smyth"}, {"Email", "john@x.com"}, {"Title", "CEO"}}}},
      {"same family, other first name, other e-mail", kJohn,
       {"Smith", "Smith,Jane", {{"Name", "John Smith"}, {"Email", "jane@x.com"}, {"Title", "CEO"}}}},
      {"same family, other first name, same e-mail", kJohn, {"Smith", "Smith,Jon", kJohn.texts}},
      {"same family, other first name, e-mail in other case", kJohn,
       {"Smith", "Smith,Jon", With(kJohn, "Email", "  JOHN@X.com ").texts}},
      {"one last name missing, tags differ", kJohn, {"", ",John", {}}},
      {"same tag, other e-mail", kJohn, With(kJohn, "Email", "j.smith@x.com")},
      {"same tag, one e-mail missing", kJohn, With(kJohn, "Email", "")},
      {"only the dates differ", With(With(kJohn, "Creation Date", "2001"), "Modified Date", "2002"),
       With(With(kJohn, "Creation Date", "2011"), "Modified Date", "2012")},
      {"only the verification status differs", With(kJohn, "Solvane Status", "A"),
       With(kJohn, "Solvane Status", "B")},
      {"only a label differs", {"Smith", "Smith,John", With(kJohn, "Phone 1", "555").texts, {{"Phone 1", "Work"}}},
       {"Smith", "Smith,John", With(kJohn, "Phone 1", "555").texts, {{"Phone 1", "Home"}}}},
      {"a label on one card only",
       {"Smith", "Smith,John", With(kJohn, "Phone 1", "555").texts, {{"Phone 1", "Work"}}},
       With(kJohn, "Phone 1", "555")},
      {"a title on one card only", kJohn, With(kJohn, "Title", "")},
      {"different titles", kJohn, With(kJohn, "Title", "CTO")},
      {"different categories", With(kJohn, "Categories", "Golf"), With(kJohn, "Categories", "Clients")},
      {"different Verified", With(kJohn, "Verified", "Yes"), With(kJohn, "Verified", "No")},
      {"search-loaded nameless cards, other values", nameless1,
       {"", ",", {{"Company", "Other Inc"}, {"Phone", "555 2000"}}}},
      {"search-loaded nameless cards, compatible values", nameless1, {"", ",", {{"Company", "Acme"}}}},
      {"empty tags, same text and data, status differs", acme1, acme2},
      {"the same two cards with tags ','", {"", ",", acme1.texts}, {"", ",", acme2.texts}},
      {"empty tags, text in other case, same e-mail", {"", "", {{"Company", "ACME Corp"}, {"Email", "a@acme.com"}}},
       {"", "", {{"Company", "acme corp"}, {"Email", "A@acme.com"}}}},
      {"empty tags, other text, same e-mail", {"", "", {{"Company", "Acme"}, {"Email", "a@acme.com"}}},
       {"", "", {{"Title", "Boss"}, {"Email", "a@acme.com"}}}},
      {"empty tags, other text, other e-mail, enough words",
       {"", "", {{"Address", "alpha bravo charlie delta echo foxtrot golf"}, {"Email", "a@x.com"}}},
       {"", "", {{"Address", "alpha bravo charlie delta echo foxtrot hotel"}, {"Email", "b@x.com"}}}},
      {"empty tags, other text, no e-mail, enough words", {"", "", {{"Address", "alpha bravo charlie delta echo"}}},
       {"", "", {{"Company", "Echo"}, {"Notes", "alpha bravo charlie delta"}}}},
      {"one tag empty, same data", {"Smith", "Smith,John", {{"Name", "John Smith"}}},
       {"", "", {{"Name", "John Smith"}}}},
  };
  std::string dump;
  for (const Case& c : cases) dump += c.what + ": " + Answers(c.a, c.b) + "\n";
  EXPECT_EQ(dump,
            "identical named cards: E=yes C=yes X=yes\n"
            "last names Smith and Smyth: E=no C=no X=no\n"
            "same family, other first name, other e-mail: E=no C=no X=no\n"
            "same family, other first name, same e-mail: E=no C=yes X=yes\n"
            "same family, other first name, e-mail in other case: E=no C=no X=yes\n"
            "one last name missing, tags differ: E=no C=yes X=yes\n"
            "same tag, other e-mail: E=no C=no X=yes\n"
            "same tag, one e-mail missing: E=no C=yes X=yes\n"
            "only the dates differ: E=yes C=yes X=yes\n"
            "only the verification status differs: E=no C=no X=yes\n"
            "only a label differs: E=no C=no X=yes\n"
            "a label on one card only: E=no C=yes X=yes\n"
            "a title on one card only: E=no C=yes X=yes\n"
            "different titles: E=no C=no X=yes\n"
            "different categories: E=no C=yes X=yes\n"
            "different Verified: E=no C=no X=yes\n"
            "search-loaded nameless cards, other values: E=no C=no X=yes\n"
            "search-loaded nameless cards, compatible values: E=no C=yes X=yes\n"
            "empty tags, same text and data, status differs: E=yes C=yes X=yes\n"
            "the same two cards with tags ',': E=no C=no X=yes\n"
            "empty tags, text in other case, same e-mail: E=no C=no X=yes\n"
            "empty tags, other text, same e-mail: E=no C=yes X=yes\n"
            "empty tags, other text, other e-mail, enough words: E=no C=no X=yes\n"
            "empty tags, other text, no e-mail, enough words: E=no C=yes X=yes\n"
            "one tag empty, same data: E=no C=yes X=yes\n");
}

// The word test alone: cards with empty tags and no names, the words of each
// in a different field so that content equality never decides.
TEST(CardComparisonTest, WordTestCountsWordsWithItsQuirks) {
  struct Case {
    std::string what;
    Texts a, b;
  };
  const std::vector<Case> cases = {
      {"4 long words each, all equal", {{"Address", "alpha bravo charlie delta"}},
       {{"Notes", "alpha bravo charlie delta"}}},
      {"5 against 7 words, 2 unmatched", {{"Address", "alpha bravo charlie delta echo"}},
       {{"Notes", "alpha bravo charlie delta echo foxtrot golf"}}},
      {"5 against 6 words, 1 unmatched", {{"Address", "alpha bravo charlie delta echo"}},
       {{"Notes", "alpha bravo charlie delta echo foxtrot"}}},
      {"5 against 5 words, 2 unmatched", {{"Address", "alpha bravo charlie delta echo"}},
       {{"Notes", "alpha bravo charlie hotel india"}}},
      {"a short word inside is dropped", {{"Address", "alpha of bravo charlie"}},
       {{"Notes", "alpha bravo charlie delta"}}},
      {"a short final word is kept", {{"Address", "alpha bravo charlie ab"}}, {{"Notes", "alpha bravo charlie xy"}}},
      {"a short word ending a field is dropped", {{"Company", "alpha bravo ab"}, {"Address", "charlie"}},
       {{"Notes", "alpha bravo charlie delta"}}},
      {"words split on tabs and line breaks", {{"Address", "alpha\tbravo"}, {"Other", "charlie delta"}},
       {{"Notes", "alpha bravo charlie delta"}}},
      {"a repeated word matches once", {{"Address", "alpha alpha alpha bravo charlie"}},
       {{"Notes", "alpha bravo charlie delta"}}},
      {"length counts characters, not bytes", {{"Address", "\xC3\xA9t\xC3\xA9 alpha bravo charlie"}},
       {{"Notes", "\xC3\xA9t\xC3\xA9 alpha bravo charlie"}}},
      {"4-character words are long", {{"Address", "alfa brav char delt"}}, {{"Notes", "alfa brav char delt"}}},
  };
  std::string dump;
  for (const Case& c : cases)
    dump += c.what + ": " + (Compare(CONFLICT_DUPE, {"", "", c.a}, {"", "", c.b}) ? "pass" : "fail") + "\n";
  EXPECT_EQ(dump,
            "4 long words each, all equal: pass\n"
            "5 against 7 words, 2 unmatched: fail\n"
            "5 against 6 words, 1 unmatched: pass\n"
            "5 against 5 words, 2 unmatched: fail\n"
            "a short word inside is dropped: fail\n"
            "a short final word is kept: pass\n"
            "a short word ending a field is dropped: fail\n"
            "words split on tabs and line breaks: pass\n"
            "a repeated word matches once: fail\n"
            "length counts characters, not bytes: fail\n"
            "4-character words are long: pass\n");
}

// Offering no card must fail like comparing with one; run apart so that a
// crash shows as a failure of this test alone.
TEST(CardComparisonTest, OfferingAMissingCardFailsWithoutChangingTheSet) {
  EXPECT_EXIT(
      {
        CDupeSet set;
        set.Init(MakeCard(1, kJohn), CONFLICT_DUPE);
        std::string error = ErrorText([&] { set.AddCardIfDupe(nullptr); });
        std::_Exit(error == "Cannot compare cards: one of the given cards is empty" && set.GetNumberOfCards() == 1
                       ? 0
                       : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(CardComparisonTest, IsDupeErrors) {
  CDupeSet empty;
  EXPECT_EQ(ErrorText([&] { empty.IsDupe(*MakeCard(1, kJohn)); }), "DupeSet is empty");
  EXPECT_EQ(ErrorText([&] { empty.ShouldBecomePrimary(*MakeCard(1, kJohn)); }),
            "Dupe set does not have primary card");
  for (int32_t type : {0, 4}) {
    CDupeSet set;
    set.Init(MakeCard(1, kJohn), type);
    EXPECT_EQ(ErrorText([&] { set.IsDupe(*MakeCard(2, kJohn)); }), "Unknown dupe type: " + std::to_string(type));
    EXPECT_EQ(ErrorText([&] { set.ShouldBecomePrimary(*MakeCard(2, kJohn)); }),
              "Unknown dupe type: " + std::to_string(type));
    EXPECT_EQ(ErrorText([&] { set.AddCardIfDupe(MakeCard(2, kJohn)); }), "Unknown dupe type: " + std::to_string(type));
    EXPECT_EQ(set.GetNumberOfCards(), 1);
  }
}

// Only a compatible set checks the candidate against its dupes as well.
TEST(CardComparisonTest, IsDupeChecksEveryDupeOnlyForCompatibleSets) {
  std::string dump;
  for (int32_t type : {EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE}) {
    CDupeSet set;
    set.Init(MakeCard(1, {"", ",", {{"Company", "Acme"}}}), type);
    // Dupes that were added by hand, so they need not agree with the primary.
    set.AddDupe(MakeCard(2, {"", ",", {{"Company", "Acme"}, {"Title", "CEO"}}}));
    set.AddDupe(MakeCard(3, {"Smith", ",", {{"Company", "Acme"}, {"Name", "Smith"}}}));
    dump += std::to_string(type) + ":";
    // Agrees with everyone; conflicts with dupe 2's title; has dupe 3's family name in another spelling.
    for (const CardShape& candidate : {CardShape{"", ",", {{"Company", "Acme"}}},
                                      CardShape{"", ",", {{"Company", "Acme"}, {"Title", "CTO"}}},
                                      CardShape{"Smyth", ",", {{"Company", "Acme"}, {"Name", "Smyth"}}}})
      dump += set.IsDupe(*MakeCard(9, candidate)) ? " yes" : " no";
    dump += "\n";
  }
  EXPECT_EQ(dump, "1: yes no no\n2: yes no no\n3: yes yes yes\n");
}

class CardComparisonStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    savedMgr_ = CardStoreMgr();
    store_ = std::make_shared<FakeCardStore>();
    CardStoreMgr() = std::make_shared<CCardStoreMgr>();
    CardStoreMgr()->SetCardStore(store_);
  }
  void TearDown() override { CardStoreMgr() = savedMgr_; }

  std::shared_ptr<CCard> StoredCard(int32_t id, const CardShape& shape, bool frontImage) {
    store_->AddCard(id);
    if (frontImage) store_->frontDib[id] = 1000 + id;
    return MakeCard(id, shape);
  }

  std::shared_ptr<FakeCardStore> store_;

 private:
  std::shared_ptr<CCardStoreMgr> savedMgr_;
};

TEST_F(CardComparisonStoreTest, ShouldBecomePrimaryByImageThenByContent) {
  // The primary: two fields, a long text.
  const CardShape primary{"", "", {{"Name", "Jonathan Smithers"}, {"Address", "1200 Long Boulevard Springfield"}}};
  struct Content {
    std::string what;
    CardShape shape;
  };
  const std::vector<Content> contents = {
      {"more fields, less text", {"", "", {{"Name", "J Smithers"}, {"Verified", "No"}, {"Categories", "Golf"}}}},
      {"fewer fields, more text",
       {"", "", {{"Name", "Jonathan Smithers of 1200 Long Boulevard Springfield, Illinois"}}}},
      {"the same content", primary},
  };
  std::string dump;
  int32_t nextId = 1;
  for (int32_t type : {EXACT_DUPE, COMPATIBLE_DUPE, CONFLICT_DUPE}) {
    for (int images = 0; images < 4; ++images) {
      bool primaryImage = images & 2, candidateImage = images & 1;
      for (const Content& content : contents) {
        CDupeSet set;
        set.Init(StoredCard(nextId++, primary, primaryImage), type);
        auto candidate = StoredCard(nextId++, content.shape, candidateImage);
        dump += std::to_string(type) + " images " + (primaryImage ? "P" : "-") + (candidateImage ? "C" : "-") +
                ", " + content.what + ": " + (set.ShouldBecomePrimary(*candidate) ? "yes" : "no") + "\n";
      }
    }
    if (type == EXACT_DUPE) {
      EXPECT_EQ(store_->CallCount("HasFrontImage"), 0);
    }
  }
  std::string expected;
  const char* images[] = {"--", "-C", "P-", "PC"};
  for (int32_t type : {1, 2, 3})
    for (int i = 0; i < 4; ++i)
      for (const Content& content : contents) {
        bool yes = false;
        if (type != 1) {
          if (i == 1) yes = true;
          else if (type == 2) yes = content.what == "more fields, less text";
          else yes = content.what == "fewer fields, more text";
        }
        expected += std::to_string(type) + " images " + images[i] + ", " + content.what + ": " +
                    (yes ? "yes" : "no") + "\n";
      }
  EXPECT_EQ(dump, expected);
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

  std::string layout = std::to_string(set.GetPrimaryCard()->GetCardID()) + " |";
  for (int32_t i = 1; i <= set.GetDupes().GetNumItems(); ++i) {
    layout += ' ';
    layout += std::to_string(set.GetDupes().GetItemAs<CCard>(i)->GetCardID());
  }
  EXPECT_EQ(layout, "6 | 2 1 4 5");
  // The new primary's snapshot is taken when it is made primary.
  EXPECT_FALSE(set.DupeSetNeedsSaving());
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
