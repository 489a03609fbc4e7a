// The example host over the installed library, offscreen: the wizard shown
// modeless and modal over the host's window, on an in-memory and an SQLite
// store, and the merge dialog.
#include <QApplication>
#include <QPushButton>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QWindow>
#include <functional>

#include "host_window.h"

namespace {

QWidget* ShownWindow(const char* objectName) {
  for (QWidget* w : QApplication::topLevelWidgets())
    if (w->objectName() == objectName && w->isVisible()) return w;
  return nullptr;
}

// Once the modal window shows: act on it, or close whatever is modal so a
// failing test cannot hang.
void WhenShown(QObject* context, const char* objectName, std::function<void(QWidget&)> act) {
  QTimer::singleShot(0, context, [objectName, act] {
    if (QWidget* w = ShownWindow(objectName)) act(*w);
    else if (QWidget* modal = QApplication::activeModalWidget()) modal->close();
  });
}

}  // namespace

class HostTest : public QObject {
  Q_OBJECT

 private slots:
  void modelessWizardOverTheHostWindow_data() {
    QTest::addColumn<bool>("sqlite");
    QTest::newRow("memory") << false;
    QTest::newRow("sqlite") << true;
  }

  void modelessWizardOverTheHostWindow() {
    QFETCH(bool, sqlite);
    std::shared_ptr<ombrel::ICardStore> store = MakeSampleStore();
    QTemporaryDir dir;
    if (sqlite) {
      auto db = ombrel::CSqliteCardStore::Open(dir.filePath("cards.db").toStdString());
      for (const auto& [id, values] : SampleCards()) QCOMPARE(db->AddCard(id, values), 0);
      store = std::move(db);
    }
    HostWindow host(store, "sample");
    host.show();
    QVERIFY(QTest::qWaitForWindowExposed(&host));

    QCOMPARE(host.ShowWizardModeless(), 1);
    QWidget* wizard = ShownWindow("frmWizard");
    QVERIFY(wizard);
    QCOMPARE(wizard->windowModality(), Qt::NonModal);
    QVERIFY(wizard->windowHandle());
    QCOMPARE(wizard->windowHandle()->transientParent(), host.windowHandle());

    // It searches the host's store: the exact duplicates are Ann Lee's two cards.
    wizard->findChild<QPushButton*>("cmdNext")->click();
    auto* list = wizard->findChild<QTableView*>("lstDupes");
    QVERIFY(list);
    QTRY_COMPARE(list->model()->rowCount(), 1);
    QCOMPARE(list->model()->index(0, 0).data().toString(), QString("Ann Lee"));

    QCOMPARE(host.HideWizard(), 1);
    QTRY_VERIFY(!ShownWindow("frmWizard"));
  }

  void modalWizardReturnsOnceClosed() {
    HostWindow host(MakeSampleStore(), "sample");
    host.show();
    QVERIFY(QTest::qWaitForWindowExposed(&host));
    Qt::WindowModality modality = Qt::NonModal;
    WhenShown(&host, "frmWizard", [&](QWidget& wizard) {
      modality = wizard.windowModality();
      host.HideWizard();
    });
    QCOMPARE(host.ShowWizardModal(), 1);
    QCOMPARE(modality, Qt::ApplicationModal);
    QVERIFY(!ShownWindow("frmWizard"));
  }

  void mergeDialogOverTheHostWindow() {
    HostWindow host(MakeSampleStore(), "sample");
    host.show();
    QVERIFY(QTest::qWaitForWindowExposed(&host));
    QWindow* owner = nullptr;
    WhenShown(&host, "frmReview", [&](QWidget& review) {
      owner = review.windowHandle() ? review.windowHandle()->transientParent() : nullptr;
      review.findChild<QPushButton*>("cmdOK")->click();
    });
    // OK without changes keeps the host's card.
    QCOMPARE(host.MergeFirstCard(), std::string("Name\tAnn Lee\tTitle\tCEO\tCompany\tLee & Co\tEmail\tann@lee.org\t"));
    QCOMPARE(owner, host.windowHandle());
  }
};

QTEST_MAIN(HostTest)
#include "host_test.moc"
