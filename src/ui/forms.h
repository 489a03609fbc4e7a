// What every window of the component shares: the register of loaded windows
// (so a window can ask whether another is loaded, and closing the wizard can
// unload them all, newest first), the window utilities that work on native
// window ids (a host hands its main window over as a number, 0 for none),
// and the measure the layouts use where behaviour depends on a size.
#pragma once

#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <string>

namespace ombrel::ui {

// 15 twips make one device-independent pixel.
inline constexpr int kTwipsPerPixel = 15;
constexpr int TwipsToPixels(int twips) { return twips / kTwipsPerPixel; }
constexpr int PixelsToTwips(int pixels) { return pixels * kTwipsPerPixel; }

// A window is loaded from the moment it registers until it is destroyed;
// its objectName is its name.
void RegisterForm(QWidget* form);
// Compares names without regard to case.
bool IsFormLoaded(const std::string& formName);
QWidget* FindForm(const std::string& formName);
// Closes and destroys every loaded window, the last loaded first.
void UnloadAllForms();

// The window behind a native id: one of this process's widgets, or null.
QWidget* WidgetOfWindow(int64_t windowId);
// The native id of a window (made native when it was not yet).
int64_t NativeWindowId(QWidget* window);
// Makes window an owned window of owner (it stays in front of it and
// minimises with it); owner 0 leaves it without one.
void SetOwnerWindow(QWidget* window, int64_t owner);
void EnableWindow(int64_t windowId, bool enabled);
// Puts afterWindow directly behind window; with afterWindow 0, brings window
// to the top. Neither moves nor resizes.
void PlaceWindow(int64_t windowId, int64_t afterWindowId);
// Centres form over ownerWindow, or over the active window when ownerWindow
// is 0, keeping it on the screen.
void CenterOverWindow(QWidget* form, int64_t ownerWindow);

// The pointer shown over the whole application while work runs.
class BusyPointer {
 public:
  BusyPointer();
  ~BusyPointer();
  BusyPointer(const BusyPointer&) = delete;
  BusyPointer& operator=(const BusyPointer&) = delete;
};

}  // namespace ombrel::ui
