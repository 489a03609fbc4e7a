#include "ombrel/cardstore/cmemorycardstore.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/cards.h"
#include "support/error_text.h"

namespace ombrel {
namespace {

std::shared_ptr<CCard> Card(int32_t id, const std::string& name) { return MakeCard(id, {{"Name", name}}); }

// Three cards: 30 "Ann", 10 "Bob", 20 "Cid", in that order.
class CMemoryCardStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (auto [id, name] : std::vector<std::pair<int32_t, std::string>>{{30, "Ann"}, {10, "Bob"}, {20, "Cid"}})
      ASSERT_EQ(store_.AddCard(Card(id, name)), 0);
  }
  CMemoryCardStore store_;
};

TEST_F(CMemoryCardStoreTest, CardsInInsertionOrderWithTheStoresOwnStatuses) {
  EXPECT_EQ(store_.AddCard(Card(10, "Other Bob")), -1);
  EXPECT_EQ(store_.GetCard(2)->FieldText("Name"), "Bob");
  int32_t count = 0;
  EXPECT_EQ(store_.GetNumberOfCards(count), -1);
  EXPECT_EQ(count, 3);
  std::string ids;
  for (int32_t index = -1; index <= 3; ++index) {
    int32_t id = -99;
    Status status = store_.GetCardID(index, id);
    ids += std::to_string(index) + ":" + std::to_string(status) + "/" + std::to_string(id) + " ";
  }
  EXPECT_EQ(ids, "-1:1/-99 0:0/30 1:0/10 2:0/20 3:1/-99 ");
  EXPECT_EQ(store_.GetCard(3)->GetCardID(), 20);
  for (int32_t bad : {0, 4, -1})
    EXPECT_EQ(TrapText([&] { store_.GetCard(bad); }),
              "CMemoryCardStore does not have card for index: " + std::to_string(bad));
  // An unexpected error inside an operation reports the status set so far.
  EXPECT_EQ(store_.AddCard(std::make_shared<CCard>()), 0);  // no ID: GetCardID raises
  EXPECT_EQ(store_.AddCard(nullptr), 0);
  store_.GetNumberOfCards(count);
  EXPECT_EQ(count, 3);
}

TEST_F(CMemoryCardStoreTest, DeleteCardKeepsTheRememberedImage) {
  EXPECT_EQ(store_.SetCardDIB(10, 77), 0);
  EXPECT_EQ(store_.DeleteCard(10), 0);
  EXPECT_EQ(store_.DeleteCard(10), -1);
  int32_t id = 0;
  bool gone = true, kept = false;
  EXPECT_EQ(store_.GetCardID(1, id) + store_.CardExists(10, gone) + store_.CardExists(20, kept), 0);
  EXPECT_EQ(std::to_string(id) + " " + std::to_string(gone) + std::to_string(kept), "20 01");
  EXPECT_EQ(store_.RememberedFrontImage(10), 77);  // the image handle outlives the card
}

TEST_F(CMemoryCardStoreTest, GetValueAnswersPlainFieldNamesOnly) {
  store_.GetCard(1)->SetData("Phone 1", "555", "Work", nullptr, 100, 100, false, false);
  struct Case { int32_t id; std::string name; Status status; std::string value; };
  for (const Case& c : std::vector<Case>{{30, "Name", 0, "Ann"},
                                         {30, "Phone 1", 0, "555"},
                                         {30, "Title", 0, ""},
                                         {30, "Phone 1.Label", 2, ""},
                                         {30, "Name.Rectangle", 2, ""},
                                         {30, "Certainty", 2, ""},
                                         {30, "name", 2, ""},
                                         {99, "Name", 1, ""}}) {
    std::string value = "stale";
    Status status = store_.GetValue(c.id, c.name, value);
    EXPECT_EQ(std::to_string(status) + " " + value, std::to_string(c.status) + " " + c.value) << c.id << " " << c.name;
  }
}

TEST_F(CMemoryCardStoreTest, PutValueReplacesTheTextAndResetsTheRest) {
  auto card = store_.GetCard(1);
  CRectangle rect(1, 2, 3, 4);
  card->SetData("Title", "CEO", "", &rect, 40, 50, true, true);
  card->SetData("Phone 1", "555", "Work", &rect, 40, 50, true, true);
  card->AddField("Badge", true);
  const std::string before = card->ToStr();
  // Suffixed names are accepted and ignored, or refused; so are unknown cards.
  for (auto [name, status] : std::vector<std::pair<std::string, Status>>{
           {"Phone 1.Label", 0}, {"Title.Rectangle", 0}, {"Title.RECTANGLE", 0}, {"Title.confidence levels", 0},
           {"Title.Suspect Info", 2}, {"title", 2}, {"Nickname", 2}})
    EXPECT_EQ(store_.PutValue(30, name, "x"), status) << name;
  EXPECT_EQ(store_.PutValue(99, "Title", "x"), 1);
  EXPECT_EQ(store_.PutValue(99, "Title.Label", "x"), 1);
  EXPECT_EQ(card->ToStr(), before);

  EXPECT_EQ(store_.PutValue(30, "Title", " CTO ") + store_.PutValue(30, "Phone 1", "556") +
                store_.PutValue(30, "Badge", "B-2"),
            0);
  const std::string reset = " RECT:T:0,L:0,W:0,H:0 OCR_CONF:100 CAT_CONF:100 OCR_SUSP:False CAT_SUSP:False";
  EXPECT_EQ(card->GetField("Title")->ToStr(), "FIELD:Title TEXT:CTO" + reset);
  EXPECT_EQ(card->GetField("Phone 1")->ToStr(), "FIELD:Phone 1 TEXT:556" + reset);
  EXPECT_TRUE(card->GetField("Badge")->IsReadOnlyType());
}

TEST_F(CMemoryCardStoreTest, ImagesAreRememberedButNeverHandedBack) {
  int32_t dib = -5, unknown = -5;
  EXPECT_EQ(store_.SetCardDIB(30, 1234) + store_.SetCardDIB(30, 99) + store_.GetCardDIB(30, dib), 0);
  EXPECT_EQ(std::to_string(store_.RememberedFrontImage(30)) + " " + std::to_string(dib), "99 0");
  // An unknown card fails (answering no image), except for the back image, which no card has.
  EXPECT_EQ(store_.GetCardDIB(99, unknown), 1);
  EXPECT_EQ(unknown, 0);
  EXPECT_EQ(store_.SetCardDIB(99, 5), 1);
  EXPECT_EQ(store_.GetBackDIB(99, dib), 0);

  // HasFrontImage looks at the card's own replacement image, not at SetCardDIB.
  std::string answers;
  const auto five = std::make_shared<CLong>(5), zero = std::make_shared<CLong>(0);
  for (auto [image, before] : std::vector<std::pair<std::shared_ptr<CLong>, bool>>{
           {nullptr, true}, {nullptr, false}, {five, false}, {zero, true}}) {
    store_.GetCard(2)->frontImage = image;
    bool answer = before;
    EXPECT_EQ(store_.HasFrontImage(10, answer), 0);
    answers += std::to_string(answer);
  }
  EXPECT_EQ(answers, "1010");
  bool answer = true;
  EXPECT_EQ(store_.HasFrontImage(99, answer), 1);
  EXPECT_EQ(store_.HasBackImage(10, answer), 0);
  EXPECT_TRUE(answer);
}

}  // namespace
}  // namespace ombrel
