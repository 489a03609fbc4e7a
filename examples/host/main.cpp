// ombrel-host [cards.db]: an example application hosting Ombrel's windows,
// over the given card database or, without one, five cards in memory.
#include <QApplication>
#include <QMessageBox>

#include "host_window.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/foundation/error.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  std::shared_ptr<ombrel::ICardStore> store;
  QString name = "five sample cards in memory";
  if (argc > 1) {
    try {
      store = ombrel::CSqliteCardStore::Open(argv[1], ombrel::OpenMode::kOpenExisting);
      name = QString::fromLocal8Bit(argv[1]);
    } catch (const ombrel::Error& e) {
      QMessageBox::critical(nullptr, "Ombrel host example", QString::fromStdString(e.Description()));
      return 1;
    }
  } else {
    store = MakeSampleStore();
  }
  HostWindow window(store, name);
  window.show();
  return app.exec();
}
