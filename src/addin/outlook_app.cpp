#include "addin/outlook_app.h"

#include "core/debug_logger.h"

// Constructed while the module loads, before anyone can ask for it.
OutlookApp OutlookApp::theApp_;

OutlookApp* OutlookApp::instance() { return &theApp_; }

OutlookApp::OutlookApp() { PIM_ENTRY("OutlookApp::OutlookApp"); }

OutlookApp::~OutlookApp() {
  PIM_ENTRY("OutlookApp::~OutlookApp");
  application_.reset();
  session_.reset();
}

IUnknown* OutlookApp::getOutlookApp() const {
  PIM_ENTRY("OutlookApp::getOutlookApp");
  PIM_ASSERT(application_);
  return application_.get();
}

IMAPISession* OutlookApp::getMapiSession() const {
  PIM_ENTRY("OutlookApp::getMapiSession");
  PIM_ASSERT(session_);
  return session_.get();
}

// The new reference is taken before the old one goes, so that setting the
// pointer already held cannot free the object in between.
void OutlookApp::setOutlookApp(IUnknown* application) {
  PIM_ENTRY("OutlookApp::setOutlookApp");
  application_ = PIM::ComPtr<IUnknown>::share(application);
}

void OutlookApp::setMapiSession(IMAPISession* session) {
  PIM_ENTRY("OutlookApp::setMapiSession");
  session_ = PIM::ComPtr<IMAPISession>::share(session);
}
