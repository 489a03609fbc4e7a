#include "ombrel/cards/ccard.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/cards.h"
#include "support/error_text.h"
#include "support/store_fixture.h"

namespace ombrel {
namespace {

std::string FieldNames(const CCard& card) {
  std::string names;
  for (int32_t i = 1; i <= card.NumFields(); ++i) names += card.FieldAt(i).Name() + "|";
  return names;
}

CCard NonStandard() {
  CCard card;
  card.MakeNonStandardCard();
  return card;
}

TEST(CCardTest, FreeExtraFieldsAreTheFirstEmptyOnes) {
  struct Case { std::vector<std::string> filled; std::string phone, email; };
  for (const Case& c : std::vector<Case>{
           {{}, "Phone 1", "Email 1"},
           {{"Phone 1", "Phone 2", "Email 2"}, "Phone 3", "Email 1"},
           {{"Phone", "Email"}, "Phone 1", "Email 1"},
           {{"Phone 1", "Phone 2", "Phone 3", "Phone 4", "Phone 5", "Phone 6"}, "", "Email 1"},
           {{"Email 1", "Email 2", "Email 3", "Email 4", "Email 5", "Email 6", "Phone 6"}, "Phone 1", ""},
       }) {
    CCard card;
    for (const auto& name : c.filled) SetText(card, name, "x");
    EXPECT_EQ(card.GetFreeExtraPhoneField() + "|" + card.GetFreeExtraEmailField(), c.phone + "|" + c.email);
  }
  EXPECT_EQ(ErrorText([] { NonStandard().GetFreeExtraPhoneField(); }), "Unknown field name: Phone 1");
}

TEST(CCardTest, UnknownFieldsAreRefusedOnStandardCardsAndAddedOnOthers) {
  CCard card;
  EXPECT_EQ(ErrorText([&] { SetText(card, "Nickname", "Bob"); }), "Card cannot set unknown field: Nickname");
  EXPECT_EQ(ErrorText([&] { card.GetField("Nickname"); }), "Card does not contain unknown field: Nickname");
  EXPECT_EQ(ErrorText([&] { card.IsFieldEmpty("Nickname"); }), "Unknown field name: Nickname");
  EXPECT_FALSE(card.IsStandardFieldName("Nickname"));

  CCard odd = NonStandard();
  EXPECT_EQ(odd.NumFields(), 0);
  SetText(odd, "Nickname", "Bob");
  SetText(odd, "Title", "CEO");
  SetText(odd, "Nickname", "Bobby");
  EXPECT_EQ(FieldNames(odd) + odd.FieldText("Nickname"), "Nickname|Title|Bobby");
}

// SetField stores a copy, made by Copy (so an empty "Company" carries the
// OCR flag); GetField hands out the stored field itself.
TEST(CCardTest, SetFieldStoresACopyAndGetFieldHandsOutTheStoredOne) {
  CCard card;
  CCardField title, company;
  title.SetData("Title", "CEO", "", nullptr, 80, 90, true, false);
  card.SetField(title);
  title.SetText("changed by caller");
  EXPECT_EQ(card.FieldText("Title"), "CEO");
  card.GetField("Title")->SetText("edited in place");
  EXPECT_EQ(card.GetFieldText("Title").Value(), "edited in place");
  company.SetFieldName("Company");
  card.SetField(company);
  SetText(card, "Name", "");
  EXPECT_TRUE(card.GetField("Company")->OcrSuspectFlag());
  EXPECT_TRUE(card.GetField("Name")->OcrSuspectFlag());
}

TEST(CCardTest, LastNameMustBeInTheNameIgnoringWhiteSpace) {
  struct Case { std::string name, lastName; bool ok; };
  for (const Case& c : std::vector<Case>{
           {"John  Smith", "Smith", true},     {"John Smyth", "Smith", false},    {"John Smyth", "", true},
           {"", "", true},                     {"Anna Van Dyke", "VanDyke", true}, {"Anna VanDyke", "Van Dyke", true},
           {"john smith", "Smith", false},     {"SmSmith", "Smith", true},         {"Sm ith\tJones", "Smith", true},
           {"", "  ", true},                   {"Ann", "Ann Lee", false},          {"Lee", "Lee\r\n", true},
           {"Ann Le", "Lee", false},
       }) {
    CCard card;
    SetText(card, "Name", c.name);
    std::string expected = c.ok ? "<no error>" : "Name field does not contain given last name: " + c.lastName;
    EXPECT_EQ(ErrorText([&] { card.SetLastName(c.lastName); }), expected) << c.name << "/" << c.lastName;
    EXPECT_EQ(card.GetLastName(), c.ok ? c.lastName : "");
  }
  CCard odd = NonStandard();
  odd.SetLastName("Smith");
  EXPECT_EQ(odd.GetLastName(), "Smith");
}

TEST(CCardTest, VerifiedIsExactlyYes) {
  CCard card;
  EXPECT_EQ(ErrorText([&] { card.SetVerified(2); }), "Unknown value for \"Verified\" field: 2");
  std::string dump;
  card.SetVerified(1);
  dump += card.FieldText("Verified") + std::to_string(card.IsVerified());
  card.SetVerified(0);
  dump += card.FieldText("Verified") + std::to_string(card.IsVerified());
  SetText(card, "Verified", "yes");
  EXPECT_EQ(dump + std::to_string(card.IsVerified()), "Yes1No00");
}

TEST(CCardTest, GetTextItsLengthAndUserLabelsFollowTheTableOrder) {
  CCard card;
  card.AddField("Nickname", false);
  for (const FieldValue& v : std::vector<FieldValue>{
           {"Name", "Zoë Lee"}, {"Company", "Acme"}, {"Verified", "Yes"}, {"Notes", "met at fair"},
           {"Categories", "Clients"}, {"Creation Date", "2001-01-01"}, {"Solvane Status", "OK"}, {"Nickname", "Annie"},
           {"Phone 5", "1", "Mobile"}, {"Phone 2", "2", "Work"}, {"Phone 3", "3"}, {"Email 1", "a@b.c", "Private"}})
    SetText(card, v.name, v.text, v.label);
  EXPECT_EQ(card.GetText(), "Zoë Lee\r\nAcme\r\n2\r\n3\r\n1\r\na@b.c\r\nmet at fair\r\nAnnie\r\n");
  EXPECT_EQ(card.TextLength(), 51);  // characters, not bytes
  EXPECT_EQ(card.GetUserLabels("Phone")->ToStr() + "|" + card.GetUserLabels("Email")->ToStr(),
            "Work\r\nMobile|Private");
  EXPECT_EQ(ErrorText([&] { card.GetUserLabels("Fax"); }), "Unknown field type: Fax");
  EXPECT_EQ(ErrorText([&] { card.GetUserLabels("phone"); }), "Unknown field type: phone");
}

TEST(CCardTest, CloneIsDeepAndRechecksTheLastName) {
  CCard card;
  card.AddField("Badge", true);
  CRectangle rect(1, 2, 3, 4);
  card.SetData("Name", "John Smith", "", &rect, 70, 80, false, true);
  SetText(card, "Badge", "B-1");
  card.SetCardId(42);
  card.SetStoredCardId(42);
  card.SetLastName("Smith");
  card.tag = "Smith,John";
  card.frontImage = std::make_shared<CLong>(7);

  auto clone = card.Clone();
  // Fields are cloned through Copy, so the empty Company now carries its OCR flag.
  std::string expected = card.ToStr();
  const std::string emptyCompany = "FIELD:Company TEXT: RECT:T:0,L:0,W:0,H:0 OCR_CONF:100 CAT_CONF:100 OCR_SUSP:";
  expected.replace(expected.find(emptyCompany + "False"), emptyCompany.size() + 5, emptyCompany + "True");
  EXPECT_EQ(clone->ToStr(), expected);
  ASSERT_TRUE(clone->frontImage);
  EXPECT_NE(clone->frontImage, card.frontImage);
  EXPECT_EQ(std::to_string(clone->GetCardID()) + "/" + std::to_string(clone->GetStoredCardId()) + "/" +
                clone->GetLastName() + "/" + clone->tag + "/" + std::to_string(clone->frontImage->Value()) + "/" +
                std::to_string(clone->GetField("Badge")->IsReadOnlyType()),
            "42/42/Smith/Smith,John/7/1");
  clone->GetField("Name")->SetText("changed");
  EXPECT_EQ(card.FieldText("Name"), "John Smith");

  // A name edited in place behind the card's back no longer holds the last name.
  card.GetField("Name")->SetText("Bob Jones");
  EXPECT_EQ(ErrorText([&] { card.Clone(); }), "Name field does not contain given last name: Smith");
  EXPECT_EQ(ErrorText([] { CCard().Clone(); }), "Missing card ID");

  CCard odd = NonStandard();
  SetText(odd, "Nickname", "Bob");
  odd.SetCardId(1);
  auto oddClone = odd.Clone();
  EXPECT_FALSE(oddClone->HasStoredCardId());
  SetText(*oddClone, "Other", "grows like its source");
  EXPECT_EQ(FieldNames(*oddClone), "Nickname|Other|");
}

// Custom fields follow the catalogue as AddField adds them, read-only where
// declared; a name already there clashes. Custom-field names are shared by
// all the cards of a layout; more distinct names than can be shared still
// read, clone and rename as any name.
TEST(CCardTest, CustomFieldsFollowTheCatalogueAndManyNamesBehaveAsAnyName) {
  std::vector<CCard::CustomField> many;
  for (int i = 0; i < 300; ++i) many.push_back({"Custom " + std::to_string(i), i % 7 == 0});
  for (const auto& custom : {std::vector<CCard::CustomField>{{"Nickname", false}, {"Badge", true}}, many}) {
    CCard card(custom), byHand;
    for (const auto& field : custom) byHand.AddField(field.name, field.readOnly);
    card.SetCardId(1);
    auto clone = card.Clone();
    EXPECT_EQ(FieldNames(card) + card.ToStr(), FieldNames(byHand) + byHand.ToStr());
    EXPECT_EQ(FieldNames(*clone), FieldNames(byHand));
    for (const auto& field : custom)
      EXPECT_EQ(card.GetField(field.name)->IsReadOnlyType(), field.readOnly) << field.name;
    for (const std::string& name : {custom.front().name, custom.back().name}) {
      card.GetField(name)->SetFieldName("Renamed");
      EXPECT_EQ(card.GetField(name)->Name() + "|" + clone->GetField(name)->Name(), "Renamed|" + name);
    }
  }
  const std::vector<CCard::CustomField> standard = {{"Nickname", false}, {"Title", false}};
  const std::vector<CCard::CustomField> twice = {{"Custom 5", false}, {"Custom 5", false}};
  EXPECT_EQ(ErrorText([&] { CCard bad(standard); }), "HashTable already contains key: Title");
  EXPECT_EQ(ErrorText([&] { CCard bad(twice); }), "HashTable already contains key: Custom 5");
}

// Lookups find fields by any string of their name; a field handed out keeps
// the card's block of fields alive.
TEST(CCardTest, LookupsFindAnyStringOfTheNameAndFieldsOutliveTheCard) {
  auto card = std::make_shared<CCard>(std::vector<CCard::CustomField>{{"Nickname", false}});
  SetText(*card, "Email", "a@b.c");
  SetText(*card, "Nickname", "Bo");
  EXPECT_EQ(card->FieldText(card->FieldAt(14).Name()) + card->FieldText(std::string("Nickname")), "a@b.cBo");
  EXPECT_EQ(ErrorText([&] { card->FieldText("Fame"); }), "Card does not contain unknown field: Fame");
  auto email = card->GetField("Email");
  auto nickname = card->GetField("Nickname");
  card.reset();
  EXPECT_EQ(email->Text() + "|" + nickname->Name(), "a@b.c|Nickname");
}

// A new card's empty fields are shared with every other card until it
// changes one: whichever way a field is changed, no other card sees it, and
// the card keeps handing out the field it changed. The table a card hands
// out is for reading: its fields come out const.
TEST(CCardTest, ChangingAnEmptyFieldChangesThisCardAlone) {
  static_assert(std::is_same_v<decltype(std::declval<CCard&>().GetFields().Field("Title")), const CCardField&>);
  static_assert(std::is_same_v<decltype(std::declval<CCard&>().GetFields().FieldAt(2)), const CCardField&>);
  EXPECT_EQ(&CCard().GetFields().Field("Title"), &CCard().GetFields().FieldAt(2));  // shared until changed
  const std::vector<CCard::CustomField> custom = {{"Nickname", false}, {"Badge", true}};
  const std::string fresh = FieldNames(CCard(custom)) + CCard(custom).ToStr();
  CRectangle rect(1, 2, 3, 4);
  const std::vector<std::pair<std::string, std::function<void(CCard&)>>> changes = {
      {"GetField", [](CCard& c) { c.GetField("Title")->SetText("CEO"); }},
      {"GetField rename", [](CCard& c) { c.GetField("Title")->SetFieldName("Job"); }},
      {"GetField custom", [](CCard& c) { c.GetField("Badge")->SetText("7"); }},
      {"GetFieldAt label", [](CCard& c) { c.GetFieldAt(16)->SetUserLabel("Home"); }},
      {"GetField categories", [](CCard& c) { c.GetField("Categories")->MergeCategories("A, B"); }},
      {"SetVerified", [](CCard& c) { c.SetVerified(1); }},
      {"SetDataInPlace", [&](CCard& c) { c.SetDataInPlace(30, "7", "", &rect, 50, 60, true, true); }},
      {"OwnFieldsAt", [&](CCard& c) {
         const std::vector<int32_t> positions = {2, 29, 30};
         c.OwnFieldsAt(positions);
         for (int32_t p : positions) c.SetDataInPlace(p, "x", "", &rect, 50, 60, true, false);
       }},
      {"Clone", [](CCard& c) {
         CCard original;
         original.SetCardId(1);
         c.SetCardId(1);
         c.SetField(original.Clone()->FieldNamed("Name"));  // a clone's empty "Name" is flagged doubtful
       }},
  };
  for (const auto& [how, change] : changes) {
    CCard before(custom), changed(custom);
    change(changed);
    CCard after(custom);
    EXPECT_EQ(FieldNames(before) + before.ToStr(), fresh) << how;
    EXPECT_EQ(FieldNames(after) + after.ToStr(), fresh) << how;
    EXPECT_NE(FieldNames(changed) + changed.ToStr(), fresh) << how;
    for (int32_t i = 1; i <= changed.NumFields(); ++i) {
      auto own = changed.GetFieldAt(i);
      EXPECT_EQ(&changed.FieldAt(i), own.get()) << how << " " << i;
      EXPECT_EQ(changed.GetFieldAt(i), own) << how << " " << i;
    }
  }
}

// Threads building cards of layouts new to the process at the same time
// agree on every name.
TEST(CCardTest, CardsWithNewCustomFieldsCanBeBuiltOnSeveralThreads) {
  auto build = [](int thread, int& wrong) {
    for (int i = 0; i < 200; ++i) {
      const std::string shared = "Shared " + std::to_string(i % 20);
      const std::string own = "Own " + std::to_string(thread) + "." + std::to_string(i % 20);
      CCard card(std::vector<CCard::CustomField>{{shared, false}, {own, true}});
      wrong += card.FieldAt(29).Name() != shared || card.FieldAt(30).Name() != own;
    }
  };
  int wrong1 = 0, wrong2 = 0;
  std::thread other([&] { build(2, wrong2); });
  build(1, wrong1);
  other.join();
  EXPECT_EQ(wrong1 + wrong2, 0);
}

// SetData keeps the database's read-only type and fails without changing the
// card (the field's own checks come last of its steps: nothing of them may
// show). SetDataInPlace gives the same result and errors, in the stored field
// itself; a field renamed behind the card's back gets its name back.
TEST(CCardTest, SetDataInPlaceMatchesSetDataInTheStoredField) {
  struct Case { std::string name, text, label; int32_t ocr, cat; };
  CRectangle rect(1, 2, 3, 4);
  for (const Case& c : std::vector<Case>{
           {"Title", " x ", "", 70, 80}, {"Phone 3", "x", "Home", 100, 0}, {"Badge", "x", "", 90, 90},
           {"Name", "Ann", "", 100, 100}, {"Company", "", "", 100, 100},   {"Title", "x", "", 101, 100},
           {"Title", "x", "", 100, 101}, {"Title", "x", "", 256, 100},     {"Fax", "x", "Work", 100, 100},
       }) {
    CCard viaSetData, inPlace;
    for (CCard* card : {&viaSetData, &inPlace}) {
      card->AddField("Badge", true);
      SetText(*card, "Name", "Ann Lee");
      card->SetLastName("Lee");
    }
    int32_t position = 1;
    while (inPlace.GetFields().GetIndexedKey(position) != c.name) ++position;
    auto stored = inPlace.GetField(c.name);
    const std::string before = viaSetData.ToStr();
    std::string expected =
        ErrorText([&] { viaSetData.SetData(c.name, c.text, c.label, &rect, c.ocr, c.cat, false, true); });
    if (expected != "<no error>") { EXPECT_EQ(viaSetData.ToStr(), before) << c.name; }
    EXPECT_EQ(viaSetData.GetField(c.name)->IsReadOnlyType(), c.name == "Badge");
    std::string text = c.text;
    EXPECT_EQ(ErrorText([&] {
                inPlace.SetDataInPlace(position, std::move(text), c.label, &rect, c.ocr, c.cat, false, true);
              }),
              expected);
    EXPECT_EQ(inPlace.ToStr() + inPlace.GetLastName(), viaSetData.ToStr() + viaSetData.GetLastName()) << c.name;
    EXPECT_EQ(inPlace.GetField(c.name)->IsReadOnlyType(), c.name == "Badge");
    EXPECT_EQ(inPlace.GetField(c.name), stored) << c.name;
  }
  CCard renamed, expected;
  renamed.GetField("Title")->SetFieldName("Job");
  renamed.SetDataInPlace(2, "CEO", "", nullptr, 100, 100, false, false);
  SetText(expected, "Title", "CEO");
  EXPECT_EQ(renamed.ToStr(), expected.ToStr());
}

// The certainty a card's level comes from is read through the shared manager.
class CCardConfidenceTest : public StoreFixture {
 protected:
  std::shared_ptr<CCard> CardWithCertainty(const std::string& certainty) {
    store_->AddCard(9, {{"Certainty", certainty}});
    return MakeCard(9);
  }
};

TEST_F(CCardConfidenceTest, LevelIsCertaintyInFifthsRoundedHalfToEven) {
  for (const auto& [certainty, expected] : std::vector<std::pair<std::string, std::string>>{
           {"0", "0"}, {"10", "0"}, {"30", "2"}, {"50", "2"}, {"69", "3"}, {"70", "4"}, {"90", "4"}, {"100", "5"},
           {"", "Cannot retrieve card confidence level from the database"},
           {"101", "Unexpected card confidence level: 101"},
           {"-1", "Unexpected card confidence level: -1"},
           {"high", "Cannot convert string: high to number"},
       }) {
    auto card = CardWithCertainty(certainty);
    std::string got = ErrorText([&] { card->GetConfLevel(); });
    EXPECT_EQ(got == "<no error>" ? std::to_string(card->GetConfLevel()) : got, expected) << certainty;
  }
}

TEST_F(CCardConfidenceTest, SuspectCountsAddToTheCountersUnlessVerified) {
  auto card = CardWithCertainty("0");
  card->SetData("Title", "CEO", "", nullptr, 100, 100, true, true);
  card->SetData("Phone", "555", "", nullptr, 100, 100, false, true);
  int32_t ocr = 10, cat = 20, level = -7;
  card->GetSuspectInfo(ocr, cat, level);
  auto counts = [&] { return std::to_string(ocr) + " " + std::to_string(cat) + " " + std::to_string(level); };
  EXPECT_EQ(counts(), "13 22 0");  // the empty Name and Company are OCR suspects too
  card->SetVerified(1);
  ocr = 0, cat = 0;
  card->GetSuspectInfo(ocr, cat, level);
  EXPECT_EQ(counts(), "0 0 5");
  EXPECT_EQ(store_->CallCount("GetValue"), 1);
}

TEST_F(CCardConfidenceTest, LevelIsCachedAgainstTheCardDump) {
  auto card = CardWithCertainty("30");
  EXPECT_EQ(card->GetConfLevel(), 2);
  store_->SetValue(9, "Certainty", "100");
  EXPECT_EQ(card->GetConfLevel(), 2);
  EXPECT_EQ(store_->CallCount("GetValue"), 1);
  SetText(*card, "Title", "CEO");
  EXPECT_EQ(card->GetConfLevel(), 5);
  EXPECT_EQ(store_->CallCount("GetValue"), 2);
  // The dump is remembered before the level is computed: after a failed
  // computation the same dump answers the old level.
  store_->SetValue(9, "Certainty", "");
  SetText(*card, "Title", "CTO");
  EXPECT_EQ(ErrorText([&] { card->GetConfLevel(); }), "Cannot retrieve card confidence level from the database");
  EXPECT_EQ(card->GetConfLevel(), 5);
}

// Builds "Ann Lee" cards, counting the builds; fails while failures remain.
struct CountingSource : CCard::Source {
  mutable std::atomic<int> builds{0};
  mutable std::atomic<int> failures{0};
  std::shared_ptr<CCard> Build() const override {
    if (failures > 0) {
      --failures;
      RaiseTrap("source unavailable");
    }
    ++builds;
    auto card = MakeCard(7, {{"Name", "Ann Lee"}, {"Phone 2", "555", "Work"}});
    card->SetStoredCardId(7);
    card->SetLastName("Lee");
    return card;
  }
};

// A deferred card answers its ID and last name without its fields, which
// come once, whole, to whichever threads ask first; a copy of one has them;
// a failing build raises where the fields were asked for and is tried again.
TEST(DeferredCardTest, FieldsComeOnceAndWholeToWhoeverAsksFirst) {
  auto source = std::make_shared<CountingSource>();
  auto card = CCard::Deferred(7, "Lee", source);
  card->tag = "Lee,Ann";
  EXPECT_EQ(std::to_string(card->GetCardID()) + " " + std::to_string(card->GetStoredCardId()) + " " +
                card->GetLastName() + " " + card->tag + (card->IsPending() ? " pending " : " built ") +
                std::to_string(source->builds),
            "7 7 Lee Lee,Ann pending 0");

  std::vector<std::string> seen(8);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < seen.size(); ++t) {
    threads.emplace_back([&, t] {
      seen[t] = t % 2 ? card->FieldText("Name") + card->GetUserLabels("Phone")->GetItemAs<CString>(1)->Value()
                      : card->FieldAt(1).Text() + card->FieldNamed("Phone 2").Label();
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(seen, std::vector<std::string>(8, "Ann LeeWork"));
  EXPECT_EQ(source->builds, 1);
  EXPECT_FALSE(card->IsPending());
  EXPECT_EQ(card->ToStr(), MakeCard(7, {{"Name", "Ann Lee"}, {"Phone 2", "555", "Work"}})->ToStr());

  const CCard copy(*CCard::Deferred(8, "Lee", source));
  EXPECT_FALSE(copy.IsPending());
  EXPECT_EQ(copy.FieldText("Name") + " " + std::to_string(copy.GetCardID()) + " " + std::to_string(source->builds),
            "Ann Lee 8 2");

  source->failures = 1;
  auto failing = CCard::Deferred(9, "Lee", source);
  EXPECT_EQ(ErrorText([&] { failing->NumFields(); }), "source unavailable");
  EXPECT_TRUE(failing->IsPending());
  EXPECT_EQ(failing->FieldText("Name"), "Ann Lee");
  EXPECT_EQ(source->builds, 3);
}

}  // namespace
}  // namespace ombrel
