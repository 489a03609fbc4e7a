// The window tests run in one QApplication, offscreen unless told otherwise.
#include <gtest/gtest.h>

#include <QApplication>

#include "ui/startup.h"

int main(int argc, char** argv) {
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ombrel::ui::InitResources();  // the English texts, for the tests that compare with them
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
