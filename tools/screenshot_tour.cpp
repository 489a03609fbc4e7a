// Takes a picture of every window of the wizard, the way a user meets them,
// on a card database: the five wizard steps, the search's progress window,
// the review screen (also with an edit open and with the delete question),
// a zoom window outlining the selected field, the categories picker, the
// database actions' window, the merge dialog and the help.
//
//   screenshot_tour --db DB --out DIR [--lang de] [--set N]
//
// Run it on a display (xvfb-run) or offscreen; QT_SCALE_FACTOR=2 gives the
// pictures at 200 %. The pictures are named <window>-<lang>.png.
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QKeyEvent>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTableView>
#include <QTimer>
#include <cstdio>
#include <functional>
#include <iostream>
#include <string>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/messages.h"
#include "ombrel/review/cmergedialog.h"
#include "ombrel/wizard/cduplicateswizard.h"
#include "review/frm_categories.h"
#include "review/frm_review.h"
#include "review/review_grid.h"
#include "ui/forms.h"
#include "ui/frm_ask_delete_dupes.h"
#include "ui/frm_database_actions.h"
#include "ui/help.h"
#include "ui/startup.h"
#include "wizard/frm_dupe_finder.h"
#include "wizard/frm_wizard.h"

namespace {

using namespace ombrel;

std::string g_out, g_lang = "en";

void Settle() {
  for (int i = 0; i < 5; ++i) QApplication::processEvents();
}

void Shoot(QWidget* window, const std::string& name) {
  Settle();
  const std::string path = g_out + "/" + name + "-" + g_lang + ".png";
  if (!window->grab().save(QString::fromStdString(path))) std::cerr << "could not write " << path << "\n";
  else std::printf("%s\n", path.c_str());
}

// Shows a modal window's picture from inside its own event loop, then closes it.
void ShootWhenShown(const char* form, const std::string& name, std::function<void(QWidget*)> close) {
  QTimer::singleShot(200, [form, name, close] {
    QWidget* window = ui::FindForm(form);
    if (!window) window = QApplication::activeModalWidget();
    if (!window) return;
    Shoot(window, name);
    close(window);
  });
}

int Row(QTableView* grid, const std::string& field) {
  for (int row = 0; row < grid->model()->rowCount(); ++row)
    if (grid->model()->index(row, 0).data(ui::kFieldNameRole).toString().toStdString() == field) return row;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  std::string db;
  int set = 1;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string a = argv[i];
    if (a == "--db") db = argv[i + 1];
    else if (a == "--out") g_out = argv[i + 1];
    else if (a == "--lang") g_lang = argv[i + 1];
    else if (a == "--set") set = std::stoi(argv[i + 1]);
  }
  if (db.empty() || g_out.empty()) {
    std::cerr << "usage: screenshot_tour --db DB --out DIR [--lang xx] [--set N]\n";
    return 2;
  }
  QDir().mkpath(QString::fromStdString(g_out));
  ui::SetRequestedLanguage(g_lang);
  // The tour answers the messages itself: none should appear.
  struct Silent final : IPrompt {
    int MessageBox(const std::string& text, int, const std::string&) override {
      std::cerr << "message: " << text << "\n";
      return msgbox::kAnswerNo;
    }
  };
  SetPrompt(std::make_shared<Silent>());

  CDuplicatesWizard host;
  host.SetModalOff(0);
  if (host.Connect(CSqliteCardStore::Open(db, OpenMode::kOpenExisting)) != 1 || host.Show() != 1) {
    std::cerr << "the wizard did not open\n";
    return 1;
  }
  auto* wizard = qobject_cast<ui::frmWizard*>(ui::FindForm("frmWizard"));
  Shoot(wizard, "wizard-step1");
  auto* next = wizard->findChild<QPushButton*>("cmdNext");
  for (int step = 2; step <= 5; ++step) {
    next->click();
    Shoot(wizard, "wizard-step" + std::to_string(step));
  }

