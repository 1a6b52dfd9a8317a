#include "addin/button_manager_win32.h"

#include <windows.h>

#include <olectl.h>

#include <utility>

#include "addin/late_bound_win32.h"
#include "addin/outlook_app.h"
#include "core/debug_logger.h"
#include "core/utils.h"
#include "mapi/com_error.h"
#include "mapi/outlook_utils.h"
#include "platform/win32/own_module.h"

namespace PIM {

namespace {

using LateBound::Variant;

// A bitmap handle, deleted unless a picture object took it over.
class Bitmap {
 public:
  explicit Bitmap(HBITMAP handle) noexcept : handle_(handle) {}
  ~Bitmap() {
    if (handle_) DeleteObject(handle_);
  }
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;

  HBITMAP get() const noexcept { return handle_; }
  HBITMAP release() noexcept { return std::exchange(handle_, nullptr); }
  explicit operator bool() const noexcept { return handle_ != nullptr; }

 private:
  HBITMAP handle_;
};

// A bitmap resource by number, at its own size and colours.
HBITMAP loadBitmap(HMODULE module, int resource) {
  return static_cast<HBITMAP>(
      LoadImageW(module, MAKEINTRESOURCEW(resource), IMAGE_BITMAP, 0, 0, LR_DEFAULTCOLOR));
}

HRESULT lastError() {
  const DWORD error = GetLastError();
  return error ? HRESULT_FROM_WIN32(error) : E_FAIL;
}

// Sets property `name` of the button to a picture made from `bitmap`, which
// the picture takes over once it exists.
HRESULT setPictureProperty(IDispatch* button, const wchar_t* name, Bitmap& bitmap) {
  PICTDESC desc = {};
  desc.cbSizeofstruct = sizeof desc;
  desc.picType = PICTYPE_BITMAP;
  desc.bmp.hbitmap = bitmap.get();
  ComPtr<IDispatch> picture;
  HRESULT hr = OleCreatePictureIndirect(&desc, IID_IPictureDisp, TRUE, picture.putVoid());
  if (FAILED(hr)) return hr;
  (void)bitmap.release();
  return LateBound::putProperty(button, name, Variant::dispatch(picture.get()));
}

}  // namespace

ButtonManager* ButtonManager::instance_ = nullptr;

ButtonManager* ButtonManager::instance() {
  PIM_ENTRY("PIM::ButtonManager::instance");
  if (!instance_) instance_ = new ButtonManager();
  return instance_;
}

void ButtonManager::freeInstance() {
  PIM_ENTRY("PIM::ButtonManager::freeInstance");
  delete std::exchange(instance_, nullptr);
}

ButtonManager::~ButtonManager() {
  PIM_ENTRY("PIM::ButtonManager::~ButtonManager");
  PIM_LOG_MSG("Removing all toolbar buttons.");
  // One by one, first identifier first: each wrapper disconnects its sink
  // and releases its button as it goes.
  while (!buttons_.empty()) buttons_.erase(buttons_.begin());
}

HRESULT ButtonManager::addButton(const std::u16string& caption, const std::string& barName,
                                 int32_t id) {
  PIM_ENTRY("PIM::ButtonManager::addButton");
  ComPtr<IDispatch> bars;
  HRESULT hr = OutlookUtils::getCommandBars(bars);
  if (SUCCEEDED(hr) && !bars) hr = E_POINTER;
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to get the command bar collection - could not add button.");
    return hr;
  }
  int32_t barCount = 0;
  hr = LateBound::getInt32(bars.get(), L"Count", barCount);
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to get the count of active bars.");
    return hr;
  }

  // The first bar of that name, case and all; a bar that cannot be read is
  // passed over.
  ComPtr<IDispatch> bar;
  for (int32_t i = 1; i <= barCount && !bar; ++i) {
    ComPtr<IDispatch> candidate;
    const Variant index = Variant::int32(i);
    hr = LateBound::getDispatch(bars.get(), L"Item", candidate, {&index});
    std::u16string name;
    if (SUCCEEDED(hr)) hr = LateBound::getString(candidate.get(), L"Name", name);
    if (FAILED(hr)) {
      PIM_LOG_HR(hr, "Failed to retrieve the command bar name for bar " << i);
      continue;
    }
    if (toUtf8(name) == barName) bar = std::move(candidate);
  }
  if (!bar) return S_OK;

  ComPtr<IDispatch> controls;
  hr = LateBound::getDispatch(bar.get(), L"Controls", controls);
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to retrieve the command bar controls.");
    return hr;
  }
  int32_t controlCount = 0;
  hr = LateBound::getInt32(controls.get(), L"Count", controlCount);
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to retrieve the command bar control count.");
    return hr;
  }

  // Add(Type, Id, Parameter, Before, Temporary): a button at the end of the
  // bar, temporary so that Office drops it when it ends.
  const Variant type = Variant::int32(kMsoControlButton);
  const Variant missing = Variant::missing();
  const Variant before = Variant::int32(controlCount + 1);
  const Variant temporary = Variant::int16(-1);
  Variant added;
  ComPtr<IDispatch> control;
  hr = LateBound::callMethod(controls.get(), L"Add", added,
                             {&type, &missing, &missing, &before, &temporary});
  if (SUCCEEDED(hr)) hr = LateBound::takeDispatch(added, control);
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to add new button to the command bar.");
    return hr;
  }

  ComPtr<IDispatch> button;
  hr = control.queryInterface(kIidCommandBarButton, button);
  if (SUCCEEDED(hr) && !button) hr = E_NOINTERFACE;
  if (FAILED(hr)) {
    PIM_LOG_ERR("Could not access new button.");
    return hr;
  }

  // A property the button refuses leaves it usable: it is kept all the same.
  (void)LateBound::putString(button.get(), L"Caption", caption);
  (void)LateBound::putProperty(button.get(), L"FaceId", Variant::int32(kDefaultFaceId));
  (void)LateBound::putProperty(button.get(), L"Style", Variant::int32(kMsoButtonIcon));
  (void)LateBound::putProperty(button.get(), L"Visible", Variant::boolean(true));

  const auto existing = buttons_.find(id);
  if (existing != buttons_.end()) {
    PIM_LOG_ERR("Attempt to overwite button with existing id.");
    // The old button stays on the bar with its sink connected, so its
    // wrapper is left alive on purpose: its clicks still arrive, under the
    // same identifier.
    (void)existing->second.release();
    buttons_.erase(existing);
  }
  buttons_.emplace(id, std::make_unique<ButtonWrapper>(button.get(), static_cast<uint32_t>(id)));
  return S_OK;
}

