// The two grids of the review screen: the primary card's rows (caption and
// value) and, aligned with them, one column per dupe. Each row carries the
// name of its field, which is how rows are found again. A dupe's cell also
// tells how it relates to the primary's value (the same, different, or
// filling an empty field), drawn as a tint and a marker that survives
// greyscale.
#pragma once

#include <QAbstractTableModel>
#include <QStyledItemDelegate>
#include <memory>
#include <string>
#include <vector>

namespace ombrel {
class CCard;
class CReviewSession;
}  // namespace ombrel

namespace ombrel::ui {

class CardImages;

enum ReviewRole {
  kFieldNameRole = Qt::UserRole + 1,  // the row's field name
  kImageHandleRole,                   // image rows: the image's handle, 0 for none
  kRelationRole,                      // dupe cells: a CellRelation
};

enum class CellRelation { kNone = 0, kSame, kDifferent, kFills };

// How a dupe's text relates to the primary's.
CellRelation RelationOf(const std::string& primaryText, const std::string& dupeText);

class ReviewGridModel final : public QAbstractTableModel {
 public:
  enum class Kind { kPrimary, kDupes };
  ReviewGridModel(Kind kind, const CReviewSession& session, CardImages& images, QObject* parent = nullptr);

  // Reads the current set again.
  void Refresh();
  // Redraws one row.
  void RefreshRow(int row);
  // The dupe columns' headers: given ones (a column beyond them has none),
  // or, until some are given, each column numbered.
  void SetHeaders(std::vector<std::string> headers) {
    headers_ = std::move(headers);
    headersGiven_ = true;
  }
  void SetPrimaryHeader(std::string header) { primaryHeader_ = std::move(header); }
  const std::vector<std::string>& Rows() const { return rows_; }
  // The row of a field, -1 when none.
  int RowOf(const std::string& fieldName) const;
  // kFrontImageKind or kBackImageKind for an image row, 0 for any other.
  int32_t ImageKindAt(int row) const;
  bool IsImageRow(int row) const { return ImageKindAt(row) != 0; }
  // The card whose image a card shows for an image row (its override, or itself).
  static int32_t ImageCardId(const CCard& card, int32_t imageKind);

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

 private:
  std::shared_ptr<CCard> CardOf(int column) const;
  std::string TextOf(const CCard& card, int row) const;

  Kind kind_;
  const CReviewSession& session_;
  CardImages& images_;
  std::vector<std::string> rows_;
  int columns_ = 0;
  std::vector<std::string> headers_;
  bool headersGiven_ = false;
  std::string primaryHeader_;
};

// Draws the cells: wrapped text, the dupe cells' relation, the images.
class ReviewCellDelegate final : public QStyledItemDelegate {
 public:
  ReviewCellDelegate(CardImages& images, QObject* parent = nullptr);
  void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
  // The colour and the marker of a relation.
  static QColor TintOf(CellRelation relation);
  static QString MarkerOf(CellRelation relation);

 private:
  CardImages& images_;
};

}  // namespace ombrel::ui