  // The search's window as it shows a slow search.
  {
    ui::frmDupeFinder finder(wizard);
    CSearchJob::Progress progress{search_text::kActionConflict, search_text::kGroupingCards, 41250, 325632};
    finder.ShowProgress(progress, 5);
    Shoot(&finder, "search");
  }

  // The review of the conflicting duplicates, at the chosen set.
  wizard->findChild<QPushButton*>("cmdBack")->click();
  ShootWhenShown("frmReview", "review", [](QWidget* window) {
    auto* review = qobject_cast<ui::frmReview*>(window);
    auto* primary = review->findChild<QTableView*>("PrimaryGrid");
    auto* dupes = review->findChild<QTableView*>("DupeGrid");
    dupes->setCurrentIndex(dupes->model()->index(Row(dupes, "Title"), 0));
    dupes->setFocus();
    Shoot(review, "review-dupe-selected");
    primary->setCurrentIndex(primary->model()->index(Row(primary, "Address"), 1));
    primary->setFocus();
    QApplication::postEvent(primary, new QKeyEvent(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier));
    Settle();
    Shoot(review, "review-editing");
    if (auto* editor = review->findChild<QPlainTextEdit*>("txtEdit")) editor->hide();

    // The zoom window of the primary's front image, the Name outlined.
    primary->setCurrentIndex(primary->model()->index(Row(primary, "Name"), 1));
    review->findChild<QPushButton*>("cmdMagnifier")->click();
    const QModelIndex front = primary->model()->index(Row(primary, "Front Image"), 1);
    primary->scrollTo(front);
    Q_EMIT primary->clicked(front);
    primary->setCurrentIndex(primary->model()->index(Row(primary, "Name"), 1));
    if (QWidget* zoom = ui::FindForm("frmZoom")) Shoot(zoom, "zoom");

    ui::frmAskDeleteDupes ask(review);
    ask.SetMessage(GetResString(373));
    ask.show();
    Shoot(&ask, "delete-question");
    ask.hide();

    ui::frmCategories picker(review);
    picker.SetCategories(CardStoreMgr()->GetCategories());
    picker.show();
    Shoot(&picker, "categories");
    picker.hide();

    ui::frmDatabaseActions actions(review);
    actions.SetActionText(603);
    actions.SetText(604, 3, 12);
    actions.SetProgress(25);
    actions.EnableStop(true);
    actions.ShowWindow();
    Shoot(&actions, "actions");
    actions.hide();
    review->findChild<QPushButton*>("cmdCancel")->click();
  });
  auto* list = wizard->findChild<QTableView*>("lstDupes");
  list->selectRow(std::max(0, set - 1));
  Q_EMIT list->doubleClicked(list->model()->index(std::max(0, set - 1), 0));

  // The help, at the wizard's topic.
  ui::ShowHelp(ui::help_context::kWizard);
  if (QWidget* help = ui::FindForm("frmHelp")) Shoot(help, "help");

  // The merge dialog between the first conflicting set's primary and a dupe.
  if (auto sets = wizard->Flow().CurrentDupes(); sets && sets->GetNumItems() > 0) {
    auto dupeSet = sets->GetItemAs<CDupeSet>(1);
    auto mine = dupeSet->GetPrimaryCard(), other = dupeSet->GetDupes().GetItemAs<CCard>(1);
    const int32_t image = CardStoreMgr()->GetCardDIB(mine->GetCardID());
    const int32_t otherImage = CardStoreMgr()->GetCardDIB(other->GetCardID());
    CMergeDialog merge;
    for (int32_t i = 1; i <= mine->NumFields(); ++i)
      merge.SetFieldData(mine->FieldAt(i).Name(), mine->FieldAt(i).Text(), mine->FieldAt(i).Label(),
                         other->FieldText(mine->FieldAt(i).Name()));
    merge.SetImages(image, otherImage);
    ShootWhenShown("frmReview", "merge", [](QWidget* window) {
      window->findChild<QPushButton*>("cmdCancel")->click();
    });
    merge.Show(0, GetResString(803), "Ombrel\tOther address book");
  }
  ui::UnloadAllForms();
  return 0;
}
