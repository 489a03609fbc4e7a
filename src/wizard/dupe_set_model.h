// The rows of the wizard's list of dupe sets: the primary card's name and
// company and the number of duplicates. A list may hold a hundred thousand
// sets; the model keeps one pointer per set and reads a card only when its
// row is drawn, so cards the search read but did not build are built only
// when they are seen.
#pragma once

#include <QAbstractTableModel>
#include <QString>
#include <memory>
#include <vector>

#include "ombrel/foundation/clist.h"

namespace ombrel {
class CDupeSet;
}

namespace ombrel::ui {

class DupeSetListModel final : public QAbstractTableModel {
 public:
  explicit DupeSetListModel(QObject* parent = nullptr);

  // Shows sets (a CList of CDupeSet, or null for none) as they are now.
  void SetSets(std::shared_ptr<CList> sets);
  void SetToolTip(const QString& tip) { tip_ = tip; }
  // The set of a row (0-based).
  std::shared_ptr<CDupeSet> SetAt(int row) const;

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

 private:
  std::vector<std::shared_ptr<CDupeSet>> sets_;
  QString tip_;
};

}  // namespace ombrel::ui
