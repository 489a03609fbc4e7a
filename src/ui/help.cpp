#include "ui/help.h"

#include <QApplication>
#include <QDialog>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QTextBrowser>
#include <QUrl>
#include <QVBoxLayout>
#include <filesystem>

#include "ombrel/foundation/messages.h"
#include "ui/artwork.h"
#include "ui/forms.h"
#include "ui/handlers.h"
#include "ui/startup.h"

namespace ombrel::ui {

namespace fs = std::filesystem;

namespace {

QString Res(int id) { return QString::fromStdString(GetResString(id)).remove('&'); }

class frmHelp final : public QDialog {
 public:
  // Owned by the modal window it is opened from, if any: a modal window
  // leaves only its own windows usable.
  explicit frmHelp(QWidget* owner) : QDialog(owner) {
    setWindowFlag(Qt::Window, true);
    setModal(false);
    setObjectName("frmHelp");
    RegisterForm(this);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowIcon(AppIcon());
    setWindowTitle(QString::fromStdString(AppName()) + " - " + Res(903));
    browser_ = new QTextBrowser(this);
    browser_->setObjectName("txtHelp");
    browser_->setAccessibleName(Res(903));
    browser_->setOpenExternalLinks(true);
    auto* back = new QPushButton(Res(183), this);
    back->setObjectName("cmdHelpBack");
    auto* contents = new QPushButton(Res(914), this);
    contents->setObjectName("cmdHelpContents");
    auto* close = new QPushButton(Res(906), this);
    close->setObjectName("cmdClose");
    for (QPushButton* b : {back, contents, close}) b->setAccessibleName(b->text());
    connect(back, &QPushButton::clicked, browser_, &QTextBrowser::backward);
    connect(browser_, &QTextBrowser::backwardAvailable, back, &QPushButton::setEnabled);
    back->setEnabled(false);
    connect(contents, &QPushButton::clicked, this, [this] { Open(0); });
    connect(close, &QPushButton::clicked, this, &QDialog::close);
    auto* row = new QHBoxLayout;
    row->addWidget(back);
    row->addWidget(contents);
    row->addStretch(1);
    row->addWidget(close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(browser_, 1);
    layout->addLayout(row);
    resize(TwipsToPixels(9000), TwipsToPixels(9000));
  }

  bool Open(int contextId) {
    const std::string path = HelpTopicPath(contextId);
    if (path.empty()) return false;
    browser_->setSource(QUrl::fromLocalFile(QString::fromStdString(path)));
    return true;
  }

 private:
  QTextBrowser* browser_;
};

QPointer<frmHelp>& OpenViewer() {
  static QPointer<frmHelp> viewer;
  return viewer;
}

}  // namespace

std::string HelpTopicFile(int contextId) {
  switch (contextId) {
    case help_context::kWizard: return "wizard.html";
    case help_context::kReview: return "review.html";
    case help_context::kMerge: return "merge.html";
    case help_context::kZoom: return "zoom.html";
    case help_context::kCategories: return "categories.html";
    case help_context::kDatabaseActions: return "actions.html";
    case help_context::kSearch: return "search.html";
    case help_context::kDeleteQuestion: return "delete-question.html";
    default: return "index.html";
  }
}

std::string HelpTopicPath(int contextId) {
  if (HelpDir().empty()) return {};
  const std::string file = HelpTopicFile(contextId);
  const fs::path own = fs::path(HelpDir()) / file;
  std::error_code ec;
  if (fs::is_regular_file(own, ec)) return own.string();
  // HelpDir is <locale>/<language>/OmbrelHelp; English lives beside the language.
  const fs::path english = fs::path(HelpDir()).parent_path().parent_path() / "en" / kHelpFolderName / file;
  if (fs::is_regular_file(english, ec)) return english.string();
  return {};
}

void ShowHelp(int contextId) {
  if (HelpTopicPath(contextId).empty()) {
    GetPrompt().MessageBox(GetResString(913), msgbox::kExclamation, AppName());
    return;
  }
  auto& viewer = OpenViewer();
  QWidget* owner = QApplication::activeModalWidget();
  if (viewer && viewer->parentWidget() != owner) delete viewer.data();
  if (!viewer) viewer = new frmHelp(owner);
  viewer->Open(contextId);
  viewer->show();
  viewer->raise();
  viewer->activateWindow();
}

void InstallHelpKey(QWidget* window, int contextId) {
  auto* key = new QShortcut(QKeySequence::HelpContents, window);
  key->setContext(Qt::WindowShortcut);
  QObject::connect(key, &QShortcut::activated, window, [contextId] { Guarded([contextId] { ShowHelp(contextId); }); });
}

}  // namespace ombrel::ui
