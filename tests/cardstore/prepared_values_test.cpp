// Cards built from a scan's values with the names prepared once per scan
// must be the cards a reader asking name by name gets.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "support/scratch_dir.h"

namespace ombrel {
namespace {

using S = CSqliteCardStore;

// Two layouts, and one that fails part-way, so that plans change from card to card.
const std::string kLayouts[] = {"Nickname\tTEXT\tVISIBLE\tREADWRITE\r\nRoom\tTEXT\tVISIBLE\tREADONLY",
                                "Room\tTEXT\tVISIBLE\tREADWRITE", "Nickname\tTEXT"};

class PreparedValuesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    store_ = S::Open((dir_ / "cards.db").string(), OpenMode::kOpenOrCreate, {5000, 0});
    ASSERT_EQ(store_->DefineCustomFields({{"Nickname"}, {"Room"}}), 0);
    ASSERT_EQ(store_->BeginUpdate(), 0);
    for (int i = 1; i <= 600; ++i) {
      const std::string k = std::to_string(i);
      CardValueList values = {{"Name", "Ann Lee" + k}, {"Last Name", i % 50 == 0 ? "Nobody" : "Lee" + k},
                              {"First Name", "Ann"}, {"Room", "R" + k}, {"Nickname", "N" + k}};
      if (i % 3 == 0) values.insert(values.end(), {{"Email 2", "a" + k + "@x.org"}, {"Email 2.Label", "Work"}});
      if (i % 4 == 0) values.insert(values.end(), {{"Title", "Boss"}, {"Title.Rectangle", k + " 2 90 30"},
                                                   {"Title.Confidence Levels", "80 70"}, {"Title.Suspect Info", "1 0"}});
      if (i % 7 == 0) values.emplace_back("Room.Rectangle", "bad");  // fails that card's Room
      EXPECT_EQ(store_->AddCard(i, values), 0) << store_->GetLastError();
    }
    ASSERT_EQ(store_->CommitUpdate(), 0);
  }

  // The card's dump and last name, or its error.
  template <class Source>
  static std::string Built(CCardStoreMgr& mgr, int32_t id, const Source& source) {
    try {
      auto card = mgr.BuildCard(id, kLayouts[id / 5 % 3], source);
      return card->ToStr() + card->GetLastName();
    } catch (const Error& e) {
      return "error " + e.Description();
    }
  }
  static std::string Both(CCardStoreMgr& mgr, int32_t id, const ICardValues& values) {
    const std::string byName =
        Built(mgr, id, CCardStoreMgr::ValueReader([&](std::string_view name, std::string& v) { values.Read(name, v); }));
    const std::string prepared = Built(mgr, id, values);
    return byName == prepared ? "same" : "card " + std::to_string(id) + ":\n" + byName + "\nprepared:\n" + prepared;
  }

  ScratchDir dir_{"ombrel-prepared"};
  std::unique_ptr<S> store_;
};

TEST_F(PreparedValuesTest, CardsAreThoseOfNamedReadsOnEveryKindOfScan) {
  CCardStoreMgr mgr;
  std::vector<std::string> differences;
  auto check = [&](int32_t id, const ICardValues& values) {
    if (std::string r = Both(mgr, id, values); r != "same") differences.push_back(r);
  };
  ASSERT_EQ(store_->ScanCards([&](int32_t id, const ICardValues& v) {
    check(id, v);
    return true;
  }),
            0);
  std::vector<std::string> perPart[2];
  ASSERT_EQ(store_->ScanCardsInParts(2,
                                     [&](int32_t part, int32_t id, const ICardValues& v) {
                                       if (std::string r = Both(mgr, id, v); r != "same") perPart[part].push_back(r);
                                       return true;
                                     }),
            0);
  for (auto& p : perPart) differences.insert(differences.end(), p.begin(), p.end());
  EXPECT_EQ(differences, std::vector<std::string>{});
  // The cards are not all alike: some fail, some carry labels and geometry.
  std::string some;
  store_->ScanCards([&](int32_t id, const ICardValues& v) {
    some += Built(mgr, id, v);
    return id < 7;
  });
  for (const char* part : {"LABEL:Work", "OCR_CONF:80 CAT_CONF:70 OCR_SUSP:True", "error "})
    EXPECT_NE(some.find(part), std::string::npos) << part;
}

TEST_F(PreparedValuesTest, APreparationEndsWhenTheStoreMayReadNamesAnew) {
  const std::vector<std::string> names = {"Room", "Desk", "phone 1.LABEL", "Name"};
  ASSERT_EQ(store_->ScanCards([&](int32_t id, const ICardValues& v) {
    const uint64_t ticket = v.Prepare(names);
    EXPECT_NE(ticket, 0u);
    EXPECT_TRUE(v.IsPrepared(ticket));
    std::string prepared, byName;
    for (size_t k = 0; k < names.size(); ++k) {
      v.ReadPrepared(k, prepared);
      v.Read(names[k], byName);
      EXPECT_EQ(prepared, byName) << names[k];
    }
    EXPECT_FALSE(v.IsPrepared(v.Prepare(names) + 1));  // only the latest ticket holds
    const uint64_t latest = v.Prepare(names);
    // The visitor declares a field: the store reads its names anew.
    EXPECT_EQ(store_->DefineCustomFields({{"Desk"}}), 0);
    std::string unused;
    v.Read("Desk", unused);
    EXPECT_FALSE(v.IsPrepared(latest));
    return id < 2;
  }),
            0);
}

}  // namespace
}  // namespace ombrel
