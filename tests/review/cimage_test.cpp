#include "review/cimage.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QWidget>

#include "ui/forms.h"

namespace ombrel {
namespace {

// A control of width x height twips showing an image of w x h pixels.
struct Shown {
  QLabel box;
  CImage image;
  Shown(int32_t width, int32_t height, int w, int h) {
    image.Initialize(&box);
    image.SetPicture(QImage(w, h, QImage::Format_RGB32));
    image.Resize(width, height, false, false);
  }
};

TEST(CImageTest, ConvertsBetweenTwipsAndImagePixels) {
  Shown shown(5000, 3000, 1000, 600);
  ASSERT_EQ(shown.image.TwipsPerPixelX(), 15);  // a 96-dpi screen
  EXPECT_EQ(shown.image.TwipsToPixelsX(2500), 500);
  EXPECT_EQ(shown.image.TwipsToPixelsY(1500), 300);
  EXPECT_EQ(shown.box.width(), 5000 / 15);

  // Twips come back as whole screen pixels; an exact half goes down.
  struct Case {
    int32_t controlWidth, expected;
  };
  for (const Case c : {Case{5200, 45}, Case{5300, 60}, Case{4500, 45}}) {
    Shown one(c.controlWidth, 1500, 100, 50);
    EXPECT_EQ(one.image.PixelsToTwipsX(1), c.expected) << c.controlWidth;
  }
  Shown half(5250, 1500, 100, 50);  // 52.5 twips: to the even 52, then 45
  EXPECT_EQ(half.image.PixelsToTwipsX(1), 45);
}

TEST(CImageTest, ResizesKeepingTheImagesShapeWhenAsked) {
  Shown shown(3000, 3000, 200, 100);  // an image twice as wide as high
  shown.image.Resize(4000, 4000, true, true);
  EXPECT_EQ(shown.image.ControlWidth(), 4000);
  EXPECT_EQ(shown.image.ControlHeight(), 2000);  // fits the box
  shown.image.Resize(4000, 4000, true, false);
  EXPECT_EQ(shown.image.ControlWidth(), 8000);  // covers the box
  EXPECT_EQ(shown.image.ControlHeight(), 4000);
  shown.image.Resize(4000, 1000, true, true);   // a box wider than the image
  EXPECT_EQ(shown.image.ControlWidth(), 2000);
  shown.image.Resize(1234, 567, false, true);
  EXPECT_EQ(shown.image.ControlWidth(), 1234);
  EXPECT_EQ(shown.image.ControlHeight(), 567);

  Shown flat(3000, 3000, 100, 0);  // no height: never corrected
  flat.image.SetPicture(QImage());
  flat.image.Resize(4000, 1000, true, true);
  EXPECT_EQ(flat.image.ControlWidth(), 4000);
}

TEST(FormsTest, LoadedWindowsAreFoundByNameAndUnloadedNewestFirst) {
  std::vector<std::string> destroyed;
  for (const char* name : {"frmFirst", "frmSecond"}) {
    auto* form = new QWidget;
    form->setObjectName(name);
    ui::RegisterForm(form);
    QObject::connect(form, &QObject::destroyed, [&destroyed, name] { destroyed.push_back(name); });
  }
  EXPECT_TRUE(ui::IsFormLoaded("FRMSECOND"));
  EXPECT_FALSE(ui::IsFormLoaded("frmThird"));
  ui::UnloadAllForms();
  EXPECT_EQ(destroyed, (std::vector<std::string>{"frmSecond", "frmFirst"}));
  EXPECT_FALSE(ui::IsFormLoaded("frmFirst"));
}

}  // namespace
}  // namespace ombrel
