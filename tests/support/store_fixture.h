// A fixture for tests whose objects talk to the card store: a FakeCardStore
// behind the shared CardStoreMgr(), AppName "Ombrel", and a prompt that
// records every message box instead of showing it. The shared state is put
// back afterwards.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/foundation/messages.h"
#include "support/fake_card_store.h"

namespace ombrel {

class RecordingPrompt final : public IPrompt {
 public:
  int MessageBox(const std::string& text, int style, const std::string& title) override {
    shown += text + " [" + title + "]\n";
    shownWithStyle += text + " [" + std::to_string(style) + ", " + title + "]\n";
    return msgbox::kAnswerOk;
  }
  std::string shown;           // "text [title]" per message
  std::string shownWithStyle;  // "text [style, title]" per message
};

class StoreFixture : public ::testing::Test {
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

  std::shared_ptr<FakeCardStore> store_;
  std::shared_ptr<RecordingPrompt> prompt_;

 private:
  std::shared_ptr<CCardStoreMgr> savedMgr_;
  std::string savedAppName_;
};

}  // namespace ombrel
