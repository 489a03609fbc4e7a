// The categories picker: one check box per category the database defines;
// the checked ones, joined by ", ", become the primary card's categories.
// The user only hides it, so the caller can read the result afterwards.
#pragma once

#include <QDialog>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <string>

namespace ombrel::ui {

class frmCategories final : public QDialog {
  Q_OBJECT
 public:
  explicit frmCategories(QWidget* owner = nullptr);

  // One unchecked item per line of categories.
  void SetCategories(const std::string& categories);
  // Checks the items named in a ", "-joined list; raises "Database does not
  // contain category: " for a name that is not an item.
  void CheckCategories(const std::string& categories);
  std::string GetCheckedCategories() const;

  QListWidget* lstCategories;
  QLabel* lblCategories;
  QPushButton* cmdClose;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void reject() override;

 private:
  void RefreshCheckedText();
};

}  // namespace ombrel::ui
