// The Windows-only part of the Outlook helpers: the command bars, reached
// late-bound through Outlook's application object.
#include "mapi/outlook_utils.h"

#include "addin/late_bound_win32.h"
#include "addin/outlook_app.h"
#include "core/debug_logger.h"

namespace PIM::OutlookUtils {

HRESULT getCommandBars(ComPtr<IDispatch>& commandBars) {
  PIM_ENTRY("PIM::OutlookUtils::getCommandBars");
  commandBars.reset();
  IUnknown* application = OutlookApp::instance()->getOutlookApp();
  if (!application) return E_INVALIDARG;
  ComPtr<IDispatch> dispatch;
  HRESULT hr = application->QueryInterface(IID_IDispatch, dispatch.putVoid());
  if (FAILED(hr)) return hr;
  if (!dispatch) return E_NOINTERFACE;
  LateBound::Variant explorerValue;
  ComPtr<IDispatch> explorer;
  hr = LateBound::callMethod(dispatch.get(), L"ActiveExplorer", explorerValue);
  if (SUCCEEDED(hr)) hr = LateBound::takeDispatch(explorerValue, explorer);
  if (FAILED(hr)) return hr;
  return LateBound::getDispatch(explorer.get(), L"CommandBars", commandBars);
}

}  // namespace PIM::OutlookUtils
