#include "review/review_grid.h"

#include <QApplication>
#include <QPainter>

#include "ombrel/cards/ccard.h"
#include "ombrel/dupes/cdupeset.h"
#include "ombrel/foundation/messages.h"
#include "review/card_images.h"
#include "review/review_session.h"

namespace ombrel::ui {

namespace {
QString Q(const std::string& text) { return QString::fromStdString(text).replace("\r\n", "\n"); }
constexpr int32_t kPrimaryHeader = 395;
constexpr int32_t kDupeHeader = 413;
constexpr int32_t kGridTip = 334;
constexpr int32_t kNoImage = 407;
}  // namespace

CellRelation RelationOf(const std::string& primaryText, const std::string& dupeText) {
  if (dupeText.empty()) return CellRelation::kNone;
  if (primaryText.empty()) return CellRelation::kFills;
  return primaryText == dupeText ? CellRelation::kSame : CellRelation::kDifferent;
}

ReviewGridModel::ReviewGridModel(Kind kind, const CReviewSession& session, CardImages& images, QObject* parent)
    : QAbstractTableModel(parent), kind_(kind), session_(session), images_(images) {}

void ReviewGridModel::Refresh() {
  beginResetModel();
  rows_ = session_.RowNames();
  columns_ = rows_.empty() ? 0 : kind_ == Kind::kPrimary ? 2 : session_.NumDupes();
  endResetModel();
}

void ReviewGridModel::RefreshRow(int row) {
  if (row < 0 || row >= rowCount() || columns_ == 0) return;
  Q_EMIT dataChanged(index(row, 0), index(row, columns_ - 1));
}

int ReviewGridModel::RowOf(const std::string& fieldName) const {
  for (size_t i = 0; i < rows_.size(); ++i)
    if (rows_[i] == fieldName) return static_cast<int>(i);
  return -1;
}

int32_t ReviewGridModel::ImageKindAt(int row) const {
  if (row < 0 || static_cast<size_t>(row) >= rows_.size()) return 0;
  const std::string& name = rows_[static_cast<size_t>(row)];
  return name == kFrontImageRow ? kFrontImageKind : name == kBackImageRow ? kBackImageKind : 0;
}

int32_t ReviewGridModel::ImageCardId(const CCard& card, int32_t imageKind) {
  const auto& id = imageKind == kFrontImageKind ? card.frontImage : card.backImage;
  return id ? id->Value() : card.GetCardID();
}

int ReviewGridModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int ReviewGridModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : columns_; }

std::shared_ptr<CCard> ReviewGridModel::CardOf(int column) const {
  if (kind_ == Kind::kPrimary) return session_.Primary();
  return column + 1 <= session_.NumDupes() ? session_.DupeAt(column + 1) : nullptr;
}

std::string ReviewGridModel::TextOf(const CCard& card, int row) const {
  const std::string& name = rows_[static_cast<size_t>(row)];
  if (!card.IsStandardFieldName(name)) return {};
  return CReviewSession::DisplayText(card.FieldNamed(name));
}

QVariant ReviewGridModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount() || index.column() >= columns_) return {};
  const int row = index.row();
  const std::string& name = rows_[static_cast<size_t>(row)];
  if (role == kFieldNameRole) return QString::fromStdString(name);
  const bool captionCell = kind_ == Kind::kPrimary && index.column() == 0;
  if (captionCell) {
    if (role == Qt::DisplayRole || role == Qt::AccessibleTextRole) return Q(CReviewSession::RowLabel(name));
    return {};
  }
  auto card = CardOf(index.column());
  if (!card) return {};
  if (const int32_t kind = ImageKindAt(row)) {
    if (role == kImageHandleRole) return images_.Handle(ImageCardId(*card, kind), kind);
    if (role == Qt::AccessibleTextRole || role == Qt::ToolTipRole)
      return Q(CReviewSession::RowLabel(name));
    return {};
  }
  switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
    case Qt::AccessibleTextRole: return Q(TextOf(*card, row));
    case kRelationRole: {
      if (kind_ == Kind::kPrimary) return static_cast<int>(CellRelation::kNone);
      auto primary = session_.Primary();
      return static_cast<int>(RelationOf(primary ? TextOf(*primary, row) : std::string(), TextOf(*card, row)));
    }
    case Qt::ToolTipRole: {
      const QString text = Q(TextOf(*card, row));
      if (kind_ == Kind::kPrimary) return Q(GetResString(kGridTip));
      auto primary = session_.Primary();
      const auto relation = RelationOf(primary ? TextOf(*primary, row) : std::string(), TextOf(*card, row));
      if (relation == CellRelation::kNone) return text.isEmpty() ? QVariant() : QVariant(text);
      const int32_t id = relation == CellRelation::kSame ? 410 : relation == CellRelation::kDifferent ? 411 : 412;
      return text + "\n\n" + Q(GetResString(id));
    }
    default: return {};
  }
}

