#include "ui/progress_layout.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "ombrel/foundation/messages.h"
#include "ui/forms.h"

namespace ombrel::ui {

ProgressControls MakeProgressControls(QDialog* window, const char* buttonName, int32_t captionId, int barMaximum) {
  ProgressControls c{};
  c.lblAction = new QLabel(window);
  c.lblAction->setObjectName("lblAction");
  QFont bold = c.lblAction->font();
  bold.setBold(true);
  c.lblAction->setFont(bold);
  c.lblText = new QLabel(window);
  c.lblText->setObjectName("lblText");
  c.ProgressBar1 = new QProgressBar(window);
  c.ProgressBar1->setObjectName("ProgressBar1");
  c.ProgressBar1->setRange(0, barMaximum);
  c.ProgressBar1->setTextVisible(false);
  c.stop = new QPushButton(QString::fromStdString(GetResString(captionId)), window);
  c.stop->setObjectName(buttonName);
  c.stop->setAccessibleName(c.stop->text().remove('&'));

  auto* layout = new QVBoxLayout(window);
  layout->addWidget(c.lblAction);
  layout->addWidget(c.lblText);
  layout->addWidget(c.ProgressBar1);
  auto* row = new QHBoxLayout;
  row->addStretch(1);
  row->addWidget(c.stop);
  layout->addLayout(row);
  window->setMinimumWidth(TwipsToPixels(5400));
  return c;
}

void SetLabelText(QLabel* label, const std::string& text) {
  label->setText(QString::fromStdString(text));
  label->setAccessibleName(label->text());
  // The bar is named by the count it shows.
  if (auto* bar = label->parentWidget()->findChild<QProgressBar*>("ProgressBar1"); bar && label->objectName() == "lblText")
    bar->setAccessibleName(label->text());
}

}  // namespace ombrel::ui
