#include "ombrel/wizard/cduplicateswizard.h"

#include <QApplication>
#include <QEventLoop>
#include <QPointer>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "ui/forms.h"
#include "ui/qt_prompt.h"
#include "ui/startup.h"
#include "wizard/frm_wizard.h"
#include "wizard/search_job.h"

namespace ombrel {

int32_t CDuplicatesWizard::SetModalOn(int64_t hWnd) {
  HostWindow() = hWnd;
  isModal_ = true;
  return 1;
}

int32_t CDuplicatesWizard::SetModalOff(int64_t hWnd) {
  HostWindow() = hWnd;
  isModal_ = false;
  return 1;
}

void CDuplicatesWizard::SetAppName(const std::string& appName) { AppName() = appName; }

int32_t CDuplicatesWizard::Connect(std::shared_ptr<ICardStore> cardStore) {
  try {
    CSearchJob::StopRunning();
    ui::ReplaceSharedManager(std::move(cardStore));
    return 1;
  } catch (...) {
    return 0;
  }
}

int32_t CDuplicatesWizard::Show() {
  try {
    Trap(qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr,
         "The duplicates wizard needs the host's QApplication");
    ui::InitResources();
    if (AppName().empty()) AppName() = GetResString(206);
    ui::UseWindowPrompt();
    auto* wizard = qobject_cast<ui::frmWizard*>(ui::FindForm("frmWizard"));
    if (!wizard) wizard = new ui::frmWizard;
    if (isModal_) {
      QPointer<ui::frmWizard> alive(wizard);
      wizard->setWindowModality(Qt::ApplicationModal);
      wizard->show();
      QEventLoop loop;
      QObject::connect(wizard, &QObject::destroyed, &loop, &QEventLoop::quit);
      loop.exec();
    } else {
      ui::SetOwnerWindow(wizard, HostWindow());
      wizard->setWindowModality(Qt::NonModal);
      wizard->showNormal();
      wizard->raise();
    }
    return 1;
  } catch (...) {
    return 0;
  }
}

int32_t CDuplicatesWizard::Hide() {
  try {
    if (auto* wizard = qobject_cast<ui::frmWizard*>(ui::FindForm("frmWizard"))) {
      wizard->RequestUnload(false);
    }
  } catch (...) {
    ReportError();
  }
  return 1;
}

}  // namespace ombrel