HRESULT ButtonManager::setTooltip(int32_t id, const std::u16string& text) {
  PIM_ENTRY("PIM::ButtonManager::setTooltip");
  const auto found = buttons_.find(id);
  if (found == buttons_.end()) return E_INVALIDARG;
  IDispatch* button = found->second->button();
  (void)LateBound::putString(button, L"DescriptionText", text);
  return LateBound::putString(button, L"TooltipText", text);
}

HRESULT ButtonManager::setPicture(int32_t id, int pictureResource, int maskResource) {
  PIM_ENTRY("PIM::ButtonManager::setPicture");
  const auto found = buttons_.find(id);
  if (found == buttons_.end()) return E_INVALIDARG;
  IDispatch* button = found->second->button();

  const HMODULE module = ownModule();
  if (!module) return lastError();
  Bitmap picture(loadBitmap(module, pictureResource));
  HRESULT loadError = picture ? S_OK : lastError();
  Bitmap mask(loadBitmap(module, maskResource));
  if (!mask && SUCCEEDED(loadError)) loadError = lastError();
  // Both or neither: the bitmap that did load goes with the owners.
  if (FAILED(loadError)) return loadError;

  HRESULT hr = setPictureProperty(button, L"Picture", picture);
  if (FAILED(hr)) return hr;
  return setPictureProperty(button, L"Mask", mask);
}

void ButtonManager::onButtonClicked(uint32_t id) {
  PIM_ENTRY("PIM::ButtonManager::onButtonClicked");
  // Posted, not handled here: the action may run a modal sheet or a
  // capture, which must not happen inside Office's event call.
  (void)OutlookApp::instance()->actionWindow().postMessage(kButtonPressedMessage, id, 0);
}

}  // namespace PIM
