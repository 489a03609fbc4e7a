#include "ui/qt_prompt.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <memory>

#include "ui/frm_ask_delete_dupes.h"

namespace ombrel::ui {

namespace {

QWidget* DialogParent() {
  if (QWidget* modal = QApplication::activeModalWidget()) return modal;
  return QApplication::activeWindow();
}

QMessageBox::Icon IconOf(int style) {
  switch (style & 0x70) {
    case msgbox::kCritical: return QMessageBox::Critical;
    case msgbox::kQuestion: return QMessageBox::Question;
    case msgbox::kExclamation: return QMessageBox::Warning;
    case msgbox::kInformation: return QMessageBox::Information;
    default: return QMessageBox::NoIcon;
  }
}

struct BoxButton {
  QMessageBox::StandardButton button;
  int answer;
};

std::vector<BoxButton> ButtonsOf(int style) {
  switch (style & 7) {
    case 1: return {{QMessageBox::Ok, msgbox::kAnswerOk}, {QMessageBox::Cancel, msgbox::kAnswerCancel}};
    case 2: return {{QMessageBox::Abort, 3}, {QMessageBox::Retry, 4}, {QMessageBox::Ignore, 5}};
    case msgbox::kYesNoCancel:
      return {{QMessageBox::Yes, msgbox::kAnswerYes}, {QMessageBox::No, msgbox::kAnswerNo},
              {QMessageBox::Cancel, msgbox::kAnswerCancel}};
    case msgbox::kYesNo: return {{QMessageBox::Yes, msgbox::kAnswerYes}, {QMessageBox::No, msgbox::kAnswerNo}};
    case 5: return {{QMessageBox::Retry, 4}, {QMessageBox::Cancel, msgbox::kAnswerCancel}};
    default: return {{QMessageBox::Ok, msgbox::kAnswerOk}};
  }
}

// The interface's own captions for the buttons it has texts for.
QString CaptionOf(int answer) {
  int id = 0;
  switch (answer) {
    case msgbox::kAnswerOk: id = 901; break;
    case msgbox::kAnswerCancel: id = 902; break;
    case msgbox::kAnswerYes: id = 904; break;
    case msgbox::kAnswerNo: id = 905; break;
    default: return {};
  }
  return QString::fromStdString(GetResString(id));
}

}  // namespace

int QtPrompt::MessageBox(const std::string& text, int style, const std::string& title) {
  QMessageBox box(IconOf(style), QString::fromStdString(title), QString::fromStdString(text), QMessageBox::NoButton,
                  DialogParent());
  box.setObjectName("MessageBox");
  const auto buttons = ButtonsOf(style);
  std::vector<std::pair<QAbstractButton*, int>> made;
  for (const auto& kind : buttons) {
    QPushButton* b = box.addButton(kind.button);
    if (QString caption = CaptionOf(kind.answer); !caption.isEmpty()) b->setText(caption);
    made.emplace_back(b, kind.answer);
  }
  const size_t defaultIndex = (style & msgbox::kDefaultButton3) ? 2 : (style & msgbox::kDefaultButton2) ? 1 : 0;
  if (defaultIndex < made.size()) box.setDefaultButton(static_cast<QPushButton*>(made[defaultIndex].first));
  box.exec();
  for (const auto& [button, answer] : made)
    if (box.clickedButton() == button) return answer;
  // Closed by Esc or the close box: the box's own way out.
  for (const auto& [button, answer] : made)
    if (answer == msgbox::kAnswerCancel || answer == msgbox::kAnswerNo) return answer;
  return made.front().second;
}

int QtPrompt::AskDeleteDupes(const std::string& text, bool& dontAskAgain) {
  auto* ask = new frmAskDeleteDupes(DialogParent());
  std::unique_ptr<frmAskDeleteDupes> owner(ask);
  ask->SetMessage(text);
  ask->chkDontAskAgain->setChecked(dontAskAgain);
  ask->exec();
  dontAskAgain = ask->chkDontAskAgain->isChecked();
  if (ask->AnswerCancel()) return msgbox::kAnswerCancel;
  return ask->AnswerYes() ? msgbox::kAnswerYes : msgbox::kAnswerNo;
}

void UseWindowPrompt() {
  if (dynamic_cast<ConsolePrompt*>(&GetPrompt())) SetPrompt(std::make_shared<QtPrompt>());
}

}  // namespace ombrel::ui
