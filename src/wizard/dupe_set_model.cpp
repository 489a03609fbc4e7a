#include "wizard/dupe_set_model.h"

#include "ombrel/cards/ccard.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/messages.h"

namespace ombrel::ui {

namespace {
constexpr int kColumns = 3;
// Header texts of the name, company and count columns.
constexpr int32_t kHeaders[kColumns] = {201, 202, 203};
constexpr int32_t kNoDuplicates = 204;
}  // namespace

DupeSetListModel::DupeSetListModel(QObject* parent) : QAbstractTableModel(parent) {}

void DupeSetListModel::SetSets(std::shared_ptr<CList> sets) {
  beginResetModel();
  sets_.clear();
  if (sets) {
    const int32_t n = sets->GetNumItems();
    sets_.reserve(static_cast<size_t>(n));
    for (int32_t i = 1; i <= n; ++i) sets_.push_back(sets->GetItemAs<CDupeSet>(i));
  }
  endResetModel();
}

std::shared_ptr<CDupeSet> DupeSetListModel::SetAt(int row) const {
  return row >= 0 && static_cast<size_t>(row) < sets_.size() ? sets_[static_cast<size_t>(row)] : nullptr;
}

int DupeSetListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(sets_.size());
}

int DupeSetListModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : kColumns; }

QVariant DupeSetListModel::data(const QModelIndex& index, int role) const {
  const auto set = SetAt(index.row());
  if (!set) return {};
  if (role == Qt::ToolTipRole) return tip_.isEmpty() ? QVariant() : QVariant(tip_);
  if (role == Qt::TextAlignmentRole && index.column() == 2)
    return QVariant::fromValue(Qt::AlignCenter);
  if (role != Qt::DisplayRole && role != Qt::AccessibleTextRole) return {};
  const CCard* primary = set->PrimaryCard();
  switch (index.column()) {
    case 0: return primary ? QString::fromStdString(primary->FieldText("Name")) : QString();
    case 1: return primary ? QString::fromStdString(primary->FieldText("Company")) : QString();
    default: {
      const int32_t dupes = set->GetDupes().GetNumItems();
      return dupes == 0 ? QString::fromStdString(GetResString(kNoDuplicates)) : QString::number(dupes);
    }
  }
}

QVariant DupeSetListModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 || section >= kColumns) return {};
  return QString::fromStdString(GetResString(kHeaders[section]));
}

}  // namespace ombrel::ui
