#include "review/frm_categories.h"

#include <QScopeGuard>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QVBoxLayout>

#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "ui/artwork.h"
#include "ui/forms.h"
#include "ui/handlers.h"
#include "ui/help.h"

namespace ombrel::ui {

frmCategories::frmCategories(QWidget* owner) : QDialog(owner) {
  setObjectName("frmCategories");
  RegisterForm(this);
  setWindowTitle(QString::fromStdString(GetResString(400)));
  setWindowIcon(AppIcon());
  setWindowFlag(Qt::WindowContextHelpButtonHint, false);
  InstallHelpKey(this, help_context::kCategories);
  lstCategories = new QListWidget(this);
  lstCategories->setObjectName("lstCategories");
  lstCategories->setAccessibleName(windowTitle());
  lblCategories = new QLabel(this);
  lblCategories->setObjectName("lblCategories");
  lblCategories->setWordWrap(true);
  cmdClose = new QPushButton(QString::fromStdString(GetResString(906)), this);
  cmdClose->setObjectName("cmdClose");
  cmdClose->setAccessibleName(cmdClose->text().remove('&'));
  cmdClose->setDefault(true);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(lstCategories, 1);
  layout->addWidget(lblCategories);
  auto* row = new QHBoxLayout;
  row->addStretch(1);
  row->addWidget(cmdClose);
  layout->addLayout(row);
  resize(TwipsToPixels(4800), TwipsToPixels(5400));
  connect(cmdClose, &QPushButton::clicked, this, [this] { hide(); done(Accepted); });
  connect(lstCategories, &QListWidget::itemChanged, this, [this] { Guarded([this] { RefreshCheckedText(); }); });
  connect(lstCategories, &QListWidget::itemClicked, this, [this] { Guarded([this] { RefreshCheckedText(); }); });
}

void frmCategories::SetCategories(const std::string& categories) {
  auto tokens = CString(categories).GetTokens("\r\n", false);
  for (int32_t i = 1; i <= tokens->GetNumItems(); ++i) {
    auto* item = new QListWidgetItem(QString::fromStdString(tokens->GetItem(i)->ToStr()), lstCategories);
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable | Qt::ItemIsSelectable);
    item->setCheckState(Qt::Unchecked);
  }
  RefreshCheckedText();
}

void frmCategories::CheckCategories(const std::string& categories) {
  auto tokens = CString(categories).GetTokens(",", false);
  const auto refresh = qScopeGuard([this] { RefreshCheckedText(); });
  for (int32_t i = 1; i <= tokens->GetNumItems(); ++i) {
    const QString name = QString::fromStdString(CString::TrimText(tokens->GetItem(i)->ToStr()));
    QListWidgetItem* found = nullptr;
    for (int row = 0; row < lstCategories->count() && !found; ++row)
      if (lstCategories->item(row)->text() == name) found = lstCategories->item(row);
    Trap(!found, "Database does not contain category: " + name.toStdString());
    found->setCheckState(Qt::Checked);
  }
}

std::string frmCategories::GetCheckedCategories() const { return lblCategories->text().toStdString(); }

void frmCategories::RefreshCheckedText() {
  QStringList checked;
  for (int row = 0; row < lstCategories->count(); ++row)
    if (lstCategories->item(row)->checkState() == Qt::Checked) checked << lstCategories->item(row)->text();
  lblCategories->setText(checked.join(", "));
  lblCategories->setAccessibleName(lblCategories->text());
}

void frmCategories::closeEvent(QCloseEvent* event) {
  // The close box only hides: the caller reads the result afterwards.
  event->ignore();
  hide();
  done(Accepted);
}

void frmCategories::reject() {
  hide();
  done(Accepted);
}

}  // namespace ombrel::ui
