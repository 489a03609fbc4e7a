#include "ui/forms.h"

#include <QApplication>
#include <QGuiApplication>
#include <QScreen>
#include <QWindow>
#include <algorithm>
#include <vector>

namespace ombrel::ui {

namespace {

std::vector<QPointer<QWidget>>& LoadedForms() {
  static std::vector<QPointer<QWidget>> forms;
  return forms;
}

void Prune() {
  auto& forms = LoadedForms();
  forms.erase(std::remove_if(forms.begin(), forms.end(), [](const QPointer<QWidget>& f) { return f.isNull(); }),
              forms.end());
}

// The screen rectangle of a native window, when it can be known.
bool WindowRect(int64_t windowId, QRect& rect) {
  if (QWidget* w = WidgetOfWindow(windowId)) {
    rect = w->window()->frameGeometry();
    return true;
  }
  return false;
}

}  // namespace

void RegisterForm(QWidget* form) {
  Prune();
  LoadedForms().emplace_back(form);
}

QWidget* FindForm(const std::string& formName) {
  Prune();
  const QString wanted = QString::fromStdString(formName).toUpper();
  for (const auto& form : LoadedForms())
    if (form->objectName().toUpper() == wanted) return form;
  return nullptr;
}

bool IsFormLoaded(const std::string& formName) { return FindForm(formName) != nullptr; }

void UnloadAllForms() {
  // A window closing may make or close others; take them one at a time from the end.
  for (;;) {
    Prune();
    auto& forms = LoadedForms();
    if (forms.empty()) return;
    QPointer<QWidget> form = forms.back();
    forms.pop_back();
    if (form) {
      form->hide();
      delete form.data();
    }
  }
}

QWidget* WidgetOfWindow(int64_t windowId) {
  if (windowId == 0) return nullptr;
  return QWidget::find(static_cast<WId>(windowId));
}

int64_t NativeWindowId(QWidget* window) { return window ? static_cast<int64_t>(window->winId()) : 0; }

void SetOwnerWindow(QWidget* window, int64_t owner) {
  if (!window) return;
  window->winId();  // makes the window handle to hang the owner on
  QWindow* handle = window->windowHandle();
  if (!handle) return;
  QWindow* ownerHandle = nullptr;
  if (QWidget* w = WidgetOfWindow(owner)) {
    w->window()->winId();
    ownerHandle = w->window()->windowHandle();
  } else if (owner != 0) {
    // Another process's window: the window system knows it by its id.
    static std::vector<QPointer<QWindow>> foreign;
    ownerHandle = QWindow::fromWinId(static_cast<WId>(owner));
    if (ownerHandle) foreign.emplace_back(ownerHandle);
  }
  if (ownerHandle != handle) handle->setTransientParent(ownerHandle);
}

void EnableWindow(int64_t windowId, bool enabled) {
  if (QWidget* w = WidgetOfWindow(windowId)) w->setEnabled(enabled);
}

void PlaceWindow(int64_t windowId, int64_t afterWindowId) {
  QWidget* window = WidgetOfWindow(windowId);
  if (afterWindowId == 0) {
    if (window) {
      window->window()->raise();
      window->window()->activateWindow();
    }
    return;
  }
  if (QWidget* after = WidgetOfWindow(afterWindowId)) after->window()->raise();
  if (window) window->window()->raise();
}

void CenterOverWindow(QWidget* form, int64_t ownerWindow) {
  if (!form) return;
  QRect owner;
  bool known = WindowRect(ownerWindow, owner);
  if (!known && ownerWindow == 0) {
    if (QWidget* active = QApplication::activeWindow(); active && active->window() != form->window()) {
      owner = active->window()->frameGeometry();
      known = true;
    }
  }
  QScreen* screen = nullptr;
  if (known) screen = QGuiApplication::screenAt(owner.center());
  if (!screen) screen = QGuiApplication::primaryScreen();
  const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1024, 768);
  if (!known) owner = area;
  QSize size = form->frameGeometry().size();
  if (size.isEmpty()) size = form->sizeHint();
  QPoint topLeft(owner.center().x() - size.width() / 2, owner.center().y() - size.height() / 2);
  // Partly off screen, the owner still leaves the form wholly on it.
  topLeft.setX(std::clamp(topLeft.x(), area.left(), std::max(area.left(), area.right() - size.width())));
  topLeft.setY(std::clamp(topLeft.y(), area.top(), std::max(area.top(), area.bottom() - size.height())));
  form->move(topLeft);
}

BusyPointer::BusyPointer() { QApplication::setOverrideCursor(Qt::WaitCursor); }
BusyPointer::~BusyPointer() { QApplication::restoreOverrideCursor(); }

}  // namespace ombrel::ui
