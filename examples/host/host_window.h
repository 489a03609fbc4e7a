// The example host's main window over a card store of its own, with menu
// entries that show Ombrel's duplicates wizard (modal or modeless) and the
// merge dialog over it.
#pragma once

#include <QMainWindow>
#include <QString>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ombrel/cardstore/cmemorycardstore.h"
#include "ombrel/cardstore/icardstore.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/wizard/cduplicateswizard.h"

class QLabel;

class HostWindow : public QMainWindow {
 public:
  HostWindow(std::shared_ptr<ombrel::ICardStore> store, const QString& storeName);

  // Each answers what the wizard answered: 1 done, 0 failed.
  int ShowWizardModal();     // returns once the user has closed it
  int ShowWizardModeless();  // returns at once; the wizard stays over this window
  int HideWizard();

  // Merges the store's first card with another address book's record of the
  // same contact. Answers the merged card data ("name TAB text TAB ..."), or
  // empty when the user cancelled.
  std::string MergeFirstCard();

 private:
  int ShowWizard(bool modal);

  std::shared_ptr<ombrel::ICardStore> store_;
  ombrel::CDuplicatesWizard wizard_;
  QLabel* status_;
};

// Five cards by ID: Ann Lee twice (an exact duplicate), Bob Ray with and
// without his title, and Cy Oak.
const std::vector<std::pair<int32_t, ombrel::CardValueList>>& SampleCards();
// The five in a CMemoryCardStore, behind the host's own store.
std::shared_ptr<ombrel::ICardStore> MakeSampleStore();
