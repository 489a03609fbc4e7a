#include "host_window.h"

#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QStatusBar>
#include <array>
#include <utility>

#include "host_store.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/foundation/error.h"
#include "ombrel/review/cmergedialog.h"

const std::vector<std::pair<int32_t, ombrel::CardValueList>>& SampleCards() {
  static const ombrel::CardValueList ann = {
      {"Name", "Ann Lee"}, {"Title", "CEO"}, {"Company", "Lee & Co"}, {"Email", "ann@lee.org"}};
  static const std::vector<std::pair<int32_t, ombrel::CardValueList>> cards = {
      {1, ann},
      {2, ann},
      {3, {{"Name", "Bob Ray"}, {"Title", "CTO"}, {"Email", "bob@ray.org"}}},
      {4, {{"Name", "Bob Ray"}, {"Email", "bob@ray.org"}}},
      {5, {{"Name", "Cy Oak"}, {"Email", "cy@oak.org"}}}};
  return cards;
}

std::shared_ptr<ombrel::ICardStore> MakeSampleStore() {
  auto cards = std::make_shared<ombrel::CMemoryCardStore>();
  for (const auto& [id, values] : SampleCards()) {
    auto card = std::make_shared<ombrel::CCard>();
    card->SetCardId(id);
    for (const auto& [name, text] : values) card->SetData(name, text, "", nullptr, 100, 100, false, false);
    cards->AddCard(card);
  }
  return std::make_shared<HostCardStore>(cards);
}

HostWindow::HostWindow(std::shared_ptr<ombrel::ICardStore> store, const QString& storeName)
    : store_(std::move(store)), status_(new QLabel(this)) {
  setObjectName("HostWindow");
  setWindowTitle("Ombrel host example");
  resize(640, 400);
  status_->setText(QString("Cards: %1").arg(storeName));
  statusBar()->addWidget(status_);

  wizard_.SetAppName("Ombrel host example");
  QMenu* cards = menuBar()->addMenu("&Cards");
  cards->addAction("Find &duplicates...", this, [this] { ShowWizardModal(); });
  cards->addAction("Find duplicates &beside this window", this, [this] { ShowWizardModeless(); });
  cards->addAction("&Merge the first card with another address book...", this, [this] {
    const std::string merged = MergeFirstCard();
    if (!merged.empty()) QMessageBox::information(this, windowTitle(), QString::fromStdString(merged));
  });
  cards->addSeparator();
  cards->addAction("E&xit", this, &QWidget::close);
}

int HostWindow::ShowWizard(bool modal) {
  // The window the wizard belongs to is this one, by its native id.
  if (modal) wizard_.SetModalOn(static_cast<int64_t>(winId()));
  else wizard_.SetModalOff(static_cast<int64_t>(winId()));
  // Connect every time: the merge dialog points the component at a store of its own.
  if (wizard_.Connect(store_) != 1) {
    QMessageBox::warning(this, windowTitle(), "The card store could not be connected.");
    return 0;
  }
  return wizard_.Show();
}

int HostWindow::ShowWizardModal() { return ShowWizard(true); }
int HostWindow::ShowWizardModeless() { return ShowWizard(false); }
int HostWindow::HideWizard() { return wizard_.Hide(); }

std::string HostWindow::MergeFirstCard() {
  HideWizard();  // the component serves one window at a time
  int32_t cardId = 0;
  if (store_->GetCardID(0, cardId) != 0) return {};

  // The other address book's record of the contact, as the host has it.
  const std::array<std::pair<std::string, std::string>, 4> other = {
      {{"Name", "Ann M. Lee"}, {"Title", "Chief Executive"}, {"Company", "Lee & Co"}, {"Email", "ann@lee.org"}}};
  ombrel::CMergeDialog merge;
  for (const auto& [field, otherText] : other) {
    std::string ours;
    store_->GetValue(cardId, field, ours);
    merge.SetFieldData(field, ours, "", otherText);
  }
  try {
    if (merge.Show(static_cast<int64_t>(winId()), "Merge contact", "This card\tAddress book")) return {};
  } catch (const ombrel::Error& e) {  // e.g. its texts are not installed
    QMessageBox::warning(this, windowTitle(), QString::fromStdString(e.Description()));
    return {};
  }
  std::string data;
  merge.GetCardData(data);
  return data;
}
