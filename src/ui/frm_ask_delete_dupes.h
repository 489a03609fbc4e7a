// The question the review asks before it deletes the duplicates left in a
// set: Yes, No or Cancel, and a box to stop asking. Enter means Cancel.
#pragma once

#include <QCheckBox>
#include <QDialog>
#include <QLabel>
#include <QPushButton>
#include <string>

namespace ombrel::ui {

class frmAskDeleteDupes final : public QDialog {
  Q_OBJECT
 public:
  explicit frmAskDeleteDupes(QWidget* owner = nullptr);

  void SetMessage(const std::string& text);
  bool AnswerYes() const { return answerYes_; }
  bool AnswerCancel() const { return answerCancel_; }

  QLabel* Label1;
  QLabel* Picture1;
  QPushButton* cmdYes;
  QPushButton* cmdNo;
  QPushButton* cmdCancel;
  QCheckBox* chkDontAskAgain;

 protected:
  void showEvent(QShowEvent* event) override;
  void reject() override;

 private:
  void Answer(bool yes, bool cancel);
  bool answerYes_ = false;
  bool answerCancel_ = false;
};

}  // namespace ombrel::ui
