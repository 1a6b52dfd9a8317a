// The add-in's buttons on an Office command bar: made, labelled and given
// their pictures here, and their clicks turned into messages for the action
// window (message 1025, wParam = the button's identifier), so that nothing
// runs inside Office's own event call.
//
//   ButtonManager* buttons = ButtonManager::instance();
//   buttons->addButton(caption, "Standard", 9000);
//   buttons->setTooltip(9000, caption);
//   buttons->setPicture(9000, 213, 210);
//   ...
//   ButtonManager::freeInstance();   // disconnects every button's sink
//
// Failures are logged where they happen ("HR Error" lines) and leave no
// button behind; later calls for that identifier answer E_INVALIDARG.
// The buttons are made temporary: Office drops them when it ends, so they
// are never removed from the bar here.
//
// Threads: the host's main thread only (Office's objects and the singleton
// have no lock).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "addin/button_wrapper_win32.h"

namespace PIM {

// Office's control type "button" and style "icon only".
inline constexpr int32_t kMsoControlButton = 1;
inline constexpr int32_t kMsoButtonIcon = 1;
// The Office face a new button shows until its picture is set.
inline constexpr int32_t kDefaultFaceId = 4;

class ButtonManager {
 public:
  // Made on first use, empty.
  static ButtonManager* instance();
  // Deletes the manager, and with it every button's wrapper; the next
  // instance() starts empty.
  static void freeInstance();

  ButtonManager(const ButtonManager&) = delete;
  ButtonManager& operator=(const ButtonManager&) = delete;

  // A new temporary icon button with `caption` at the end of the first
  // command bar named exactly `barName`, known from then on as `id`. S_OK
  // also when no bar has that name (nothing is added and nothing logged);
  // otherwise the failing step's code, logged. An identifier already in use
  // is logged and taken over by the new button; the old button stays
  // connected, its clicks still posted under the same identifier.
  [[nodiscard]] HRESULT addButton(const std::u16string& caption, const std::string& barName,
                                  int32_t id);
  // DescriptionText, then TooltipText; the second call's result.
  // E_INVALIDARG for an unknown identifier.
  [[nodiscard]] HRESULT setTooltip(int32_t id, const std::u16string& text);
  // The button's Picture and Mask from the bitmap resources (by number) of
  // the module that holds this code. E_INVALIDARG for an unknown
  // identifier; otherwise the first failure, or the result of setting Mask.
  [[nodiscard]] HRESULT setPicture(int32_t id, int pictureResource, int maskResource);

  // A click: posts message 1025 with wParam = id to the action window of
  // OutlookApp and returns at once.
  void onButtonClicked(uint32_t id);

 private:
  ButtonManager() = default;
  // " MSG> Removing all toolbar buttons.", then the wrappers are deleted in
  // identifier order.
  ~ButtonManager();

  static ButtonManager* instance_;

  std::map<int32_t, std::unique_ptr<ButtonWrapper>> buttons_;
};

}  // namespace PIM
