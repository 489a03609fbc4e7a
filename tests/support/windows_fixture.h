// For the window tests: the interface texts loaded, a prompt that answers
// from a script and records what it was asked, a FakeCardStore behind the
// shared manager, and every window unloaded afterwards.
#pragma once

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QWidget>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/foundation/messages.h"
#include "support/fake_card_store.h"
#include "ui/forms.h"
#include "ui/startup.h"

namespace ombrel {

class ScriptedPrompt final : public IPrompt {
 public:
  struct Shown {
    std::string text;
    int style;
    std::string title;
  };
  // Answers the next message box; without one, Yes to a question and OK otherwise.
  int MessageBox(const std::string& text, int style, const std::string& title) override {
    shown.push_back({text, style, title});
    if (!answers.empty()) {
      int answer = answers.front();
      answers.pop_front();
      return answer;
    }
    return (style & 7) == msgbox::kYesNo || (style & 7) == msgbox::kYesNoCancel ? msgbox::kAnswerYes
                                                                                  : msgbox::kAnswerOk;
  }
  int AskDeleteDupes(const std::string& text, bool& dontAskAgain) override {
    shown.push_back({text, -1, "AskDeleteDupes"});
    dontAskAgain = false;
    if (answers.empty()) return msgbox::kAnswerCancel;
    int answer = answers.front();
    answers.pop_front();
    return answer;
  }
  std::string Texts() const {
    std::string out;
    for (const auto& s : shown) out += s.text + "\n";
    return out;
  }

  std::vector<Shown> shown;
  std::deque<int> answers;
};

class WindowsFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ui::SetRequestedLanguage("");
    ui::InitResources();
    AppName() = "Ombrel";
    prompt_ = std::make_shared<ScriptedPrompt>();
    SetPrompt(prompt_);
    store_ = std::make_shared<FakeCardStore>();
    CardStoreMgr() = std::make_shared<CCardStoreMgr>();
    CardStoreMgr()->SetCardStore(store_);
  }
  void TearDown() override {
    ui::UnloadAllForms();
    QApplication::processEvents();
    SetPrompt(nullptr);
    CardStoreMgr().reset();
    HostWindow() = 0;
    AppName().clear();
    ui::SetRequestedLanguage("");
  }

  // A person's card in the store: names, "Name", e-mail and more values.
  void AddPerson(int32_t id, const std::string& first, const std::string& last, const std::string& email,
                 FakeCardStore::Values more = {}) {
    more["First Name"] = first;
    more["Last Name"] = last;
    more["Name"] = first + " " + last;
    if (!email.empty()) more["Email"] = email;
    store_->AddCard(id, std::move(more));
  }

  template <class T>
  static T* Find(QWidget* root, const char* name) {
    T* found = root->findChild<T*>(name);
    EXPECT_NE(found, nullptr) << name;
    return found;
  }

  std::shared_ptr<ScriptedPrompt> prompt_;
  std::shared_ptr<FakeCardStore> store_;
};

}  // namespace ombrel