QVariant ReviewGridModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  if (kind_ == Kind::kPrimary) {
    if (section != 1) return QString();
    return Q(primaryHeader_.empty() ? GetResString(kPrimaryHeader) : primaryHeader_);
  }
  if (headersGiven_)
    return section >= 0 && static_cast<size_t>(section) < headers_.size() ? Q(headers_[static_cast<size_t>(section)])
                                                                          : QString();
  return Q(GetResString(kDupeHeader, {"%1", std::to_string(section + 1)}));
}

ReviewCellDelegate::ReviewCellDelegate(CardImages& images, QObject* parent)
    : QStyledItemDelegate(parent), images_(images) {}

QColor ReviewCellDelegate::TintOf(CellRelation relation) {
  switch (relation) {
    case CellRelation::kSame: return QColor(0xe3, 0xf4, 0xe6);
    case CellRelation::kDifferent: return QColor(0xfd, 0xe9, 0xd3);
    case CellRelation::kFills: return QColor(0xdf, 0xee, 0xfb);
    default: return {};
  }
}

QString ReviewCellDelegate::MarkerOf(CellRelation relation) {
  switch (relation) {
    case CellRelation::kSame: return QStringLiteral("=");
    case CellRelation::kDifferent: return QStringLiteral("\u2260");
    case CellRelation::kFills: return QStringLiteral("+");
    default: return {};
  }
}

void ReviewCellDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const {
  const QVariant handle = index.data(kImageHandleRole);
  if (handle.isValid()) {
    QStyleOptionViewItem opt(option);
    initStyleOption(&opt, index);
    QStyle* style = opt.widget ? opt.widget->style() : QApplication::style();
    opt.text.clear();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, opt.widget);
    const QRect box = option.rect.adjusted(4, 4, -4, -4);
    const qreal dpr = opt.widget ? opt.widget->devicePixelRatioF() : 1.0;
    const QPixmap thumb = images_.Thumbnail(handle.toInt(), box.size(), dpr);
    if (thumb.isNull()) {
      painter->save();
      painter->setPen(option.palette.color(QPalette::Disabled, QPalette::Text));
      painter->drawText(box, Qt::AlignCenter, QString::fromStdString(GetResString(kNoImage)));
      painter->restore();
      return;
    }
    const QSize shown = thumb.size() / thumb.devicePixelRatio();
    const QPoint at(box.left() + (box.width() - shown.width()) / 2, box.top() + (box.height() - shown.height()) / 2);
    painter->drawPixmap(at, thumb);
    return;
  }
  const auto relation = static_cast<CellRelation>(index.data(kRelationRole).toInt());
  if (relation != CellRelation::kNone && !(option.state & QStyle::State_Selected))
    painter->fillRect(option.rect, TintOf(relation));
  QStyleOptionViewItem opt(option);
  if (relation != CellRelation::kNone) opt.rect.setRight(opt.rect.right() - opt.fontMetrics.height());
  QStyledItemDelegate::paint(painter, opt, index);
  if (relation == CellRelation::kNone) return;
  painter->save();
  QFont bold = option.font;
  bold.setBold(true);
  painter->setFont(bold);
  painter->setPen(option.state & QStyle::State_Selected ? option.palette.color(QPalette::HighlightedText)
                                                        : QColor(0x44, 0x4c, 0x56));
  const QRect mark(option.rect.right() - option.fontMetrics.height() - 2, option.rect.top() + 2,
                   option.fontMetrics.height(), option.fontMetrics.height());
  painter->drawText(mark, Qt::AlignCenter, MarkerOf(relation));
  painter->restore();
}

}  // namespace ombrel::ui
